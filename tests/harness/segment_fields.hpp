// Byte offsets in the shared segment, written down a second time: the tests' own view of the
// layout.
#ifndef CORVANE_TESTS_HARNESS_SEGMENT_FIELDS_HPP
#define CORVANE_TESTS_HARNESS_SEGMENT_FIELDS_HPP

#include <cstdint>

namespace corvane::harness::segment {

inline constexpr std::int64_t kSegmentSize = 0x000000;
inline constexpr std::int64_t kMaxVolumes = 0x000004;
inline constexpr std::int64_t kInitialised = 0x000008;
inline constexpr std::int64_t kLogLevel = 0x000014;
inline constexpr std::int64_t kLogMode = 0x000018;
inline constexpr std::int64_t kLogMaxSize = 0x00001C;
inline constexpr std::int64_t kNumLogs = 0x000020;
inline constexpr std::int64_t kLogCount = 0x000024;
inline constexpr std::int64_t kLogBaseName = 0x000028;
inline constexpr std::int64_t kMdcPort = 0x204C64;
inline constexpr std::int64_t kDgramThreads = 0x204D88;
inline constexpr std::int64_t kShmLogUsed = 0x204E8C;
inline constexpr std::int64_t kShmLog = 0x204E90;
inline constexpr std::int64_t kShmLogBytes = 20480;
inline constexpr std::int64_t kNlsEnabled = 0x209EA8;
inline constexpr std::int64_t kLangName = 0x209EAC;
inline constexpr std::int64_t kNlsPath = 0x209FAC;
inline constexpr std::int64_t kNlsReady = 0x20A0D0;
inline constexpr std::int64_t kLogopPrivate = 0x20A0E0;

}  // namespace corvane::harness::segment

#endif
