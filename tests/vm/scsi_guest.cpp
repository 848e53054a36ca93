// Raw SCSI I/O against the real generic driver: runs inside the test machine, with one simulated
// disk that is both /dev/sg0 and /dev/sda.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "fsmdc/scsi_io.h"
#include "osl/descriptor.hpp"

namespace {

using corvane::Descriptor;

constexpr std::size_t kAlignment = 4096;
constexpr std::uint32_t kBadSector = 0x1234;  // the one that the simulated disk can be told to lose

struct FreeAligned {
    void operator()(std::uint8_t* block) const { std::free(block); }
};

// Blocks at a page boundary: what direct I/O asks for.
struct Blocks {
    explicit Blocks(int count)
        : bytes(static_cast<std::size_t>(count) * SCSI_BLOCK_BYTES),
          data(static_cast<std::uint8_t*>(
              std::aligned_alloc(kAlignment, (bytes + kAlignment - 1) / kAlignment * kAlignment)))
    {
    }
    Blocks(int count, unsigned seed) : Blocks(count)
    {
        for (std::size_t i = 0; i < bytes; ++i) {
            seed = seed * 1103515245 + 12345;
            data.get()[i] = static_cast<std::uint8_t>(seed >> 16);
        }
    }
    [[nodiscard]] std::vector<std::uint8_t> copy() const
    {
        return {data.get(), data.get() + bytes};
    }

    std::size_t bytes;
    std::unique_ptr<std::uint8_t, FreeAligned> data;
};

class ScsiDisk : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(sg.is_open());
        ASSERT_TRUE(block_device.is_open());
        set_driver("every_nth", "0");
        set_driver("opts", "0");
    }
    void TearDown() override
    {
        set_driver("every_nth", "0");
        set_driver("opts", "0");
    }

    static void set_file(const std::string& path, const std::string& value)
    {
        std::ofstream file(path);
        file << value << std::flush;
        ASSERT_TRUE(file) << path;
    }
    static void set_driver(const std::string& name, const std::string& value)
    {
        set_file("/sys/bus/pseudo/drivers/scsi_debug/" + name, value);
    }
    [[nodiscard]] off_t at(std::uint32_t block) const { return off_t{block} * SCSI_BLOCK_BYTES; }

    Descriptor sg{open("/dev/sg0", O_RDWR)};
    Descriptor block_device{open("/dev/sda", O_RDWR | O_DIRECT)};
};

TEST_F(ScsiDisk, WrittenBlocksAreSeenThroughTheBlockDevice)
{
    const Blocks written(304, 1);
    Blocks seen(304);

    // 304 blocks from 8 on: commands of 128, 128 and 48 blocks.
    EXPECT_GE(scsi_io(sg.get(), 1, written.data.get(), 304, 8, 0), 0);

    ASSERT_EQ(pread(block_device.get(), seen.data.get(), seen.bytes, at(8)),
              static_cast<ssize_t>(seen.bytes));
    EXPECT_EQ(seen.copy(), written.copy());
}

TEST_F(ScsiDisk, BlocksOfTheBlockDeviceAreRead)
{
    const Blocks written(40, 2);
    Blocks seen(40);
    ASSERT_EQ(pwrite(block_device.get(), written.data.get(), written.bytes, at(1000)),
              static_cast<ssize_t>(written.bytes));

    EXPECT_GE(scsi_io(sg.get(), 0, seen.data.get(), 40, 1000, 7), 0);

    EXPECT_EQ(seen.copy(), written.copy());
}

TEST_F(ScsiDisk, ReportsWhetherTheDriverDidDirectIo)
{
    Blocks seen(8);

    set_file("/sys/module/sg/parameters/allow_dio", "0");
    EXPECT_EQ(scsi_io(sg.get(), 0, seen.data.get(), 8, 0, 0), SCSI_IO_INDIRECT);

    set_file("/sys/module/sg/parameters/allow_dio", "1");
    EXPECT_EQ(scsi_io(sg.get(), 0, seen.data.get(), 8, 0, 0), SCSI_IO_DIRECT);
    set_file("/sys/module/sg/parameters/allow_dio", "0");
}

TEST_F(ScsiDisk, AMediumErrorStopsTheTransfer)
{
    Blocks seen(300);
    set_driver("opts", "2");

    EXPECT_EQ(scsi_io(sg.get(), 0, seen.data.get(), 1, kBadSector, 0), SCSI_IO_STATUS);
    EXPECT_EQ(scsi_io(sg.get(), 0, seen.data.get(), 300, kBadSector - 200, 0), SCSI_IO_STATUS);
    EXPECT_GE(scsi_io(sg.get(), 0, seen.data.get(), 100, kBadSector - 200, 0), 0);
}

TEST_F(ScsiDisk, ATransportErrorIsReported)
{
    Blocks seen(3);
    set_driver("opts", "16");
    set_driver("every_nth", "1");

    EXPECT_EQ(do_io(sg.get(), 0, seen.data.get(), 3, 0), SCSI_IO_STATUS);
}

TEST_F(ScsiDisk, AnAddressBehindTheEndIsRefusedByTheDisk)
{
    Blocks seen(2);

    EXPECT_EQ(scsi_io(sg.get(), 0, seen.data.get(), 2, 8 * 2048 - 1, 0), SCSI_IO_STATUS);
    EXPECT_EQ(scsi_io(sg.get(), 1, seen.data.get(), 1, 0xFFFFFFFF, 0), SCSI_IO_STATUS);
}

TEST_F(ScsiDisk, ADescriptorThatIsNoScsiDeviceFails)
{
    Blocks seen(1);
    const Descriptor null_device(open("/dev/null", O_RDWR));

    EXPECT_EQ(scsi_io(-1, 0, seen.data.get(), 1, 0, 0), SCSI_IO_FAILED);
    EXPECT_EQ(scsi_io(null_device.get(), 0, seen.data.get(), 1, 0, 0), SCSI_IO_FAILED);
}

}  // namespace
