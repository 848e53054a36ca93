// Replies in both byte orders, and replies that lie about themselves.
#include "client/reply.hpp"

#include <gtest/gtest.h>

#include "client/failure.hpp"
#include "client/volume.hpp"
#include "fsmdc/messages.h"
#include "tests/client/reply_builder.hpp"

namespace corvane {
namespace {

using test::Bytes;
using test::Order;
using test::reply_bytes;
using test::take_reply;
using test::take_translated;

constexpr std::size_t kVolume = 88;
constexpr std::size_t kVolumeHead = 104;

Bytes volume_reply(Order order)
{
    Bytes bytes = reply_bytes(SP_GET_VOLUME, kVolume + kVolumeHead + 2 * 80, order);
    bytes.put32(kVolume + 8, 61267);
    bytes.put32(kVolume + 12, 3);
    bytes.put32(kVolume + 16, 4);
    bytes.put32(kVolume + 20, 2);
    bytes.put32(kVolume + 24, 4096);
    for (std::size_t disk = 0; disk < 2; ++disk) {
        const std::size_t at = kVolume + kVolumeHead + 80 * disk;
        bytes.put_bytes(at, disk == 0 ? "first" : "second");
        bytes.put64(at + 16, 0x0102030405060708);
        bytes.put64(at + 24, 11);
        bytes.put64(at + 32, 12);
        bytes.put32(at + 40, disk == 0 ? 5 : 6);
    }
    return bytes;
}

class ReplyInBothOrders : public ::testing::TestWithParam<Order> {};
INSTANTIATE_TEST_SUITE_P(Orders, ReplyInBothOrders, ::testing::Values(Order::kLittle, Order::kBig),
                         [](const auto& instance) {
                             return instance.param == Order::kLittle ? "Little" : "Big";
                         });

TEST_P(ReplyInBothOrders, VolumeReadsTheSame)
{
    const Volume volume = read_volume(take_translated(SP_GET_VOLUME, volume_reply(GetParam())));

    EXPECT_EQ(volume.fs_type, 61267);
    EXPECT_EQ(volume.glom_type, 3);
    EXPECT_EQ(volume.glom_info, 4);
    EXPECT_EQ(volume.block_bytes, 4096);
    ASSERT_EQ(volume.disks.size(), 2U);
    EXPECT_EQ(volume.disks[0].signature_text(), "6669727374");
    EXPECT_EQ(volume.disks[1].signature_bytes, 6);
    EXPECT_EQ(volume.disks[1].signature_offset, 0x0102030405060708);
    EXPECT_EQ(volume.disks[1].first_block, 11);
    EXPECT_EQ(volume.disks[1].block_count, 12);
}

TEST_P(ReplyInBothOrders, WordsReadTheSameBeforeAndAfterTranslation)
{
    Bytes bytes = reply_bytes(SP_SET_SIZE, 72, GetParam());
    bytes.put32(48, 409);
    bytes.put32(52, 0x01020304);
    Reply reply = take_reply(SP_SET_SIZE, bytes);

    EXPECT_EQ(reply.code(), 409U);
    EXPECT_EQ(reply.word(52), 0x01020304U);
    reply.translate_body();
    EXPECT_EQ(reply.code(), 409U);
    EXPECT_EQ(reply.word(52), 0x01020304U);
}

// A bare error reply keeps the request's marker, so a foreign controller's fields are turned all
// the same.
TEST_P(ReplyInBothOrders, BareErrorReplyTellsItsCode)
{
    Bytes bytes = reply_bytes(SP_GET_VOLUME, 48, GetParam());
    bytes.put32(36, 8);
    bytes.put_bytes(0, std::string("\1\0\0\0", 4));

    try {
        (void)take_reply(SP_GET_VOLUME, bytes);
        FAIL() << "an error reply was taken for an answer";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), 8U);
        EXPECT_NE(std::string(failure.what()).find("unknown message function (code 8)"),
                  std::string::npos);
    }
}

TEST_P(ReplyInBothOrders, ErrorTextOfAPlugInIsShown)
{
    Bytes bytes = reply_bytes(SP_GET_VOLUME, 400, GetParam());
    bytes.put32(kVolume + 4, 3);
    bytes.put_text(kVolume + kVolumeHead, "no such\nthing");

    try {
        (void)read_volume(take_translated(SP_GET_VOLUME, bytes));
        FAIL() << "a failed record was used";
    } catch (const Failure& failure) {
        EXPECT_NE(std::string(failure.what()).find("no such?thing (status 3)"), std::string::npos)
            << failure.what();
    }
}

struct Lie {
    const char* name;
    int function;
    std::size_t size;
    std::size_t at;
    std::size_t width;
    std::uint64_t value;
};

class LyingReply : public ::testing::TestWithParam<std::tuple<Lie, Order>> {};

// Whatever a reply says of itself, it is refused before anything outside it is touched.
TEST_P(LyingReply, IsRefused)
{
    const auto& [lie, order] = GetParam();
    Bytes bytes = reply_bytes(lie.function, lie.size, order);
    if (lie.width != 0) bytes.put(lie.at, lie.width, lie.value);

    try {
        (void)take_translated(lie.function, bytes);
        FAIL() << "taken";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), kBadReply) << failure.what();
    }
}

constexpr Lie kLies[] = {
    {"shorter than a header", SP_CLOSE, 47, 0, 0, 0},
    {"length below a header", SP_CLOSE, 88, 28, 4, 47},
    {"length above what came", SP_CLOSE, 88, 28, 4, 89},
    {"huge length", SP_CLOSE, 88, 28, 4, 0xFFFFFFFF},
    {"another function", SP_CLOSE, 88, 24, 4, 0xFFFFFFFC},
    {"a request", SP_CLOSE, 88, 24, 4, 5},
    {"no result", SP_CLOSE, 51, 0, 0, 0},
    {"set size cut off", SP_SET_SIZE, 71, 0, 0, 0},
    {"volume record cut off", SP_GET_VOLUME, kVolume + kVolumeHead - 1, 0, 0, 0},
    {"more disks than fit", SP_GET_VOLUME, kVolume + kVolumeHead + 79, kVolume + 20, 4, 1},
    {"four thousand million disks", SP_GET_VOLUME, 1000, kVolume + 20, 4, 0xFFFFFFFF},
    {"map record cut off", SP_GET_INITIAL_MAP, 160 + 63, 0, 0, 0},
    {"extended map record cut off", SP_GET_EXTENDED_MAP, 88 + 63, 0, 0, 0},
    {"more compact extents than fit", SP_GET_INITIAL_MAP, 160 + 64 + 15, 160 + 24, 4, 1},
    {"negative extents", SP_GET_EXTENDED_MAP, 500, 88 + 24, 4, 0x80000000},
    {"two thousand million extents", SP_GET_EXTENDED_MAP, 500, 88 + 24, 4, 0x7FFFFFFF},
};
INSTANTIATE_TEST_SUITE_P(Lies, LyingReply,
                         ::testing::Combine(::testing::ValuesIn(kLies),
                                            ::testing::Values(Order::kLittle, Order::kBig)),
                         [](const auto& instance) {
                             std::string name = std::get<0>(instance.param).name;
                             for (char& letter : name) letter = letter == ' ' ? '_' : letter;
                             return name +
                                    (std::get<1>(instance.param) == Order::kBig ? "_Big" : "");
                         });

}  // namespace
}  // namespace corvane
