// Raw SCSI block I/O: READ(10) and WRITE(10) through the generic driver's version-3 request header.
#include "fsmdc/scsi_io.h"

#include <scsi/sg.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>

std::int32_t id_count = 0;

namespace corvane {
namespace {

constexpr std::uint8_t kRead10 = 0x28;
constexpr std::uint8_t kWrite10 = 0x2A;
constexpr std::size_t kSenseBytes = 64;
constexpr unsigned kTimeoutMs = 10000;
constexpr std::int32_t kMostBlocksPerCommand = 0xFFFF;  // the count has 16 bits

using CommandBlock = std::array<std::uint8_t, 10>;

[[nodiscard]] CommandBlock command_block(bool writes, std::uint32_t address,
                                         std::uint32_t count) noexcept
{
    const auto byte = [](std::uint32_t value, unsigned shift) {
        return static_cast<std::uint8_t>(value >> shift);
    };
    return {writes ? kWrite10 : kRead10,
            0,
            byte(address, 24),
            byte(address, 16),
            byte(address, 8),
            byte(address, 0),
            0,
            byte(count, 8),
            byte(count, 0),
            0};
}

// Calls `transfer` again for as long as a signal interrupts it.
template <class Transfer>
[[nodiscard]] ssize_t uninterrupted(Transfer transfer) noexcept
{
    ssize_t done = 0;
    do {
        done = transfer();
    } while (done < 0 && errno == EINTR);
    return done;
}

[[nodiscard]] std::int32_t run_command(std::int32_t descriptor, sg_io_hdr_t& header) noexcept
{
    constexpr auto kHeaderBytes = static_cast<ssize_t>(sizeof header);
    const ssize_t sent = uninterrupted([&] { return write(descriptor, &header, sizeof header); });
    if (sent < 0 && errno == ENOMEM) return SCSI_IO_NO_MEMORY;
    if (sent != kHeaderBytes) return SCSI_IO_FAILED;
    // A header that comes back in part says nothing about the transfer.
    const ssize_t got = uninterrupted([&] { return read(descriptor, &header, sizeof header); });
    if (got != kHeaderBytes) return SCSI_IO_FAILED;
    if (header.masked_status != 0 || header.host_status != 0 || header.driver_status != 0) {
        return SCSI_IO_STATUS;
    }
    const bool direct = (header.info & SG_INFO_DIRECT_IO_MASK) == SG_INFO_DIRECT_IO;
    return direct ? SCSI_IO_DIRECT : SCSI_IO_INDIRECT;
}

}  // namespace
}  // namespace corvane

extern "C" {

std::int32_t do_io(std::int32_t descriptor, std::int32_t write, void* buffer, std::int32_t blocks,
                   std::uint32_t block_address) noexcept
{
    const auto count = static_cast<std::uint32_t>(blocks);
    auto command = corvane::command_block(write != 0, block_address, count);
    std::array<unsigned char, corvane::kSenseBytes> sense{};
    sg_io_hdr_t header{};
    header.interface_id = 'S';
    header.dxfer_direction = write != 0 ? SG_DXFER_TO_DEV : SG_DXFER_FROM_DEV;
    header.cmd_len = static_cast<unsigned char>(command.size());
    header.mx_sb_len = static_cast<unsigned char>(sense.size());
    header.dxfer_len = count * SCSI_BLOCK_BYTES;
    header.dxferp = buffer;
    header.cmdp = command.data();
    header.sbp = sense.data();
    header.timeout = corvane::kTimeoutMs;
    header.flags = SG_FLAG_DIRECT_IO;
    header.pack_id = std::atomic_ref(id_count).fetch_add(1, std::memory_order_relaxed);
    return corvane::run_command(descriptor, header);
}

std::int32_t scsi_io(std::int32_t descriptor, std::int32_t write, void* buffer, std::int32_t blocks,
                     std::uint32_t block_address, std::int32_t blocks_per_command) noexcept
{
    if (blocks_per_command == 0) blocks_per_command = SCSI_DEFAULT_BLOCKS_PER_COMMAND;
    if (blocks_per_command < 0) return SCSI_IO_FAILED;  // no command moves less than nothing
    const std::int32_t most = std::min(blocks_per_command, corvane::kMostBlocksPerCommand);
    auto* data = static_cast<std::byte*>(buffer);
    std::int32_t result = SCSI_IO_FAILED;
    bool any_indirect = false;
    while (blocks > 0) {
        const std::int32_t count = std::min(blocks, most);
        result = do_io(descriptor, write, data, count, block_address);
        if (result < 0) return result;
        any_indirect = any_indirect || result == SCSI_IO_INDIRECT;
        blocks -= count;
        block_address += static_cast<std::uint32_t>(count);
        data += static_cast<std::size_t>(count) * SCSI_BLOCK_BYTES;
    }
    if (result != 0) return result;
    return any_indirect ? SCSI_IO_INDIRECT : SCSI_IO_DIRECT;
}

}  // extern "C"
