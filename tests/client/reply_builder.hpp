// Replies for tests, from the test harness's codec, as the client takes them in.
#ifndef CORVANE_TESTS_CLIENT_REPLY_BUILDER_HPP
#define CORVANE_TESTS_CLIENT_REPLY_BUILDER_HPP

#include <cstring>
#include <string>

#include "client/reply.hpp"
#include "tests/harness/codec.hpp"

namespace corvane::test {

using harness::codec::Bytes;
using harness::codec::Order;

// A reply of `size` bytes to `function`, all else zero.
inline Bytes reply_bytes(int function, std::size_t size, Order order = Order::kLittle)
{
    Bytes bytes(size, order);
    bytes.put32(0, 1);
    bytes.put32(24, -function);
    bytes.put(28, 4, size);
    return bytes;
}

// Takes `bytes` in as the answer to a request of `function`, in a buffer of exactly their size, so
// that a sanitizer sees a step beyond.
inline Reply take_reply(int function, const Bytes& bytes)
{
    std::vector<std::byte> buffer(bytes.size());
    std::memcpy(buffer.data(), bytes.data().data(), bytes.size());
    LanHeader request{};
    request.functionCode = function;
    return Reply(std::move(buffer), bytes.size(), request);
}

inline Reply take_translated(int function, const Bytes& bytes)
{
    Reply reply = take_reply(function, bytes);
    reply.translate_body();
    return reply;
}

}  // namespace corvane::test
#endif
