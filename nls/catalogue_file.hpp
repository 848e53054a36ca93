// Bounded reads of a catalogue file: header, chain of set records, blocks. What a file says is
// checked against the file's size before anything is allocated for it.
#ifndef CORVANE_NLS_CATALOGUE_FILE_HPP
#define CORVANE_NLS_CATALOGUE_FILE_HPP

#include <cstddef>
#include <cstdint>
#include <unordered_set>

#include "nls/catalogue_format.h"

namespace corvane {

// Reads exactly `size` bytes at `offset`; false when the file ends before or cannot be read there.
[[nodiscard]] bool read_exactly(int fd, std::uint64_t offset, void* out, std::size_t size) noexcept;

// True when the file holds `size` bytes at `offset`; no bytes at all it holds anywhere.
[[nodiscard]] bool file_holds(int fd, std::uint64_t offset, std::uint64_t size) noexcept;

// True while `bytes` read from a file in all may come of sets that share its blocks; false when a
// small file has its blocks read so often that it would fill the memory.
[[nodiscard]] bool is_fair_share(int fd, std::uint64_t bytes) noexcept;

// Reads and converts the header. False when the file is too short for one or has another magic.
[[nodiscard]] bool read_header(int fd, MCHeaderT& header) noexcept;

// Walks the chain of set records and leaves out deleted ones.
class SetChain {
public:
    enum class Step { kRecord, kEnd, kCorrupt };

    SetChain(int fd, std::uint32_t first_set) : fd_(fd), next_(first_set) {}

    // Gives the next valid record in host order, kEnd behind the last one, or kCorrupt where a
    // record cannot be read, lies in the header, or has been there before. May throw
    // std::bad_alloc.
    [[nodiscard]] Step next(MCSetT& set);

private:
    int fd_;
    std::uint32_t next_;
    std::unordered_set<std::uint32_t> visited_;
};

// The text at `offset` of a text block, or null when it does not lie in the block with its zero
// byte.
[[nodiscard]] const char* block_text(const char* block, std::size_t block_bytes,
                                     std::uint32_t offset) noexcept;

}  // namespace corvane
#endif
