// Drawings as golden texts.
#include "client/draw.hpp"

#include <gtest/gtest.h>

namespace corvane {
namespace {

constexpr std::int64_t kKi = 1024;

FileMap sample_map()
{
    FileMap map;
    map.share = "data";
    map.path = "report.dat";
    map.file_size = 64 * kKi;
    map.volume.block_bytes = 4096;
    map.volume.disks.resize(1);
    map.volume.disks[0].first_block = 1;
    map.volume.disks[0].block_count = 1000;
    map.extents = {{0, 16 * kKi, Kind::kData, 0, 4 * kKi},
                   {16 * kKi, 16 * kKi, Kind::kData, 0, 60 * kKi},
                   {32 * kKi, 16 * kKi, Kind::kHole, 0, 0},
                   {48 * kKi, 12 * kKi, Kind::kUnwritten, 0, 20 * kKi},
                   {60 * kKi, 4 * kKi, Kind::kData, 0, 32 * kKi}};
    return map;
}

std::vector<Stretch> two_halves()
{
    return {{0, 50, Paint::kData, 1}, {50, 100, Paint::kHole, 0}};
}

std::string row(std::span<const Stretch> stretches, std::int64_t end, std::size_t cells)
{
    return draw_cells(paint_cells(stretches, 0, end, cells), {80, false, false});
}

TEST(Bar, CellsShowTheirLargestShare)
{
    EXPECT_EQ(row(two_halves(), 100, 10), "#####.....");
    EXPECT_EQ(row(two_halves(), 100, 3), "##.");
    EXPECT_EQ(row(two_halves(), 200, 8), "##..____");
}

TEST(Bar, NothingSmallDisappears)
{
    const std::vector<Stretch> stretches{
        {0, 499, Paint::kData, 1}, {499, 500, Paint::kHole, 0}, {500, 1000, Paint::kData, 1}};

    EXPECT_EQ(row(stretches, 1000, 11), "#####+#####");
    const std::vector<Stretch> across_an_edge{
        {0, 496, Paint::kHole, 0}, {496, 505, Paint::kData, 1}, {505, 1000, Paint::kHole, 0}};
    EXPECT_EQ(row(across_an_edge, 1000, 10), ".....+....");
    const std::vector<Stretch> at_the_end{{0, 999, Paint::kHole, 0}, {999, 1000, Paint::kData, 1}};
    EXPECT_EQ(row(at_the_end, 1000, 10), ".........+");
    EXPECT_EQ(row(at_the_end, 500, 10), "..........") << "what lies behind the range stays out";
}

TEST(Bar, NeighbouringFragmentsTakeTurns)
{
    const std::vector<Stretch> stretches{
        {0, 30, Paint::kData, 1}, {30, 60, Paint::kData, 2}, {60, 90, Paint::kData, 3}};

    EXPECT_EQ(row(stretches, 90, 9), "###===###");
}

TEST(Bar, RangesBeyond63BitsOfProductAreDividedRight)
{
    const std::vector<Stretch> stretches{{0, INT64_MAX / 2, Paint::kData, 1},
                                         {INT64_MAX / 2, INT64_MAX, Paint::kHole, 0}};

    EXPECT_EQ(row(stretches, INT64_MAX, 8), "####....");
}

TEST(Bar, MoreCellsThanBytesStillShowEachByte)
{
    const std::vector<Stretch> stretches{{0, 1, Paint::kData, 1}, {1, 2, Paint::kHole, 0}};

    EXPECT_EQ(row(stretches, 2, 6), "###...");
}

TEST(Bar, ScaleHasItsEndsAndEvenSteps)
{
    const Scale scale = draw_scale(0, 1 << 20, 40, /*is_utf8=*/false);

    EXPECT_EQ(scale.labels, "0                  512 KiB         1 MiB");
    EXPECT_EQ(scale.ruler, "+------------------+-------------------+");
    EXPECT_EQ(draw_scale(0, 10, 5, true).ruler, "├───┤");
    EXPECT_EQ(draw_scale(9755648, 9756672, 40, false).labels,
              "9755648            9756160       9756672");
}

TEST(Bar, ColourWrapsEachRun)
{
    const auto cells = paint_cells(two_halves(), 0, 100, 4);

    EXPECT_EQ(draw_cells(cells, {80, true, true}), "\033[32m██\033[0m\033[90m··\033[0m");
}

TEST(Draw, FragmentsAreCountedByPlaceOnDisk)
{
    EXPECT_EQ(number_fragments(sample_map()), (std::vector<std::size_t>{1, 2, 0, 3, 3}));
    EXPECT_EQ(summary_text(sample_map()),
              "64 KiB (65536 bytes) in 3 fragments, 1 hole, 1 unwritten extent");
}

constexpr char kAsciiDrawing[] =
    R"(report.dat of data: 64 KiB (65536 bytes) in 3 fragments, 1 hole, 1 unwritten extent

file    0                21.33 KiB        42.67 KiB   64 KiB
        +----------------+----------------+----------------+
        #############=============.............----------###
              1            2          hole     unwritten  3

disk 0  8 KiB            32 KiB           56 KiB      80 KiB
        +----------------+----------------+----------------+
        ############--------####________________============
             1               3                       2

legend  # data  = data, next fragment
        - unwritten: reads as zeros  . hole: no blocks
        _ not this file's

     #  kind           file offset      length  place
     1  data                     0      16 KiB  disk 0 at 8192
     2  data                 16384      16 KiB  disk 0 at 65536
     -  hole                 32768      16 KiB  -
     3  unwritten            49152      12 KiB  disk 0 at 24576
     3  data                 61440       4 KiB  disk 0 at 36864
)";

constexpr char kUtf8Drawing[] =
    R"(report.dat of data: 64 KiB (65536 bytes) in 3 fragments, 1 hole, 1 unwritten extent

file    0                21.33 KiB        42.67 KiB   64 KiB
        ├────────────────┬────────────────┬────────────────┤
        █████████████▓▓▓▓▓▓▓▓▓▓▓▓▓·············░░░░░░░░░░███
              1            2          hole     unwritten  3

disk 0  8 KiB            32 KiB           56 KiB      80 KiB
        ├────────────────┬────────────────┬────────────────┤
        ████████████░░░░░░░░████╌╌╌╌╌╌╌╌╌╌╌╌╌╌╌╌▓▓▓▓▓▓▓▓▓▓▓▓
             1               3                       2

legend  █ data  ▓ data, next fragment
        ░ unwritten: reads as zeros  · hole: no blocks
        ╌ not this file's

     #  kind           file offset      length  place
     1  data                     0      16 KiB  disk 0 at 8192
     2  data                 16384      16 KiB  disk 0 at 65536
     -  hole                 32768      16 KiB  -
     3  unwritten            49152      12 KiB  disk 0 at 24576
     3  data                 61440       4 KiB  disk 0 at 36864
)";

TEST(Draw, AsciiDrawingIsComplete)
{
    const std::string text = draw_map(sample_map(), {60, false, false});

    EXPECT_EQ(text, kAsciiDrawing);
}

TEST(Draw, Utf8DrawingIsComplete)
{
    const std::string text = draw_map(sample_map(), {60, true, false});

    EXPECT_EQ(text, kUtf8Drawing);
}

TEST(Draw, EveryLineFitsTheWidth)
{
    for (const std::size_t width : {40U, 60U, 80U, 133U, 500U}) {
        const std::string text = draw_map(sample_map(), {width, false, false});
        std::size_t start = text.find('\n') + 1;  // the title is a text, not a drawing
        for (std::size_t end = 0; (end = text.find('\n', start)) != std::string::npos;
             start = end + 1) {
            if (text.find("  place\n", start) <= end) break;
            EXPECT_LE(end - start, width) << text.substr(start, end - start);
        }
    }
}

TEST(Draw, EmptyFileHasNoBar)
{
    FileMap map = sample_map();
    map.file_size = 0;
    map.extents.clear();

    EXPECT_EQ(draw_map(map, {}), "report.dat of data: 0 bytes, empty\n");
}

TEST(Draw, LongMapsAreListedInPart)
{
    FileMap map = sample_map();
    map.extents.clear();
    map.file_size = 20 * 4096;
    for (std::int64_t i = 0; i < 20; ++i) {
        map.extents.push_back({i * 4096, 4096, Kind::kData, 0, (40 - 2 * i) * 4096});
    }

    const std::string text = draw_map(map, {80, false, false});

    EXPECT_NE(text.find("4 more; run without --draw for all\n"), std::string::npos) << text;
}

}  // namespace
}  // namespace corvane
