// The lease list: grants, duplicates, renewals, ends and purges, and what they trace.
#include "tests/fsmdc/fake_clock.hpp"
#include "tests/fsmdc/service_fixture.hpp"

namespace fsmdc_test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

class LeaseList : public ServiceTest {
protected:
    LeaseList() { g_clock_s = 1000; }

    struct Grant {
        unsigned char file = 0x50;
        unsigned char message = 1;
        unsigned char client = 2;
        std::int32_t intention = 1;
        std::uint32_t duration_ms = 5000;
        FsLibrary* library = &PluginA::library;
        unsigned char volume = 0x10;
    };
    static std::uint32_t add(const Grant& grant)
    {
        std::uint32_t key = 0xDEAD;
        EXPECT_EQ(AddLeaseToList(cookie(grant.volume).data(), cookie(grant.file).data(),
                                 cookie(grant.message, 16).data(), cookie(grant.client, 16).data(),
                                 grant.intention, grant.duration_ms, &key, grant.library),
                  0);
        return key;
    }
    // Leases of as many files, under keys from 0 on.
    static void add_files(std::uint32_t count)
    {
        globalKey = 0;
        for (std::uint32_t i = 0; i < count; ++i) {
            Bytes file(32);
            put32(file, 0, __builtin_bswap32(i));
            ASSERT_EQ(AddLeaseToList(cookie(0x10).data(), file.data(), cookie(1, 16).data(),
                                     cookie(2, 16).data(), 1, 5000, nullptr, nullptr),
                      0);
        }
    }
    static LeaseRecord copy_of(std::uint32_t key)
    {
        LeaseRecord copy{};
        EXPECT_EQ(GetLeaseCopy(key, &copy), 0u) << "key " << key;
        return copy;
    }
    static bool is_listed(std::uint32_t key)
    {
        LeaseRecord copy;
        return GetLeaseCopy(key, &copy) == 0;
    }
    static std::uint32_t remove(std::uint32_t key, FsLibrary* library = &PluginA::library)
    {
        Bytes volume(32);
        Bytes file(32);
        return RemoveLeaseFromList(key, volume.data(), file.data(), library, "a label");
    }
    static std::vector<std::uint32_t> keys()
    {
        std::vector<std::uint32_t> listed;
        for (const LeaseRecord* lease = leaseListHeadGlb.next; lease != &leaseListHeadGlb;
             lease = lease->next) {
            EXPECT_EQ(lease->next->prev, lease);
            listed.push_back(lease->key);
        }
        return listed;
    }
};

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

// A lease of 5000 ms granted at second 1000 lives through second 1034 and goes at 1035.
TEST_F(LeaseList, APurgeTakesALeaseAtItsGracesEnd)
{
    const auto key = add({.duration_ms = 5000});
    g_clock_s = 1034;
    EXPECT_EQ(PurgeLeaseList(), 0);
    EXPECT_TRUE(is_listed(key));
    g_clock_s = 1035;
    EXPECT_EQ(PurgeLeaseList(), 0);
    EXPECT_FALSE(is_listed(key));
    EXPECT_THAT(g_calls, ElementsAre("0 UnlockMap 1011 5051"));
}

TEST_F(LeaseList, AGrantPurgesToo)
{
    const auto key = add({.duration_ms = 5000});
    g_clock_s = 1034;
    add({.file = 0x60});
    EXPECT_TRUE(is_listed(key));
    g_clock_s = 1035;
    add({.file = 0x70});
    EXPECT_FALSE(is_listed(key));
    EXPECT_THAT(g_calls, ElementsAre("0 UnlockMap 1011 5051"));
}

TEST_F(LeaseList, ARenewedLeaseIsPurgedByItsNewTime)
{
    const auto key = add({.duration_ms = 3600000});
    ChangeLeaseEntry(key, 1000);
    g_clock_s = 1031;

    add({.file = 0x60});

    EXPECT_FALSE(is_listed(key));
}

TEST_F(LeaseList, TracesAPurgeNewestFirstAndUnlocksOnce)
{
    globalKey = 0x10;
    add({.message = 1, .intention = 1, .duration_ms = 1000});
    add({.message = 2, .intention = 2, .duration_ms = 2000});
    g_clock_s = 1040;
    collect_traces();

    EXPECT_EQ(PurgeLeaseList(), 0);

    ASSERT_EQ(g_traces.size(), 12u);
    EXPECT_EQ(g_traces[0],
              "Purged lease  key:0x11, intention:2  duration:2000 creation:1000000 time:1040000\n");
    EXPECT_EQ(g_traces[1], "MoreCookiesInList\n");
    EXPECT_EQ(g_traces[2], "Key Data for 0x10\n");
    EXPECT_EQ(g_traces[10],
              "Purged lease  key:0x10, intention:1  duration:1000 creation:1000000 time:1040000\n");
    EXPECT_EQ(g_traces[11], "purging expired lease 0x10\n");
    EXPECT_THAT(g_calls, ElementsAre("0 UnlockMap 1011 5051"));
}

// Both ways of purging drop leases in the order of the list.
TEST_F(LeaseList, BothPurgesGoNewestFirst)
{
    for (const bool by_grant : {false, true}) {
        g_clock_s = 1000;
        for (unsigned char i = 0; i < 20; ++i) {
            add({.file = static_cast<unsigned char>(0x60 + i),
                 .duration_ms = static_cast<std::uint32_t>((i * 7 % 20) * 1000)});
        }
        g_clock_s = 1100;
        g_calls.clear();
        if (by_grant) {
            add({.file = 0x20, .library = nullptr});
        } else {
            EXPECT_EQ(PurgeLeaseList(), 0);
        }
        std::vector<std::string> wanted;
        for (int i = 19; i >= 0; --i) {
            const Bytes file = cookie(static_cast<unsigned char>(0x60 + i));
            wanted.push_back("0 UnlockMap 1011 " + hex(file.data(), 2));
        }
        EXPECT_EQ(g_calls, wanted) << "by a grant: " << by_grant;
    }
}

// One request drops 1024 leases at the most; the purge itself goes on to the end, newest first.
TEST_F(LeaseList, AMassExpiryIsSharedOut)
{
    constexpr std::uint32_t kLeases = 3000;
    add_files(kLeases);
    g_clock_s = 2000;

    add({});
    EXPECT_EQ(keys().size(), kLeases + 1 - 1024);

    collect_traces();
    EXPECT_EQ(PurgeLeaseList(), 0);
    EXPECT_EQ(keys().size(), 1u);
    ASSERT_EQ(g_traces.size(), 2 * (kLeases - 1024));
    unsigned last = kLeases;
    for (std::size_t i = 1; i < g_traces.size(); i += 2) {
        unsigned key = 0;
        ASSERT_EQ(std::sscanf(g_traces[i].c_str(), "purging expired lease 0x%x", &key), 1);
        ASSERT_LT(key, last);
        last = key;
    }
}

// While the list is long a request drops two leases for the one that it adds.
TEST_F(LeaseList, ARequestDropsLittleOfALongList)
{
    constexpr std::uint32_t kLeases = 8200;
    add_files(kLeases);
    g_clock_s = 2000;

    for (std::uint32_t i = 1; i <= 9; ++i) {
        add({.file = static_cast<unsigned char>(i)});
        EXPECT_EQ(keys().size(), kLeases - i);
    }
    add({.file = 10});  // 8192 with this one: not long any more
    EXPECT_EQ(keys().size(), kLeases - 9 + 1 - 1024);

    EXPECT_EQ(PurgeLeaseList(), 0);
    EXPECT_EQ(keys().size(), 10u);
}

TEST_F(LeaseList, APurgedLeaseWithoutALibraryUnlocksNothing)
{
    const auto key = add({.library = nullptr});
    g_clock_s = 2000;

    EXPECT_EQ(PurgeLeaseList(), 0);

    EXPECT_FALSE(is_listed(key));
    EXPECT_THAT(g_calls, IsEmpty());
}

// Whoever changes a record behind the list's back is heeded by every purge.
TEST_F(LeaseList, AChangedRecordIsPurgedByWhatItSays)
{
    for (const bool by_grant : {false, true}) {
        g_clock_s = 4000;
        const auto key = add({.duration_ms = 3600000});
        LeaseRecord* const lease = GetLeasePointer(key);
        ASSERT_NE(lease, nullptr);
        lease->creationTime -= 3630000;
        if (by_grant) {
            add({.file = 0x60});
        } else {
            EXPECT_EQ(PurgeLeaseList(), 0);
        }
        EXPECT_FALSE(is_listed(key)) << "by a grant: " << by_grant;
    }
}

// The same when nobody asked for the record: a short list is looked through by every purge.
TEST_F(LeaseList, ARecordChangedThroughTheListIsHeededByThePurge)
{
    for (const bool by_grant : {false, true}) {
        g_clock_s = 1000;
        const auto key = add({.duration_ms = 3600000});
        leaseListHeadGlb.next->duration = 0;
        g_clock_s = 1030;
        if (by_grant) {
            add({.file = 0x60});
        } else {
            EXPECT_EQ(PurgeLeaseList(), 0);
        }
        EXPECT_FALSE(is_listed(key)) << "by a grant: " << by_grant;
    }
}

// An age below zero counts as almost 2^32.
TEST_F(LeaseList, AClockSetBackExpiresWhatWasGrantedAfterIt)
{
    const auto older = add({.file = 0x60, .duration_ms = 100000});
    g_clock_s = 1010;
    const auto newer = add({.file = 0x61, .duration_ms = 100000});
    g_clock_s = 1005;

    add({.file = 0x62, .duration_ms = 100000});

    EXPECT_TRUE(is_listed(older));
    EXPECT_FALSE(is_listed(newer));
}

// The clock wraps after 4294967296 ms: 4294967 s is 704 ms short of it.
TEST_F(LeaseList, ALeaseLivesThroughTheClocksWrap)
{
    g_clock_s = 4294960;
    const auto key = add({.duration_ms = 10000});  // due 40001 ms later: the wrap costs one
    g_clock_s = 4294999;
    add({.file = 0x60, .duration_ms = 3600000});
    EXPECT_TRUE(is_listed(key));
    g_clock_s = 4295000;  // an age of 40000, less one
    add({.file = 0x61, .duration_ms = 3600000});
    EXPECT_TRUE(is_listed(key));
    g_clock_s = 4295001;
    add({.file = 0x62, .duration_ms = 3600000});
    EXPECT_FALSE(is_listed(key));
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

TEST_F(LeaseList, KeysWrapWithoutMixingUpTheOrder)
{
    globalKey = 0xFFFFFFFF;
    add({.file = 0x60});
    add({.file = 0x61});
    g_clock_s = 2000;
    g_calls.clear();

    add({.file = 0x62});

    EXPECT_THAT(g_calls, ElementsAre("0 UnlockMap 1011 6162", "0 UnlockMap 1011 6061"));
}

}  // namespace
}  // namespace fsmdc_test
