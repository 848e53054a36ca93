// Attaching the settings as every program does, after saying clearly why that would fail.
#ifndef CORVANE_TOOLS_CORVANECFG_ATTACH_HPP
#define CORVANE_TOOLS_CORVANECFG_ATTACH_HPP

#include "mdcmain/segment.h"

namespace corvane::cfg {

// Returns the attached segment. Throws Refusal (tools/corvanecfg/settings.hpp) when there is none
// and `create` is false, when this user may not use it, or when its size does not fit.
[[nodiscard]] CorvaneSegment& attach(bool create);

}  // namespace corvane::cfg
#endif
