// Owners of libext2fs objects, and the one place where its error codes become result codes.
#ifndef CORVANE_PLUGINS_EXT_EXT_HANDLES_HPP
#define CORVANE_PLUGINS_EXT_EXT_HANDLES_HPP

#include <ext2fs/ext2fs.h>

#include <cstdint>
#include <memory>
#include <string>

#include "fsmdc/fs_result.h"
#include "plugins/common/runs.hpp"

namespace corvane::ext {

// Never writes on the way out: what must reach the disk is flushed by the change that made it.
struct FreeFileSystem {
    void operator()(ext2_filsys fs) const noexcept { ext2fs_free(fs); }
};
using FileSystem = std::unique_ptr<struct_ext2_filsys, FreeFileSystem>;

struct FreeBlockBitmap {
    void operator()(ext2fs_block_bitmap bitmap) const noexcept { ext2fs_free_block_bitmap(bitmap); }
};
using BlockBitmap = std::unique_ptr<std::remove_pointer_t<ext2fs_block_bitmap>, FreeBlockBitmap>;

struct FreeExtentHandle {
    void operator()(ext2_extent_handle_t handle) const noexcept { ext2fs_extent_free(handle); }
};
using ExtentHandle = std::unique_ptr<std::remove_pointer_t<ext2_extent_handle_t>, FreeExtentHandle>;

inline std::string error_text(errcode_t error)
{
    return error_message(error);
}

inline std::uint32_t to_result(errcode_t error) noexcept
{
    switch (error) {
        case 0:
            return FS_E_SUCCESS;
        case EXT2_ET_NO_MEMORY:
            return FS_E_OUT_OF_MEMORY;
        case EXT2_ET_FILE_NOT_FOUND:
            return FS_E_UNKNOWN_FILE;
        default:
            return FS_E_MISC_ERROR;
    }
}

using plugin::blocks_of;

}  // namespace corvane::ext

#endif
