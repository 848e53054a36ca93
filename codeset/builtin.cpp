// The converters of the built-in code sets: UTF-8, and the pass-through of the operating system's
// text.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "codeset/frame.hpp"
#include "codeset/interchange.hpp"
#include "codeset/kel_family.h"
#include "codeset/utf8_fast.hpp"

namespace {

using namespace corvane::kel;

// Changes the width of as many elements as fit; narrowing drops the high byte, with no
// substitution.
template <class From, class To>
[[nodiscard]] std::int32_t pass_through(const From** source, const From* source_end,
                                        To** destination, To* destination_end) noexcept
{
    const auto* const from = inner(*source);
    auto* const to = inner(*destination);
    const auto count = std::min(source_end - *source, destination_end - *destination);
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        to[i] = static_cast<std::remove_reference_t<decltype(to[i])>>(from[i]);
    }
    *source += count;
    *destination += count;
    return *source == source_end ? KEL_DONE : KEL_FULL;
}

}  // namespace

int32_t utf8_to_ucs2_r(kel_cs_t* cs, const char** source, const char* source_end,
                       uint16_t** destination, uint16_t* destination_end) noexcept
{
    return run_to<Utf8Reader<4>, UnitWriter>(cs, source, source_end, destination, destination_end);
}

int32_t utf8_from_ucs2_r(kel_cs_t* cs, const uint16_t** source, const uint16_t* source_end,
                         char** destination, char* destination_end) noexcept
{
    return run_from<PairReader, Utf8Writer>(cs, source, source_end, destination, destination_end);
}

// Serves both directions, so a flush call has no state that would be its own.
int32_t utf8_to_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                       char** destination, char* destination_end) noexcept
{
    if (is_flush(source)) return KEL_DONE;
    return run<Utf8Reader<4>, Utf8Writer>(cs, source, source_end, destination, destination_end);
}

int32_t os_to_ucs2_r(kel_cs_t* cs, const char** source, const char* source_end,
                     uint16_t** destination, uint16_t* destination_end) noexcept
{
    if (is_flush(source)) {
        cs->to_state = 0;
        return KEL_DONE;
    }
    return pass_through(source, source_end, destination, destination_end);
}

int32_t os_from_ucs2_r(kel_cs_t* cs, const uint16_t** source, const uint16_t* source_end,
                       char** destination, char* destination_end) noexcept
{
    if (is_flush(source)) {
        cs->from_state = 0;
        return KEL_DONE;
    }
    return pass_through(source, source_end, destination, destination_end);
}

int32_t os_to_utf8_r(kel_cs_t* cs, const char** source, const char* source_end, char** destination,
                     char* destination_end) noexcept
{
    if (is_flush(source)) {
        cs->to_state = 0;
        return KEL_DONE;
    }
    return pass_through(source, source_end, destination, destination_end);
}

int32_t os_from_utf8_r(kel_cs_t* cs, const char** source, const char* source_end,
                       char** destination, char* destination_end) noexcept
{
    if (is_flush(source)) {
        cs->from_state = 0;
        return KEL_DONE;
    }
    return pass_through(source, source_end, destination, destination_end);
}
