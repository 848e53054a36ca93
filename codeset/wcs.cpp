// Strings of 16-bit units, with the semantics of the C library's wide-string functions.
#include "codeset/kel_wcs.h"

#include <cstring>

namespace {

[[nodiscard]] const uint16_t* end_of(const uint16_t* text) noexcept
{
    while (*text != 0) ++text;
    return text;
}

[[nodiscard]] bool is_in(const uint16_t* set, uint16_t unit) noexcept
{
    for (; *set != 0; ++set) {
        if (*set == unit) return true;
    }
    return false;
}

// Skips the leading units that are in `set`, or that are not.
[[nodiscard]] const uint16_t* skip(const uint16_t* text, const uint16_t* set, bool in_set) noexcept
{
    while (*text != 0 && is_in(set, *text) == in_set) ++text;
    return text;
}

[[nodiscard]] bool starts_with(const uint16_t* text, const uint16_t* needle) noexcept
{
    while (*needle != 0 && *text == *needle) {
        ++text;
        ++needle;
    }
    return *needle == 0;
}

// As in the C library, a place in a const string comes back writable.
[[nodiscard]] uint16_t* place(const uint16_t* at) noexcept
{
    return const_cast<uint16_t*>(at);
}

}  // namespace

uint32_t kel_wcslen(const uint16_t* text) noexcept
{
    return static_cast<uint32_t>(end_of(text) - text);
}

uint32_t kel_wcsnlen(const uint16_t* text, uint32_t maximum) noexcept
{
    uint32_t length = 0;
    while (length < maximum && text[length] != 0) ++length;
    return length;
}

uint16_t* kel_wcscpy(uint16_t* destination, const uint16_t* source) noexcept
{
    std::memcpy(destination, source, (std::size_t{kel_wcslen(source)} + 1) * sizeof *source);
    return destination;
}

uint16_t* kel_wcsncpy(uint16_t* destination, const uint16_t* source, uint32_t count) noexcept
{
    const uint32_t length = kel_wcsnlen(source, count);
    std::memcpy(destination, source, length * sizeof *source);
    std::memset(destination + length, 0, (count - length) * sizeof *destination);
    return destination;
}

uint16_t* kel_wcscat(uint16_t* destination, const uint16_t* source) noexcept
{
    (void)kel_wcscpy(place(end_of(destination)), source);
    return destination;
}

uint16_t* kel_wcsncat(uint16_t* destination, const uint16_t* source, uint32_t count) noexcept
{
    uint16_t* const at = place(end_of(destination));
    const uint32_t length = kel_wcsnlen(source, count);
    std::memcpy(at, source, length * sizeof *source);
    at[length] = 0;
    return destination;
}

int32_t kel_wcsncmp(const uint16_t* a, const uint16_t* b, uint32_t count) noexcept
{
    for (uint32_t i = 0; i < count; ++i) {
        if (a[i] != b[i]) return static_cast<int32_t>(a[i]) - static_cast<int32_t>(b[i]);
        if (a[i] == 0) return 0;
    }
    return 0;
}

uint16_t* kel_wcschr(const uint16_t* text, uint16_t unit) noexcept
{
    while (*text != unit) {
        if (*text == 0) return nullptr;
        ++text;
    }
    return place(text);
}

uint16_t* kel_wcsrchr(const uint16_t* text, uint16_t unit) noexcept
{
    for (const uint16_t* at = end_of(text);; --at) {
        if (*at == unit) return place(at);
        if (at == text) return nullptr;
    }
}

uint32_t kel_wcsspn(const uint16_t* text, const uint16_t* set) noexcept
{
    return static_cast<uint32_t>(skip(text, set, /*in_set=*/true) - text);
}

uint32_t kel_wcscspn(const uint16_t* text, const uint16_t* set) noexcept
{
    return static_cast<uint32_t>(skip(text, set, /*in_set=*/false) - text);
}

uint16_t* kel_wcspbrk(const uint16_t* text, const uint16_t* set) noexcept
{
    const uint16_t* const at = skip(text, set, /*in_set=*/false);
    return *at != 0 ? place(at) : nullptr;
}

uint16_t* kel_wcswcs(const uint16_t* haystack, const uint16_t* needle) noexcept
{
    if (*needle == 0) return place(haystack);
    for (; *haystack != 0; ++haystack) {
        if (starts_with(haystack, needle)) return place(haystack);
    }
    return nullptr;
}

uint16_t* kel_wcstok(uint16_t* text, const uint16_t* delimiters, uint16_t** rest) noexcept
{
    uint16_t* const start = text != nullptr ? text : *rest;
    if (start == nullptr) return nullptr;  // a first call without a text
    uint16_t* const token = place(skip(start, delimiters, /*in_set=*/true));
    uint16_t* const stop = place(skip(token, delimiters, /*in_set=*/false));
    *rest = stop;
    if (*token == 0) return nullptr;
    if (*stop != 0) {
        *stop = 0;
        *rest = stop + 1;
    }
    return token;
}
