// The files of this host that bytes are copied to and from.
#ifndef CORVANE_CLIENT_LOCAL_FILE_HPP
#define CORVANE_CLIENT_LOCAL_FILE_HPP

#include <atomic>
#include <cstdint>
#include <string>

#include "client/descriptor_owner.hpp"
#include "client/transfer.hpp"

namespace corvane {

// Writes to a descriptor that it does not own. In a regular file that was empty, zeros become
// holes.
class DescriptorSink : public Sink {
public:
    // `name` is for messages. `stop` may be null; once true, a blocked write ends with
    // kInterrupted.
    DescriptorSink(int descriptor, std::string name, const std::atomic<bool>* stop);
    void write(std::span<const std::byte> bytes) override;
    void write_zeros(std::int64_t count) override;
    void finish() override;

private:
    int descriptor_;
    std::string name_;
    const std::atomic<bool>* stop_;
    bool may_skip_ = false;      // zeros are skipped by seeking
    std::int64_t position_ = 0;  // bytes so far
};

// Opens a file for a sink, created or emptied. Throws Failure(kLocalFile).
[[nodiscard]] Descriptor create_output(const std::string& path);

// Reads a regular file, whose size is taken once.
class FileSource : public Source {
public:
    FileSource(Descriptor descriptor, std::string name);
    [[nodiscard]] std::int64_t size() const override { return size_; }
    void read(std::span<std::byte> bytes) override;

private:
    Descriptor descriptor_;
    std::string name_;
    std::int64_t size_ = 0;
    std::int64_t position_ = 0;
};

// Opens an input file, or takes standard input when `path` is empty. What is not a regular file is
// first copied to a nameless temporary file (in TMPDIR, else /var/tmp), so that its size is known
// and a producer that fails has not touched anything yet; memory stays small.
[[nodiscard]] FileSource open_input(const std::string& path, const std::atomic<bool>* stop);

}  // namespace corvane
#endif
