// Trace dumps of messages and records, line by line, and never past a message's end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "fsmdc/messages.h"
#include "mdcmain/log.h"
#include "tests/fsmdc/bytes.hpp"

namespace fsmdc_test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

std::vector<std::string> g_lines;

class Dump : public ::testing::Test {
protected:
    Dump()
    {
        g_lines.clear();
        dbgSetOutputStringHandler([](const char* text) { g_lines.emplace_back(text); });
    }
    ~Dump() override { dbgSetOutputStringHandler(nullptr); }

    // Dumps a copy in a block of exactly the message's size.
    static std::vector<std::string> dump(const Bytes& message,
                                         void (*function)(const void*) noexcept = SPSUP_DumpMessage)
    {
        g_lines.clear();
        const auto block = std::make_unique<unsigned char[]>(message.size());
        std::copy(message.begin(), message.end(), block.get());
        function(block.get());
        return g_lines;
    }
    // The title, the header's five lines, and `fields`.
    static std::vector<std::string> lines(const std::string& title, std::int32_t code,
                                          std::uint32_t length, std::vector<std::string> fields)
    {
        std::vector<std::string> all = {
            title + "\n",
            "functionCode " + std::to_string(code) + "\n",
            "length " + std::to_string(length) + "\n",
            "messageID 40 41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F\n",
            "revision 77\n",
            "result 85\n"};
        all.insert(all.end(), fields.begin(), fields.end());
        return all;
    }
    static Bytes message(std::int32_t code, std::uint32_t length)
    {
        Bytes bytes = request(code, length);
        bytes.resize(length);
        return bytes;
    }
};

TEST_F(Dump, GetVolumeRequest)
{
    Bytes bytes = message(1, 2228);
    put_text(bytes, 180, "/vol/data");
    EXPECT_THAT(dump(bytes), ElementsAreArray(lines("--- GetVolume Message ---", 1, 2228,
                                                    {"path                /vol/data\n"})));
}

TEST_F(Dump, APathWithoutAnEndIsCut)
{
    Bytes bytes = message(1, 2228);
    for (std::size_t at = 180; at < 2228; at += 2) put<std::uint16_t>(bytes, at, 'x');
    EXPECT_EQ(dump(bytes).back(),
              "path                " + std::string(1003, 'x'));  // of 1023 in all
}

TEST_F(Dump, GetInitialMapRequest)
{
    Bytes bytes = message(2, 2160);
    put64(bytes, 48, 0x100000000);
    put64(bytes, 56, -1);
    put32(bytes, 64, 5);
    put32(bytes, 68, 1);
    EXPECT_THAT(
        dump(bytes),
        ElementsAreArray(lines("--- GetInitialMap Message ---", 2, 2160,
                               {"lease               5\n", "intention           1\n",
                                "filesize            4294967296\n", "allocsize           -1\n"})));
}

TEST_F(Dump, GetExtendedMapRequest)
{
    Bytes bytes = message(3, 92);
    put64(bytes, 48, 1);
    put64(bytes, 56, 2);
    put64(bytes, 64, 3);
    put64(bytes, 72, 4);
    put32(bytes, 80, 5);
    put32(bytes, 84, 0xABC);
    put32(bytes, 88, 7);
    EXPECT_THAT(dump(bytes),
                ElementsAreArray(lines("--- GetExtendedMap Message ---", 3, 92,
                                       {"lease               5\n", "key                 00000ABC\n",
                                        "filesize            1\n", "allocation          2\n",
                                        "start               3\n", "length              4\n",
                                        "flag                7\n"})));
}

TEST_F(Dump, SetSizeAndCloseRequests)
{
    Bytes bytes = message(4, 64);
    put64(bytes, 48, 9);
    put32(bytes, 56, 5);
    put32(bytes, 60, 0x1F);
    EXPECT_THAT(dump(bytes),
                ElementsAreArray(lines("--- SetSize Message ---", 4, 64,
                                       {"key                 0000001F\n", "lease               5\n",
                                        "filesize            9\n"})));
    bytes = message(5, 60);
    put64(bytes, 48, 9);
    put32(bytes, 56, 0x1F);
    EXPECT_THAT(dump(bytes), ElementsAreArray(lines(
                                 "--- Close Message ---", 5, 60,
                                 {"key                 0000001F\n", "filesize            9\n"})));
}

TEST_F(Dump, SetSizeAndCloseReplies)
{
    Bytes bytes = message(-4, 72);
    put32(bytes, 48, 407);
    EXPECT_THAT(dump(bytes), ElementsAreArray(lines("--- SetSize Reply Message ---", -4, 72,
                                                    {"result              407\n"})));
    bytes = message(-5, 88);
    put32(bytes, 48, 408);
    EXPECT_THAT(dump(bytes), ElementsAreArray(lines("--- Close Reply Message ---", -5, 88,
                                                    {"result              408\n"})));
}

const std::vector<std::string> kVolumeHead = {
    "msgLen              1\n", "FStype              3\n", "vendorStatus        0\n",
    "GlomType            4\n", "GlomInfo            5\n", "BlockSize           4096\n"};

Bytes volume_record(std::uint32_t disks)
{
    Bytes record(104 + 80 * disks);
    put32(record, 0, 1);
    put32(record, 8, 3);
    put32(record, 12, 4);
    put32(record, 16, 5);
    put32(record, 20, disks);
    put32(record, 24, 4096);
    for (std::size_t i = 0; i < disks; ++i) {
        const std::size_t at = 104 + 80 * i;
        record[at] = 0x9A;
        record[at + 1] = 0x0B;
        record[at + 2] = 0xFF;
        put64(record, at + 16, 100);
        put64(record, at + 24, 200);
        put64(record, at + 32, 0x100000000);
        put32(record, at + 40, 2);
    }
    return record;
}
const std::vector<std::string> kDisk = {
    "DiskID               FFFFFF9A 0B \n", "IDlength             2\n", "IDoffset             100\n",
    "BlockOffset          200\n", "nBlocks              4294967296\n"};

std::vector<std::string> operator+(std::vector<std::string> a, const std::vector<std::string>& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
Bytes reply_of(std::int32_t code, std::size_t at, const Bytes& record)
{
    Bytes bytes = request(code, static_cast<std::uint32_t>(at + record.size()));
    bytes.resize(at);
    bytes.insert(bytes.end(), record.begin(), record.end());
    return bytes;
}

TEST_F(Dump, GetVolumeReply)
{
    Bytes bytes = reply_of(-1, 88, volume_record(2));
    EXPECT_THAT(dump(bytes),
                ElementsAreArray(lines(
                    "--- GetVolume Reply Message ---", -1, 352,
                    std::vector<std::string>{"result              0\n"} + kVolumeHead +
                        std::vector<std::string>{"nDisks              2\n"} + kDisk + kDisk)));
}

TEST_F(Dump, AVolumeRecordOnItsOwnIsTakenAtItsWord)
{
    EXPECT_THAT(dump(volume_record(1), FSMDCSUP_DumpVolInfo),
                ElementsAreArray(kVolumeHead + std::vector<std::string>{"nDisks              1\n"} +
                                 kDisk));
}

TEST_F(Dump, AnErrorTextTakesThePlaceOfTheDisks)
{
    Bytes record = volume_record(5);
    put32(record, 4, 3);
    put_text(record, 104, std::string(200, 'e'));
    const auto text = dump(record, FSMDCSUP_DumpVolInfo);
    EXPECT_EQ(text.size(), 7u);
    EXPECT_EQ(text[2], "vendorStatus        3\n");
    EXPECT_EQ(text[6], "vError    " + std::string(128, 'e') + "\n");
}

TEST_F(Dump, DisksThatAMessageDoesNotHoldAreNotRead)
{
    Bytes bytes = reply_of(-1, 88, volume_record(1));
    put32(bytes, 88 + 20, 0xFFFFFFFF);
    const auto text = dump(bytes);
    EXPECT_EQ(text.size(), 6u + 1 + 7 + 5);
    EXPECT_EQ(text[13], "nDisks              -1\n");
}

TEST_F(Dump, AnIdentifierIsNeverLongerThanItsField)
{
    Bytes record = volume_record(1);
    for (const std::uint32_t length : {17U, 0x7FFFFFFFU}) {
        put32(record, 104 + 40, length);
        EXPECT_EQ(dump(record, FSMDCSUP_DumpVolInfo)[7].size(), 21 + 9 + 3 + 9 + 13 * 3 + 1u);
    }
    put32(record, 104 + 40, 0xFFFFFFFF);
    EXPECT_EQ(dump(record, FSMDCSUP_DumpVolInfo)[7], "DiskID               \n");
}

Bytes map_record(std::uint32_t type, std::uint32_t extents, std::size_t extent_bytes)
{
    Bytes record(64 + extents * extent_bytes);
    put64(record, 0, 1);
    put64(record, 8, 2);
    put32(record, 16, 3);
    put32(record, 24, extents);
    put32(record, 28, type);
    put64(record, 32, 4);
    put64(record, 40, 5);
    for (std::size_t at = 64; at + 8 <= record.size(); at += 8) {
        put64(record, at, static_cast<std::int64_t>(at));
    }
    return record;
}
std::vector<std::string> map_head(std::uint32_t extents, std::uint32_t type)
{
    return {"msgLen              3\n",
            "vendorStatus        0\n",
            "fileSize            1\n",
            "allocation          2\n",
            "nExtents            " + std::to_string(static_cast<std::int32_t>(extents)) + "\n",
            "extentType          " + std::to_string(type) + "\n",
            "fileOffset          4\n",
            "fileBytes           5\n"};
}

TEST_F(Dump, CompactExtents)
{
    EXPECT_THAT(dump(map_record(0, 2, 16), FSMDCSUP_DumpFSMapInfo),
                ElementsAreArray(map_head(2, 0) +
                                 std::vector<std::string>{
                                     "BlockOffset          64\n", "nBlocks              72\n",
                                     "BlockOffset          80\n", "nBlocks              88\n"}));
}

TEST_F(Dump, SimpleExtents)
{
    Bytes record = map_record(2, 1, 24);
    put64(record, 64, 0x1122334400000005);  // the ordinal is in the first four bytes
    EXPECT_THAT(
        dump(record, FSMDCSUP_DumpFSMapInfo),
        ElementsAreArray(map_head(1, 2) + std::vector<std::string>{"VolOrd               5\n",
                                                                   "VolSliceBlock        72\n",
                                                                   "NBlocks              80\n"}));
}

TEST_F(Dump, VerboseExtents)
{
    for (const std::uint32_t type : {1U, 3U}) {
        Bytes record = map_record(type, 1, 32);
        put32(record, 64 + 24, 7);
        put32(record, 64 + 28, 2);
        EXPECT_THAT(dump(record, FSMDCSUP_DumpFSMapInfo),
                    ElementsAreArray(map_head(1, type) +
                                     std::vector<std::string>{
                                         "VolumeOrdinal        7\n", "LogicalByteAddr      64\n",
                                         "PhysicalByteAddr     72\n", "nBytes               80\n",
                                         "validity             2\n"}));
    }
}

TEST_F(Dump, ExtentsOfAnUnknownLayoutAreLeftOut)
{
    EXPECT_THAT(dump(map_record(7, 1, 32), FSMDCSUP_DumpFSMapInfo),
                ElementsAreArray(map_head(1, 7)));
}

TEST_F(Dump, AMapsErrorTextComesBeforeItsFields)
{
    Bytes record = map_record(0, 0, 0);
    record.resize(64 + 8);
    put32(record, 20, 3);
    put_text(record, 64, "bad");
    const auto text = dump(record, FSMDCSUP_DumpFSMapInfo);
    EXPECT_EQ(text.size(), 9u);
    EXPECT_EQ(text[1], "vendorStatus        3\n");
    EXPECT_EQ(text[2], "bad\n");
    EXPECT_EQ(text[3], "fileSize            1\n");
}

TEST_F(Dump, GetInitialMapReplyWithItsKeptSpelling)
{
    Bytes bytes = reply_of(-2, 160, map_record(0, 0, 0));
    put32(bytes, 48, 1);
    put32(bytes, 52, 5000);
    put32(bytes, 56, 0xBEEF);
    fill(bytes, 96, 2, 0x11);
    fill(bytes, 128, 2, 0x21);
    EXPECT_THAT(
        dump(bytes),
        ElementsAreArray(lines(
            "--- GetInitalMap Reply Message ---", -2, 224,
            std::vector<std::string>{"result              1\n", "lease               5000\n",
                                     "key                 0000BEEF\n",
                                     "fileCookie          11 12\n", "volumeCookie        21 22\n"} +
                map_head(0, 0))));
}

TEST_F(Dump, GetExtendedMapReply)
{
    Bytes bytes = reply_of(-3, 88, map_record(0, 0, 0));
    put32(bytes, 48, 1);
    put32(bytes, 52, 5000);
    EXPECT_THAT(dump(bytes),
                ElementsAreArray(lines("--- GetExtendedMap Reply Message ---", -3, 152,
                                       std::vector<std::string>{"result              1\n",
                                                                "lease               5000\n"} +
                                           map_head(0, 0))));
}

TEST_F(Dump, ExtentsThatAMessageDoesNotHoldAreNotRead)
{
    Bytes bytes = reply_of(-2, 160, map_record(0, 1, 16));
    put32(bytes, 160 + 24, 0x7FFFFFFF);
    EXPECT_EQ(dump(bytes).size(), 6u + 5 + 8 + 2);
}

// Replies cut anywhere: what is not there reads as zeros, and nothing behind is read.
TEST_F(Dump, RepliesOfAnyLengthAreDumpedWithinIt)
{
    for (const std::int32_t code : {-1, -2, -3, -4, -5}) {
        for (std::uint32_t length = 48; length < 300; ++length) {
            Bytes bytes(length, 0x41);
            put32(bytes, 0, 1);
            put<std::int32_t>(bytes, 24, code);
            put32(bytes, 28, length);
            EXPECT_GE(dump(bytes).size(), 7u);
        }
    }
}

TEST_F(Dump, NothingIsDumpedForNoMessageAndOtherCodes)
{
    SPSUP_DumpMessage(nullptr);
    for (const std::int32_t code : {0, 6, -6, 99, 0x7FFFFFFF})
        EXPECT_THAT(dump(message(code, 48)), IsEmpty());
    EXPECT_THAT(g_lines, IsEmpty());
    FSMDCSUP_DumpFSSystem(nullptr);
    EXPECT_THAT(g_lines, IsEmpty());
}

TEST_F(Dump, BytesOfADiskIdentifierCountAsSigned)
{
    const unsigned char bytes[] = {0x00, 0x7F, 0x80, 0xFF};
    char text[64];
    FSMDCSUP_DiskIdToString(bytes, 4, text);
    EXPECT_STREQ(text, "00 7F FFFFFF80 FFFFFFFF ");
    FSMDCSUP_DiskIdToString(bytes, 0, text);
    EXPECT_STREQ(text, "");
}

}  // namespace
}  // namespace fsmdc_test
