// By which bytes a client finds each disk of a volume.
#ifndef CORVANE_PLUGINS_MOUNTED_SIGNATURE_HPP
#define CORVANE_PLUGINS_MOUNTED_SIGNATURE_HPP

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "plugins/mounted/block_tree.hpp"
#include "plugins/mounted/superblock.hpp"

namespace corvane::mounted {

struct Signature {
    std::array<std::uint8_t, 16> bytes{};
    std::uint64_t place = 0;  // bytes from the start of the whole disk
};

// Finds one signature for each disk of the tree, in its order: a copy of the superblock's UUID that
// lies on it, else the identifier of its GPT, else that of an LVM volume. It is read from the disk,
// and no other device of this host may have the same bytes in the same place. Returns why there is
// none, or an empty text.
std::string find_signatures(const BlockTree& tree, const Superblock& super,
                            std::vector<Signature>& signatures);

// Reads from a whole disk of this host, past its page cache where that can be done.
bool read_disk(const std::string& name, std::uint64_t place, std::span<std::byte> bytes);

}  // namespace corvane::mounted

#endif
