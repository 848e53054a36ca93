// The log: where messages go, how files rotate, what the ring keeps.
#include "mdcmain/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "mdcmain/log_state.h"
#include "mdcmain/segment.h"
#include "tests/mdcmain/private_machine.hpp"

namespace {

using corvane::test::in_private_machine;
using corvane::test::output_of;
using corvane::test::permissions_of;
using corvane::test::read_file;
using corvane::test::write_file;
using ::testing::EndsWith;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

constexpr char kLog[] = "/usr/Corvane/mclog0";
constexpr char kCountFile[] = "/tmp/mclogdata.bak";
constexpr char kDate[] = "[0-9][0-9]/[0-9][0-9].[0-9][0-9]:[0-9][0-9]:[0-9][0-9] ";

// In a machine with a mapped segment and an empty log, the next message being the `next`th one.
void with_log(const std::function<void()>& body, std::uint64_t next = 1)
{
    in_private_machine([&] {
        fused_mapShared();
        std::filesystem::remove(kLog);
        loopcount = next;
        body();
    });
}

std::string my_pid()
{
    return std::to_string(getpid());
}

TEST(Log, LevelZeroGoesToTheFileWithTheDateWhateverTheMode)
{
    with_log([] {
        for (const int mode : {0, 1, 2, -1}) {
            std::filesystem::remove(kLog);
            fs->logMode = mode;
            EXPECT_EQ(output_of([] { sanos_log("one %d %s\n", 1, "two"); }), "");
            EXPECT_THAT(read_file(kLog), MatchesRegex(std::string(kDate) + "one 1 two\n")) << mode;
        }
        EXPECT_EQ(fs->shmLogUsed, 0);
    });
}

TEST(Log, TheDateIsLocalMonthAndDay)
{
    in_private_machine([] {
        setenv("TZ", "XYZ+11", 1);
        fused_mapShared();
        std::filesystem::remove(kLog);
        loopcount = 1;
        std::time_t before = 0;
        do {  // again when a minute ended meanwhile
            std::filesystem::remove(kLog);
            before = std::time(nullptr);
            sanos_log("x\n");
        } while (std::time(nullptr) / 60 != before / 60);
        const std::time_t shifted = before - std::time_t{11} * 3600;
        std::tm wanted{};
        gmtime_r(&shifted, &wanted);
        std::array<char, 32> text{};
        std::strftime(text.data(), text.size(), "%m/%d|%H:%M:", &wanted);
        EXPECT_THAT(read_file(kLog), StartsWith(text.data()));
    });
}

TEST(Log, OtherLevelsAndModeOneGoToTheFileWithTheProcessId)
{
    with_log([] {
        fs->logLevel = 3;
        EXPECT_EQ(output_of([] { sanos_log("one\n"); }), "");
        EXPECT_EQ(read_file(kLog), my_pid() + " one\n");
        fs->logLevel = -1;
        sanos_log("two\n");
        EXPECT_EQ(read_file(kLog), my_pid() + " one\n" + my_pid() + " two\n");
    });
}

TEST(Log, ModeZeroGoesToStandardOutputOnly)
{
    with_log([] {
        fs->logLevel = 3;
        fs->logMode = 0;
        EXPECT_EQ(output_of([] { sanos_log("one %d\n", 1); }), "one 1\n");
        EXPECT_EQ(read_file(kLog), "");
        EXPECT_EQ(loopcount, 2U);
    });
}

TEST(Log, StandardOutputReadsPercentSignsASecondTime)
{
    with_log([] {
        fs->logLevel = 3;
        fs->logMode = 0;
        EXPECT_EQ(output_of([] { sanos_log("%s%%%%|%s\n", "%%", "100%d %n%s"); }),
                  "%%|100%d %n%s\n");
        EXPECT_EQ(output_of([] { sanos_log("%s", "%"); }), "%");
    });
}

TEST(Log, StandardOutputCutsAt2047)
{
    with_log([] {
        fs->logLevel = 1;
        fs->logMode = 0;
        const std::string text(3000, 'x');
        EXPECT_EQ(output_of([&] { sanos_log("%s", text.c_str()); }), text.substr(0, 2047));
    });
}

TEST(Log, AnyOtherModeGoesToTheRingWithTwoBlanks)
{
    with_log([] {
        fs->logLevel = 3;
        fs->logMode = 2;
        EXPECT_EQ(output_of([] { sanos_log("one %%\n"); }), "");
        fs->logMode = -5;
        sanos_log("two\n");
        const std::string wanted = my_pid() + "  one %\n" + my_pid() + "  two\n";
        EXPECT_EQ(std::string(fs->shmLog), wanted);
        EXPECT_EQ(fs->shmLogUsed, static_cast<int>(wanted.size()));
        EXPECT_EQ(read_file(kLog), "");
    });
}

TEST(Log, MessagesInTheFileAreCutAt1023)
{
    with_log([] {
        fs->logLevel = 1;
        const std::string text(3000, 'x');
        sanos_log("%s", text.c_str());
        EXPECT_EQ(read_file(kLog), my_pid() + " " + text.substr(0, 1023));
    });
}

TEST(Log, TheFileIsOpenToEveryone)
{
    with_log([] {
        umask(077);
        sanos_log("one\n");
        EXPECT_EQ(permissions_of(kLog), 0666U);
        std::filesystem::permissions(kLog, std::filesystem::perms::owner_read);
        errno = EXDEV;
        sanos_log("two\n");
        EXPECT_EQ(permissions_of(kLog), 0666U);
    });
}

TEST(Log, AFileThatCannotBeOpenedSendsTheMessageToStandardOutput)
{
    with_log([] {
        std::strcpy(fs->logBaseName, "/usr/Corvane/no/such/log");
        const std::string text(3000, 'x');
        EXPECT_EQ(output_of([&] { sanos_log("%s 100%%\n", text.c_str()); }),
                  "Could not open log file /usr/Corvane/no/such/log0: No such file or directory\n" +
                      text + " 100%\n");
        EXPECT_EQ(recurseCk, 0);
        EXPECT_EQ(loopcount, 2U);
    });
}

TEST(Log, AMessageDuringAnotherIsDropped)
{
    with_log([] {
        for (const int flag : {1, 7}) {
            recurseCk = flag;
            EXPECT_EQ(output_of([] { sanos_log("lost\n"); }), "");
            EXPECT_EQ(recurseCk, flag);
        }
        EXPECT_EQ(read_file(kLog), "");
        EXPECT_EQ(loopcount, 1U);
        recurseCk = -1;
        sanos_log("kept\n");
        EXPECT_THAT(read_file(kLog), EndsWith("kept\n"));
        EXPECT_EQ(recurseCk, 0);
    });
}

TEST(Log, ThreadsNeverWaitAndNeverTearALine)
{
    with_log([] {
        fs->logLevel = 1;
        constexpr int kThreads = 4;
        constexpr int kMessages = 500;
        std::vector<std::thread> threads;
        threads.reserve(kThreads);
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([thread] {
                for (int i = 0; i < kMessages; ++i)
                    sanos_log("thread %d message %d end\n", thread, i);
            });
        }
        for (std::thread& thread : threads) thread.join();

        const std::string log = read_file(kLog);
        const auto lines = std::count(log.begin(), log.end(), '\n');
        EXPECT_GE(lines, 1);
        EXPECT_LE(lines, kThreads * kMessages);
        EXPECT_EQ(loopcount, static_cast<std::uint64_t>(lines) + 1);
        const std::regex line("[0-9]+ thread [0-3] message [0-9]+ end\n");
        EXPECT_EQ(std::distance(std::sregex_iterator(log.begin(), log.end(), line), {}), lines);
    });
}

TEST(Log, TheFirstMessageOfANewFileIsPrecededByItsHeader)
{
    with_log(
        [] {
            write_file("/usr/Corvane/version.txt", "1.2\n");
            fs->logLevel = 1;
            sanos_log("one\n");
            sanos_log("two\n");
            EXPECT_THAT(read_file(kLog),
                        MatchesRegex("Opening Log version:1.2 time:[A-Z][a-z][a-z] [^\n]* "
                                     "20[0-9][0-9]\n[0-9]+ one\n[0-9]+ two\n"));
        },
        /*next=*/0);
}

TEST(Log, ADeletedFileGetsNoHeaderBeforeTheNextCheck)
{
    with_log(
        [] {
            fs->logLevel = 1;
            sanos_log("message 49\n");
            EXPECT_EQ(read_file(kLog), my_pid() + " message 49\n");
            std::filesystem::remove(kLog);
            sanos_log("message 50\n");
            EXPECT_THAT(read_file(kLog), StartsWith("Opening Log version: time:"));
        },
        /*next=*/49);
}

TEST(Rotation, ComesAtTheFiftiethMessageOfATooLargeFile)
{
    with_log(
        [] {
            write_file(kLog, std::string(204801, '#'));
            sanos_log("one\n");
            EXPECT_GT(read_file(kLog).size(), 204801U);
            EXPECT_EQ(fs->logCount, 0);
            sanos_log("two\n");
            EXPECT_THAT(read_file(kLog), MatchesRegex(std::string(kDate) + "two\n"));
            EXPECT_EQ(fs->logCount, 1);
            EXPECT_FALSE(std::filesystem::exists(kCountFile));
        },
        /*next=*/49);
}

TEST(Rotation, NeedsMoreThanTheLimit)
{
    with_log(
        [] {
            write_file(kLog, std::string(204800, '#'));
            sanos_log("one\n");
            EXPECT_GT(read_file(kLog).size(), 204800U);
            EXPECT_EQ(fs->logCount, 0);
        },
        /*next=*/100);
}

TEST(Rotation, MovesOnToTheNextFileAndSavesItsNumber)
{
    with_log(
        [] {
            umask(077);
            fs->logLevel = 1;
            fs->numLogs = 3;
            fs->logCount = 4;
            write_file("/usr/Corvane/mclog1", std::string(204801, '#'));
            write_file("/usr/Corvane/mclog2", "old");

            sanos_log("one\n");

            EXPECT_EQ(fs->logCount, 5);
            EXPECT_EQ(read_file("/usr/Corvane/mclog1").size(), 204801U);
            EXPECT_EQ(read_file("/usr/Corvane/mclog2"), my_pid() + " one\n");
            EXPECT_EQ(read_file(kCountFile), "2" + std::string(31, '\0'));
            EXPECT_EQ(permissions_of(kCountFile), 0666U);
        },
        /*next=*/50);
}

std::string name_with(int count, int logs)
{
    fs->logCount = count;
    fs->numLogs = logs;
    std::array<char, 300> name;
    name.fill('#');
    utils_getLogFilename(name.data());
    return name.data();
}

TEST(LogFileName, IsTheBaseAndTheCountModuloTheLogs)
{
    with_log([] {
        EXPECT_EQ(name_with(0, 1), "/usr/Corvane/mclog0");
        EXPECT_EQ(name_with(4, 3), "/usr/Corvane/mclog1");
        EXPECT_EQ(name_with(12, 100), "/usr/Corvane/mclog12");
        EXPECT_EQ(name_with(-4, 3), "/usr/Corvane/mclog-1");
        EXPECT_EQ(name_with(0, 0), "/usr/Corvane/mclog0");
        EXPECT_EQ(name_with(5, 0), "/usr/Corvane/mclog0");  // a division nobody can do
        EXPECT_EQ(name_with(INT32_MIN, -1), "/usr/Corvane/mclog0");
    });
}

TEST(LogFileName, ABaseWithoutAnEndStopsAtItsField)
{
    with_log([] {
        std::memset(fs->logBaseName, 'n', 256);
        EXPECT_EQ(name_with(INT32_MIN, INT32_MAX), std::string(256, 'n') + "-1");
    });
}

TEST(CountFile, IsReadAsADecimalNumber)
{
    in_private_machine([] {
        EXPECT_EQ(utils_getLogCount(), 0);
        struct Row {
            std::string contents;
            int count;
        };
        for (const auto& [contents, count] : std::vector<Row>{{"7" + std::string(31, '\0'), 7},
                                                              {"", 0},
                                                              {"-12", -12},
                                                              {"12 apples", 12},
                                                              {"x", 0},
                                                              {std::string(40, '0') + "7", 0},
                                                              {std::string(31, '0') + "77", 7}}) {
            write_file(kCountFile, contents);
            EXPECT_EQ(utils_getLogCount(), count) << contents;
        }
    });
}

TEST(CountFile, KeepsTheRemainderUnlessItIsZero)
{
    with_log([] {
        fs->numLogs = 3;
        for (const int count : {0, 3, 300}) {
            utils_saveLogCount(count);
            EXPECT_FALSE(std::filesystem::exists(kCountFile)) << count;
        }
        utils_saveLogCount(4);
        EXPECT_EQ(read_file(kCountFile), "1" + std::string(31, '\0'));
        utils_saveLogCount(5);
        EXPECT_EQ(read_file(kCountFile), "2" + std::string(31, '\0'));
        EXPECT_EQ(prevCount, 0);
        utils_saveLogCount(6);
        EXPECT_EQ(read_file(kCountFile), "2" + std::string(31, '\0'));
        fs->numLogs = 1;
        utils_saveLogCount(77);
        EXPECT_EQ(read_file(kCountFile), "2" + std::string(31, '\0'));
        fs->numLogs = 2000000000;
        utils_saveLogCount(1999999999);
        EXPECT_EQ(read_file(kCountFile), "1999999999" + std::string(22, '\0'));
    });
}

TEST(CountFile, OneThatCannotBeWrittenIsNotSaved)
{
    with_log([] {
        fs->numLogs = 3;
        std::filesystem::create_directory(kCountFile);
        utils_saveLogCount(1);
        EXPECT_EQ(utils_getLogCount(), 0);
        std::filesystem::remove(kCountFile);

        close(STDIN_FILENO);  // the file would be descriptor 0
        utils_saveLogCount(1);
        EXPECT_EQ(read_file(kCountFile), "");
    });
}

TEST(LogHeader, NamesVersionAndTime)
{
    in_private_machine([] {
        std::array<char, 256> header{};
        write_file("/usr/Corvane/version.txt", "7.7\n");
        makeLogHeader(header.data());
        EXPECT_THAT(
            header.data(),
            MatchesRegex("Opening Log version:7.7 time:[A-Z][a-z][a-z] [A-Z][a-z][a-z] [ 0-9]"
                         "[0-9] [0-9:]* 20[0-9][0-9]\n"));
    });
}

// The ring with `used` bytes, each half of a letter of its own, and zeros behind them.
void fill_ring(int used)
{
    std::memset(fs->shmLog, 0, sizeof fs->shmLog);
    std::memset(fs->shmLog, 'a', static_cast<std::size_t>(std::min(used, 10240)));
    if (used > 10240) std::memset(fs->shmLog + 10240, 'b', static_cast<std::size_t>(used - 10240));
    fs->shmLogUsed = used;
}

std::string ring()
{
    return {fs->shmLog, sizeof fs->shmLog};
}
std::string zeros(std::size_t count)
{
    return std::string(count, '\0');
}

TEST(LogRing, AppendsTextsWithAZeroBehindTheLast)
{
    with_log([] {
        std::memset(fs->shmLog, '#', sizeof fs->shmLog);
        logToSharedMem("one");
        logToSharedMem("");
        logToSharedMem("two");
        EXPECT_EQ(ring().substr(0, 8), "onetwo" + zeros(1) + "#");
        EXPECT_EQ(fs->shmLogUsed, 6);
    });
}

TEST(LogRing, DropsItsOlderHalfWhenATextDoesNotFit)
{
    with_log([] {
        fill_ring(20478);
        logToSharedMem("xyz");
        EXPECT_EQ(ring().substr(0, 10245), std::string(10238, 'b') + "xyz" + zeros(1) + "bbb");
        EXPECT_EQ(fs->shmLogUsed, 10241);
    });
}

TEST(LogRing, ATextMayFillItToTheLastByte)
{
    with_log([] {
        fill_ring(20477);
        fs->other22 = 0x23232323;
        logToSharedMem("xyz");
        EXPECT_EQ(ring().substr(20470), "bbbbbbbxyz");
        EXPECT_EQ(fs->shmLogUsed, 20480);
        EXPECT_EQ(fs->other22, 0x23232323);  // the next field is another program's
        logToSharedMem("q");
        EXPECT_EQ(ring().substr(10230, 12), "bbbbbbbxyzq" + zeros(1));
        EXPECT_EQ(fs->shmLogUsed, 10241);
    });
}

TEST(LogRing, NeverLeavesItsFieldWhateverItsWordSays)
{
    with_log([] {
        const std::string huge(50000, 'h');
        for (const int used : {-2000000000, -1, 0, 5000, 10240, 20480, 20481, 2000000000}) {
            fill_ring(std::clamp(used, 0, 20480));
            fs->shmLogUsed = used;
            fs->other22 = 0x23232323;
            logToSharedMem(huge.c_str());
            EXPECT_EQ(fs->other22, 0x23232323) << used;
            EXPECT_EQ(fs->shmLogUsed, 20480) << used;
            EXPECT_EQ(ring().back(), 'h') << used;
        }
    });
}

TEST(LogRing, TheMovedHalfEndsAtItsFirstZero)
{
    with_log([] {
        fill_ring(20480);
        fs->shmLog[10243] = 0;
        logToSharedMem("x");
        EXPECT_EQ(ring().substr(0, 6), "bbb" + zeros(3));
        EXPECT_EQ(ring().substr(10238, 4), zeros(2) + "x" + zeros(1));
        EXPECT_EQ(fs->shmLogUsed, 10241);
    });
}

}  // namespace
