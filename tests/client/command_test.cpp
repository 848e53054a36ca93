// The real command as a child: exit statuses, one-line errors, output, signals.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <nlohmann/json.hpp>

#include "tests/client/command_process.hpp"
#include "tests/client/fake_controller.hpp"
#include "tests/client/fake_descriptor_service.hpp"

namespace corvane {
namespace {

using nlohmann::json;
using test::CommandProcess;
using test::FakeController;
using test::FakeDescriptorService;
using test::Finished;
using test::image_with;
using test::kImageBytes;
using test::kSignature;
using test::kSliceStart;
using test::run_command;
using test::Script;
using test::TemporaryFile;

Script file_script()
{
    Script script = test::one_disk_script();
    script.file_size = 12288;
    script.allocation = 8192;
    script.extents = {{0, 8192, 4096, 0, 0}, {4096, 0, 4096, 0, 1}, {8192, 0, 4096, 0, 0}};
    return script;
}

std::vector<std::string> with_port(const FakeController& controller, std::vector<std::string> words)
{
    const auto port = std::to_string(controller.endpoint().port);
    words.insert(words.end(), {"--port", port, "--timeout", "5", "--tries", "2"});
    return words;
}

// One line, ended, and beginning with the program's name.
bool is_one_error_line(const std::string& text)
{
    return text.starts_with("corvane: ") && std::ranges::count(text, '\n') == 1 &&
           text.ends_with('\n');
}

TEST(Command, WrongUsageIsTwoWithOneLine)
{
    const std::vector<std::vector<std::string>> wrong{
        {},
        {"frobnicate"},
        {"volume"},
        {"volume", "a", "b"},
        {"map", "a"},
        {"cat", "a", "b", "-o"},
        {"size", "a", "b"},
        {"size", "a", "b", "-5"},
        {"size", "a", "b", "many"},
        {"ping", "--port", "0"},
        {"ping", "--port", "65536"},
        {"ping", "--port", "x"},
        {"ping", "--tries", "0"},
        {"ping", "--timeout", "0"},
        {"ping", "--nonsense"},
        {"open", "/etc/hosts"},
        {"open", "/etc/hosts", "--"},
    };
    for (const auto& words : wrong) {
        const Finished done = run_command(words);
        EXPECT_EQ(done.status, 2) << json(words);
        EXPECT_EQ(done.out, "") << json(words);
        EXPECT_TRUE(is_one_error_line(done.err)) << json(words) << done.err;
    }
}

TEST(Command, HelpAndVersionAreDone)
{
    const Finished version = run_command({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, "corvane " CORVANE_VERSION "\n");
    for (const auto& words : {std::vector<std::string>{"--help"}, {"cat", "--help"}}) {
        const Finished help = run_command(words);
        EXPECT_EQ(help.status, 0);
        EXPECT_NE(help.out.find("Usage"), std::string::npos);
        EXPECT_EQ(help.err, "");
    }
}

TEST(Command, PingAnswers)
{
    FakeController controller(file_script());
    const Finished done = run_command(with_port(controller, {"ping"}));
    EXPECT_EQ(done.status, 0) << done.err;
    EXPECT_TRUE(done.out.starts_with("the controller at 127.0.0.1 port ")) << done.out;

    const json result = json::parse(run_command(with_port(controller, {"ping", "--json"})).out);
    EXPECT_EQ(result["host"], "127.0.0.1");
    EXPECT_GE(result["milliseconds"].get<double>(), 0);
}

TEST(Command, SilenceIsAFailureWithAdvice)
{
    Script script = file_script();
    script.requests_to_drop = 1000;
    FakeController controller(script);
    const auto port = std::to_string(controller.endpoint().port);

    const Finished done = run_command({"ping", "--port", port, "--timeout", "1", "--tries", "1"});

    EXPECT_EQ(done.status, 1);
    EXPECT_EQ(done.err, "corvane: asking 127.0.0.1 port " + port +
                            " failed: no reply within the time limit (code 1106); check --host and "
                            "--port, and that corvaned runs there\n");
}

TEST(Command, HostComesFromTheEnvironment)
{
    ASSERT_EQ(setenv("CORVANE_HOST", "host.invalid", 1), 0);
    const Finished from_environment = run_command({"ping", "--tries", "1", "--timeout", "1"});
    FakeController controller(file_script());
    const Finished overridden = run_command(with_port(controller, {"ping", "--host", "127.0.0.1"}));
    ASSERT_EQ(unsetenv("CORVANE_HOST"), 0);

    EXPECT_EQ(from_environment.status, 1);
    EXPECT_NE(from_environment.err.find("asking host.invalid port 5501 failed"), std::string::npos)
        << from_environment.err;
    EXPECT_EQ(overridden.status, 0) << overridden.err;
}

TEST(Command, VolumeShowsDisksAndDevices)
{
    const TemporaryFile image(image_with(kSignature, kImageBytes, {}));
    const TemporaryFile copy(image_with(kSignature, kImageBytes, {}));
    FakeController controller(file_script());
    const Finished text =
        run_command(with_port(controller, {"volume", "data", "--disk", image.path()}));
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_EQ(text.out,
              "volume       data\n"
              "file system  type 0\n"
              "layout       type 0, parameter 0\n"
              "block size   4096 bytes\n"
              "\n"
              "disk 0\n"
              "  signature  5349474e41545552452d303030303031 at byte 100\n"
              "  slice      100 blocks from block 2 (400 KiB)\n"
              "  device     " +
                  image.path() + "\n");

    const json result =
        json::parse(run_command(with_port(controller, {"--json", "volume", "data", "--disk",
                                                       image.path(), "--disk", copy.path()}))
                        .out);
    EXPECT_EQ(result["blockSize"], 4096);
    EXPECT_EQ(result["disks"][0]["signature"], "5349474e41545552452d303030303031");
    EXPECT_EQ(result["disks"][0]["devices"], json({image.path(), copy.path()}));
    EXPECT_EQ(controller.asked(1).at(0).share, "data");
}

TEST(Command, MapPrintsTableJsonAndDrawing)
{
    FakeController controller(file_script());
    const Finished table = run_command(with_port(controller, {"map", "data", "dir/f"}));
    EXPECT_EQ(table.status, 0) << table.err;
    EXPECT_EQ(table.out,
              "dir/f of data: 12 KiB (12288 bytes) in 2 fragments, 1 hole\n"
              "     file offset            bytes  kind      fragment  disk          disk offset\n"
              "               0             4096  data             1     0                16384\n"
              "            4096             4096  hole             -     -                    -\n"
              "            8192             4096  data             2     0                 8192\n");

    const json result =
        json::parse(run_command(with_port(controller, {"map", "data", "f", "--json"})).out);
    EXPECT_EQ(result["fileSize"], 12288);
    EXPECT_EQ(result["extents"].size(), 3U);
    EXPECT_EQ(result["extents"][0]["diskOffset"], 16384);
    EXPECT_EQ(result["extents"][1],
              json({{"fileOffset", 4096}, {"bytes", 4096}, {"kind", "hole"}}));

    ASSERT_EQ(setenv("LC_ALL", "C", 1), 0);
    const Finished drawing = run_command(with_port(controller, {"map", "--draw", "data", "f"}));
    ASSERT_EQ(unsetenv("LC_ALL"), 0);
    EXPECT_NE(drawing.out.find("####........................======"), std::string::npos)
        << drawing.out;
    EXPECT_EQ(drawing.out.find('\033'), std::string::npos) << "no colours outside a terminal";
    EXPECT_TRUE(std::ranges::all_of(drawing.out, [](char letter) { return letter > 0; }));
    EXPECT_EQ(controller.asked(5).size(), 3U);
}

TEST(Command, CatWritesTheFile)
{
    const std::string first(4096, 'a');
    const std::string last(4096, 'b');
    const TemporaryFile image(
        image_with(kSignature, kImageBytes, {{kSliceStart + 8192, first}, {kSliceStart, last}}));
    FakeController controller(file_script());
    const std::string wanted = first + std::string(4096, '\0') + last;
    const Finished done =
        run_command(with_port(controller, {"cat", "data", "f", "--disk", image.path()}));
    EXPECT_EQ(done.status, 0) << done.err;
    EXPECT_TRUE(done.out == wanted);
    EXPECT_EQ(done.err, "") << "no progress outside a terminal";

    const TemporaryFile output("what was there before, and is longer than nothing");
    const Finished to_file = run_command(
        with_port(controller, {"cat", "data", "f", "--disk", image.path(), "-o", output.path()}));
    EXPECT_EQ(to_file.status, 0) << to_file.err;
    EXPECT_EQ(to_file.out, "");
    EXPECT_TRUE(output.contents() == wanted);
}

TEST(Command, FailingCatLeavesTheOutputFileAlone)
{
    Script script = file_script();
    script.open_code = 405;
    FakeController controller(script);
    const TemporaryFile output("precious");
    const Finished done =
        run_command(with_port(controller, {"cat", "data", "f", "-o", output.path()}));

    EXPECT_EQ(done.status, 1);
    EXPECT_TRUE(is_one_error_line(done.err)) << done.err;
    EXPECT_NE(done.err.find("Unable to find library from cookie (code 405)"), std::string::npos);
    EXPECT_EQ(output.contents(), "precious");
}

TEST(Command, PutTakesStandardInputOrAFile)
{
    const TemporaryFile image(image_with(kSignature, kImageBytes, {}));
    Script script = file_script();
    script.extents = {{0, 8192, 12288, 0, 0}};
    FakeController controller(script);
    const Finished from_input = run_command(
        with_port(controller, {"put", "data", "f", "--disk", image.path()}), "from standard input");
    EXPECT_EQ(from_input.status, 0) << from_input.err;
    EXPECT_EQ(image.contents().substr(kSliceStart + 8192, 20),
              std::string("from standard input\0", 20));

    const TemporaryFile input("from a file");
    const Finished from_file = run_command(
        with_port(controller, {"put", "data", "f", "--disk", image.path(), "-i", input.path()}));
    EXPECT_EQ(from_file.status, 0) << from_file.err;
    EXPECT_EQ(image.contents().substr(kSliceStart + 8192, 12), std::string("from a file\0", 12));
    ASSERT_EQ(controller.asked(5).size(), 2U);
    EXPECT_EQ(controller.asked(5)[0].file_size, 19);
    EXPECT_EQ(controller.asked(5)[1].file_size, 11);
}

TEST(Command, SizeChangesTheSizeAlone)
{
    FakeController controller(file_script());
    const Finished done = run_command(with_port(controller, {"size", "data", "f", "5000000000"}));

    EXPECT_EQ(done.status, 0) << done.err;
    EXPECT_EQ(controller.asked(4).at(0).file_size, 5000000000);
    EXPECT_EQ(controller.asked(5).at(0).file_size, -1);
}

TEST(Command, SizeCodeIsPrintedByItsText)
{
    Script script = file_script();
    script.size_code = 400;
    FakeController controller(script);
    const Finished done = run_command(with_port(controller, {"size", "data", "f", "1"}));

    EXPECT_EQ(done.status, 1);
    EXPECT_EQ(done.err,
              "corvane: changing the file's size failed: Success, but not fully alloctd (code "
              "400); make room on the volume, then try again\n");
    EXPECT_EQ(controller.asked(5).size(), 1U);
}

TEST(Command, BareErrorReplyIsUnderstood)
{
    Script script = file_script();
    script.sends_bare_errors = true;
    for (const test::Order order : {test::Order::kLittle, test::Order::kBig}) {
        script.order = order;
        FakeController controller(script);
        const Finished done = run_command(with_port(controller, {"map", "data", "f"}));
        EXPECT_EQ(done.status, 1);
        EXPECT_NE(done.err.find("unknown message function (code 8)"), std::string::npos)
            << done.err;
    }
}

// A full pipe blocks the command in the middle of a file; the signal must end it in order.
class InterruptedCommand : public ::testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Signals, InterruptedCommand, ::testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const auto& instance) {
                             return std::string(sigabbrev_np(instance.param));
                         });

TEST_P(InterruptedCommand, ClosesItsLease)
{
    constexpr std::int64_t kSize = 400000;
    const TemporaryFile image(image_with(kSignature, kImageBytes, {}));
    Script script = file_script();
    script.file_size = kSize;
    script.lease_ms = 500;
    script.extents = {{0, 0, kSize, 0, 0}};
    FakeController controller(script);
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const Descriptor reader(ends[0]);
    const Descriptor writer(ends[1]);
    CommandProcess command(with_port(controller, {"cat", "data", "f", "--disk", image.path()}), {},
                           writer.get());
    // Two renewals: it has been waiting for its reader for a while.
    ASSERT_TRUE(controller.wait_for(3, 2));
    command.send(GetParam());
    const Finished done = command.finish();

    EXPECT_EQ(done.status, 1);
    EXPECT_EQ(done.err, "corvane: interrupted; run the command again\n");
    EXPECT_EQ(controller.asked(5).size(), 1U);
}

TEST(Command, SecondSignalEndsAtOnce)
{
    Script script = file_script();
    script.requests_to_drop = 1000;
    FakeController controller(script);
    CommandProcess command(
        {"ping", "--port", std::to_string(controller.endpoint().port), "--timeout", "3600"});
    ASSERT_TRUE(controller.wait_for(1, 1));
    command.send(SIGTERM);
    command.send(SIGTERM);
    // The two may have become one: go on until it is gone.
    while (!command.has_ended()) command.send(SIGTERM);

    EXPECT_EQ(command.finish().status, 128 + SIGTERM);
}

TEST(Command, GoneReaderIsAQuietFailure)
{
    const TemporaryFile image(image_with(kSignature, kImageBytes, {}));
    FakeController controller(file_script());
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const Descriptor writer(ends[1]);
    {
        const Descriptor reader(ends[0]);
    }
    CommandProcess command(with_port(controller, {"cat", "data", "f", "--disk", image.path()}), {},
                           writer.get());
    const Finished done = command.finish();

    EXPECT_EQ(done.status, 1);
    EXPECT_EQ(done.err, "");
    EXPECT_EQ(controller.asked(5).size(), 1U);
}

TEST(Command, OpenRunsACommandOnTheFile)
{
    const TemporaryFile file("contents of the file\n");
    const TemporaryFile copy;
    const FakeDescriptorService service(
        [](const std::string& request, int connection) {
            const Descriptor sent(open(request.c_str(), O_RDWR));
            if (sent.is_open()) test::send_descriptors(connection, {sent.get()});
        },
        3);
    const std::string script = "cat > " + copy.path() + "; exit 7";
    const Finished done = run_command({"open", file.path(), "--", "sh", "-c", script});
    EXPECT_EQ(done.status, 7) << done.err;
    EXPECT_EQ(copy.contents(), "contents of the file\n");

    EXPECT_EQ(run_command({"open", file.path(), "--", "echo", "-n", "written"}).status, 0);
    EXPECT_EQ(file.contents(), "writtens of the file\n");

    const Finished refused = run_command({"open", "/nonexistent/file", "--", "cat"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(is_one_error_line(refused.err)) << refused.err;
    EXPECT_NE(refused.err.find("FTX1536I"), std::string::npos);
}

TEST(Command, OpenWithoutServiceSaysSo)
{
    ASSERT_EQ(setenv("CORVANEFIFO", "/nonexistent/socket", 1), 0);
    const Finished done = run_command({"open", "/etc/hosts", "--", "cat"});
    ASSERT_EQ(unsetenv("CORVANEFIFO"), 0);

    EXPECT_EQ(done.status, 1);
    EXPECT_EQ(done.err,
              "corvane: the descriptor service did not open /etc/hosts: No such file or "
              "directory; check CORVANEFIFO, and that corvaned runs on this host\n");
}

}  // namespace
}  // namespace corvane
