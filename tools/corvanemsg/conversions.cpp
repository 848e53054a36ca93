// The printf conversions of a message text.
#include "tools/corvanemsg/conversions.hpp"

#include <array>

namespace corvane::msg {

namespace {

// Walks over one directive, from behind its percent sign.
class Directive {
public:
    Directive(std::string_view text, std::size_t at) : text_(text), start_(at), at_(at) {}

    // Appends what the directive takes; gives the position behind it.
    std::size_t take(std::vector<std::string>& arguments)
    {
        skip("#0- +'I");
        number(arguments);
        if (peek() == '.') {
            ++at_;
            number(arguments);
        }
        const std::string_view length = length_modifier();
        const char letter = peek();
        if (letter == '%' && at_ == start_) return at_ + 1;
        if (letter == '\0' || kLetters.find(letter) == std::string_view::npos) {
            // Positions ("2$") and "%n" come here too: the log takes arguments in order and stores
            // none.
            arguments.push_back(std::string(text_.substr(start_, at_ - start_)) + "?");
            return at_;
        }
        ++at_;
        arguments.push_back(std::string(length) + (letter == 'i' ? 'd' : letter));
        return at_;
    }

private:
    static constexpr std::string_view kLetters = "diouxXeEfFgGaAcsp";

    [[nodiscard]] char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }

    void skip(std::string_view set)
    {
        while (at_ < text_.size() && set.find(text_[at_]) != std::string_view::npos) ++at_;
    }

    void number(std::vector<std::string>& arguments)
    {
        if (peek() == '*') {
            arguments.emplace_back("*");
            ++at_;
        } else {
            skip("0123456789");
        }
    }

    std::string_view length_modifier()
    {
        static constexpr std::array<std::string_view, 8> kModifiers = {"hh", "h", "ll", "l",
                                                                       "j",  "z", "t",  "L"};
        for (const std::string_view modifier : kModifiers) {
            if (text_.substr(at_, modifier.size()) == modifier) {
                at_ += modifier.size();
                return modifier;
            }
        }
        return {};
    }

    std::string_view text_;
    std::size_t start_;
    std::size_t at_;
};

}  // namespace

std::vector<std::string> conversions(std::string_view text)
{
    std::vector<std::string> arguments;
    std::size_t at = text.find('%');
    while (at != std::string_view::npos) {
        at = Directive(text, at + 1).take(arguments);
        at = at < text.size() ? text.find('%', at) : std::string_view::npos;
    }
    return arguments;
}

std::string listed(const std::vector<std::string>& conversions)
{
    std::string all;
    for (const std::string& conversion : conversions) {
        if (!all.empty()) all += ' ';
        all += '%' + conversion;
    }
    return all.empty() ? "none" : all;
}

}  // namespace corvane::msg
