// The image file or block device that holds a volume: may it be used, and who else uses it.
#ifndef CORVANE_PLUGINS_EXT_SOURCE_HPP
#define CORVANE_PLUGINS_EXT_SOURCE_HPP

#include <cstdint>
#include <string>

namespace corvane::ext {

// Holds the source open and locked: shared for a read-only volume, alone for a writable one. A
// block device is also claimed from the kernel, so that it cannot be mounted meanwhile.
class Source {
public:
    Source() = default;
    ~Source();
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    // Returns why the source cannot be used and what to do, or an empty text.
    std::string open(const std::string& path, bool is_writable);
    [[nodiscard]] std::uint64_t size_bytes() const noexcept { return size_bytes_; }

    // Zeroes the bytes from `from` up to `block_end` (a multiple of `block_bytes`) within one block
    // of file data. On a device it goes round the page cache: clients write there without telling
    // this host, and a stale page must not carry older data back.
    bool zero_block_tail(std::uint64_t from, std::uint64_t block_end, std::uint32_t block_bytes);

private:
    bool zero_tail_direct(std::uint64_t from, std::uint64_t block_end, std::uint32_t block_bytes);

    std::string path_;
    int descriptor_ = -1;
    bool is_device_ = false;
    std::uint64_t size_bytes_ = 0;
};

}  // namespace corvane::ext

#endif
