// What the catalogue tests share: scratch files, hand-made catalogues, captured streams, settings
// without a shared segment.
#ifndef CORVANE_TESTS_NLS_SUPPORT_HPP
#define CORVANE_TESTS_NLS_SUPPORT_HPP

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "mdcmain/segment.h"
#include "nls/catalogue_runtime.h"

namespace corvane::test {

// A folder of its own for one test, gone afterwards.
class ScratchFolder {
public:
    ScratchFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "corvane-nls-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp");
        path_ = name;
    }
    ~ScratchFolder() { std::filesystem::remove_all(path_); }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    [[nodiscard]] std::string path(const std::string& name) const { return path_ + "/" + name; }

    // Writes a file and gives its path.
    std::string file(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(path(name), std::ios::binary) << bytes;
        return path(name);
    }

private:
    std::string path_;
};

inline std::string contents(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// A descriptor that is closed with the test.
class Descriptor {
public:
    explicit Descriptor(const std::string& path, int flags = O_RDONLY)
        : fd_(open(path.c_str(), flags | O_CLOEXEC, 0600))
    {
        if (fd_ < 0) throw std::runtime_error("cannot open " + path);
    }
    ~Descriptor() { close(fd_); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    operator int() const
    {
        return fd_;
    }  // NOLINT(google-explicit-constructor): stands for the number

private:
    int fd_;
};

// Collects what is written to one of the standard descriptors until taken.
class Capture {
public:
    explicit Capture(int fd) : fd_(fd), saved_(dup(fd)), file_(std::tmpfile())
    {
        std::fflush(nullptr);
        dup2(fileno(file_), fd_);
    }
    ~Capture() { (void)take(); }
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    // Ends the capture. Nothing is flushed before: what a program's user would not see yet is not
    // there.
    std::string take()
    {
        if (file_ == nullptr) return {};
        dup2(saved_, fd_);
        close(saved_);
        std::string text;
        std::rewind(file_);
        for (int c = std::fgetc(file_); c != EOF; c = std::fgetc(file_))
            text += static_cast<char>(c);
        std::fclose(file_);
        file_ = nullptr;
        return text;
    }

private:
    int fd_;
    int saved_;
    std::FILE* file_;
};

// Four bytes, most significant first.
inline std::string be32(std::uint32_t value)
{
    return {static_cast<char>(value >> 24), static_cast<char>(value >> 16),
            static_cast<char>(value >> 8), static_cast<char>(value)};
}

inline std::string header(std::uint32_t sets, std::uint32_t first_set = 28,
                          std::uint32_t version = 1)
{
    return "*nazgul*" + be32(version) + be32(0) + be32(0) + be32(sets) + be32(first_set);
}

// A set record, in the order of the file's fields but for the two reserved words.
inline std::string set_record(std::uint32_t id, std::uint32_t next, std::uint32_t messages_at,
                              std::uint32_t data_at, std::uint32_t data_bytes,
                              std::uint32_t messages, std::uint32_t invalid = 0)
{
    return be32(id) + be32(next) + be32(messages_at) + be32(0xAAAAAAAA) + be32(data_at) +
           be32(0xBBBBBBBB) + be32(data_bytes) + be32(messages) + be32(invalid);
}

inline std::string message_record(std::uint32_t id, std::uint32_t text_at,
                                  std::uint32_t invalid = 0)
{
    return be32(id) + be32(invalid) + be32(text_at) + be32(0xCCCCCCCC);
}

// Messages {number, text} of a set.
using Messages = std::vector<std::pair<std::uint32_t, std::string>>;

// A valid catalogue of the compiler's layout, written by hand.
inline std::string catalogue(const std::vector<std::pair<std::uint32_t, Messages>>& sets)
{
    std::string file = header(static_cast<std::uint32_t>(sets.size()));
    for (std::size_t index = 0; index < sets.size(); ++index) {
        const auto& [id, messages] = sets[index];
        std::string data;
        std::string records;
        for (const auto& [number, text] : messages) {
            records += message_record(number, static_cast<std::uint32_t>(data.size()));
            data += text + '\0';
        }
        const auto data_at = static_cast<std::uint32_t>(file.size() + 36);
        const auto data_bytes = static_cast<std::uint32_t>(data.size());
        const auto end = data_at + data_bytes + static_cast<std::uint32_t>(records.size());
        file += set_record(id, index + 1 == sets.size() ? 0 : end, data_at + data_bytes, data_at,
                           data_bytes, static_cast<std::uint32_t>(messages.size()));
        file += data + records;
    }
    return file;
}

// Settings of this process alone, in the place of the shared segment.
class PrivateSettings {
public:
    PrivateSettings() : settings_(std::make_unique<CorvaneSegment>())
    {
        settings_->nlsEnabled = 1;
        fs = settings_.get();
    }
    ~PrivateSettings() { fs = nullptr; }
    PrivateSettings(const PrivateSettings&) = delete;
    PrivateSettings& operator=(const PrivateSettings&) = delete;

    CorvaneSegment* operator->() const { return settings_.get(); }

private:
    std::unique_ptr<CorvaneSegment> settings_;
};

// Empties the cache, whatever a test left in it.
inline void empty_cache()
{
    const Capture quiet(STDOUT_FILENO);
    for (vor_cache_entry*& entry : catCache) {
        if (entry == nullptr) continue;
        real_catclose(entry->catalogue);
        nls_free(entry->path);
        nls_free(entry);
        entry = nullptr;
    }
    lookTicker = 0;
}

}  // namespace corvane::test
#endif
