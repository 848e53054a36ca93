// The lease list as an administrator sees it: the cursor that lets go of the lock, what a lease
// looks like, and its end by hand.
#include "fsmdc/lease_list.hpp"
#include "tests/fsmdc/fake_clock.hpp"
#include "tests/fsmdc/service_fixture.hpp"

namespace fsmdc_test {
namespace {

using ::corvane::LeaseCursor;
using ::corvane::LeaseView;
using ::corvane::release_lease;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class LeaseViews : public ServiceTest {
protected:
    LeaseViews()
    {
        g_clock_s = 1'700'000'000;
        globalKey = 0;
    }

    static std::uint32_t add(unsigned char file, unsigned char message,
                             FsLibrary* library = &PluginA::library)
    {
        std::uint32_t key = 0;
        EXPECT_EQ(
            AddLeaseToList(cookie(0x10).data(), cookie(file).data(), cookie(message, 16).data(),
                           cookie(2, 16).data(), 1, 5000, &key, library),
            0);
        return key;
    }
    static std::vector<std::uint32_t> read(LeaseCursor& cursor, std::size_t count)
    {
        std::vector<LeaseView> views(count);
        views.resize(cursor.next(views));
        std::vector<std::uint32_t> keys;
        keys.reserve(views.size());
        for (const LeaseView& view : views) keys.push_back(view.record.key);
        return keys;
    }
    static LeaseView view_of(std::uint32_t key)
    {
        LeaseCursor cursor;
        cursor.start();
        std::array<LeaseView, 1> view{};
        while (cursor.next(view) != 0) {
            if (view[0].record.key == key) return view[0];
        }
        ADD_FAILURE() << "no lease " << key;
        return {};
    }
};

TEST_F(LeaseViews, ACursorReadsNewestFirstAndEnds)
{
    LeaseCursor cursor;
    EXPECT_THAT(read(cursor, 4), IsEmpty()) << "not begun";
    for (unsigned char i = 0; i < 5; ++i) add(0x50, i);

    cursor.start();

    EXPECT_THAT(read(cursor, 3), ElementsAre(4, 3, 2));
    EXPECT_THAT(read(cursor, 3), ElementsAre(1, 0));
    EXPECT_THAT(read(cursor, 3), IsEmpty());
    EXPECT_THAT(read(cursor, 3), IsEmpty());
    cursor.start();
    EXPECT_THAT(read(cursor, 2), ElementsAre(4, 3));
}

// Wherever two cursors stand, leases may go and come.
TEST_F(LeaseViews, ACursorOutlivesTheLeaseItStandsOn)
{
    for (unsigned char i = 0; i < 6; ++i) add(0x50, i);
    LeaseCursor one;
    LeaseCursor other;
    one.start();
    other.start();
    EXPECT_THAT(read(one, 2), ElementsAre(5, 4));
    EXPECT_THAT(read(other, 3), ElementsAre(5, 4, 3));

    EXPECT_TRUE(release_lease(3));
    EXPECT_TRUE(release_lease(2));
    EXPECT_TRUE(release_lease(4));
    add(0x50, 9);

    EXPECT_THAT(read(one, 9), ElementsAre(1, 0));
    EXPECT_THAT(read(other, 1), ElementsAre(1));
    EXPECT_TRUE(release_lease(0));
    EXPECT_THAT(read(other, 1), IsEmpty());
}

TEST_F(LeaseViews, ACursorThatIsGoneLeavesNothingBehind)
{
    for (unsigned char i = 0; i < 3; ++i) add(0x50, i);
    {
        LeaseCursor cursor;
        cursor.start();
        EXPECT_THAT(read(cursor, 1), ElementsAre(2));
    }
    for (std::uint32_t key = 0; key < 3; ++key) EXPECT_TRUE(release_lease(key));
    EXPECT_EQ(leaseListHeadGlb.next, &leaseListHeadGlb);
}

TEST_F(LeaseViews, TimesAndRequests)
{
    const std::uint32_t key = add(0x50, 1);
    g_clock_s += 100;
    EXPECT_EQ(ChangeLeaseEntry(key, 60'000), 0);
    g_clock_s += 7;
    LeaseRecord copy;
    EXPECT_EQ(GetLeaseCopy(key, &copy), 0U);
    EXPECT_EQ(corvane::peek_lease(key, &copy), 0U);
    EXPECT_EQ(corvane::peek_lease(key + 1, &copy), 407U);

    const LeaseView view = view_of(key);

    EXPECT_EQ(view.granted_s, 1'700'000'000);
    EXPECT_EQ(view.renewed_s, 1'700'000'100);
    EXPECT_EQ(view.until_s, 1'700'000'160);
    EXPECT_EQ(view.requests, 2U) << "its grant and the copy";
    EXPECT_EQ(view.record.intention, 1);
    EXPECT_EQ(view.record.next, nullptr);
}

TEST_F(LeaseViews, ReleaseUnlocksAfterTheFilesLastLease)
{
    const std::uint32_t first = add(0x50, 1);
    const std::uint32_t second = add(0x50, 2);
    const std::uint32_t other = add(0x60, 3, nullptr);
    g_calls.clear();

    const auto view = release_lease(first);
    ASSERT_TRUE(view);
    EXPECT_EQ(view->record.key, first);
    EXPECT_THAT(g_calls, IsEmpty());
    EXPECT_FALSE(release_lease(first));
    EXPECT_TRUE(release_lease(other)) << "of no plug-in";
    EXPECT_THAT(g_calls, IsEmpty());
    EXPECT_TRUE(release_lease(second));
    EXPECT_THAT(g_calls, ElementsAre(StartsWith("0 UnlockMap ")));
}

}  // namespace
}  // namespace fsmdc_test
