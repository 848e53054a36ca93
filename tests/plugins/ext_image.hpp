// Disk images with ext file systems, made, filled and judged by e2fsprogs.
#ifndef CORVANE_TESTS_PLUGINS_EXT_IMAGE_HPP
#define CORVANE_TESTS_PLUGINS_EXT_IMAGE_HPP

#include <cstdint>
#include <string>
#include <vector>

#include "tests/plugins/plugin.hpp"
#include "tests/plugins/scratch.hpp"

namespace corvane::test {

// One run of a file's blocks as debugfs tells it.
struct DiskRun {
    std::uint64_t logical = 0;
    std::uint64_t physical = 0;
    std::uint64_t count = 0;
    bool is_unwritten = false;
};

class ExtImage {
public:
    // `options` go to mke2fs: "-t ext4 -b 1024".
    ExtImage(const Scratch& scratch, const std::string& options, std::uint32_t size_kib,
             const std::string& name = "image");

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::uint32_t block_bytes() const { return block_bytes_; }

    // Runs one debugfs request that may write.
    void debugfs(const std::string& request) const;
    // Makes a file with this content.
    void put(const std::string& name, const std::string& content) const;
    // Makes a file of `extent_count` runs that do not touch on the disk, a hole after each.
    void put_fragmented(const std::string& name, unsigned extent_count) const;

    // What the file holds, by debugfs alone.
    [[nodiscard]] std::string dump(const std::string& name) const;
    [[nodiscard]] std::string stat(const std::string& name) const;
    [[nodiscard]] std::vector<DiskRun> runs(const std::string& name) const;
    // The runs as extents of a whole map up to `end_bytes`, block-rounded.
    [[nodiscard]] std::vector<VerboseExtent> expected_extents(const std::string& name,
                                                              std::uint64_t end_bytes) const;

    // What the map's blocks hold, read straight from the image; zeros where nothing is written.
    [[nodiscard]] std::string read_through(const Map& map) const;
    // Writes like a client: into data extents only. Returns the bytes that found a place.
    std::size_t write_through(const Map& map, std::int64_t at, const std::string& content) const;

    // Expects e2fsck -fn to find nothing.
    void expect_clean(const std::string& when) const;
    [[nodiscard]] bool is_clean() const;

private:
    const Scratch& scratch_;
    std::string path_;
    std::uint32_t block_bytes_ = 0;
};

// Writes a list of volumes and has the plug-in read it. Each line is one of volumes.conf.
std::uint32_t serve(const Plugin& plugin, const Scratch& scratch, const std::string& lines);

}  // namespace corvane::test

#endif
