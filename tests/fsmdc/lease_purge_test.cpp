// Which leases a purge drops, in which order, and how much of it a request does.
#include "tests/fsmdc/lease_list_fixture.hpp"

namespace fsmdc_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class LeasePurge : public LeaseList {};

// A lease of 5000 ms granted at second 1000 lives through second 1034 and goes at 1035.
TEST_F(LeasePurge, APurgeTakesALeaseAtItsGracesEnd)
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

TEST_F(LeasePurge, AGrantPurgesToo)
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

TEST_F(LeasePurge, ARenewedLeaseIsPurgedByItsNewTime)
{
    const auto key = add({.duration_ms = 3600000});
    ChangeLeaseEntry(key, 1000);
    g_clock_s = 1031;

    add({.file = 0x60});

    EXPECT_FALSE(is_listed(key));
}

TEST_F(LeasePurge, TracesAPurgeNewestFirstAndUnlocksOnce)
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
TEST_F(LeasePurge, BothPurgesGoNewestFirst)
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
TEST_F(LeasePurge, AMassExpiryIsSharedOut)
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
TEST_F(LeasePurge, ARequestDropsLittleOfALongList)
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

TEST_F(LeasePurge, APurgedLeaseWithoutALibraryUnlocksNothing)
{
    const auto key = add({.library = nullptr});
    g_clock_s = 2000;

    EXPECT_EQ(PurgeLeaseList(), 0);

    EXPECT_FALSE(is_listed(key));
    EXPECT_THAT(g_calls, IsEmpty());
}

// Whoever changes a record behind the list's back is heeded by every purge.
TEST_F(LeasePurge, AChangedRecordIsPurgedByWhatItSays)
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
TEST_F(LeasePurge, ARecordChangedThroughTheListIsHeededByThePurge)
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
TEST_F(LeasePurge, AClockSetBackExpiresWhatWasGrantedAfterIt)
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
TEST_F(LeasePurge, ALeaseLivesThroughTheClocksWrap)
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

TEST_F(LeasePurge, KeysWrapWithoutMixingUpTheOrder)
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
