// Maps in all layouts, and every kind of map that must not be believed.
#include "client/extent_map.hpp"

#include <gtest/gtest.h>

#include "client/failure.hpp"
#include "fsmdc/messages.h"
#include "tests/client/reply_builder.hpp"

namespace corvane {
namespace {

using test::Bytes;
using test::Order;

constexpr std::size_t kRecord = SP_GET_INITIAL_MAP_RECORD;
constexpr std::int64_t kBlock = 4096;
constexpr std::int64_t kMost = INT64_MAX;

// Two disks, slices of 100 and 50 blocks.
Volume two_disks()
{
    Volume volume;
    volume.block_bytes = kBlock;
    volume.disks.resize(2);
    volume.disks[0].first_block = 10;
    volume.disks[0].block_count = 100;
    volume.disks[1].first_block = 20;
    volume.disks[1].block_count = 50;
    return volume;
}

struct Verbose {
    std::int64_t logical, physical, bytes;
    std::int32_t ordinal, validity;
};

struct Head {
    std::int64_t file_size = 0;
    std::int64_t file_offset = 0;
    std::int64_t file_bytes = 0;
    std::int64_t allocation = 0;
    std::int32_t type = 1;
};

Bytes map_bytes(const Head& head, std::size_t count, std::size_t each, Order order)
{
    Bytes bytes = test::reply_bytes(SP_GET_INITIAL_MAP, kRecord + 64 + each * count, order);
    bytes.put64(kRecord, head.file_size);
    bytes.put64(kRecord + 8, head.allocation);
    bytes.put(kRecord + 24, 4, count);
    bytes.put32(kRecord + 28, head.type);
    bytes.put64(kRecord + 32, head.file_offset);
    bytes.put64(kRecord + 40, head.file_bytes);
    return bytes;
}

Reply verbose_map(const Head& head, const std::vector<Verbose>& extents,
                  Order order = Order::kLittle)
{
    Bytes bytes = map_bytes(head, extents.size(), 32, order);
    for (std::size_t i = 0; i < extents.size(); ++i) {
        const std::size_t at = kRecord + 64 + 32 * i;
        bytes.put64(at, extents[i].logical);
        bytes.put64(at + 8, extents[i].physical);
        bytes.put64(at + 16, extents[i].bytes);
        bytes.put32(at + 24, extents[i].ordinal);
        bytes.put32(at + 28, extents[i].validity);
    }
    return test::take_translated(SP_GET_INITIAL_MAP, bytes);
}

std::string described(const std::vector<Extent>& extents)
{
    std::string text;
    for (const Extent& extent : extents) {
        text += std::to_string(extent.file_offset) + "+" + std::to_string(extent.bytes);
        if (extent.kind == Kind::kHole) {
            text += " hole;";
            continue;
        }
        text += (extent.kind == Kind::kData ? " data " : " unwritten ") +
                std::to_string(extent.disk_index) + ":" + std::to_string(extent.slice_offset) + ";";
    }
    return text;
}

class MapInBothOrders : public ::testing::TestWithParam<Order> {};
INSTANTIATE_TEST_SUITE_P(Orders, MapInBothOrders, ::testing::Values(Order::kLittle, Order::kBig),
                         [](const auto& instance) {
                             return instance.param == Order::kLittle ? "Little" : "Big";
                         });

TEST_P(MapInBothOrders, VerboseExtentsReadAsTheyAre)
{
    const Reply reply = verbose_map(
        {20000, 0, 20480, 24576},
        {{0, 8192, 4096, 1, 0}, {4096, 0, 4096, 77, 1}, {8192, 0, 12288, 0, 2}}, GetParam());
    const ExtentMap map = read_map(reply, kRecord, two_disks(), {}, false);

    EXPECT_EQ(map.file_size, 20000);
    EXPECT_EQ(map.allocation, 24576);
    EXPECT_TRUE(map.is_complete);
    EXPECT_EQ(map.end, 20480);
    EXPECT_EQ(described(map.extents),
              "0+4096 data 1:8192;4096+4096 hole;8192+12288 unwritten 0:0;");
}

TEST_P(MapInBothOrders, CompactExtentsFollowOneAnother)
{
    Bytes bytes = map_bytes({12288, 0, 12288, 0, 0}, 2, 16, GetParam());
    bytes.put64(kRecord + 64, 5);
    bytes.put64(kRecord + 72, 1);
    bytes.put64(kRecord + 80, 98);
    bytes.put64(kRecord + 88, 2);
    Volume volume = two_disks();
    const Reply reply = test::take_translated(SP_GET_INITIAL_MAP, bytes);

    EXPECT_THROW((void)read_map(reply, kRecord, volume, {}, false), Failure) << "two disks";
    volume.disks.resize(1);
    EXPECT_EQ(described(read_map(reply, kRecord, volume, {}, false).extents),
              "0+4096 data 0:20480;4096+8192 data 0:401408;");
}

// The ordinal's four bytes lie in little-endian order, whatever the sender's order.
TEST_P(MapInBothOrders, SimpleExtentsNameTheirDisk)
{
    Bytes bytes = map_bytes({8192, 0, 8192, 0, 2}, 1, 24, GetParam());
    bytes.put_bytes(kRecord + 64, std::string("\1\0\0\0\0\0\0\0", 8));
    bytes.put64(kRecord + 72, 3);
    bytes.put64(kRecord + 80, 2);
    const Reply reply = test::take_translated(SP_GET_INITIAL_MAP, bytes);

    EXPECT_EQ(described(read_map(reply, kRecord, two_disks(), {}, false).extents),
              "0+8192 data 1:12288;");
}

TEST(Map, LastExtentMayEndInsideItsBlock)
{
    const Reply reply = verbose_map({5000, 0, 5000}, {{0, 98 * kBlock, 5000, 0, 0}});

    EXPECT_EQ(described(read_map(reply, kRecord, two_disks(), {}, false).extents),
              "0+5000 data 0:401408;");
}

TEST(Map, PartialMapEndsWhereItSays)
{
    const Reply reply = verbose_map({40960, 0, 8192}, {{0, 0, 8192, 0, 0}});
    const ExtentMap map = read_map(reply, kRecord, two_disks(), {}, /*is_partial=*/true);

    EXPECT_FALSE(map.is_complete);
    EXPECT_EQ(map.end, 8192);
}

struct BadMap {
    const char* name;
    Head head;
    std::vector<Verbose> extents;
    bool is_partial = false;
    AskedRange asked = {};
};

class HostileMap : public ::testing::TestWithParam<BadMap> {};

TEST_P(HostileMap, IsRefused)
{
    const BadMap& bad = GetParam();
    const Reply reply = verbose_map(bad.head, bad.extents);

    try {
        (void)read_map(reply, kRecord, two_disks(), bad.asked, bad.is_partial);
        FAIL() << "believed";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), kBadReply);
        EXPECT_NE(std::string(failure.what()).find("; check the controller's plug-in"),
                  std::string::npos);
    }
}

const BadMap kBadMaps[] = {
    {"overlapping", {12288, 0, 12288}, {{0, 0, 8192, 0, 0}, {4096, 8192, 8192, 0, 0}}},
    {"unsorted", {12288, 0, 12288}, {{4096, 0, 4096, 0, 0}, {0, 8192, 4096, 0, 0}}},
    {"ordinal_too_large", {4096, 0, 4096}, {{0, 0, 4096, 2, 0}}},
    {"ordinal_negative", {4096, 0, 4096}, {{0, 0, 4096, -1, 0}}},
    {"ordinal_largest", {4096, 0, 4096}, {{0, 0, 4096, INT32_MAX, 0}}},
    {"behind_the_slice", {4096, 0, 4096}, {{0, 100 * kBlock, 4096, 0, 0}}},
    {"across_the_slices_end", {8192, 0, 8192}, {{0, 99 * kBlock, 8192, 0, 0}}},
    {"across_the_second_slices_end", {8192, 0, 8192}, {{0, 49 * kBlock, 8192, 1, 0}}},
    {"last_block_behind_the_slice", {5000, 0, 5000}, {{0, 99 * kBlock, 4097, 0, 0}}},
    {"before_the_slice", {4096, 0, 4096}, {{0, -4096, 4096, 0, 0}}},
    {"physical_wraps", {8192, 0, 8192}, {{0, kMost - 4095, 8192, 0, 0}}},
    {"length_wraps", {4096, 0, 4096}, {{0, 4096, kMost, 0, 0}}},
    {"negative_length", {4096, 0, 4096}, {{0, 0, -4096, 0, 0}}},
    {"no_length", {4096, 0, 4096}, {{0, 0, 0, 0, 0}}},
    {"logical_negative", {4096, 0, 4096}, {{-4096, 0, 4096, 0, 0}}},
    {"logical_wraps", {4096, 0, 4096}, {{kMost - 100, 0, 4096, 0, 1}}},
    {"hole_of_negative_length", {4096, 0, 4096}, {{0, 0, -1, 0, 1}}},
    {"unaligned_on_disk", {4096, 0, 4096}, {{0, 512, 4096, 0, 0}}},
    {"unaligned_in_file", {8192, 0, 8192}, {{512, 0, 4096, 0, 0}}},
    {"ends_inside_a_block_before_the_last",
     {12288, 0, 12288},
     {{0, 0, 4000, 0, 0}, {4096, 4096, 4096, 0, 0}}},
    {"unknown_validity", {4096, 0, 4096}, {{0, 0, 4096, 0, 3}}},
    {"negative_validity", {4096, 0, 4096}, {{0, 0, 4096, 0, -1}}},
    {"unknown_layout_with_extents", {4096, 0, 4096, 0, 7}, {{0, 0, 4096, 0, 0}}},
    {"negative_file_size", {-1, 0, 0}, {}},
    {"negative_allocation", {0, 0, 0, -1}, {}},
    {"negative_start", {4096, -4096, 8192}, {}},
    {"negative_coverage", {4096, 0, -1}, {}},
    {"coverage_wraps", {4096, 4096, kMost}, {}, false, {4096, 0}},
    {"begins_behind_the_question", {8192, 4096, 4096}, {{4096, 0, 4096, 0, 0}}},
    {"before_the_asked_range", {16384, 8192, 8192}, {{0, 0, 4096, 0, 0}}, false, {8192, 8192}},
    {"behind_the_asked_range", {16384, 0, 4096}, {{8192, 0, 4096, 0, 0}}, false, {0, 4096}},
    {"across_the_asked_range", {16384, 0, 4096}, {{0, 0, 8192, 0, 0}}, false, {0, 4096}},
    {"partial_without_progress", {8192, 0, 0}, {}, true},
    {"partial_that_goes_back", {16384, 0, 8192}, {}, true, {8192, 0}},
};
INSTANTIATE_TEST_SUITE_P(Maps, HostileMap, ::testing::ValuesIn(kBadMaps),
                         [](const auto& instance) { return instance.param.name; });

TEST(Map, SimpleExtentsOutsideTheSliceAreRefused)
{
    for (const auto& [block, count] : {std::pair<std::int64_t, std::int64_t>{100, 1},
                                       {-1, 1},
                                       {0, 101},
                                       {0, kMost},
                                       {kMost, 1},
                                       {0, -1}}) {
        Bytes bytes = map_bytes({4096, 0, 4096, 0, 2}, 1, 24, Order::kLittle);
        bytes.put64(kRecord + 72, block);
        bytes.put64(kRecord + 80, count);
        const Reply reply = test::take_translated(SP_GET_INITIAL_MAP, bytes);

        EXPECT_THROW((void)read_map(reply, kRecord, two_disks(), {}, false), Failure)
            << block << " " << count;
    }
}

TEST(Map, ErrorTextOfThePlugInIsTheMessage)
{
    Bytes bytes = map_bytes({}, 40, 1, Order::kLittle);
    bytes.put32(kRecord + 20, 5);
    bytes.put_text(kRecord + 64, "disk on fire");
    const Reply reply = test::take_translated(SP_GET_INITIAL_MAP, bytes);

    try {
        (void)read_map(reply, kRecord, two_disks(), {}, false);
        FAIL() << "believed";
    } catch (const Failure& failure) {
        EXPECT_STREQ(failure.what(),
                     "the plug-in cannot map the file: disk on fire (status 5); look "
                     "into the controller's log");
    }
}

TEST(Map, GapsBecomeHolesAndEndsAreCut)
{
    const std::vector<Extent> extents{{4096, 8192, Kind::kData, 0, 0},
                                      {16384, 8192, Kind::kData, 1, 0}};

    EXPECT_EQ(described(without_gaps(extents, 0, 20000)),
              "0+4096 hole;4096+8192 data 0:0;12288+4096 hole;16384+3616 data 1:0;");
    EXPECT_EQ(described(without_gaps(extents, 8192, 12288)), "8192+4096 data 0:4096;");
    EXPECT_EQ(described(without_gaps({}, 0, 5)), "0+5 hole;");
    EXPECT_EQ(described(without_gaps({}, 5, 5)), "");
}

TEST(Map, SharedBlocksAreRefusedForWriting)
{
    const std::vector<Extent> apart{{0, 4096, Kind::kData, 0, 4096},
                                    {4096, 4096, Kind::kData, 1, 4096},
                                    {8192, 4096, Kind::kData, 0, 0},
                                    {12288, 4096, Kind::kHole, 0, 0}};
    std::vector<Extent> shared = apart;
    shared.push_back({16384, 8192, Kind::kData, 0, 0});

    EXPECT_NO_THROW(check_no_shared_blocks(apart));
    EXPECT_THROW(check_no_shared_blocks(shared), Failure);
}

struct BadVolume {
    const char* name;
    void (*change)(Volume& volume);
};

TEST(Volume, WhatCannotBeAddressedIsRefused)
{
    const BadVolume bad[] = {
        {"no block size", [](Volume& volume) { volume.block_bytes = 0; }},
        {"negative block size", [](Volume& volume) { volume.block_bytes = -4096; }},
        {"odd block size", [](Volume& volume) { volume.block_bytes = 4095; }},
        {"small block size", [](Volume& volume) { volume.block_bytes = 256; }},
        {"huge block size", [](Volume& volume) { volume.block_bytes = 1 << 30; }},
        {"no disk", [](Volume& volume) { volume.disks.clear(); }},
        {"no signature", [](Volume& volume) { volume.disks[1].signature_bytes = 0; }},
        {"long signature", [](Volume& volume) { volume.disks[1].signature_bytes = 17; }},
        {"negative signature place", [](Volume& volume) { volume.disks[0].signature_offset = -1; }},
        {"signature at the end", [](Volume& volume) { volume.disks[0].signature_offset = kMost; }},
        {"negative slice", [](Volume& volume) { volume.disks[0].first_block = -1; }},
        {"negative blocks", [](Volume& volume) { volume.disks[0].block_count = -1; }},
        {"slice wraps", [](Volume& volume) { volume.disks[0].first_block = kMost / kBlock; }},
        {"blocks wrap", [](Volume& volume) { volume.disks[0].block_count = kMost; }},
    };
    Volume good = two_disks();
    for (VolumeDisk& disk : good.disks) disk.signature_bytes = 16;
    EXPECT_NO_THROW(check_usable(good));
    for (const BadVolume& row : bad) {
        Volume volume = good;
        row.change(volume);
        EXPECT_THROW(check_usable(volume), Failure) << row.name;
    }
}

}  // namespace
}  // namespace corvane
