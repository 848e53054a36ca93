// One character at a time through the C library's iconv, in both directions.
#ifndef CORVANE_TOOLS_CORVANETAB_ICONV_CODEC_HPP
#define CORVANE_TOOLS_CORVANETAB_ICONV_CODEC_HPP

#include <iconv.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace corvane::tab {

enum class Decoding { kWhole, kIncomplete, kInvalid };

class IconvCodec {
public:
    // Throws std::runtime_error when the C library does not know the code set.
    explicit IconvCodec(const std::string& name);
    ~IconvCodec();
    IconvCodec(const IconvCodec&) = delete;
    IconvCodec& operator=(const IconvCodec&) = delete;

    // Decodes `bytes` from the initial state; `characters` is set only for a whole sequence.
    [[nodiscard]] Decoding decode(std::string_view bytes, std::u32string& characters) const;

    // Encodes one character and what closes it; empty when the set has no mapping for it.
    [[nodiscard]] std::string encode(char32_t character) const;

private:
    iconv_t decoder_;
    iconv_t encoder_;
};

}  // namespace corvane::tab
#endif
