// Fields of delimited texts.
#include "osl/token.h"

#include <cstring>
#include <string_view>

int32_t token_getNumTokens(const char* text, char delimiter) noexcept
{
    const std::string_view all(text);
    if (all.empty()) return 0;
    int32_t count = 0;
    for (const char c : all) count += c == delimiter ? 1 : 0;
    return all.back() == delimiter ? count : count + 1;
}

char* token_getToken(const char* text, char delimiter, int32_t index, char* result,
                     int32_t capacity_bytes) noexcept
{
    if (capacity_bytes <= 0) return result;  // no room even for the zero
    std::string_view rest(text);
    if (index < 0) rest = {};
    for (int32_t skipped = 0; skipped < index && !rest.empty(); ++skipped) {
        const size_t at = rest.find(delimiter);
        rest = at == std::string_view::npos ? std::string_view{} : rest.substr(at + 1);
    }
    const std::string_view field =
        rest.substr(0, rest.find(delimiter)).substr(0, static_cast<size_t>(capacity_bytes) - 1);
    field.copy(result, field.size());
    result[field.size()] = 0;
    return result;
}

char* unquote(char* text) noexcept
{
    char* kept = text;
    for (const char* from = text; *from != 0; ++from) {
        if (*from != '"') *kept++ = *from;
    }
    *kept = 0;
    return text;
}

int32_t doesMatch(const char* prefix, const char* path) noexcept
{
    const size_t length = std::strlen(prefix);
    if (std::strncmp(prefix, path, length) != 0) return 0;
    return path[length] == 0 || path[length] == '/' ? 1 : 0;
}
