// Share-name resolution: smb.conf for shares, the password file for home shares. Nothing is cached,
// so an administrator's change holds from the next request on.
#include "osl/share_name.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "mdcmain/catalogue_message.hpp"
#include "mdcmain/log.h"
#include "mdcmain/segment.hpp"
#include "osl/c_file.hpp"
#include "osl/fsuni.h"
#include "osl/token.h"

namespace corvane {
namespace {

constexpr int kNameBytes = 256;  // share name and path found, zeros included
constexpr int kLineBytes = 1024;
constexpr int kFieldBytes = 128;  // one field of the password file
constexpr uint32_t kBadShareName = 3;
constexpr int32_t kTextNoConfiguration = 625;
constexpr int32_t kTextNotMounted = 626;
constexpr int32_t kPasswdUser = 0;
constexpr int32_t kPasswdHome = 5;
constexpr char kDefaultFiles[] = "/etc/samba/smb.conf:/usr/Corvane/smb.conf";
constexpr char kHomesHeader[] = "[homes]";

// The lines of a file, 1023 bytes at the most. The last byte of each is dropped as its newline,
// whatever it is: a last line without a newline loses a byte.
class LineReader {
public:
    explicit LineReader(std::FILE* file) noexcept : file_(file) {}

    // False at the end of the file. The line is good until the next call.
    [[nodiscard]] bool next() noexcept
    {
        if (std::fgets(line_, sizeof line_, file_) == nullptr) return false;
        const size_t length = std::strlen(line_);
        if (length != 0) line_[length - 1] = 0;
        return true;
    }
    [[nodiscard]] const char* line() const noexcept { return line_; }

private:
    std::FILE* file_;
    char line_[kLineBytes] = {};
};

bool file_exists(const char* path) noexcept
{
    struct stat status {};
    return stat(path, &status) == 0;
}

// Copies the text from the line's first "/" up to the first blank behind it; empty without a "/".
void take_path(std::string_view line, char* path) noexcept
{
    const size_t start = line.find('/');
    std::string_view found =
        start == std::string_view::npos ? std::string_view{} : line.substr(start);
    found = found.substr(0, found.find(' '));
    path[found.copy(path, kNameBytes - 1)] = 0;
}

bool is_share_header(std::string_view line, std::string_view share_name) noexcept
{
    return line.size() == share_name.size() + 2 && line.front() == '[' && line.back() == ']' &&
           line.substr(1, share_name.size()) == share_name;
}

struct SectionSearch {
    bool found = false;
    bool has_homes = false;  // "[homes]" stood before the point where the search ended
};

// A share's section without a path line ends at the next header, so that no share ever answers with
// another one's directory; a later section of the same name may still have one.
SectionSearch search_sections(std::FILE* file, std::string_view share_name, char* path) noexcept
{
    SectionSearch search;
    bool in_share = false;
    for (LineReader lines(file); lines.next();) {
        const std::string_view line = lines.line();
        if (in_share && line.find("path =") != std::string_view::npos) {
            take_path(line, path);
            search.found = true;
            return search;
        }
        if (!line.starts_with('[')) continue;
        if (line == kHomesHeader) search.has_homes = true;
        in_share = is_share_header(line, share_name);
    }
    return search;
}

// The home directory of the user whose name is the share's.
int32_t find_home(const char* share_name, char* path, bool verbose) noexcept
{
    const CFile file(std::fopen("/etc/passwd", "re"));
    if (file == nullptr) return -1;
    for (LineReader lines(file.get()); lines.next();) {
        if (token_getNumTokens(lines.line(), ':') < 2) continue;
        char user[kFieldBytes];
        token_getToken(lines.line(), ':', kPasswdUser, user, sizeof user);
        if (verbose) {
            sanos_log("username is [%s] volName is [%s]\n", user,
                      share_name[0] == 0 ? "" : share_name + 1);
        }
        if (std::strcmp(user, share_name) != 0) continue;
        char home[kFieldBytes];
        token_getToken(lines.line(), ':', kPasswdHome, home, sizeof home);
        std::memcpy(path, home, std::strlen(home) + 1);
        if (verbose) sanos_log("refName is [%s] homeDir is [%s]\n", path, home);
        return 0;
    }
    return -1;
}

int32_t check_named_file(const char* variable, const char* share_name, char* path) noexcept
{
    char file[kLineBytes];
    file[std::string_view(variable).copy(file, sizeof file - 1)] = 0;
    if (!file_exists(file)) {
        sanos_log(
            "FTX2104E sambaCheck: Could not find [%s] indicated by env var CORVANE_SMBPATH. The "
            "file "
            "does not exist.\n",
            file);
        return -1;
    }
    const int32_t result = parseSmbConfFile(file, share_name, path);
    if (result != 0) {
        sanos_log("FTX1203E sambaCheck: Could not find a samba share for [%s] in [%s].\n",
                  share_name, file);
    }
    return result;
}

}  // namespace
}  // namespace corvane

uint32_t OSL_ShareNameToMountPoint(const FSUNI* share_name, FSUNI* result,
                                   int32_t capacity_units) noexcept
{
    char name[corvane::kNameBytes];
    OSL_Uni2MultiByte(name, share_name, sizeof name);
    if (corvane::log_level() != 0) sanos_log("OSL_ShareNameToMountPoint: shareName %s\n", name);
    if (name[0] == '/') {
        OSL_MultiByte2Uni(result, name, capacity_units);
        return 0;
    }
    char path[corvane::kNameBytes] = {};
    if (sambaCheck(name, path) == -1) {
        corvane::log_message(corvane::kTextNotMounted, static_cast<const char*>(name));
        return corvane::kBadShareName;
    }
    OSL_MultiByte2Uni(result, path[0] == 0 ? name : path, capacity_units);
    return 0;
}

int32_t sambaCheck(const char* share_name, char* path) noexcept
{
    if (const char* const variable = std::getenv("CORVANE_SMBPATH"); variable != nullptr) {
        return corvane::check_named_file(variable, share_name, path);
    }
    const int32_t file_count = token_getNumTokens(corvane::kDefaultFiles, ':');
    for (int32_t index = 0; index < file_count; ++index) {
        char file[corvane::kLineBytes];
        token_getToken(corvane::kDefaultFiles, ':', index, file, sizeof file);
        if (corvane::file_exists(file) && parseSmbConfFile(file, share_name, path) == 0) return 0;
    }
    corvane::log_message(corvane::kTextNoConfiguration);
    return -1;
}

int32_t parseSmbConfFile(const char* file, const char* share_name, char* path) noexcept
{
    const bool verbose = corvane::log_level() != 0;
    if (verbose) sanos_log("parseSmbConfFile: Opening [%s] looking for [%s]\n", file, share_name);
    corvane::SectionSearch search;
    {
        const corvane::CFile configuration(std::fopen(file, "re"));
        if (configuration == nullptr) {
            sanos_log("FTX1199I Could not find samba share name failed to open %s file\n", file);
            return -1;
        }
        search = corvane::search_sections(configuration.get(), share_name, path);
    }
    if (search.found) {
        if (verbose) {
            sanos_log("parseSmbConfFile: Found [%s]. The path name is [%s]\n", share_name, path);
        }
        return 0;
    }
    return search.has_homes ? corvane::find_home(share_name, path, verbose) : -1;
}
