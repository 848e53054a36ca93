// Builds requests: a structure filled in and copied into a message.
#include "client/request.hpp"

#include <sys/random.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <string>

#include "client/failure.hpp"
#include "client/text.hpp"
#include "osl/bytes.hpp"

namespace corvane {
namespace {

constexpr std::int32_t kRevision = 1;

template <class Request>
void fill_header(Request& request, std::int32_t function_code)
{
    request.header.endian = 1;
    request.header.revision = kRevision;
    make_message_id(request.header.messageID);
    request.header.functionCode = function_code;
    request.header.length = sizeof(Request);
    request.header.flags = LAN_FLAG_TRACK;
    request.header.spare2 = '/';  // what separates names in the paths of this request
}

template <class Request>
Message as_message(const Request& request)
{
    Message message(sizeof request);
    store(message.data(), request);
    return message;
}

// The controller reads a backslash as a slash, so such a name would reach another file.
void refuse_backslash(std::string_view name, const char* what)
{
    if (name.find('\\') == std::string_view::npos) return;
    throw Failure(kBadArgument, std::string(what) +
                                    " holds a backslash, which the controller reads as a slash; "
                                    "rename it or use the mounted file system");
}

std::vector<FSUNI> share_units(std::string_view share)
{
    if (share.empty()) {
        throw Failure(kBadArgument, "the share is empty; give a share name or an absolute path");
    }
    refuse_backslash(share, "the share");
    // The controller narrows the share unit by unit: bytes survive that, UTF-16 would not.
    (void)fsuni_from_utf8(share, "the share");
    auto units = fsuni_from_bytes(share);
    constexpr std::size_t kLongestShare = 255;
    if (units.size() > kLongestShare) {
        throw Failure(kBadArgument, "the share is longer than 255 bytes; give a shorter name");
    }
    return units;
}

std::vector<FSUNI> file_units(std::string_view path, std::size_t room_units)
{
    refuse_backslash(path, "the path");
    auto units = fsuni_from_utf8(path, "the path");
    if (units.empty()) {
        throw Failure(kBadArgument, "the path is empty; give the path of a file inside the share");
    }
    if (units.size() > room_units) {
        throw Failure(kBadArgument,
                      "share and path together exceed 1022 characters; use a share "
                      "that is nearer to the file");
    }
    return units;
}

}  // namespace

void make_message_id(std::uint8_t (&id)[16])
{
    static std::atomic<std::uint64_t> counter{0};
    std::uint64_t random = 0;
    if (getrandom(&random, sizeof random, 0) != static_cast<ssize_t>(sizeof random)) {
        const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
        random = static_cast<std::uint64_t>(now);
    }
    const std::uint64_t count = counter.fetch_add(1, std::memory_order_relaxed);
    std::memcpy(id, &random, sizeof random);
    std::memcpy(id + sizeof random, &count, sizeof count);
}

Message volume_request(std::string_view share)
{
    GetVolumeRequest request{};
    fill_header(request, SP_GET_VOLUME);
    std::ranges::copy(share_units(share), request.path);
    return as_message(request);
}

Message volume_request(const Cookie& volume)
{
    GetVolumeRequest request{};
    fill_header(request, SP_GET_VOLUME);
    std::ranges::copy(volume, request.volumeCookie);
    return as_message(request);
}

Message initial_map_request(std::string_view share, std::string_view path,
                            const InitialMapArguments& arguments)
{
    GetInitialMapRequest request{};
    fill_header(request, SP_GET_INITIAL_MAP);
    request.filesize = arguments.filesize;
    request.allocsize = arguments.allocsize;
    request.lease = arguments.lease_ms;
    request.intention = arguments.intention;
    request.flag = arguments.flag;
    const auto first = share_units(share);
    const auto second = file_units(path, SP_PATH_UNITS - 2 - first.size());
    std::ranges::copy(first, request.path);
    std::ranges::copy(second, request.path + first.size() + 1);
    return as_message(request);
}

Message extended_map_request(const ExtendedMapArguments& arguments)
{
    GetExtendedMapRequest request{};
    fill_header(request, SP_GET_EXTENDED_MAP);
    request.filesize = arguments.filesize;
    request.allocation = arguments.allocation;
    request.start = arguments.start;
    request.length = std::clamp(arguments.length, kToTheEnd, kLongestRangeBytes);
    request.lease = arguments.lease_ms;
    request.key = arguments.key;
    return as_message(request);
}

Message set_size_request(std::uint32_t key, std::int64_t filesize, std::int32_t lease_ms)
{
    SetSizeRequest request{};
    fill_header(request, SP_SET_SIZE);
    request.filesize = filesize;
    request.lease = lease_ms;
    request.key = key;
    return as_message(request);
}

Message close_request(std::uint32_t key, std::int64_t filesize)
{
    CloseRequest request{};
    fill_header(request, SP_CLOSE);
    request.filesize = filesize;
    request.key = key;
    return as_message(request);
}

}  // namespace corvane
