// What our own code needs of the segment beyond segment.h: the log level, and texts in fixed
// fields.
#ifndef CORVANE_MDCMAIN_SEGMENT_HPP
#define CORVANE_MDCMAIN_SEGMENT_HPP

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "mdcmain/segment.h"
#include "osl/shared_word.hpp"

namespace corvane {

// The level by which output is filtered, at this moment. Maps the segment on first use.
[[nodiscard]] inline std::int32_t log_level() noexcept
{
    if (fs == nullptr) fused_mapShared();
    return fs == nullptr ? 0 : load_shared(fs->logLevel);
}

// Copies `text` into a field of `Size` bytes, cut to fit and always terminated.
template <std::size_t Size>
void set_text(char (&field)[Size], std::string_view text) noexcept
{
    const std::size_t length = text.copy(field, Size - 1);
    field[length] = 0;
}

// The text of a field that others may have left unterminated.
template <std::size_t Size>
[[nodiscard]] std::string_view text_of(const char (&field)[Size]) noexcept
{
    const std::string_view all(field, Size);
    return all.substr(0, all.find('\0'));
}

}  // namespace corvane
#endif
