// Leases: renewed in time, given up when they cannot be, closed on every way out.
#include "client/lease.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "client/failure.hpp"
#include "client/open_file.hpp"
#include "tests/client/fake_controller.hpp"

namespace corvane {
namespace {

using test::FakeController;
using test::kFakeKey;
using test::one_disk_script;
using test::Script;

Script file_script()
{
    Script script = one_disk_script();
    script.file_size = 8192;
    script.allocation = 8192;
    script.extents = {{0, 4096, 8192, 0, 0}};
    return script;
}

std::uint32_t failure_code(const std::function<void()>& body)
{
    try {
        body();
    } catch (const Failure& failure) {
        return failure.code();
    }
    return 0;
}

TEST(Lease, IsRenewedByASmallReadMapWhileTheFileIsOpen)
{
    Script script = file_script();
    script.lease_ms = 400;
    FakeController controller(script);
    const Exchange exchange(controller.endpoint());
    OpenFile file(exchange, "data", "f", Intention::kWrite);

    ASSERT_TRUE(controller.wait_for(3, 3));
    EXPECT_NO_THROW(file.check_lease());
    for (const auto& asked : controller.asked(3)) {
        EXPECT_EQ(asked.key, kFakeKey);
        EXPECT_EQ(asked.length, 4096);
        EXPECT_EQ(asked.file_size, -1);
        EXPECT_EQ(asked.allocation, -1);
    }
    file.close();
}

TEST(Lease, EndsWhenTheControllerFallsSilent)
{
    Script script = file_script();
    script.lease_ms = 300;
    FakeController controller(script);
    const Exchange exchange(controller.endpoint());
    OpenFile file(exchange, "data", "f", Intention::kRead);
    controller.change([](Script& changed) { changed.map_code = 408; });
    while (failure_code([&] { file.check_lease(); }) == 0) std::this_thread::yield();

    EXPECT_EQ(failure_code([&] { file.check_lease(); }), kLeaseEnded);
}

TEST(Lease, IsLostAtOnceWhenTheKeyIsUnknown)
{
    Script script = file_script();
    script.lease_ms = 2000;
    FakeController controller(script);
    const Exchange exchange(controller.endpoint());
    OpenFile file(exchange, "data", "f", Intention::kRead);
    controller.change([](Script& changed) { changed.map_code = 407; });
    ASSERT_TRUE(controller.wait_for(3, 1));
    while (failure_code([&] { file.check_lease(); }) == 0) std::this_thread::yield();

    try {
        file.check_lease();
    } catch (const Failure& failure) {
        EXPECT_STREQ(
            failure.what(),
            "the lease on the file ended (renewing it failed: Invalid key (code 407)); run the "
            "command again once the controller answers");
    }
}

TEST(Lease, WithoutTimeIsNoLease)
{
    for (const std::int32_t granted : {0, -1, INT32_MIN}) {
        Script script = file_script();
        script.lease_ms = granted;
        FakeController controller(script);
        const Exchange exchange(controller.endpoint());
        OpenFile file(exchange, "data", "f", Intention::kRead);

        EXPECT_EQ(failure_code([&] { file.check_lease(); }), kLeaseEnded);
    }
}

TEST(Lease, SurvivesARenewalThatGotLost)
{
    Script script = file_script();
    script.lease_ms = 6000;
    FakeController controller(script);
    const Exchange exchange(controller.endpoint());
    OpenFile file(exchange, "data", "f", Intention::kRead);
    controller.change([](Script& changed) { changed.requests_to_drop = 1; });

    ASSERT_TRUE(controller.wait_for(3, 2));
    EXPECT_NO_THROW(file.check_lease());
}

TEST(Lease, LeavesRoomForATransferAsLongAsTheLongest)
{
    using std::chrono::seconds;
    Script script = file_script();
    script.lease_ms = 3600000;
    FakeController controller(script);
    const Exchange exchange(controller.endpoint());
    OpenFile file(exchange, "data", "f", Intention::kRead);

    file.end_transfer(Clock::now() - seconds(1000));
    EXPECT_NO_THROW(file.check_lease());
    file.end_transfer(Clock::now() - seconds(3596));
    try {
        file.check_lease();
        ADD_FAILURE() << "the next one may take as long";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), kLeaseEnded);
        EXPECT_NE(std::strstr(failure.what(), "one transfer took 3596"), nullptr) << failure.what();
    }
    file.end_transfer(Clock::now());
    EXPECT_EQ(failure_code([&] { file.check_lease(); }), kLeaseEnded) << "once slow, always slow";
}

TEST(Lease, TransferThatItDidNotOutlastIsReported)
{
    Script script = file_script();
    script.lease_ms = -1;
    FakeController controller(script);
    const Exchange exchange(controller.endpoint());
    OpenFile file(exchange, "data", "f", Intention::kRead);

    EXPECT_EQ(failure_code([&] { file.end_transfer(Clock::now()); }), kLeaseEnded);
}

TEST(Lease, BudgetOfATransferIsAPartOfTheMargin)
{
    using std::chrono::milliseconds;
    for (const auto& [lease_ms, budget_ms] :
         {std::pair{1600, 100}, {20000, 1250}, {60000, 1250}, {0, 0}}) {
        Script script = file_script();
        script.lease_ms = lease_ms;
        FakeController controller(script);
        const Exchange exchange(controller.endpoint());
        const OpenFile file(exchange, "data", "f", Intention::kRead);

        EXPECT_EQ(file.transfer_budget(), milliseconds(budget_ms)) << lease_ms;
    }
}

// How far the lease clock is ahead of the one that stands still while the host sleeps, in a time
// namespace whose host slept for `slept_s`; negative when there is none to be had.
int seconds_ahead(int slept_s)
{
    const pid_t parent = fork();
    if (parent == 0) {
        const std::string offset = "boottime " + std::to_string(slept_s) + " 0";
        const int file = unshare(CLONE_NEWTIME) == 0
                             ? open("/proc/self/timens_offsets", O_WRONLY | O_CLOEXEC)
                             : -1;
        if (file < 0 || write(file, offset.data(), offset.size()) < 0) _exit(255);
        const pid_t child = fork();  // the first process that lives in the namespace
        if (child == 0) {
            const auto ahead = Clock::now().time_since_epoch() -
                               std::chrono::steady_clock::now().time_since_epoch();
            _exit(static_cast<int>(ahead / std::chrono::seconds(10)));
        }
        int status = 0;
        (void)waitpid(child, &status, 0);
        _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 255);
    }
    int status = 0;
    (void)waitpid(parent, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) != 255 ? WEXITSTATUS(status) * 10 : -1;
}

TEST(LeaseClock, GoesOnWhileTheHostSleeps)
{
    const int awake = seconds_ahead(0);
    const int slept = seconds_ahead(1000);
    if (awake < 0 || slept < 0)
        GTEST_SKIP() << "no time namespaces here: not root, or no kernel support";

    EXPECT_GE(slept - awake, 990);
}

TEST(Lease, IsClosedOnceByCloseOrByTheEndOfTheObject)
{
    FakeController controller(file_script());
    const Exchange exchange(controller.endpoint());
    {
        OpenFile file(exchange, "data", "f", Intention::kRead);
    }
    {
        OpenFile file(exchange, "data", "f", Intention::kWrite);
        file.close(777);
    }
    const auto closes = controller.asked(5);

    ASSERT_EQ(closes.size(), 2U);
    EXPECT_EQ(closes[0].file_size, -1);
    EXPECT_EQ(closes[1].file_size, 777);
    EXPECT_EQ(closes[1].key, kFakeKey);
}

TEST(Lease, IsClosedWhenTheFirstMapIsRefused)
{
    Script script = file_script();
    script.extents = {{0, 4096, 8192, 5, 0}};  // no such disk
    FakeController controller(script);
    const Exchange exchange(controller.endpoint());

    EXPECT_EQ(failure_code([&] { OpenFile file(exchange, "data", "f", Intention::kRead); }),
              kBadReply);
    EXPECT_EQ(controller.asked(5).size(), 1U);
}

TEST(Lease, IsClosedWhenTheVolumeIsRefused)
{
    Script script = file_script();
    script.block_bytes = 100;
    FakeController controller(script);
    const Exchange exchange(controller.endpoint());

    EXPECT_EQ(failure_code([&] { OpenFile file(exchange, "data", "f", Intention::kRead); }),
              kBadReply);
    EXPECT_EQ(controller.asked(5).size(), 1U);
}

TEST(Lease, IsClosedAfterAWishToStop)
{
    FakeController controller(file_script());
    std::atomic<bool> stop{false};
    const Exchange exchange(controller.endpoint(), &stop);
    {
        OpenFile file(exchange, "data", "f", Intention::kRead);
        stop = true;
        EXPECT_EQ(failure_code([&] { (void)file.whole_map(file.size()); }), kInterrupted);
    }

    EXPECT_EQ(controller.asked(5).size(), 1U);
}

TEST(OpenFile, NothingIsClosedWhenNothingWasOpened)
{
    Script script = file_script();
    script.open_code = 405;
    FakeController controller(script);
    const Exchange exchange(controller.endpoint());

    EXPECT_EQ(failure_code([&] { OpenFile file(exchange, "data", "f", Intention::kRead); }), 405U);
    EXPECT_TRUE(controller.asked(5).empty());
}

TEST(OpenFile, AsksForTheFilesOwnVolumeByItsCookie)
{
    FakeController controller(file_script());
    const Exchange exchange(controller.endpoint());
    OpenFile file(exchange, "data", "dir/f", Intention::kWrite);
    const auto opens = controller.asked(2);
    const auto volumes = controller.asked(1);

    ASSERT_EQ(opens.size(), 1U);
    EXPECT_EQ(opens[0].share, "data");
    EXPECT_EQ(opens[0].file, "dir/f");
    EXPECT_NE(opens[0].intention, 1);
    EXPECT_EQ(opens[0].flags, 1U);
    EXPECT_EQ(opens[0].file_size, -1);
    EXPECT_EQ(opens[0].allocation, -1);
    ASSERT_EQ(volumes.size(), 1U);
    EXPECT_EQ(volumes[0].share, "");
    EXPECT_EQ(volumes[0].volume_cookie, std::string(32, 'v'));
}

TEST(Exchange, AsksAgainWithTheSameIdentifier)
{
    Script script = file_script();
    script.requests_to_drop = 1;
    FakeController controller(script);
    Endpoint endpoint = controller.endpoint();
    endpoint.timeout_s = 1;
    const Exchange exchange(endpoint);
    (void)ask_volume(exchange, "data");
    const auto asked = controller.asked();

    ASSERT_EQ(asked.size(), 2U);
    EXPECT_EQ(asked[0].message_id, asked[1].message_id);
}

TEST(Exchange, SilenceEndsWithATimeout)
{
    Script script = file_script();
    script.requests_to_drop = 1000;
    FakeController controller(script);
    Endpoint endpoint = controller.endpoint();
    endpoint.timeout_s = 1;
    endpoint.tries = 1;
    const Exchange exchange(endpoint);

    EXPECT_EQ(failure_code([&] { (void)ask_volume(exchange, "data"); }), 1106U);
}

TEST(Exchange, RepliesOfAnotherFunctionOrLengthAreRefused)
{
    FakeController controller(file_script());
    const Exchange exchange(controller.endpoint());
    controller.change(
        [](Script& script) { script.tamper = [](test::Bytes& reply) { reply.put32(24, -5); }; });
    EXPECT_EQ(failure_code([&] { (void)ask_volume(exchange, "data"); }), kBadReply);
    controller.change(
        [](Script& script) { script.tamper = [](test::Bytes& reply) { reply.put32(28, 60000); }; });
    EXPECT_EQ(failure_code([&] { (void)ask_volume(exchange, "data"); }), kBadReply);
    controller.change(
        [](Script& script) { script.tamper = [](test::Bytes& reply) { reply.resize(47); }; });
    EXPECT_NE(failure_code([&] { (void)ask_volume(exchange, "data"); }), 0U);
}

}  // namespace
}  // namespace corvane
