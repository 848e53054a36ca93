// Debug output: printf-like functions over three replaceable handler slots.
#include <cstdarg>
#include <cstdio>

#include "mdcmain/log.hpp"

namespace corvane {

DebugSlot g_trace_slot;
DebugSlot g_print_slot;
DebugSlot g_warning_slot;

namespace {

constexpr size_t kLineBytes = 1024;

void hand_over(const DebugSlot& slot, const char* text) noexcept
{
    if (slot.handler != nullptr) slot.handler(text);
}

// Formats a line, cut at 1023 bytes, unless nobody wants it.
void format_line(const DebugSlot& slot, const char* format, va_list arguments) noexcept
{
    if (!slot.wanted()) return;
    char line[kLineBytes] = {};
    (void)std::vsnprintf(line, sizeof line, format, arguments);
    hand_over(slot, line);
}

}  // namespace
}  // namespace corvane

// The body of a printf-like function that feeds `slot`.
#define CORVANE_FORMAT_LINE(slot)                  \
    std::va_list arguments;                        \
    va_start(arguments, format);                   \
    corvane::format_line(slot, format, arguments); \
    va_end(arguments)

void dbgSetOutputStringHandler(DbgStringHandler handler) noexcept
{
    corvane::g_trace_slot = {.handler = handler};
}

void dbgSetOutputStringHandler2(DbgStringHandler handler) noexcept
{
    corvane::g_print_slot = {.handler = handler};
}

void dbgSetOutputStringHandlerErr(DbgStringHandler handler) noexcept
{
    corvane::g_warning_slot = {.handler = handler};
}

void outputString(const char* text) noexcept
{
    corvane::hand_over(corvane::g_trace_slot, text);
}
void outputString2(const char* text) noexcept
{
    corvane::hand_over(corvane::g_print_slot, text);
}
void outputStringErr(const char* text) noexcept
{
    corvane::hand_over(corvane::g_warning_slot, text);
}

void corvane_dbg(const char* format, ...) noexcept
{
    CORVANE_FORMAT_LINE(corvane::g_trace_slot);
}
void corvane_trace(const char* format, ...) noexcept
{
    CORVANE_FORMAT_LINE(corvane::g_trace_slot);
}
void corvane_error(const char* format, ...) noexcept
{
    CORVANE_FORMAT_LINE(corvane::g_trace_slot);
}
void print(const char* format, ...) noexcept
{
    CORVANE_FORMAT_LINE(corvane::g_print_slot);
}
void warning(const char* format, ...) noexcept
{
    CORVANE_FORMAT_LINE(corvane::g_warning_slot);
}

void dumpData(const void* /*data*/, uint32_t /*length*/) noexcept {}
