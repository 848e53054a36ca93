// The image in which every lookup misses: no data area, no byte with a class or a value.
#include <algorithm>
#include <array>

#include "codeset/table_image.hpp"

namespace corvane::kel {
namespace {

[[nodiscard]] consteval std::array<std::uint8_t, kLeastTableSize> make_empty_table()
{
    std::array<std::uint8_t, kLeastTableSize> image{};
    image.fill(0xFF);
    return image;
}

}  // namespace

const std::array<std::uint8_t, kLeastTableSize> kEmptyTable = make_empty_table();

}  // namespace corvane::kel
