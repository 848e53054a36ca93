// Chooses signatures, checks them against the disks, and against every other device of this host.
#include "plugins/mounted/signature.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "plugins/mounted/descriptor.hpp"

namespace corvane::mounted {
namespace {

namespace files = std::filesystem;

constexpr std::size_t kReadStep_bytes = 4096;

struct Free {
    void operator()(void* memory) const noexcept { std::free(memory); }
};

std::string node_of(std::string name)
{
    std::replace(name.begin(), name.end(), '!', '/');  // as sysfs writes names that hold a slash
    return "/dev/" + name;
}

bool has_bytes(const std::string& name, const Signature& signature)
{
    std::array<std::uint8_t, 16> found{};
    return read_disk(name, signature.place, std::as_writable_bytes(std::span(found))) &&
           found == signature.bytes;
}

// Copies of the superblock's UUID, each with the disk that it lies on.
std::vector<Signature> uuid_copies(const BlockTree& tree, const Superblock& super,
                                   std::size_t disk_index)
{
    std::vector<Signature> copies;
    for (const std::uint64_t group : groups_with_copies(super)) {
        Signature copy{super.uuid, 0};
        std::size_t pieces = 0;
        bool is_here = false;
        const bool is_inside =
            tree.split(uuid_place(super, group), super.uuid.size(), [&](const Piece& piece) {
                copy.place = piece.byte;
                is_here = piece.disk_index == disk_index;
                return ++pieces == 1;
            });
        if (is_inside && is_here) copies.push_back(copy);
    }
    return copies;
}

// The disk's GUID in its partition table, at block 1 whatever a block's size is.
void add_gpt(const std::string& name, std::vector<Signature>& found)
{
    constexpr std::uint64_t kGuidOffset = 56;
    for (const std::uint64_t block_bytes : {512U, 4096U}) {
        std::array<std::byte, 72> head{};
        if (!read_disk(name, block_bytes, head)) continue;
        if (std::memcmp(head.data(), "EFI PART", 8) != 0) continue;
        Signature signature{{}, block_bytes + kGuidOffset};
        std::memcpy(signature.bytes.data(), head.data() + kGuidOffset, signature.bytes.size());
        found.push_back(signature);
    }
}

// The identifier of an LVM physical volume that fills the disk: a label in one of its first four
// sectors names the place of the header, which begins with 32 letters.
void add_lvm(const std::string& name, std::vector<Signature>& found)
{
    for (std::uint64_t sector = 0; sector < 4; ++sector) {
        std::array<std::byte, kSectorBytes> label{};
        if (!read_disk(name, sector * kSectorBytes, label)) continue;
        if (std::memcmp(label.data(), "LABELONE", 8) != 0) continue;
        std::uint32_t offset = 0;
        std::memcpy(&offset, label.data() + 20, sizeof offset);
        Signature signature{{}, sector * kSectorBytes + offset};
        if (offset > label.size() - signature.bytes.size()) continue;
        std::memcpy(signature.bytes.data(), label.data() + offset, signature.bytes.size());
        found.push_back(signature);
    }
}

// Devices above a disk show its bytes again; they are no other disk.
bool is_stacked_on(const files::path& device, const std::string& name, int depth = 0)
{
    if (depth > 8) return false;
    std::error_code error;
    for (const auto& slave : files::directory_iterator(device / "slaves", error)) {
        const files::path below = files::canonical(slave.path(), error);
        if (below.filename() == name) return true;
        if (below.parent_path().filename() == name) return true;  // its partition
        if (is_stacked_on(below, name, depth + 1)) return true;
    }
    return false;
}

// Another device of this host with the same bytes in the same place, or an empty text.
std::string find_twin(const std::string& name, const Signature& signature)
{
    std::error_code error;
    for (const auto& entry : files::directory_iterator("/sys/block", error)) {
        std::string other = entry.path().filename().string();
        if (other == name || is_stacked_on(entry.path(), name)) continue;
        if (has_bytes(other, signature)) return other;
    }
    return {};
}

}  // namespace

bool read_disk(const std::string& name, std::uint64_t place, std::span<std::byte> bytes)
{
    const std::string node = node_of(name);
    Descriptor disk(open(node.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_DIRECT));
    if (!disk.is_open()) disk.reset(open(node.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!disk.is_open()) return false;
    const std::uint64_t begin = place - place % kReadStep_bytes;
    const std::uint64_t end =
        (place + bytes.size() + kReadStep_bytes - 1) / kReadStep_bytes * kReadStep_bytes;
    const std::unique_ptr<std::byte, Free> buffer(
        static_cast<std::byte*>(std::aligned_alloc(kReadStep_bytes, end - begin)));
    if (buffer == nullptr) return false;
    const ssize_t got = pread(disk.get(), buffer.get(), end - begin, static_cast<off_t>(begin));
    if (got < 0 || static_cast<std::uint64_t>(got) < place - begin + bytes.size()) return false;
    std::memcpy(bytes.data(), buffer.get() + (place - begin), bytes.size());
    return true;
}

std::string find_signatures(const BlockTree& tree, const Superblock& super,
                            std::vector<Signature>& signatures)
{
    signatures.clear();
    for (std::size_t i = 0; i < tree.disks().size(); ++i) {
        const std::string& name = tree.disks()[i].name;
        auto candidates = uuid_copies(tree, super, i);
        add_gpt(name, candidates);
        add_lvm(name, candidates);
        std::string twin;
        bool is_found = false;
        for (const Signature& candidate : candidates) {
            if (!has_bytes(name, candidate)) continue;
            twin = find_twin(name, candidate);
            if (!twin.empty()) continue;
            signatures.push_back(candidate);
            is_found = true;
            break;
        }
        if (is_found) continue;
        if (!twin.empty()) {
            std::string wrong = "the disks " + name;
            wrong += " and " + twin + " have the same signature; no client could tell them apart";
            return wrong;
        }
        return "the disk " + name +
               " has no signature: no copy of the superblock, no GPT and no LVM label is on it";
    }
    return {};
}

}  // namespace corvane::mounted
