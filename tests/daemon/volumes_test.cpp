// Real input: ext4 images with fragmented, sparse and empty files, served by the ext plug-in and
// read back by the corvane command, byte for byte as the file system's own tools see them.
#include <signal.h>

#include <fstream>
#include <random>

#include "tests/harness/daemon.hpp"

namespace corvane::harness {
namespace {

using codec::Bytes;
using codec::Order;

constexpr const char* kImage = "/tmp/disk.img";
constexpr const char* kShare = "/vol/real";

std::string random_bytes(std::size_t count, unsigned seed)
{
    std::mt19937 random(seed);
    std::string bytes(count, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

class Volumes : public DaemonTest {
protected:
    void SetUp() override
    {
        DaemonTest::SetUp();
        if (IsSkipped()) return;
        install_plugin(CORVANE_BUILD_DIR "/plugins/libcorvane_ext.so", "libcorvane_ext.so");
        make_image();
        if (HasFatalFailure()) return;
        serve("ro");
    }

    // Other files lie between the pieces of the fragmented one; the sparse one is mostly hole.
    void make_image()
    {
        files_["/fragmented"] = random_bytes(1500001, 1);
        files_["/sparse"] = std::string(5242880, '\0');
        files_["/sparse"].replace(0, 9, "beginning");
        files_["/sparse"].replace(2457600, 100000, random_bytes(100000, 2));
        files_["/empty"] = "";
        files_["/one_byte"] = "x";
        files_["/block"] = random_bytes(4096, 3);
        std::string commands;
        for (int i = 1; i < 40; i += 2) commands += "rm filler" + std::to_string(i) + "\n";
        for (const auto& [name, contents] : files_) {
            world().write_file("/tmp/source" + name, contents);
            commands += "write /tmp/source" + name + " " + name.substr(1) + "\n";
        }
        // The source of a sparse file is sparse: its zeros are not written.
        tool({"cp", "--sparse=always", "/tmp/source/sparse", "/tmp/source/sparse2"});
        tool({"mv", "/tmp/source/sparse2", "/tmp/source/sparse"});
        for (int i = 0; i < 40; ++i) {
            world().write_file("/tmp/fillers/filler" + std::to_string(i), std::string(65536, 'f'));
        }
        world().write_file("/tmp/commands", commands);
        tool({"truncate", "-s", "32M", kImage});
        tool({"mke2fs", "-q", "-t", "ext4", "-b", "4096", "-d", "/tmp/fillers", kImage});
        tool({"debugfs", "-w", "-f", "/tmp/commands", kImage});
        check_image();
    }

    void serve(const std::string& options)
    {
        world().write_file("/usr/Corvane/volumes.conf",
                           std::string(kShare) + " ext " + kImage + " " + options + "\n");
        start();
    }

    Outcome tool(const std::vector<std::string>& arguments)
    {
        Outcome outcome = world().run({arguments, {}}, milliseconds(120000));
        EXPECT_EQ(outcome.status, 0) << arguments[0] << ": " << outcome.output << outcome.errors;
        return outcome;
    }
    void check_image() { tool({"e2fsck", "-fn", kImage}); }

    static std::vector<std::string> corvane(const std::vector<std::string>& arguments)
    {
        std::vector<std::string> all{CORVANE_BUILD_DIR "/bin/corvane", "--disk", kImage};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return all;
    }

    // The file's bytes as the file system's own tool reads them.
    std::string dumped(const std::string& file)
    {
        tool({"debugfs", "-R", "dump " + file + " /tmp/dumped", kImage});
        return world().read_file("/tmp/dumped");
    }

    // The file's bytes by its map.
    std::string read_by_map(const std::string& file)
    {
        world().write_file("/tmp/read", "not written");
        tool(corvane({"cat", kShare, file, "-o", "/tmp/read"}));
        return world().read_file("/tmp/read");
    }

    void expect_all_files_read_right()
    {
        for (const auto& [name, contents] : files_) {
            const std::string read = read_by_map(name);
            EXPECT_TRUE(read == contents) << name << ": " << read.size() << " bytes read";
            EXPECT_TRUE(dumped(name) == contents) << name << " as debugfs reads it";
        }
    }

    std::map<std::string, std::string> files_;
};

TEST_F(Volumes, EveryFileIsReadByItsMapAsDebugfsReadsIt)
{
    expect_all_files_read_right();
}

TEST_F(Volumes, FragmentedFileHasManyExtents)
{
    const Outcome map = tool(corvane({"--json", "map", kShare, "/fragmented"}));

    std::size_t extents = 0;
    for (std::size_t at = 0; (at = map.output.find("\"diskOffset\"", at)) != std::string::npos;
         ++at) {
        ++extents;
    }
    EXPECT_GE(extents, 10U) << map.output;
}

TEST_F(Volumes, AnotherHostReadsWhileFiveMapAndClose)
{
    try {
        world().join_networks();
    } catch (const WorldError& error) {
        GTEST_SKIP() << "no veth pair on this machine: " << error.what();
    }
    const std::string command = CORVANE_BUILD_DIR "/bin/corvane";
    std::vector<pid_t> others;
    for (int i = 0; i < 5; ++i) {
        const std::string loop =
            "for i in 1 2 3 4 5 6 7 8 9 10; do for f in fragmented sparse empty; do " + command +
            " map " + kShare + " /$f >/dev/null || exit 1; done; done";
        others.push_back(world().spawn({{"sh", "-c", loop}, {}}));
    }
    std::string sums;
    for (int i = 0; i < 5; ++i) {
        Command reader;
        reader.arguments =
            corvane({"--host", kMainAddress, "cat", kShare, "/fragmented", "-o", "/tmp/far"});
        reader.network = Network::kClient;
        const Outcome outcome = world().run(reader, milliseconds(60000));
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        EXPECT_TRUE(world().read_file("/tmp/far") == files_["/fragmented"]) << "round " << i;
    }
    for (const pid_t other : others) EXPECT_EQ(world().wait(other, milliseconds(60000)), 0);
}

// The daemon answers in its own order, so that both clients get the same bytes behind the header.
TEST_F(Volumes, ClientsOfBothByteOrdersGetTheSameMap)
{
    UdpClient asker = client();
    const auto map_in = [&](Order order) {
        codec::Header head;
        head.order = order;
        head.separator = '/';
        head.message_id = order == Order::kLittle ? "little-endian id" : "big-endian id...";
        codec::InitialMap map;
        map.share = kShare;
        map.file = "fragmented";
        map.flag = 8;
        return asker.ask(codec::get_initial_map(head, map));
    };

    const Bytes little = map_in(Order::kLittle);
    const Bytes big = map_in(Order::kBig);

    ASSERT_EQ(little.i32(48), 0);
    ASSERT_EQ(big.i32(48), 0);
    EXPECT_EQ(little.i64(160), 1500001);
    EXPECT_GE(little.i32(160 + 24), 10);
    EXPECT_EQ(codec::hex(little.slice(96, little.size() - 96)),
              codec::hex(big.slice(96, big.size() - 96)));
}

TEST_F(Volumes, KilledDaemonLeavesTheVolumeReadable)
{
    EXPECT_TRUE(read_by_map("/fragmented") == files_["/fragmented"]);
    stop(SIGKILL);

    start();

    expect_all_files_read_right();
    check_image();
}

TEST_F(Volumes, WrittenFilesAreWhatTheFileSystemReads)
{
    stop();
    serve("rw");
    // Shorter, longer, and as long as before.
    files_["/fragmented"] = random_bytes(700003, 10);
    files_["/one_byte"] = random_bytes(3000000, 11);
    files_["/block"] = random_bytes(4096, 12);
    for (const char* name : {"/fragmented", "/one_byte", "/block"}) {
        world().write_file("/tmp/new", files_[name]);
        tool(corvane({"put", kShare, name, "-i", "/tmp/new"}));
    }
    stop();

    check_image();
    for (const auto& [name, contents] : files_) EXPECT_TRUE(dumped(name) == contents) << name;
    serve("ro");
    expect_all_files_read_right();
}

TEST_F(Volumes, KillBetweenWritesLeavesASoundFileSystem)
{
    stop();
    serve("rw");
    for (int i = 0; i < 3; ++i) {
        files_["/block"] =
            random_bytes(200000 + static_cast<std::size_t>(i), static_cast<unsigned>(20 + i));
        world().write_file("/tmp/new", files_["/block"]);
        tool(corvane({"put", kShare, "/block", "-i", "/tmp/new"}));
        stop(SIGKILL);
        check_image();
        EXPECT_TRUE(dumped("/block") == files_["/block"]);
        start();
    }
}

TEST_F(Volumes, SizesAreSetAndTheFileSystemStaysSound)
{
    stop();
    serve("rw");

    tool(corvane({"size", kShare, "/fragmented", "100000"}));
    tool(corvane({"size", kShare, "/empty", "12345"}));
    stop();

    check_image();
    EXPECT_TRUE(dumped("/fragmented") == files_["/fragmented"].substr(0, 100000));
    EXPECT_TRUE(dumped("/empty") == std::string(12345, '\0'));
}

TEST_F(Volumes, WriterOfAReadOnlyVolumeIsToldSo)
{
    world().write_file("/tmp/new", "new");

    const Outcome outcome = world().run({corvane({"put", kShare, "/block", "-i", "/tmp/new"}), {}});

    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1) << outcome.errors;
    EXPECT_NE(outcome.errors.find("privilege error"), std::string::npos) << outcome.errors;
    stop();
    check_image();
    EXPECT_TRUE(dumped("/block") == files_["/block"]) << "refused before a byte was written";
}

TEST_F(Volumes, MissingFileIsOneLineOfError)
{
    const Outcome outcome = world().run({corvane({"cat", kShare, "/absent", "-o", "/tmp/x"}), {}});

    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1) << outcome.errors;
}

}  // namespace
}  // namespace corvane::harness
