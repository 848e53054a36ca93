// The five requests, built in this host's byte order.
#ifndef CORVANE_CLIENT_REQUEST_HPP
#define CORVANE_CLIENT_REQUEST_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "fsmdc/messages.h"
#include "fsmdc/records.h"

namespace corvane {

using Message = std::vector<std::byte>;
using Cookie = std::array<std::uint8_t, FS_COOKIE_BYTES>;

// Sizes that a request changes on its way, in bytes.
constexpr std::int64_t kUnchanged = -1;

// The longest range that may be asked for by its length: the controller takes a longer one for a
// number in the other byte order and turns it round. "To the end" (0) has no such limit.
constexpr std::int64_t kLongestRangeBytes = 512000;
constexpr std::int64_t kToTheEnd = 0;

// Fills `id` with 16 bytes that no other request of this host carries: random ones and a counter.
void make_message_id(std::uint8_t (&id)[16]);

// `share` is a share name or an absolute path on the controller; `path` a file inside it, both
// UTF-8. All throw Failure(kBadArgument) for names that do not fit or cannot be asked for.
[[nodiscard]] Message volume_request(std::string_view share);
[[nodiscard]] Message volume_request(const Cookie& volume);

struct InitialMapArguments {
    std::int64_t filesize = kUnchanged;
    std::int64_t allocsize = kUnchanged;
    std::int32_t lease_ms = 0;  // 0 = the controller's default
    std::int32_t intention = SP_INTENTION_READ;
    std::int32_t flag = 0;
};
[[nodiscard]] Message initial_map_request(std::string_view share, std::string_view path,
                                          const InitialMapArguments& arguments);

struct ExtendedMapArguments {
    std::uint32_t key = 0;
    std::int64_t start = 0;           // first byte of the file
    std::int64_t length = kToTheEnd;  // at most kLongestRangeBytes
    std::int64_t filesize = kUnchanged;
    std::int64_t allocation = kUnchanged;
    std::int32_t lease_ms = 0;
};
[[nodiscard]] Message extended_map_request(const ExtendedMapArguments& arguments);

[[nodiscard]] Message set_size_request(std::uint32_t key, std::int64_t filesize,
                                       std::int32_t lease_ms);
[[nodiscard]] Message close_request(std::uint32_t key, std::int64_t filesize);

}  // namespace corvane
#endif
