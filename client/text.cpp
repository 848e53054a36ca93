// UTF-8, UTF-16 and printable texts.
#include "client/text.hpp"

#include <array>
#include <cstdio>
#include <cwchar>

#include "client/failure.hpp"

namespace corvane {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kInvalid = 0xFFFFFFFF;

bool is_surrogate(char32_t point)
{
    return point >= 0xD800 && point <= 0xDFFF;
}

// Takes one character from the front of `text`; kInvalid (and one byte taken) when it is not UTF-8.
char32_t take_utf8(std::string_view& text)
{
    const auto first = static_cast<unsigned char>(text.front());
    text.remove_prefix(1);
    if (first < 0x80) return first;
    const int more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
    if (first < 0xC2 || first > 0xF4 || text.size() < static_cast<std::size_t>(more))
        return kInvalid;
    auto point = static_cast<char32_t>(first & (0x3F >> more));
    for (int i = 0; i < more; ++i) {
        const auto next = static_cast<unsigned char>(text[static_cast<std::size_t>(i)]);
        if ((next & 0xC0) != 0x80) return kInvalid;
        point = (point << 6) | (next & 0x3FU);
    }
    constexpr std::array<char32_t, 4> kSmallest{0, 0x80, 0x800, 0x10000};
    if (point < kSmallest[static_cast<std::size_t>(more)] || point > 0x10FFFF ||
        is_surrogate(point)) {
        return kInvalid;
    }
    text.remove_prefix(static_cast<std::size_t>(more));
    return point;
}

void append_utf8(std::string& out, char32_t point)
{
    const auto add = [&out](char32_t byte) { out.push_back(static_cast<char>(byte)); };
    if (point < 0x80) return add(point);
    if (point < 0x800) {
        add(0xC0 | (point >> 6));
    } else if (point < 0x10000) {
        add(0xE0 | (point >> 12));
        add(0x80 | ((point >> 6) & 0x3F));
    } else {
        add(0xF0 | (point >> 18));
        add(0x80 | ((point >> 12) & 0x3F));
        add(0x80 | ((point >> 6) & 0x3F));
    }
    add(0x80 | (point & 0x3F));
}

// A count in the largest unit of which there is at least one; no unit below a KiB.
struct Scaled {
    double value = 0;
    const char* unit = nullptr;
};

Scaled scale_down(std::int64_t bytes)
{
    constexpr std::array kUnits{"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    constexpr double kNextUnit = 1023.95;  // what would print as 1024.0
    Scaled scaled{static_cast<double>(bytes), nullptr};
    if (bytes < 1024) return scaled;
    for (const char* const unit : kUnits) {
        scaled = {scaled.value / 1024, unit};
        if (scaled.value < kNextUnit) break;
    }
    return scaled;
}

}  // namespace

std::vector<FSUNI> fsuni_from_utf8(std::string_view text, const char* what)
{
    std::vector<FSUNI> units;
    while (!text.empty()) {
        const char32_t point = take_utf8(text);
        if (point == kInvalid || point == 0) {
            throw Failure(kBadArgument,
                          std::string(what) + " is not valid UTF-8; give it in UTF-8");
        }
        if (point < 0x10000) {
            units.push_back(static_cast<FSUNI>(point));
        } else {
            units.push_back(static_cast<FSUNI>(0xD800 + ((point - 0x10000) >> 10)));
            units.push_back(static_cast<FSUNI>(0xDC00 + ((point - 0x10000) & 0x3FF)));
        }
    }
    return units;
}

std::vector<FSUNI> fsuni_from_bytes(std::string_view text)
{
    std::vector<FSUNI> units;
    for (const char byte : text) {
        units.push_back(
            static_cast<FSUNI>(static_cast<std::int16_t>(static_cast<signed char>(byte))));
    }
    return units;
}

std::string utf8_from_fsuni(const std::vector<FSUNI>& units)
{
    std::string out;
    for (std::size_t i = 0; i < units.size(); ++i) {
        const char32_t high = units[i];
        const char32_t low = i + 1 < units.size() ? units[i + 1] : 0;
        if (high >= 0xD800 && high < 0xDC00 && low >= 0xDC00 && low < 0xE000) {
            append_utf8(out, 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00));
            ++i;
        } else {
            append_utf8(out, is_surrogate(high) ? kReplacement : high);
        }
    }
    return out;
}

std::string utf8_from_wide(const wchar_t* text)
{
    std::string out;
    for (const wchar_t* at = text; *at != 0; ++at) append_utf8(out, static_cast<char32_t>(*at));
    return out;
}

std::string printable(std::string_view text)
{
    std::string out;
    while (!text.empty()) {
        const char32_t point = take_utf8(text);
        const bool is_control = point < 0x20 || (point >= 0x7F && point < 0xA0);
        append_utf8(out, is_control || point == kInvalid ? U'?' : point);
    }
    return out;
}

std::string hex_text(const std::uint8_t* bytes, std::size_t count)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string out;
    for (std::size_t i = 0; i < count; ++i) {
        out.push_back(kDigits[bytes[i] >> 4]);
        out.push_back(kDigits[bytes[i] & 0xF]);
    }
    return out;
}

std::string size_text(std::int64_t bytes)
{
    const Scaled scaled = scale_down(bytes);
    if (scaled.unit == nullptr) return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
    std::array<char, 32> text{};
    const bool is_whole =
        scaled.value == static_cast<double>(static_cast<std::int64_t>(scaled.value));
    (void)std::snprintf(text.data(), text.size(), is_whole ? "%.0f" : "%.1f", scaled.value);
    return std::string(text.data()) + " " + scaled.unit;
}

std::string fine_size_text(std::int64_t bytes)
{
    const Scaled scaled = scale_down(bytes);
    if (scaled.unit == nullptr) return size_text(bytes);
    std::array<char, 32> digits{};
    (void)std::snprintf(digits.data(), digits.size(), "%.2f", scaled.value);
    std::string text = digits.data();
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    return text + " " + scaled.unit;
}

}  // namespace corvane
