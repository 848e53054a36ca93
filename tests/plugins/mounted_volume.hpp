// A small mounted file system on a loop device, and what a client does to its blocks behind it.
#ifndef CORVANE_TESTS_PLUGINS_MOUNTED_VOLUME_HPP
#define CORVANE_TESTS_PLUGINS_MOUNTED_VOLUME_HPP

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "client/descriptor_owner.hpp"

namespace corvane::test {

// A file system to make: mkfs's command without the device, and how large the image is.
struct FsFormat {
    const char* name;
    const char* make;
    const char* check;
    std::int64_t image_bytes;
    std::int64_t block_bytes;
    bool has_reflinks;
};
extern const FsFormat kExt4Of1K;
extern const FsFormat kExt4Of4K;
extern const FsFormat kXfs;
std::vector<FsFormat> all_formats();
void PrintTo(const FsFormat& format, std::ostream* out);

// Moves this process into a mount namespace of its own whose /mnt is an empty file system in
// memory: what tests leave there goes with the process, however it ends. Once is enough. Returns
// why it cannot be had (no root, no loop devices), else nothing: the test skips aloud with it.
std::string enter_private_mounts();

// A loop device over `image`, gone when nobody has it open or mounted any more.
class LoopDevice {
public:
    explicit LoopDevice(const std::string& image);
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::string path_;  // before the device, which fills it in
    Descriptor device_;
};

// One run of a file's blocks as the kernel maps it.
struct FileRun {
    std::int64_t logical = 0;  // bytes, as all here
    std::int64_t physical = 0;
    std::int64_t bytes = 0;
    std::uint32_t flags = 0;  // FIEMAP_EXTENT_...
};

// Mounted at /mnt/v<number>; unmounted with its object.
class MountedVolume {
public:
    explicit MountedVolume(const FsFormat& format, const std::string& extra_options = {});
    ~MountedVolume();
    MountedVolume(const MountedVolume&) = delete;
    MountedVolume& operator=(const MountedVolume&) = delete;

    [[nodiscard]] std::string path(const std::string& name) const
    {
        return mount_point_ + "/" + name;
    }
    [[nodiscard]] const std::string& mount_point() const { return mount_point_; }
    [[nodiscard]] const std::string& device() const { return loop_.path(); }
    [[nodiscard]] std::int64_t block_bytes() const { return format_.block_bytes; }
    [[nodiscard]] const FsFormat& format() const { return format_; }

    void mount();
    void unmount();
    // What the file system's own check says of the unmounted volume; the test fails unless it is
    // sound.
    void expect_clean(const std::string& when) const;

    // A client's direct I/O: whole blocks of the device.
    [[nodiscard]] std::string client_read(std::int64_t physical, std::int64_t bytes) const;
    void client_write(std::int64_t physical, const std::string& content) const;

private:
    FsFormat format_;
    std::string image_;
    std::string mount_point_;
    LoopDevice loop_;
    Descriptor disk_;
    bool is_mounted_ = false;
};

// What a local program does to a file; the test fails when the kernel refuses.
[[nodiscard]] Descriptor open_file(const std::string& path, int flags);
void write_at(int file, std::int64_t offset, const std::string& content);
[[nodiscard]] std::string read_at(int file, std::int64_t offset, std::int64_t bytes);
void sync_file(int file);
// Says where two contents differ, in a line; nothing when they do not.
[[nodiscard]] std::string difference(const std::string& seen, const std::string& expected);
// Written back and dropped, as far as the kernel does it.
void drop_pages(int file);
// All runs; `sync` first makes the kernel give places to what has none yet.
[[nodiscard]] std::vector<FileRun> runs_of(int file, bool sync);
// "logical+bytes@physical/flags" of each run, a blank between.
[[nodiscard]] std::string to_text(const std::vector<FileRun>& runs);
// The place of a byte of the file; the test fails when it has none.
[[nodiscard]] std::int64_t place_of(int file, std::int64_t offset);

}  // namespace corvane::test

#endif
