// Tables of the multi-byte sets: nodes toward UCS-2, prefix records and pages from it.
#include <algorithm>
#include <map>
#include <stdexcept>

#include "codeset/table_layout.hpp"
#include "tools/corvanetab/table_builder.hpp"

namespace corvane::tab {
namespace {

using namespace corvane::kel;

// A count, the lowest byte, and an entry for each byte up to the highest.
[[nodiscard]] Piece make_node(const std::map<std::uint8_t, std::uint16_t>& entries)
{
    const unsigned lowest = entries.begin()->first;
    const unsigned highest = entries.rbegin()->first;
    Piece node;
    append_word(node, static_cast<std::uint16_t>(highest - lowest + 1));
    append_word(node, static_cast<std::uint16_t>(lowest));
    for (unsigned byte = lowest; byte <= highest; ++byte) {
        const auto found = entries.find(static_cast<std::uint8_t>(byte));
        append_word(node, found != entries.end() ? found->second : kUnmapped);
    }
    return node;
}

// Places the nodes under every sequence of `depth` bytes, whose continuations are in `values`
// already, and enters their values there. Deeper nodes come first, since a node holds the places of
// those below.
void place_nodes(const Mapping& mapping, DataArea& data, std::size_t depth,
                 std::map<std::string, std::uint16_t>& values)
{
    std::map<std::string, std::map<std::uint8_t, std::uint16_t>> nodes;
    for (const auto& [bytes, value] : values) {
        const auto length = mapping.length_by_lead[static_cast<std::uint8_t>(bytes[0])];
        if (bytes.size() != depth + 1 || length <= depth) continue;
        nodes[bytes.substr(0, depth)][static_cast<std::uint8_t>(bytes[depth])] = value;
    }
    std::vector<Piece> pieces;
    pieces.reserve(nodes.size());
    for (const auto& [prefix, entries] : nodes) pieces.push_back(make_node(entries));
    const std::vector<std::uint16_t> places = data.place_all(pieces, kScale);
    std::size_t i = 0;
    for (const auto& [prefix, entries] : nodes) values[prefix] = places[i++];
}

// The prefix record of a code: its bytes but for the last two.
[[nodiscard]] std::uint16_t place_prefix(DataArea& data, const std::string& code)
{
    const std::size_t length = code.size() - 2;
    if (length > kPrefixRoom) throw std::runtime_error("a code is too long for a prefix record");
    Piece record(kPrefixRoom);
    for (std::size_t i = 0; i < length; ++i) record[i] = static_cast<std::uint8_t>(code[i]);
    append_word(record, static_cast<std::uint16_t>(length));
    return data.place(record, kPrefixRecordSize);
}

// Entries of two words: prefix index and code. A single byte has no prefix, so nobody reads its
// index.
[[nodiscard]] Piece code_page(const Mapping& mapping, DataArea& data, std::size_t high_byte)
{
    Piece page;
    for (std::size_t character = high_byte << 8; character >> 8 == high_byte; ++character) {
        const std::string& code = mapping.codes[character];
        if (is_built_in(mapping, character)) {
            append_word(page, std::nullopt);
            append_word(page, std::nullopt);
        } else if (code.size() == 1) {
            append_word(page, std::nullopt);
            append_word(page, code_value(code));
        } else {
            append_word(page, code.empty() ? kUnmapped : place_prefix(data, code));
            append_word(page, code.empty() ? kUnmapped : code_value(code.substr(code.size() - 2)));
        }
    }
    return page;
}

}  // namespace

std::vector<std::uint8_t> build_mbcs(const Mapping& mapping)
{
    Header header(mapping);
    DataArea data;
    std::vector<Piece> pages;
    for (std::size_t high_byte = 0; high_byte < 256; ++high_byte) {
        pages.push_back(code_page(mapping, data, high_byte));
    }
    const std::vector<std::uint16_t> places = data.place_all(pages, kScale);
    for (std::size_t page = 0; page < 256; ++page) header.put_page(page, places[page]);

    std::map<std::string, std::uint16_t> values(mapping.characters.begin(),
                                                mapping.characters.end());
    std::size_t longest = 0;
    for (const auto& [bytes, character] : values) longest = std::max(longest, bytes.size());
    for (std::size_t depth = longest - 1; depth > 0; --depth) {
        place_nodes(mapping, data, depth, values);
    }
    for (std::size_t lead = 0x80; lead < 256; ++lead) {
        if (mapping.length_by_lead[lead] < 2) continue;
        const auto found = values.find(std::string(1, static_cast<char>(lead)));
        header.put_byte_value(lead, found != values.end() ? found->second : kUnmapped);
    }
    return header.with(data.bytes());
}

}  // namespace corvane::tab
