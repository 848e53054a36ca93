// The plug-in's log lines: they go where the daemon's own messages go.
#ifndef CORVANE_PLUGINS_EXT_LOG_HPP
#define CORVANE_PLUGINS_EXT_LOG_HPP

#include <string>

namespace corvane::ext {

// Writes "ext: TEXT\n" through the host program's sanos_log when it exports one, else to standard
// error. Any thread; never throws.
void log_line(const std::string& text) noexcept;

}  // namespace corvane::ext

#endif
