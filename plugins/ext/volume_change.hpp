// The frame around every change to a volume: what must be on disk before, and what after.
#ifndef CORVANE_PLUGINS_EXT_VOLUME_CHANGE_HPP
#define CORVANE_PLUGINS_EXT_VOLUME_CHANGE_HPP

#include <string>

#include "plugins/ext/volume.hpp"

namespace corvane::ext {

// Marks the volume as not clean, on disk, for as long as a change runs: a daemon killed in between
// leaves a volume that says so. commit() writes everything and marks it clean again; without it the
// volume stays marked and takes no further change. `io` is held.
class VolumeChange {
public:
    explicit VolumeChange(Volume& volume) : volume_(volume) {}
    ~VolumeChange();
    VolumeChange(const VolumeChange&) = delete;
    VolumeChange& operator=(const VolumeChange&) = delete;

    [[nodiscard]] bool begin();
    [[nodiscard]] bool commit();

private:
    static void keep_freed(ext2_filsys fs, blk64_t block, int change);
    errcode_t write_state(bool is_clean);
    errcode_t write_all();

    Volume& volume_;
    bool is_open_ = false;
    // Given up by this change, and not to be used by it again: the library may still hold such a
    // block in its cache, as part of an extent tree, and would write it over what came to lie
    // there.
    std::vector<blk64_t> freed_;
};

// Sets or clears, in memory alone, the bits of blocks that are free on disk but held back from use.
void mark_held_back(Volume& volume, const std::vector<BlockRange>& ranges, bool is_held);

}  // namespace corvane::ext

#endif
