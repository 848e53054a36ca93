// Captures by dumpcap inside the world, reads the dissection back, and compares it frame by frame.
#include "tests/packaging/capture.hpp"

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

namespace corvane::harness {

namespace {

constexpr const char* kCapture = "/tmp/capture.pcap";
constexpr const char* kDissector = "/tmp/corvane.lua";
constexpr std::size_t kFileHeaderBytes = 24;
constexpr std::size_t kRecordHeaderBytes = 16;

bool is_installed(const std::string& program)
{
    return std::system(("command -v " + program + " >/dev/null").c_str()) == 0;
}

std::vector<std::string> split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
    return parts;
}

std::string shown(const codec::Bytes& message, std::size_t at, const Place& place)
{
    if (place.show == Show::kBytes) return codec::hex(message.slice(at, place.width));
    if (place.show == Show::kFlag) {
        return (message.number(at, place.width) & place.flag) != 0 ? "1" : "0";
    }
    if (place.show == Show::kHex32) {
        char digits[16];
        std::snprintf(digits, sizeof digits, "0x%08x", message.u32(at));
        return digits;
    }
    return std::to_string(place.width == 8 ? message.i64(at) : message.i32(at));
}

}  // namespace

std::string source_file(const std::string& name)
{
    std::ifstream file(std::string(CORVANE_SOURCE_DIR) + "/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

Fields header_fields(const codec::Bytes& message)
{
    Fields fields;
    add_fields(fields, message, 0,
               {{"corvane.endian", 0, 4, Show::kHex32},
                {"corvane.revision", 4, 4},
                {"corvane.id", 8, 16, Show::kBytes},
                {"corvane.function", 24, 4},
                {"corvane.length", 28, 4},
                {"corvane.flags", 32, 4, Show::kHex32},
                {"corvane.flags.track", 32, 4, Show::kFlag, 1},
                {"corvane.header_result", 36, 4},
                {"corvane.spare1", 40, 2, Show::kBytes},
                {"corvane.spare3", 44, 4, Show::kBytes}});
    char separator[8];
    std::snprintf(separator, sizeof separator, "0x%04x",
                  static_cast<unsigned>(message.number(42, 2)));
    fields["corvane.separator"] = separator;
    return fields;
}

void add_fields(Fields& fields, const codec::Bytes& message, std::size_t base,
                const std::vector<Place>& places)
{
    for (const auto& place : places) {
        std::string& value = fields[place.name];
        if (!value.empty()) value += ',';
        value += shown(message, base + place.offset, place);
    }
}

void CaptureTest::SetUp()
{
    for (const char* program : {"tshark", "dumpcap"}) {
        if (!is_installed(program)) GTEST_SKIP() << program << " is not installed";
    }
    RecorderWorld::SetUp();
    if (IsSkipped()) return;
    const std::string dissector = source_file("packaging/wireshark/corvane.lua");
    ASSERT_FALSE(dissector.empty());
    world().write_file(kDissector, dissector);
}

void CaptureTest::start_capture()
{
    Command command;
    command.arguments = {
        "dumpcap", "-q",    "-P", "-i", "lo", "-f", "udp port " + std::to_string(kPort),
        "-w",      kCapture};
    capturer_ = world().spawn(command);
    // The file comes once the interface is open.
    ASSERT_TRUE(
        eventually([this] { return world().read_file(kCapture).size() >= kFileHeaderBytes; }));
}

void CaptureTest::expect_frame(const std::string& what, const codec::Bytes& bytes, Fields fields)
{
    frames_.push_back({what, codec::hex(bytes.data()), std::move(fields)});
}

codec::Bytes CaptureTest::exchange(UdpClient& asker, const std::string& what,
                                   const codec::Bytes& request, const Fields& fields)
{
    expect_frame(what, request, fields);
    return asker.ask(request);
}

std::size_t CaptureTest::captured_frames()
{
    const codec::Bytes file(world().read_file(kCapture), codec::Order::kLittle);
    std::size_t count = 0;
    for (std::size_t at = kFileHeaderBytes; at + kRecordHeaderBytes <= file.size(); ++count) {
        at += kRecordHeaderBytes + file.u32(at + 8);
        if (at > file.size()) break;
    }
    return count;
}

std::string CaptureTest::tshark(std::vector<std::string> arguments)
{
    Command command;
    command.arguments = {"tshark"};
    command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
    command.arguments.insert(command.arguments.end(),
                             {"-X", std::string("lua_script:") + kDissector});
    command.environment = {"HOME=/tmp", "LC_ALL=C.UTF-8"};
    const Outcome outcome = world().run(command, milliseconds(120000));
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors.find("Lua"), std::string::npos) << outcome.errors;
    return outcome.output;
}

void CaptureTest::check_frames()
{
    ASSERT_TRUE(eventually([this] { return captured_frames() >= frames_.size(); }))
        << captured_frames() << " frames captured, " << frames_.size() << " sent";
    world().kill(capturer_, SIGINT);
    ASSERT_TRUE(world().wait(capturer_).has_value());

    std::set<std::string> names;
    for (const auto& frame : frames_) {
        for (const auto& field : frame.fields) names.insert(field.first);
    }
    std::vector<std::string> arguments = {
        "-2", "-r",           kCapture, "-T",           "fields", "-E",         "separator=;",
        "-E", "occurrence=a", "-E",     "aggregator=,", "-e",     "udp.payload"};
    for (const auto& name : names) arguments.insert(arguments.end(), {"-e", name});
    const std::vector<std::string> lines = split(tshark(arguments), '\n');

    ASSERT_EQ(lines.size(), frames_.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        SCOPED_TRACE("frame " + std::to_string(i + 1) + ": " + frames_[i].what);
        std::vector<std::string> values = split(lines[i], ';');
        values.resize(names.size() + 1);
        ASSERT_EQ(values[0], frames_[i].payload);
        std::size_t column = 1;
        for (const auto& name : names) {
            const auto expected = frames_[i].fields.find(name);
            if (expected != frames_[i].fields.end()) {
                EXPECT_EQ(values[column], expected->second) << name;
            }
            ++column;
        }
    }
}

}  // namespace corvane::harness
