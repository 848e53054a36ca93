// The requests that the load generator sends and the replies it gets, in either byte order. A codec
// of its own: a load generator that shared the daemon's could not tell a wrong reply from a right
// one.
#ifndef CORVANE_BENCH_LOAD_GENERATOR_MESSAGES_HPP
#define CORVANE_BENCH_LOAD_GENERATOR_MESSAGES_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace corvane::bench {

enum class Kind : std::uint8_t {
    kGetVolume = 1,
    kGetInitialMap,
    kGetExtendedMap,
    kSetSize,
    kClose
};
inline constexpr std::size_t kKinds = 6;  // by code, 0 unused

using Cookie = std::array<std::byte, 32>;

// What changes from one request to the next.
struct Subject {
    std::uint64_t run = 0;  // sets one run's identifiers apart from another's
    std::uint32_t socket = 0;
    std::uint64_t number = 0;  // of the request
    std::uint32_t file = 0;
    std::uint32_t key = 0;
    Cookie volume{};
};

// How all requests of a run are made.
struct Style {
    bool is_foreign = false;  // the other byte order than this machine's
    bool is_tracked = false;
    std::int32_t lease_ms = 0;  // 0: the default
};

// Builds requests into a buffer that is kept.
class RequestWriter {
public:
    explicit RequestWriter(const Style& style);

    // The bytes stay valid until the next call for the same kind.
    [[nodiscard]] std::span<const std::byte> write(Kind kind, const Subject& subject);

private:
    void put(Kind kind, std::size_t offset, std::uint64_t value, std::size_t width);
    void put_path(Kind kind, std::size_t offset, const char* text);

    Style style_;
    std::array<std::vector<std::byte>, kKinds> messages_;
};

// What a reply says. The daemon answers in its own order, which is this machine's.
struct ReplyView {
    std::span<const std::byte> bytes;

    [[nodiscard]] bool answers(std::span<const std::byte> request) const;  // identifiers are equal
    [[nodiscard]] bool is_success(Kind kind) const;  // complete, its code negated, its result 0
    [[nodiscard]] std::uint32_t key() const;
    [[nodiscard]] Cookie volume() const;
};

}  // namespace corvane::bench
#endif
