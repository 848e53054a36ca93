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

// Which of `count` cells holds the byte at `place`.
std::size_t cell_of(std::int64_t place, std::int64_t start, std::int64_t end, std::size_t count)
{
    const auto part = static_cast<Wide>(place - start) * static_cast<Wide>(count) /
                      static_cast<Wide>(end - start);
    return static_cast<std::size_t>(part);
}

// The stretch with the largest share of [from, to); none when nothing lies there.
const Stretch* largest_share(std::span<const Stretch> stretches, std::int64_t from, std::int64_t to)
{
    const Stretch* winner = nullptr;
    std::int64_t largest = 0;
    for (const Stretch& stretch : stretches) {
        const std::int64_t share = std::min(stretch.end, to) - std::max(stretch.start, from);
        if (share > largest) {
            largest = share;
            winner = &stretch;
        }
    }
    return winner;
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

// The labels of a scale: sizes, or exact bytes where sizes would not tell neighbours apart.
std::vector<std::string> scale_labels(std::int64_t start, std::int64_t end, std::size_t steps)
{
    std::vector<std::string> labels;
    bool is_distinct = true;
    for (std::size_t i = 0; i <= steps; ++i) {
        const std::int64_t at = cell_edge(start, end, i, steps);
        labels.push_back(at == 0 ? "0" : fine_size_text(at));
        is_distinct = is_distinct && (i == 0 || labels[i] != labels[i - 1]);
    }
    for (std::size_t i = 0; !is_distinct && i <= steps; ++i) {
        labels[i] = std::to_string(cell_edge(start, end, i, steps));
    }
    return labels;
}

}  // namespace

std::vector<Cell> paint_cells(std::span<const Stretch> stretches, std::int64_t start,
                              std::int64_t end, std::size_t cell_count)
{
    std::vector<Cell> cells(cell_count);
    std::vector<bool> is_shown(stretches.size());
    std::size_t first = 0;  // the first stretch that may still matter
    for (std::size_t i = 0; i < cell_count; ++i) {
        const std::int64_t from = cell_edge(start, end, i, cell_count);
        const std::int64_t to = std::max(cell_edge(start, end, i + 1, cell_count), from + 1);
        while (first < stretches.size() && stretches[first].end <= from) ++first;
        std::size_t last = first;
        while (last < stretches.size() && stretches[last].start < to) ++last;
        const Stretch* const winner =
            largest_share(stretches.subspan(first, last - first), from, to);
        if (winner == nullptr) continue;
        cells[i] = {winner->paint, winner->fragment};
        is_shown[static_cast<std::size_t>(winner - stretches.data())] = true;
    }
    for (std::size_t i = 0; i < stretches.size(); ++i) {
        const std::int64_t length = stretches[i].end - stretches[i].start;
        const std::int64_t middle = stretches[i].start + length / 2;
        if (is_shown[i] || middle < start || middle >= end) continue;
        cells[cell_of(middle, start, end, cell_count)] = {Paint::kSeveral, 0};
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
    const auto labels = scale_labels(start, end, steps);
    for (std::size_t i = 0; i <= steps; ++i) {
        const std::string& label = labels[i];
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
