// Raw block I/O against a descriptor that answers as the SCSI generic driver does: one header in,
// the same header back.
#include "fsmdc/scsi_io.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <scsi/sg.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <thread>
#include <vector>

#include "tests/fsmdc/bytes.hpp"

namespace {

// Failures that the next calls on the descriptor under test meet, as errno values.
int g_descriptor = -1;
std::deque<int> g_write_errors;
std::deque<int> g_read_errors;

bool fails(int descriptor, std::deque<int>& errors)
{
    if (descriptor != g_descriptor || errors.empty()) return false;
    errno = errors.front();
    errors.pop_front();
    return true;
}

}  // namespace

ssize_t write(int descriptor, const void* data, size_t size)
{
    if (fails(descriptor, g_write_errors)) return -1;
    return syscall(SYS_write, descriptor, data, size);
}
ssize_t read(int descriptor, void* data, size_t size)
{
    if (fails(descriptor, g_read_errors)) return -1;
    return syscall(SYS_read, descriptor, data, size);
}

namespace {

using fsmdc_test::hex;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// What the driver answers one command with.
struct Answer {
    unsigned char masked_status = 0;
    unsigned short host_status = 0;
    unsigned short driver_status = 0;
    unsigned info = SG_INFO_DIRECT_IO;
    std::size_t bytes = sizeof(sg_io_hdr_t);
};

class ScsiIo : public ::testing::Test {
protected:
    ScsiIo()
    {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
        g_descriptor = ends[0];
        driver_end_ = ends[1];
    }
    ~ScsiIo() override
    {
        finish();
        close(g_descriptor);
        close(driver_end_);
        g_descriptor = -1;
    }
    // Starts the driver: it answers one command with each of `answers`, the last of them for ever.
    void answer_with(std::vector<Answer> answers)
    {
        driver_ = std::thread([this, answers = std::move(answers)] {
            for (std::size_t i = 0;; ++i) {
                sg_io_hdr_t header;
                if (syscall(SYS_read, driver_end_, &header, sizeof header) != sizeof header) return;
                const Answer& answer = answers[std::min(i, answers.size() - 1)];
                commands_.push_back(hex(header.cmdp, header.cmd_len));
                headers_.push_back(header);
                if (header.dxfer_direction == SG_DXFER_FROM_DEV) {
                    std::memset(header.dxferp, static_cast<int>('a' + i), header.dxfer_len);
                } else {
                    const auto* data = static_cast<const char*>(header.dxferp);
                    written_.append(data, header.dxfer_len);
                }
                header.masked_status = answer.masked_status;
                header.host_status = answer.host_status;
                header.driver_status = answer.driver_status;
                header.info = answer.info;
                (void)!syscall(SYS_write, driver_end_, &header, answer.bytes);
            }
        });
    }
    void finish()
    {
        shutdown(g_descriptor, SHUT_RDWR);
        if (driver_.joinable()) driver_.join();
    }

    std::vector<char> buffer_ = std::vector<char>(300 * 512);
    std::vector<std::string> commands_;
    std::vector<sg_io_hdr_t> headers_;
    std::string written_;

private:
    int driver_end_ = -1;
    std::thread driver_;
};

TEST_F(ScsiIo, AReadIsOneCommandWithEveryFieldSet)
{
    answer_with({{}});
    const std::int32_t first_id = id_count;

    EXPECT_EQ(do_io(g_descriptor, 0, buffer_.data(), 0x0102 % 300, 0xA1B2C3D4), 0);

    finish();
    EXPECT_THAT(commands_, ElementsAre("2800a1b2c3d400010200"));
    const sg_io_hdr_t& header = headers_.front();
    EXPECT_EQ(header.interface_id, 'S');
    EXPECT_EQ(header.dxfer_direction, SG_DXFER_FROM_DEV);
    EXPECT_EQ(header.cmd_len, 10);
    EXPECT_EQ(header.mx_sb_len, 64);
    EXPECT_EQ(header.iovec_count, 0);
    EXPECT_EQ(header.dxfer_len, 258u * 512);
    EXPECT_EQ(header.dxferp, buffer_.data());
    EXPECT_NE(header.sbp, nullptr);
    EXPECT_EQ(header.timeout, 10000u);
    EXPECT_EQ(header.flags, 1u);
    EXPECT_EQ(header.pack_id, first_id);
    EXPECT_EQ(header.usr_ptr, nullptr);
    EXPECT_EQ(id_count, first_id + 1);
    EXPECT_EQ(std::string(buffer_.data(), 258 * 512), std::string(258 * 512, 'a'));
    EXPECT_EQ(buffer_[258 * 512], 0);
}

TEST_F(ScsiIo, AWriteSendsItsBytes)
{
    std::fill(buffer_.begin(), buffer_.end(), 'w');  // before there is a thread that reads it
    answer_with({{}});

    EXPECT_EQ(do_io(g_descriptor, 5, buffer_.data(), 2, 7), 0);

    finish();
    EXPECT_THAT(commands_, ElementsAre("2a000000000700000200"));
    EXPECT_EQ(headers_.front().dxfer_direction, SG_DXFER_TO_DEV);
    EXPECT_EQ(written_, std::string(1024, 'w'));
}

struct Status {
    const char* name;
    Answer answer;
    std::int32_t result;
};
class ScsiStatus : public ScsiIo, public ::testing::WithParamInterface<Status> {};

TEST_P(ScsiStatus, DecidesTheResult)
{
    answer_with({GetParam().answer});
    EXPECT_EQ(do_io(g_descriptor, 0, buffer_.data(), 1, 0), GetParam().result);
}
INSTANTIATE_TEST_SUITE_P(Answers, ScsiStatus,
                         ::testing::Values(Status{"direct", {.info = 2}, 0},
                                           Status{"direct_among_others", {.info = 0xF3}, 0},
                                           Status{"indirect", {.info = 0}, 1},
                                           Status{"mixed", {.info = 4}, 1},
                                           Status{"both_bits", {.info = 6}, 1},
                                           Status{"device", {.masked_status = 1}, -10},
                                           Status{"adapter", {.host_status = 1}, -10},
                                           Status{"driver", {.driver_status = 8}, -10},
                                           Status{"half_a_header", {.bytes = 40}, -1}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(ScsiIo, AnInterruptedCallIsMadeAgain)
{
    answer_with({{}});
    g_write_errors = {EINTR, EINTR};
    g_read_errors = {EINTR};

    EXPECT_EQ(do_io(g_descriptor, 0, buffer_.data(), 1, 0), 0);

    EXPECT_THAT(g_write_errors, IsEmpty());
    EXPECT_THAT(g_read_errors, IsEmpty());
}

TEST_F(ScsiIo, FailedCallsHaveTheirOwnCodes)
{
    g_write_errors = {ENOMEM};
    EXPECT_EQ(do_io(g_descriptor, 0, buffer_.data(), 1, 0), -5);
    g_write_errors = {EDOM};
    EXPECT_EQ(do_io(g_descriptor, 0, buffer_.data(), 1, 0), -1);
    g_read_errors = {ENOMEM};
    EXPECT_EQ(do_io(g_descriptor, 0, buffer_.data(), 1, 0), -1);
    EXPECT_EQ(do_io(-1, 0, buffer_.data(), 1, 0), -1);
}

TEST_F(ScsiIo, ALongTransferIsSplit)
{
    answer_with({{}});

    EXPECT_EQ(scsi_io(g_descriptor, 0, buffer_.data(), 300, 1000, 0), 0);

    finish();
    EXPECT_THAT(commands_, ElementsAre("2800000003e800008000", "28000000046800008000",
                                       "2800000004e800002c00"));
    EXPECT_EQ(
        std::string(buffer_.begin(), buffer_.end()),
        std::string(128 * 512, 'a') + std::string(128 * 512, 'b') + std::string(44 * 512, 'c'));
}

TEST_F(ScsiIo, TheChunkIsTheCallers)
{
    answer_with({{}});

    EXPECT_EQ(scsi_io(g_descriptor, 1, buffer_.data(), 5, 0xFFFFFFFF, 2), 0);

    finish();
    EXPECT_THAT(commands_, ElementsAre("2a00ffffffff00000200", "2a000000000100000200",
                                       "2a000000000300000100"));
}

TEST_F(ScsiIo, AnIndirectChunkIsRemembered)
{
    answer_with({{.info = 0}, {}, {}});
    EXPECT_EQ(scsi_io(g_descriptor, 0, buffer_.data(), 300, 0, 128), 1);
    finish();
    EXPECT_EQ(commands_.size(), 3u);
}

TEST_F(ScsiIo, AFailureStopsTheTransfer)
{
    answer_with({{.info = 0}, {.host_status = 3}, {}});
    EXPECT_EQ(scsi_io(g_descriptor, 0, buffer_.data(), 300, 0, 128), -10);
    finish();
    EXPECT_EQ(commands_.size(), 2u);
}

TEST_F(ScsiIo, NothingToMoveIssuesNoCommand)
{
    const std::int32_t first_id = id_count;
    EXPECT_EQ(scsi_io(g_descriptor, 0, buffer_.data(), 0, 0, 128), -1);
    EXPECT_EQ(scsi_io(g_descriptor, 0, buffer_.data(), -4, 0, 128), -1);
    EXPECT_EQ(scsi_io(g_descriptor, 0, buffer_.data(), 4, 0, -1), -1);
    EXPECT_EQ(id_count, first_id);
}

}  // namespace
