// Trace dumps of records of which only so many bytes exist.
#ifndef CORVANE_FSMDC_RECORD_DUMP_HPP
#define CORVANE_FSMDC_RECORD_DUMP_HPP

#include <cstddef>
#include <cstdint>

namespace corvane {

// One line of a dump: the field's name in 20 columns, then its value. Call them when a trace is
// wanted.
void dump_field(const char* name, std::int32_t value) noexcept;
void dump_field(const char* name, std::int64_t value) noexcept;
void dump_key(const char* name, std::uint32_t key) noexcept;
void dump_text(const char* name, const char* text) noexcept;

// The record dumps; `room` is the bytes from the record's start to the end of its message.
void dump_volume_info(const void* record, std::size_t room) noexcept;
void dump_map_info(const void* record, std::size_t room) noexcept;

}  // namespace corvane
#endif
