// Packets of an administrator's connection. An input is: 1 byte for who asks, then requests, each
// with 2 bytes length. Every reply stays inside its room and begins as a reply does.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <vector>

#include "fsmdc/admin_session.hpp"
#include "fsmdc/lease_list.hpp"
#include "mdcmain/log.h"
#include "mdcmain/segment.h"
#include "osl/bytes.hpp"

namespace {

void make_leases()
{
    static CorvaneSegment segment;
    segment.logMode = 2;  // the ring inside
    segment.logLevel = 1;
    fs = &segment;
    corvane::reset_leases();
    globalKey = 0;
    for (std::uint8_t i = 0; i < 20; ++i) {
        const std::vector<std::uint8_t> cookie(32, i);
        std::uint32_t key = 0;
        (void)AddLeaseToList(cookie.data(), cookie.data(), cookie.data(), cookie.data(), i % 2,
                             60000, &key, nullptr);
    }
}

// The next piece of `input`, as long as its first two bytes say or as there is, in a block of its
// own.
std::vector<std::byte> take(std::span<const std::uint8_t>& input)
{
    const std::size_t wanted = input[0] + 256U * input[1];
    const auto piece = input.subspan(2, std::min(wanted, input.size() - 2));
    input = input.subspan(2 + piece.size());
    std::vector<std::byte> bytes(piece.size());
    std::ranges::transform(piece, bytes.begin(), [](std::uint8_t b) { return std::byte{b}; });
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) return 0;
    make_leases();
    corvane::AdminSession session({.uid = data[0], .pid = 1});
    const auto room = std::make_unique<std::byte[]>(corvane::admin::kReplyBytes);
    for (std::span input(data + 1, size - 1); input.size() >= 2;) {
        const std::vector<std::byte> request = take(input);
        bool ends = false;
        const std::size_t length =
            session.answer(request, std::span(room.get(), corvane::admin::kReplyBytes), ends);
        if (length < sizeof(corvane::admin::ReplyHead) || length > corvane::admin::kReplyBytes) {
            std::abort();
        }
        const auto head = corvane::load<corvane::admin::ReplyHead>(room.get());
        if (head.magic != corvane::admin::kMagic) std::abort();
        if (ends) break;
    }
    return 0;
}
