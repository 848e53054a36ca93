// Datagrams into the LAN server with the five handlers behind it, and a plug-in whose answers come
// from the same input. An input is: 2 bytes length, that many bytes for the plug-in; then
// datagrams, each with 2 bytes length.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <vector>

#include "fsmdc/dispatch.hpp"
#include "fsmdc/lease_list.hpp"
#include "fsmdc/messages.h"
#include "fsmdc/service.h"
#include "lan/server.h"
#include "mdcmain/log.h"
#include "mdcmain/segment.h"
#include "osl/bytes.hpp"

namespace {

using Bytes = std::span<const std::uint8_t>;

Bytes g_plug_in;  // what the plug-in answers with: a result, then a record

// The next piece of `input`, as long as its first two bytes say or as there is.
Bytes take(Bytes& input)
{
    if (input.size() < 2) return {};
    const std::size_t wanted = input[0] + 256U * input[1];
    const Bytes piece = input.subspan(2, std::min(wanted, input.size() - 2));
    input = input.subspan(2 + piece.size());
    return piece;
}

std::uint32_t answer(void* record, std::size_t room)
{
    if (g_plug_in.empty()) return 0;
    const Bytes bytes = g_plug_in.subspan(1);
    std::copy_n(bytes.begin(), std::min(room, bytes.size()), static_cast<std::uint8_t*>(record));
    return g_plug_in[0];
}

std::uint32_t get_vol_cookie(const FSUNI* path, void* cookie)
{
    std::memset(cookie, path[0] & 0xFF, FS_COOKIE_BYTES);
    return path[1] == 'n' ? 2 : 0;
}
std::uint32_t get_vol_by_cookie(const void*, void* record, std::uint32_t* room)
{
    return answer(record, *room);
}
std::uint32_t get_cookies(const FSUNI* path, void* volume_cookie, void* file_cookie)
{
    std::size_t units = 0;
    while (path[units] != 0) ++units;  // the path ends inside its buffer
    std::memset(file_cookie, static_cast<int>(units & 0xFF), FS_COOKIE_BYTES);
    return get_vol_cookie(path, volume_cookie);
}
std::uint32_t get_locked_map(const void*, const void*, std::int64_t, std::int64_t, std::int32_t,
                             void* record, std::uint32_t* room)
{
    return answer(record, *room);
}
std::uint32_t unlock_map(const void*, const void*)
{
    return 0;
}
std::uint32_t set_file_sizes(const void*, const void*, std::int32_t, std::int64_t size,
                             std::int64_t, std::int64_t)
{
    return static_cast<std::uint32_t>(size);
}

LanServer* make_server()
{
    static CorvaneSegment segment;
    segment.logMode = 2;  // the ring inside
    segment.logLevel = 1;
    fs = &segment;
    static FsLibrary library;
    library = {5,           nullptr,        get_vol_cookie, get_vol_by_cookie,
               get_cookies, get_locked_map, unlock_map,     set_file_sizes,
               nullptr,     nullptr};
    libs[0] = &library;
    dbgSetOutputStringHandler([](const char*) {});  // so that every dump runs
    setenv("CORVANE_SMBPATH", "/nonexistent/smb.conf", 1);
    LanServer* server = nullptr;
    LAN_InitServer(&server);
    server->request_room = LAN_REQUEST_ROOM;
    LAN_RegisterMessageHandler(server, SP_GET_VOLUME, SP_LanGetVolume);
    LAN_RegisterMessageHandler(server, SP_GET_INITIAL_MAP, SP_LanGetInitialMap);
    LAN_RegisterMessageHandler(server, SP_GET_EXTENDED_MAP, SP_LanGetExtendedMap);
    LAN_RegisterMessageHandler(server, SP_SET_SIZE, SP_LanSetSize);
    LAN_RegisterMessageHandler(server, SP_CLOSE, SP_LanClose);
    return server;
}

// Every byte of a reply that would be sent lies in its block.
void check_reply(const void* reply)
{
    const auto header = corvane::load<LanHeader>(reply);
    if (header.length < sizeof header) std::abort();
    const std::vector<std::uint8_t> sent(static_cast<const std::uint8_t*>(reply),
                                         static_cast<const std::uint8_t*>(reply) + header.length);
}

void process(Bytes datagram)
{
    static LanServer* const server = make_server();
    const std::size_t room = std::max<std::size_t>(datagram.size(), LAN_REQUEST_ROOM);
    const auto block = std::make_unique<std::uint8_t[]>(room);
    std::copy(datagram.begin(), datagram.end(), block.get());
    const DgramReplyAddr sender{};
    const corvane::osl_ptr<void> reply(LAN_ProcessMessage(
        block.get(), static_cast<std::uint32_t>(datagram.size()), server, &sender));
    if (reply != nullptr) check_reply(reply.get());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    corvane::reset_leases();
    corvane::reset_dispatchers();
    globalKey = 0;
    Bytes input(data, size);
    g_plug_in = take(input);
    while (input.size() >= 2) process(take(input));
    return 0;
}
