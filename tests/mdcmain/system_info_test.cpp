// What is known of the host and the installation.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <array>
#include <string>

#include "mdcmain/log.h"
#include "mdcmain/segment.h"
#include "tests/mdcmain/private_machine.hpp"

namespace {

using corvane::test::in_private_machine;
using corvane::test::read_file;
using corvane::test::write_file;
using ::testing::EndsWith;

constexpr char kVersion[] = "/usr/Corvane/version.txt";

std::string version()
{
    std::array<char, 64> buffer{"untouched"};
    const int result = getVersion(buffer.data());
    return std::to_string(result) + " " + buffer.data();
}

TEST(Version, IsTheFirstLineWithoutItsLastByte)
{
    in_private_machine([] {
        EXPECT_EQ(version(), "-1 untouched");
        write_file(kVersion, "1.2.3\nmore\n");
        EXPECT_EQ(version(), "0 1.2.3");
        write_file(kVersion, "1.2.3");
        EXPECT_EQ(version(), "0 1.2.");
        write_file(kVersion, std::string(100, 'v') + "\n");
        EXPECT_EQ(version(), "0 " + std::string(62, 'v'));
        write_file(kVersion, "\n");
        EXPECT_EQ(version(), "0 ");
        write_file(kVersion, "");
        EXPECT_EQ(version(), "0 ");
    });
}

TEST(SystemName, HasNoCodeHere)
{
    EXPECT_EQ(setSysName(), 0);
}

TEST(SystemInfo, NamesTheSystemInOneLine)
{
    utsname system{};
    ASSERT_EQ(uname(&system), 0);
    std::array<char, 512> text{};

    getSystemInfo(text.data());

    EXPECT_EQ(std::string(text.data()), std::string(system.release) + " " + system.sysname + " " +
                                            system.nodename + " " + system.version + " " +
                                            system.machine + "\n");
}

// Puts a `systune` in the way that writes `line`.
int32_t dma_size(const std::string& line)
{
    write_file("/tmp/bin/line", line);
    write_file("/tmp/bin/systune", "#!/bin/sh\n[ \"$1\" = maxdmasz ] && cat /tmp/bin/line\n");
    std::filesystem::permissions("/tmp/bin/systune", std::filesystem::perms::all);
    setenv("PATH", "/tmp/bin:/usr/bin:/bin", 1);
    return getMaxDmaSize();
}

TEST(MaxDmaSize, IsTheThirdTokenLessOneInPages)
{
    in_private_machine([] {
        EXPECT_EQ(dma_size(" maxdmasz = 257 (0x101)\n"), 256 * 4096);
        EXPECT_EQ(dma_size("maxdmasz   =   1025\n"), 1024 * 4096);
        EXPECT_EQ(dma_size("maxdmasz = none\n"), -4096);
        EXPECT_EQ(dma_size("maxdmasz =\n"), -1);
        EXPECT_EQ(dma_size("maxdmasz\n"), -1);
        EXPECT_EQ(dma_size(""), -1);
        EXPECT_FALSE(std::filesystem::exists("/tmp/dmaSize.txt"));
    });
}

TEST(MaxDmaSize, IsLoggedAboveLevelTwo)
{
    in_private_machine([] {
        fused_mapShared();
        fs->logLevel = 2;
        EXPECT_EQ(dma_size("maxdmasz = 3\n"), 8192);
        EXPECT_EQ(read_file("/usr/Corvane/mclog0").find("maxdmasz"), std::string::npos);
        fs->logLevel = 3;
        EXPECT_EQ(dma_size("maxdmasz = 3\n"), 8192);
        EXPECT_THAT(read_file("/usr/Corvane/mclog0"),
                    EndsWith(" maxdmasz 3 maxio transfer size is 8192\n"));
    });
}

TEST(MaxDmaSize, IsMinusOneWhenTheFileCannotBeMade)
{
    in_private_machine([] {
        fused_mapShared();
        fs->logLevel = 3;
        std::filesystem::remove_all("/tmp/bin");
        ASSERT_EQ(symlink("/tmp/no/such/folder", "/tmp/dmaSize.txt"), 0);
        EXPECT_EQ(getMaxDmaSize(), -1);
        EXPECT_THAT(read_file("/usr/Corvane/mclog0"),
                    EndsWith("failed to open /tmp/dmaSize.txt\n"));
    });
}

}  // namespace
