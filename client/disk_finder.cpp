// Reads signatures of candidates and matches them with a volume's disks.
#include "client/disk_finder.hpp"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "client/failure.hpp"

namespace corvane {
namespace {

namespace files = std::filesystem;

std::string device_node(const files::path& entry)
{
    std::string name = entry.filename().string();
    std::ranges::replace(name, '!', '/');  // as the kernel writes names that hold a slash
    return "/dev/" + name;
}

bool is_empty_device(const files::path& entry)
{
    std::ifstream file(entry / "size");
    std::int64_t sectors = 0;
    return !(file >> sectors) || sectors == 0;
}

bool has_signature(const VolumeDisk& disk, Disk& candidate)
{
    const auto count = static_cast<std::size_t>(disk.signature_bytes);
    const std::int64_t size = candidate.size_bytes();
    if (size >= 0 &&
        (disk.signature_offset > size || disk.signature_bytes > size - disk.signature_offset)) {
        return false;
    }
    std::array<std::byte, 16> bytes{};
    candidate.read(disk.signature_offset, std::span(bytes).first(count));
    return std::equal(
        bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count), disk.signature.begin(),
        [](std::byte a, std::uint8_t b) { return std::to_integer<std::uint8_t>(a) == b; });
}

std::string joined(const std::vector<std::string>& names)
{
    std::string text;
    for (const auto& name : names) text += (text.empty() ? "" : " and ") + name;
    return text;
}

[[noreturn]] void fail_missing(std::size_t index, const VolumeDisk& disk, const Matches& matches,
                               const Candidates& candidates)
{
    std::string text = "disk " + std::to_string(index) + " of the volume, with the signature " +
                       disk.signature_text() + " at byte " + std::to_string(disk.signature_offset) +
                       ", was not found among " + std::to_string(candidates.paths.size()) +
                       (candidates.are_named ? " named disks" : " devices of this host");
    if (matches.unreadable_count != 0) {
        text += " (" + std::to_string(matches.unreadable_count) + " could not be read)";
    }
    throw Failure(kNoDisk, text + "; name its device or image with --disk" +
                               (matches.unreadable_count != 0 ? ", or run as root" : ""));
}

[[noreturn]] void fail_ambiguous(std::size_t index, const VolumeDisk& disk, const Matches& matches)
{
    throw Failure(kNoDisk, "disk " + std::to_string(index) + " of the volume is not one disk: " +
                               joined(matches.paths) + " carry the signature " +
                               disk.signature_text() + "; name the right one with --disk");
}

std::string find_only(const Volume& volume, std::size_t index, const Candidates& candidates)
{
    const VolumeDisk& disk = volume.disks[index];
    const Matches matches = find_disk(disk, candidates);
    if (matches.paths.empty()) fail_missing(index, disk, matches, candidates);
    if (matches.paths.size() > 1) fail_ambiguous(index, disk, matches);
    return matches.paths.front();
}

}  // namespace

std::vector<std::string> block_devices(const std::string& sys_block)
{
    std::vector<std::string> paths;
    std::error_code error;
    for (const auto& device : files::directory_iterator(sys_block, error)) {
        if (is_empty_device(device.path())) continue;
        paths.push_back(device_node(device.path()));
        for (const auto& part : files::directory_iterator(device.path(), error)) {
            if (files::exists(part.path() / "partition", error) && !is_empty_device(part.path())) {
                paths.push_back(device_node(part.path()));
            }
        }
    }
    std::ranges::sort(paths);
    return paths;
}

Candidates candidates_from(const std::vector<std::string>& named, std::int32_t sg_chunk_blocks)
{
    if (named.empty()) return {block_devices("/sys/block"), false, sg_chunk_blocks};
    Candidates candidates{{}, true, sg_chunk_blocks};
    std::vector<DiskIdentity> seen;
    for (const auto& path : named) {
        const DiskIdentity identity = disk_identity(path);
        if (std::ranges::find(seen, identity) != seen.end()) continue;
        seen.push_back(identity);
        candidates.paths.push_back(path);
    }
    return candidates;
}

Matches find_disk(const VolumeDisk& disk, const Candidates& candidates)
{
    Matches matches;
    for (const auto& path : candidates.paths) {
        try {
            const auto candidate = open_disk(path, Access::kRead, candidates.sg_chunk_blocks);
            if (has_signature(disk, *candidate)) matches.paths.push_back(path);
        } catch (const Failure&) {
            if (candidates.are_named) throw;
            ++matches.unreadable_count;
        }
    }
    return matches;
}

std::vector<std::unique_ptr<Disk>> open_disks(const Volume& volume, const Candidates& candidates,
                                              Access access, const std::vector<bool>& wanted)
{
    // Every disk is found before the first one is opened for writing.
    std::vector<std::string> paths(volume.disks.size());
    for (std::size_t i = 0; i < paths.size(); ++i) {
        if (wanted[i]) paths[i] = find_only(volume, i, candidates);
    }
    std::vector<std::unique_ptr<Disk>> disks(paths.size());
    for (std::size_t i = 0; i < paths.size(); ++i) {
        if (wanted[i]) disks[i] = open_disk(paths[i], access, candidates.sg_chunk_blocks);
    }
    return disks;
}

}  // namespace corvane
