// The Wireshark dissector on captures of the real daemon: every field of every message in both byte
// orders, pairs, duplicates, malformed lengths and the names of results, compared with what was
// sent.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cwchar>
#include <optional>
#include <sstream>

#include "fsmdc/fs_result.h"
#include "tests/packaging/capture.hpp"
#include "tests/packaging/message_fields.hpp"

namespace corvane::harness {
namespace {

using codec::Bytes;
using codec::Order;

// Records in which every field differs from its neighbours.
Bytes full_volume(Order order)
{
    Bytes little =
        codec::volume_record({{"first disk", 1024, 7, 0x1122334455667788}, {"2", 8, 9, 10}}, 4096);
    Bytes record(little.size(), order);
    for (std::size_t at = 0; at < 28; at += 4) record.put(at, 4, little.u32(at));
    record.put_bytes(64, "a descriptor of the plug-in's, 40 bytes.");
    for (std::size_t disk = 104; disk < record.size(); disk += 80) {
        record.put_bytes(disk, little.slice(disk, 16));
        for (std::size_t at = disk + 16; at < disk + 40; at += 8) record.put64(at, little.i64(at));
        record.put32(disk + 40, little.i32(disk + 40));
        record.put32(disk + 44, static_cast<std::int64_t>(disk) * 0x10001);
    }
    return record;
}

// A map of two extents of the layout `type`, whose numbers count up.
Bytes counted_map(std::int32_t type, Order order)
{
    constexpr std::size_t kExtentBytes[] = {16, 32, 24, 32};
    const std::size_t extent_bytes = type <= 3 ? kExtentBytes[type] : 8;
    Bytes map(64 + 2 * extent_bytes, order);
    map.put64(0, 0x0102030405060708);
    map.put64(8, 0x1112131415161718);
    map.put32(16, static_cast<std::int64_t>(map.size()));
    map.put32(24, 2);
    map.put32(28, type);
    map.put64(32, 4096);
    map.put64(40, 0x2122232425262728);
    for (std::size_t at = 64; at < map.size(); at += 8)
        map.put64(at, static_cast<std::int64_t>(at) * 0x100000001);
    return map;
}

class Dissector : public CaptureTest {
protected:
    void start_daemon()
    {
        Script answers;
        answers.volume_record = "result=0 record=" + codec::hex(full_volume(Order::kLittle).data());
        answers.map = "result=0 record=" + codec::hex(counted_map(1, Order::kLittle).data());
        answers.second_map = "result=1 record=" + codec::hex(counted_map(0, Order::kLittle).data());
        start_with(answers);
        start_capture();
    }

    codec::Header tracked(Order order)
    {
        codec::Header head = header(order);
        head.flags = 0x80000001;
        return head;
    }

    // One request that is answered, and all fields of both.
    Bytes pair(UdpClient& asker, const std::string& what, Bytes request, Order order,
               Fields texts = {})
    {
        request.put_bytes(40, "\x01\x02");
        request.put_bytes(44, "\x03\x04\x05\x06");
        Fields fields = request_fields(request, order);
        fields.merge(std::move(texts));
        const std::string own = std::to_string(std::stoi(last_frame()) + 1);
        fields["corvane.reply_in"] = std::to_string(std::stoi(own) + 1);
        fields["corvane.duplicate_of"] = "";
        Bytes reply = exchange(asker, what, request, fields);

        Fields answer = reply_fields(reply, Order::kLittle);
        answer["corvane.request_in"] = own;
        answer["corvane.duplicate_of"] = "";
        answer["_ws.expert.message"] = "";
        expect_frame("reply to " + what, reply, answer);
        return reply;
    }
};

TEST_F(Dissector, ShowsEveryFieldOfEveryMessageInBothOrders)
{
    start_daemon();
    UdpClient asker = client();
    for (const Order order : {Order::kLittle, Order::kBig}) {
        pair(asker, "GetVolume", codec::get_volume(tracked(order), "/vol", cookie(0x40)), order,
             {{"corvane.share", "/vol"}});
        codec::InitialMap open = map_of("/vol", "dir/f");
        open.lease = 12345;
        open.flag = 0x10008;
        const Bytes opened =
            pair(asker, "GetInitialMap", codec::get_initial_map(tracked(order), open), order,
                 {{"corvane.share", "/vol"}, {"corvane.path", "dir/f"}});
        open.flag = 1;
        open.intention = 2;
        const Bytes locked =
            pair(asker, "GetInitialMap", codec::get_initial_map(tracked(order), open), order,
                 {{"corvane.share", "/vol"}, {"corvane.path", "dir/f"}});
        EXPECT_EQ(opened.i32(48), order == Order::kLittle ? 0 : 1);
        codec::ExtendedMap more;
        more.key = locked.u32(56);
        more.start = 8192;
        more.length = 4096;
        more.lease = 2;
        more.flag = 9;
        pair(asker, "GetExtendedMap", codec::get_extended_map(tracked(order), more), order,
             {{"corvane.map_length.taken", ""}});
        pair(asker, "SetSize", codec::set_size(tracked(order), more.key, 0x0706050403020100, 99),
             order);
        pair(asker, "Close", codec::close_file(tracked(order), more.key, 77), order);
    }
    check_frames();
}

TEST_F(Dissector, PairsRepliesAndMarksDuplicates)
{
    start_daemon();
    UdpClient asker = client();
    UdpClient other = client();
    const Bytes request = codec::get_volume(tracked(Order::kLittle), "/vol");
    const auto ask = [&](UdpClient& from, const std::string& what, const Fields& asked,
                         const Fields& answered) {
        const Bytes reply = exchange(from, what, request, asked);
        expect_frame("reply to " + what, reply, answered);
    };

    ask(asker, "the first copy",
        {{"corvane.reply_in", "2"}, {"corvane.duplicate_of", ""}, {"_ws.expert.message", ""}},
        {{"corvane.request_in", "1"}, {"corvane.duplicate_of", ""}});
    ask(asker, "the second copy",
        {{"corvane.reply_in", "2"},
         {"corvane.duplicate_of", "1"},
         {"_ws.expert.message", "Duplicate of frame 1"}},
        {{"corvane.request_in", "1"},
         {"corvane.duplicate_of", "2"},
         {"_ws.expert.message", "Duplicate of frame 2"}});
    ask(other, "another sender's request of that identifier",
        {{"corvane.reply_in", "6"}, {"corvane.duplicate_of", ""}},
        {{"corvane.request_in", "5"}, {"corvane.duplicate_of", ""}});
    check_frames();
}

class MalformedMessages : public Dissector {
protected:
    // A request with a defect, and its reply, which is a bare header with this result.
    void refused(const std::string& what, const Bytes& request, const std::string& defect,
                 std::int32_t result, const std::string& info)
    {
        Bytes reply = exchange(asker(), what, request, {{"_ws.expert.message", defect}});
        Fields fields = header_fields(reply);
        fields["corvane.order"] = order_field(Order::kLittle);
        fields["corvane.result"] = std::to_string(result);
        fields["_ws.col.Info"] = info;
        fields["corvane.request_in"] = last_frame();
        expect_frame("reply to " + what, reply, fields);
        EXPECT_EQ(reply.size(), 48U);
    }
    // A request with a defect that the daemon answers all the same.
    Bytes marked(const std::string& what, const Bytes& request, const std::string& defect)
    {
        Bytes reply = exchange(asker(), what, request, {{"_ws.expert.message", defect}});
        expect_frame("reply to " + what, reply, {{"corvane.request_in", last_frame()}});
        return reply;
    }
    UdpClient& asker()
    {
        if (!asker_) asker_.emplace(client());
        return *asker_;
    }

private:
    std::optional<UdpClient> asker_;
};

TEST_F(MalformedMessages, BadLengthsAreMarkedInBothOrders)
{
    start_daemon();
    for (const Order order : {Order::kLittle, Order::kBig}) {
        codec::Header head = header(order);
        head.length = 47;
        refused("length 47", codec::close_file(head, 1), "Length field below 48", 6,
                "Close reply: FS_E_INVALID_MSG_LENGTH (invalid message length)");
        head = header(order);
        head.length = 100;
        marked("length 100 of 60", codec::close_file(head, 1),
               "Length field 100, datagram 60 bytes");
        head.length = 50;
        head.message_id[0] = '5';
        marked("length 50 of 60", codec::close_file(head, 1), "Length field 50, datagram 60 bytes");
    }
    check_frames();
}

TEST_F(MalformedMessages, UnknownFunctionsKeepTheirDirection)
{
    start_daemon();
    for (const Order order : {Order::kLittle, Order::kBig}) {
        for (const std::int32_t function : {0, 6, 77, 1000, -5}) {
            codec::Header head = header(order);
            head.function = function;
            refused("function " + std::to_string(function), codec::request(head, 48),
                    "Unknown function", 8,
                    "reply to function " + std::to_string(function) +
                        ": FS_UNKNOWN_FUNCTION (unknown message function)");
        }
    }
    check_frames();
}

TEST_F(MalformedMessages, ShortBodiesAndEndlessTextsAreMarked)
{
    start_daemon();
    const std::string past = "A field or record runs past the datagram";
    Bytes close = codec::close_file(header(), 1);
    close.resize(58);
    close.put32(28, 58);
    marked("Close without its key", close, past);

    Bytes endless = codec::get_volume(header(), "");
    for (std::size_t at = 180; at < endless.size(); at += 2) endless.put(at, 2, 'x');
    marked("a path without its end", endless, "A text without its end");

    codec::ExtendedMap more;
    more.length = 0x0007D001;
    Bytes map = codec::get_extended_map(header(), more);
    const Bytes reply = exchange(asker(), "a length of the other order", map,
                                 {{"corvane.map_length", "512001"},
                                  {"corvane.map_length.taken", std::to_string(0x01D0070000000000)},
                                  {"_ws.expert.message", "Length in the other byte order"}});
    expect_frame("its reply", reply, {{"corvane.result", std::to_string(reply.i32(48))}});

    Bytes marker = codec::close_file(header(), 1);
    marker.put32(0, 7);
    const Bytes odd = exchange(asker(), "a marker of no order", marker,
                               {{"_ws.expert.message", "Neither byte order fits the marker"}});
    expect_frame("its reply, which repeats the marker", odd,
                 {{"_ws.expert.message", "Neither byte order fits the marker"}});

    Bytes piece = codec::request(header(), 48);
    piece.resize(20);
    expect_frame("20 bytes", piece, {{"_ws.expert.message", "Datagram shorter than a header"}});
    expect_frame("its reply", asker().ask(piece), {{"corvane.result", "6"}});
    check_frames();
}

// A controller of the other byte order: what it would send, from its port, without a daemon.
class BigEndianController : public CaptureTest {
protected:
    void SetUp() override
    {
        CaptureTest::SetUp();
        if (IsSkipped()) return;
        controller_ = bound(kPort);
        asker_ = bound(kAskerPort);
        start_capture();
    }

    // A request from the client, and this body behind the header of its reply, `base` bytes in.
    Bytes answer(std::int32_t function, std::size_t base, const Bytes& record)
    {
        codec::Header head = header(Order::kBig);
        head.function = function;
        const Bytes request = codec::request(head, 48);
        send(asker_, kPort, request);
        expect_frame("request", request, {{"corvane.order", "2"}});
        head.function = -function;
        Bytes reply = codec::request(head, base + record.size());
        reply.put_bytes(base, record.data());
        return reply;
    }
    void deliver(const std::string& what, const Bytes& reply, Fields fields)
    {
        fields["corvane.request_in"] = last_frame();
        send(controller_, kAskerPort, reply);
        expect_frame(what, reply, std::move(fields));
    }

private:
    static constexpr std::uint16_t kAskerPort = 40000;

    static sockaddr_in address(std::uint16_t port)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }
    Fd bound(std::uint16_t port)
    {
        Fd socket = world().socket(Network::kMain, AF_INET, SOCK_DGRAM);
        const sockaddr_in own = address(port);
        EXPECT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own), 0);
        return socket;
    }
    static void send(const Fd& from, std::uint16_t port, const Bytes& message)
    {
        const sockaddr_in to = address(port);
        EXPECT_EQ(::sendto(from.get(), message.data().data(), message.size(), 0,
                           reinterpret_cast<const sockaddr*>(&to), sizeof to),
                  static_cast<ssize_t>(message.size()));
    }

    Fd controller_;
    Fd asker_;
};

TEST_F(BigEndianController, EveryRecordAndExtentIsRead)
{
    const auto whole = [this](const std::string& what, std::int32_t function, std::size_t base,
                              const Bytes& record) {
        const Bytes reply = answer(function, base, record);
        Fields fields = reply_fields(reply, Order::kBig);
        fields["_ws.expert.message"] = "";
        deliver(what, reply, fields);
    };
    whole("a volume", 1, 88, full_volume(Order::kBig));
    for (const std::int32_t type : {0, 1, 2, 3}) {
        whole("extents of layout " + std::to_string(type), 2, 160, counted_map(type, Order::kBig));
        whole("more extents of layout " + std::to_string(type), 3, 88,
              counted_map(type, Order::kBig));
    }
    Bytes reply = answer(3, 88, counted_map(7, Order::kBig));
    Fields fields = reply_fields(reply, Order::kBig);
    fields["corvane.extent"] = "";
    deliver("extents of no known layout", reply, fields);
    check_frames();
}

TEST_F(BigEndianController, ErrorTextsStandForDisksAndExtents)
{
    Bytes volume(104 + 12, Order::kBig);
    volume.put32(4, 3);
    volume.put32(20, 5);
    volume.put_text(104, "gone!");
    deliver("a volume's error", answer(1, 88, volume),
            {{"corvane.error_text", "gone!"}, {"corvane.disk", ""}, {"_ws.expert.message", ""}});
    Bytes map(64 + 10, Order::kBig);
    map.put32(20, -1);
    map.put32(24, 1);
    map.put_text(64, "torn");
    deliver("a map's error", answer(2, 160, map),
            {{"corvane.error_text", "torn"}, {"corvane.extent", ""}});
    check_frames();
}

TEST_F(BigEndianController, CountsThatRunPastTheDatagramAreMarked)
{
    const std::string past = "A field or record runs past the datagram";
    Bytes volume = full_volume(Order::kBig);
    volume.put(20, 4, 0xFFFFFFFF);
    deliver("disks", answer(1, 88, volume),
            {{"corvane.volume.disks", "4294967295"},
             {"corvane.disk.id_length", "10,1"},
             {"_ws.expert.message", past}});
    Bytes map = counted_map(0, Order::kBig);
    map.put32(24, 0x7FFFFFFF);
    deliver("extents", answer(3, 88, map),
            {{"corvane.map.extents", "2147483647"}, {"_ws.expert.message", past}});
    map.put32(24, -1);
    deliver("a negative count", answer(3, 88, map),
            {{"corvane.extent", ""}, {"_ws.expert.message", ""}});
    deliver("no room for a record", answer(2, 160, Bytes(20, Order::kBig)),
            {{"_ws.expert.message", past}});
    check_frames();
}

// Names by code, as the public header gives them.
std::map<std::uint32_t, std::string> header_names()
{
    std::map<std::uint32_t, std::string> names;
    std::istringstream header(source_file("fsmdc/fs_result.h"));
    for (std::string line; std::getline(header, line);) {
        std::istringstream words(line);
        std::string define, name;
        std::uint32_t code = 0;
        if (words >> define >> name >> code && define == "#define") names[code] = name;
    }
    return names;
}

// The dissector names results as the header does, in the library's words, no more and no fewer.
TEST_F(CaptureTest, ResultsAreNamedAsTheLibraryNamesThem)
{
    const std::string start = "V\tcorvane.result\t";
    std::map<std::uint32_t, std::string> named;
    std::istringstream lines(tshark({"-G", "values"}));
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, start.size(), start) != 0) continue;
        const auto code = static_cast<std::uint32_t>(std::stoul(line.substr(start.size())));
        named[code] = line.substr(line.find('\t', start.size()) + 1);
    }
    std::map<std::uint32_t, std::string> expected;
    for (const auto& [code, name] : header_names()) {
        const wchar_t* const text = FSERR_GetErrorString(code);
        ASSERT_NE(text, nullptr) << name;
        expected[code] = name + " (" + std::string(text, text + std::wcslen(text)) + ")";
    }
    EXPECT_EQ(expected.size(), 25U);
    EXPECT_EQ(named, expected);
}

}  // namespace
}  // namespace corvane::harness
