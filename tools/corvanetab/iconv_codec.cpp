// One character at a time through the C library's iconv.
#include "tools/corvanetab/iconv_codec.hpp"

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace corvane::tab {
namespace {

constexpr const char* kWide = "WCHAR_T";

[[nodiscard]] iconv_t open_or_throw(const char* to, const char* from, const std::string& name)
{
    iconv_t converter = iconv_open(to, from);
    // iconv_open's documented error value is an integer in a pointer's type.
    if (converter == reinterpret_cast<iconv_t>(-1)) {  // NOLINT(performance-no-int-to-ptr)
        throw std::runtime_error("the C library does not convert '" + name +
                                 "'; see the names that iconv -l lists");
    }
    return converter;
}

[[nodiscard]] bool has_failed(std::size_t result) noexcept
{
    return result == static_cast<std::size_t>(-1);
}

}  // namespace

IconvCodec::IconvCodec(const std::string& name)
    : decoder_(open_or_throw(kWide, name.c_str(), name)),
      encoder_(open_or_throw(name.c_str(), kWide, name))
{
}

IconvCodec::~IconvCodec()
{
    (void)iconv_close(decoder_);  // neither close can fail on an open converter
    (void)iconv_close(encoder_);
}

Decoding IconvCodec::decode(std::string_view bytes, std::u32string& characters) const
{
    std::array<char, 64> output{};
    std::string input(bytes);
    char* from = input.data();
    std::size_t from_left = input.size();
    char* to = output.data();
    std::size_t to_left = output.size();
    (void)iconv(decoder_, nullptr, nullptr, nullptr, nullptr);
    if (has_failed(iconv(decoder_, &from, &from_left, &to, &to_left))) {
        return errno == EINVAL ? Decoding::kIncomplete : Decoding::kInvalid;
    }
    if (has_failed(iconv(decoder_, nullptr, nullptr, &to, &to_left))) return Decoding::kInvalid;
    characters.resize(static_cast<std::size_t>(to - output.data()) / sizeof(char32_t));
    std::memcpy(characters.data(), output.data(), characters.size() * sizeof(char32_t));
    return Decoding::kWhole;
}

std::string IconvCodec::encode(char32_t character) const
{
    std::array<char, 64> output{};
    std::array<char, sizeof character> input{};
    std::memcpy(input.data(), &character, sizeof character);  // the wide form is in host order here
    char* from = input.data();
    std::size_t from_left = input.size();
    char* to = output.data();
    std::size_t to_left = output.size();
    (void)iconv(encoder_, nullptr, nullptr, nullptr, nullptr);
    if (has_failed(iconv(encoder_, &from, &from_left, &to, &to_left))) return {};
    if (has_failed(iconv(encoder_, nullptr, nullptr, &to, &to_left))) return {};
    return {output.data(), to};
}

}  // namespace corvane::tab
