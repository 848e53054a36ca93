// GetVolume, SetSize and Close, and the header rules of every reply, in both byte orders.
#include "tests/daemon/recorder_world.hpp"

namespace corvane::harness {
namespace {

using codec::Order;

class Requests : public RecorderWorld {};
class RequestsInBothOrders : public RecorderWorld, public ::testing::WithParamInterface<Order> {
protected:
    codec::Header header() { return RecorderWorld::header(GetParam()); }
};
INSTANTIATE_TEST_SUITE_P(Orders, RequestsInBothOrders,
                         ::testing::Values(Order::kLittle, Order::kBig), [](const auto& row) {
                             return row.param == Order::kLittle ? "LittleEndian" : "BigEndian";
                         });

TEST_P(RequestsInBothOrders, GetVolumeByPathDescribesEachDisk)
{
    const codec::Bytes record = codec::volume_record(
        {{"0123456789abcdef", 512, 34, 1000000}, {"second", 1024, 0, 0x123456789A}}, 4096);
    Script answers;
    answers.volume_record = "result=0 record=" + codec::hex(record.data());
    start_with(answers);
    const codec::Header head = header();
    const codec::Bytes request = codec::get_volume(head, "/vol/one", cookie(0x70));

    const codec::Bytes reply = client().ask(request);

    codec::Bytes expected = reply_to(request, head, kVersion, 272 + 80);
    expected.put_bytes(88, record.data());
    expect_same(reply, expected);
    EXPECT_EQ(calls(),
              (std::vector<std::string>{call("FS_GetVolCookie path=/vol/one"),
                                        call("FS_GetVolByCookie volume=" + volume_hex() +
                                             " room=" + std::to_string(kMaxReply - 272))}));
}

TEST_P(RequestsInBothOrders, GetVolumeByCookieNeedsNoPath)
{
    const codec::Bytes record = codec::volume_record({{"disk", 1, 2, 3}}, 512);
    Script answers;
    answers.volume_record = "result=0 record=" + codec::hex(record.data());
    start_with(answers);
    (void)client().ask(codec::get_volume(header(), "/vol/one"));
    forget_calls();
    const codec::Header head = header();
    const codec::Bytes request = codec::get_volume(head, "", volume_cookie());

    const codec::Bytes reply = client().ask(request);

    codec::Bytes expected = reply_to(request, head, kVersion, 272);
    expected.put_bytes(88, record.data());
    expect_same(reply, expected);
    EXPECT_EQ(calls().size(), 1U);
}

TEST_P(RequestsInBothOrders, GetVolumeOfAnUnknownCookieIs405)
{
    start_with({});
    const codec::Header head = header();
    const codec::Bytes request = codec::get_volume(head, "", cookie(0x33));

    const codec::Bytes reply = client().ask(request);

    codec::Bytes expected = reply_to(request, head, kRequestRevision, 272);
    expected.put32(48, 405);
    expect_same(reply, expected);
    EXPECT_TRUE(calls().empty());
}

TEST_P(RequestsInBothOrders, SetSizeRenewsTheLease)
{
    start_with({});
    const std::uint32_t key = open_key();
    forget_calls();
    const codec::Header head = header();
    const codec::Bytes request = codec::set_size(head, key, 0x0102030405060708, 70000);

    const codec::Bytes reply = client().ask(request);

    codec::Bytes expected = reply_to(request, head, kVersion, 72);
    expected.put32(52, 70000);
    expect_same(reply, expected);
    EXPECT_EQ(calls(),
              (std::vector<std::string>{size_call(0x0102030405060708, -1), lease_call(70000)}));
}

TEST_P(RequestsInBothOrders, SetSizeOfAnUnknownKeyIs407)
{
    start_with({});
    const codec::Header head = header();
    const codec::Bytes request = codec::set_size(head, 0x01020304, 1);

    const codec::Bytes reply = client().ask(request);

    codec::Bytes expected = reply_to(request, head, kRequestRevision, 72);
    expected.put32(48, 407);
    expect_same(reply, expected);
}

TEST_P(RequestsInBothOrders, CloseUnlocksTheFile)
{
    start_with({});
    const std::uint32_t key = open_key();
    forget_calls();
    const codec::Header head = header();
    const codec::Bytes request = codec::close_file(head, key);

    const codec::Bytes reply = client().ask(request);

    expect_same(reply, reply_to(request, head, kVersion, 88));
    EXPECT_EQ(calls(), std::vector<std::string>{unlock_call()});
}

TEST_P(RequestsInBothOrders, CloseWithASizeSetsBothSizes)
{
    start_with({});
    const std::uint32_t key = open_key();
    forget_calls();

    const codec::Bytes reply = client().ask(codec::close_file(header(), key, 0x1122334455));

    EXPECT_EQ(reply.i32(48), 0);
    EXPECT_EQ(calls(),
              (std::vector<std::string>{size_call(0x1122334455, 0x1122334455), unlock_call()}));
}

TEST_P(RequestsInBothOrders, SecondCloseIs407)
{
    start_with({});
    const std::uint32_t key = open_key();
    EXPECT_EQ(client().ask(codec::close_file(header(), key)).i32(48), 0);
    forget_calls();
    const codec::Header head = header();
    const codec::Bytes request = codec::close_file(head, key, 100);

    const codec::Bytes reply = client().ask(request);

    codec::Bytes expected = reply_to(request, head, kRequestRevision, 88);
    expected.put32(48, 407);
    expect_same(reply, expected);
    EXPECT_TRUE(calls().empty());
}

// The marker stays the client's, every other field is in the controller's order.
TEST_P(RequestsInBothOrders, ErrorReplyKeepsTheClientsMarker)
{
    start_with({});
    codec::Header head = header();
    head.function = 6;
    head.flags = 0x80;

    const codec::Bytes reply = client().ask(codec::request(head, 48));

    codec::Bytes expected(48);
    expected.put_bytes(
        0, GetParam() == Order::kLittle ? std::string("\1\0\0\0", 4) : std::string("\0\0\0\1", 4));
    expected.put32(4, kRequestRevision);
    expected.put_bytes(8, head.message_id);
    expected.put32(24, -6);
    expected.put32(28, 48);
    expected.put32(32, 0x80);
    expected.put32(36, 8);
    expected.put(42, 2, '/');
    expect_same(reply, expected);
}

TEST_P(RequestsInBothOrders, LengthBelow48Is6)
{
    start_with({});
    codec::Header head = header();
    head.function = 1;
    head.length = 47;

    const codec::Bytes reply = client().ask(codec::request(head, 300));

    ASSERT_EQ(reply.size(), 48U);
    EXPECT_EQ(reply.i32(24), -1);
    EXPECT_EQ(reply.i32(28), 48);
    EXPECT_EQ(reply.i32(36), 6);
}

class RequestsOfUnknownFunction : public RecorderWorld,
                                  public ::testing::WithParamInterface<std::int32_t> {};

TEST_P(RequestsOfUnknownFunction, Are8)
{
    start_with({});
    codec::Header head = header();
    head.function = GetParam();

    const codec::Bytes reply = client().ask(codec::request(head, 48));

    EXPECT_EQ(reply.u32(24), 0U - static_cast<std::uint32_t>(GetParam()));
    EXPECT_EQ(reply.i32(36), 8);
    EXPECT_EQ(reply.size(), 48U);
}
INSTANTIATE_TEST_SUITE_P(Codes, RequestsOfUnknownFunction,
                         ::testing::Values(0, 6, 42, 99, 100, 101, 2147483647, -1, -2, -5,
                                           -2147483647 - 1));

TEST_F(Requests, SpareFieldsComeBackAsTheyLay)
{
    start_with({});
    codec::Bytes request = codec::get_volume(header(Order::kBig), "", cookie(1));
    request.put_bytes(40, std::string("\x11\x22", 2));
    request.put(42, 2, 0x3344);
    request.put_bytes(44, std::string("\x55\x66\x77\x88", 4));

    const codec::Bytes reply = client().ask(request);

    EXPECT_EQ(codec::hex(reply.slice(40, 8)), "1122443355667788");
}

TEST_F(Requests, ResultOfTheRequestIsNotRepeatedInHandlersReplies)
{
    start_with({});
    codec::Bytes request = codec::get_volume(header(), "", cookie(1));
    request.put32(36, 1234);

    EXPECT_EQ(client().ask(request).i32(36), 0);
}

TEST_F(Requests, HeaderLengthBeyondTheDatagramIsOnlyReported)
{
    start_with({});
    set_level(3);
    codec::Header head = header();
    head.length = 0x7FFFFFFF;

    EXPECT_EQ(client().ask(codec::get_volume(head, "", cookie(1))).i32(48), 405);

    EXPECT_TRUE(
        logged("corvaned: LANSERVER: header length 2147483647;receive length mismatch 2228\n"));
}

TEST_F(Requests, TwentyByteDatagramHasNoLengthAndIsRefused)
{
    start_with({});
    UdpClient asker = client();
    codec::Bytes request = codec::request(header(), 48);
    asker.send(request.data().substr(0, 20));

    const auto reply = asker.receive();

    // Its length is not in the 20 bytes, and what is not there reads as zero: too short.
    ASSERT_TRUE(reply.has_value());
    const codec::Bytes answer(*reply, Order::kLittle);
    EXPECT_EQ(answer.i32(36), 6);
    EXPECT_EQ(answer.i32(24), 0);
}

TEST_F(Requests, EmptyDatagramIsCountedAndNotAnswered)
{
    start_with({});
    set_level(3);
    UdpClient asker = client();

    asker.send("");

    EXPECT_TRUE(logged("corvaned: FTX2006I DGRAM: failed recvfrom:0 (total recv errors 1)\n"));
    EXPECT_FALSE(asker.receive(milliseconds(50)).has_value());
}

TEST_F(Requests, VolumeErrorTextEndsTheReply)
{
    const std::string text = "disk is gone";
    const codec::Bytes record = codec::volume_error_record(3, text);
    Script answers;
    answers.volume_record = "result=201 record=" + codec::hex(record.data());
    start_with(answers);
    const codec::Header head = header();
    const codec::Bytes request = codec::get_volume(head, "/vol");

    const codec::Bytes reply = client().ask(request);

    codec::Bytes expected = reply_to(request, head, kVersion, 274 + 2 * text.size());
    expected.put32(48, 201);
    expected.put_bytes(88, record.data());
    expect_same(reply, expected);
}

TEST_F(Requests, EmptyRecordOfAPluginHasTheLengthOfAnEmptyErrorText)
{
    Script answers;
    answers.volume_record = "result=104";
    start_with(answers);

    const codec::Bytes reply = client().ask(codec::get_volume(header(), "/vol"));

    EXPECT_EQ(reply.i32(48), 104);
    EXPECT_EQ(reply.size(), 274U);
}

TEST_F(Requests, MountPointNobodyClaimsFallsBackToTheCookie)
{
    Script answers;
    answers.volume_record =
        "result=0 record=" + codec::hex(codec::volume_record({{"d", 0, 0, 1}}, 512).data());
    start_with(answers);
    EXPECT_EQ(client().ask(codec::get_volume(header(), "/vol")).i32(48), 0);
    stop();
    answers.volume_cookie = "result=100";
    start_with(answers);

    EXPECT_EQ(client().ask(codec::get_volume(header(), "/vol", volume_cookie())).i32(48), 405);
    (void)open_key();  // makes the volume known through a file
    EXPECT_EQ(client().ask(codec::get_volume(header(), "/vol", volume_cookie())).i32(48), 0);
}

TEST_F(Requests, MaximumReplyComesFromTheEnvironment)
{
    environment_.emplace_back("MAXDGRAM=1000");
    Script answers;
    answers.volume_record = "result=0";
    start_with(answers);
    (void)client().ask(codec::get_volume(header(), "/vol"));
    (void)client().ask(codec::get_initial_map(header(), map_of()));

    const auto made = calls();
    ASSERT_EQ(made.size(), 5U);
    EXPECT_EQ(made[1], call("FS_GetVolByCookie volume=" + volume_hex() + " room=728"));
    EXPECT_EQ(made[4], map_call(0, -1, 0, 744));
}

class RequestsWithSmallMaximum : public RecorderWorld,
                                 public ::testing::WithParamInterface<const char*> {};

// A reply is never smaller than the fixed one of its kind, the room for a record never negative.
TEST_P(RequestsWithSmallMaximum, StillAnswer)
{
    environment_.emplace_back(std::string("MAXDGRAM=") + GetParam());
    Script answers;
    answers.volume_record =
        "result=0 record=" + codec::hex(codec::volume_record({{"d", 0, 0, 1}}, 512).data());
    start_with(answers);
    UdpClient asker = client();

    const codec::Bytes volume = asker.ask(codec::get_volume(header(), "/vol"));
    const codec::Bytes map = asker.ask(codec::get_initial_map(header(), map_of()));

    // The recorder found no room and wrote nothing: a record of zeros, in a reply of its formula's
    // length.
    EXPECT_EQ(volume.size(), 274U);
    EXPECT_EQ(volume.u32(28), 274U);
    EXPECT_EQ(codec::hex(volume.slice(48, 226)), std::string(452, '0'));
    EXPECT_EQ(map.size(), 162U);
    EXPECT_EQ(map.u32(28), 162U);
    for (const auto& made : calls()) {
        EXPECT_EQ(made.find("room=-"), std::string::npos) << made;
    }
    EXPECT_EQ(asker.ask(codec::close_file(header(), 99)).i32(48), 407);
}
INSTANTIATE_TEST_SUITE_P(Maxima, RequestsWithSmallMaximum,
                         ::testing::Values("0", "-1", "1", "48", "256", "x"),
                         [](const auto& row) { return "Case" + std::to_string(row.index); });

TEST_F(Requests, SetSizeDoesNotExcuseAShortAllocation)
{
    Script answers;
    answers.sizes = "result=400";
    start_with(answers);
    const std::uint32_t key = open_key();
    forget_calls();

    const codec::Bytes reply = client().ask(codec::set_size(header(), key, 10));

    EXPECT_EQ(reply.i32(48), 400);
    EXPECT_EQ(reply.i32(52), 0);
    EXPECT_EQ(calls(), std::vector<std::string>{size_call(10, -1)});
}

TEST_F(Requests, CloseExcusesAShortAllocation)
{
    Script answers;
    answers.sizes = "result=400";
    start_with(answers);

    EXPECT_EQ(client().ask(codec::close_file(header(), open_key(), 10)).i32(48), 0);
}

TEST_F(Requests, CloseReportsAFailedSizeChangeAndStillEndsTheLease)
{
    Script answers;
    answers.sizes = "result=104";
    start_with(answers);
    const std::uint32_t key = open_key();
    forget_calls();

    EXPECT_EQ(client().ask(codec::close_file(header(), key, 10)).i32(48), 104);

    EXPECT_EQ(calls(), (std::vector<std::string>{size_call(10, 10), unlock_call()}));
    EXPECT_EQ(client().ask(codec::close_file(header(), key, 10)).i32(48), 407);
}

TEST_F(Requests, CloseTurnsANegativeFailureInto408)
{
    Script answers;
    answers.sizes = "result=-5";
    start_with(answers);

    EXPECT_EQ(client().ask(codec::close_file(header(), open_key(), 10)).i32(48), 408);
}

}  // namespace
}  // namespace corvane::harness
