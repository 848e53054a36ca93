// The channel through which libext2fs reads and writes a volume: during a change it keeps written
// blocks in memory, and the change says when which of them go to the disk.
#ifndef CORVANE_PLUGINS_EXT_STAGED_IO_HPP
#define CORVANE_PLUGINS_EXT_STAGED_IO_HPP

#include <functional>
#include <map>
#include <vector>

#include "plugins/ext/ext_handles.hpp"
#include "plugins/ext/layout.hpp"

namespace corvane::ext {

class StagedIo {
public:
    // Says of a block what may be done with a write to it.
    enum class Use { Free, Taken, Live };
    using UseOf = std::function<Use(blk64_t block)>;

    // To open a file system with. Below it is libext2fs's own manager, without its cache: that
    // would write in an order of its own.
    static io_manager manager();
    // The channel of a file system that was opened with it.
    static StagedIo& of(ext2_filsys fs);

    // From now on writes are kept: to blocks that the disk's structures use (Live) until they are
    // released, to blocks that the change took (Taken) as well, unless there are very many of them.
    // What goes to a free block, zeros for the one to be taken next, goes there at once.
    void hold(UseOf use_of);
    // Writes what is kept for the blocks that are due.
    errcode_t release(const std::function<bool(blk64_t block)>& is_due);
    [[nodiscard]] bool keeps_any() const noexcept { return !kept_.empty(); }
    // Forgets what is kept for these blocks.
    void forget(const BlockRange& blocks);
    // Forgets all that is kept; writes go to the disk again.
    void end_hold();

private:
    friend struct StagedIoCalls;

    explicit StagedIo(io_channel below) : below_(below) {}
    errcode_t read(io_channel channel, blk64_t block, int count, char* data) const;
    errcode_t write(io_channel channel, blk64_t block, int count, const char* data);
    errcode_t zero(io_channel channel, blk64_t block, blk64_t count);

    io_channel below_;
    UseOf use_of_;  // empty: nothing is kept
    std::map<blk64_t, std::vector<char>> kept_;
};

}  // namespace corvane::ext

#endif
