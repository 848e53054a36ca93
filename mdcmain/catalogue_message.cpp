// The check of a foreign format text.
#include "mdcmain/catalogue_message.hpp"

#include <cstring>

namespace corvane {
namespace {

// Reads one conversion from behind its "%". Returns what follows it, or null when it is not a plain
// one.
[[nodiscard]] const char* read_conversion(const char* at, ArgumentKind& kind) noexcept
{
    at += std::strspn(at, "-+ #0");
    at += std::strspn(at, "0123456789");
    if (*at == '.') at += 1 + std::strspn(at + 1, "0123456789");
    const bool is_long = std::strncmp(at, "ll", 2) == 0;
    if (is_long) at += 2;
    if (*at == '\0') return nullptr;
    if (*at == 's' && !is_long) {
        kind = ArgumentKind::kText;
    } else if (std::strchr("diuxX", *at) != nullptr) {
        kind = is_long ? ArgumentKind::kLongLong : ArgumentKind::kInt;
    } else {
        return nullptr;
    }
    return at + 1;
}

}  // namespace

bool takes_arguments(const char* text, const ArgumentKind* kinds, std::size_t count) noexcept
{
    std::size_t taken = 0;
    for (const char* at = std::strchr(text, '%'); at != nullptr; at = std::strchr(at, '%')) {
        if (at[1] == '%') {
            at += 2;
            continue;
        }
        ArgumentKind kind{};
        at = read_conversion(at + 1, kind);
        if (at == nullptr || taken == count || kinds[taken++] != kind) return false;
    }
    return true;
}

}  // namespace corvane
