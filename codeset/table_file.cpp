// The search for a table file, and its loading by way of alias files.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "codeset/kel_cs.h"
#include "codeset/table_layout.hpp"
#include "codeset/text.hpp"

namespace {

using namespace corvane::kel;

constexpr std::size_t kPathSize = 256;
constexpr int kMostFiles = 5;  // four aliases and the table

class Descriptor {
public:
    // A name that stands for a pipe must not make the caller wait for a writer.
    explicit Descriptor(const char* path) noexcept
        : number_(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK))
    {
    }
    ~Descriptor()
    {
        if (number_ >= 0) (void)close(number_);  // read only: nothing can be lost
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    [[nodiscard]] int number() const noexcept { return number_; }

private:
    int number_;
};

struct Free {
    void operator()(void* block) const noexcept { std::free(block); }
};

// A whole file in memory; empty when it could not be read.
struct Image {
    std::unique_ptr<char, Free> bytes;
    std::uint32_t size = 0;
};

[[nodiscard]] Image read_file(const char* path) noexcept
{
    Image image;
    const Descriptor file(path);
    struct stat status = {};
    if (file.number() < 0 || fstat(file.number(), &status) != 0) return image;
    // A code set counts the bytes of its table in 32 bits.
    if (status.st_size < 0 || status.st_size > INT32_MAX) return image;
    const auto size = static_cast<std::uint32_t>(status.st_size);
    std::unique_ptr<char, Free> bytes(static_cast<char*>(std::malloc(size != 0 ? size : 1)));
    if (bytes == nullptr || read(file.number(), bytes.get(), size) != std::int64_t{size}) {
        return image;
    }
    image.bytes = std::move(bytes);
    image.size = size;
    return image;
}

[[nodiscard]] bool is_table(const Image& image) noexcept
{
    return image.size >= kLeastTableSize &&
           std::memcmp(image.bytes.get() + kMagicAt, kMagic, sizeof kMagic) == 0;
}

// Puts an alias file's text behind the directory in `path`.
void follow_alias(char (&path)[kPathSize], std::size_t directory_length,
                  const Image& image) noexcept
{
    std::size_t length = directory_length;
    for (std::uint32_t i = 0; i < image.size && length < kPathSize - 1; ++i) {
        const char c = image.bytes.get()[i];
        if (!is_blank(c)) path[length++] = c;
    }
    path[length] = '\0';
}

// A place where tables may lie: what an environment variable says, followed by a fixed path.
struct Place {
    const char* variable;
    const char* suffix;
    std::size_t suffix_room;  // added to the value's length, must stay below kPathSize
};
constexpr Place kPlaces[] = {
    {"CORKELDIR", "/codeset/", 10},
    {"CORKELDIR", "/", 2},
    {"BINDIR", "/../generic/codeset/", 21},
};

}  // namespace

void* load_table(const char* directory, const char* name, uint32_t* size) noexcept
{
    uint32_t nobody_asks = 0;
    if (size == nullptr) size = &nobody_asks;
    *size = 0;
    const std::size_t directory_length = std::strlen(directory);
    const std::size_t name_length = std::strlen(name);
    if (directory_length + name_length + 2 > kPathSize) return nullptr;
    char path[kPathSize];
    (void)std::snprintf(path, sizeof path, "%s%s", directory, name);
    for (int files = 0; files < kMostFiles; ++files) {
        Image image = read_file(path);
        if (image.bytes == nullptr) return nullptr;
        if (is_table(image)) {
            *size = image.size;
            return image.bytes.release();
        }
        follow_alias(path, directory_length, image);
    }
    return nullptr;
}

void* get_table(const char* name, uint32_t* size) noexcept
{
    for (const Place& place : kPlaces) {
        const char* const value = environment(place.variable);
        const std::size_t length = std::strlen(value);
        if (length == 0 || length + place.suffix_room >= kPathSize) continue;
        char directory[kPathSize];
        (void)std::snprintf(directory, sizeof directory, "%s%s", value, place.suffix);
        void* const image = load_table(directory, name, size);
        if (image != nullptr) return image;
    }
    return load_table("", name, size);
}
