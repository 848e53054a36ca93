// Input that nobody honest sends, and plug-ins that report nonsense: the daemon answers what can be
// answered, stays up and hands out no bytes that are not the asker's.
#include <random>

#include "tests/daemon/recorder_world.hpp"

namespace corvane::harness {
namespace {

using codec::Bytes;
using codec::Order;

class Hostile : public RecorderWorld {
protected:
    void start_plain()
    {
        Script answers;
        answers.volume_record =
            "result=0 record=" + codec::hex(codec::volume_record({{"d", 0, 0, 1}}, 512).data());
        start_with(answers);
    }

    void expect_alive()
    {
        codec::Header head = header();
        head.function = 42;
        const Bytes request = codec::request(head, 48);
        UdpClient asker = client();
        // A flood may have filled the socket's queue: a datagram then gets lost, and a client sends
        // again.
        EXPECT_TRUE(eventually([&] {
            asker.send(request.data());
            const auto reply = asker.receive(milliseconds(200));
            return reply && Bytes(*reply, Order::kLittle).i32(36) == 8;
        }));
        EXPECT_TRUE(world().is_running(daemon_pid()));
    }

    std::vector<Bytes> valid_requests(Order order)
    {
        codec::InitialMap map = map_of();
        map.flag = 8;
        const auto head = [&] { return RecorderWorld::header(order); };
        return {codec::get_volume(head(), "/vol"), codec::get_initial_map(head(), map),
                codec::get_extended_map(head(), {}), codec::set_size(head(), 3, 4),
                codec::close_file(head(), 5)};
    }

    // Whatever was asked, a reply is one: whole, of the request, and not larger than any may be.
    static void expect_wellformed(const std::string& request, const std::string& reply)
    {
        std::string padded = request;
        padded.resize(65536, '\0');
        const bool is_native = padded.substr(0, 4) == std::string("\1\0\0\0", 4);
        const Bytes asked(padded, is_native ? Order::kLittle : Order::kBig);
        const Bytes answer(reply, Order::kLittle);
        ASSERT_GE(reply.size(), 48U);
        EXPECT_LE(reply.size(), 64512U);
        EXPECT_EQ(answer.u32(28), reply.size());
        EXPECT_EQ(answer.u32(24), 0U - asked.u32(24));
        EXPECT_EQ(answer.slice(8, 16), asked.slice(8, 16));
    }

    void ask_anything(UdpClient& asker, const std::string& datagram)
    {
        asker.send(datagram);
        const auto reply = asker.receive();
        ASSERT_TRUE(reply.has_value()) << codec::hex(datagram.substr(0, 120));
        expect_wellformed(datagram, *reply);
    }
};

TEST_F(Hostile, AnyHeaderLength)
{
    start_plain();
    UdpClient asker = client();
    for (const Order order : {Order::kLittle, Order::kBig}) {
        for (const std::uint32_t length : {0U, 1U, 47U, 48U, 49U, 60U, 2160U, 65535U, 65536U,
                                           65537U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
            for (Bytes& request : valid_requests(order)) {
                request.put(28, 4, length);
                request.put(32, 4, length % 2);  // tracked or not
                ask_anything(asker, request.data());
            }
        }
    }
    expect_alive();
}

TEST_F(Hostile, RandomDatagrams)
{
    start_plain();
    UdpClient asker = client();
    std::mt19937 random(20240607);
    for (int i = 0; i < 2000 && !HasFailure(); ++i) {
        std::string datagram(1 + random() % 3000, '\0');
        for (char& byte : datagram) byte = static_cast<char>(random());
        if (datagram.size() >= 36) datagram[32] = 0;  // untracked, in either order
        if (datagram.size() >= 36) datagram[35] = 0;
        ask_anything(asker, datagram);
    }
    expect_alive();
}

TEST_F(Hostile, ValidRequestsWithRandomBytesInThem)
{
    start_plain();
    UdpClient asker = client();
    std::mt19937 random(19700101);
    for (int i = 0; i < 4000 && !HasFailure(); ++i) {
        const auto requests = valid_requests(i % 2 == 0 ? Order::kLittle : Order::kBig);
        std::string datagram = requests[random() % requests.size()].data();
        for (auto changes = 1 + random() % 12; changes > 0; --changes) {
            const std::size_t at =
                random() % 3 == 0 ? random() % datagram.size() : random() % 200 % datagram.size();
            if (at < 32 || at > 35) datagram[at] = static_cast<char>(random());
        }
        ask_anything(asker, datagram);
    }
    expect_alive();
}

TEST_F(Hostile, PathsWithoutAnEnd)
{
    start_plain();
    UdpClient asker = client();
    const auto ask_filled = [&](Bytes request, std::size_t path, char letter) {
        request.put(28, 4, request.size());
        for (std::size_t unit = path; unit + 2 <= request.size(); unit += 2) {
            request.put(unit, 2, static_cast<unsigned char>(letter));
        }
        ask_anything(asker, request.data());
    };
    for (const char letter : {'/', 'x', '\\', '\xFF'}) {
        Bytes volume = codec::get_volume(header(), "");
        Bytes map = codec::get_initial_map(header(), map_of());
        ask_filled(volume, 180, letter);
        ask_filled(map, 112, letter);
        volume.resize(65507);  // what follows the path's area is no zero either
        map.resize(65507);
        ask_filled(volume, 180, letter);
        ask_filled(map, 112, letter);
    }
    expect_alive();
}

// The share ends where the area does, and the next string would begin behind it.
TEST_F(Hostile, ShareThatFillsItsArea)
{
    start_plain();
    Bytes request = codec::get_initial_map(header(), map_of());
    request.resize(4000);
    for (std::size_t unit = 112; unit + 2 <= request.size(); unit += 2) request.put(unit, 2, '/');
    request.put(112 + 2046, 2, 0);

    const Bytes reply = client().ask(request);

    EXPECT_EQ(reply.i32(48), 406);
    expect_alive();
}

// The file part begins inside the area and does not end in it.
TEST_F(Hostile, FilePartThatLeavesItsAreaIsCutThere)
{
    start_plain();
    Bytes request = codec::get_initial_map(header(), map_of());
    request.resize(8000);
    for (std::size_t unit = 112; unit + 2 <= request.size(); unit += 2) request.put(unit, 2, 'y');
    request.put_text(112, "/vol");
    forget_calls();

    ask_anything(*std::make_unique<UdpClient>(client()), request.data());

    for (const auto& made : calls()) EXPECT_LT(made.size(), 1200U) << made;
    expect_alive();
}

struct AbsurdRecord {
    const char* name;
    bool is_volume;
    std::size_t at;  // offset of the number in the record
    std::int64_t value;
};

class HostilePlugin : public Hostile, public ::testing::WithParamInterface<AbsurdRecord> {};

// A record that claims more than its room is the plug-in's fault: 408 in a reply of fixed size.
TEST_P(HostilePlugin, RecordBeyondItsRoomIs408)
{
    const AbsurdRecord& absurd = GetParam();
    Bytes volume = codec::volume_record({{"disk", 0, 0, 1}}, 512);
    Bytes map = default_map();
    (absurd.is_volume ? volume : map).put32(absurd.at, absurd.value);
    Script answers;
    answers.volume_record = "result=0 record=" + codec::hex(volume.data());
    answers.map = "result=0 record=" + codec::hex(map.data());
    start_with(answers);
    UdpClient asker = client();

    const Bytes reply = absurd.is_volume ? asker.ask(codec::get_volume(header(), "/vol"))
                                         : asker.ask(codec::get_initial_map(header(), map_of()));

    EXPECT_EQ(reply.i32(48), 408);
    EXPECT_EQ(reply.size(), absurd.is_volume ? 272U : 256U);
    EXPECT_TRUE(logged("A plug-in reported ")) << "at level 0, too";
    expect_alive();
}
INSTANTIATE_TEST_SUITE_P(Table, HostilePlugin,
                         ::testing::Values(AbsurdRecord{"DiskCountJustTooHigh", true, 20, 803},
                                           AbsurdRecord{"DiskCountHuge", true, 20, 0x7FFFFFFF},
                                           AbsurdRecord{"DiskCountAllBits", true, 20, -1},
                                           AbsurdRecord{"DiskCountWrapping", true, 20, 0x03333334},
                                           AbsurdRecord{"MapLengthHuge", false, 16, 0x7FFFFFFF},
                                           AbsurdRecord{"MapLengthNegative", false, 16, -200},
                                           AbsurdRecord{"MapLengthJustTooHigh", false, 16,
                                                        64512 - 161}),
                         [](const auto& row) { return row.param.name; });

// A map that claims a negative extent count or more extents than it has is sent as it is, or
// refused; either way nothing else leaves the daemon with it.
TEST_F(Hostile, ExtentCountsOfAllSizesAreSurvivedByTheTrace)
{
    for (const std::int64_t count : {-1LL, 0x7FFFFFFFLL, 100000LL}) {
        Bytes map = default_map();
        map.put32(24, count);
        Script answers;
        answers.map = "result=0 record=" + codec::hex(map.data());
        start_with(answers);
        set_level(3);

        const Bytes reply = client().ask(codec::get_initial_map(header(), map_of()));

        EXPECT_TRUE(reply.size() == 162 + map.size() || reply.size() == 256) << reply.size();
        expect_alive();
        stop();
        set_level(0);
    }
}

TEST_F(Hostile, ErrorTextWithoutAnEndIsBounded)
{
    Bytes map(64);
    map.put32(16, 64);
    map.put32(20, 1);
    map.resize(kMaxReply - 256);
    for (std::size_t unit = 64; unit + 2 <= map.size(); unit += 2) map.put(unit, 2, 'e');
    Script answers;
    answers.map = "result=0 record=" + codec::hex(map.data());
    start_with(answers);
    set_level(3);

    const Bytes reply = client().ask(codec::get_initial_map(header(), map_of()));

    EXPECT_LE(reply.size(), 64512U);
    EXPECT_EQ(reply.u32(28), reply.size());
    expect_alive();
}

// What counts is the record; the number of bytes that a plug-in says it wrote decides nothing.
TEST_F(Hostile, PluginThatSaysItWroteMoreThanItsRoom)
{
    const Bytes record = codec::volume_record({{"d", 0, 0, 1}}, 512);
    Script answers;
    answers.volume_record = "result=0 room=4000000000 record=" + codec::hex(record.data());
    answers.map = "result=0 room=70000 record=" + codec::hex(default_map().data());
    start_with(answers);
    UdpClient asker = client();

    const Bytes volume = asker.ask(codec::get_volume(header(), "/vol"));
    const Bytes map = asker.ask(codec::get_initial_map(header(), map_of()));

    ASSERT_EQ(volume.size(), 272U);
    EXPECT_EQ(volume.slice(88, record.size()), record.data());
    ASSERT_EQ(map.size(), 162U + default_map().size());
    EXPECT_EQ(map.slice(160, default_map().size()), default_map().data());
    expect_alive();
}

TEST_F(Hostile, FloodFromManyPortsIsWorkedOff)
{
    start_plain();
    std::vector<UdpClient> askers;
    askers.reserve(20);
    for (int i = 0; i < 20; ++i) askers.push_back(client());
    for (int round = 0; round < 50; ++round) {
        for (UdpClient& asker : askers) {
            for (const Bytes& request : valid_requests(Order::kBig)) asker.send(request.data());
        }
    }
    expect_alive();
}

// Replies to one client never carry what another one sent.
TEST_F(Hostile, RepliesHoldNoBytesOfOthers)
{
    start_plain();
    const std::string secret = "SECRETSECRETSECRET";
    UdpClient other = client();
    for (int i = 0; i < 40; ++i) {
        Bytes request = codec::get_volume(header(), "/vol/" + secret);
        request.resize(65507);
        for (std::size_t at = 2228; at + secret.size() < request.size(); at += secret.size()) {
            request.put_bytes(at, secret);
        }
        (void)other.ask(request);
    }
    UdpClient asker = client();
    for (int i = 0; i < 40; ++i) {
        for (const Bytes& request : valid_requests(Order::kLittle)) {
            const Bytes reply = asker.ask(request);
            EXPECT_EQ(reply.data().find("SECRET"), std::string::npos);
            EXPECT_EQ(reply.data().find(std::string("S\0E\0C\0R", 7)), std::string::npos);
        }
    }
}

}  // namespace
}  // namespace corvane::harness
