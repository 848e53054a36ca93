// Name resolution: attempts, pauses, traces and the address that comes of it.
#include "lan/host_lookup.hpp"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "lan/dgram.h"
#include "osl/thread.h"
#include "tests/lan/trace_capture.hpp"

namespace {

using testing::Each;
using testing::ElementsAre;

// A resolver that says what the test wants.
struct Script {
    int returns = 0;
    int resolver_error = 0;
    int system_error = 0;
    bool has_entry = false;
    int address_bytes = 4;
    int calls = 0;
    std::size_t work_bytes = 0;
    std::vector<std::uint32_t> pauses_ms = {};
} g_script;

unsigned char g_address[16] = {192, 0, 2, 33, 5, 6, 7, 8};
char* g_addresses[2] = {reinterpret_cast<char*>(g_address), nullptr};

int scripted_find(const char*, hostent* entry, char*, std::size_t work_bytes, hostent** result,
                  int* resolver_error)
{
    ++g_script.calls;
    g_script.work_bytes = work_bytes;
    entry->h_addr_list = g_addresses;
    entry->h_length = g_script.address_bytes;
    *result = g_script.has_entry ? entry : nullptr;
    *resolver_error = g_script.resolver_error;
    errno = g_script.system_error;
    return g_script.returns;
}

void recorded_pause(std::uint32_t milliseconds)
{
    g_script.pauses_ms.push_back(milliseconds);
}

std::int32_t resolve(const Script& script, sockaddr_in& address)
{
    g_script = script;
    return corvane::resolve_host("alpha", address,
                                 {.find = scripted_find, .pause = recorded_pause});
}

TEST(HostLookup, CopiesTheFirstAddressAndNothingElse)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(5501);
    const lan_test::TraceCapture trace;

    EXPECT_EQ(resolve({.has_entry = true}, address), 0);

    char text[INET_ADDRSTRLEN];
    EXPECT_STREQ(inet_ntop(AF_INET, &address.sin_addr, text, sizeof text), "192.0.2.33");
    EXPECT_EQ(address.sin_family, AF_INET);
    EXPECT_EQ(address.sin_port, htons(5501));
    EXPECT_EQ(g_script.calls, 1);
    EXPECT_EQ(g_script.work_bytes, 1024U);
    EXPECT_TRUE(trace.lines().empty());
}

TEST(HostLookup, LongAddressIsCutAtTheField)
{
    sockaddr_in address{};

    EXPECT_EQ(resolve({.has_entry = true, .address_bytes = 16}, address), 0);

    for (const unsigned char byte : address.sin_zero) EXPECT_EQ(byte, 0);
}

// Ten attempts, each followed by its pause, the last one too; the remembered value is 0 then.
TEST(HostLookup, TriesTenTimesWhileToldTo)
{
    sockaddr_in address{};
    const lan_test::TraceCapture trace;

    EXPECT_EQ(resolve({.returns = 11, .resolver_error = TRY_AGAIN, .system_error = 110}, address),
              -1);

    EXPECT_EQ(g_script.calls, 10);
    EXPECT_EQ(g_script.pauses_ms, std::vector<std::uint32_t>(10, 500));
    std::vector<std::string> expected;
    for (int retry = 0; retry < 10; ++retry) {
        expected.push_back(
            "DGRAM_GetHostByName failed name:alpha err:11 retVal:2 retry:" + std::to_string(retry) +
            " TRY_AGAIN: Non-Authoritive Host not found, or SERVERFAIL\n");
    }
    expected.emplace_back("gethostbyname failed [alpha] 0 110 after 10 retries\n");
    EXPECT_EQ(trace.lines(), expected);
}

struct ErrorRow {
    int resolver_error;
    const char* text;
};

class HostLookupError : public testing::TestWithParam<ErrorRow> {};

TEST_P(HostLookupError, StopsAtOnce)
{
    const auto [resolver_error, text] = GetParam();
    sockaddr_in address{};
    const lan_test::TraceCapture trace;

    EXPECT_EQ(
        resolve({.returns = 34, .resolver_error = resolver_error, .system_error = 2}, address), -1);

    EXPECT_EQ(g_script.calls, 1);
    EXPECT_TRUE(g_script.pauses_ms.empty());
    EXPECT_THAT(trace.lines(),
                ElementsAre("DGRAM_GetHostByName failed name:alpha err:34 retVal:" +
                                std::to_string(resolver_error) + " retry:0 " + text + "\n",
                            "gethostbyname failed [alpha] 34 2 after 0 retries\n"));
}

INSTANTIATE_TEST_SUITE_P(
    Table, HostLookupError,
    testing::Values(ErrorRow{1, "HOST_NOT_FOUND: Authoritive Answer Host not found"},
                    ErrorRow{3, "NO_RECOVERY: Non recoverable errors, FORMERR, REFUSED, NOTIMP"},
                    ErrorRow{4, "NO_DATA: Valid name, no data record of requested type"},
                    ErrorRow{-1, "UNDEFINED error for gethostbyname"},
                    ErrorRow{5, "UNDEFINED error for gethostbyname"}),
    [](const auto& row) { return "error" + std::to_string(row.param.resolver_error + 1); });

// The look-up may succeed without an entry: an answer, but no address.
TEST(HostLookup, SuccessWithoutAnEntryIsNotResolved)
{
    sockaddr_in address{};
    const lan_test::TraceCapture trace;

    EXPECT_EQ(resolve({.returns = 0, .resolver_error = 1, .system_error = 5}, address), -1);

    EXPECT_EQ(g_script.calls, 1);
    EXPECT_THAT(trace.lines(), ElementsAre("gethostbyname failed [alpha] 0 5 after 0 retries\n"));
}

TEST(HostLookup, SystemResolverKnowsNumericAddresses)
{
    sockaddr_in address{};

    EXPECT_EQ(DGRAM_GetHostByName("127.0.0.1", &address), 0);
    DGRAM_FreeHostent();

    EXPECT_EQ(ntohl(address.sin_addr.s_addr), 0x7F000001U);
}

}  // namespace
