// Requests cut anywhere, headers of any length, and plug-ins that write nonsense, all through the
// LAN server: nothing outside a buffer is touched, and every answer's length is that of its block.
#include <malloc.h>

#include <cstring>
#include <memory>
#include <random>

#include "lan/server.h"
#include "tests/fsmdc/fake_clock.hpp"
#include "tests/fsmdc/service_fixture.hpp"

namespace fsmdc_test {
namespace {

class Hostile : public ServiceTest {
protected:
    Hostile()
    {
        collect_traces();  // so that every dump runs
        AddVolumeDispatcherToList(cookie(0x10).data(), &PluginA::library);
    }

    // Processes the datagram in a block that ends where what may be read of it does. Returns the
    // reply's length, 0 without a reply.
    std::uint32_t process(const Bytes& datagram)
    {
        const std::size_t room = std::max<std::size_t>(datagram.size(), LAN_REQUEST_ROOM);
        const auto block = std::make_unique<unsigned char[]>(room);
        std::copy(datagram.begin(), datagram.end(), block.get());
        const Reply reply(LAN_ProcessMessage(
            block.get(), static_cast<std::uint32_t>(datagram.size()), server_, sender()));
        g_traces.clear();
        if (reply == nullptr) return 0;
        const auto length = get<std::uint32_t>(reply.get(), 28);
        EXPECT_GE(length, 48u);
        // Reads every byte that would be sent: the address sanitizer knows the block's end.
        unsigned sum = 0;
        for (std::uint32_t i = 0; i < length; ++i) sum += get<unsigned char>(reply.get(), i);
        EXPECT_GT(sum, 0u);
        EXPECT_LE(length, malloc_usable_size(reply.get()));
        return length;
    }

    // A server cannot be shut down: one serves all tests.
    static LanServer* make_server()
    {
        LanServer* server = nullptr;
        EXPECT_EQ(LAN_InitServer(&server), 0u);
        server->request_room = LAN_REQUEST_ROOM;
        LAN_RegisterMessageHandler(server, 1, SP_LanGetVolume);
        LAN_RegisterMessageHandler(server, 2, SP_LanGetInitialMap);
        LAN_RegisterMessageHandler(server, 3, SP_LanGetExtendedMap);
        LAN_RegisterMessageHandler(server, 4, SP_LanSetSize);
        LAN_RegisterMessageHandler(server, 5, SP_LanClose);
        return server;
    }
    static inline LanServer* const server_ = make_server();
};

// A full request of each kind, both byte orders.
Bytes full_request(std::int32_t code, bool foreign)
{
    Bytes message = request(code, 2304);
    put64(message, 48, code == 2 ? -1 : 77);
    if (code == 2) put64(message, 56, -1);
    fill(message, 84, 32, 0x10);
    if (code == 1) put_text(message, 180, "/v");
    if (code == 2) put_text(message, 112, std::string("/v\0f", 4));
    if (!foreign) return message;
    put32(message, 0, 0x01000000);
    for (const std::size_t at : {4, 24, 28, 32, 36}) reverse(message, at, 4);
    reverse(message, 42, 2);
    return message;
}

TEST_F(Hostile, RequestsMayEndAnywhere)
{
    for (std::int32_t code = 1; code <= 5; ++code) {
        for (const bool foreign : {false, true}) {
            const Bytes whole = full_request(code, foreign);
            for (std::size_t size = 0; size <= whole.size(); size += size < 200 ? 1 : 13) {
                (void)process({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)});
            }
        }
    }
}

TEST_F(Hostile, TheHeadersLengthMayLie)
{
    for (std::int32_t code = 1; code <= 5; ++code) {
        for (const std::uint32_t length :
             {0U, 47U, 48U, 60U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
            Bytes message = full_request(code, false);
            put32(message, 28, length);
            EXPECT_GE(process(message), 48u);
        }
    }
}

TEST_F(Hostile, PathsMayHaveNoEnd)
{
    for (const std::int32_t code : {1, 2}) {
        for (const char unit : {'/', '\\', 'x'}) {
            Bytes message(65000, static_cast<unsigned char>(unit));
            const Bytes head = request(code, 65000);
            std::copy(head.begin(), head.begin() + 48, message.begin());
            for (std::size_t at = 48; at + 1 < message.size(); at += 2) {
                put<std::uint16_t>(message, at, static_cast<unsigned char>(unit));
            }
            EXPECT_GE(process(message), 48u);
        }
    }
}

// Random records from the plug-in, whose counts, lengths and types mean nothing.
TEST_F(Hostile, PlugInsMayWriteNonsense)
{
    std::mt19937 engine(42);
    const auto random = [&] { return static_cast<std::uint32_t>(engine()); };
    const auto nonsense = [&] {
        MapAnswer answer{random() % 3 == 0 ? random() : random() % 2, Bytes(random() % 4000)};
        for (auto& byte : answer.record)
            byte = static_cast<unsigned char>(random() % 5 == 0 ? random() : 0);
        if (answer.record.size() > 64 && random() % 2 == 0)
            put32(answer.record, 16, random() % 70000);
        if (answer.record.size() > 64 && random() % 2 == 0) put32(answer.record, 28, random() % 5);
        return answer;
    };
    std::uint32_t answered = 0;
    for (int round = 0; round < 3000; ++round) {
        PluginA::script.volume = nonsense();
        PluginA::script.maps = {nonsense(), nonsense()};
        PluginA::script.size_results = {random() % 3 == 0 ? random() : 0};
        const auto code = static_cast<std::int32_t>(1 + random() % 5);
        Bytes message = full_request(code, false);
        fill(message, 8, 16, static_cast<unsigned char>(random()));
        if (random() % 2 == 0) put64(message, 56, static_cast<std::int64_t>(random() % 2) - 1);
        const std::size_t key_at = code == 3 ? 84 : code == 4 ? 60 : 56;
        if (code >= 3 && globalKey > 0) put32(message, key_at, globalKey - 1);
        if (process(message) != 0) ++answered;
    }
    EXPECT_EQ(answered, 3000u);
}

TEST_F(Hostile, RandomDatagramsAreAnsweredOrDropped)
{
    std::mt19937 engine(43);
    std::uint32_t answered = 0;
    for (int round = 0; round < 3000; ++round) {
        Bytes message =
            full_request(static_cast<std::int32_t>(1 + engine() % 5), engine() % 2 == 0);
        for (int i = 0; i < 20; ++i) {
            message[engine() % message.size()] = static_cast<unsigned char>(engine());
        }
        if (process(message) != 0) ++answered;
    }
    EXPECT_GT(answered, 0u);
}

}  // namespace
}  // namespace fsmdc_test
