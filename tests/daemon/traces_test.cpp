// The trace of whole exchanges at level 3, line for line.
#include "tests/daemon/recorder_world.hpp"

namespace corvane::harness {
namespace {

using Lines = std::vector<std::string>;

class Traces : public RecorderWorld {
protected:
    // The lines that one exchange leaves, from the datagram's arrival to the reply's sending.
    Lines trace_of(const codec::Bytes& request)
    {
        set_level(3);
        clear_log();
        (void)client().ask(request);
        EXPECT_TRUE(logged("FTX2010I DGRAM_sendReply sending "));
        set_level(0);
        return log_lines();
    }

    static std::string field(const std::string& name, const std::string& value)
    {
        std::string padded = name;
        padded.resize(std::max<std::size_t>(20, name.size()), ' ');
        return padded + value;
    }
    static std::string spaced_field(const std::string& name, const std::string& value)
    {
        return field(name, " " + value);
    }

    static Lines arrival(std::size_t bytes)
    {
        return {"FTX2008I DGRAM: Server received message. size " + std::to_string(bytes),
                "FTX2009I LANSERVER: received data", "LANSERVER: received message"};
    }

    // "id0............." as the header dump shows it.
    static Lines header_dump(int function, std::size_t length, int revision)
    {
        return {"functionCode " + std::to_string(function), "length " + std::to_string(length),
                "messageID 69 64 30 2E 2E 2E 2E 2E 2E 2E 2E 2E 2E 2E 2E 2E",
                "revision " + std::to_string(revision), "result 0"};
    }

    static Lines joined(std::initializer_list<Lines> parts)
    {
        Lines all;
        for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
        return all;
    }
};

TEST_F(Traces, GetVolume)
{
    Script answers;
    answers.volume_record =
        "result=0 record=" +
        codec::hex(codec::volume_record({{"\x9A\x01", 512, 34, 5}}, 4096).data());
    start_with(answers);

    const Lines lines = trace_of(codec::get_volume(header(), "/vol"));

    EXPECT_EQ(
        lines,
        joined({arrival(2228),
                {"FTX2018I SP_LanGetVolume handler called", "--- GetVolume Message ---"},
                header_dump(1, 2228, kRequestRevision),
                {field("path", "/vol"), "OSL_ShareNameToMountPoint: shareName /vol",
                 "--- GetVolume Reply Message ---"},
                header_dump(-1, 272, kVersion),
                {field("result", "0"), field("msgLen", "184"), field("FStype", "2571"),
                 field("vendorStatus", "0"), field("GlomType", "3"), field("GlomInfo", "4"),
                 field("BlockSize", "4096"), field("nDisks", "1"),
                 spaced_field("DiskID", "FFFFFF9A 01 "), spaced_field("IDlength", "2"),
                 spaced_field("IDoffset", "512"), spaced_field("BlockOffset", "34"),
                 spaced_field("nBlocks", "5"), "FTX2010I DGRAM_sendReply sending 272 bytes"}}));
}

TEST_F(Traces, GetInitialMap)
{
    start_with({});
    codec::InitialMap map = map_of();
    map.lease = 60000;

    const Lines lines = trace_of(codec::get_initial_map(header(), map));

    EXPECT_EQ(
        lines,
        joined({arrival(2160),
                {"FTX2019I SP_LanGetInitialMap handler called", "--- GetInitialMap Message ---"},
                header_dump(2, 2160, kRequestRevision),
                {field("lease", "60000"), field("intention", "1"), field("filesize", "-1"),
                 field("allocsize", "-1"), "OSL_ShareNameToMountPoint: shareName /vol",
                 "We have a lib...", "FTX2017I Added to lease list  key:0",
                 "--- GetInitalMap Reply Message ---"},
                header_dump(-2, 290, kVersion),
                {field("result", "0"),
                 field("lease", "60000"),
                 field("key", "00000000"),
                 field("fileCookie",
                       "A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF B0 B1 B2 B3 B4 B5 B6 B7 B8 "
                       "B9 BA "
                       "BB BC BD BE BF"),
                 field("volumeCookie",
                       "20 21 22 23 24 25 26 27 28 29 2A 2B 2C 2D 2E 2F 30 31 32 33 34 35 36 37 38 "
                       "39 3A "
                       "3B 3C 3D 3E 3F"),
                 field("msgLen", "128"),
                 field("vendorStatus", "0"),
                 field("fileSize", "5000"),
                 field("allocation", "5512"),
                 field("nExtents", "2"),
                 field("extentType", "1"),
                 field("fileOffset", "0"),
                 field("fileBytes", "5000"),
                 spaced_field("VolumeOrdinal", "0"),
                 spaced_field("LogicalByteAddr", "0"),
                 spaced_field("PhysicalByteAddr", "1234605616436508552"),
                 spaced_field("nBytes", "4096"),
                 spaced_field("validity", "0"),
                 spaced_field("VolumeOrdinal", "1"),
                 spaced_field("LogicalByteAddr", "4096"),
                 spaced_field("PhysicalByteAddr", "153"),
                 spaced_field("nBytes", "904"),
                 spaced_field("validity", "2"),
                 "FTX2010I DGRAM_sendReply sending 290 bytes"}}));
}

TEST_F(Traces, CloseOfAnUnknownKey)
{
    start_with({});

    const Lines lines = trace_of(codec::close_file(header(), 0xABCDEF));

    EXPECT_EQ(lines,
              joined({arrival(60),
                      {"FTX2024I SP_LanClose handler called key 11259375", "--- Close Message ---"},
                      header_dump(5, 60, kRequestRevision),
                      {field("key", "00ABCDEF"), field("filesize", "-1"),
                       "SP_Close, key not found in list. 0xabcdef", "--- Close Reply Message ---"},
                      header_dump(-5, 88, kRequestRevision),
                      {field("result", "407"), "FTX2010I DGRAM_sendReply sending 88 bytes"}}));
}

TEST_F(Traces, SetSizeOfAnUnknownKey)
{
    start_with({});

    const Lines lines = trace_of(codec::set_size(header(), 7, 4096, 20));

    EXPECT_EQ(lines,
              joined({arrival(64),
                      {"FTX2023I SP_LanSetSize handler called key 7", "--- SetSize Message ---"},
                      header_dump(4, 64, kRequestRevision),
                      {field("key", "00000007"), field("lease", "20"), field("filesize", "4096"),
                       "--- SetSize Reply Message ---"},
                      header_dump(-4, 72, kRequestRevision),
                      {field("result", "407"), "FTX2010I DGRAM_sendReply sending 72 bytes"}}));
}

TEST_F(Traces, GetExtendedMapOfAnUnknownKey)
{
    start_with({});
    codec::ExtendedMap map;
    map.key = 16;
    map.start = 3;
    map.length = 4;
    map.lease = 5;
    map.flag = 6;

    const Lines lines = trace_of(codec::get_extended_map(header(), map));

    EXPECT_EQ(lines,
              joined({arrival(92),
                      {"FTX2021I SP_LanGetExtendedMap handler called key 16",
                       "--- GetExtendedMap Message ---"},
                      header_dump(3, 92, kRequestRevision),
                      {field("lease", "5"), field("key", "00000010"), field("filesize", "-1"),
                       field("allocation", "-1"), field("start", "3"), field("length", "4"),
                       field("flag", "6"), "--- GetExtendedMap Reply Message ---"},
                      header_dump(-3, 184, kRequestRevision),
                      {field("result", "407"), field("lease", "0"), field("msgLen", "0"),
                       field("vendorStatus", "0"), field("fileSize", "0"), field("allocation", "0"),
                       field("nExtents", "0"), field("extentType", "0"), field("fileOffset", "0"),
                       field("fileBytes", "0"), "FTX2010I DGRAM_sendReply sending 184 bytes"}}));
}

TEST_F(Traces, CloseOfALease)
{
    start_with({});
    const std::uint32_t key = open_key();
    set_level(3);
    clear_log();

    (void)client().ask(codec::close_file(header(), key, 9));

    ASSERT_TRUE(logged("FTX2010I DGRAM_sendReply sending 88 bytes\n"));
    EXPECT_NE(log().find("corvaned: FTX2025I LanClose calling FS_SetFileSize key 0\n"),
              std::string::npos);
    EXPECT_NE(log().find("corvaned: Removed from lease list key:0(0x0) SP_LANClose\n"),
              std::string::npos);
}

}  // namespace
}  // namespace corvane::harness
