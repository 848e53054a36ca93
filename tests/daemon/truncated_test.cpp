// Every truncation of every request: what is cut off reads as zeros, never as bytes of an earlier
// datagram, and the reply is the one that the remaining bytes ask for.
#include "tests/daemon/recorder_world.hpp"

namespace corvane::harness {
namespace {

using codec::Bytes;
using codec::Order;

class Truncated : public RecorderWorld, public ::testing::WithParamInterface<Order> {
protected:
    void SetUp() override
    {
        RecorderWorld::SetUp();
        if (IsSkipped()) return;
        Script answers;
        answers.volume_record = "result=0 record=" + codec::hex(volume_.data());
        start_with(answers);
        fill_buffers();
    }

    // Leaves other bytes than zeros in the receive buffer of every listener thread.
    void fill_buffers()
    {
        UdpClient asker = client();
        for (int i = 0; i < 60; ++i) {
            EXPECT_EQ(asker.ask(Bytes(std::string(65507, 'A'), Order::kLittle)).i32(36), 8);
        }
    }

    codec::Header header()
    {
        codec::Header head = RecorderWorld::header(GetParam());
        head.message_id = "a message's id..";
        return head;
    }

    // Sends each truncation of `request` and compares the reply with what the tables say.
    void check_all(const Bytes& request)
    {
        UdpClient asker = client();
        for (std::size_t count = 1; count < request.size(); ++count) {
            const std::string cut = request.data().substr(0, count);
            asker.send(cut);
            const auto reply = asker.receive();
            ASSERT_TRUE(reply.has_value()) << "no reply to " << count << " bytes";
            const Bytes answer(*reply, Order::kLittle);
            expect_same(answer, expected_for(cut, answer));
            if (HasFailure()) {
                ADD_FAILURE() << "that was the reply to " << count << " of " << request.size()
                              << " bytes";
                return;
            }
        }
    }

    // The reply to `cut`; of `answer` only the granted lease is taken, which may have a second
    // more.
    Bytes expected_for(const std::string& cut, const Bytes& answer)
    {
        const bool is_native =
            cut.substr(0, 4) == std::string("\1\0\0\0", 4).substr(0, cut.size()) || cut[0] == '\1';
        Bytes request(cut, is_native ? Order::kLittle : Order::kBig);
        request.resize(65536);
        const std::int32_t function = request.i32(24);
        if (request.u32(28) < 48) return error_reply(request, 6);
        switch (function) {
            case 1:
                return volume_reply(request);
            case 2:
                return map_reply(request, answer);
            case 3:
                return fixed_reply(request, 184, 407);
            case 4:
                return fixed_reply(request, 72, 407);
            case 5:
                return fixed_reply(request, 88, 407);
            default:
                return error_reply(request, 8);
        }
    }

    static Bytes turned_header(const Bytes& request, std::size_t bytes, std::int32_t revision)
    {
        Bytes reply(bytes);
        reply.put32(0, 1);
        reply.put32(4, revision);
        reply.put_bytes(8, request.slice(8, 16));
        reply.put32(24, -static_cast<std::int64_t>(request.i32(24)));
        reply.put32(28, static_cast<std::int64_t>(bytes));
        reply.put(32, 4, request.number(32, 4));
        reply.put_bytes(40, request.slice(40, 2));
        reply.put(42, 2, request.number(42, 2));
        reply.put_bytes(44, request.slice(44, 4));
        return reply;
    }

    static Bytes error_reply(const Bytes& request, std::int32_t code)
    {
        Bytes reply = turned_header(request, 48, request.i32(4));
        reply.put_bytes(0, request.slice(0, 4));
        reply.put32(36, code);
        return reply;
    }

    static Bytes fixed_reply(const Bytes& request, std::size_t bytes, std::int32_t code)
    {
        Bytes reply = turned_header(request, bytes, request.i32(4));
        reply.put32(48, code);
        return reply;
    }

    Bytes volume_reply(const Bytes& request)
    {
        const std::string path = request.text(180);
        if (path.empty()) return fixed_reply(request, 272, 405);
        if (path[0] != '/') return fixed_reply(request, 272, 3);
        EXPECT_EQ(last_call("FS_GetVolCookie"), call("FS_GetVolCookie path=" + path));
        Bytes reply = turned_header(request, 272, kVersion);
        reply.put_bytes(88, volume_.data());
        return reply;
    }

    Bytes map_reply(const Bytes& request, const Bytes& answer)
    {
        const std::string share = request.text(112);
        if (share.empty() || share[0] != '/') return fixed_reply(request, 256, 3);
        const std::string file = request.text(112 + 2 * (share.size() + 1));
        if (file.empty()) return fixed_reply(request, 256, 406);
        EXPECT_EQ(last_call("FS_GetCookies"), call("FS_GetCookies path=" + share + "/" + file));
        const std::string record = default_map().data();
        Bytes reply = turned_header(request, 162 + record.size(), kVersion);
        const std::int32_t lease = answer.i32(52);
        EXPECT_TRUE(lease == 60000 || lease == 61000) << lease;
        reply.put32(52, lease);
        reply.put32(56, next_key_++);
        reply.put_bytes(96, file_cookie());
        reply.put_bytes(128, volume_cookie());
        reply.put_bytes(160, record);
        return reply;
    }

    // The newest call of this entry point; what was written down before is then forgotten.
    std::string last_call(const std::string& entry)
    {
        std::string last;
        for (const auto& made : calls()) {
            if (made.find(" " + entry + " ") != std::string::npos) last = made;
        }
        forget_calls();
        return last;
    }

private:
    const Bytes volume_ = codec::volume_record({{"0123456789abcdef", 512, 34, 1000000}}, 4096);
    std::int64_t next_key_ = 0;
};
INSTANTIATE_TEST_SUITE_P(Orders, Truncated, ::testing::Values(Order::kLittle, Order::kBig),
                         [](const auto& row) {
                             return row.param == Order::kLittle ? "LittleEndian" : "BigEndian";
                         });

TEST_P(Truncated, GetVolume)
{
    check_all(codec::get_volume(header(), "/vol/with/a/path", cookie(0x51)));
}

TEST_P(Truncated, GetInitialMap)
{
    codec::InitialMap map = map_of("/vol/share", "some/file");
    map.lease = 60000;
    map.flag = 8;  // leaves no lease behind
    check_all(codec::get_initial_map(header(), map));
}

TEST_P(Truncated, GetExtendedMap)
{
    codec::ExtendedMap map;
    map.key = 0x11121314;
    map.start = 5;
    map.length = 6;
    check_all(codec::get_extended_map(header(), map));
}

TEST_P(Truncated, SetSize)
{
    check_all(codec::set_size(header(), 0x21222324, 1, 2));
}

TEST_P(Truncated, Close)
{
    check_all(codec::close_file(header(), 0x31323334));
}

}  // namespace
}  // namespace corvane::harness
