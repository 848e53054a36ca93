// A volume as the controller describes it: block size and the slices of its disks.
#ifndef CORVANE_CLIENT_VOLUME_HPP
#define CORVANE_CLIENT_VOLUME_HPP

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "client/reply.hpp"

namespace corvane {

constexpr std::int32_t kLargestBlockBytes = 4 << 20;

struct VolumeDisk {
    std::array<std::uint8_t, 16> signature{};
    std::int32_t signature_bytes = 0;
    std::int64_t signature_offset = 0;  // bytes from the start of the disk
    std::int64_t first_block = 0;       // the slice
    std::int64_t block_count = 0;

    [[nodiscard]] std::string signature_text() const;
};

struct Volume {
    std::int32_t fs_type = 0;
    std::int32_t glom_type = 0;
    std::int32_t glom_info = 0;
    std::int32_t block_bytes = 0;
    std::vector<VolumeDisk> disks;

    // The slice of a disk in bytes; within 64 bits once the volume is usable.
    [[nodiscard]] std::int64_t slice_start(std::size_t disk_index) const;
    [[nodiscard]] std::int64_t slice_bytes(std::size_t disk_index) const;
};

// Reads a translated GetVolume reply with result 0. Throws Failure with the plug-in's error text
// when the record carries one.
[[nodiscard]] Volume read_volume(const Reply& reply);

// Throws Failure(kBadReply) unless blocks can be addressed by what the volume says.
void check_usable(const Volume& volume);

}  // namespace corvane
#endif
