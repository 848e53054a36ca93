// Stands between every library of this process and the kernel where files are written.
#include "tests/plugins/write_recorder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/falloc.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <utility>

#define STANDS_IN_FOR(name) asm(name) __attribute__((visibility("default"), used))

namespace corvane::test {
namespace {

struct FileName {
    dev_t device = 0;
    ino_t inode = 0;

    bool operator==(const FileName&) const = default;
};

struct Recording {
    bool is_on = false;
    FileName file;
    unsigned flush_count = 0;
    std::vector<DiskWrite> writes;
};

struct Failing {
    FileName file;
    unsigned write_count = UINT_MAX;
};

// Of the one thread that such a test has.
Recording g_recording;
Failing g_failing;

FileName name_of(int descriptor)
{
    struct stat status {};
    return fstat(descriptor, &status) == 0 ? FileName{status.st_dev, status.st_ino} : FileName{};
}

FileName name_of(const std::string& path)
{
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return {status.st_dev, status.st_ino};
}

bool is_recorded(int descriptor)
{
    return g_recording.is_on && name_of(descriptor) == g_recording.file;
}

// Counts a write down.
bool is_to_fail(int descriptor)
{
    if (g_failing.write_count == UINT_MAX || name_of(descriptor) != g_failing.file) return false;
    if (g_failing.write_count != 0) {
        --g_failing.write_count;
        return false;
    }
    errno = EIO;
    return true;
}

void record(int descriptor, off_t offset, std::string bytes)
{
    if (!is_recorded(descriptor)) return;
    g_recording.writes.push_back(
        {static_cast<std::uint64_t>(offset), std::move(bytes), g_recording.flush_count});
}

}  // namespace

void start_recording(const std::string& path)
{
    g_recording = {true, name_of(path), 0, {}};
}

std::vector<DiskWrite> stop_recording()
{
    return std::exchange(g_recording, {}).writes;
}

void fail_writes_after(const std::string& path, unsigned write_count)
{
    g_failing = {name_of(path), write_count};
}

extern "C" {

ssize_t recorded_pwrite64(int descriptor, const void* data, std::size_t bytes, off_t offset)
    STANDS_IN_FOR("pwrite64");
ssize_t recorded_pwrite(int descriptor, const void* data, std::size_t bytes, off_t offset)
    STANDS_IN_FOR("pwrite");
ssize_t recorded_write(int descriptor, const void* data, std::size_t bytes) STANDS_IN_FOR("write");
int recorded_fallocate(int descriptor, int mode, off_t offset, off_t bytes)
    STANDS_IN_FOR("fallocate64");
int recorded_fsync(int descriptor) STANDS_IN_FOR("fsync");

ssize_t recorded_pwrite64(int descriptor, const void* data, std::size_t bytes, off_t offset)
{
    if (is_to_fail(descriptor)) return -1;
    const ssize_t done = syscall(SYS_pwrite64, descriptor, data, bytes, offset);
    if (done > 0) {
        record(descriptor, offset,
               {static_cast<const char*>(data), static_cast<std::size_t>(done)});
    }
    return done;
}

ssize_t recorded_pwrite(int descriptor, const void* data, std::size_t bytes, off_t offset)
{
    return recorded_pwrite64(descriptor, data, bytes, offset);
}

ssize_t recorded_write(int descriptor, const void* data, std::size_t bytes)
{
    if (is_to_fail(descriptor)) return -1;
    const off_t offset = g_recording.is_on ? lseek(descriptor, 0, SEEK_CUR) : 0;
    const ssize_t done = syscall(SYS_write, descriptor, data, bytes);
    if (done > 0) {
        record(descriptor, offset,
               {static_cast<const char*>(data), static_cast<std::size_t>(done)});
    }
    return done;
}

int recorded_fallocate(int descriptor, int mode, off_t offset, off_t bytes)
{
    if (is_to_fail(descriptor)) return -1;
    const auto result = static_cast<int>(syscall(SYS_fallocate, descriptor, mode, offset, bytes));
    if (result == 0 && (mode & (FALLOC_FL_ZERO_RANGE | FALLOC_FL_PUNCH_HOLE)) != 0) {
        record(descriptor, offset, std::string(static_cast<std::size_t>(bytes), '\0'));
    }
    return result;
}

int recorded_fsync(int descriptor)
{
    const auto result = static_cast<int>(syscall(SYS_fsync, descriptor));
    if (is_recorded(descriptor)) ++g_recording.flush_count;
    return result;
}

}  // extern "C"

}  // namespace corvane::test
