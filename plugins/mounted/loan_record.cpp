// Keeps the record of loans in a small text file: a line a loan.
#include "plugins/mounted/loan_record.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <sstream>
#include <system_error>
#include <utility>

#include "plugins/common/log.hpp"
#include "plugins/mounted/descriptor.hpp"

namespace corvane::mounted {
namespace {

constexpr std::size_t kMostLoans = 65536;

using Key = std::pair<Uuid, FileId>;

std::string to_hex(std::span<const std::uint8_t> bytes)
{
    std::string text;
    for (const std::uint8_t byte : bytes) {
        std::array<char, 3> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x", static_cast<unsigned>(byte));
        text += digits.data();
    }
    return text;
}

bool read_hex(const std::string& text, std::span<std::uint8_t> bytes)
{
    if (text.size() != bytes.size() * 2) return false;
    if (text.find_first_not_of("0123456789abcdef") != std::string::npos) return false;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<std::uint8_t>(std::stoul(text.substr(2 * i, 2), nullptr, 16));
    }
    return true;
}

// "UUID TYPE SIZE HANDLE NAMED REAL CHANGED"
std::string to_line(const Loan& loan)
{
    return to_hex(loan.volume) + " " + std::to_string(loan.file.type) + " " +
           std::to_string(loan.file.size) + " " + to_hex(loan.file.handle) + " " +
           std::to_string(loan.named) + " " + std::to_string(loan.real) + " " +
           std::to_string(loan.changed_ns) + "\n";
}

std::optional<Loan> read_line(const std::string& line)
{
    Loan loan;
    std::string uuid;
    std::string handle;
    unsigned type = 0;
    unsigned size = 0;
    std::istringstream words(line);
    if (!(words >> uuid >> type >> size >> handle >> loan.named >> loan.real >> loan.changed_ns)) {
        return std::nullopt;
    }
    if (type > UINT8_MAX || size == 0 || size > FileId::kMostBytes) return std::nullopt;
    if (!read_hex(uuid, loan.volume) || !read_hex(handle, loan.file.handle)) return std::nullopt;
    loan.file.type = static_cast<std::uint8_t>(type);
    loan.file.size = static_cast<std::uint8_t>(size);
    return loan;
}

// The whole file anew, so that it is never half-written.
bool write_file(const std::string& path, const std::string& content)
{
    const std::string fresh = path + ".new";
    {
        const Descriptor file(
            open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
        if (!file.is_open()) return false;
        if (write(file.get(), content.data(), content.size()) !=
            static_cast<ssize_t>(content.size())) {
            return false;
        }
        if (fdatasync(file.get()) != 0) return false;
    }
    return std::rename(fresh.c_str(), path.c_str()) == 0;
}

class Record {
public:
    std::vector<Loan> open(const std::string& path)
    {
        const std::scoped_lock guard(mutex_);
        path_ = path;
        loans_.clear();
        std::vector<Loan> left;
        std::ifstream file(path);
        for (std::string line; left.size() < kMostLoans && std::getline(file, line);) {
            const auto loan = read_line(line);
            if (!loan) continue;
            left.push_back(*loan);
            loans_[{loan->volume, loan->file}] = *loan;
        }
        return left;
    }

    void note(const Loan& loan)
    {
        const std::scoped_lock guard(mutex_);
        loans_[{loan.volume, loan.file}] = loan;
        write();
    }

    void forget(const Key& key)
    {
        const std::scoped_lock guard(mutex_);
        if (loans_.erase(key) != 0) write();
    }

private:
    void write()
    {
        std::string content;
        for (const auto& [key, loan] : loans_) content += to_line(loan);
        if (content.empty() ? unlink(path_.c_str()) == 0 || errno == ENOENT
                            : write_file(path_, content)) {
            return;
        }
        if (!std::exchange(has_complained_, true)) {
            plugin::log_line(path_ + ": " + std::generic_category().message(errno) +
                             "; files that are lent when this daemon is killed will stay too long");
        }
    }

    std::mutex mutex_;
    std::string path_;
    std::map<Key, Loan> loans_;
    bool has_complained_ = false;
};

Record& record()
{
    static auto* const only = new Record;  // used by threads that never end
    return *only;
}

}  // namespace

std::vector<Loan> open_loan_record(const std::string& path)
{
    return record().open(path);
}

void note_loan(const Loan& loan)
{
    record().note(loan);
}

void forget_loan(const Uuid& volume, const FileId& file)
{
    record().forget({volume, file});
}

}  // namespace corvane::mounted
