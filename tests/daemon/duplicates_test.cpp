// Requests that a client sends again: dropped, answered from the stored reply, or executed once
// more.
#include "tests/daemon/recorder_world.hpp"

namespace corvane::harness {
namespace {

class Duplicates : public RecorderWorld {
protected:
    void start_plain()
    {
        Script answers;
        answers.volume_record =
            "result=0 record=" + codec::hex(codec::volume_record({{"d", 0, 0, 1}}, 512).data());
        start_with(answers);
    }

    // A GetVolume that the plug-in is asked about; `flags` bit 0 asks for tracking.
    codec::Bytes volume_request(const std::string& id, std::uint32_t flags = 1)
    {
        codec::Header head = header();
        head.message_id = id;
        head.message_id.resize(16, '.');
        head.flags = flags;
        return codec::get_volume(head, "/vol");
    }

    std::size_t executions()
    {
        std::size_t count = 0;
        for (const auto& made : calls())
            count += made.find("FS_GetVolCookie") != std::string::npos ? 1 : 0;
        return count;
    }
};

TEST_F(Duplicates, SecondCopyIsAnsweredFromTheFirstReply)
{
    start_plain();
    set_level(3);
    UdpClient asker = client();
    const codec::Bytes request = volume_request("one");

    const codec::Bytes first = asker.ask(request);
    ASSERT_TRUE(logged("FTX2010I DGRAM_sendReply sending 272 bytes\n"));
    clear_log();
    const codec::Bytes second = asker.ask(request);

    EXPECT_EQ(first.i32(48), 0);
    EXPECT_EQ(second.data(), first.data());
    EXPECT_EQ(executions(), 1U);
    ASSERT_TRUE(logged("FTX2010I DGRAM_sendReply sending 272 bytes\n"));
    std::size_t lines = 0;
    for (const auto& line : log_lines()) lines += line == "Found duplicate message" ? 1 : 0;
    EXPECT_EQ(lines, 2U) << log();
}

TEST_F(Duplicates, CopyIsDroppedWhileTheFirstIsWorkedOn)
{
    Script answers;
    answers.volume_cookie = "result=0 volume=" + volume_hex() + " gate=/tmp/go";
    answers.volume_record =
        "result=0 record=" + codec::hex(codec::volume_record({{"d", 0, 0, 1}}, 512).data());
    start_with(answers);
    set_level(3);
    UdpClient asker = client();
    const codec::Bytes request = volume_request("one");

    asker.send(request.data());
    ASSERT_TRUE(eventually([this] { return executions() == 1; }));
    asker.send(request.data());
    ASSERT_TRUE(logged("corvaned: Dropping duplicate message\n"));
    world().write_file("/tmp/go", "");

    const auto reply = asker.receive();
    ASSERT_TRUE(reply.has_value());
    EXPECT_FALSE(asker.receive(milliseconds(100)).has_value()) << "one reply for both";
    EXPECT_EQ(asker.ask(request).data(), *reply);
    EXPECT_EQ(executions(), 1U);
}

TEST_F(Duplicates, UntrackedRequestIsExecutedAgain)
{
    start_plain();
    UdpClient asker = client();

    (void)asker.ask(volume_request("one", 0));
    (void)asker.ask(volume_request("one", 0xFFFFFFFE));

    EXPECT_EQ(executions(), 2U);
}

TEST_F(Duplicates, SameIdFromAnotherPortIsAnotherRequest)
{
    start_plain();
    set_level(3);
    UdpClient one = client();
    UdpClient other = client();

    (void)one.ask(volume_request("same"));
    (void)other.ask(volume_request("same"));

    EXPECT_EQ(executions(), 2U);
    EXPECT_TRUE(logged("corvaned: Duplicate message ids from different senders.\n"));
    (void)one.ask(volume_request("same"));
    (void)other.ask(volume_request("same"));
    EXPECT_EQ(executions(), 2U);
}

TEST_F(Duplicates, ErrorRepliesAreTrackedToo)
{
    start_plain();
    set_level(3);
    UdpClient asker = client();
    codec::Header head = header();
    head.function = 77;
    head.flags = 1;

    const codec::Bytes first = asker.ask(codec::request(head, 48));
    const codec::Bytes second = asker.ask(codec::request(head, 48));

    EXPECT_EQ(first.i32(36), 8);
    EXPECT_EQ(second.data(), first.data());
    EXPECT_TRUE(logged("corvaned: Found duplicate message\n"));
}

// The count reaches 101, and the purge stops at 99: the two oldest go.
TEST_F(Duplicates, PurgeDropsTheTwoOldestOf101)
{
    start_plain();
    UdpClient asker = client();
    for (int i = 0; i < 101; ++i) (void)asker.ask(volume_request("n" + std::to_string(i)));
    ASSERT_EQ(executions(), 101U);

    (void)asker.ask(volume_request("n2"));
    (void)asker.ask(volume_request("n100"));
    EXPECT_EQ(executions(), 101U) << "both still stored";
    (void)asker.ask(volume_request("n0"));
    EXPECT_EQ(executions(), 102U);
    (void)asker.ask(volume_request("n1"));
    EXPECT_EQ(executions(), 103U);
}

TEST_F(Duplicates, HundredAreKept)
{
    start_plain();
    UdpClient asker = client();
    for (int i = 0; i < 100; ++i) (void)asker.ask(volume_request("n" + std::to_string(i)));

    (void)asker.ask(volume_request("n0"));

    EXPECT_EQ(executions(), 100U);
}

TEST_F(Duplicates, RequestInProcessIsNeverPurged)
{
    Script answers;
    answers.volume_cookie = "result=0 volume=" + volume_hex() + " gate=/tmp/go";
    answers.volume_record =
        "result=0 record=" + codec::hex(codec::volume_record({{"d", 0, 0, 1}}, 512).data());
    environment_.emplace_back("MAX_TRACKED_MESSAGES=1");
    start_with(answers);
    UdpClient waiting = client();
    waiting.send(volume_request("slow").data());
    ASSERT_TRUE(eventually([this] { return executions() == 1; }));
    UdpClient asker = client();
    codec::Header head = header();
    head.flags = 1;
    for (int i = 0; i < 10; ++i) {
        head.message_id = "quick" + std::to_string(i);
        head.message_id.resize(16);
        EXPECT_EQ(asker.ask(codec::request(head, 48)).i32(36), 8);
    }

    waiting.send(volume_request("slow").data());
    world().write_file("/tmp/go", "");

    EXPECT_TRUE(waiting.receive().has_value());
    EXPECT_EQ(executions(), 1U);
}

TEST_F(Duplicates, TrackingIsSwitchedOffByTheEnvironment)
{
    environment_.emplace_back("TRACK_MESSAGES=0");
    start_plain();
    UdpClient asker = client();

    (void)asker.ask(volume_request("one"));
    (void)asker.ask(volume_request("one"));

    EXPECT_EQ(executions(), 2U);
}

TEST_F(Duplicates, MaximumOfZeroForgetsAtOnce)
{
    environment_.emplace_back("MAX_TRACKED_MESSAGES=none");
    start_plain();
    UdpClient asker = client();

    (void)asker.ask(volume_request("one"));
    (void)asker.ask(volume_request("one"));

    EXPECT_EQ(executions(), 2U);
}

TEST_F(Duplicates, StartTellsWhetherRequestsAreTracked)
{
    make_segment();
    set_level(3);
    environment_.emplace_back("MAX_TRACKED_MESSAGES=7");
    start_plain();
    EXPECT_TRUE(logged("corvaned: Tracking 7 messages for duplicate detection.\n"));
    stop();

    environment_.emplace_back("TRACK_MESSAGES=0");
    start_plain();

    EXPECT_TRUE(logged("corvaned: Tracking messages for duplicate detection is DISABLED.\n"));
}

// Big-endian copies are the same request to the tracker, which sees the header translated.
TEST_F(Duplicates, CopiesOfTheOtherByteOrderAreFound)
{
    start_plain();
    UdpClient asker = client();
    codec::Header head = header(codec::Order::kBig);
    head.flags = 1;
    const codec::Bytes request = codec::get_volume(head, "/vol");

    const codec::Bytes first = asker.ask(request);
    const codec::Bytes second = asker.ask(request);

    EXPECT_EQ(second.data(), first.data());
    EXPECT_EQ(executions(), 1U);
}

}  // namespace
}  // namespace corvane::harness
