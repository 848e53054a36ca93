// Finds the disks of a volume among the disks of this host, by their signatures.
#ifndef CORVANE_CLIENT_DISK_FINDER_HPP
#define CORVANE_CLIENT_DISK_FINDER_HPP

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/disk.hpp"
#include "client/volume.hpp"

namespace corvane {

struct Candidates {
    std::vector<std::string> paths;
    bool are_named = false;  // by the user: one that cannot be opened is an error
    std::int32_t sg_chunk_blocks = 0;
};

// The disks that the user named or, when there are none, the block devices of this machine with
// their partitions.
[[nodiscard]] Candidates candidates_from(const std::vector<std::string>& named,
                                         std::int32_t sg_chunk_blocks);

// The same list from another directory that looks like /sys/block.
[[nodiscard]] std::vector<std::string> block_devices(const std::string& sys_block);

// Which candidates carry a disk's signature: none, one, or too many.
struct Matches {
    std::vector<std::string> paths;
    std::size_t unreadable_count = 0;  // candidates that could not be asked
};
[[nodiscard]] Matches find_disk(const VolumeDisk& disk, const Candidates& candidates);

// Opens every disk of a usable volume that `wanted` names (by index). Throws Failure(kNoDisk) that
// says which signature was not found or was found twice, and what to do. The result has one place a
// disk; those that are not wanted stay null.
[[nodiscard]] std::vector<std::unique_ptr<Disk>> open_disks(const Volume& volume,
                                                            const Candidates& candidates,
                                                            Access access,
                                                            const std::vector<bool>& wanted);

}  // namespace corvane
#endif
