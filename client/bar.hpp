// Bars to scale: a range of bytes as a row of cells, each showing what most of its bytes are.
#ifndef CORVANE_CLIENT_BAR_HPP
#define CORVANE_CLIENT_BAR_HPP

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace corvane {

enum class Paint {
    kNothing,  // outside of everything
    kData,
    kUnwritten,
    kHole,
    kSeveral,  // more pieces than one cell can show
};

// A painted range; ranges are sorted and do not overlap.
struct Stretch {
    std::int64_t start = 0;
    std::int64_t end = 0;
    Paint paint = Paint::kNothing;
    std::size_t fragment = 0;  // number of the fragment, from 1; 0 = none
};

struct Cell {
    Paint paint = Paint::kNothing;
    std::size_t fragment = 0;
    bool operator==(const Cell&) const = default;
};

struct DrawStyle {
    std::size_t width = 80;  // columns
    bool is_utf8 = true;     // else ASCII
    bool has_colour = false;
};

// Divides [start, end) into `cell_count` cells of equal size and paints each by its largest share.
// A cell in which three or more stretches meet is kSeveral, so that nothing small disappears.
[[nodiscard]] std::vector<Cell> paint_cells(std::span<const Stretch> stretches, std::int64_t start,
                                            std::int64_t end, std::size_t cell_count);

// The glyph of a cell without colour. Neighbouring fragments take turns between two glyphs.
[[nodiscard]] std::string glyph(const Cell& cell, bool is_utf8);

// A row of cells as text, with colours when the style has them.
[[nodiscard]] std::string draw_cells(std::span<const Cell> cells, const DrawStyle& style);

// `text` in the colour of a cell, or as it is.
[[nodiscard]] std::string coloured(const std::string& text, const Cell& cell,
                                   const DrawStyle& style);

// Two lines over a bar: sizes at the ends and at even steps between, and a ruler with a tick at
// each.
struct Scale {
    std::string labels;
    std::string ruler;
};
[[nodiscard]] Scale draw_scale(std::int64_t start, std::int64_t end, std::size_t cell_count,
                               bool is_utf8);

// One line below a bar: the number of each fragment under its middle, "hole" and "unwritten" where
// they fit.
[[nodiscard]] std::string draw_names(std::span<const Cell> cells);

}  // namespace corvane
#endif
