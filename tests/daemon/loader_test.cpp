// Which libraries the daemon takes for plug-ins, in which order, and what it logs while it tries
// them.
#include <dirent.h>

#include <algorithm>
#include <memory>

#include "tests/harness/daemon.hpp"

namespace corvane::harness {
namespace {

class Loader : public DaemonTest {
protected:
    // The plug-ins asked about a volume nobody owns, in the order in which they were asked.
    std::vector<std::string> asked()
    {
        forget_calls();
        (void)client().ask(codec::get_volume({}, "/nobody"));
        std::vector<std::string> names;
        for (const auto& call : calls()) names.push_back(call.substr(0, call.find(' ')));
        return names;
    }

    // The folder's names as the daemon will read them.
    std::vector<std::string> names_as_read()
    {
        std::vector<std::string> names;
        const std::unique_ptr<DIR, int (*)(DIR*)> folder(
            ::opendir(world().path("/usr/Corvane/lib").c_str()), ::closedir);
        while (const dirent* entry = ::readdir(folder.get())) {
            if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
        }
        return names;
    }

    void start_at_level(std::int32_t level)
    {
        make_segment();
        set_level(level);
        start();
    }
};

TEST_F(Loader, PluginReadLastFromTheFolderIsAskedFirst)
{
    for (const char* name : {"b.so", "a.so", "d.so", "c.so"}) install_recorder(name);
    auto expected = names_as_read();
    std::reverse(expected.begin(), expected.end());

    start();

    EXPECT_EQ(asked(), expected);
}

TEST_F(Loader, FirstOwnerEndsTheAsking)
{
    install_recorder("a.so");
    install_recorder("b.so");
    start();
    const auto order = asked();
    ASSERT_EQ(order.size(), 2U);
    script("FS_GetVolCookie result=0 volume=01\n", order[0]);

    EXPECT_EQ(asked(), (std::vector<std::string>{order[0], order[0]})) << "cookie, then record";
}

TEST_F(Loader, NamesDecideWhoIsACandidate)
{
    install_recorder("libsancvt.so");
    install_recorder("fsplug.a.bak");
    install_recorder("plain");
    install_recorder("lib.so.1.2");
    start();

    auto names = asked();
    std::sort(names.begin(), names.end());

    EXPECT_EQ(names, (std::vector<std::string>{"fsplug.a.bak", "lib.so.1.2"}));
}

TEST_F(Loader, CandidateThatIsNoLibraryCostsOnlyItself)
{
    world().write_file("/usr/Corvane/lib/broken.so", "no library");
    install_recorder("good.so");
    world().write_file("/usr/Corvane/lib/worse.so", "");
    start();

    EXPECT_EQ(asked(), std::vector<std::string>{"good.so"});
}

TEST_F(Loader, IncompletePluginCostsOnlyItself)
{
    install_recorder("a.so", "corvane_recorder_incomplete");
    install_recorder("b.so");
    install_recorder("c.so", "corvane_recorder_incomplete");
    start();

    EXPECT_EQ(asked(), std::vector<std::string>{"b.so"});
}

TEST_F(Loader, PluginWithoutLeaseLimitsIsAccepted)
{
    install_recorder("a.so", "corvane_recorder_without_leases");
    start();

    EXPECT_EQ(asked(), std::vector<std::string>{"a.so"});
}

TEST_F(Loader, VersionBelow231IsAccepted)
{
    install_recorder("old.so");
    script("FS_GetVersion result=230\n", "old.so");
    install_recorder("new.so");
    script("FS_GetVersion result=231\n", "new.so");
    start();

    EXPECT_EQ(asked(), std::vector<std::string>{"old.so"});
}

TEST_F(Loader, RejectedPluginIsNeverInitialisedByVersion)
{
    install_recorder("new.so");
    script("FS_GetVersion result=231\n", "new.so");
    start();

    EXPECT_EQ(world().read_file("/tmp/recorder/calls").find("FS_Init"), std::string::npos);
}

TEST_F(Loader, EveryAcceptedPluginIsAskedWhateverWasRejectedBefore)
{
    for (const char* name : {"a.so", "b.so", "c.so", "d.so", "e.so"}) install_recorder(name);
    const auto order = names_as_read();
    script("FS_Init result=1\n", order[4]);
    script("FS_GetVersion result=500\n", order[3]);
    script("FS_Init result=408\n", order[1]);
    start();

    EXPECT_EQ(asked(), (std::vector<std::string>{order[2], order[0]}));
}

TEST_F(Loader, NegativeVersionIsAccepted)
{
    install_recorder("a.so");
    script(
        "FS_GetVersion result=-3\nFS_GetVolCookie result=0 volume=01\nFS_GetVolByCookie "
        "result=201\n",
        "a.so");
    start();

    EXPECT_EQ(client().ask(codec::get_volume({}, "/v")).i32(4), -3);
}

TEST_F(Loader, ThirtyTwoPluginsAtMost)
{
    for (int i = 0; i < 34; ++i) install_recorder("p" + std::to_string(i) + ".so");
    start();

    EXPECT_EQ(asked().size(), 32U);
}

TEST_F(Loader, LevelFiveTellsEachEntryPointInOrder)
{
    install_recorder("one.so");
    start_at_level(5);

    ASSERT_TRUE(logged("FTX1484I"));
    const std::string text = log();
    EXPECT_NE(text.find("FTX1475I opened lib /usr/Corvane/lib/one.so\n"), std::string::npos)
        << text;
    std::size_t at = 0;
    for (const char* expected : {"FTX1475I opened lib ", "FTX1476I Got FS_Init ",
                                 "FTX1477I Got FS_GetCookies ", "FTX1478I Got FS_GetLockedMap ",
                                 "FTX1479I Got FS_GetVersion ", "FTX1480I Got FS_GetVolByCookie ",
                                 "FTX1481I Got FS_GetVolCookie ", "FTX1482I Got FS_SetFileSizes ",
                                 "FTX1483I Got FS_UnlockMap ", "FTX1484I Got FS_GetMaxLeases "}) {
        const auto found = text.find(expected, at);
        ASSERT_NE(found, std::string::npos) << expected << " after " << at << " in\n" << text;
        at = found;
    }
    EXPECT_EQ(text.find("LoadNextLibrary was called."), std::string::npos);
}

TEST_F(Loader, LevelFourIsSilentAboutEntryPoints)
{
    install_recorder("one.so");
    start_at_level(4);

    EXPECT_EQ(log().find("FTX1475I"), std::string::npos);
    EXPECT_EQ(log().find("Got FS_"), std::string::npos);
}

TEST_F(Loader, LevelSevenTellsEachCall)
{
    install_recorder("one.so");
    start_at_level(7);

    EXPECT_TRUE(logged("LoadNextLibrary was called.\n"));
}

TEST_F(Loader, IncompletePluginIsTracedUpToWhatItLacks)
{
    install_recorder("one.so", "corvane_recorder_incomplete");
    start_at_level(5);

    ASSERT_TRUE(logged("FTX1482I Got FS_SetFileSizes "));
    EXPECT_EQ(log().find("FTX1483I"), std::string::npos);
    EXPECT_EQ(log().find("FTX1484I"), std::string::npos);
}

TEST_F(Loader, WithoutPluginsEveryRequestSays405)
{
    start();

    const codec::Bytes reply = client().ask(codec::get_volume({}, "/v"));

    EXPECT_EQ(reply.i32(48), 405);
    EXPECT_EQ(reply.size(), 272U);
}

TEST_F(Loader, WithoutTheFolderTheDaemonRunsOn)
{
    std::filesystem::remove_all(world().path("/usr/Corvane/lib"));
    start();

    EXPECT_EQ(client().ask(codec::get_volume({}, "/v")).i32(48), 405);
}

}  // namespace
}  // namespace corvane::harness
