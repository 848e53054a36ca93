// Locale and language names in their canonical forms, and a locale setter with fall-backs.
#include "codeset/kel_lang.h"

#include <clocale>
#include <cstring>

#include "codeset/text.hpp"

// Message catalogues are filed under these names.
const kel_string_pair to_canonical_loc[] = {
    {"C", "C"},   {"american", "C"},     {"ar_AA", "ar"},    {"Ar_AA", "ar"},
    {"cz", "cs"}, {"japanese", "ja_JP"}, {"Jp_JP", "ja_JP"}, {nullptr, nullptr},
};
const kel_string_pair to_canonical_lang[] = {
    {"C", "C"},         {"en", "C"},     {"fr", "fr_FR"},    {"ja", "ja_JP"},    {"pt", "pt_BR"},
    {"pt_BR", "pt_BR"}, {"zh", "zh_CN"}, {"zh_TW", "zh_TW"}, {nullptr, nullptr},
};
const kel_string_pair to_os_loc[] = {{nullptr, nullptr}};

namespace {

using namespace corvane::kel;

constexpr std::uint32_t kCanonicalSize = 6;  // "xx_YY" and its terminator

// Writes "xx" or "xx_YY" into `canonical` if the name has that form; says whether it has.
[[nodiscard]] bool canonical_form(const char* name, char (&canonical)[kCanonicalSize]) noexcept
{
    char head[7] = {};  // six characters decide
    std::strncpy(head, name, sizeof head - 1);
    if (!is_letter(head[0]) || !is_letter(head[1])) return false;
    if (head[2] == '-') head[2] = '_';
    canonical[0] = to_lower(head[0]);
    canonical[1] = to_lower(head[1]);
    canonical[2] = '\0';
    if (head[2] != '_') return !is_alphanumeric(head[2]);
    if (!is_letter(head[3]) || !is_letter(head[4]) || is_alphanumeric(head[5])) return false;
    canonical[2] = '_';
    canonical[3] = to_upper(head[3]);
    canonical[4] = to_upper(head[4]);
    canonical[5] = '\0';
    return true;
}

// The pairs of `to_os_loc` that may serve a locale: those that share its first two characters.
struct Run {
    const kel_string_pair* first = nullptr;
    const kel_string_pair* end = nullptr;
};

// Walks the sorted table; a pair that matches the whole name and is accepted ends the search with
// `*accepted`. A run that reaches the table's end is its first pair alone.
[[nodiscard]] Run find_run(int category, const char* canonical, const char** accepted) noexcept
{
    Run run;
    for (const kel_string_pair* pair = to_os_loc; pair->key != nullptr; ++pair) {
        const int order = std::strncmp(pair->key, canonical, 2);
        if (order > 0) {
            if (run.first != nullptr) run.end = pair;
            break;
        }
        if (order < 0) continue;
        if (run.first == nullptr) run.first = pair;
        if (std::strcmp(pair->key, canonical) == 0 && setlocale(category, pair->value) != nullptr) {
            *accepted = pair->value;
            return run;
        }
    }
    if (run.first != nullptr && run.end == nullptr) run.end = run.first + 1;
    return run;
}

}  // namespace

uint32_t kel_os_lang_name(char* buffer, uint32_t size) noexcept
{
    const char* const language = environment("LANG");
    copy_text(buffer, size, *language != '\0' ? language : "C");
    return 0;
}

const char* map_string(const kel_string_pair* table, const char* key) noexcept
{
    for (; table->key != nullptr; ++table) {
        if (std::strcmp(table->key, key) == 0) return table->value;
    }
    return nullptr;
}

uint32_t kel_canonical_loc(const char* name, char* buffer, uint32_t size) noexcept
{
    char canonical[kCanonicalSize] = {};
    const char* result = map_string(to_canonical_loc, name);
    if (result == nullptr) result = canonical_form(name, canonical) ? canonical : name;
    copy_text(buffer, size, result);
    return 0;
}

uint32_t kel_canonical_lang(const char* name, char* buffer, uint32_t size) noexcept
{
    char canonical[kCanonicalSize];
    (void)kel_canonical_loc(name, canonical, sizeof canonical);
    const char* result = map_string(to_canonical_lang, canonical);
    if (result == nullptr && canonical[2] == '_') {
        canonical[2] = '\0';
        result = map_string(to_canonical_lang, canonical);
    }
    copy_text(buffer, size, result != nullptr ? result : canonical);
    return 0;
}

const char* kel_setlocale(int category, const char* locale) noexcept
{
    if (locale == nullptr) return setlocale(category, nullptr);
    if (setlocale(category, locale) != nullptr) return locale;

    char canonical[kCanonicalSize];
    (void)kel_canonical_loc(locale, canonical, sizeof canonical);
    const char* accepted = nullptr;
    const Run run = find_run(category, canonical, &accepted);
    if (accepted != nullptr) return accepted;
    for (const kel_string_pair* pair = run.first; pair != run.end; ++pair) {
        if (setlocale(category, pair->value) != nullptr) return pair->value;
    }
    (void)setlocale(category, "C");
    return "C";
}
