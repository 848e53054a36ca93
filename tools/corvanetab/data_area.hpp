// Packs rows, pages, nodes and records into a data area, sharing whatever bytes they have in
// common.
#ifndef CORVANE_TOOLS_CORVANETAB_DATA_AREA_HPP
#define CORVANE_TOOLS_CORVANETAB_DATA_AREA_HPP

#include <cstdint>
#include <optional>
#include <vector>

namespace corvane::tab {

// A piece of a table; a byte without a value is one that no converter reads.
using Piece = std::vector<std::optional<std::uint8_t>>;

void append_word(Piece& piece, std::optional<std::uint16_t> word);

class DataArea {
public:
    // Places `piece` at the lowest multiple of `alignment` bytes where it agrees with what is
    // there, and returns that place in units of `alignment`. Throws std::runtime_error when a
    // 16-bit value cannot reach it.
    [[nodiscard]] std::uint16_t place(const Piece& piece, std::size_t alignment);

    // Places all of `pieces` as place() does, each time going on with the one that needs the fewest
    // new bytes. Returns their places in the order of `pieces`.
    [[nodiscard]] std::vector<std::uint16_t> place_all(const std::vector<Piece>& pieces,
                                                       std::size_t alignment);

    // The bytes; those that nobody reads are zero.
    [[nodiscard]] std::vector<std::uint8_t> bytes() const;

private:
    [[nodiscard]] bool agrees(const Piece& piece, std::size_t at) const;

    // The bytes that `piece` would add to the end of the area.
    [[nodiscard]] std::size_t growth(const Piece& piece, std::size_t alignment) const;

    Piece area_;
};

}  // namespace corvane::tab
#endif
