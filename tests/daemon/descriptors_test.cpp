// The descriptor service: files opened for local processes, the reply's bytes, and what is refused.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <regex>

#include "tests/daemon/descriptor_world.hpp"

namespace corvane::harness {
namespace {

class Descriptors : public DescriptorWorld {
protected:
    mode_t mode_of(const std::string& inside)
    {
        struct stat status {};
        EXPECT_EQ(::stat(world().path(inside).c_str(), &status), 0) << inside;
        return status.st_mode & 07777U;
    }

    void expect_refused(const std::string& request, const std::string& reason)
    {
        const Answer answer = ask(request);

        EXPECT_EQ(answer.data, "");
        EXPECT_FALSE(answer.descriptor.is_open());
        EXPECT_TRUE(answer.ended);
        EXPECT_TRUE(logged("] Open failed for: \"" + request + "\": " + reason)) << log();
    }
};

TEST_F(Descriptors, AbsolutePathGivesAReadWriteDescriptor)
{
    world().write_file("/tmp/file", "contents");
    start();

    const Answer answer = ask("/tmp/file");

    ASSERT_TRUE(answer.descriptor.is_open());
    EXPECT_EQ(read_descriptor(answer.descriptor), "contents");
    EXPECT_EQ(::fcntl(answer.descriptor.get(), F_GETFL) & (O_ACCMODE | O_APPEND), O_RDWR);
    EXPECT_EQ(::pwrite(answer.descriptor.get(), "C", 1, 0), 1);
    EXPECT_EQ(world().read_file("/tmp/file"), "Contents");
}

TEST_F(Descriptors, ReplyIsTheSocketPathIn256BytesAndOneDescriptor)
{
    world().write_file("/tmp/file", "contents");
    start();

    const Answer answer = ask("/tmp/file");

    std::string expected = kSocketPath;
    expected.resize(256, '\0');
    EXPECT_EQ(answer.data, expected);
    EXPECT_EQ(answer.control_bytes, sizeof(int));
    EXPECT_EQ(answer.level, SOL_SOCKET);
    EXPECT_EQ(answer.type, SCM_RIGHTS);
    EXPECT_TRUE(answer.ended) << "the daemon closes after one request";
}

TEST_F(Descriptors, MissingFileIsNotCreated)
{
    start();

    expect_refused("/tmp/absent", "No such file or directory\n");

    EXPECT_FALSE(std::filesystem::exists(world().path("/tmp/absent")));
}

TEST_F(Descriptors, FolderIsRefused)
{
    start();

    expect_refused("/tmp", "Is a directory\n");
}

TEST_F(Descriptors, AnyOtherTextIsRefused)
{
    start();

    expect_refused("hello", "");
    expect_refused("tmp/relative", "");
    expect_refused("logo/tmp/x", "");
}

TEST_F(Descriptors, RefusalNamesProcessAndThread)
{
    start();

    (void)ask("hello");

    ASSERT_TRUE(logged("FTX1536I"));
    const std::regex line("FTX1536I \\[" + std::to_string(daemon_pid()) +
                          "--?[0-9]+\\] Open failed for: \"hello\": [^\n]*\n");
    EXPECT_TRUE(std::regex_search(log(), line)) << log();
}

TEST_F(Descriptors, TrailingNewlineIsPartOfTheName)
{
    world().write_file("/tmp/file", "contents");
    start();

    const Answer answer = ask("/tmp/file\n");

    EXPECT_FALSE(answer.descriptor.is_open());
    EXPECT_TRUE(answer.ended);
}

TEST_F(Descriptors, PathEndsAtTheFirstZeroByte)
{
    world().write_file("/tmp/file", "contents");
    start();

    const Answer answer = ask(std::string("/tmp/file\0garbage", 17));

    EXPECT_EQ(read_descriptor(answer.descriptor), "contents");
}

TEST_F(Descriptors, LogopCreatesForAllAndAppends)
{
    start();

    const Answer first = ask("logop/tmp/x.log");
    ASSERT_TRUE(first.descriptor.is_open());
    EXPECT_EQ(mode_of("/tmp/x.log"), 0666U);
    EXPECT_EQ(::fcntl(first.descriptor.get(), F_GETFL) & (O_ACCMODE | O_APPEND), O_RDWR | O_APPEND);
    EXPECT_EQ(::write(first.descriptor.get(), "one ", 4), 4);
    const Answer second = ask("logop/tmp/x.log");
    EXPECT_EQ(::write(second.descriptor.get(), "two", 3), 3);

    EXPECT_EQ(world().read_file("/tmp/x.log"), "one two");
}

TEST_F(Descriptors, LogopStaysPrivateWhenTheSegmentSaysSo)
{
    start();
    world().set_word(segment::kLogopPrivate, 1);

    const Answer answer = ask("logop/tmp/x.log");

    EXPECT_TRUE(answer.descriptor.is_open());
    EXPECT_EQ(mode_of("/tmp/x.log"), 0600U);
}

// The descriptor -1 then goes to fchmod, whose error is the one reported.
TEST_F(Descriptors, FailedLogopReportsTheErrorOfChangingPermissions)
{
    start();

    expect_refused("logop/no/such/folder/x", "Bad file descriptor\n");
}

TEST_F(Descriptors, FailedPrivateLogopReportsTheErrorOfOpening)
{
    start();
    world().set_word(segment::kLogopPrivate, 7);

    expect_refused("logop/no/such/folder/x", "No such file or directory\n");
}

TEST_F(Descriptors, LogrmDeletesAndSendsNothing)
{
    world().write_file("/tmp/x.log", "x");
    start();

    const Answer answer = ask("logrm/tmp/x.log");

    EXPECT_EQ(answer.data, "");
    EXPECT_TRUE(answer.ended);
    EXPECT_FALSE(std::filesystem::exists(world().path("/tmp/x.log")));
    const Answer again = ask("logrm/tmp/x.log");
    EXPECT_TRUE(again.ended);
    EXPECT_EQ(log().find("FTX1536I"), std::string::npos);
}

TEST_F(Descriptors, SocketIsOpenToAll)
{
    start();

    EXPECT_EQ(mode_of(kSocketPath), 0666U);
}

TEST_F(Descriptors, StaleFileAtTheSocketsPathIsReplaced)
{
    world().write_file(kSocketPath, "stale");
    world().write_file("/tmp/file", "contents");

    start();

    EXPECT_EQ(read_descriptor(ask("/tmp/file").descriptor), "contents");
}

TEST_F(Descriptors, EnvironmentMovesTheSocket)
{
    environment_.emplace_back("CORVANEFIFO=/tmp/other.fifo");
    world().write_file("/tmp/file", "contents");
    start();

    const Answer answer = ask("/tmp/file", "/tmp/other.fifo");

    EXPECT_EQ(read_descriptor(answer.descriptor), "contents");
    EXPECT_EQ(answer.data.substr(0, 16), std::string("/tmp/other.fifo\0", 16));
    EXPECT_FALSE(std::filesystem::exists(world().path(kSocketPath)));
}

TEST_F(Descriptors, ClientsThatGoAwayDoNotHarm)
{
    world().write_file("/tmp/file", "contents");
    start();

    for (int i = 0; i < 20; ++i) {
        const Fd silent = connect_to(kSocketPath);
        const Fd gone = connect_to(kSocketPath);
        EXPECT_EQ(::send(gone.get(), "/tmp/file", 9, MSG_NOSIGNAL), 9);
    }

    EXPECT_EQ(read_descriptor(ask("/tmp/file").descriptor), "contents");
}

TEST_F(Descriptors, ServedDescriptorsAreClosedInTheDaemon)
{
    world().write_file("/tmp/file", "contents");
    start();
    (void)ask("/tmp/file");
    const std::string before = open_descriptors();
    ASSERT_NE(before, "");

    for (int i = 0; i < 50; ++i) (void)ask("/tmp/file");

    EXPECT_TRUE(eventually([&] { return open_descriptors() == before; }));
}

TEST_F(Descriptors, RequestLongerThanOneReadIsCut)
{
    start();
    const std::string path = "/" + std::string(5000, 'p');

    const Answer answer = ask(path);

    EXPECT_FALSE(answer.descriptor.is_open());
    EXPECT_TRUE(logged("FTX1536I"));
    EXPECT_TRUE(eventually([this] { return is_ready(); }));
}

TEST_F(Descriptors, LevelThreeShowsAbsolutePathRequestsOnly)
{
    world().write_file("/tmp/file", "contents");
    start();
    set_level(3);

    (void)ask("/tmp/file");
    (void)ask("logop/tmp/x.log");
    (void)ask("logrm/tmp/x.log");

    EXPECT_TRUE(logged("] Here is some data from client: \"/tmp/file\"\n"));
    const std::string text = log();
    EXPECT_EQ(text.find("x.log"), std::string::npos) << text;
    for (const char* switched : {"FTX1531I", "FTX1532I", "FTX1534I"}) {
        EXPECT_EQ(text.find(switched), std::string::npos) << switched;
    }
}

TEST_F(Descriptors, LevelTwoShowsNoRequest)
{
    world().write_file("/tmp/file", "contents");
    start();
    set_level(2);

    (void)ask("/tmp/file");

    EXPECT_EQ(log().find("FTX1535I"), std::string::npos);
}

// A line of the log file holds 1023 characters of message, cut without its newline.
TEST_F(Descriptors, LongLineIsCutInTheLogFile)
{
    start();
    set_level(3);
    clear_log();

    (void)ask("/" + std::string(3000, 'q'));

    ASSERT_TRUE(logged("FTX1535I"));
    const std::string text = log();
    const std::string prefix = std::to_string(daemon_pid()) + " ";
    const auto message = text.find("FTX1535I");
    ASSERT_EQ(message, prefix.size());
    EXPECT_EQ(text.find(prefix, message), message + 1023) << text.substr(1000);
}

}  // namespace
}  // namespace corvane::harness
