// The shared segment: its bytes as other programs see them, and its settings.
#include "mdcmain/segment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/shm.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <set>
#include <string>

#include "tests/mdcmain/private_machine.hpp"
#include "tests/mdcmain/segment_layout.hpp"

namespace {

using corvane::test::in_private_machine;
using corvane::test::kCatalogue;
using corvane::test::read_file;
using corvane::test::write_file;
namespace layout = corvane::test::layout;

std::string_view raw(std::size_t offset, std::size_t bytes)
{
    return {reinterpret_cast<const char*>(fs) + offset, bytes};
}

TEST(SegmentLayout, TheSecondTableCoversEveryByteOnce)
{
    std::set<std::pair<std::size_t, std::size_t>> areas;
    for (const layout::Word& word : layout::kWords) areas.insert({word.offset, 4});
    for (const layout::Text& text : layout::kTexts) areas.insert({text.offset, text.bytes});
    areas.insert({layout::kNlsReady, 4});
    areas.insert({layout::kRecords, layout::kRecordBytes * layout::kRecordCount});
    areas.insert({layout::kRing, layout::kRingBytes});
    areas.insert({layout::kReservedTail, layout::kFixedBytes - layout::kReservedTail});

    std::size_t next = 0;
    for (const auto& [offset, bytes] : areas) {
        EXPECT_EQ(offset, next) << std::hex << offset;
        next = offset + bytes;
    }
    EXPECT_EQ(next, layout::kFixedBytes);
}

TEST(Segment, ANewOneHoldsExactlyTheDefaults)
{
    in_private_machine([] {
        fused_mapShared();

        const std::string wanted = layout::new_image(kCatalogue);
        const std::string_view found = raw(0, layout::kFixedBytes);
        const auto [at, _] = std::mismatch(found.begin(), found.end(), wanted.begin());
        EXPECT_EQ(at, found.end()) << "first difference at 0x" << std::hex << at - found.begin();
        const std::string_view volumes =
            raw(layout::kFixedBytes, layout::kBytesFor32 - layout::kFixedBytes);
        EXPECT_EQ(volumes.find_first_not_of('\0'), std::string_view::npos);
    });
}

TEST(Segment, FieldsStandWhereOtherProgramsExpectThem)
{
    in_private_machine([] {
        fused_mapShared();
        fs->logLevel = 0x01020304;
        fs->mdcPort = 0x11121314;
        fs->logopPrivate = 0x21222324;
        fs->otherTable[99].bytes[19823] = 0x5A;
        EXPECT_EQ(raw(0x14, 4), "\x04\x03\x02\x01");
        EXPECT_EQ(raw(0x204C64, 4), "\x14\x13\x12\x11");
        EXPECT_EQ(raw(0x20A0E0, 4), "\x24\x23\x22\x21");
        EXPECT_EQ(raw(0x1E4220 - 1, 1), "\x5A");
    });
}

TEST(Segment, TheCountFileGivesANewSegmentItsLogCount)
{
    in_private_machine([] {
        write_file("/tmp/mclogdata.bak", std::string("7") + std::string(31, '\0'));
        fused_mapShared();
        EXPECT_EQ(layout::word_at(fs, 0x24), 7);
    });
}

TEST(Segment, SetDefaultsNeedsASegment)
{
    in_private_machine([] {
        fused_setDefaults();
        EXPECT_EQ(fs, nullptr);
        EXPECT_EQ(shmget(1124, 0, 0), -1);
    });
}

TEST(Segment, SetDefaultsWritesEveryDefaultAgain)
{
    in_private_machine([] {
        fused_mapShared();
        std::memset(static_cast<void*>(fs), 0xA5, layout::kBytesFor32);
        write_file("/tmp/mclogdata.bak", "3");

        fused_setDefaults();

        for (const layout::Word& word : layout::kWords) {
            const std::int32_t wanted = word.offset == 0x24 ? 3 : word.value;
            EXPECT_EQ(layout::word_at(fs, word.offset), wanted) << std::hex << word.offset;
        }
        for (const layout::Text& text : layout::kTexts) {
            EXPECT_STREQ(raw(text.offset, text.bytes).data(), text.value)
                << std::hex << text.offset;
        }
        EXPECT_EQ(raw(layout::kRing, layout::kRingBytes), std::string(layout::kRingBytes, '\0'));
        for (std::size_t record = 0; record < layout::kRecordCount; ++record) {
            const std::size_t at = layout::kRecords + record * layout::kRecordBytes;
            EXPECT_EQ(raw(at + layout::kRecordName, 1), std::string(1, '\0'));
            EXPECT_EQ(raw(at + layout::kRecordName + 1, 1), "\xA5");
        }
    });
}

TEST(Segment, SetDefaultsNeverShrinksALargerOne)
{
    in_private_machine([] {
        setenv("CORVANEVOLS", "64", 1);
        fused_mapShared();
        unsetenv("CORVANEVOLS");

        fused_setDefaults();

        EXPECT_EQ(fs->segmentSize, static_cast<int>(layout::kBytesFor64));
        EXPECT_EQ(fs->maxVolumes, 64);
    });
}

TEST(Settings, WordsAreReadAndWritten)
{
    in_private_machine([] {
        EXPECT_EQ(fused_getDgram(), 5);  // maps on first use
        fused_setDgram(9);
        EXPECT_EQ(fused_getDgram(), 9);
        EXPECT_EQ(layout::word_at(fs, 0x204D88), 9);

        EXPECT_EQ(fused_getMapDrv(), 0);
        fused_setMapDrv(-2);
        EXPECT_EQ(fused_getMapDrv(), -2);
        EXPECT_EQ(layout::word_at(fs, 0x209EA4), -2);

        EXPECT_EQ(fused_getNls(), 1);
        fused_setNls(0);
        EXPECT_EQ(fused_getNls(), 0);
        EXPECT_EQ(layout::word_at(fs, 0x209EA8), 0);
    });
}

TEST(Settings, EveryGetterMapsOnFirstUse)
{
    for (int32_t (*const getter)() : {fused_getDgram, fused_getSPBufferSize, fused_getRawAlignment,
                                      fused_getMapDrv, fused_getNls}) {
        in_private_machine([getter] {
            (void)getter();
            EXPECT_NE(fs, nullptr);
        });
    }
    in_private_machine([] {
        std::array<char, 256> directory{"x"};
        EXPECT_EQ(fused_getOptionalDir(directory.data()), directory.data());
        EXPECT_NE(fs, nullptr);
        EXPECT_STREQ(directory.data(), "");
    });
}

TEST(Settings, WordSettersWithoutASegmentDoNothing)
{
    in_private_machine([] {
        fused_setDgram(9);
        fused_setRawAlignment(9);
        fused_setMapDrv(9);
        fused_setNls(9);
        EXPECT_EQ(fs, nullptr);
    });
}

TEST(Settings, TheBufferSizeIsBoundedWhenItIsRead)
{
    in_private_machine([] {
        EXPECT_EQ(fused_setSPBufferSize(128), 131072);
        EXPECT_EQ(fs->spBufferSize, 131072);
        EXPECT_EQ(fused_getSPBufferSize(), 65536);
        EXPECT_EQ(fs->spBufferSize, 65536);

        EXPECT_EQ(fused_setSPBufferSize(0), 0);
        EXPECT_EQ(fused_getSPBufferSize(), 65536);
        EXPECT_EQ(fs->spBufferSize, 65536);

        EXPECT_EQ(fused_setSPBufferSize(64), 65536);
        EXPECT_EQ(fused_getSPBufferSize(), 65536);
        fs->spBufferSize = 65537;
        EXPECT_EQ(fused_getSPBufferSize(), 65536);
        EXPECT_EQ(fused_setSPBufferSize(1), 1024);
        EXPECT_EQ(fused_getSPBufferSize(), 1024);
        EXPECT_EQ(fused_setSPBufferSize(INT32_MAX), -1024);
    });
}

TEST(Settings, ADashClearsTheOptionalDirectory)
{
    in_private_machine([] {
        std::array<char, 256> directory{};
        fused_setOptionalDir("/opt/more");
        EXPECT_STREQ(fused_getOptionalDir(directory.data()), "/opt/more");
        EXPECT_STREQ(fs->optionalDir, "/opt/more");

        fused_setOptionalDir("-");
        EXPECT_STREQ(fs->optionalDir, "");
        EXPECT_STREQ(fused_getOptionalDir(directory.data()), "");

        fused_setOptionalDir("-/x");
        EXPECT_STREQ(fs->optionalDir, "-/x");
    });
}

TEST(Settings, ALongOptionalDirectoryIsCutAtItsField)
{
    in_private_machine([] {
        fused_setOptionalDir(("/" + std::string(300, 'd')).c_str());
        EXPECT_EQ(std::string(fs->optionalDir), "/" + std::string(254, 'd'));
        EXPECT_EQ(fs->shmLogUsed, 0);

        std::memset(fs->optionalDir, 'e', 256);  // what another program left without an end
        std::array<char, 256> directory{};
        EXPECT_EQ(std::string(fused_getOptionalDir(directory.data())), std::string(255, 'e'));
    });
}

TEST(Settings, AnAlignmentOfZeroBecomesTheDefault)
{
    in_private_machine([] {
        EXPECT_EQ(fused_getRawAlignment(), 512);
        fused_setRawAlignment(4096);
        EXPECT_EQ(fused_getRawAlignment(), 4096);
        fused_setRawAlignment(0);
        EXPECT_EQ(fs->rawAlignment, 0);
        EXPECT_EQ(fused_getRawAlignment(), 512);
        EXPECT_EQ(fs->rawAlignment, 512);
    });
}

TEST(ClientDebug, IsLoggedAboveLevelTwo)
{
    in_private_machine([] {
        fused_mapShared();
        for (const int level : {-1, 0, 1, 2, 3, 100}) {
            fs->logLevel = level;
            const std::string text = "100% of level " + std::to_string(level) + "\n";
            clientDebug(text.c_str());
            EXPECT_EQ(read_file("/usr/Corvane/mclog0").find(text) != std::string::npos, level > 2)
                << level;
        }
    });
}

}  // namespace
