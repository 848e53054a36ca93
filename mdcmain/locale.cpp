// Language set-up: which catalogue this host reads, and how it writes numbers.
#include "mdcmain/locale.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "mdcmain/language.hpp"
#include "mdcmain/log.hpp"
#include "mdcmain/segment.h"
#include "mdcmain/segment.hpp"
#include "osl/c_file.hpp"

vor_cat_t corvane_cat = nullptr;
char glbNlsPath[256] = {};

namespace corvane {
namespace {

constexpr char kLanguageFile[] = "/usr/Corvane/lang.txt";
constexpr size_t kTextBytes = 256;
constexpr uint32_t kCatalogueFlags = 1;
constexpr int32_t kMessageSet = 2;

constexpr const char* kLocaleVariables[] = {"LC_CTYPE",    "LC_COLLATE",  "LC_TIME", "LC_NUMERIC",
                                            "LC_MONETARY", "LC_MESSAGES", "LANG"};

// Languages that write 1.000,5. Looked for anywhere in the path, directories included.
constexpr std::string_view kCommaLanguages[] = {"es", "it", "de", "fr", "pt_BR"};

struct Punctuation {
    int32_t thousands;
    int32_t decimal;
};
constexpr Punctuation kPoint{.thousands = ',', .decimal = '.'};
constexpr Punctuation kComma{.thousands = '.', .decimal = ','};

void append(char (&text)[kTextBytes], std::string_view more) noexcept
{
    const size_t used = text_of(text).size();
    text[used + more.copy(text + used, kTextBytes - 1 - used)] = 0;
}

bool language_file_exists() noexcept
{
    struct stat status {};
    return stat(kLanguageFile, &status) == 0;
}

void open_catalogue(const char* path) noexcept
{
    // NOLINTNEXTLINE(performance-no-int-to-ptr): -1 is how the catalogue's interface says "none".
    const bool is_open = corvane_cat != nullptr && corvane_cat != VOR_NO_CATALOGUE;
    if (!is_open) corvane_cat = vor_catopen(path, kCatalogueFlags);
}

// Empties langName when the language file is there, or when the path in force came from one that
// has gone; true when the path is to be looked for again on that account.
bool drop_outdated_name() noexcept
{
    const bool is_there = language_file_exists();
    if (!is_there && load_shared(fs->langFromFile) != 1) return false;
    set_text(fs->langName, "");
    if (!is_there) store_shared(fs->langFromFile, 0);
    return true;
}

void change_language(const char* locale) noexcept
{
    if (locale[0] != 0) set_text(fs->langName, locale);
    char path[kTextBytes];
    nlsSetup(path);
    if (path[0] != 0) {
        set_text(glbNlsPath, path);
        set_text(fs->nlsPath, path);
    }
    char path_in_force[kTextBytes];
    set_text(path_in_force, text_of(fs->nlsPath));
    setThousandSeperator(path_in_force);
}

}  // namespace

void set_up_language() noexcept
{
    char locale[kTextBytes];
    (void)corvaneSetLocale(locale);  // null only says that LANG is unset
    if (locale[0] != 0) set_text(fs->langName, locale);
    char path[kTextBytes];
    nlsSetup(path);
    if (path[0] == 0) {
        sanos_log("nls return NULL from nlsSetup we are going to exit\n");
        std::exit(EXIT_FAILURE);
    }
    set_text(fs->nlsPath, path);
    setThousandSeperator(path);
    store_shared(fs->nlsReady, -1);
}

void refresh_language() noexcept
{
    char locale[kTextBytes];
    (void)corvaneSetLocale(locale);  // null only says that LANG is unset
    // The emptied name alone would not tell a program without any locale to look again.
    const bool is_outdated = drop_outdated_name();
    const bool is_same = text_of(fs->langName) == locale;
    if (is_outdated || !is_same) change_language(locale);
    if (is_same) set_text(glbNlsPath, text_of(fs->nlsPath));
    open_catalogue(glbNlsPath);
}

void open_creators_catalogue() noexcept
{
    if (glbNlsPath[0] != 0) return;  // the set-up of an existing segment came by here
    char path[kTextBytes];
    set_text(path, text_of(fs->nlsPath));
    open_catalogue(path);
}

const char* message_text(int32_t number) noexcept
{
    return vor_catgets(corvane_cat, kMessageSet, number, "Error not defined\n");
}

}  // namespace corvane

char* corvaneSetLocale(char* buffer) noexcept
{
    char locale[corvane::kTextBytes] = {};
    const char* value = nullptr;
    for (const char* const variable : corvane::kLocaleVariables) {
        value = std::getenv(variable);
        if (value == nullptr) continue;
        corvane::append(locale, "/");
        corvane::append(locale, value);
    }
    std::memcpy(buffer, locale, std::strlen(locale) + 1);
    return value == nullptr ? nullptr : buffer;  // the last one was LANG
}

void checkLang(char* buffer) noexcept
{
    const corvane::CFile file(std::fopen(corvane::kLanguageFile, "re"));
    if (file == nullptr) return;
    char line[corvane::kTextBytes];
    if (std::fgets(line, sizeof line, file.get()) == nullptr || line[0] == 0) return;
    size_t length = std::strlen(line);
    if (line[length - 1] == '\n') line[--length] = 0;
    std::memcpy(buffer, line, length + 1);
}

void nlsSetup(char* buffer) noexcept
{
    fused_mapShared();
    buffer[0] = 0;
    checkLang(buffer);
    if (buffer[0] != 0) {
        corvane::store_shared(fs->langFromFile, 1);
    } else {
        vor_getNlsPath(buffer);
    }
    if (buffer[0] == 0) {
        sanos_log("No nlsPath found, This will cause the system to be very unstable.\n");
    }
}

void setThousandSeperator(const char* text) noexcept
{
    fused_mapShared();
    corvane::Punctuation punctuation = corvane::kPoint;
    for (const std::string_view language : corvane::kCommaLanguages) {
        if (std::string_view(text).find(language) != std::string_view::npos) {
            punctuation = corvane::kComma;
        }
    }
    corvane::store_shared(fs->thousandsSep, punctuation.thousands);
    corvane::store_shared(fs->decimalPoint, punctuation.decimal);
}
