// Requests and replies byte by byte.
#include "bench/load_generator_messages.hpp"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>

namespace corvane::bench {
namespace {

constexpr std::array<std::size_t, kKinds> kRequest_bytes{0, 2228, 2160, 92, 64, 60};
constexpr std::size_t kIdentifier = 8;
constexpr std::size_t kIdentifier_bytes = 16;
constexpr std::size_t kHeader_bytes = 48;
constexpr std::size_t kResult = 48;  // of every reply's body
constexpr std::uint64_t kUnchanged = ~std::uint64_t{0};

constexpr char kShare[] = "/bench";  // a path already: no share name is looked up
constexpr std::size_t kVolumeCookie = 84;
constexpr std::size_t kInitialPath = 112;
constexpr std::size_t kFilePath = kInitialPath + 2 * sizeof kShare;

std::size_t index_of(Kind kind)
{
    return static_cast<std::size_t>(kind);
}

template <class T>
T get(std::span<const std::byte> bytes, std::size_t offset)
{
    T value{};
    if (bytes.size() >= offset + sizeof value) {
        std::memcpy(&value, bytes.data() + offset, sizeof value);
    }
    return value;
}

}  // namespace

RequestWriter::RequestWriter(const Style& style) : style_(style)
{
    for (std::size_t code = 1; code < kKinds; ++code) {
        const auto kind = static_cast<Kind>(code);
        messages_.at(code).resize(kRequest_bytes.at(code));
        put(kind, 0, 1, 4);
        put(kind, 24, code, 4);
        put(kind, 28, kRequest_bytes.at(code), 4);
        put(kind, 32, style.is_tracked ? 1 : 0, 4);
        put(kind, 42, '/', 2);
    }
    const auto lease = static_cast<std::uint32_t>(style.lease_ms);
    put(Kind::kGetInitialMap, 48, kUnchanged, 8);
    put(Kind::kGetInitialMap, 56, kUnchanged, 8);
    put(Kind::kGetInitialMap, 64, lease, 4);
    put(Kind::kGetInitialMap, 68, 2, 4);  // write
    put_path(Kind::kGetInitialMap, kInitialPath, kShare);
    put(Kind::kGetExtendedMap, 48, kUnchanged, 8);
    put(Kind::kGetExtendedMap, 56, kUnchanged, 8);
    put(Kind::kGetExtendedMap, 72, 65536, 8);
    put(Kind::kGetExtendedMap, 80, lease, 4);
    put(Kind::kSetSize, 48, 4096, 8);
    put(Kind::kSetSize, 56, lease, 4);
    put(Kind::kClose, 48, kUnchanged, 8);
}

void RequestWriter::put(Kind kind, std::size_t offset, std::uint64_t value, std::size_t width)
{
    std::array<std::byte, sizeof value> bytes{};
    std::memcpy(bytes.data(), &value, sizeof value);
    static_assert(std::endian::native == std::endian::little, "the low bytes come first");
    if (style_.is_foreign)
        std::reverse(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(width));
    std::memcpy(messages_.at(index_of(kind)).data() + offset, bytes.data(), width);
}

void RequestWriter::put_path(Kind kind, std::size_t offset, const char* text)
{
    for (std::size_t i = 0; text[i] != '\0'; ++i) {
        put(kind, offset + 2 * i, static_cast<unsigned char>(text[i]), 2);
    }
}

std::span<const std::byte> RequestWriter::write(Kind kind, const Subject& subject)
{
    std::vector<std::byte>& message = messages_.at(index_of(kind));
    std::memcpy(message.data() + kIdentifier, &subject.number, 8);
    const std::uint64_t rest = subject.run << 8U | subject.socket;
    std::memcpy(message.data() + kIdentifier + 8, &rest, 8);
    switch (kind) {
        case Kind::kGetVolume:
            std::memcpy(message.data() + kVolumeCookie, subject.volume.data(),
                        subject.volume.size());
            break;
        case Kind::kGetInitialMap: {
            std::array<char, 16> name{};
            (void)std::snprintf(name.data(), name.size(), "/f%010u", subject.file);
            put_path(kind, kFilePath, name.data());
            break;
        }
        case Kind::kGetExtendedMap:
            put(kind, 84, subject.key, 4);
            break;
        case Kind::kSetSize:
            put(kind, 60, subject.key, 4);
            break;
        case Kind::kClose:
            put(kind, 56, subject.key, 4);
            break;
    }
    return message;
}

bool ReplyView::answers(std::span<const std::byte> request) const
{
    return bytes.size() >= kHeader_bytes &&
           std::memcmp(bytes.data() + kIdentifier, request.data() + kIdentifier,
                       kIdentifier_bytes) == 0;
}

bool ReplyView::is_success(Kind kind) const
{
    return bytes.size() > kHeader_bytes && get<std::uint32_t>(bytes, 28) == bytes.size() &&
           get<std::int32_t>(bytes, 24) == -static_cast<std::int32_t>(kind) &&
           get<std::int32_t>(bytes, kResult) == 0;
}

std::uint32_t ReplyView::key() const
{
    return get<std::uint32_t>(bytes, 56);
}

Cookie ReplyView::volume() const
{
    return get<Cookie>(bytes, 128);
}

}  // namespace corvane::bench
