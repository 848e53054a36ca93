// Which places of which whole disks a block device is made of: partitions, and device-mapper tables
// of linear and striped targets, down to the disks that clients see.
#ifndef CORVANE_PLUGINS_MOUNTED_BLOCK_TREE_HPP
#define CORVANE_PLUGINS_MOUNTED_BLOCK_TREE_HPP

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace corvane::mounted {

constexpr std::uint64_t kSectorBytes = 512;

// Bytes that lie together on one whole disk.
struct Piece {
    std::size_t disk_index = 0;  // into BlockTree::disks()
    std::uint64_t byte = 0;      // from the start of the disk
    std::uint64_t bytes = 0;
};

// One whole disk, and the part of it that the device lies in.
struct TreeDisk {
    dev_t device = 0;
    std::string name;              // "vdb"
    std::uint64_t first_byte = 0;  // the first and one past the last byte in use
    std::uint64_t end_byte = 0;
};

// Where the tree is read from; tests give their own.
struct BlockSystem {
    std::string dev_block = "/sys/dev/block";  // directories by "MAJOR:MINOR"
    // Returns the table's lines "START COUNT TYPE ARGUMENTS", or says in `wrong` why there is none.
    std::function<std::vector<std::string>(dev_t device, std::string& wrong)> read_table;
};

// The tables of this machine's device-mapper.
BlockSystem this_system();

class BlockTree {
public:
    // Returns why the device cannot be served, or an empty text.
    std::string load(dev_t device, const BlockSystem& system);

    [[nodiscard]] std::uint64_t size_bytes() const;
    [[nodiscard]] const std::vector<TreeDisk>& disks() const noexcept { return disks_; }

    // The largest power of two, from 512 up to `limit`, that no piece is cut within.
    [[nodiscard]] std::uint32_t grain_bytes(std::uint32_t limit) const;

    // Calls `visit` for the pieces of a range of the device in order, until it returns false. False
    // when it did, or when the range leaves the device.
    bool split(std::uint64_t byte, std::uint64_t bytes,
               const std::function<bool(const Piece&)>& visit) const;

    // Whether the device, or one that it is made of, was made anew since.
    bool operator==(const BlockTree& other) const { return nodes_ == other.nodes_; }

private:
    struct Stripe {
        dev_t device = 0;
        std::uint64_t sector = 0;
        bool operator==(const Stripe&) const = default;
    };
    // Some sectors of a device that lie on other devices: on one, or on several by turns.
    struct Target {
        std::uint64_t first = 0;
        std::uint64_t count = 0;
        std::uint64_t chunk = 0;  // sectors on one stripe before the next one's turn
        std::vector<Stripe> stripes;
        bool operator==(const Target&) const = default;
    };
    struct Node {
        std::uint64_t sectors = 0;
        std::vector<Target> targets;  // none: a whole disk
        bool operator==(const Node&) const = default;
    };

    std::string add(dev_t device, const BlockSystem& system, int depth);
    std::string add_table(dev_t device, Node& node, const BlockSystem& system, int depth);
    static std::string read_target(const std::string& line, std::uint64_t next, Target& target);
    void note_use(dev_t device, std::uint64_t sector, std::uint64_t count);
    bool split_node(dev_t device, std::uint64_t byte, std::uint64_t bytes,
                    const std::function<bool(const Piece&)>& visit) const;

    dev_t top_ = 0;
    std::map<dev_t, Node> nodes_;
    std::vector<TreeDisk> disks_;
};

}  // namespace corvane::mounted

#endif
