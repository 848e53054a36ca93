// Notes down, in order, whatever this process writes to one file: after the first n of the writes
// the file is what a process killed there would have left.
#ifndef CORVANE_TESTS_PLUGINS_WRITE_RECORDER_HPP
#define CORVANE_TESTS_PLUGINS_WRITE_RECORDER_HPP

#include <cstdint>
#include <string>
#include <vector>

namespace corvane::test {

struct DiskWrite {
    std::uint64_t offset_bytes = 0;
    std::string bytes;
    unsigned flush_count = 0;  // flushes of the file before this write
};

// Forgets what was recorded, and records from now on. The program must export its symbols: the
// recorder stands in for the C library's functions.
void start_recording(const std::string& path);

// Returns the writes and records no more.
std::vector<DiskWrite> stop_recording();

// From now on only so many writes to the file succeed; UINT_MAX: all of them.
void fail_writes_after(const std::string& path, unsigned write_count);

}  // namespace corvane::test

#endif
