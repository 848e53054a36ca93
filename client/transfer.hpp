// Moves a file's bytes between its blocks and this host.
#ifndef CORVANE_CLIENT_TRANSFER_HPP
#define CORVANE_CLIENT_TRANSFER_HPP

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "client/disk_finder.hpp"
#include "client/exchange.hpp"
#include "client/open_file.hpp"

namespace corvane {

// Where read bytes go, in the order of the file.
class Sink {
public:
    virtual ~Sink() = default;
    virtual void write(std::span<const std::byte> bytes) = 0;
    virtual void write_zeros(std::int64_t count) = 0;
    virtual void finish() {}
};

// Where bytes to write come from, in the order of the file.
class Source {
public:
    virtual ~Source() = default;
    [[nodiscard]] virtual std::int64_t size() const = 0;
    // Fills all of `bytes`.
    virtual void read(std::span<std::byte> bytes) = 0;
};

// Called after each step with the bytes done and the bytes in all.
using ProgressHook = std::function<void(std::int64_t done, std::int64_t total)>;

struct TransferOptions {
    Candidates candidates;
    ProgressHook progress;  // may be empty
};

// Reads the whole file into `sink` and closes it. Throws Failure; the lease is closed either way.
void read_file(const Exchange& exchange, OpenFile& file, Sink& sink,
               const TransferOptions& options);

// Replaces the file's contents by the source's and closes it with the source's size. What holds
// when it fails: before the first block is written, everything that can be checked has been (every
// disk is here, every byte has a block), and the file is as it was. From then on blocks are
// overwritten in place, from the first byte on; a failure says how many bytes are new. The size
// changes with the close alone, so a file that was to grow is never longer than its written bytes,
// and one that was to shrink keeps its old rest.
void write_file(const Exchange& exchange, OpenFile& file, Source& source,
                const TransferOptions& options);

}  // namespace corvane
#endif
