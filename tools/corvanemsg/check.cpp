// Comparing a translation with its source.
#include "tools/corvanemsg/check.hpp"

#include <cctype>

#include "nls/catalogue_compiler.h"
#include "tools/corvanemsg/conversions.hpp"

namespace corvane::msg {

namespace {

// The identifier that a text begins with ("FTX1000W"), or nothing.
std::string_view identifier(std::string_view text)
{
    constexpr std::size_t kLength = 8;
    if (text.size() < kLength || !text.starts_with("FTX")) return {};
    for (std::size_t at = 3; at < kLength - 1; ++at) {
        if (std::isdigit(static_cast<unsigned char>(text[at])) == 0) return {};
    }
    return text.substr(0, kLength);
}

void compare_texts(std::pair<std::int32_t, std::int32_t> number, const std::string& source,
                   const std::string& translation, std::vector<Finding>& findings)
{
    const auto add = [&](const char* kind, std::string words) {
        findings.push_back({number.first, number.second, kind, std::move(words)});
    };
    const auto wanted = conversions(source);
    const auto found = conversions(translation);
    if (wanted != found) {
        add("conversions", "takes " + listed(found) + " where the source takes " + listed(wanted));
    }
    if (identifier(source) != identifier(translation)) {
        add("identifier", "must begin with " + std::string(identifier(source)));
    }
    if (source.ends_with('\n') != translation.ends_with('\n')) {
        add("end of line", source.ends_with('\n') ? "lacks the line feed at its end"
                                                  : "must not end in a line feed");
    }
}

}  // namespace

Texts texts_in_memory()
{
    Texts texts;
    for (const MCSetNode* set = cat == nullptr ? nullptr : cat->first; set != nullptr;
         set = set->next) {
        for (const MCMessageNode* message = set->first; message != nullptr;
             message = message->next) {
            texts.emplace_hint(texts.end(), std::pair(set->setId, message->msgId), message->text);
        }
    }
    return texts;
}

std::vector<Finding> compare(const Texts& source, const Texts& translation)
{
    std::vector<Finding> findings;
    auto theirs = translation.begin();
    const auto superfluous = [&] {
        findings.push_back(
            {theirs->first.first, theirs->first.second, "superfluous", "is not in the source"});
        ++theirs;
    };
    for (const auto& [number, text] : source) {
        while (theirs != translation.end() && theirs->first < number) superfluous();
        if (theirs == translation.end() || theirs->first != number) {
            findings.push_back({number.first, number.second, "missing", "is missing"});
            continue;
        }
        compare_texts(number, text, theirs->second, findings);
        ++theirs;
    }
    while (theirs != translation.end()) superfluous();
    return findings;
}

}  // namespace corvane::msg
