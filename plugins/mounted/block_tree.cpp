// Follows a block device down to its whole disks.
#include "plugins/mounted/block_tree.hpp"

#include <sys/sysmacros.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

namespace corvane::mounted {
namespace {

namespace files = std::filesystem;

constexpr int kDepthLimit = 8;
constexpr std::size_t kStripeLimit = 256;

std::string number_of(dev_t device)
{
    return std::to_string(major(device)) + ":" + std::to_string(minor(device));
}

std::optional<std::uint64_t> read_number(const files::path& file)
{
    std::ifstream stream(file);
    std::uint64_t value = 0;
    if (!(stream >> value)) return std::nullopt;
    return value;
}

std::optional<dev_t> parse_device(const std::string& text)
{
    unsigned major_number = 0;
    unsigned minor_number = 0;
    char colon = 0;
    std::istringstream stream(text);
    if (!(stream >> major_number >> colon >> minor_number) || colon != ':') return std::nullopt;
    return makedev(major_number, minor_number);
}

std::optional<dev_t> read_device(const files::path& file)
{
    std::ifstream stream(file);
    std::string text;
    stream >> text;
    return parse_device(text);
}

// Other drivers stack devices, too; those put blocks where no client can follow.
std::string find_stacking(const files::path& directory)
{
    std::error_code error;
    for (const char* const kind : {"md", "bcache"}) {
        if (files::exists(directory / kind, error)) return kind;
    }
    for (const auto& slave : files::directory_iterator(directory / "slaves", error)) {
        return "a device stacked on " + slave.path().filename().string();
    }
    return {};
}

}  // namespace

std::string BlockTree::load(dev_t device, const BlockSystem& system)
{
    top_ = device;
    nodes_.clear();
    disks_.clear();
    if (std::string wrong = add(device, system, 0); !wrong.empty()) return wrong;
    note_use(top_, 0, nodes_.at(top_).sectors);
    return {};
}

std::string BlockTree::add(dev_t device, const BlockSystem& system, int depth)
{
    if (nodes_.contains(device)) return {};
    if (depth > kDepthLimit) return "its devices are stacked too deep";
    std::error_code error;
    const files::path directory =
        files::canonical(files::path(system.dev_block) / number_of(device), error);
    if (error) return "device " + number_of(device) + " is no block device of this host";
    const std::string name = directory.filename().string();
    const auto sectors = read_number(directory / "size");
    if (!sectors || *sectors == 0) return name + " has no size";
    Node node;
    node.sectors = *sectors;
    if (files::exists(directory / "partition", error)) {
        const auto start = read_number(directory / "start");
        const auto parent = read_device(directory.parent_path() / "dev");
        if (!start || !parent) return "partition " + name + " has no disk";
        node.targets.push_back({0, *sectors, 0, {{*parent, *start}}});
        if (std::string wrong = add(*parent, system, depth + 1); !wrong.empty()) return wrong;
    } else if (files::exists(directory / "dm", error)) {
        if (std::string wrong = add_table(device, node, system, depth); !wrong.empty()) {
            return name + ": " + wrong;
        }
    } else if (const std::string kind = find_stacking(directory); !kind.empty()) {
        return name + " is no disk and no device-mapper volume, but " + kind;
    } else {
        disks_.push_back({device, name, UINT64_MAX, 0});
    }
    nodes_.emplace(device, std::move(node));
    return {};
}

std::string BlockTree::add_table(dev_t device, Node& node, const BlockSystem& system, int depth)
{
    std::string wrong;
    std::uint64_t next = 0;
    for (const std::string& line : system.read_table(device, wrong)) {
        Target target;
        if (wrong = read_target(line, next, target); !wrong.empty()) return wrong;
        next = target.first + target.count;
        for (const Stripe& stripe : target.stripes) {
            if (wrong = add(stripe.device, system, depth + 1); !wrong.empty()) return wrong;
            const std::uint64_t below = nodes_.at(stripe.device).sectors;
            const std::uint64_t taken = target.count / target.stripes.size();
            if (stripe.sector > below || taken > below - stripe.sector) {
                return "its table reaches beyond device " + number_of(stripe.device);
            }
        }
        node.targets.push_back(std::move(target));
    }
    if (!wrong.empty()) return wrong;
    return next >= node.sectors ? std::string{} : "its table does not cover it";
}

// One line of a table: "0 2048 linear 8:16 4096" or "0 4096 striped 2 128 8:16 0 8:32 0".
std::string BlockTree::read_target(const std::string& line, std::uint64_t next, Target& target)
{
    std::string broken = "its table line \"" + line + "\" cannot be read";
    std::istringstream words(line);
    std::string type;
    if (!(words >> target.first >> target.count >> type)) return broken;
    if (target.first != next || target.count == 0 || target.count > UINT64_MAX - next)
        return broken;
    std::size_t stripes = 1;
    if (type == "striped") {
        if (!(words >> stripes >> target.chunk) || target.chunk == 0) return broken;
        if (stripes == 0 || stripes > kStripeLimit) return broken;
        if (target.count % (target.chunk * stripes) != 0) return broken;
    } else if (type != "linear") {
        return "its mapper target \"" + type + "\" is not linear or striped";
    }
    for (std::size_t i = 0; i < stripes; ++i) {
        std::string device;
        Stripe stripe;
        if (!(words >> device >> stripe.sector)) return broken;
        const auto number = parse_device(device);
        if (!number) return broken;
        stripe.device = *number;
        target.stripes.push_back(stripe);
    }
    return {};
}

// Widens what is in use of the disks below by a range of sectors of a device.
void BlockTree::note_use(dev_t device, std::uint64_t sector, std::uint64_t count)
{
    const Node& node = nodes_.at(device);
    if (node.targets.empty()) {
        const auto disk = std::find_if(disks_.begin(), disks_.end(),
                                       [&](const TreeDisk& one) { return one.device == device; });
        disk->first_byte = std::min(disk->first_byte, sector * kSectorBytes);
        disk->end_byte = std::max(disk->end_byte, (sector + count) * kSectorBytes);
        return;
    }
    for (const Target& target : node.targets) {
        const std::uint64_t first = std::max(sector, target.first);
        const std::uint64_t end = std::min(sector + count, target.first + target.count);
        if (first >= end) continue;
        if (target.stripes.size() == 1) {
            const Stripe& only = target.stripes.front();
            note_use(only.device, only.sector + (first - target.first), end - first);
            continue;
        }
        // Every stripe, whole: which chunks of it are used does not matter for a bound.
        for (const Stripe& stripe : target.stripes) {
            note_use(stripe.device, stripe.sector, target.count / target.stripes.size());
        }
    }
}

std::uint64_t BlockTree::size_bytes() const
{
    return nodes_.at(top_).sectors * kSectorBytes;
}

std::uint32_t BlockTree::grain_bytes(std::uint32_t limit) const
{
    std::uint64_t cuts = limit / kSectorBytes;  // in sectors; the lowest bit set is the grain
    for (const auto& [device, node] : nodes_) {
        for (const Target& target : node.targets) {
            cuts |= target.first | target.chunk;
            // What lies behind the last whole block is no file system's.
            if (&target != &node.targets.back()) cuts |= target.count;
            for (const Stripe& stripe : target.stripes) cuts |= stripe.sector;
        }
    }
    return static_cast<std::uint32_t>((cuts & (~cuts + 1)) * kSectorBytes);
}

bool BlockTree::split(std::uint64_t byte, std::uint64_t bytes,
                      const std::function<bool(const Piece&)>& visit) const
{
    const std::uint64_t size = size_bytes();
    if (byte > size || bytes > size - byte) return false;
    return split_node(top_, byte, bytes, visit);
}

bool BlockTree::split_node(dev_t device, std::uint64_t byte, std::uint64_t bytes,
                           const std::function<bool(const Piece&)>& visit) const
{
    const Node& node = nodes_.at(device);
    if (node.targets.empty()) {
        const auto disk = std::find_if(disks_.begin(), disks_.end(),
                                       [&](const TreeDisk& one) { return one.device == device; });
        return visit({static_cast<std::size_t>(disk - disks_.begin()), byte, bytes});
    }
    for (const Target& target : node.targets) {
        const std::uint64_t target_end = (target.first + target.count) * kSectorBytes;
        while (bytes != 0 && byte >= target.first * kSectorBytes && byte < target_end) {
            const std::uint64_t inside = byte - target.first * kSectorBytes;
            const std::uint64_t stripes = target.stripes.size();
            std::uint64_t part = std::min(bytes, target_end - byte);
            std::uint64_t place = inside;
            std::size_t stripe_index = 0;
            if (stripes > 1) {
                const std::uint64_t chunk = target.chunk * kSectorBytes;
                const std::uint64_t turn = inside / chunk;
                stripe_index = turn % stripes;
                place = turn / stripes * chunk + inside % chunk;
                part = std::min(part, chunk - inside % chunk);
            }
            const Stripe& stripe = target.stripes[stripe_index];
            if (!split_node(stripe.device, stripe.sector * kSectorBytes + place, part, visit)) {
                return false;
            }
            byte += part;
            bytes -= part;
        }
    }
    return bytes == 0;
}

}  // namespace corvane::mounted
