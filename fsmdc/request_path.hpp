// The path area of a request: one or two FSUNI strings, whatever the client put there.
#ifndef CORVANE_FSMDC_REQUEST_PATH_HPP
#define CORVANE_FSMDC_REQUEST_PATH_HPP

#include <cstring>

#include "fsmdc/messages.h"
#include "fsmdc/service.h"
#include "osl/fsuni.h"

namespace corvane {

inline constexpr int kMountPointUnits = 2048;

// A copy of the area, aligned, and ended with a zero unit where the client did not.
class RequestPath {
public:
    explicit RequestPath(const void* area) noexcept
    {
        std::memcpy(units_, area, sizeof units_);
        units_[SP_PATH_UNITS - 1] = 0;
    }

    [[nodiscard]] FSUNI* first() noexcept { return units_; }

    // Null when there is no second string.
    [[nodiscard]] FSUNI* second() noexcept { return GetNextString(units_, sizeof units_); }

private:
    FSUNI units_[SP_PATH_UNITS];
};

}  // namespace corvane
#endif
