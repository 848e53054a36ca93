// The descriptor service under many requests, clients that leave at every moment, and requests at
// the edge of one read: nothing stays open, memory stays where it was.
#include <fcntl.h>

#include <sstream>

#include "tests/daemon/descriptor_world.hpp"

namespace corvane::harness {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsInstrumented = true;
#else
constexpr bool kIsInstrumented = false;
#endif
constexpr int kRequests = 100000;
constexpr std::int64_t kMostGrowth_kib = kIsInstrumented ? 400 * 1024 : 4096;
constexpr std::size_t kOneRead_bytes = 4095;

class DescriptorLoad : public DescriptorWorld {
protected:
    void SetUp() override
    {
        DescriptorWorld::SetUp();
        if (!IsSkipped()) world().write_file("/tmp/file", "contents");
    }

    std::int64_t resident_kib()
    {
        std::istringstream status(
            world().read_inside("/proc/" + std::to_string(daemon_pid()) + "/status"));
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("VmRSS:", 0) == 0) return std::stoll(line.substr(6));
        }
        ADD_FAILURE() << "no VmRSS";
        return 0;
    }

    // Sends one request of each kind in turn; now and then a client does not wait for its answer.
    void send_all_kinds(int count)
    {
        int refused = 0;
        for (int i = 0; i < count; ++i) {
            const int kind = i % 16;
            if (kind == 15) {  // these write a line of the log each
                refused += ask(i % 32 == 15 ? "/tmp/absent" : "hello").descriptor.is_open() ? 0 : 1;
            } else if (kind == 14) {
                const Fd hasty = connect_to(kSocketPath);
                EXPECT_EQ(::send(hasty.get(), "/tmp/file", 9, MSG_NOSIGNAL), 9);
            } else if (kind >= 10) {
                EXPECT_EQ(ask("logrm/tmp/x.log").data, "");
            } else {
                ASSERT_TRUE(ask(kind < 5 ? "/tmp/file" : "logop/tmp/x.log").descriptor.is_open());
            }
        }
        EXPECT_EQ(refused, count / 16);
    }

    void expect_service() { EXPECT_EQ(read_descriptor(ask("/tmp/file").descriptor), "contents"); }
};

TEST_F(DescriptorLoad, ManyRequestsOfAllKindsLeaveNothingBehind)
{
    start();
    send_all_kinds(1600);
    const std::string before = open_descriptors();
    ASSERT_NE(before, "");
    const std::int64_t resident_before_kib = resident_kib();

    send_all_kinds(kRequests);

    EXPECT_TRUE(eventually([&] { return open_descriptors() == before; })) << open_descriptors();
    EXPECT_LE(resident_kib() - resident_before_kib, kMostGrowth_kib);
    expect_service();
}

TEST_F(DescriptorLoad, ClientsLeaveAtEveryMoment)
{
    start();
    expect_service();
    const std::string before = open_descriptors();
    const std::string request = "/tmp/file";

    for (std::size_t sent = 0; sent <= request.size(); ++sent) {
        for (const int leaves : {int{SHUT_RD}, int{SHUT_WR}, int{SHUT_RDWR}, -1}) {
            const Fd client = connect_to(kSocketPath);
            if (sent > 0) {
                EXPECT_EQ(::send(client.get(), request.data(), sent, MSG_NOSIGNAL),
                          static_cast<ssize_t>(sent));
            }
            if (leaves >= 0) {
                EXPECT_EQ(::shutdown(client.get(), leaves), 0);
            }
        }
        expect_service();
    }

    EXPECT_TRUE(eventually([&] { return open_descriptors() == before; })) << open_descriptors();
}

TEST_F(DescriptorLoad, ARequestInPiecesIsItsFirstPiece)
{
    start();
    const Fd client = connect_to(kSocketPath);
    ASSERT_EQ(::send(client.get(), "/tmp", 4, MSG_NOSIGNAL), 4);
    EXPECT_TRUE(logged("] Open failed for: \"/tmp\": Is a directory\n"));
    (void)::send(client.get(), "/file", 5, MSG_NOSIGNAL);

    EXPECT_FALSE(read_answer(client).descriptor.is_open());
    expect_service();
}

TEST_F(DescriptorLoad, OneReadTakes4095Bytes)
{
    start();
    world().write_file("/tmp/fileX", "longer name");
    std::string path = "/tmp/fileX";
    while (path.size() + 2 <= kOneRead_bytes) path.insert(4, "/.");
    if (path.size() < kOneRead_bytes) path.insert(4, "/");
    ASSERT_EQ(path.size(), kOneRead_bytes);

    EXPECT_EQ(read_descriptor(ask(path).descriptor), "longer name");
    path.insert(4, "/");  // the X does not come in any more
    EXPECT_EQ(read_descriptor(ask(path).descriptor), "contents");
}

TEST_F(DescriptorLoad, AnyByteButZeroMayStandInAPath)
{
    start();
    for (const int first : {1, 128}) {
        std::string name;
        for (int byte = first; byte < first + 128 && byte < 256; ++byte) {
            if (byte != '/') name += static_cast<char>(byte);
        }
        world().write_file("/tmp/" + name, "odd name");

        EXPECT_EQ(read_descriptor(ask("/tmp/" + name).descriptor), "odd name") << first;
    }
}

TEST_F(DescriptorLoad, RequestsThatBeginWithAnyByteCostOnlyTheirConnection)
{
    start();
    expect_service();
    const std::string before = open_descriptors();

    for (int byte = 0; byte < 256; ++byte) {
        const std::string request = std::string(1, static_cast<char>(byte)) + "%n%s\xFF\x80";
        const Answer answer = ask(request);
        EXPECT_EQ(answer.data, "") << byte;
        EXPECT_TRUE(answer.ended) << byte;
    }

    expect_service();
    EXPECT_TRUE(eventually([&] { return open_descriptors() == before; })) << open_descriptors();
}

}  // namespace
}  // namespace corvane::harness
