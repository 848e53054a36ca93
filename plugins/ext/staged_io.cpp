// Puts a layer that can hold writes back over libext2fs's manager of files and devices.
#include "plugins/ext/staged_io.hpp"

#include <algorithm>
#include <cstring>
#include <memory>

namespace corvane::ext {
namespace {

constexpr std::size_t kKeptLimit_blocks = 4096;
constexpr blk64_t kZeroStep_bytes = 1 << 20;

}  // namespace

void StagedIo::hold(UseOf use_of)
{
    use_of_ = std::move(use_of);
}

errcode_t StagedIo::release(const std::function<bool(blk64_t block)>& is_due)
{
    for (auto at = kept_.begin(); at != kept_.end();) {
        if (!is_due(at->first)) {
            ++at;
            continue;
        }
        const errcode_t error = io_channel_write_blk64(below_, at->first, 1, at->second.data());
        if (error != 0) return error;
        at = kept_.erase(at);
    }
    return 0;
}

void StagedIo::forget(const BlockRange& blocks)
{
    kept_.erase(kept_.lower_bound(blocks.first), kept_.lower_bound(blocks.end()));
}

void StagedIo::end_hold()
{
    kept_.clear();
    use_of_ = nullptr;
}

errcode_t StagedIo::read(io_channel channel, blk64_t block, int count, char* data) const
{
    const errcode_t error = io_channel_read_blk64(below_, block, count, data);
    if (error != 0 || count < 0) return error;
    const auto block_bytes = static_cast<std::size_t>(channel->block_size);
    const blk64_t end = block + static_cast<blk64_t>(count);
    for (auto at = kept_.lower_bound(block); at != kept_.end() && at->first < end; ++at) {
        std::memcpy(data + (at->first - block) * block_bytes, at->second.data(), block_bytes);
    }
    return 0;
}

errcode_t StagedIo::write(io_channel channel, blk64_t block, int count, const char* data)
{
    // Less than a block, counted in bytes, is the superblock: it is written when the order says so.
    if (!use_of_ || count < 0) return io_channel_write_blk64(below_, block, count, data);
    const auto block_bytes = static_cast<std::size_t>(channel->block_size);
    for (int i = 0; i < count; ++i, ++block, data += block_bytes) {
        if (use_of_(block) == Use::Free) {
            if (errcode_t error = io_channel_write_blk64(below_, block, 1, data)) return error;
            continue;
        }
        kept_[block].assign(data, data + block_bytes);
    }
    if (kept_.size() <= kKeptLimit_blocks) return 0;
    return release([this](blk64_t taken) { return use_of_(taken) == Use::Taken; });
}

// Zeros are for the data blocks of files, and nothing on the disk relies on what lay there.
errcode_t StagedIo::zero(io_channel channel, blk64_t block, blk64_t count)
{
    forget({block, count});
    if (io_channel_zeroout(below_, block, count) == 0) return 0;
    const auto block_bytes = static_cast<blk64_t>(channel->block_size);
    const blk64_t step = std::min(std::max<blk64_t>(kZeroStep_bytes / block_bytes, 1), count);
    const std::vector<char> zeros(step * block_bytes, '\0');
    for (const blk64_t end = block + count; block < end;) {
        const blk64_t now = std::min(step, end - block);
        const errcode_t error =
            io_channel_write_blk64(below_, block, static_cast<int>(now), zeros.data());
        if (error != 0) return error;
        block += now;
    }
    return 0;
}

// What libext2fs calls.
struct StagedIoCalls {
    static StagedIo& staged(io_channel channel)
    {
        return *static_cast<StagedIo*>(channel->private_data);
    }

    // No exception may cross the C library's frames.
    template <class Body>
    static errcode_t answer(Body body) noexcept
    {
        try {
            return body();
        } catch (...) {
            return EXT2_ET_NO_MEMORY;
        }
    }

    static errcode_t open(const char* name, int flags, io_channel* opened)
    {
        io_channel below = nullptr;
        if (errcode_t error = unix_io_manager->open(name, flags, &below)) return error;
        const errcode_t error = answer([&]() -> errcode_t {
            if (errcode_t wrong = io_channel_set_options(below, "cache=off")) return wrong;
            std::unique_ptr<StagedIo> staged(new StagedIo(below));
            auto channel = std::make_unique<struct_io_channel>(*below);
            channel->manager = StagedIo::manager();
            channel->refcount = 1;
            channel->private_data = staged.release();
            *opened = channel.release();
            return 0;
        });
        if (error != 0) io_channel_close(below);
        return error;
    }

    static errcode_t close(io_channel channel)
    {
        if (--channel->refcount > 0) return 0;
        const errcode_t error = io_channel_close(staged(channel).below_);
        delete &staged(channel);
        delete channel;
        return error;
    }

    static errcode_t set_block_bytes(io_channel channel, int block_bytes)
    {
        const errcode_t error = io_channel_set_blksize(staged(channel).below_, block_bytes);
        if (error == 0) channel->block_size = block_bytes;
        return error;
    }

    static errcode_t read64(io_channel channel, unsigned long long block, int count, void* data)
    {
        return staged(channel).read(channel, block, count, static_cast<char*>(data));
    }

    static errcode_t read(io_channel channel, unsigned long block, int count, void* data)
    {
        return read64(channel, block, count, data);
    }

    static errcode_t write64(io_channel channel, unsigned long long block, int count,
                             const void* data)
    {
        return answer([&] {
            return staged(channel).write(channel, block, count, static_cast<const char*>(data));
        });
    }

    static errcode_t write(io_channel channel, unsigned long block, int count, const void* data)
    {
        return write64(channel, block, count, data);
    }

    static errcode_t zero(io_channel channel, unsigned long long block, unsigned long long count)
    {
        return answer([&] { return staged(channel).zero(channel, block, count); });
    }

    static errcode_t set_option(io_channel channel, const char* option, const char* value)
    {
        io_channel below = staged(channel).below_;
        return below->manager->set_option(below, option, value);
    }

    static errcode_t flush(io_channel channel) { return io_channel_flush(staged(channel).below_); }
};

io_manager StagedIo::manager()
{
    // No write_byte: with it libext2fs would write the superblock word by word, and its checksum
    // last.
    static struct_io_manager calls = [] {
        struct_io_manager made{};
        made.magic = EXT2_ET_MAGIC_IO_MANAGER;
        made.name = "staged I/O";
        made.open = StagedIoCalls::open;
        made.close = StagedIoCalls::close;
        made.set_blksize = StagedIoCalls::set_block_bytes;
        made.read_blk = StagedIoCalls::read;
        made.write_blk = StagedIoCalls::write;
        made.flush = StagedIoCalls::flush;
        made.set_option = StagedIoCalls::set_option;
        made.read_blk64 = StagedIoCalls::read64;
        made.write_blk64 = StagedIoCalls::write64;
        made.zeroout = StagedIoCalls::zero;
        return made;
    }();
    return &calls;
}

StagedIo& StagedIo::of(ext2_filsys fs)
{
    return StagedIoCalls::staged(fs->io);
}

}  // namespace corvane::ext
