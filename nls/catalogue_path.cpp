// Finding the catalogue of the process's language: candidate locale names in path templates.
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "codeset/kel.h"
#include "nls/catalogue_runtime.h"

namespace {

constexpr char kCatalogueName[] = "corvanecat";
constexpr std::size_t kLocaleBytes = 32;

// Ends with a separator, as a list does to which more may be appended.
constexpr std::string_view kTemplates = "/usr/Corvane/nls/%L/%N.cat:";

// Locale names to try, best first; an empty one is left out.
struct Candidates {
    char locale[kLocaleBytes] = "";
    char short_name[3] = "";
    char language[kLocaleBytes] = "";
};

std::string_view territory_of(std::string_view locale) noexcept
{
    const std::size_t underscore = locale.find('_');
    if (underscore == std::string_view::npos) return {};
    locale.remove_prefix(underscore + 1);
    return locale.substr(0, locale.find('.'));
}

std::string_view language_of(std::string_view locale) noexcept
{
    const std::size_t underscore = locale.find('_');
    return locale.substr(0, underscore != std::string_view::npos ? underscore : locale.find('.'));
}

std::string_view code_set_of(std::string_view locale) noexcept
{
    const std::size_t dot = locale.find('.');
    return dot == std::string_view::npos ? std::string_view{} : locale.substr(dot + 1);
}

std::size_t copy_part(char* out, std::string_view part, std::size_t room) noexcept
{
    (void)part.copy(out, room);
    return part.size();
}

// A value that is set and not empty, or null.
const char* environment(const char* name) noexcept
{
    const char* const value = std::getenv(name);
    return value == nullptr || *value == '\0' ? nullptr : value;
}

Candidates candidates() noexcept
{
    char language_name[kLocaleBytes] = "";
    const char* locale = environment("LC_ALL");
    if (locale == nullptr) locale = environment("LC_MESSAGES");
    if (locale == nullptr) {
        (void)kel_os_lang_name(language_name, sizeof language_name);
        locale = language_name;
    }
    Candidates names;
    (void)kel_canonical_loc(locale, names.locale, sizeof names.locale);
    if (std::strlen(names.locale) > 2) std::memcpy(names.short_name, names.locale, 2);
    (void)kel_canonical_lang(locale, names.language, sizeof names.language);
    if (std::strcmp(names.language, names.locale) == 0) names.language[0] = '\0';
    return names;
}

// Takes the next element off the list. A ':' as its second character belongs to it: a drive's
// letter stands before it.
std::string_view next_element(std::string_view& list) noexcept
{
    std::size_t end = 0;
    while (end < list.size() && list[end] != ';' && (list[end] != ':' || end == 1)) ++end;
    const std::string_view element = list.substr(0, end);
    list.remove_prefix(end < list.size() ? end + 1 : end);
    return element;
}

// Fills `path` with the first path of the list that exists; false when there is none.
bool find_path(std::string_view templates, const Candidates& names, char* path)
{
    while (!templates.empty()) {
        const std::string element(next_element(templates));
        for (const char* const name : {names.locale, names.short_name, names.language, "C"}) {
            if (*name != '\0' && try_path(element.c_str(), name, kCatalogueName, path) != 0)
                return true;
        }
    }
    return false;
}

// A path of bounded length; one character too many spoils it.
class PathBuilder {
public:
    explicit PathBuilder(char* path) : path_(path) {}

    void append(std::string_view part) noexcept
    {
        if (part.size() >= VOR_PATH_BYTES - length_) {
            fits_ = false;
            return;
        }
        length_ += part.copy(path_ + length_, part.size());
    }
    [[nodiscard]] bool finish() noexcept
    {
        path_[length_] = '\0';
        return fits_;
    }

private:
    char* path_;
    std::size_t length_ = 0;
    bool fits_ = true;
};

}  // namespace

std::size_t copy_language(char* out, const char* locale, std::size_t room) noexcept
{
    return copy_part(out, language_of(locale), room);
}

std::size_t copy_territory(char* out, const char* locale, std::size_t room) noexcept
{
    return copy_part(out, territory_of(locale), room);
}

std::size_t copy_codeset(char* out, const char* locale, std::size_t room) noexcept
{
    return copy_part(out, code_set_of(locale), room);
}

std::int32_t try_path(const char* path_template, const char* locale, const char* name,
                      char* path) noexcept
{
    PathBuilder out(path);
    for (const char* at = path_template; *at != '\0'; ++at) {
        const char kind = *at == '%' ? at[1] : '\0';
        // clang-format off
        switch (kind) {
            case 'L': out.append(locale); break;
            case 'N': out.append(name); break;
            case 'l': out.append(language_of(locale)); break;
            case 't': out.append(territory_of(locale)); break;
            case 'c': out.append(code_set_of(locale)); break;
            default: out.append({at, 1}); continue;
        }
        // clang-format on
        ++at;
    }
    if (!out.finish()) return 0;
    struct stat status = {};
    return cacheIndex(path) >= 0 || stat(path, &status) == 0 ? 1 : 0;
}

void vor_getNlsPath(char* path) noexcept
{
    char found[VOR_PATH_BYTES] = "";
    if (find_path(kTemplates, candidates(), found) && *found != '\0') {
        std::memcpy(path, found, std::strlen(found) + 1);
    }
}
