// Text helpers of the registry and the locale names: ASCII classes that no locale changes, bounded
// copies.
#ifndef CORVANE_CODESET_TEXT_HPP
#define CORVANE_CODESET_TEXT_HPP

#include <cstdint>
#include <cstring>

namespace corvane::kel {

[[nodiscard]] inline bool is_upper(char c) noexcept
{
    return c >= 'A' && c <= 'Z';
}
[[nodiscard]] inline bool is_lower(char c) noexcept
{
    return c >= 'a' && c <= 'z';
}
[[nodiscard]] inline bool is_letter(char c) noexcept
{
    return is_upper(c) || is_lower(c);
}
[[nodiscard]] inline bool is_alphanumeric(char c) noexcept
{
    return is_letter(c) || (c >= '0' && c <= '9');
}
[[nodiscard]] inline char to_upper(char c) noexcept
{
    return is_lower(c) ? static_cast<char>(c - 'a' + 'A') : c;
}
[[nodiscard]] inline char to_lower(char c) noexcept
{
    return is_upper(c) ? static_cast<char>(c - 'A' + 'a') : c;
}
// A control or white-space character.
[[nodiscard]] inline bool is_blank(char c) noexcept
{
    return (c >= 0 && c <= ' ') || c == 0x7F;
}

// Copies `text` into `buffer` of `size` bytes, cut to size - 1; every byte behind it becomes NUL.
inline void copy_text(char* buffer, std::uint32_t size, const char* text) noexcept
{
    if (size == 0) return;
    std::strncpy(buffer, text, size - 1);
    buffer[size - 1] = '\0';
}

// The value of an environment variable; empty when unset.
[[nodiscard]] const char* environment(const char* name) noexcept;

}  // namespace corvane::kel
#endif
