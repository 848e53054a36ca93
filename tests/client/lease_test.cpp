// Leases: renewed in time, given up when they cannot be, closed on every way out.
#include "client/lease.hpp"

#include <gtest/gtest.h>

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
