// Loads the plug-in for mounted volumes and moves bytes through its maps.
#include "tests/plugins/mounted_plugin.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>

namespace corvane::test {
namespace {

// Calls `move` with the place on the disk, the offset in the range and the length of each piece of
// it.
void for_pieces(
    const Map& map, std::int64_t at, std::int64_t bytes,
    const std::function<void(std::int64_t place, std::int64_t offset, std::int64_t count)>& move)
{
    std::int64_t next = at;
    for (const VerboseExtent& extent : map.extents) {
        const std::int64_t end = std::min(extent.LogicalByteAddr + extent.nBytes, at + bytes);
        if (extent.validity != FS_VALIDITY_DATA || next < extent.LogicalByteAddr || next >= end)
            continue;
        move(extent.PhysicalByteAddr + next - extent.LogicalByteAddr, next - at, end - next);
        next = end;
    }
    EXPECT_EQ(next, at + bytes) << "not all in written blocks: " << to_text(map.extents);
}

}  // namespace

const Plugin& serve_mounted(const MountedVolume& volume)
{
    static const Plugin plugin(CORVANE_PLUGIN_FILE);
    const std::string list = "/mnt/volumes.conf";
    std::ofstream(list) << volume.mount_point() << " mounted rw\n" << std::flush;
    setenv("CORVANE_VOLUMES_FILE", list.c_str(), 1);
    EXPECT_EQ(plugin.init(), 0U);
    return plugin;
}

std::string read_mapped(const MountedVolume& volume, const Map& map, std::int64_t at,
                        std::int64_t bytes)
{
    std::string content;
    for_pieces(map, at, bytes, [&](std::int64_t place, std::int64_t, std::int64_t count) {
        content += volume.client_read(place, count);
    });
    return content;
}

void write_mapped(const MountedVolume& volume, const Map& map, std::int64_t at,
                  const std::string& content)
{
    for_pieces(map, at, static_cast<std::int64_t>(content.size()),
               [&](std::int64_t place, std::int64_t offset, std::int64_t count) {
                   volume.client_write(place, content.substr(static_cast<std::size_t>(offset),
                                                             static_cast<std::size_t>(count)));
               });
}

}  // namespace corvane::test
