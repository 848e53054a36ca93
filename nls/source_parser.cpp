// The source language of message catalogues: directives, numbered and automatically numbered
// messages, quoting and escapes.
#include <climits>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#include "nls/catalogue_compiler.h"
#include "nls/compiler_core.hpp"
#include "nls/compiler_diagnostics.hpp"
#include "nls/source_line.hpp"
#include "nls/source_model.hpp"

namespace {

using corvane::compile_error;
using corvane::compile_warning;

// The C locale's classes, whatever the process's locale is.
bool is_space(char c) noexcept
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}
bool is_digit(char c) noexcept
{
    return c >= '0' && c <= '9';
}

// One run over one source. Positions are byte offsets into `curline`, which ends with a zero byte.
class SourceParser {
public:
    explicit SourceParser(int fd) : lines_(fd) {}

    void parse();

private:
    void parse_directive();
    void parse_set(std::size_t at);
    void parse_delset(std::size_t at);
    void parse_quote(std::size_t at);
    void parse_comment(std::size_t at);
    void parse_numbered();
    void parse_automatic();
    void add(std::size_t text_at);

    std::string message_text(std::size_t at);
    std::size_t escape(std::size_t at, std::string& text);
    std::size_t octal(std::size_t at, std::string& text);
    [[nodiscard]] bool at_closing_quote(std::size_t at) const;

    [[nodiscard]] static std::size_t skip_spaces(std::size_t at);
    [[nodiscard]] static std::size_t expect_spaces(std::size_t at);
    [[nodiscard]] static std::optional<std::int32_t> number(std::size_t& at);
    [[nodiscard]] static std::string name_at(std::size_t at);

    corvane::LineReader lines_;
    std::int32_t last_number_ = 0;  // of the last message line in this set
    char quote_ = 0;                // 0: no quoting
    std::string pending_name_;      // constant name for the next message; empty: none
};

const char* or_null(const std::string& name)
{
    return name.empty() ? nullptr : name.c_str();
}

void SourceParser::parse()
{
    (void)corvane::open_catalogue();
    while (lines_.next()) {
        if (curline[0] == '$') {
            parse_directive();
        } else if (curline[0] == '#') {
            parse_automatic();
        } else if (is_digit(curline[0])) {
            parse_numbered();
        }
    }
}

void SourceParser::parse_directive()
{
    struct Directive {
        const char* word;
        void (SourceParser::*parse)(std::size_t);
    };
    static constexpr Directive kDirectives[] = {{"$set", &SourceParser::parse_set},
                                                {"$delset", &SourceParser::parse_delset},
                                                {"$quote", &SourceParser::parse_quote}};
    for (const Directive& directive : kDirectives) {
        const std::size_t length = std::strlen(directive.word);
        if (std::strncmp(curline, directive.word, length) == 0) {
            (this->*directive.parse)(length);
            return;
        }
    }
    if (is_space(curline[1])) {
        parse_comment(1);
    } else if (curline[1] != '\0') {
        compile_warning("unrecognized line", 1);
    }
}

void SourceParser::parse_set(std::size_t at)
{
    at = expect_spaces(at);
    std::optional<std::int32_t> set = number(at);
    if (!set) return;
    if (set2flag != 0 && *set == 1) set = 2;
    at = skip_spaces(at);
    const std::string name = curline[at] == '#' ? name_at(at + 1) : std::string{};
    corvane::add_set(*set, or_null(name));
    last_number_ = 0;
}

void SourceParser::parse_delset(std::size_t at)
{
    at = expect_spaces(at);
    if (const std::optional<std::int32_t> set = number(at)) corvane::delete_set(*set);
}

void SourceParser::parse_quote(std::size_t at)
{
    if (curline[at] != '\0') at = expect_spaces(at);
    quote_ = curline[at];
}

void SourceParser::parse_comment(std::size_t at)
{
    at = skip_spaces(at);
    if (curline[at] == '#') pending_name_ = name_at(at + 1);
}

void SourceParser::parse_numbered()
{
    std::size_t at = 0;
    last_number_ = *number(at);  // the line begins with a digit
    if (is_space(curline[at])) {
        ++at;
    } else if (curline[at] != '\0') {
        compile_warning("expected a space", at);
    }
    add(at);
}

void SourceParser::parse_automatic()
{
    // Past the largest number comes none: the addition refuses what is below 1.
    last_number_ = last_number_ == INT32_MAX ? 0 : last_number_ + 1;
    std::size_t at = 1;
    if (curline[at] != '\0') {
        if (!is_space(curline[at])) compile_warning("expected a space", at);
        ++at;
    }
    add(at);
}

void SourceParser::add(std::size_t text_at)
{
    const std::string text = message_text(text_at);
    corvane::add_message(last_number_, text.c_str(), or_null(pending_name_));
    pending_name_.clear();
}

// Decodes the text that begins at `at`, with further source lines where a line ends in a backslash.
std::string SourceParser::message_text(std::size_t at)
{
    std::string text;
    if (quote_ != 0 && curline[at] == quote_) ++at;
    while (curline[at] != '\0') {
        if (quote_ != 0 && curline[at] == quote_) {
            if (at_closing_quote(at)) break;
            compile_warning("unexpected quote character, ignoreing", at);
            text += curline[at++];
        } else if (curline[at] == '\\') {
            at = escape(at + 1, text);
        } else {
            text += curline[at++];
        }
    }
    return text;
}

bool SourceParser::at_closing_quote(std::size_t at) const
{
    return curline[skip_spaces(at + 1)] == '\0';
}

// Decodes what stands behind a backslash at `at` - 1; gives the position behind it.
std::size_t SourceParser::escape(std::size_t at, std::string& text)
{
    static constexpr char kLetters[] = "nbfrtv\"\\";
    static constexpr char kMeanings[] = "\n\b\f\r\t\v\"\\";

    const char c = curline[at];
    if (c == '\0') {
        if (!lines_.next()) compile_error("premature end of file");
        return 0;
    }
    if (is_digit(c)) return octal(at, text);
    const char* const letter = std::strchr(kLetters, c);
    if (letter == nullptr) compile_warning("unrecognized escape sequence", at);
    text += letter == nullptr ? c : kMeanings[letter - kLetters];
    return at + 1;
}

std::size_t SourceParser::octal(std::size_t at, std::string& text)
{
    unsigned value = 0;
    for (int digits = 0; digits < 3 && is_digit(curline[at]); ++digits, ++at) {
        if (curline[at] > '7') compile_warning("octal number greater than 7?!", at);
        value = value * 8 + static_cast<unsigned>(curline[at] - '0');
    }
    text += static_cast<char>(value & 0xFFu);
    return at;
}

std::size_t SourceParser::skip_spaces(std::size_t at)
{
    while (is_space(curline[at])) ++at;
    return at;
}

std::size_t SourceParser::expect_spaces(std::size_t at)
{
    if (!is_space(curline[at])) compile_warning("expected a space", at);
    return skip_spaces(at);
}

// Reads a decimal number, held at the bounds of 32 bits; none there is worth a warning.
std::optional<std::int32_t> SourceParser::number(std::size_t& at)
{
    const bool negative = curline[at] == '-' && is_digit(curline[at + 1]);
    const std::size_t first = at + (negative ? 1 : 0);
    if (!is_digit(curline[first])) {
        compile_warning(curline[at] == '\0' ? "wasn't expecting a space" : "unrecognized line", at);
        return std::nullopt;
    }
    std::int64_t value = 0;
    for (at = first; is_digit(curline[at]); ++at) {
        if (value <= INT32_MAX) value = value * 10 + (curline[at] - '0');
    }
    if (value > INT32_MAX) value = INT32_MAX;
    return static_cast<std::int32_t>(negative ? -value : value);
}

// The word at or behind `at`, up to the next white space.
std::string SourceParser::name_at(std::size_t at)
{
    at = skip_spaces(at);
    std::size_t end = at;
    while (curline[end] != '\0' && !is_space(curline[end])) ++end;
    return {curline + at, end - at};
}

}  // namespace

namespace corvane {

void parse_source(int fd)
{
    lineno = 0;
    SourceParser(fd).parse();
}

}  // namespace corvane

void MCParse(int fd) noexcept
{
    corvane::compile_or_exit([&] { corvane::parse_source(fd); });
}
