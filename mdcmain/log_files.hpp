// The rotating log files, as the log itself uses them.
#ifndef CORVANE_MDCMAIN_LOG_FILES_HPP
#define CORVANE_MDCMAIN_LOG_FILES_HPP

#include <cstddef>

namespace corvane {

inline constexpr std::size_t kLogNameBytes = 268;  // a base name of 255 bytes, a number, a zero
inline constexpr std::size_t kLogHeaderBytes = 256;

// Looks at the file of `name`: makes the header text when there is no such file; when it has
// outgrown the limit, moves on to the next file, whose name replaces `name`, and deletes what was
// there.
void check_log_file(char (&name)[kLogNameBytes], char (&header)[kLogHeaderBytes]) noexcept;

}  // namespace corvane
#endif
