// How many answered requests are kept, and which go first.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "lan/server.h"
#include "tests/lan/trace_capture.hpp"
#include "tests/lan/tracking_fixture.hpp"

namespace lan_test {
namespace {

using testing::ElementsAre;

constexpr const char* kPurging = "purging tracker\n";

class TrackerPurge : public Tracking {};

TEST_F(TrackerPurge, HundredAreKeptAndOneMoreLeavesNinetyNine)
{
    const TraceCapture trace;
    complete(100);
    EXPECT_EQ(complete_entries(), 100U);
    EXPECT_EQ(trace.count(kPurging), 0U);

    complete(1, 100);

    EXPECT_EQ(complete_entries(), 99U);
    EXPECT_EQ(server_->completed, 99U);
    EXPECT_EQ(trace.count(kPurging), 2U);
    EXPECT_EQ(listed().front(), 2);
    EXPECT_EQ(listed().back(), 100);
}

TEST_F(TrackerPurge, PurgeSkipsWhatIsInProcess)
{
    MaxTrack = 3;
    complete(1, 10);
    process(native({.code = 2, .identifier = 11}));
    complete(3, 12);

    EXPECT_THAT(listed(), ElementsAre(11, 13, 14));
    EXPECT_EQ(server_->completed, 2U);
}

// An entry that completes late is as old as its place in the list, not as its reply.
TEST_F(TrackerPurge, PurgeGoesByPlaceInTheList)
{
    MaxTrack = 4;
    g_inside = [&] { complete(3, 21); };
    complete(1, 20);
    EXPECT_THAT(listed(), ElementsAre(20, 21, 22, 23));

    complete(1, 24);

    EXPECT_THAT(listed(), ElementsAre(22, 23, 24));
}

TEST_F(TrackerPurge, LimitZeroKeepsNothing)
{
    MaxTrack = 0;
    const TraceCapture trace;

    complete(3);

    EXPECT_TRUE(entries().empty());
    EXPECT_EQ(server_->completed, 0U);
    EXPECT_EQ(trace.count(kPurging), 3U);
}

TEST_F(TrackerPurge, LimitOneKeepsOneOrNone)
{
    MaxTrack = 1;

    complete(1, 1);
    EXPECT_EQ(complete_entries(), 1U);
    complete(1, 2);
    EXPECT_EQ(complete_entries(), 0U);
}

TEST_F(TrackerPurge, NegativeLimitNeverPurges)
{
    MaxTrack = -1;

    complete(250);

    EXPECT_EQ(complete_entries(), 250U);
}

// A smaller limit at run time takes the surplus away at once.
TEST_F(TrackerPurge, LoweredLimitPurgesDownToIt)
{
    complete(50);
    MaxTrack = 10;

    complete(1, 50);

    EXPECT_EQ(complete_entries(), 9U);
    EXPECT_EQ(server_->completed, 9U);
    EXPECT_EQ(listed().front(), 42);
}

TEST_F(TrackerPurge, PurgedRequestIsExecutedAgain)
{
    MaxTrack = 1;
    complete(2);
    EXPECT_EQ(g_calls, 2);

    complete(1);

    EXPECT_EQ(g_calls, 3);
}

TEST_F(TrackerPurge, PurgeNeedsTrackingAndSurplus)
{
    complete(5);
    MaxTrack = 5;
    PurgeTrackerList(server_);
    EXPECT_EQ(complete_entries(), 5U);

    TrackMessages = 0;
    MaxTrack = 0;
    PurgeTrackerList(server_);
    EXPECT_EQ(complete_entries(), 5U);
}

TEST_F(TrackerPurge, RefusedLengthPurgesToo)
{
    complete(5);
    MaxTrack = 2;

    process(native({.length = 47}));

    EXPECT_EQ(complete_entries(), 1U);
}

TEST_F(TrackerPurge, DroppedDuplicateDoesNotPurge)
{
    process(native({.code = 2}));
    complete(5);
    MaxTrack = 2;

    process(native({.code = 2}));

    EXPECT_EQ(complete_entries(), 5U);
}

}  // namespace
}  // namespace lan_test
