// The log's ring in the shared segment: one text from which the older half drops when it is full.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "mdcmain/log.h"
#include "mdcmain/segment.h"
#include "osl/shared_word.hpp"

namespace corvane {
namespace {

constexpr int32_t kRingBytes = sizeof CorvaneSegment::shmLog;
constexpr int32_t kHalf = kRingBytes / 2;
static_assert(kRingBytes == 20480);

// Moves the younger half to the front, as far as it is a text, and zeros what it leaves of the
// room.
void drop_older_half(char* ring, int32_t used) noexcept
{
    const auto room = static_cast<size_t>(std::max(used - kHalf, 0));
    const size_t length = strnlen(ring + kHalf, room);
    std::memcpy(ring, ring + kHalf, length);
    std::memset(ring + length, 0, room - length);
}

}  // namespace
}  // namespace corvane

void logToSharedMem(const char* text) noexcept
{
    using corvane::kHalf;
    using corvane::kRingBytes;
    fused_mapShared();
    char* const ring = fs->shmLog;
    // Other programs write these words, too: never trust them past the ring.
    int32_t used = std::clamp(corvane::load_shared(fs->shmLogUsed), 0, kRingBytes);
    const size_t length = std::strlen(text);
    if (static_cast<size_t>(used) + length > static_cast<size_t>(kRingBytes)) {
        corvane::drop_older_half(ring, used);
        used = std::max(used - kHalf, 0);
    }
    const size_t room = static_cast<size_t>(kRingBytes - used);
    const size_t taken = std::min(length, room);
    std::memcpy(ring + used, text, taken);
    // A text that fills the ring to its last byte ends there: the next byte is another field's.
    if (taken < room) ring[static_cast<size_t>(used) + taken] = 0;
    corvane::store_shared(fs->shmLogUsed, used + static_cast<int32_t>(taken));
}
