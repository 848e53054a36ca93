// The codes of the shared result table that this module gives out itself.
#ifndef CORVANE_LAN_RESULT_CODES_HPP
#define CORVANE_LAN_RESULT_CODES_HPP

#include <cstdint>

namespace corvane {

inline constexpr std::uint32_t kOutOfMemory = 5;
inline constexpr std::int32_t kInvalidLength = 6;
inline constexpr std::int32_t kUnknownFunction = 8;
inline constexpr std::uint32_t kMiscError = 408;

}  // namespace corvane
#endif
