// Local input and output of copies.
#include "client/local_file.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <thread>

#include "client/failure.hpp"
#include "tests/client/fake_controller.hpp"

namespace corvane {
namespace {

using test::TemporaryFile;

std::span<const std::byte> bytes_of(const std::string& text)
{
    return std::as_bytes(std::span(text));
}

TEST(DescriptorSink, ZerosBecomeHolesInAnEmptyFile)
{
    const TemporaryFile file;
    const Descriptor output = create_output(file.path());
    DescriptorSink sink(output.get(), "it", nullptr);
    sink.write(bytes_of("front"));
    sink.write_zeros(10 << 20);
    sink.finish();
    struct stat status {};
    ASSERT_EQ(stat(file.path().c_str(), &status), 0);

    EXPECT_EQ(status.st_size, (10 << 20) + 5);
    EXPECT_LT(status.st_blocks * 512, 1 << 20);
    EXPECT_EQ(file.contents(), "front" + std::string(10 << 20, '\0'));
}

TEST(DescriptorSink, ZerosAreWrittenIntoWhatIsNotEmpty)
{
    const TemporaryFile file("0123456789");
    const Descriptor output(open(file.path().c_str(), O_WRONLY));
    DescriptorSink sink(output.get(), "it", nullptr);
    sink.write_zeros(4);
    sink.finish();

    EXPECT_EQ(file.contents(), std::string(4, '\0') + "456789");
}

TEST(DescriptorSink, PipesGetEveryZero)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    const Descriptor reader(ends[0]);
    {
        const Descriptor writer(ends[1]);
        DescriptorSink sink(writer.get(), "it", nullptr);
        sink.write_zeros(100);
        sink.finish();
    }
    std::array<char, 200> room{};

    EXPECT_EQ(read(reader.get(), room.data(), room.size()), 100);
}

TEST(DescriptorSink, WishToStopEndsAWrite)
{
    const TemporaryFile file;
    const Descriptor output = create_output(file.path());
    const std::atomic<bool> stop{true};
    DescriptorSink sink(output.get(), "it", &stop);

    try {
        sink.write(bytes_of("text"));
        FAIL() << "written";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), kInterrupted);
    }
}

TEST(Input, RegularFileIsReadAsItIs)
{
    const TemporaryFile file("some bytes");
    FileSource source = open_input(file.path(), nullptr);
    std::array<std::byte, 10> room{};
    source.read(room);

    EXPECT_EQ(source.size(), 10);
    EXPECT_EQ(std::memcmp(room.data(), "some bytes", 10), 0);
    EXPECT_THROW(source.read(std::span(room).first(1)), Failure) << "beyond its end";
}

// A fifo has no size: it is spooled, however long it is.
TEST(Input, FifoIsSpooled)
{
    const TemporaryFile name;
    const std::string fifo = name.path() + ".fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string text = test::pattern(3 << 20, 1);
    std::thread writer([&] {
        const Descriptor end(open(fifo.c_str(), O_WRONLY));
        DescriptorSink(end.get(), "fifo", nullptr).write(bytes_of(text));
    });
    FileSource source = open_input(fifo, nullptr);
    writer.join();
    (void)unlink(fifo.c_str());
    std::string back(text.size(), '\0');
    source.read(std::as_writable_bytes(std::span(back)));

    EXPECT_EQ(source.size(), static_cast<std::int64_t>(text.size()));
    EXPECT_TRUE(back == text);
}

TEST(Input, MissingFileIsNamed)
{
    try {
        (void)open_input("/nonexistent/input", nullptr);
        FAIL() << "opened";
    } catch (const Failure& failure) {
        EXPECT_STREQ(failure.what(),
                     "/nonexistent/input cannot be opened: No such file or directory; "
                     "name another file with -i");
    }
}

}  // namespace
}  // namespace corvane
