// Converts a text through a table image, both hostile: in pieces and at once, which must agree.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <vector>

#include "codeset/kel.h"

namespace {

constexpr std::uint16_t kTypes[] = {1, 2, 3, 4, 6, 8, 9, 10};

// Converts `source`, showing it up to `cut` first and leaving `room` for the output first.
template <class From, class To, class Convert>
std::vector<To> convert_in_pieces(kel_cs_t cs, Convert convert, const std::vector<From>& source,
                                  std::size_t cut, std::size_t room)
{
    std::vector<To> out(18 * source.size() + 8);
    const From* from = source.data();
    To* to = out.data();
    for (const bool is_first : {true, false}) {
        auto from_left =
            static_cast<std::uint32_t>(source.data() + (is_first ? cut : source.size()) - from);
        auto to_left = static_cast<std::uint32_t>(out.data() + (is_first ? room : out.size()) - to);
        (void)convert(&cs, &from, &from_left, &to, &to_left);
    }
    out.resize(static_cast<std::size_t>(to - out.data()));
    return out;
}

template <class From, class To, class Convert>
void check(const kel_cs_t& cs, Convert convert, const std::vector<From>& source, std::size_t where)
{
    if (source.empty()) return;
    const auto whole = convert_in_pieces<From, To>(cs, convert, source, source.size(), 8);
    const std::size_t cut = where % (source.size() + 1);
    if (convert_in_pieces<From, To>(cs, convert, source, cut, where % 16) != whole) std::abort();
}

}  // namespace

// The input: a type, a place to cut at, the text's length, the text; the rest is the table's image.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 4) return 0;
    const std::size_t length = std::min<std::size_t>(data[2], size - 4);
    const std::vector<char> text(data + 4, data + 4 + length);
    const std::vector<std::uint8_t> image(data + 4 + length, data + size);
    std::vector<std::uint16_t> units(length / 2);
    if (!units.empty()) std::memcpy(units.data(), text.data(), 2 * units.size());
    kel_cs_t cs = {};
    cs.type = kTypes[data[0] % std::size(kTypes)];
    cs.table = image.empty() ? nullptr : const_cast<std::uint8_t*>(image.data());
    cs.table_size = static_cast<std::uint32_t>(image.size());
    cs.to_state = cs.from_state = data[3] & 1;
    check<char, std::uint16_t>(cs, kel_to_ucs2_r, text, data[1]);
    check<char, char>(cs, kel_to_utf8_r, text, data[1]);
    check<char, char>(cs, kel_from_utf8_r, text, data[1]);
    check<std::uint16_t, char>(cs, kel_from_ucs2_r, units, data[1]);
    return 0;
}
