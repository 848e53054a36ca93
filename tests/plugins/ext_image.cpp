// Makes images with mke2fs and debugfs and reads them back.
#include "tests/plugins/ext_image.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <regex>

namespace corvane::test {
namespace {

int open_image(const std::string& path)
{
    const int descriptor = open(path.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_GE(descriptor, 0) << path;
    return descriptor;
}

}  // namespace

ExtImage::ExtImage(const Scratch& scratch, const std::string& options, std::uint32_t size_kib,
                   const std::string& name)
    : scratch_(scratch), path_(scratch.path(name))
{
    must_run("mke2fs -q -F " + options + " '" + path_ + "' " + std::to_string(size_kib) + "k");
    const std::string header = must_run("dumpe2fs -h '" + path_ + "'");
    std::smatch match;
    if (std::regex_search(header, match, std::regex("Block size: +([0-9]+)"))) {
        block_bytes_ = static_cast<std::uint32_t>(std::stoul(match[1]));
    }
}

void ExtImage::debugfs(const std::string& request) const
{
    must_run("debugfs -w -R '" + request + "' '" + path_ + "'");
}

void ExtImage::put(const std::string& name, const std::string& content) const
{
    const std::string source = scratch_.write("content", content);
    debugfs("write " + source + " " + name);
}

void ExtImage::put_fragmented(const std::string& name, unsigned extent_count) const
{
    // debugfs keeps holes: every second block of the source is one.
    const std::string source = scratch_.path("fragmented");
    std::ofstream file(source, std::ios::binary);
    for (unsigned i = 0; i < extent_count; ++i) {
        file.seekp(static_cast<std::streamoff>(i) * 2 * block_bytes_);
        file << pattern(block_bytes_, i + 1);
    }
    file.close();
    debugfs("write " + source + " " + name);
}

std::string ExtImage::dump(const std::string& name) const
{
    const std::string target = scratch_.path("dumped");
    must_run("debugfs -R 'dump " + name + " " + target + "' '" + path_ + "'");
    return read_whole_file(target);
}

std::string ExtImage::stat(const std::string& name) const
{
    return must_run("debugfs -R 'stat " + name + "' '" + path_ + "'");
}

std::vector<DiskRun> ExtImage::runs(const std::string& name) const
{
    std::vector<DiskRun> found;
    const std::string text = stat(name);
    static const std::regex run(R"(\(([0-9]+)(?:-([0-9]+))?(\[u\])?\):([0-9]+))");
    for (std::sregex_iterator at(text.begin(), text.end(), run), end; at != end; ++at) {
        const auto& part = *at;
        const std::uint64_t first = std::stoull(part[1]);
        const std::uint64_t last = part[2].matched ? std::stoull(part[2]) : first;
        found.push_back({first, std::stoull(part[4]), last - first + 1, part[3].matched});
    }
    std::sort(found.begin(), found.end(),
              [](const DiskRun& a, const DiskRun& b) { return a.logical < b.logical; });
    return found;
}

std::vector<VerboseExtent> ExtImage::expected_extents(const std::string& name,
                                                      std::uint64_t end_bytes) const
{
    const auto block_bytes = static_cast<std::int64_t>(block_bytes_);
    const auto end = (static_cast<std::int64_t>(end_bytes) + block_bytes - 1) / block_bytes;
    std::vector<VerboseExtent> extents;
    std::int64_t block = 0;
    const auto add = [&](std::int64_t physical, std::int64_t count, std::int32_t validity) {
        count = std::min(count, end - block);
        if (count <= 0) return;
        VerboseExtent next{block * block_bytes, physical * block_bytes, count * block_bytes, 0,
                           validity};
        block += count;
        if (!extents.empty()) {
            VerboseExtent& last = extents.back();
            const bool meets = validity == FS_VALIDITY_HOLE ||
                               last.PhysicalByteAddr + last.nBytes == next.PhysicalByteAddr;
            if (last.validity == validity && meets) {
                last.nBytes += next.nBytes;
                return;
            }
        }
        extents.push_back(next);
    };
    for (const DiskRun& run : runs(name)) {
        const auto logical = static_cast<std::int64_t>(run.logical);
        add(0, logical - block, FS_VALIDITY_HOLE);
        add(static_cast<std::int64_t>(run.physical), static_cast<std::int64_t>(run.count),
            run.is_unwritten ? FS_VALIDITY_UNWRITTEN : FS_VALIDITY_DATA);
    }
    add(0, end - block, FS_VALIDITY_HOLE);
    return extents;
}

std::string ExtImage::read_through(const Map& map) const
{
    const int descriptor = open_image(path_);
    std::string content(static_cast<std::size_t>(map.info.fileBytes), '\0');
    for (const auto& extent : map.extents) {
        if (extent.validity != FS_VALIDITY_DATA) continue;
        const auto at = static_cast<std::size_t>(extent.LogicalByteAddr - map.info.fileOffset);
        const auto bytes = static_cast<std::size_t>(extent.nBytes);
        EXPECT_EQ(pread(descriptor, content.data() + at, bytes, extent.PhysicalByteAddr),
                  static_cast<ssize_t>(bytes));
    }
    close(descriptor);
    const auto size = map.info.fileSize - map.info.fileOffset;
    if (static_cast<std::int64_t>(content.size()) > size) {
        content.resize(static_cast<std::size_t>(std::max<std::int64_t>(size, 0)));
    }
    return content;
}

std::size_t ExtImage::write_through(const Map& map, std::int64_t at,
                                    const std::string& content) const
{
    const int descriptor = open_image(path_);
    std::size_t placed = 0;
    const std::int64_t end = at + static_cast<std::int64_t>(content.size());
    for (const auto& extent : map.extents) {
        if (extent.validity != FS_VALIDITY_DATA) continue;
        const std::int64_t from = std::max(at, extent.LogicalByteAddr);
        const std::int64_t to = std::min(end, extent.LogicalByteAddr + extent.nBytes);
        if (from >= to) continue;
        const auto bytes = static_cast<std::size_t>(to - from);
        EXPECT_EQ(pwrite(descriptor, content.data() + (from - at), bytes,
                         extent.PhysicalByteAddr + (from - extent.LogicalByteAddr)),
                  static_cast<ssize_t>(bytes));
        placed += bytes;
    }
    close(descriptor);
    return placed;
}

bool ExtImage::is_clean() const
{
    return run_command("e2fsck -fn '" + path_ + "'").status == 0;
}

void ExtImage::expect_clean(const std::string& when) const
{
    const auto check = run_command("e2fsck -fn '" + path_ + "'");
    EXPECT_EQ(check.status, 0) << when << "\n" << check.output;
}

std::uint32_t serve(const Plugin& plugin, const Scratch& scratch, const std::string& lines)
{
    const std::string list = scratch.write("volumes.conf", lines);
    setenv("CORVANE_VOLUMES_FILE", list.c_str(), 1);
    return plugin.init();
}

}  // namespace corvane::test
