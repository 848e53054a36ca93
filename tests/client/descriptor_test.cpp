// The client of the local descriptor service.
#include "client/descriptor.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "tests/client/fake_descriptor_service.hpp"

namespace corvane {
namespace {

using test::FakeDescriptorService;
using test::send_descriptors;
using test::TemporaryFile;

std::size_t open_descriptor_count()
{
    namespace files = std::filesystem;
    const files::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

TEST(Descriptor, OpenedFileComesBackClosedOnExec)
{
    const TemporaryFile file("contents");
    std::string seen;
    int descriptor = -1;
    {
        const FakeDescriptorService service([&](const std::string& request, int connection) {
            seen = request;
            const Descriptor sent(open(request.c_str(), O_RDWR));
            send_descriptors(connection, {sent.get()});
        });
        descriptor = corvane_open_descriptor(file.path().c_str());
    }
    const Descriptor opened(descriptor);
    std::array<char, 8> text{};

    ASSERT_TRUE(opened.is_open());
    EXPECT_EQ(seen, file.path());
    EXPECT_EQ(read(opened.get(), text.data(), text.size()), 8);
    EXPECT_EQ(fcntl(opened.get(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST(Descriptor, EndOfFileWithoutDescriptorIsARefusal)
{
    const FakeDescriptorService service([](const std::string&, int) {});
    errno = 0;

    EXPECT_EQ(corvane_open_descriptor("/etc/hosts"), -1);
    EXPECT_EQ(errno, EREMOTEIO);
}

TEST(Descriptor, DataWithoutDescriptorIsARefusal)
{
    const FakeDescriptorService service(
        [](const std::string&, int connection) { (void)write(connection, "text", 4); });
    errno = 0;

    EXPECT_EQ(corvane_open_descriptor("/etc/hosts"), -1);
    EXPECT_EQ(errno, EREMOTEIO);
}

TEST(Descriptor, SpareDescriptorsAreClosed)
{
    const TemporaryFile file("contents");
    const std::size_t before = open_descriptor_count();
    {
        const FakeDescriptorService service([&](const std::string& request, int connection) {
            const Descriptor sent(open(request.c_str(), O_RDWR | O_CLOEXEC));
            send_descriptors(connection, {sent.get(), sent.get(), sent.get()});
        });
        const Descriptor opened(corvane_open_descriptor(file.path().c_str()));
        EXPECT_TRUE(opened.is_open());
    }

    EXPECT_EQ(open_descriptor_count(), before);
}

TEST(Descriptor, MoreDescriptorsThanFitLeaveNoneBehind)
{
    const TemporaryFile file("contents");
    const std::size_t before = open_descriptor_count();
    {
        const FakeDescriptorService service([&](const std::string& request, int connection) {
            const Descriptor sent(open(request.c_str(), O_RDWR | O_CLOEXEC));
            send_descriptors(connection, std::vector<int>(20, sent.get()));
        });
        const Descriptor opened(corvane_open_descriptor(file.path().c_str()));
        EXPECT_TRUE(opened.is_open());
    }

    EXPECT_EQ(open_descriptor_count(), before);
}

TEST(Descriptor, LogRequestsCarryTheirPrefix)
{
    const TemporaryFile file;
    std::vector<std::string> seen;
    {
        const FakeDescriptorService service(
            [&](const std::string& request, int connection) {
                seen.push_back(request);
                const Descriptor sent(open(request.c_str() + 5, O_RDWR | O_APPEND));
                if (request.starts_with("logop")) send_descriptors(connection, {sent.get()});
            },
            2);
        const Descriptor opened(corvane_open_log(file.path().c_str()));
        EXPECT_TRUE(opened.is_open());
        EXPECT_EQ(corvane_remove_log(file.path().c_str()), 0);
    }

    EXPECT_EQ(seen, (std::vector<std::string>{"logop" + file.path(), "logrm" + file.path()}));
}

TEST(Descriptor, PathsThatCannotBeAskedForAreRefused)
{
    struct Row {
        const char* name;
        std::string path;
        int wanted;
    };
    const Row rows[] = {{"relative", "etc/hosts", EINVAL},
                        {"empty", "", EINVAL},
                        {"too long", "/" + std::string(4095, 'a'), ENAMETOOLONG}};
    for (const Row& row : rows) {
        errno = 0;
        EXPECT_EQ(corvane_open_descriptor(row.path.c_str()), -1) << row.name;
        EXPECT_EQ(errno, row.wanted) << row.name;
    }
    EXPECT_EQ(corvane_open_descriptor(nullptr), -1);
    EXPECT_EQ(corvane_open_log(nullptr), -1);
    const std::string long_log(4091, 'a');
    EXPECT_EQ(corvane_open_log(long_log.c_str()), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST(Descriptor, AbsentServiceIsTold)
{
    ASSERT_EQ(setenv("CORVANEFIFO", "/nonexistent/socket", 1), 0);
    EXPECT_EQ(corvane_open_descriptor("/etc/hosts"), -1);
    EXPECT_EQ(errno, ENOENT);
    ASSERT_EQ(setenv("CORVANEFIFO", std::string(200, 'a').c_str(), 1), 0);
    EXPECT_EQ(corvane_remove_log("/tmp/x"), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
    ASSERT_EQ(unsetenv("CORVANEFIFO"), 0);
}

}  // namespace
}  // namespace corvane
