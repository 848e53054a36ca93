// The plug-in's log lines: they go where the daemon's own messages go.
#ifndef CORVANE_PLUGINS_COMMON_LOG_HPP
#define CORVANE_PLUGINS_COMMON_LOG_HPP

#include <string>

namespace corvane::plugin {

// The plug-in's short name; each plug-in defines its own.
extern const char* const kPluginName;

// Writes "NAME: TEXT\n" through the host program's sanos_log when it exports one, else to standard
// error. Any thread; never throws.
void log_line(const std::string& text) noexcept;

}  // namespace corvane::plugin

#endif
