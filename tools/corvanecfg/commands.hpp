// What the subcommands of corvanecfg do; each prints to standard output and throws Refusal.
#ifndef CORVANE_TOOLS_CORVANECFG_COMMANDS_HPP
#define CORVANE_TOOLS_CORVANECFG_COMMANDS_HPP

#include <string>

#include "mdcmain/segment.h"

namespace corvane::cfg {

void show(const CorvaneSegment& segment, bool json);
void get(const CorvaneSegment& segment, const std::string& name, bool json);
void set(CorvaneSegment& segment, const std::string& name, const std::string& value);
void reset();

// Prints the log ring; with `follow` goes on printing what is added until interrupted.
void log_ring(const CorvaneSegment& segment, bool follow);

void show_language(const CorvaneSegment& segment, bool json);

// Writes the language file, and removes it.
void force_language(const std::string& path);
void clear_language();

}  // namespace corvane::cfg
#endif
