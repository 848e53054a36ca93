// How many volumes a segment is made for, and how large that makes it.
#ifndef CORVANE_MDCMAIN_SEGMENT_SIZE_HPP
#define CORVANE_MDCMAIN_SEGMENT_SIZE_HPP

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "mdcmain/segment.h"

namespace corvane {

// CORVANEVOLS, at least 32.
[[nodiscard]] inline std::int32_t max_volumes_wanted() noexcept
{
    const char* const wanted = std::getenv("CORVANEVOLS");
    return std::max(wanted == nullptr ? 0 : std::atoi(wanted), CORVANE_SEGMENT_MIN_VOLUMES);
}

// The size for `volumes`, in 64 bits: what does not fit the segment's own word cannot be made.
[[nodiscard]] constexpr std::int64_t segment_bytes(std::int32_t volumes) noexcept
{
    return std::int64_t{volumes} * CORVANE_SEGMENT_VOLUME_BYTES + CORVANE_SEGMENT_FIXED_BYTES;
}

static_assert(segment_bytes(CORVANE_SEGMENT_MIN_VOLUMES) == 7684792);

}  // namespace corvane
#endif
