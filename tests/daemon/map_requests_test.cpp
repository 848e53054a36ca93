// GetInitialMap and GetExtendedMap: what the plug-in is asked, in which order, and what goes back.
#include "tests/daemon/recorder_world.hpp"

namespace corvane::harness {
namespace {

using codec::Order;
using Calls = std::vector<std::string>;

class MapRequests : public RecorderWorld {
protected:
    codec::Bytes initial(const codec::InitialMap& map)
    {
        return client().ask(codec::get_initial_map(header(), map));
    }
    codec::Bytes extended(const codec::ExtendedMap& map)
    {
        return client().ask(codec::get_extended_map(header(), map));
    }
    bool is_open(std::uint32_t key)
    {
        return client().ask(codec::close_file(header(), key)).i32(48) == 0;
    }

    static constexpr int kInitialRoom = kMaxReply - 256;
    static constexpr int kExtendedRoom = kMaxReply - 184;
};

class MapRequestsInBothOrders : public MapRequests, public ::testing::WithParamInterface<Order> {
protected:
    codec::Header header() { return RecorderWorld::header(GetParam()); }
};
INSTANTIATE_TEST_SUITE_P(Orders, MapRequestsInBothOrders,
                         ::testing::Values(Order::kLittle, Order::kBig), [](const auto& row) {
                             return row.param == Order::kLittle ? "LittleEndian" : "BigEndian";
                         });

TEST_P(MapRequestsInBothOrders, InitialMapRepliesWithEveryField)
{
    start_with({});
    codec::InitialMap map = map_of("/vol", "dir/f");
    map.lease = 70001;
    map.flag = 0x1040;
    const codec::Header head = header();
    const codec::Bytes request = codec::get_initial_map(head, map);

    const codec::Bytes reply = client().ask(request);

    const std::string record = default_map().data();
    codec::Bytes expected = reply_to(request, head, kVersion, 162 + record.size());
    expected.put32(52, 70001);
    expected.put32(56, 0);
    expected.put_bytes(96, file_cookie());
    expected.put_bytes(128, volume_cookie());
    expected.put_bytes(160, record);
    expect_same(reply, expected);
    EXPECT_EQ(calls(), (Calls{call("FS_GetCookies path=/vol/dir/f"), lease_call(70001),
                              map_call(0, -1, 0x1040, kInitialRoom)}));
}

TEST_P(MapRequestsInBothOrders, InitialMapChangesSizesAndMapsAgain)
{
    start_with({});
    codec::InitialMap map = map_of();
    map.file_size = 0x0102030405;
    map.alloc_size = 0x0607080900;
    map.flag = 4;

    const codec::Bytes reply = client().ask(codec::get_initial_map(header(), map));

    EXPECT_EQ(reply.i32(48), 0);
    EXPECT_EQ(calls(),
              (Calls{call("FS_GetCookies path=/vol/dir/f"), lease_call(5000),
                     map_call(0, -1, 4, kInitialRoom), size_call(0x0102030405, 0x0607080900),
                     map_call(0, -1, 4 + 32, kInitialRoom)}));
}

TEST_P(MapRequestsInBothOrders, ExtendedMapRepliesWithEveryField)
{
    start_with({});
    const std::uint32_t key = open_key();
    forget_calls();
    codec::ExtendedMap map;
    map.key = key;
    map.start = 0x0A0B0C0D0E;
    map.length = 500000;
    map.lease = 9000;
    map.flag = 0x2008;
    const codec::Header head = header();
    codec::Bytes request = codec::get_extended_map(head, map);
    // In the other order this length is taken as it stands, too: it was translated first.

    const codec::Bytes reply = client().ask(request);

    const std::string record = default_map().data();
    codec::Bytes expected = reply_to(request, head, kRequestRevision, 162 + record.size());
    expected.put_bytes(88, record);
    // The clock moves in whole seconds: one may have passed while the plug-in was asked.
    ASSERT_GE(reply.size(), 56U);
    EXPECT_TRUE(reply.i32(52) == 9000 || reply.i32(52) == 10000) << reply.i32(52);
    expected.put32(52, reply.i32(52));
    expect_same(reply, expected);
    EXPECT_EQ(calls(),
              (Calls{map_call(0x0A0B0C0D0E, 500000, 0x2008, kExtendedRoom), lease_call(9000)}));
}

TEST_P(MapRequestsInBothOrders, ExtendedMapOfAnUnknownKeyIs407)
{
    start_with({});
    const codec::Header head = header();
    codec::ExtendedMap map;
    map.key = 0xFFFFFFFF;
    const codec::Bytes request = codec::get_extended_map(head, map);

    const codec::Bytes reply = client().ask(request);

    codec::Bytes expected = reply_to(request, head, kRequestRevision, 184);
    expected.put32(48, 407);
    expect_same(reply, expected);
}

TEST_P(MapRequestsInBothOrders, LengthAbove512000IsTurnedRound)
{
    start_with({});
    const std::uint32_t key = open_key();
    forget_calls();
    for (const std::int64_t length : {512000LL, 512001LL, -1LL, -2LL}) {
        codec::ExtendedMap map;
        map.key = key;
        map.length = length;
        (void)client().ask(codec::get_extended_map(header(), map));
    }

    const auto made = calls();
    ASSERT_EQ(made.size(), 8U);
    EXPECT_EQ(made[0], map_call(0, 512000, 0, kExtendedRoom));
    EXPECT_EQ(made[2], map_call(0, 0x01D0070000000000, 0, kExtendedRoom));
    EXPECT_EQ(made[4], map_call(0, -1, 0, kExtendedRoom));
    EXPECT_EQ(made[6],
              map_call(0, static_cast<std::int64_t>(0xFEFFFFFFFFFFFFFF), 0, kExtendedRoom));
}

TEST_F(MapRequests, LengthZeroAsksForTheWholeFile)
{
    start_with({});
    codec::ExtendedMap map;
    map.key = open_key();
    map.start = 77;
    forget_calls();

    EXPECT_EQ(extended(map).i32(48), 0);

    EXPECT_EQ(calls()[0], map_call(77, -1, 0, kExtendedRoom));
}

TEST_F(MapRequests, PathIsJoinedByTheClientsSeparator)
{
    start_with({});
    const auto joined = [this](const std::string& share, const std::string& file, char separator) {
        forget_calls();
        codec::Header head = header();
        head.separator = static_cast<unsigned char>(separator);
        (void)client().ask(codec::get_initial_map(head, map_of(share, file)));
        const auto made = calls();
        return made.empty() ? std::string() : made[0].substr(made[0].find("path=") + 5);
    };

    EXPECT_EQ(joined("/vol", "f", '/'), "/vol/f");
    EXPECT_EQ(joined("/vol", "/f", '/'), "/vol/f");
    EXPECT_EQ(joined("/vol/", "f", '/'), "/vol/f");
    EXPECT_EQ(joined("/vol/", "/f", '/'), "/vol/f");
    EXPECT_EQ(joined("/vol", "dir\\f", '\\'), "/vol/dir/f");
    EXPECT_EQ(joined("/vol", "/f", '\0'), "/vol/f");
    EXPECT_EQ(joined("/vol", "f", '\0'), "/volf");
    EXPECT_EQ(joined("/vol", "f", ':'), "/vol:f");
}

TEST_F(MapRequests, ShareAloneIs406)
{
    start_with({});

    const codec::Bytes reply = initial(map_of("/vol", ""));

    EXPECT_EQ(reply.i32(48), 406);
    EXPECT_EQ(reply.size(), 256U);
    EXPECT_EQ(reply.i32(4), kRequestRevision);
    EXPECT_TRUE(calls().empty());
}

TEST_F(MapRequests, UnknownShareIs3)
{
    start_with({});

    const codec::Bytes reply = initial(map_of("nosuchshare", "f"));

    EXPECT_EQ(reply.i32(48), 3);
    EXPECT_EQ(reply.size(), 256U);
}

TEST_F(MapRequests, FileNobodyOwnsIs405)
{
    Script answers;
    answers.cookies = "result=101";
    start_with(answers);
    set_level(3);

    const codec::Bytes reply = initial(map_of());

    EXPECT_EQ(reply.i32(48), 405);
    EXPECT_EQ(reply.size(), 256U);
    EXPECT_TRUE(logged("corvaned: FS_GetCookies returned 101\n"));
}

TEST_F(MapRequests, FailedMapEndsTheLeaseAndUnlocks)
{
    Script answers;
    answers.map = "result=103";
    start_with(answers);

    const codec::Bytes reply = initial(map_of());

    EXPECT_EQ(reply.i32(48), 103);
    EXPECT_EQ(reply.size(), 162U);
    EXPECT_EQ(codec::hex(reply.slice(96, 66)), std::string(132, '0'));
    EXPECT_EQ(calls().back(), unlock_call());
    EXPECT_FALSE(is_open(reply.u32(56)));
}

TEST_F(MapRequests, PartialMapIsASuccess)
{
    Script answers;
    answers.map = "result=1 record=" + codec::hex(default_map().data());
    start_with(answers);

    const codec::Bytes reply = initial(map_of());

    EXPECT_EQ(reply.i32(48), 1);
    EXPECT_EQ(reply.slice(96, 32), file_cookie());
    EXPECT_TRUE(is_open(reply.u32(56)));
}

TEST_F(MapRequests, PartialMapThenASizeChangeReportsTheSizeChange)
{
    Script answers;
    answers.map = "result=1 record=" + codec::hex(default_map().data());
    start_with(answers);
    codec::InitialMap map = map_of();
    map.file_size = 100;

    EXPECT_EQ(initial(map).i32(48), 0);
}

TEST_F(MapRequests, FileSizeAloneMapsOnce)
{
    start_with({});
    codec::InitialMap map = map_of();
    map.file_size = 100;

    EXPECT_EQ(initial(map).i32(48), 0);

    EXPECT_EQ(calls(), (Calls{call("FS_GetCookies path=/vol/dir/f"), lease_call(5000),
                              map_call(0, -1, 0, kInitialRoom), size_call(100, -1)}));
}

TEST_F(MapRequests, ShortAllocationIsExcused)
{
    Script answers;
    answers.sizes = "result=400";
    start_with(answers);
    codec::InitialMap map = map_of();
    map.alloc_size = 4096;

    const codec::Bytes reply = initial(map);

    EXPECT_EQ(reply.i32(48), 0);
    EXPECT_TRUE(is_open(reply.u32(56)));
}

TEST_F(MapRequests, FailedSizeChangeEndsTheLease)
{
    Script answers;
    answers.sizes = "result=104";
    start_with(answers);
    codec::InitialMap map = map_of();
    map.alloc_size = 4096;

    const codec::Bytes reply = initial(map);

    EXPECT_EQ(reply.i32(48), 104);
    EXPECT_EQ(calls().back(), unlock_call());
    EXPECT_FALSE(is_open(reply.u32(56)));
}

TEST_F(MapRequests, FailedSecondMapEndsTheLease)
{
    Script answers;
    answers.second_map = "result=203";
    start_with(answers);
    codec::InitialMap map = map_of();
    map.alloc_size = 4096;

    const codec::Bytes reply = initial(map);

    EXPECT_EQ(reply.i32(48), 203);
    EXPECT_EQ(calls().back(), unlock_call());
}

TEST_F(MapRequests, SecondMapsResultCounts)
{
    Script answers;
    answers.second_map =
        "result=1 record=" + codec::hex(codec::map_record(9, {{0, 1, 9, 0, 0}}).data());
    start_with(answers);
    codec::InitialMap map = map_of();
    map.alloc_size = 4096;

    const codec::Bytes reply = initial(map);

    EXPECT_EQ(reply.i32(48), 1);
    EXPECT_EQ(reply.i64(160), 9);
    EXPECT_EQ(reply.size(), 162U + 96U);
}

TEST_F(MapRequests, UnlockedMapLeavesNoLease)
{
    start_with({});
    codec::InitialMap map = map_of();
    map.flag = 8;
    map.lease = 60000;

    const codec::Bytes reply = initial(map);

    EXPECT_EQ(reply.i32(48), 0);
    EXPECT_TRUE(reply.i32(52) == 60000 || reply.i32(52) == 61000) << reply.i32(52);
    EXPECT_EQ(reply.slice(96, 32), file_cookie());
    EXPECT_EQ(reply.slice(128, 32), volume_cookie());
    EXPECT_EQ(calls().back(), unlock_call());
    EXPECT_FALSE(is_open(reply.u32(56)));
}

TEST_F(MapRequests, ErrorTextOfAMapCountsTowardTheLength)
{
    const std::string text = "busy";
    Script answers;
    answers.map = "result=0 record=" + codec::hex(codec::map_error_record(9, text).data());
    start_with(answers);

    const codec::Bytes reply = initial(map_of());

    EXPECT_EQ(reply.size(), 162U + 64U + 2 * text.size());
    EXPECT_EQ(reply.text(160 + 64), text);
}

TEST_F(MapRequests, ExtendedMapChangesSizesFirst)
{
    start_with({});
    codec::ExtendedMap map;
    map.key = open_key();
    map.allocation = 8192;
    forget_calls();

    EXPECT_EQ(extended(map).i32(48), 0);

    EXPECT_EQ(calls(),
              (Calls{size_call(-1, 8192), map_call(0, -1, 0, kExtendedRoom), lease_call(3600000)}))
        << "a request that changes a size is a writer's";
}

TEST_F(MapRequests, ExtendedMapWithAFailedSizeChangeMapsNothing)
{
    Script answers;
    answers.sizes = "result=104";
    start_with(answers);
    codec::ExtendedMap map;
    map.key = open_key();
    map.file_size = 8192;
    forget_calls();

    const codec::Bytes reply = extended(map);

    EXPECT_EQ(reply.i32(48), 104);
    EXPECT_EQ(reply.i32(52), 0);
    EXPECT_EQ(reply.size(), 162U);
    EXPECT_EQ(calls()[0], size_call(8192, -1));
    for (const auto& made : calls()) {
        EXPECT_EQ(made.find("FS_GetLockedMap"), std::string::npos) << made;
    }
}

TEST_F(MapRequests, PartialExtendedMapRenewsNothing)
{
    Script answers;
    answers.second_map = "result=1 record=" + codec::hex(default_map().data());
    start_with(answers);
    codec::ExtendedMap map;
    map.key = open_key();

    const codec::Bytes reply = extended(map);

    EXPECT_EQ(reply.i32(48), 1);
    EXPECT_EQ(reply.i32(52), 0);
    EXPECT_EQ(reply.size(), 162U + default_map().size());
}

TEST_F(MapRequests, FailedExtendedMapIsReported)
{
    Script answers;
    answers.second_map = "result=203";
    start_with(answers);
    codec::ExtendedMap map;
    map.key = open_key();

    const codec::Bytes reply = extended(map);

    EXPECT_EQ(reply.i32(48), 203);
    EXPECT_EQ(reply.i32(52), 0);
    EXPECT_TRUE(is_open(map.key)) << "the lease stays";
}

}  // namespace
}  // namespace corvane::harness
