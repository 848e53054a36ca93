// A second codec for the metadata messages, byte by byte in either byte order. It shares no line
// with the product: what it builds and reads comes from the message tables alone.
#ifndef CORVANE_TESTS_HARNESS_CODEC_HPP
#define CORVANE_TESTS_HARNESS_CODEC_HPP

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::harness::codec {

enum class Order { kLittle, kBig };

// A message or record: bytes with numbers at offsets, in one byte order. Reading past the end
// throws.
class Bytes {
public:
    Bytes() = default;
    explicit Bytes(std::size_t count, Order order = Order::kLittle)
        : order_(order), data_(count, '\0')
    {
    }
    Bytes(std::string data, Order order) : order_(order), data_(std::move(data)) {}

    [[nodiscard]] std::uint64_t number(std::size_t at, std::size_t width) const
    {
        need(at, width);
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < width; ++i) {
            const std::size_t from = order_ == Order::kBig ? at + i : at + width - 1 - i;
            value = (value << 8U) | static_cast<unsigned char>(data_[from]);
        }
        return value;
    }
    void put(std::size_t at, std::size_t width, std::uint64_t value)
    {
        need(at, width);
        for (std::size_t i = 0; i < width; ++i) {
            const std::size_t to = order_ == Order::kBig ? at + width - 1 - i : at + i;
            data_[to] = static_cast<char>(value & 0xFFU);
            value >>= 8U;
        }
    }
    [[nodiscard]] std::int32_t i32(std::size_t at) const
    {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(number(at, 4)));
    }
    [[nodiscard]] std::uint32_t u32(std::size_t at) const
    {
        return static_cast<std::uint32_t>(number(at, 4));
    }
    [[nodiscard]] std::int64_t i64(std::size_t at) const
    {
        return static_cast<std::int64_t>(number(at, 8));
    }
    void put32(std::size_t at, std::int64_t value)
    {
        put(at, 4, static_cast<std::uint64_t>(value));
    }
    void put64(std::size_t at, std::int64_t value)
    {
        put(at, 8, static_cast<std::uint64_t>(value));
    }
    void put_bytes(std::size_t at, std::string_view bytes)
    {
        need(at, bytes.size());
        data_.replace(at, bytes.size(), bytes);
    }
    // 16-bit units of a text of plain characters, with the zero behind it.
    void put_text(std::size_t at, std::string_view text)
    {
        for (const char letter : text) {
            put(at, 2, static_cast<unsigned char>(letter));
            at += 2;
        }
        put(at, 2, 0);
    }
    [[nodiscard]] std::string text(std::size_t at) const
    {
        std::string text;
        for (; number(at, 2) != 0; at += 2) text += static_cast<char>(number(at, 2));
        return text;
    }
    [[nodiscard]] std::string slice(std::size_t at, std::size_t count) const
    {
        need(at, count);
        return data_.substr(at, count);
    }
    [[nodiscard]] const std::string& data() const { return data_; }
    [[nodiscard]] std::size_t size() const { return data_.size(); }
    void resize(std::size_t count) { data_.resize(count, '\0'); }

private:
    void need(std::size_t at, std::size_t count) const
    {
        if (at + count > data_.size()) {
            throw std::out_of_range("offset " + std::to_string(at) + " of " +
                                    std::to_string(data_.size()) + " bytes");
        }
    }

    Order order_ = Order::kLittle;
    std::string data_;
};

// What every request's header may say; `length` 0 stands for the message's own.
struct Header {
    Order order = Order::kLittle;
    std::int32_t revision = 0;
    std::string message_id = std::string(16, 'm');
    std::int32_t function = 0;
    std::uint32_t length = 0;
    std::uint32_t flags = 0;
    std::uint16_t separator = 0;
};

[[nodiscard]] inline Bytes request(const Header& header, std::size_t bytes)
{
    Bytes message(bytes, header.order);
    message.put32(0, 1);
    message.put32(4, header.revision);
    message.put_bytes(8, header.message_id);
    message.put32(24, header.function);
    message.put(28, 4, header.length != 0 ? header.length : bytes);
    message.put(32, 4, header.flags);
    message.put(42, 2, header.separator);
    return message;
}

[[nodiscard]] inline Bytes get_volume(Header header, std::string_view path,
                                      std::string_view cookie = {})
{
    header.function = 1;
    Bytes message = request(header, 2228);
    message.put_bytes(84, cookie);
    message.put_text(180, path);
    return message;
}

struct InitialMap {
    std::string share;
    std::string file;
    std::int64_t file_size = -1;
    std::int64_t alloc_size = -1;
    std::int32_t lease = 0;
    std::int32_t intention = 1;
    std::int32_t flag = 0;
};

[[nodiscard]] inline Bytes get_initial_map(Header header, const InitialMap& body)
{
    header.function = 2;
    Bytes message = request(header, 2160);
    message.put64(48, body.file_size);
    message.put64(56, body.alloc_size);
    message.put32(64, body.lease);
    message.put32(68, body.intention);
    message.put32(72, body.flag);
    message.put_text(112, body.share);
    if (!body.file.empty()) message.put_text(112 + 2 * (body.share.size() + 1), body.file);
    return message;
}

struct ExtendedMap {
    std::uint32_t key = 0;
    std::int64_t start = 0;
    std::int64_t length = 0;
    std::int64_t file_size = -1;
    std::int64_t allocation = -1;
    std::int32_t lease = 0;
    std::int32_t flag = 0;
};

[[nodiscard]] inline Bytes get_extended_map(Header header, const ExtendedMap& body)
{
    header.function = 3;
    Bytes message = request(header, 92);
    message.put64(48, body.file_size);
    message.put64(56, body.allocation);
    message.put64(64, body.start);
    message.put64(72, body.length);
    message.put32(80, body.lease);
    message.put(84, 4, body.key);
    message.put32(88, body.flag);
    return message;
}

[[nodiscard]] inline Bytes set_size(Header header, std::uint32_t key, std::int64_t file_size,
                                    std::int32_t lease = 0)
{
    header.function = 4;
    Bytes message = request(header, 64);
    message.put64(48, file_size);
    message.put32(56, lease);
    message.put(60, 4, key);
    return message;
}

[[nodiscard]] inline Bytes close_file(Header header, std::uint32_t key, std::int64_t file_size = -1)
{
    header.function = 5;
    Bytes message = request(header, 60);
    message.put64(48, file_size);
    message.put(56, 4, key);
    return message;
}

// Records as a plug-in writes them, in the machine's order.
struct Disk {
    std::string id;  // at most 16 bytes
    std::int64_t id_offset = 0;
    std::int64_t block_offset = 0;
    std::int64_t block_count = 0;
};

[[nodiscard]] inline Bytes volume_record(const std::vector<Disk>& disks, std::int32_t block_size)
{
    Bytes record(104 + 80 * disks.size());
    record.put32(0, static_cast<std::int64_t>(record.size()));
    record.put32(8, 0x0A0B);
    record.put32(12, 3);
    record.put32(16, 4);
    record.put32(20, static_cast<std::int64_t>(disks.size()));
    record.put32(24, block_size);
    for (std::size_t i = 0; i < disks.size(); ++i) {
        const std::size_t at = 104 + 80 * i;
        record.put_bytes(at, disks[i].id);
        record.put64(at + 16, disks[i].id_offset);
        record.put64(at + 24, disks[i].block_offset);
        record.put64(at + 32, disks[i].block_count);
        record.put32(at + 40, static_cast<std::int64_t>(disks[i].id.size()));
    }
    return record;
}

[[nodiscard]] inline Bytes volume_error_record(std::int32_t status, std::string_view text)
{
    Bytes record(104 + 2 * (text.size() + 1));
    record.put32(0, static_cast<std::int64_t>(record.size()));
    record.put32(4, status);
    record.put_text(104, text);
    return record;
}

struct Extent {
    std::int64_t logical = 0;
    std::int64_t physical = 0;
    std::int64_t bytes = 0;
    std::int32_t ordinal = 0;
    std::int32_t validity = 0;
};

// A map of verbose extents.
[[nodiscard]] inline Bytes map_record(std::int64_t file_size, const std::vector<Extent>& extents)
{
    Bytes record(64 + 32 * extents.size());
    record.put64(0, file_size);
    record.put64(8, file_size + 512);
    record.put32(16, static_cast<std::int64_t>(record.size()));
    record.put32(24, static_cast<std::int64_t>(extents.size()));
    record.put32(28, 1);
    record.put64(40, file_size);
    for (std::size_t i = 0; i < extents.size(); ++i) {
        const std::size_t at = 64 + 32 * i;
        record.put64(at, extents[i].logical);
        record.put64(at + 8, extents[i].physical);
        record.put64(at + 16, extents[i].bytes);
        record.put32(at + 24, extents[i].ordinal);
        record.put32(at + 28, extents[i].validity);
    }
    return record;
}

[[nodiscard]] inline Bytes map_error_record(std::int32_t status, std::string_view text)
{
    Bytes record(64 + 2 * (text.size() + 1));
    record.put32(16, 64);
    record.put32(20, status);
    record.put_text(64, text);
    return record;
}

[[nodiscard]] inline std::string hex(std::string_view bytes)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        text += kDigits[static_cast<unsigned char>(byte) >> 4U];
        text += kDigits[static_cast<unsigned char>(byte) & 15U];
    }
    return text;
}

}  // namespace corvane::harness::codec

#endif
