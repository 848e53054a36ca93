// Reads /proc/self/mountinfo.
#include "plugins/mounted/mount_table.hpp"

#include <sys/sysmacros.h>

#include <fstream>
#include <sstream>

namespace corvane::mounted {
namespace {

bool is_octal(char c)
{
    return c >= '0' && c <= '7';
}

// The kernel writes blanks and backslashes of a path as a backslash and three octal digits.
std::string unescape(const std::string& text)
{
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size() && is_octal(text[i + 1]) &&
            is_octal(text[i + 2]) && is_octal(text[i + 3])) {
            plain.push_back(static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 +
                                              (text[i + 3] - '0')));
            i += 3;
        } else {
            plain.push_back(text[i]);
        }
    }
    return plain;
}

// "36 35 98:0 /root /mnt rw,noatime master:1 - ext4 /dev/sda rw,errors=continue"
std::optional<MountEntry> read_line(const std::string& line, const std::string& path)
{
    std::istringstream words(line);
    std::string id;
    std::string parent;
    std::string device;
    std::string root;
    std::string place;
    if (!(words >> id >> parent >> device >> root >> place) || unescape(place) != path) {
        return std::nullopt;
    }
    std::string word;
    while (words >> word && word != "-") continue;
    MountEntry entry;
    std::string source;
    if (!(words >> entry.type >> source >> entry.options)) return std::nullopt;
    const std::size_t colon = device.find(':');
    if (colon == std::string::npos) return std::nullopt;
    std::istringstream numbers(device.replace(colon, 1, " "));
    unsigned major_number = 0;
    unsigned minor_number = 0;
    if (!(numbers >> major_number >> minor_number)) return std::nullopt;
    entry.device = makedev(major_number, minor_number);
    return entry;
}

}  // namespace

bool MountEntry::has_option(const std::string& name) const
{
    std::istringstream words(options);
    for (std::string option; std::getline(words, option, ',');) {
        if (option == name || (name.ends_with('=') && option.starts_with(name))) return true;
    }
    return false;
}

std::optional<MountEntry> find_mount(const std::string& path)
{
    std::optional<MountEntry> found;
    std::ifstream table("/proc/self/mountinfo");
    for (std::string line; std::getline(table, line);) {
        if (auto entry = read_line(line, path))
            found = std::move(entry);  // the last one lies on top
    }
    return found;
}

}  // namespace corvane::mounted
