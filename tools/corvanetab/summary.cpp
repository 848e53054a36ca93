// Reads a table's header, and its coverage by asking the library's own converters.
#include "tools/corvanetab/summary.hpp"

#include <array>
#include <cstdio>

#include "codeset/kel_convert.h"
#include "codeset/kel_cs.h"

namespace corvane::tab {
namespace {

using namespace corvane::kel;

[[nodiscard]] std::vector<ClassRange> class_ranges(Bytes file)
{
    std::vector<ClassRange> ranges;
    for (unsigned byte = 0; byte < 256; ++byte) {
        const unsigned byte_class = file[kByteClassesAt + byte];
        if (!ranges.empty() && ranges.back().byte_class == byte_class) {
            ranges.back().last = byte;
        } else {
            ranges.push_back({byte, byte, byte_class});
        }
    }
    return ranges;
}

void count_coverage(Bytes file, Summary& summary)
{
    std::vector<std::uint8_t> image(file.begin(), file.end());
    kel_cs_t cs = {};
    cs.table = image.data();
    cs.table_size = static_cast<std::uint32_t>(image.size());
    cs.type = summary.type;
    const bool is_ebcdic = cs.type == KEL_TYPE_EBCDIC_SBCS || cs.type == KEL_TYPE_EBCDIC_DBCS;
    const char replacement = is_ebcdic ? '\x6F' : '?';
    unsigned last_block = 256;
    for (unsigned character = 0; character < 0x10000; ++character) {
        if (character >= 0xD800 && character < 0xE000) continue;
        const auto unit = static_cast<std::uint16_t>(character);
        std::array<char, 32> code{};
        std::array<std::uint16_t, 4> back{};
        const std::uint32_t length = kel_from_ucs2(&cs, &unit, 1, code.data(), code.size());
        if (length == 1 && code[0] == replacement && character != '?') continue;
        ++summary.written;
        if (character >> 8 != last_block) ++summary.blocks;
        last_block = character >> 8;
        const std::uint32_t units = kel_to_ucs2(&cs, code.data(), static_cast<std::int32_t>(length),
                                                back.data(), back.size());
        if (units == 1 && back[0] == unit) ++summary.read_back;
    }
}

[[nodiscard]] const char* class_name(unsigned byte_class)
{
    if (byte_class == kClassSingle) return "single byte";
    if (byte_class == kClassInvalid) return "invalid";
    return byte_class == kClassLead ? "lead of 2 bytes" : "lead of a sequence";
}

}  // namespace

Summary summarize(Bytes file)
{
    Summary summary;
    summary.bytes = file.size();
    summary.type = type_of(file);
    summary.encoding_scheme = word_at(file, kEncodingSchemeAt);
    summary.value_a = word_at(file, kValueAAt);
    summary.value_b = word_at(file, kValueBAt);
    summary.data_area = long_at(file, kDataAreaAt);
    summary.substitution_character = word_at(file, kSubstitutionCharAt);
    summary.substitution_byte = file[kSubstitutionByteAt];
    summary.classes = class_ranges(file);
    count_coverage(file, summary);
    return summary;
}

std::string to_text(const Summary& summary)
{
    std::string text;
    const auto line = [&text](const char* label, const char* format, auto... arguments) {
        std::array<char, 160> buffer{};
        int length = std::snprintf(buffer.data(), buffer.size(), "%-22s", label);
        text += buffer.data();
        length = std::snprintf(buffer.data(), buffer.size(), format, arguments...);
        (void)length;  // every line is far shorter than its buffer
        text += buffer.data();
        text += '\n';
    };
    line("size", "%zu bytes", summary.bytes);
    line("family", "%u, %s", unsigned{summary.type}, family_name(summary.type));
    line("encoding scheme", "0x%04X", unsigned{summary.encoding_scheme});
    line("header values", "0x%04X, 0x%04X", unsigned{summary.value_a}, unsigned{summary.value_b});
    line("data area", "from %u, %zu bytes", summary.data_area,
         summary.bytes - std::min<std::size_t>(summary.bytes, summary.data_area));
    line("substitution", "byte 0x%02X, character U+%04X", unsigned{summary.substitution_byte},
         unsigned{summary.substitution_character});
    for (const ClassRange& range : summary.classes) {
        line("class", "0x%02X-0x%02X: %u, %s", range.first, range.last, range.byte_class,
             class_name(range.byte_class));
    }
    line("coverage", "%u characters written, %u of them read back, in %u blocks of 256",
         summary.written, summary.read_back, summary.blocks);
    return text;
}

nlohmann::json to_json(const Summary& summary)
{
    nlohmann::json classes = nlohmann::json::array();
    for (const ClassRange& range : summary.classes) {
        classes.push_back(
            {{"first", range.first}, {"last", range.last}, {"class", range.byte_class}});
    }
    return {{"bytes", summary.bytes},
            {"type", summary.type},
            {"family", family_name(summary.type)},
            {"encodingScheme", summary.encoding_scheme},
            {"headerValueA", summary.value_a},
            {"headerValueB", summary.value_b},
            {"dataArea", summary.data_area},
            {"substitutionByte", summary.substitution_byte},
            {"substitutionCharacter", summary.substitution_character},
            {"classes", classes},
            {"written", summary.written},
            {"readBack", summary.read_back},
            {"blocks", summary.blocks}};
}

}  // namespace corvane::tab
