// A daemon with one recorder as its only file system: cookies, records and scripts that the tests
// share.
#ifndef CORVANE_TESTS_DAEMON_RECORDER_WORLD_HPP
#define CORVANE_TESTS_DAEMON_RECORDER_WORLD_HPP

#include <string>
#include <vector>

#include "tests/harness/daemon.hpp"

namespace corvane::harness {

inline constexpr std::int32_t kVersion = 77;  // the recorder's, which replies carry as revision
inline constexpr std::int32_t kRequestRevision = 5;  // what our requests carry
inline constexpr std::int32_t kMaxReply = 64512;

// 32 different bytes from `first` on.
inline std::string cookie(unsigned first)
{
    std::string bytes;
    for (unsigned i = 0; i < 32; ++i) bytes += static_cast<char>(first + i);
    return bytes;
}

inline std::string volume_cookie()
{
    return cookie(0x20);
}
inline std::string file_cookie()
{
    return cookie(0xA0);
}
inline std::string volume_hex()
{
    return codec::hex(volume_cookie());
}
inline std::string file_hex()
{
    return codec::hex(file_cookie());
}

class RecorderWorld : public DaemonTest {
protected:
    // What the recorder answers; "" leaves the default in place.
    struct Script {
        std::string volume_cookie = "result=0 volume=" + volume_hex();
        std::string volume_record;
        std::string cookies = "result=0 volume=" + volume_hex() + " file=" + file_hex();
        std::string map = "result=0 record=" + codec::hex(default_map().data());
        std::string second_map;
        std::string sizes = "result=0";
        std::string leases = "result=1";
    };

    static codec::Bytes default_map()
    {
        return codec::map_record(5000,
                                 {{0, 0x1122334455667788, 4096, 0, 0}, {4096, 0x99, 904, 1, 2}});
    }

    void SetUp() override
    {
        DaemonTest::SetUp();
        if (!IsSkipped()) install_recorder();
    }

    // Starts a daemon whose recorder answers so.
    void start_with(const Script& answers)
    {
        std::string lines = "FS_GetVersion result=" + std::to_string(kVersion) + "\n";
        const auto add = [&lines](const char* entry, const std::string& answer) {
            if (!answer.empty()) lines += std::string(entry) + " " + answer + "\n";
        };
        add("FS_GetVolCookie", answers.volume_cookie);
        add("FS_GetVolByCookie", answers.volume_record);
        add("FS_GetCookies", answers.cookies);
        add("FS_GetLockedMap", answers.map);
        add("FS_GetLockedMap", answers.second_map);
        add("FS_SetFileSizes", answers.sizes);
        add("FS_GetMaxLeases", answers.leases);
        script(lines);
        start();
    }

    // A header whose every field differs from its neighbours; each call has an id of its own.
    codec::Header header(codec::Order order = codec::Order::kLittle)
    {
        codec::Header header;
        header.order = order;
        header.revision = kRequestRevision;
        header.message_id = "id" + std::to_string(next_id_++) + "................";
        header.message_id.resize(16);
        header.separator = '/';
        return header;
    }

    static codec::InitialMap map_of(const std::string& share = "/vol",
                                    const std::string& file = "dir/f")
    {
        codec::InitialMap map;
        map.share = share;
        map.file = file;
        return map;
    }

    // Opens a file; the reply must say 0.
    std::uint32_t open_key(UdpClient& asker, const codec::InitialMap& map)
    {
        const codec::Bytes reply = asker.ask(codec::get_initial_map(header(), map));
        EXPECT_EQ(reply.i32(48), 0);
        return reply.u32(56);
    }
    std::uint32_t open_key()
    {
        UdpClient asker = client();
        return open_key(asker, map_of());
    }

    // The reply that the tables ask for: the request's header turned round, in the controller's
    // order.
    static codec::Bytes reply_to(const codec::Bytes& request, const codec::Header& header,
                                 std::int32_t revision, std::size_t bytes)
    {
        codec::Bytes reply(bytes);
        reply.put32(0, 1);
        reply.put32(4, revision);
        reply.put_bytes(8, header.message_id);
        reply.put32(24, -static_cast<std::int64_t>(request.i32(24)));
        reply.put32(28, static_cast<std::int64_t>(bytes));
        reply.put(32, 4, header.flags);
        reply.put(42, 2, header.separator);
        return reply;
    }

    static void expect_same(const codec::Bytes& reply, const codec::Bytes& expected)
    {
        ASSERT_EQ(reply.size(), expected.size());
        for (std::size_t at = 0; at < reply.size(); ++at) {
            if (reply.data()[at] == expected.data()[at]) continue;
            const std::size_t from = at / 8 * 8;
            const std::size_t count = std::min<std::size_t>(24, reply.size() - from);
            FAIL() << "at " << at << ": from " << from << " on "
                   << codec::hex(reply.slice(from, count)) << ", expected "
                   << codec::hex(expected.slice(from, count));
        }
    }

    static std::string call(const std::string& text) { return "recorder.so " + text; }
    static std::string map_call(std::int64_t start, std::int64_t length, int flag, int room)
    {
        return call("FS_GetLockedMap volume=" + volume_hex() + " file=" + file_hex() +
                    " start=" + std::to_string(start) + " length=" + std::to_string(length) +
                    " flag=" + std::to_string(flag) + " room=" + std::to_string(room));
    }
    static std::string size_call(std::int64_t size, std::int64_t allocation)
    {
        return call("FS_SetFileSizes volume=" + volume_hex() + " file=" + file_hex() +
                    " unused=0 size=" + std::to_string(size) +
                    " allocation=" + std::to_string(allocation) + " reserved=-1");
    }
    static std::string unlock_call()
    {
        return call("FS_UnlockMap volume=" + volume_hex() + " file=" + file_hex());
    }
    static std::string lease_call(std::int32_t lease)
    {
        return call("FS_GetMaxLeases volume=" + volume_hex() + " read=" + std::to_string(lease) +
                    " write=" + std::to_string(lease));
    }

private:
    int next_id_ = 0;
};

}  // namespace corvane::harness

#endif
