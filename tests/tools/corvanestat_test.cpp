// corvanestat: the numbers are exactly what was asked, in all three forms, and what it says when
// there is nothing to read.
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cstring>
#include <regex>
#include <set>
#include <sstream>

#include "osl/counters.h"
#include "tests/tools/tool_test.hpp"

namespace corvane::harness {
namespace {

using nlohmann::json;

constexpr const char* kPage = "/dev/shm/corvaned.5501";
constexpr std::int32_t kInvalidKey = 407;

class Stat : public ToolTest {
protected:
    json stat_json() { return json_of("corvanestat", {"--json"}); }

    void start_plain()
    {
        Script answers;
        answers.volume_record =
            "result=0 record=" + codec::hex(codec::volume_record({{"d", 0, 0, 1}}, 512).data());
        start_with(answers);
    }

    // Three volumes, one of them asked for twice, which is answered twice; a file opened twice,
    // mapped further, resized, closed once and once too often; and a request of no known function.
    void ask_known_requests()
    {
        UdpClient asker = client();
        for (int i = 0; i < 2; ++i) (void)asker.ask(codec::get_volume(header(), "/vol"));
        codec::Header tracked = header();
        tracked.flags = 1;
        const codec::Bytes twice = codec::get_volume(tracked, "/vol");
        for (int i = 0; i < 2; ++i) EXPECT_EQ(asker.ask(twice).i32(48), 0);
        const std::uint32_t first = open_key(asker, map_of());
        const std::uint32_t second = open_key(asker, map_of());
        codec::ExtendedMap more;
        more.key = first;
        more.start = 0;
        more.length = 4096;
        EXPECT_EQ(asker.ask(codec::get_extended_map(header(), more)).i32(48), 0);
        EXPECT_EQ(asker.ask(codec::set_size(header(), second, 9000)).i32(48), 0);
        EXPECT_EQ(asker.ask(codec::close_file(header(), first)).i32(48), 0);
        EXPECT_EQ(asker.ask(codec::close_file(header(), first)).i32(48), kInvalidKey);
        EXPECT_EQ(asker.ask(codec::request(header(), 48)).i32(36), 8);
    }
    void ask_descriptor_service()
    {
        const Fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un to{};
        to.sun_family = AF_UNIX;
        std::strncpy(to.sun_path, world().path(kSocketPath).c_str(), sizeof to.sun_path - 1);
        ASSERT_EQ(::connect(socket.get(), reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
        ASSERT_EQ(::send(socket.get(), "logrm/tmp/x", 11, MSG_NOSIGNAL), 11);
        char byte = 0;
        EXPECT_EQ(::recv(socket.get(), &byte, 1, 0), 0);
    }

    // The value of the sample with this name and these labels; -1 when there is none.
    static std::int64_t sample(const std::string& text, const std::string& name)
    {
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            if (line.rfind(name + " ", 0) == 0) return std::stoll(line.substr(name.size() + 1));
        }
        return -1;
    }
};

// A reply may leave before it is counted, so the numbers may need a moment.
TEST_F(Stat, JsonHasExactlyWhatWasAsked)
{
    start_plain();
    ask_known_requests();
    ask_descriptor_service();
    const json expected = json::parse(R"({
        "other":          {"answered": 1, "results": {"8": 1}},
        "GetVolume":      {"answered": 4, "results": {"0": 4}},
        "GetInitialMap":  {"answered": 2, "results": {"0": 2}},
        "GetExtendedMap": {"answered": 1, "results": {"0": 1}},
        "SetSize":        {"answered": 1, "results": {"0": 1}},
        "Close":          {"answered": 2, "results": {"0": 1, "407": 1}}})");

    json all;
    const bool matched = eventually([&] {
        all = stat_json();
        json requests = all["requests"];
        for (auto& function : requests) {
            for (const char* time : {"p50_ns", "p99_ns", "p999_ns"}) function.erase(time);
        }
        return requests == expected;
    });
    EXPECT_TRUE(matched) << all.dump(2);
    EXPECT_EQ(all["pid"], daemon_pid());
    EXPECT_EQ(all["running"], true);
    EXPECT_EQ(all["live_leases"], 1);
    EXPECT_EQ(all["live_files"], 1);
    const json events = {
        {"leases_granted", 2},      {"leases_renewed", 2},      {"leases_closed", 1},
        {"leases_expired", 0},      {"files_locked", 1},        {"files_unlocked", 0},
        {"duplicates_answered", 1}, {"duplicates_dropped", 0},  {"receive_errors", 0},
        {"send_errors", 0},         {"descriptor_requests", 1}, {"log_lost", 0}};
    for (const auto& [name, count] : events.items()) EXPECT_EQ(all[name], count) << name;
}

TEST_F(Stat, JsonCountsTheCallsThatThePluginSaw)
{
    start_plain();
    ask_known_requests();

    const json plugins = stat_json()["plugins"];

    ASSERT_EQ(plugins.size(), 1U);
    EXPECT_EQ(plugins[0]["slot"], 0);
    EXPECT_EQ(plugins[0]["name"], "recorder.so");
    const auto seen = calls();
    std::size_t counted = 0;
    for (const auto& [name, numbers] : plugins[0]["calls"].items()) {
        const auto is_this = [&name = name](const std::string& line) {
            return line.rfind("recorder.so " + name + " ", 0) == 0;
        };
        EXPECT_EQ(numbers["calls"], std::count_if(seen.begin(), seen.end(), is_this)) << name;
        EXPECT_EQ(numbers["refused"], 0) << name;
        counted += numbers["calls"].get<std::size_t>();
    }
    EXPECT_EQ(counted, seen.size());
}

TEST_F(Stat, RefusedCallsAreCounted)
{
    start_with({});  // the recorder's own answer refuses the record of the volume
    EXPECT_NE(client().ask(codec::get_volume(header(), "/vol")).i32(48), 0);

    const json calls = stat_json()["plugins"][0]["calls"];

    EXPECT_EQ(calls["FS_GetVolByCookie"]["refused"], 1);
    EXPECT_EQ(calls["FS_GetVolCookie"]["refused"], 0);
}

TEST_F(Stat, PercentilesAreOrderedAndThereIsNoneWithoutRequests)
{
    start_plain();
    ask_known_requests();
    ASSERT_TRUE(eventually([&] { return stat_json()["requests"]["other"]["answered"] == 1; }));

    const json counted = stat_json();
    for (const auto& function : counted["requests"]) {
        EXPECT_GT(function["p50_ns"], 0);
        EXPECT_LE(function["p50_ns"], function["p99_ns"]);
        EXPECT_LE(function["p99_ns"], function["p999_ns"]);
    }
    stop();
    start();
    const json fresh = stat_json();
    for (const auto& function : fresh["requests"]) EXPECT_EQ(function["p999_ns"], 0);
}

TEST_F(Stat, TableForPeople)
{
    start_plain();
    ask_known_requests();
    ASSERT_TRUE(eventually([&] { return stat_json()["requests"]["other"]["answered"] == 1; }));

    const std::string text = output_of("corvanestat", {});

    EXPECT_EQ(
        text.rfind("corvaned, process " + std::to_string(daemon_pid()) + ", running since ", 0), 0U)
        << text;
    EXPECT_NE(text.find("\n1 lease on 1 file\n"), std::string::npos) << text;
    for (const char* row :
         {"\n0    recorder.so\n       FS_GetVolCookie                 3              0\n",
          "\nother                         1 ", "\nGetVolume                     4 ",
          "\nGetInitialMap                 2 ", "\nClose                         2 "}) {
        EXPECT_NE(text.find(row), std::string::npos) << row << "in\n" << text;
    }
    EXPECT_NE(text.find("\n  Invalid key (407)                                       1\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("\nrepeated requests answered from store                             1\n"),
              std::string::npos)
        << text;
}

TEST_F(Stat, PrometheusSamples)
{
    start_plain();
    ask_known_requests();
    ASSERT_TRUE(eventually([&] { return stat_json()["requests"]["other"]["answered"] == 1; }));

    const std::string text = output_of("corvanestat", {"--prometheus"});

    EXPECT_EQ(sample(text, "corvane_up"), 1);
    EXPECT_EQ(sample(text, "corvane_leases"), 1);
    EXPECT_EQ(sample(text, "corvane_files"), 1);
    EXPECT_EQ(sample(text, R"(corvane_requests_total{function="GetVolume",result="0"})"), 4);
    EXPECT_EQ(sample(text, R"(corvane_requests_total{function="Close",result="407"})"), 1);
    EXPECT_EQ(sample(text, R"(corvane_request_seconds_count{function="GetInitialMap"})"), 2);
    EXPECT_EQ(sample(text, R"(corvane_request_seconds_bucket{function="Close",le="+Inf"})"), 2);
    EXPECT_EQ(sample(text, R"(corvane_plugin_calls_total{slot="0",call="FS_GetLockedMap"})"), 3);
    EXPECT_EQ(sample(text, R"(corvane_plugin_info{slot="0",plugin="recorder.so"})"), 1);
    EXPECT_EQ(sample(text, "corvane_duplicates_answered_total"), 1);
}

TEST_F(Stat, PrometheusTextIsWellFormed)
{
    start_plain();
    ask_known_requests();

    std::istringstream lines(output_of("corvanestat", {"--prometheus"}));

    const std::regex help("# HELP corvane_[a-z_]+ .+");
    const std::regex type("# TYPE (corvane_[a-z_]+) (counter|gauge|histogram)");
    const std::regex value(
        R"-((corvane_[a-z_]+)(\{[a-z]+="[^"\\]*"(,[a-z]+="[^"\\]*")*\})? [0-9.e+-]+)-");
    std::set<std::string> samples;
    std::string family;
    for (std::string line; std::getline(lines, line);) {
        std::smatch parts;
        if (std::regex_match(line, help)) continue;
        if (std::regex_match(line, parts, type)) {
            family = parts[1];
            continue;
        }
        ASSERT_TRUE(std::regex_match(line, parts, value)) << line;
        EXPECT_EQ(parts[1].str().rfind(family, 0), 0U) << line << " in the family " << family;
        EXPECT_TRUE(samples.insert(line.substr(0, line.rfind(' '))).second) << "twice: " << line;
    }
    EXPECT_GT(samples.size(), 100U);
}

TEST_F(Stat, NoDaemon)
{
    for (const char* form : {"--json", "--prometheus", "--port=5501"}) {
        expect_failure(run_tool("corvanestat", {form}), 1,
                       "corvanestat: no daemon counts on port 5501: start corvaned, or name its "
                       "--port");
    }
    start();
    expect_failure(run_tool("corvanestat", {"--port", "5502"}), 1,
                   "corvanestat: no daemon counts on port 5502: start corvaned, or name its "
                   "--port");
}

TEST_F(Stat, AKilledDaemonsNumbersStayReadable)
{
    start_plain();
    ask_known_requests();
    ASSERT_TRUE(eventually([&] { return stat_json()["requests"]["other"]["answered"] == 1; }));

    stop(SIGKILL);

    const json all = stat_json();
    EXPECT_EQ(all["running"], false);
    EXPECT_EQ(all["requests"]["GetVolume"]["answered"], 4);
    EXPECT_NE(output_of("corvanestat", {}).find(", gone; ran since "), std::string::npos);
    EXPECT_EQ(sample(output_of("corvanestat", {"--prometheus"}), "corvane_up"), 0);
}

TEST_F(Stat, TheNextDaemonCountsFromZero)
{
    start_plain();
    ask_known_requests();
    stop(SIGKILL);

    start();

    const json all = stat_json();
    EXPECT_EQ(all["running"], true);
    for (const auto& function : all["requests"]) EXPECT_EQ(function["answered"], 0);
}

TEST_F(Stat, APageOfAnotherVersionIsRefused)
{
    start();
    stop();
    const std::string page = world().read_file(kPage);
    ASSERT_EQ(page.size(), sizeof(CountersPage));

    const auto with_byte = [&page](std::size_t at) {
        std::string changed = page;
        changed[at] = static_cast<char>(changed[at] ^ 0x40);
        return changed;
    };
    // Magic, version, and the sizes of the page, of a block and their number; short, long, empty.
    for (const std::string& damaged :
         {with_byte(0), with_byte(4), with_byte(8), with_byte(12), with_byte(16),
          page.substr(0, page.size() - 1), page + "x", page.substr(0, 64), std::string()}) {
        world().write_file(kPage, damaged);
        expect_failure(run_tool("corvanestat", {"--json"}), 1,
                       "corvanestat: the counters of port 5501 are another version's: use the "
                       "corvanestat that came with that daemon");
    }
}

// Numbers that no daemon counts, and a process that cannot be: shown, and nothing breaks.
TEST_F(Stat, APageOfNonsenseIsShown)
{
    start();
    stop();
    std::string page = world().read_file(kPage);
    std::fill(page.begin() + 20, page.end(), '\xFF');
    world().write_file(kPage, page);

    EXPECT_EQ(stat_json()["running"], false);
    EXPECT_NE(output_of("corvanestat", {}), "");
    EXPECT_NE(output_of("corvanestat", {"--prometheus"}), "");
}

TEST_F(Stat, WrongUsage)
{
    for (const auto& arguments : std::vector<std::vector<std::string>>{{"--json", "--prometheus"},
                                                                       {"--json", "--watch"},
                                                                       {"--port", "0"},
                                                                       {"--port", "65536"},
                                                                       {"--port", "http"},
                                                                       {"--interval", "0"},
                                                                       {"more"}}) {
        expect_wrong_usage(run_tool("corvanestat", arguments));
    }
}

TEST_F(Stat, WatchNeedsATerminal)
{
    start();

    expect_failure(run_tool("corvanestat", {"--watch"}), 1,
                   "corvanestat: --watch needs a terminal: leave it out here");
}

}  // namespace
}  // namespace corvane::harness
