// One change of a file's size and allocation: what is asked, what it takes, and doing it.
#ifndef CORVANE_PLUGINS_EXT_SIZE_CHANGE_HPP
#define CORVANE_PLUGINS_EXT_SIZE_CHANGE_HPP

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "plugins/ext/volume.hpp"
#include "plugins/ext/volume_change.hpp"

namespace corvane::ext {

// The volume's `io` is held while it lives.
class SizeChange {
public:
    // Sizes in bytes, -1: unchanged. `layout` is the file's checked layout.
    SizeChange(Volume& volume, OpenFile& file, std::shared_ptr<const Layout> layout,
               std::int64_t file_size, std::int64_t allocation_size);

    // Returns a result code; FS_E_SHORT_ALLOC when not all could be allocated.
    std::uint32_t run();

    // Frees the blocks from `first_block` on, in a change of its own.
    bool release_from(std::uint64_t first_block);

private:
    using Order = VolumeChange::Order;

    [[nodiscard]] bool is_shrinking() const noexcept { return new_bytes_ < old_bytes_; }
    [[nodiscard]] std::uint64_t size_limit_bytes() const noexcept;
    [[nodiscard]] std::optional<std::uint64_t> trim_from() const;
    [[nodiscard]] bool lacks_blocks() const;
    [[nodiscard]] std::vector<BlockRange> blocks_to_prepare() const;
    [[nodiscard]] std::uint64_t usable_blocks() const;

    bool take_step(bool (SizeChange::*step)(), Order order);
    bool apply();
    bool shrink();
    bool zero_tail(std::uint64_t end_bytes);
    bool fill();
    bool fill_hole(std::uint64_t first, std::uint64_t end);
    bool fill_hole_indirect(std::uint64_t first, std::uint64_t end);
    bool take_blocks(std::uint64_t limit, Run& run);
    bool add_run(const Run& run);
    bool prepare(const BlockRange& blocks);
    bool zero_blocks(std::uint64_t first, std::uint64_t count);
    bool reveal_prepared();
    bool cut_from(std::uint64_t first_block);
    bool reload_layout();
    bool write_size();
    bool fail(const char* what, errcode_t error);

    Volume& volume_;
    ext2_filsys fs_;
    OpenFile& file_;
    std::shared_ptr<const Layout> layout_;
    std::vector<BlockRange> prepared_;  // blocks of the file
    std::vector<BlockRange> cut_;       // blocks of the volume that the file gave up
    const std::uint32_t holders_;
    const bool is_write_wish_;  // an allocation by itself: the caller is about to write
    std::uint64_t old_bytes_;
    std::uint64_t new_bytes_;
    std::uint64_t end_block_ = 0;                  // one past the last block of the new size
    std::optional<std::uint64_t> allocation_end_;  // one past the last block asked for
    bool is_short_ = false;
    bool is_misfit_ = false;  // the tree had no room to make data of what a client wrote
};

}  // namespace corvane::ext

#endif
