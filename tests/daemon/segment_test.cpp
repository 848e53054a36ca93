// The shared segment as other programs of the product see it: every byte, its size, and who makes
// it.
#include <sys/utsname.h>

#include "tests/harness/daemon.hpp"

namespace corvane::harness {
namespace {

constexpr std::int64_t kBytesFor32 = 7684792;

struct Word {
    std::int64_t offset;
    std::int32_t value;
};

// Every word that is not 0 after creation.
constexpr Word kWords[] = {
    {0x000000, 7684792},  {0x000004, 32},       {0x000008, 1},  {0x000018, 1},
    {0x00001C, 204800},   {0x000020, 1},        {0x000128, 1},  {0x00012C, 65536},
    {0x000134, 10485760}, {0x1E4224, 30},       {0x1E4234, 2},  {0x1E4238, 1},
    {0x1E4240, 1},        {0x1E4248, 2},        {0x1E424C, 5},  {0x1E4250, 2},
    {0x1E4254, 1048576},  {0x1E4258, 31457280}, {0x1E425C, 3},  {0x1E4260, 10240},
    {0x204C64, 5501},     {0x204C80, 3600000},  {0x204D88, 5},  {0x209E94, 10},
    {0x209E98, 5},        {0x209E9C, 512},      {0x209EA0, 10}, {0x209EA8, 1},
    {0x20A0AC, 65536},    {0x20A0B0, 5},        {0x20A0B4, 64}, {0x20A0C4, 44},
    {0x20A0C8, 46},       {0x20A0CC, 1},        {0x20A0D0, -1}, {0x20A0E4, 33554432},
    {0x20A0E8, 420},      {0x20A0EC, 1},        {0x20A0F8, 2},  {0x20A0FC, 262144},
    {0x20A100, -1},       {0x20A104, -1},
};

struct Text {
    std::int64_t offset;
    const char* value;
};

constexpr Text kTexts[] = {{0x000028, "/usr/Corvane/mclog"},
                           {0x1E4364, "hd"},
                           {0x209FAC, "/usr/Corvane/nls/C/corvanecat.cat"}};

class Segment : public DaemonTest {
protected:
    // The first segment of a fresh namespace has the id 0: another program takes it.
    void take_first_id() { EXPECT_EQ(world().run({{"ipcmk", "--shmem", "4096"}, {}}).status, 0); }

    void restart_with(const std::string& volumes)
    {
        environment_.push_back("CORVANEVOLS=" + volumes);
        start();
    }
};

TEST_F(Segment, EveryByteAfterCreation)
{
    start();

    std::string expected(kBytesFor32, '\0');
    for (const Word& word : kWords) {
        codec::Bytes bytes(4);
        bytes.put32(0, word.value);
        expected.replace(static_cast<std::size_t>(word.offset), 4, bytes.data());
    }
    for (const Text& text : kTexts) {
        const std::string value = text.value;
        expected.replace(static_cast<std::size_t>(text.offset), value.size(), value);
    }
    const std::string found = world().peek(0, kBytesFor32);
    ASSERT_EQ(found.size(), expected.size());
    for (std::size_t at = 0; at < found.size(); at += 4) {
        if (found.compare(at, 4, expected, at, 4) == 0) continue;
        ADD_FAILURE() << "at 0x" << std::hex << at << ": " << codec::hex(found.substr(at, 16))
                      << ", expected " << codec::hex(expected.substr(at, 16));
        break;
    }
}

TEST_F(Segment, SizeAndPermissions)
{
    start();

    EXPECT_EQ(world().segment_bytes(), kBytesFor32);
    EXPECT_EQ(world().segment_mode(), 0777);
}

TEST_F(Segment, FewerThan32VolumesBecome32)
{
    restart_with("10");

    EXPECT_EQ(world().segment_bytes(), kBytesFor32);
    EXPECT_EQ(world().word(segment::kMaxVolumes), 32);
}

TEST_F(Segment, SixtyFourVolumes)
{
    restart_with("64");

    EXPECT_EQ(world().segment_bytes(), 13221048);
    EXPECT_EQ(world().word(segment::kSegmentSize), 13221048);
    EXPECT_EQ(world().word(segment::kMaxVolumes), 64);
}

TEST_F(Segment, NonsenseVolumesBecome32)
{
    restart_with("many");

    EXPECT_EQ(world().word(segment::kMaxVolumes), 32);
}

TEST_F(Segment, MoreVolumesThanTheCreatorsIsFatal)
{
    make_segment();
    Command command = daemon_command({"-d"});
    command.environment.emplace_back("CORVANEVOLS=64");

    const Outcome outcome = world().run(command);

    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output,
              "Corvane error: shared mem create failed size:13221048 :Invalid argument\n");
}

TEST_F(Segment, FewerVolumesThanTheCreatorsAttaches)
{
    take_first_id();
    environment_.emplace_back("CORVANEVOLS=64");
    make_segment();
    environment_.back() = "CORVANEVOLS=40";

    start();

    EXPECT_EQ(world().word(segment::kMaxVolumes), 64);
    EXPECT_EQ(client().ask(codec::request({}, 48)).i32(36), 8);
}

// Meant to be so: the second look-up takes the id 0, which a new machine's first segment has, for a
// failure.
TEST_F(Segment, FewerVolumesThanTheCreatorsFailsOnTheIdZero)
{
    environment_.emplace_back("CORVANEVOLS=64");
    make_segment();
    environment_.back() = "CORVANEVOLS=40";

    const Outcome outcome = world().run(daemon_command({"-d"}));

    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors.rfind("shmget: ", 0), 0U) << outcome.errors;
}

TEST_F(Segment, SettingsOutliveTheDaemon)
{
    make_segment();
    world().set_word(segment::kLogMaxSize, 12345);

    start();

    EXPECT_EQ(world().word(segment::kLogMaxSize), 12345);
}

TEST_F(Segment, CreationIsLoggedWithVersionAndSystem)
{
    world().write_file("/usr/Corvane/version.txt", "7.8.9-x\nsecond line\n");
    utsname system{};
    ASSERT_EQ(::uname(&system), 0);

    start();

    const std::string expected = std::string(" ver 7.8.9-x ") + system.nodename + " " +
                                 system.sysname + " " + system.release + " " + system.version +
                                 " " + system.machine + " Max Volumes 32\n";
    EXPECT_NE(log().find("Shm init id "), std::string::npos) << log();
    EXPECT_NE(log().find(expected), std::string::npos) << log();
}

TEST_F(Segment, RotationCountComesFromTheCountFile)
{
    world().write_file("/tmp/mclogdata.bak", std::string("17") + std::string(30, '\0'));

    start();

    EXPECT_EQ(world().word(segment::kLogCount), 17);
}

TEST_F(Segment, WithoutAnyCatalogueTheCreatorGivesUp)
{
    std::filesystem::remove_all(world().path("/usr/Corvane/nls"));

    const Outcome outcome = world().run(daemon_command({"-d"}));

    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(log().find("No nlsPath found, This will cause the system to be very unstable.\n"),
              std::string::npos);
    EXPECT_NE(log().find("nls return NULL from nlsSetup we are going to exit\n"),
              std::string::npos);
}

TEST_F(Segment, LanguageFileSetsPathAndPunctuation)
{
    world().write_file("/usr/Corvane/lang.txt", "/opt/msg/de/corvanecat.cat\n");

    start();

    EXPECT_EQ(world().text(segment::kNlsPath, 256), "/opt/msg/de/corvanecat.cat");
    EXPECT_EQ(world().word(0x20A0C0), 1);
    EXPECT_EQ(world().word(0x20A0C4), '.');
    EXPECT_EQ(world().word(0x20A0C8), ',');
}

TEST_F(Segment, LocaleStringIsKept)
{
    environment_.insert(environment_.end(), {"LC_CTYPE=en_US", "LANG=fr_FR", "LC_COLLATE",
                                             "LC_TIME", "LC_NUMERIC", "LC_MONETARY"});
    start();

    EXPECT_EQ(world().text(segment::kLangName, 256), "/en_US/fr_FR");
}

}  // namespace
}  // namespace corvane::harness
