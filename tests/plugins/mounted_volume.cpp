// Makes, mounts, checks and unmounts small file systems; reads and writes behind them.
#include "tests/plugins/mounted_volume.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <linux/loop.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <memory>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "client/disk.hpp"
#include "tests/plugins/scratch.hpp"

namespace corvane::test {
namespace {

constexpr std::int64_t kMiB = 1 << 20;

[[noreturn]] void fail_system(const std::string& what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

// A free loop device is anybody's until it is configured, so the race is run again when it is lost.
Descriptor take_loop(const std::string& image, std::string& path)
{
    const Descriptor file(open(image.c_str(), O_RDWR | O_CLOEXEC));
    const Descriptor control(open("/dev/loop-control", O_RDWR | O_CLOEXEC));
    if (!file.is_open() || !control.is_open()) fail_system("no loop control");
    constexpr int kMostRaces = 100;
    for (int i = 0; i < kMostRaces; ++i) {
        const int number = ioctl(control.get(), LOOP_CTL_GET_FREE);
        if (number < 0) fail_system("no free loop device");
        path = "/dev/loop" + std::to_string(number);
        Descriptor device(open(path.c_str(), O_RDWR | O_CLOEXEC));
        if (!device.is_open()) continue;
        loop_config configuration{};
        configuration.fd = static_cast<std::uint32_t>(file.get());
        configuration.info.lo_flags = LO_FLAGS_AUTOCLEAR;
        if (ioctl(device.get(), LOOP_CONFIGURE, &configuration) == 0) return device;
        if (errno != EBUSY) fail_system("no loop device over " + image);
    }
    fail_system("no loop device was to be had");
}

std::string file_system_type(const FsFormat& format)
{
    return std::strstr(format.make, "xfs") != nullptr ? "xfs" : "ext4";
}

}  // namespace

const FsFormat kExt4Of1K{"Ext4Of1K", "mke2fs -q -F -t ext4 -b 1024", "e2fsck -fn", 32 * kMiB, 1024,
                         false};
const FsFormat kExt4Of4K{"Ext4Of4K", "mke2fs -q -F -t ext4 -b 4096", "e2fsck -fn", 32 * kMiB, 4096,
                         false};
const FsFormat kXfs{"Xfs", "mkfs.xfs -q -f", "xfs_repair -n", 300 * kMiB, 4096, true};

std::vector<FsFormat> all_formats()
{
    return {kExt4Of1K, kExt4Of4K, kXfs};
}

void PrintTo(const FsFormat& format, std::ostream* out)
{
    *out << format.name;
}

std::string enter_private_mounts()
{
    static const std::string result = []() -> std::string {
        if (unshare(CLONE_NEWNS) != 0) return "no mount namespace of our own: not root?";
        if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount("none", "/mnt", "tmpfs", 0, nullptr) != 0) {
            return std::string("mounting is not allowed here: ") + std::strerror(errno);
        }
        try {
            std::string path;
            const Scratch scratch;
            (void)take_loop(scratch.write("probe", std::string(4096, '\0')), path);
        } catch (const std::exception& caught) {
            return caught.what();
        }
        return {};
    }();
    return result;
}

LoopDevice::LoopDevice(const std::string& image) : device_(take_loop(image, path_)) {}

MountedVolume::MountedVolume(const FsFormat& format, const std::string& extra_options)
    : format_(format),
      image_([] {
          static int count = 0;
          return "/mnt/image" + std::to_string(count++);
      }()),
      mount_point_("/mnt/v" + image_.substr(std::strlen("/mnt/image"))),
      loop_([this, &extra_options]() -> const std::string& {
          const Descriptor file(open(image_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
          if (!file.is_open() || ftruncate(file.get(), format_.image_bytes) != 0) {
              fail_system("no image " + image_);
          }
          must_run(std::string(format_.make) + " " + extra_options + " " + image_);
          return image_;
      }()),
      disk_(open(loop_.path().c_str(), O_RDWR | O_DIRECT | O_CLOEXEC))
{
    if (!disk_.is_open() || mkdir(mount_point_.c_str(), 0755) != 0) fail_system("no volume");
    mount();
}

MountedVolume::~MountedVolume()
{
    if (is_mounted_) (void)umount2(mount_point_.c_str(), MNT_DETACH);
    (void)unlink(image_.c_str());
}

void MountedVolume::mount()
{
    if (::mount(device().c_str(), mount_point_.c_str(), file_system_type(format_).c_str(), 0,
                nullptr) != 0) {
        fail_system("mounting " + device());
    }
    is_mounted_ = true;
}

void MountedVolume::unmount()
{
    // Whoever had files open may be about to close them.
    constexpr std::chrono::seconds kPatience{20};
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (umount2(mount_point_.c_str(), 0) != 0) {
        if (errno != EBUSY || std::chrono::steady_clock::now() > end) {
            fail_system("unmounting " + mount_point_);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    is_mounted_ = false;
}

void MountedVolume::expect_clean(const std::string& when) const
{
    const auto check = run_command(std::string(format_.check) + " " + device());
    EXPECT_EQ(check.status, 0) << when << "\n" << check.output;
}

std::string MountedVolume::client_read(std::int64_t physical, std::int64_t bytes) const
{
    const AlignedBuffer buffer(static_cast<std::size_t>(bytes));
    EXPECT_EQ(pread(disk_.get(), buffer.bytes().data(), buffer.bytes().size(), physical), bytes);
    return {reinterpret_cast<const char*>(buffer.bytes().data()), buffer.bytes().size()};
}

void MountedVolume::client_write(std::int64_t physical, const std::string& content) const
{
    const AlignedBuffer buffer(content.size());
    std::memcpy(buffer.bytes().data(), content.data(), content.size());
    EXPECT_EQ(pwrite(disk_.get(), buffer.bytes().data(), content.size(), physical),
              static_cast<ssize_t>(content.size()))
        << std::strerror(errno);
}

Descriptor open_file(const std::string& path, int flags)
{
    Descriptor file(open(path.c_str(), flags | O_CLOEXEC, 0644));
    EXPECT_TRUE(file.is_open()) << path << ": " << std::strerror(errno);
    return file;
}

void write_at(int file, std::int64_t offset, const std::string& content)
{
    EXPECT_EQ(pwrite(file, content.data(), content.size(), offset),
              static_cast<ssize_t>(content.size()))
        << std::strerror(errno);
}

std::string read_at(int file, std::int64_t offset, std::int64_t bytes)
{
    std::string content(static_cast<std::size_t>(bytes), '\0');
    const ssize_t got = pread(file, content.data(), content.size(), offset);
    EXPECT_GE(got, 0) << std::strerror(errno);
    content.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return content;
}

std::string difference(const std::string& seen, const std::string& expected)
{
    if (seen == expected) return {};
    std::size_t at = 0;
    while (at < seen.size() && at < expected.size() && seen[at] == expected[at]) ++at;
    constexpr std::size_t kShown = 8;
    return std::to_string(seen.size()) + " bytes instead of " + std::to_string(expected.size()) +
           ", different from byte " + std::to_string(at) + " on: '" + seen.substr(at, kShown) +
           "' instead of '" + expected.substr(at, kShown) + "'";
}

void sync_file(int file)
{
    EXPECT_EQ(fsync(file), 0) << std::strerror(errno);
}

void drop_pages(int file)
{
    sync_file(file);
    EXPECT_EQ(posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED), 0);
}

std::vector<FileRun> runs_of(int file, bool sync)
{
    constexpr std::uint32_t kMost = 1024;
    const std::size_t bytes = sizeof(fiemap) + kMost * sizeof(fiemap_extent);
    const auto memory = std::make_unique<std::uint64_t[]>(bytes / sizeof(std::uint64_t));
    auto* const map = reinterpret_cast<fiemap*>(memory.get());
    map->fm_length = FIEMAP_MAX_OFFSET;
    map->fm_flags = sync ? FIEMAP_FLAG_SYNC : 0;
    map->fm_extent_count = kMost;
    EXPECT_EQ(ioctl(file, FS_IOC_FIEMAP, map), 0) << std::strerror(errno);
    EXPECT_LT(map->fm_mapped_extents, kMost);
    std::vector<FileRun> runs;
    for (std::uint32_t i = 0; i < map->fm_mapped_extents; ++i) {
        const fiemap_extent& extent = map->fm_extents[i];
        runs.push_back({static_cast<std::int64_t>(extent.fe_logical),
                        static_cast<std::int64_t>(extent.fe_physical),
                        static_cast<std::int64_t>(extent.fe_length), extent.fe_flags});
    }
    return runs;
}

std::string to_text(const std::vector<FileRun>& runs)
{
    std::ostringstream text;
    for (const FileRun& run : runs) {
        if (text.tellp() > 0) text << ' ';
        text << run.logical << '+' << run.bytes << '@' << run.physical << '/' << std::hex
             << run.flags << std::dec;
    }
    return text.str();
}

std::int64_t place_of(int file, std::int64_t offset)
{
    for (const FileRun& run : runs_of(file, /*sync=*/true)) {
        if (offset >= run.logical && offset < run.logical + run.bytes) {
            return run.physical + offset - run.logical;
        }
    }
    ADD_FAILURE() << "byte " << offset << " has no place";
    return 0;
}

}  // namespace corvane::test
