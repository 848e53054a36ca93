// The lease list: grants, duplicates, renewals and ends, and what they trace.
#include "tests/fsmdc/lease_list_fixture.hpp"

namespace fsmdc_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(LeaseList, TheRecordHoldsWhatWasGranted)
{
    globalKey = 7;

    const std::uint32_t key = add({.intention = 3, .duration_ms = 1234});

    EXPECT_EQ(key, 7u);
    EXPECT_EQ(globalKey, 8u);
    const LeaseRecord lease = copy_of(key);
    EXPECT_EQ(lease.library, &PluginA::library);
    EXPECT_EQ(hex(lease.volumeCookie, 32), hex(cookie(0x10)));
    EXPECT_EQ(hex(lease.fileCookie, 32), hex(cookie(0x50)));
    EXPECT_EQ(hex(lease.messageCookie, 16), hex(cookie(1, 16)));
    EXPECT_EQ(hex(lease.commCookie, 16), hex(cookie(2, 16)));
    EXPECT_EQ(lease.key, 7u);
    EXPECT_EQ(lease.intention, 3);
    EXPECT_EQ(lease.duration, 1234u);
    EXPECT_EQ(lease.creationTime, 1000000u);
}

TEST_F(LeaseList, TheNewestLeaseIsAtTheHead)
{
    const auto first = add({.message = 1});
    const auto second = add({.message = 2});
    const auto third = add({.message = 3});

    EXPECT_THAT(keys(), ElementsAre(third, second, first));
    EXPECT_EQ(remove(second), 0u);
    EXPECT_THAT(keys(), ElementsAre(third, first));
}

TEST_F(LeaseList, TheSameMessageOfTheSameClientRenewsAndKeepsItsKey)
{
    const auto first = add({.duration_ms = 5000});
    g_clock_s = 1002;
    const auto again = add({.intention = 2, .duration_ms = 6000, .volume = 0x77});

    EXPECT_EQ(again, first);
    EXPECT_THAT(keys(), ElementsAre(first));
    const LeaseRecord lease = copy_of(first);
    EXPECT_EQ(lease.duration, 6000u);
    EXPECT_EQ(lease.creationTime, 1002000u);
    EXPECT_EQ(lease.intention, 2);
    EXPECT_EQ(lease.volumeCookie[0], 0x10);  // the volume is not compared, and not changed
}

TEST_F(LeaseList, AnotherFileMessageOrClientIsAnotherLease)
{
    add({});
    add({.file = 0x51});
    add({.message = 9});
    add({.client = 9});

    EXPECT_EQ(keys().size(), 4u);
}

TEST_F(LeaseList, TracesAGrantAndADuplicate)
{
    globalKey = 3;
    collect_traces();
    add({});
    add({});

    EXPECT_THAT(
        g_traces,
        ElementsAre("FTX2017I Added to lease list  key:3\n", "MoreCookiesInList2\n",
                    "Key Data for 0x3\n", "  intention: 1\n",
                    "  creation time: 1000000,  duration 5000\n",
                    "  volcookie:10 11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F 20 21 22 23 24 "
                    "25 26 27 28 29 2A 2B 2C 2D 2E 2F\n",
                    "  filecookie:50 51 52 53 54 55 56 57 58 59 5A 5B 5C 5D 5E 5F 60 61 62 63 64 "
                    "65 66 67 68 69 6A 6B 6C 6D 6E 6F\n",
                    "  commcookie:02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11\n",
                    "  msgcookie:01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 1\n", "\n",
                    "Duplicate lease detected.  Bailing...\n"));
}

TEST_F(LeaseList, ChangingALeaseRestartsIt)
{
    const auto key = add({});
    g_clock_s = 1003;

    EXPECT_EQ(ChangeLeaseEntry(key, 42), 0);

    EXPECT_EQ(copy_of(key).duration, 42u);
    EXPECT_EQ(copy_of(key).creationTime, 1003000u);
    EXPECT_EQ(ChangeLeaseEntry(key + 1, 42), -1);
}

TEST_F(LeaseList, UnknownKeysHaveTheirOwnCodes)
{
    LeaseRecord copy{};
    copy.key = 0x1234;
    Bytes volume(32);
    Bytes file(32);

    EXPECT_EQ(GetLeaseCopy(99, &copy), 407u);
    EXPECT_EQ(copy.key, 0x1234u);
    EXPECT_EQ(GetCookiesFromList(99, volume.data(), file.data()), 407u);
    EXPECT_EQ(RemoveLeaseFromList(99, volume.data(), file.data(), nullptr, ""), 408u);
    EXPECT_EQ(GetLeasePointer(99), nullptr);
}

TEST_F(LeaseList, CookiesOfALeaseAreCopiedOut)
{
    const auto key = add({});
    Bytes volume(32);
    Bytes file(32);

    EXPECT_EQ(GetCookiesFromList(key, volume.data(), file.data()), 0u);
    EXPECT_EQ(volume, cookie(0x10));
    EXPECT_EQ(file, cookie(0x50));

    std::fill(volume.begin(), volume.end(), 0);
    std::fill(file.begin(), file.end(), 0);
    EXPECT_EQ(RemoveLeaseFromList(key, volume.data(), file.data(), nullptr, ""), 0u);
    EXPECT_EQ(volume, cookie(0x10));
    EXPECT_EQ(file, cookie(0x50));
}

TEST_F(LeaseList, OnlyTheLastLeaseOfAFileUnlocksItThroughTheCallersLibrary)
{
    const auto first = add({.message = 1});
    const auto second = add({.message = 2, .volume = 0x33});

    EXPECT_EQ(remove(first, &PluginB::library), 0u);
    EXPECT_THAT(g_calls, IsEmpty());
    EXPECT_EQ(remove(second, &PluginB::library), 0u);
    EXPECT_THAT(g_calls, ElementsAre("1 UnlockMap 3334 5051"));
}

TEST_F(LeaseList, TracesAnEndThatLeavesTheFileLocked)
{
    globalKey = 0x1f;
    const auto first = add({.message = 1});
    add({.message = 2});
    collect_traces();

    EXPECT_EQ(remove(first), 0u);

    ASSERT_EQ(g_traces.size(), 19u);
    EXPECT_EQ(g_traces[0], "MoreCookiesInList\n");
    EXPECT_EQ(g_traces[1], "Key Data for 0x20\n");
    EXPECT_EQ(g_traces[9], "Skipping unlock,dup key detect (below)\n");
    EXPECT_EQ(g_traces[10], "Key Data for 0x1f\n");
    EXPECT_EQ(g_traces[18], "Removed from lease list key:31(0x1f) a label\n");
}

TEST_F(LeaseList, TheOldestOfThreeLeasesOfAFileMayGoFirstOrLast)
{
    for (int order = 0; order < 6; ++order) {
        g_calls.clear();
        std::vector<std::uint32_t> leases = {add({.message = 1}), add({.message = 2}),
                                             add({.message = 3})};
        for (int step = 0; step < order; ++step)
            std::next_permutation(leases.begin(), leases.end());
        EXPECT_EQ(remove(leases[0]), 0u);
        EXPECT_EQ(MoreCookiesInList(cookie(0x50).data()), 1);
        EXPECT_EQ(remove(leases[1]), 0u);
        EXPECT_EQ(MoreCookiesInList(cookie(0x50).data()), 1);
        EXPECT_THAT(g_calls, IsEmpty());
        EXPECT_EQ(remove(leases[2]), 0u);
        EXPECT_EQ(MoreCookiesInList(cookie(0x50).data()), 0);
        EXPECT_EQ(g_calls.size(), 1u);
    }
}

TEST_F(LeaseList, FindsTheLeaseOfARequest)
{
    const auto key = add({});
    LeaseRecord* found = nullptr;

    EXPECT_EQ(MoreCookiesInList2(cookie(0).data(), cookie(0x50).data(), cookie(1, 16).data(),
                                 cookie(2, 16).data(), &found),
              1);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->key, key);
    LeaseRecord* none = nullptr;
    EXPECT_EQ(MoreCookiesInList2(cookie(0).data(), cookie(0x50).data(), cookie(1, 16).data(),
                                 cookie(3, 16).data(), &none),
              0);
    EXPECT_EQ(none, nullptr);
}

TEST_F(LeaseList, DumpsAllKeys)
{
    globalKey = 4;
    add({.message = 1});
    add({.file = 0x70});
    collect_traces();

    FSMDCSP_DumpKeyList();

    ASSERT_EQ(g_traces.size(), 10u);
    EXPECT_EQ(g_traces[0], "Key List Start\n");
    EXPECT_EQ(g_traces[1], "  key: 5\n");
    EXPECT_EQ(g_traces[2].substr(0, 18), "  volcookie:10 11 ");
    EXPECT_EQ(g_traces[3].substr(0, 19), "  filecookie:70 71 ");
    EXPECT_EQ(g_traces[4], "\n");
    EXPECT_EQ(g_traces[5], "  key: 4\n");
    EXPECT_EQ(g_traces[9], "Key List End\n");
}

TEST_F(LeaseList, AnEmptyListSaysSo)
{
    collect_traces();

    FSMDCSP_DumpKeyList();

    EXPECT_THAT(g_traces, ElementsAre("FTX2014I Key list is empty\n"));
}

}  // namespace
}  // namespace fsmdc_test
