// The C library's iconv as the oracle of the differential test: whole texts, both ways.
#ifndef CORVANE_TESTS_CODESET_ICONV_ORACLE_HPP
#define CORVANE_TESTS_CODESET_ICONV_ORACLE_HPP

#include <iconv.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace corvane::test {

class IconvOracle {
public:
    explicit IconvOracle(const std::string& name)
        : reader_(iconv_open("UTF-32LE", name.c_str())),
          writer_(iconv_open(name.c_str(), "UTF-32LE"))
    {
        if (!is_open(reader_) || !is_open(writer_)) throw std::runtime_error("no iconv of " + name);
    }
    ~IconvOracle()
    {
        (void)iconv_close(reader_);
        (void)iconv_close(writer_);
    }
    IconvOracle(const IconvOracle&) = delete;
    IconvOracle& operator=(const IconvOracle&) = delete;

    // The characters of a text that is whole and valid.
    [[nodiscard]] std::optional<std::u32string> read(std::string_view text) const
    {
        char32_t out[16];
        const auto size = convert(reader_, text, out, sizeof out);
        if (!size) return std::nullopt;
        return std::u32string(out, *size / sizeof *out);
    }

    // The code of a character that has one.
    [[nodiscard]] std::optional<std::string> write(char32_t character) const
    {
        char out[16];
        const char bytes[] = {static_cast<char>(character), static_cast<char>(character >> 8),
                              static_cast<char>(character >> 16), 0};
        const auto size = convert(writer_, {bytes, sizeof bytes}, out, sizeof out);
        if (!size) return std::nullopt;
        return std::string(out, *size);
    }

private:
    static bool is_open(iconv_t converter)
    {
        return converter != reinterpret_cast<iconv_t>(-1);  // NOLINT(performance-no-int-to-ptr)
    }

    static std::optional<std::size_t> convert(iconv_t converter, std::string_view text, void* out,
                                              std::size_t size)
    {
        constexpr auto kFailed = static_cast<std::size_t>(-1);
        char* from = const_cast<char*>(text.data());  // iconv only reads it
        std::size_t from_left = text.size();
        char* to = static_cast<char*>(out);
        std::size_t to_left = size;
        (void)iconv(converter, nullptr, nullptr, nullptr, nullptr);
        if (iconv(converter, &from, &from_left, &to, &to_left) == kFailed) return std::nullopt;
        if (iconv(converter, nullptr, nullptr, &to, &to_left) == kFailed) return std::nullopt;
        return size - to_left;
    }

    iconv_t reader_;
    iconv_t writer_;
};

}  // namespace corvane::test
#endif
