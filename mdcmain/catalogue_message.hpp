// Operator messages by number. Their texts come from a file, so their conversions are checked
// against the arguments before anything is formatted with them.
#ifndef CORVANE_MDCMAIN_CATALOGUE_MESSAGE_HPP
#define CORVANE_MDCMAIN_CATALOGUE_MESSAGE_HPP

#include <array>
#include <cstddef>
#include <cstdint>

#include "mdcmain/log.hpp"

namespace corvane {

// What a conversion takes: "%s", "%d" and its kin, or the same with "ll".
enum class ArgumentKind : std::uint8_t { kText, kInt, kLongLong };

[[nodiscard]] constexpr ArgumentKind kind_of(const char*) noexcept
{
    return ArgumentKind::kText;
}
[[nodiscard]] constexpr ArgumentKind kind_of(int) noexcept
{
    return ArgumentKind::kInt;
}
[[nodiscard]] constexpr ArgumentKind kind_of(long long) noexcept
{
    return ArgumentKind::kLongLong;
}

// True when every conversion of `text` is a plain one that takes the argument in its place. There
// may be fewer conversions than arguments.
[[nodiscard]] bool takes_arguments(const char* text, const ArgumentKind* kinds,
                                   std::size_t count) noexcept;

// Logs catalogue message `number`; a text that does not take these arguments is written as it
// stands.
template <class... Arguments>
void log_message(std::int32_t number, Arguments... arguments) noexcept
{
    const std::array<ArgumentKind, sizeof...(arguments)> kinds = {kind_of(arguments)...};
    const char* const text = message_text(number);
    if (takes_arguments(text, kinds.data(), kinds.size())) {
        // The last argument is taken by no conversion; without any, compilers take this for a
        // mistake.
        sanos_log(text, arguments..., 0);
    } else {
        sanos_log("%s", text);
    }
}

}  // namespace corvane
#endif
