// The plug-in for mounted volumes, serving one of the test's own.
#ifndef CORVANE_TESTS_PLUGINS_MOUNTED_PLUGIN_HPP
#define CORVANE_TESTS_PLUGINS_MOUNTED_PLUGIN_HPP

#include "tests/plugins/mounted_volume.hpp"
#include "tests/plugins/plugin.hpp"

namespace corvane::test {

// The library that the test was built for, with this volume alone in its list, for writing. Each
// call reads the list anew.
const Plugin& serve_mounted(const MountedVolume& volume);

// What a client does through a map: each byte of [at, at + size) must lie in a written block of it,
// and both ends be those of blocks.
std::string read_mapped(const MountedVolume& volume, const Map& map, std::int64_t at,
                        std::int64_t bytes);
void write_mapped(const MountedVolume& volume, const Map& map, std::int64_t at,
                  const std::string& content);

}  // namespace corvane::test

#endif
