// The C functions of the client library.
#include "client/client.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <memory>

#include "client/descriptor_owner.hpp"
#include "tests/client/fake_controller.hpp"

namespace corvane {
namespace {

using test::FakeController;
using test::image_with;
using test::kImageBytes;
using test::kSignature;
using test::kSliceStart;
using test::Script;
using test::TemporaryFile;

struct Free {
    void operator()(CorvaneClient* client) const { corvane_client_free(client); }
};
using Client = std::unique_ptr<CorvaneClient, Free>;

Script file_script()
{
    Script script = test::one_disk_script();
    script.file_size = 8192;
    script.allocation = 8192;
    script.extents = {{0, 4096, 4096, 0, 0}, {4096, 0, 4096, 0, 1}};
    return script;
}

Client client_of(const FakeController& controller, const std::string& disk)
{
    const char* const disks[] = {disk.c_str()};
    CorvaneClientOptions options{};
    options.port = controller.endpoint().port;
    options.disks = disks;
    options.disk_count = 1;
    return Client(corvane_client_create(&options));
}

TEST(ClientApi, PingVolumeAndMap)
{
    FakeController controller(file_script());
    const Client client = client_of(controller, "/dev/null");
    std::int64_t round_trip_us = -1;
    CorvaneVolume volume{};
    CorvaneVolumeDisk disk{};
    std::int64_t size = 0;
    std::size_t count = 0;
    CorvaneExtent extents[2] = {};

    EXPECT_EQ(corvane_client_ping(client.get(), &round_trip_us), 0U);
    EXPECT_GE(round_trip_us, 0);
    EXPECT_EQ(corvane_client_volume(client.get(), "data", &volume, &disk, 1), 0U);
    EXPECT_EQ(volume.disk_count, 1U);
    EXPECT_EQ(disk.first_block, 2);
    EXPECT_EQ(corvane_client_map(client.get(), "data", "f", &size, nullptr, 0, &count), 0U);
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(corvane_client_map(client.get(), "data", "f", &size, extents, 2, &count), 0U);
    EXPECT_EQ(size, 8192);
    EXPECT_EQ(extents[0].disk_offset, static_cast<std::int64_t>(kSliceStart) + 4096);
    EXPECT_EQ(extents[1].kind, CORVANE_EXTENT_HOLE);
    EXPECT_STREQ(corvane_client_error(client.get()), "");
}

TEST(ClientApi, ReadWriteAndSetSize)
{
    const TemporaryFile image(
        image_with(kSignature, kImageBytes, {{kSliceStart + 4096, std::string(4096, 'd')}}));
    FakeController controller(file_script());
    const Client client = client_of(controller, image.path());
    const TemporaryFile output;
    const TemporaryFile input("new contents");
    const Descriptor out(open(output.path().c_str(), O_RDWR));
    const Descriptor in(open(input.path().c_str(), O_RDONLY));

    EXPECT_EQ(corvane_client_read(client.get(), "data", "f", out.get()), 0U)
        << corvane_client_error(client.get());
    EXPECT_TRUE(output.contents() == std::string(4096, 'd') + std::string(4096, '\0'));
    EXPECT_EQ(corvane_client_write(client.get(), "data", "f", in.get()), 0U)
        << corvane_client_error(client.get());
    EXPECT_EQ(image.contents().substr(kSliceStart + 4096, 12), "new contents");
    EXPECT_EQ(corvane_client_set_size(client.get(), "data", "f", 100), 0U);
    EXPECT_EQ(controller.asked(4).at(0).file_size, 100);
}

TEST(ClientApi, FailuresHaveACodeAndALine)
{
    Script script = file_script();
    script.open_code = 104;
    FakeController controller(script);
    const Client client = client_of(controller, "/dev/null");
    std::int64_t size = 0;
    std::size_t count = 0;

    EXPECT_EQ(corvane_client_map(client.get(), "data", "f", &size, nullptr, 0, &count), 104U);
    EXPECT_STREQ(
        corvane_client_error(client.get()),
        "opening f of data failed: privilege error (code 104); check the rights of the file and "
        "of the controller's plug-in");
    EXPECT_EQ(corvane_client_set_size(client.get(), "data", "f", -1), CORVANE_E_BAD_ARGUMENT);
    EXPECT_EQ(corvane_client_write(client.get(), "data", "f", -1), CORVANE_E_LOCAL_FILE);
    EXPECT_EQ(corvane_client_map(client.get(), nullptr, nullptr, &size, nullptr, 0, &count),
              CORVANE_E_BAD_ARGUMENT);
}

TEST(ClientApi, StopEndsEverything)
{
    FakeController controller(file_script());
    const Client client = client_of(controller, "/dev/null");
    corvane_client_stop(client.get());

    EXPECT_EQ(corvane_client_ping(client.get(), nullptr), CORVANE_E_INTERRUPTED);
}

}  // namespace
}  // namespace corvane
