// Requests, byte by byte against a second codec.
#include "client/request.hpp"

#include <gtest/gtest.h>

#include <set>

#include "client/failure.hpp"
#include "tests/harness/codec.hpp"

namespace corvane {
namespace {

namespace codec = harness::codec;

std::string text_of(const Message& message)
{
    return {reinterpret_cast<const char*>(message.data()), message.size()};
}

// The header that every request of ours has, with the identifier that this one drew.
codec::Header header_of(const Message& message)
{
    codec::Header header;
    header.revision = 1;
    header.message_id = text_of(message).substr(8, 16);
    header.flags = 1;
    header.separator = '/';
    return header;
}

TEST(Request, GetVolumeByShare)
{
    const Message message = volume_request("data");

    EXPECT_EQ(codec::hex(text_of(message)),
              codec::hex(codec::get_volume(header_of(message), "data").data()));
}

TEST(Request, GetVolumeByCookieHasNoPath)
{
    Cookie cookie{};
    for (std::size_t i = 0; i < cookie.size(); ++i) cookie[i] = static_cast<std::uint8_t>(i + 1);
    const Message message = volume_request(cookie);
    const std::string bytes(cookie.begin(), cookie.end());

    EXPECT_EQ(codec::hex(text_of(message)),
              codec::hex(codec::get_volume(header_of(message), "", bytes).data()));
}

TEST(Request, GetInitialMapHasShareAndFileBackToBack)
{
    const Message message = initial_map_request("/vol/data", "a/b", {100, 200, 3000, 2, 8});
    const codec::InitialMap body{"/vol/data", "a/b", 100, 200, 3000, 2, 8};

    EXPECT_EQ(codec::hex(text_of(message)),
              codec::hex(codec::get_initial_map(header_of(message), body).data()));
}

TEST(Request, GetExtendedMap)
{
    const Message message = extended_map_request({0x01020304, 4096, 8192, 1, 2, 3});
    const codec::ExtendedMap body{0x01020304, 4096, 8192, 1, 2, 3, 0};
    codec::Header header = header_of(message);
    header.length = 96;
    codec::Bytes wanted = codec::get_extended_map(header, body);
    wanted.resize(96);

    EXPECT_EQ(codec::hex(text_of(message)), codec::hex(wanted.data()));
}

// A longer range would be turned round by the controller.
TEST(Request, NoRangeIsAskedThatWouldBeTurnedRound)
{
    for (const std::int64_t length : {std::int64_t{512001}, INT64_MAX}) {
        const codec::Bytes bytes(text_of(extended_map_request({1, 0, length})),
                                 codec::Order::kLittle);

        EXPECT_EQ(bytes.i64(72), 512000);
    }
    const codec::Bytes whole(text_of(extended_map_request({1, 0, -1})), codec::Order::kLittle);
    EXPECT_EQ(whole.i64(72), 0);
}

TEST(Request, SetSizeAndClose)
{
    const Message size = set_size_request(7, 12345, 1000);
    EXPECT_EQ(codec::hex(text_of(size)),
              codec::hex(codec::set_size(header_of(size), 7, 12345, 1000).data()));

    const Message close = close_request(7, -1);
    codec::Header header = header_of(close);
    header.length = 64;
    codec::Bytes wanted = codec::close_file(header, 7, -1);
    wanted.resize(64);
    EXPECT_EQ(codec::hex(text_of(close)), codec::hex(wanted.data()));
}

TEST(Request, IdentifiersDiffer)
{
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) seen.insert(text_of(close_request(1, -1)).substr(8, 16));

    EXPECT_EQ(seen.size(), 1000U);
}

// A share goes byte by byte, as the controller narrows it; a path goes as UTF-16.
TEST(Request, NamesBeyondAsciiGoAsTheControllerReadsThem)
{
    const codec::Bytes bytes(text_of(initial_map_request("ü", "ü", {})), codec::Order::kLittle);

    EXPECT_EQ(codec::hex(bytes.slice(112, 10)), "c3ffbcff0000fc000000");
}

TEST(Request, NamesThatCannotBeAskedForAreRefused)
{
    const std::string long_path(1024 - 2 - 4, 'p');
    EXPECT_NO_THROW((void)initial_map_request("data", long_path, {}));
    EXPECT_NO_THROW((void)volume_request(std::string(255, 's')));
    EXPECT_THROW((void)initial_map_request("data", long_path + "p", {}), Failure);
    EXPECT_THROW((void)volume_request(std::string(256, 's')), Failure);
    EXPECT_THROW((void)volume_request(""), Failure);
    EXPECT_THROW((void)initial_map_request("data", "", {}), Failure);
    EXPECT_THROW((void)initial_map_request("data", "a\\b", {}), Failure);
    EXPECT_THROW((void)volume_request("a\\b"), Failure);
    EXPECT_THROW((void)volume_request("\xFF"), Failure);
}

}  // namespace
}  // namespace corvane
