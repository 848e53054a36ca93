// The plug-in loader: which files are candidates, in which order, what is logged, and what start-up
// keeps.
#include "fsmdc/loader.h"

#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "fsmdc/lease.h"
#include "fsmdc/service.h"
#include "mdcmain/locale.h"
#include "mdcmain/segment.h"
#include "nls/catalogue.h"
#include "tests/mdcmain/private_machine.hpp"

namespace {

using corvane::test::in_private_machine;
using corvane::test::output_of;
using corvane::test::read_file;
using corvane::test::write_file;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;

const std::string kLib = "/usr/Corvane/lib/";
const std::string kRecorder = std::string(CORVANE_BUILD_DIR) + "/test_plugins/corvane_recorder.so";
const std::string kWithoutLeases =
    std::string(CORVANE_BUILD_DIR) + "/test_plugins/corvane_recorder_without_leases.so";
const std::string kIncomplete =
    std::string(CORVANE_BUILD_DIR) + "/test_plugins/corvane_recorder_incomplete.so";

// Texts of our own, that name each argument.
constexpr char kTexts[] =
    "326 326 directory %s error %s\\n\n"
    "327 327 path %s version %d\\n\n"
    "328 328 path %s size %lld time %lld\\n\n"
    "329 329 number %d path %s error %s\\n\n"
    "330 330 path %s\\n\n"
    "331 331 directory %s\\n\n";

void install(const std::string& from, const std::string& name)
{
    std::filesystem::create_directories(kLib);
    std::filesystem::copy_file(from, kLib + name);
}

void script(const std::string& name, const std::string& text)
{
    write_file("/tmp/recorder/" + name + ".script", text);
}

// What is logged at this debug level, without the prefix of each line.
void set_log_level(std::int32_t level)
{
    std::filesystem::create_directories("/tmp/recorder");
    fused_mapShared();
    fs->logLevel = level;
    fs->logMode = 1;
}

void use_texts(const std::string& texts = kTexts)
{
    const std::string path = "/tmp/texts.cat";
    corvane::test::write_catalogue(path, texts);
    corvane_cat = vor_catopen(path.c_str(), 0);
}

std::vector<std::string> log_lines()
{
    std::vector<std::string> lines;
    std::istringstream log(read_file("/usr/Corvane/mclog0"));
    for (std::string line; std::getline(log, line);) {
        if (line.starts_with("Opening Log") || line.find("Shm init") != std::string::npos) continue;
        const auto blank = line.find(' ');
        lines.push_back(line.substr(blank + 1));
    }
    return lines;
}

// The directory's entries in its own reading order.
std::vector<std::string> reading_order()
{
    std::vector<std::string> names;
    DIR* const directory = opendir(kLib.c_str());
    while (const dirent* entry = readdir(directory)) names.emplace_back(entry->d_name);
    closedir(directory);
    return names;
}

std::vector<std::string> candidates()
{
    std::vector<std::string> paths;
    for (const LibraryCandidate* one = libHead.next; one != &libHead; one = one->next) {
        paths.emplace_back(one->libName);
    }
    return paths;
}

std::string own_name(const FsLibrary& library)
{
    (void)library.FS_GetVersion();  // the recorder writes its name down
    const std::string calls = read_file("/tmp/recorder/calls");
    const auto line = calls.rfind('\n', calls.size() - 2) + 1;
    return calls.substr(line, calls.find(' ', line) - line);
}

TEST(Loader, AMissingDirectoryIsLoggedAndGivesNoPlugIn)
{
    in_private_machine([] {
        std::filesystem::remove_all(kLib);
        set_log_level(3);
        use_texts();

        EXPECT_EQ(FSMDCSP_LoadNextLibrary(), nullptr);

        EXPECT_THAT(log_lines(),
                    ElementsAre("326 directory /usr/Corvane/lib error No such file or directory"));
        EXPECT_THAT(candidates(), IsEmpty());
    });
}

TEST(Loader, AnEmptyDirectoryIsLoggedEveryTime)
{
    in_private_machine([] {
        set_log_level(3);
        use_texts();
        std::filesystem::create_directories(kLib);

        EXPECT_EQ(FSMDCSP_LoadNextLibrary(), nullptr);
        EXPECT_EQ(FSMDCSP_LoadNextLibrary(), nullptr);

        EXPECT_THAT(log_lines(), ElementsAre("331 directory /usr/Corvane/lib",
                                             "331 directory /usr/Corvane/lib"));
    });
}

TEST(Loader, NamesWithSoOrADecideWhoIsACandidate)
{
    in_private_machine([] {
        set_log_level(3);
        for (const char* name :
             {"libsancvt.so", "fsplug.a.bak", "x.so.1", "xsancvty.a", "plain", "so", "a.b"}) {
            write_file(kLib + name, "no library");
        }
        install(kRecorder, "zz.so");
        auto wanted = reading_order();
        std::erase_if(wanted, [](const std::string& name) {
            return name != "fsplug.a.bak" && name != "x.so.1" && name != "zz.so";
        });
        std::reverse(wanted.begin(), wanted.end());
        // The first call tries as many as it takes to load one; those left are the rest.
        const FsLibrary* const library = FSMDCSP_LoadNextLibrary();

        ASSERT_NE(library, nullptr);
        std::vector<std::string> rest;
        const auto loaded = std::find(wanted.begin(), wanted.end(), "zz.so");
        for (auto name = loaded + 1; name != wanted.end(); ++name) rest.push_back(kLib + *name);
        EXPECT_THAT(candidates(), ElementsAreArray(rest));
        std::string listed = "Dumping LibList\n";
        for (const auto& path : rest) listed += "current->libName is " + path + "\n";
        EXPECT_EQ(output_of(dumpLibList), listed);
    });
}

TEST(Loader, ALoadedPlugInIsReportedInFull)
{
    in_private_machine([] {
        install(kRecorder, "one.so");
        set_log_level(5);
        use_texts();

        FsLibrary* const library = FSMDCSP_LoadNextLibrary();

        ASSERT_NE(library, nullptr);
        EXPECT_EQ(library->version, 0);
        EXPECT_NE(library->FS_GetMaxLeases, nullptr);
        struct stat status {};
        ASSERT_EQ(stat((kLib + "one.so").c_str(), &status), 0);
        char init[64];
        (void)std::snprintf(init, sizeof init, "FTX1476I Got FS_Init %lx ",
                            reinterpret_cast<unsigned long>(library->FS_Init));
        EXPECT_THAT(
            log_lines(),
            ElementsAre("FTX1475I opened lib /usr/Corvane/lib/one.so", init,
                        MatchesRegex("FTX1477I Got FS_GetCookies [0-9a-f]+ "),
                        MatchesRegex("FTX1478I Got FS_GetLockedMap [0-9a-f]+ "),
                        MatchesRegex("FTX1479I Got FS_GetVersion [0-9a-f]+ "),
                        MatchesRegex("FTX1480I Got FS_GetVolByCookie [0-9a-f]+ "),
                        MatchesRegex("FTX1481I Got FS_GetVolCookie [0-9a-f]+ "),
                        MatchesRegex("FTX1482I Got FS_SetFileSizes [0-9a-f]+ "),
                        MatchesRegex("FTX1483I Got FS_UnlockMap [0-9a-f]+ "),
                        MatchesRegex("FTX1484I Got FS_GetMaxLeases [0-9a-f]+ "),
                        "327 path /usr/Corvane/lib/one.so version 1",
                        "328 path /usr/Corvane/lib/one.so size " + std::to_string(status.st_size) +
                            " time " + std::to_string(status.st_mtime)));
    });
}

TEST(Loader, AtLevelFourOnlyTheMessagesAreLogged)
{
    in_private_machine([] {
        install(kRecorder, "one.so");
        script("one.so", "FS_GetVersion result=0\n");
        set_log_level(4);
        use_texts();

        ASSERT_NE(FSMDCSP_LoadNextLibrary(), nullptr);

        EXPECT_THAT(log_lines(), ElementsAre(HasSubstr("328 path")));  // version 0 is not reported
    });
}

TEST(Loader, AboveLevelSixEachCallIsLogged)
{
    in_private_machine([] {
        std::filesystem::create_directories(kLib);
        set_log_level(7);
        use_texts();

        EXPECT_EQ(FSMDCSP_LoadNextLibrary(), nullptr);

        EXPECT_EQ(log_lines().front(), "LoadNextLibrary was called.");
    });
}

TEST(Loader, APlugInWithoutLeaseLimitsIsWhole)
{
    in_private_machine([] {
        install(kWithoutLeases, "one.so");
        set_log_level(5);

        const FsLibrary* const library = FSMDCSP_LoadNextLibrary();

        ASSERT_NE(library, nullptr);
        EXPECT_EQ(library->FS_GetMaxLeases, nullptr);
        EXPECT_NE(library->FS_UnlockMap, nullptr);
    });
}

TEST(Loader, AMissingEntryPointGivesTheCandidateUp)
{
    in_private_machine([] {
        install(kIncomplete, "one.so");
        set_log_level(5);
        use_texts();

        EXPECT_EQ(FSMDCSP_LoadNextLibrary(), nullptr);

        const auto lines = log_lines();
        ASSERT_EQ(lines.size(), 9u);
        EXPECT_THAT(lines[7], HasSubstr("FTX1482I Got FS_SetFileSizes"));
        EXPECT_EQ(lines[8], "330 path /usr/Corvane/lib/one.so");
        EXPECT_THAT(candidates(), IsEmpty());
    });
}

TEST(Loader, AFileThatIsNoLibraryIsReportedWithTheLoadersText)
{
    in_private_machine([] {
        write_file(kLib + "one.so", "not a library at all");
        set_log_level(3);
        use_texts();

        EXPECT_EQ(FSMDCSP_LoadNextLibrary(), nullptr);

        EXPECT_THAT(
            log_lines(),
            ElementsAre(MatchesRegex("329 number 0 path /usr/Corvane/lib/one.so error .*one.so.*"),
                        "330 path /usr/Corvane/lib/one.so"));
    });
}

TEST(Loader, AFileThatCannotBeFoundIsReportedWithItsErrorNumber)
{
    in_private_machine([] {
        std::filesystem::create_directories(kLib);
        std::filesystem::create_symlink("/nowhere", kLib + "one.so");
        set_log_level(3);
        use_texts();

        EXPECT_EQ(FSMDCSP_LoadNextLibrary(), nullptr);

        EXPECT_THAT(
            log_lines(),
            ElementsAre("329 number 2 path /usr/Corvane/lib/one.so error No such file or directory",
                        "330 path /usr/Corvane/lib/one.so"));
    });
}

TEST(Loader, ATextThatWantsOtherArgumentsIsWrittenAsItStands)
{
    in_private_machine([] {
        std::filesystem::remove_all(kLib);
        set_log_level(3);
        use_texts("326 in %d there is %n of %s\\n\n");

        EXPECT_EQ(FSMDCSP_LoadNextLibrary(), nullptr);

        EXPECT_THAT(log_lines(), ElementsAre("in %d there is %n of %s"));
    });
}

TEST(Loader, WithoutACatalogueTheDefaultTextIsLogged)
{
    in_private_machine([] {
        set_log_level(3);
        corvane_cat = VOR_NO_CATALOGUE;
        std::filesystem::create_directories(kLib);

        EXPECT_EQ(FSMDCSP_LoadNextLibrary(), nullptr);

        EXPECT_THAT(log_lines(), ElementsAre("Error not defined"));
    });
}

TEST(ServiceStart, PlugInsFillTheSlotsFromTheDirectorysEnd)
{
    in_private_machine([] {
        for (const char* name : {"a.so", "b.so", "c.so"}) install(kRecorder, name);
        set_log_level(3);
        auto wanted = reading_order();
        std::erase_if(wanted, [](const std::string& name) { return name.size() != 4; });
        std::reverse(wanted.begin(), wanted.end());

        EXPECT_EQ(FSMDCSP_Init(), 0u);

        EXPECT_EQ(libCount, 3);
        for (std::size_t slot = 0; slot < 3; ++slot) {
            ASSERT_NE(libs[slot], nullptr);
            EXPECT_EQ(own_name(*libs[slot]), wanted[slot]);
            EXPECT_EQ(libs[slot]->version, 1);
        }
        EXPECT_EQ(libs[3], nullptr);
    });
}

TEST(ServiceStart, ARejectedPlugInLeavesAHoleAndTheOthersServe)
{
    in_private_machine([] {
        for (const char* name : {"a.so", "b.so", "c.so", "d.so"}) install(kRecorder, name);
        set_log_level(3);
        auto order = reading_order();
        std::erase_if(order, [](const std::string& name) { return name.size() != 4; });
        std::reverse(order.begin(), order.end());
        script(order[0], "FS_GetVersion result=231\n");
        script(order[1], "FS_GetVersion result=230\n");
        script(order[2], "FS_Init result=1\n");

        EXPECT_EQ(FSMDCSP_Init(), 408u);

        EXPECT_EQ(libCount, 2);
        EXPECT_EQ(libs[0], nullptr);
        ASSERT_NE(libs[1], nullptr);
        EXPECT_EQ(libs[1]->version, 230);
        EXPECT_EQ(libs[2], nullptr);
        ASSERT_NE(libs[3], nullptr);
        const std::string calls = read_file("/tmp/recorder/calls");
        EXPECT_THAT(calls, Not(HasSubstr(order[0] + " FS_Init")));  // its version alone rejects it
    });
}

TEST(ServiceStart, ABrokenCandidateCostsOnlyItself)
{
    in_private_machine([] {
        for (const char* name : {"a.so", "c.so"}) write_file(kLib + name, "broken");
        install(kRecorder, "b.so");
        install(kRecorder, "d.so");
        set_log_level(3);

        EXPECT_EQ(FSMDCSP_Init(), 0u);

        EXPECT_EQ(libCount, 2);
        EXPECT_NE(libs[0], nullptr);
        EXPECT_NE(libs[1], nullptr);
    });
}

TEST(ServiceStart, AThirtyThirdPlugInIsNotLoaded)
{
    in_private_machine([] {
        for (int i = 0; i < 33; ++i) install(kRecorder, "p" + std::to_string(i) + ".so");
        set_log_level(3);

        EXPECT_EQ(FSMDCSP_Init(), 0u);

        EXPECT_EQ(libCount, 32);
        EXPECT_EQ(candidates().size(), 1u);
    });
}

TEST(ServiceStart, ListsAndLocksAreThereAndThePurgeThreadRuns)
{
    in_private_machine([] {
        std::filesystem::create_directories(kLib);
        set_log_level(3);
        const unsigned char cookie[32] = {};
        const unsigned char other_file[32] = {1};
        EXPECT_EQ(FSMDCSP_Init(), 0u);
        std::uint32_t keys[2] = {};
        EXPECT_EQ(AddLeaseToList(cookie, cookie, cookie, cookie, 1, 5000, &keys[0], nullptr), 0);
        EXPECT_EQ(AddLeaseToList(cookie, other_file, cookie, cookie, 1, 5000, &keys[1], nullptr),
                  0);
        EXPECT_EQ(OSL_QuickLockGrab(&leaseListLock, 1), 0);
        GetLeasePointer(keys[0])->creationTime -= 36000;
        leaseListHeadGlb.next->creationTime -= 36000;  // the newest one, by no key
        EXPECT_EQ(OSL_QuickLockRelease(&leaseListLock), 0);

        // The thread wakes every five seconds; a loaded machine may take longer.
        LeaseRecord copy;
        int waits = 0;
        while ((GetLeaseCopy(keys[0], &copy) == 0 || GetLeaseCopy(keys[1], &copy) == 0) &&
               waits < 400) {
            usleep(100000);
            ++waits;
        }

        EXPECT_LT(waits, 400) << "nobody purged the leases";
    });
}

}  // namespace
