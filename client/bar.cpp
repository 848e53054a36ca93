// Paints bars, scales and the names below them.
#include "client/bar.hpp"

#include <algorithm>
#include <array>
#include <string_view>

#include "client/text.hpp"

namespace corvane {
namespace {

using Wide = __int128;  // products of offsets and cell numbers

std::int64_t cell_edge(std::int64_t start, std::int64_t end, std::size_t index, std::size_t count)
{
    const auto part =
        static_cast<Wide>(end - start) * static_cast<Wide>(index) / static_cast<Wide>(count);
    return start + static_cast<std::int64_t>(part);
}

Cell paint_cell(std::span<const Stretch> stretches, std::int64_t from, std::int64_t to)
{
    Cell cell;
    std::int64_t largest = 0;
    std::size_t met = 0;
    for (const Stretch& stretch : stretches) {
        const std::int64_t share = std::min(stretch.end, to) - std::max(stretch.start, from);
        if (share <= 0) continue;
        ++met;
        if (share > largest) {
            largest = share;
            cell = {stretch.paint, stretch.fragment};
        }
    }
    constexpr std::size_t kTooMany = 3;
    return met >= kTooMany ? Cell{Paint::kSeveral, 0} : cell;
}

struct Glyphs {
    std::string_view nothing, data_odd, data_even, unwritten, hole, several;
};
constexpr Glyphs kUtf8Glyphs{"╌", "█", "▓", "░", "·", "▚"};
constexpr Glyphs kAsciiGlyphs{"_", "#", "=", "-", ".", "+"};

constexpr std::string_view kReset = "\033[0m";

std::string_view colour_of(const Cell& cell)
{
    constexpr std::array<std::string_view, 6> kFragments{"\033[32m", "\033[36m", "\033[34m",
                                                         "\033[35m", "\033[33m", "\033[92m"};
    switch (cell.paint) {
        case Paint::kData:
            return kFragments[(cell.fragment + kFragments.size() - 1) % kFragments.size()];
        case Paint::kUnwritten:
            return "\033[33;2m";
        case Paint::kSeveral:
            return "\033[1m";
        case Paint::kHole:
        case Paint::kNothing:
            return "\033[90m";
    }
    return {};
}

// Writes `text` into `line` at `column` when it and a blank on each side are free.
void place(std::string& line, std::size_t column, std::string_view text)
{
    if (column + text.size() > line.size()) return;
    const std::size_t from = column == 0 ? 0 : column - 1;
    const std::size_t to = std::min(line.size(), column + text.size() + 1);
    if (line.substr(from, to - from).find_first_not_of(' ') != std::string::npos) return;
    line.replace(column, text.size(), text);
}

std::string name_of(const Cell& cell, std::size_t room)
{
    std::string name;
    if (cell.paint == Paint::kData) name = std::to_string(cell.fragment);
    if (cell.paint == Paint::kHole) name = "hole";
    if (cell.paint == Paint::kUnwritten) name = "unwritten";
    return name.size() <= room ? name : std::string();
}

}  // namespace

std::vector<Cell> paint_cells(std::span<const Stretch> stretches, std::int64_t start,
                              std::int64_t end, std::size_t cell_count)
{
    std::vector<Cell> cells;
    std::size_t first = 0;  // the first stretch that may still matter
    for (std::size_t i = 0; i < cell_count; ++i) {
        const std::int64_t from = cell_edge(start, end, i, cell_count);
        const std::int64_t to = std::max(cell_edge(start, end, i + 1, cell_count), from + 1);
        while (first < stretches.size() && stretches[first].end <= from) ++first;
        std::size_t last = first;
        while (last < stretches.size() && stretches[last].start < to) ++last;
        cells.push_back(paint_cell(stretches.subspan(first, last - first), from, to));
    }
    return cells;
}

std::string glyph(const Cell& cell, bool is_utf8)
{
    const Glyphs& glyphs = is_utf8 ? kUtf8Glyphs : kAsciiGlyphs;
    switch (cell.paint) {
        case Paint::kData:
            return std::string(cell.fragment % 2 == 1 ? glyphs.data_odd : glyphs.data_even);
        case Paint::kUnwritten:
            return std::string(glyphs.unwritten);
        case Paint::kHole:
            return std::string(glyphs.hole);
        case Paint::kSeveral:
            return std::string(glyphs.several);
        case Paint::kNothing:
            break;
    }
    return std::string(glyphs.nothing);
}

std::string coloured(const std::string& text, const Cell& cell, const DrawStyle& style)
{
    if (!style.has_colour || text.empty()) return text;
    return std::string(colour_of(cell)) + text + std::string(kReset);
}

std::string draw_cells(std::span<const Cell> cells, const DrawStyle& style)
{
    std::string line;
    for (std::size_t i = 0; i < cells.size();) {
        std::string run;
        const Cell& cell = cells[i];
        for (; i < cells.size() && cells[i] == cell; ++i) run += glyph(cell, style.is_utf8);
        line += coloured(run, cell, style);
    }
    return line;
}

Scale draw_scale(std::int64_t start, std::int64_t end, std::size_t cell_count, bool is_utf8)
{
    constexpr std::size_t kColumnsPerLabel = 16;
    const std::size_t steps = std::clamp<std::size_t>(cell_count / kColumnsPerLabel, 1, 8);
    Scale scale{std::string(cell_count, ' '), {}};
    std::vector<bool> has_tick(cell_count);
    for (std::size_t i = 0; i <= steps; ++i) {
        const std::string label = size_text(cell_edge(start, end, i, steps));
        const std::size_t column = i * (cell_count - 1) / steps;
        has_tick[column] = true;
        const bool is_last = i == steps;
        const std::size_t left =
            is_last && column + 1 >= label.size() ? column + 1 - label.size() : column;
        place(scale.labels, left, label);
    }
    for (std::size_t i = 0; i < cell_count; ++i) {
        std::string_view mark = is_utf8 ? "─" : "-";
        if (has_tick[i]) mark = is_utf8 ? (i == 0 ? "├" : i + 1 == cell_count ? "┤" : "┬") : "+";
        scale.ruler += mark;
    }
    scale.labels.erase(scale.labels.find_last_not_of(' ') + 1);
    return scale;
}

std::string draw_names(std::span<const Cell> cells)
{
    std::string line(cells.size(), ' ');
    for (std::size_t i = 0; i < cells.size();) {
        const std::size_t from = i;
        while (i < cells.size() && cells[i] == cells[from]) ++i;
        const std::string name = name_of(cells[from], i - from);
        if (!name.empty()) place(line, from + (i - from - name.size()) / 2, name);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

}  // namespace corvane
