// The steps of a history, what they do to the model, and the comparisons.
#include "tests/plugins/mounted_history.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

namespace corvane::test {
namespace {

constexpr int kFirstFiles = 3;
constexpr std::size_t kMostFiles = 6;
constexpr std::int64_t kLargestBytes = 96 << 10;
constexpr int kNewFile = O_RDWR | O_CREAT | O_EXCL;

std::string number(std::int64_t value)
{
    return std::to_string(value);
}

}  // namespace

std::string History::ModelFile::content() const
{
    std::string bytes = disk.substr(0, static_cast<std::size_t>(size));
    bytes.resize(static_cast<std::size_t>(size), '\0');
    return bytes;
}

History::History(const Plugin& plugin, MountedVolume& volume, unsigned seed)
    : plugin_(plugin), volume_(volume), random_(seed)
{
}

std::int64_t History::random_size()
{
    const auto bytes = static_cast<std::int64_t>(random_() % kLargestBytes);
    return pick(2) == 0 ? bytes : bytes / volume_.block_bytes() * volume_.block_bytes();
}

std::string History::random_bytes(std::int64_t count)
{
    std::string bytes(static_cast<std::size_t>(count), '\0');
    for (char& c : bytes) c = static_cast<char>('a' + random_() % 26);
    return bytes;
}

History::FilePtr History::random_file()
{
    return files_.empty() ? nullptr : files_[pick(static_cast<unsigned>(files_.size()))];
}

std::string History::fresh_name()
{
    return "f" + number(next_name_++);
}

void History::begin()
{
    for (int i = 0; i < kFirstFiles; ++i) create();
}

void History::step()
{
    if (pick(5) < 3) return client_step();
    using Step = void (History::*)();
    static constexpr std::array<Step, 16> kSteps{
        &History::create,        &History::write_locally,  &History::write_locally,
        &History::write_locally, &History::resize_locally, &History::resize_locally,
        &History::punch,         &History::preallocate,    &History::read_locally,
        &History::read_locally,  &History::read_locally,   &History::rename_one,
        &History::unlink_one,    &History::reflink,        &History::hold,
        &History::use_held,
    };
    (this->*kSteps[pick(kSteps.size())])();
}

void History::end()
{
    for (Client& client : clients_) {
        if (client.file == nullptr) continue;
        if (client.is_dead) {
            end_lease(client);
        } else {
            close(client);
        }
    }
    for (Holder& holder : holders_) let_go(holder);
    for (const FilePtr& file : files_) {
        const Descriptor descriptor = open_locally(file, O_RDONLY);
        if (!descriptor.is_open()) continue;
        compare(read_at(descriptor.get(), 0, file->size + 4096), *file, "at the end");
        drop_pages(descriptor.get());
        compare(read_at(descriptor.get(), 0, file->size + 4096), *file,
                "at the end, from the disk");
    }
}

void History::compare(const std::string& seen, const ModelFile& file, const std::string& who)
{
    const std::string content = file.content();
    const auto known = static_cast<std::size_t>(std::min(file.unknown_from, file.size));
    if (seen.size() == content.size() && seen.compare(0, known, content, 0, known) == 0) return;
    ADD_FAILURE() << who << " sees " << (file.name.empty() ? "an unlinked file" : file.name)
                  << " with " << difference(seen, content) << "; known are " << known << " bytes";
}

// Local programs.

// Opens as a program does that will not wait. Where no lease is out there is nothing to wait for,
// but what the plug-in has yet to finish.
Descriptor History::open_locally(const FilePtr& file, int flags)
{
    constexpr std::chrono::seconds kPatience{20};
    const auto end = std::chrono::steady_clock::now() + kPatience;
    for (;;) {
        Descriptor descriptor(
            open(volume_.path(file->name).c_str(), flags | O_NONBLOCK | O_CLOEXEC));
        if (descriptor.is_open()) return descriptor;
        if (errno == EWOULDBLOCK && file->leases > 0) {
            note("  has to wait");
            ++counts_.local_waits;
            return descriptor;
        }
        if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() > end) {
            ADD_FAILURE() << file->name << ": " << std::strerror(errno);
            return descriptor;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void History::create()
{
    if (files_.size() >= kMostFiles) return;
    auto file = std::make_shared<ModelFile>();
    file->name = fresh_name();
    file->disk = random_bytes(random_size());
    file->size = static_cast<std::int64_t>(file->disk.size());
    note("create " + file->name + " of " + number(file->size));
    const Descriptor made = open_file(volume_.path(file->name), kNewFile);
    write_at(made.get(), 0, file->disk);
    files_.push_back(file);
}

void History::change_locally(const FilePtr& file, int descriptor, std::int64_t at,
                             const std::string& bytes)
{
    write_at(descriptor, at, bytes);
    const auto end = static_cast<std::size_t>(at) + bytes.size();
    file->disk = file->content();
    if (file->disk.size() < end) file->disk.resize(end, '\0');
    file->disk.replace(static_cast<std::size_t>(at), bytes.size(), bytes);
    file->size = static_cast<std::int64_t>(file->disk.size());
    ++counts_.local_changes;
}

void History::write_locally()
{
    const FilePtr file = random_file();
    if (file == nullptr) return;
    const std::int64_t at = random_size() % (file->size + 5000);
    const std::string bytes = random_bytes(1 + random_size() / 8);
    note("write " + file->name + " at " + number(at) + " for " +
         number(static_cast<std::int64_t>(bytes.size())));
    const Descriptor descriptor = open_locally(file, O_RDWR);
    if (descriptor.is_open()) change_locally(file, descriptor.get(), at, bytes);
}

void History::resize_locally()
{
    const FilePtr file = random_file();
    if (file == nullptr) return;
    const std::int64_t size = random_size();
    note("resize " + file->name + " to " + number(size));
    const Descriptor descriptor = open_locally(file, O_RDWR);
    if (!descriptor.is_open()) return;
    EXPECT_EQ(ftruncate(descriptor.get(), size), 0) << std::strerror(errno);
    file->disk = file->content();
    file->disk.resize(static_cast<std::size_t>(size), '\0');
    file->size = size;
    ++counts_.local_changes;
}

void History::punch()
{
    const FilePtr file = random_file();
    if (file == nullptr || file->size == 0) return;
    const std::int64_t at = random_size() % file->size;
    const std::int64_t count = 1 + random_size() / 2;
    note("punch " + file->name + " at " + number(at) + " for " + number(count));
    const Descriptor descriptor = open_locally(file, O_RDWR);
    if (!descriptor.is_open()) return;
    EXPECT_EQ(fallocate(descriptor.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, at, count),
              0);
    file->disk = file->content();
    const std::int64_t end = std::min(at + count, file->size);
    std::fill(file->disk.begin() + at, file->disk.begin() + end, '\0');
    ++counts_.local_changes;
}

void History::preallocate()
{
    const FilePtr file = random_file();
    if (file == nullptr) return;
    const std::int64_t count = 1 + random_size();
    note("preallocate " + file->name + " for " + number(count));
    const Descriptor descriptor = open_locally(file, O_RDWR);
    if (!descriptor.is_open()) return;
    EXPECT_EQ(fallocate(descriptor.get(), FALLOC_FL_KEEP_SIZE, 0, count), 0);
    ++counts_.local_changes;
}

void History::read_locally()
{
    const FilePtr file = random_file();
    if (file == nullptr) return;
    note("read " + file->name);
    const Descriptor descriptor = open_locally(file, O_RDONLY);
    if (descriptor.is_open())
        compare(read_at(descriptor.get(), 0, kLargestBytes * 4), *file, "a local program");
}

void History::rename_one()
{
    const FilePtr file = random_file();
    if (file == nullptr) return;
    const FilePtr over = pick(2) == 0 ? random_file() : nullptr;
    const std::string name = over != nullptr ? over->name : fresh_name();
    if (over == file) return;
    note("rename " + file->name + " to " + name);
    EXPECT_EQ(rename(volume_.path(file->name).c_str(), volume_.path(name).c_str()), 0);
    if (over != nullptr) {
        over->name.clear();
        std::erase(files_, over);
    }
    file->name = name;
}

void History::unlink_one()
{
    if (files_.size() < 2) return;
    const FilePtr file = random_file();
    note("unlink " + file->name);
    EXPECT_EQ(unlink(volume_.path(file->name).c_str()), 0);
    file->name.clear();
    std::erase(files_, file);
}

void History::reflink()
{
    const FilePtr from = random_file();
    const FilePtr to = random_file();
    if (from == nullptr || from == to || !volume_.format().has_reflinks) return;
    note("reflink " + from->name + " to " + to->name);
    const Descriptor source = open_locally(from, O_RDONLY);
    if (!source.is_open()) return;
    const Descriptor target = open_locally(to, O_RDWR);
    if (!target.is_open()) return;
    EXPECT_EQ(ftruncate(target.get(), 0), 0);
    EXPECT_EQ(ioctl(target.get(), FICLONE, source.get()), 0) << std::strerror(errno);
    to->disk = from->content();
    to->size = from->size;
    to->unknown_from = kNever;
    ++counts_.local_changes;
}

void History::hold()
{
    Holder& holder = holders_[pick(holders_.size())];
    if (holder.file != nullptr) return let_go(holder);
    const FilePtr file = random_file();
    if (file == nullptr) return;
    holder.may_write = pick(2) == 0;
    note(std::string("hold ") + file->name + (holder.may_write ? " for writing" : " for reading"));
    holder.descriptor = open_locally(file, holder.may_write ? O_RDWR : O_RDONLY);
    if (!holder.descriptor.is_open()) return;
    holder.file = file;
    if (file->size == 0 || pick(12) != 0) return;
    note("  mapped");
    holder.mapped_bytes = static_cast<std::size_t>(file->size);
    void* const mapped =
        mmap(nullptr, holder.mapped_bytes, PROT_READ, MAP_SHARED, holder.descriptor.get(), 0);
    ASSERT_NE(mapped, MAP_FAILED);
    holder.mapped = static_cast<char*>(mapped);
    EXPECT_EQ(holder.mapped[0], file->content()[0]);
}

void History::let_go(Holder& holder)
{
    if (holder.file == nullptr) return;
    note("let go");
    if (holder.mapped != nullptr) {
        EXPECT_EQ(munmap(holder.mapped, holder.mapped_bytes), 0);
    }
    holder = Holder{};
}

void History::use_held()
{
    Holder& holder = holders_[pick(holders_.size())];
    if (holder.file == nullptr) return;
    note("use held");
    const int descriptor = holder.descriptor.get();
    if (holder.may_write)
        change_locally(holder.file, descriptor, random_size(), random_bytes(1 + random_size() / 8));
    compare(read_at(descriptor, 0, kLargestBytes * 4), *holder.file, "a program that had it open");
}

}  // namespace corvane::test
