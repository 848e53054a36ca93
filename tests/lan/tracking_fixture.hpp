// A server that tracks duplicates, with one handler that counts its calls and one that is silent.
#ifndef CORVANE_TESTS_LAN_TRACKING_FIXTURE_HPP
#define CORVANE_TESTS_LAN_TRACKING_FIXTURE_HPP

#include <cstring>
#include <functional>
#include <utility>

#include "tests/lan/server_fixture.hpp"

namespace lan_test {

inline int g_calls = 0;
inline std::function<void()> g_inside;  // runs once, while the handler runs

// Replies with 52 bytes, the last four of which count the calls.
inline void* counting_handler(void* request, const DgramReplyAddr*)
{
    ++g_calls;
    if (const auto inside = std::exchange(g_inside, nullptr)) inside();
    Bytes reply(52);
    std::memcpy(reply.data(), request, 48);
    put_le32(reply, kLength, 52);
    put_le32(reply, 48, static_cast<std::uint32_t>(g_calls));
    void* const made = OSL_Malloc(reply.size(), 0);
    std::memcpy(made, reply.data(), reply.size());
    return made;
}

inline void* silent_handler(void*, const DgramReplyAddr*)
{
    ++g_calls;
    return nullptr;
}

class Tracking : public ServerTest {
protected:
    void SetUp() override
    {
        ServerTest::SetUp();
        g_calls = 0;
        g_inside = nullptr;
        LAN_RegisterMessageHandler(server_, 1, counting_handler);
        LAN_RegisterMessageHandler(server_, 2, silent_handler);
    }
    // Requests with identifiers first, first + 1, ...
    void complete(int count, int first = 0)
    {
        for (int i = 0; i < count; ++i) {
            process(native({.identifier = static_cast<unsigned char>(first + i)}));
        }
    }
};

}  // namespace lan_test
#endif
