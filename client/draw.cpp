// Puts the drawing of a map together.
#include "client/draw.hpp"

#include <algorithm>
#include <array>
#include <cstdio>

#include "client/text.hpp"

namespace corvane {
namespace {

constexpr std::size_t kMarginColumns = 8;
constexpr std::size_t kNarrowestBar = 16;
constexpr std::size_t kListedPieces = 16;

std::string margin(const std::string& name)
{
    std::string text = name;
    text.resize(kMarginColumns, ' ');
    return text;
}

std::size_t bar_columns(const DrawStyle& style)
{
    return style.width > kMarginColumns + kNarrowestBar ? style.width - kMarginColumns
                                                        : kNarrowestBar;
}

Paint paint_of(Kind kind)
{
    switch (kind) {
        case Kind::kData:
            return Paint::kData;
        case Kind::kUnwritten:
            return Paint::kUnwritten;
        case Kind::kHole:
            break;
    }
    return Paint::kHole;
}

std::string plural(std::size_t count, const char* one, const char* many)
{
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

// A drawn bar, and which special cells it has.
struct Bar {
    std::string text;
    bool has_several = false;
    bool has_nothing = false;
};

// A bar with its scale above and its names below.
Bar draw_bar(const std::string& name, std::span<const Stretch> stretches, std::int64_t start,
             std::int64_t end, const DrawStyle& style)
{
    const std::size_t columns = bar_columns(style);
    const auto cells = paint_cells(stretches, start, end, columns);
    const Scale scale = draw_scale(start, end, columns, style.is_utf8);
    std::string text = margin(name) + scale.labels + "\n" + margin("") + scale.ruler + "\n" +
                       margin("") + draw_cells(cells, style) + "\n";
    const std::string names = draw_names(cells);
    if (!names.empty()) text += margin("") + names + "\n";
    return {text + "\n", std::ranges::count(cells, Paint::kSeveral, &Cell::paint) != 0,
            std::ranges::count(cells, Paint::kNothing, &Cell::paint) != 0};
}

Bar draw_file(const FileMap& map, const std::vector<std::size_t>& fragments, const DrawStyle& style)
{
    std::vector<Stretch> stretches;
    for (std::size_t i = 0; i < map.extents.size(); ++i) {
        const Extent& extent = map.extents[i];
        stretches.push_back(
            {extent.file_offset, extent.file_end(), paint_of(extent.kind), fragments[i]});
    }
    return draw_bar("file", stretches, 0, map.file_size, style);
}

// The part of one disk that the file's blocks span.
Bar draw_disk(const FileMap& map, const std::vector<std::size_t>& fragments, std::size_t disk_index,
              const DrawStyle& style)
{
    std::vector<Stretch> stretches;
    for (std::size_t i = 0; i < map.extents.size(); ++i) {
        const Extent& extent = map.extents[i];
        if (extent.kind == Kind::kHole || extent.disk_index != disk_index) continue;
        const std::int64_t start = disk_offset(map, extent);
        stretches.push_back({start, start + extent.bytes, paint_of(extent.kind), fragments[i]});
    }
    if (stretches.empty()) return {};
    std::ranges::sort(stretches, {}, &Stretch::start);
    return draw_bar("disk " + std::to_string(disk_index), stretches, stretches.front().start,
                    stretches.back().end, style);
}

std::string draw_legend(const MapSummary& summary, const Bar& all, const DrawStyle& style)
{
    struct Entry {
        Cell cell;
        const char* text;
        bool is_shown;
    };
    const std::array entries{
        Entry{{Paint::kData, 1}, "data", summary.fragment_count != 0},
        Entry{{Paint::kData, 2}, "data, next fragment", summary.fragment_count > 1},
        Entry{{Paint::kUnwritten, 0}, "unwritten: reads as zeros", summary.unwritten_count != 0},
        Entry{{Paint::kHole, 0}, "hole: no blocks", summary.hole_count != 0},
        Entry{{Paint::kSeveral, 0}, "several pieces", all.has_several},
        Entry{{Paint::kNothing, 0}, "not this file's", all.has_nothing},
    };
    std::string text = "legend";
    std::size_t column = text.size();
    for (const Entry& entry : entries) {
        if (!entry.is_shown) continue;
        const std::string words = entry.text;
        const std::size_t columns = words.size() + 2;
        if (column + 2 + columns > style.width) {
            text += "\n";
            column = 0;
        }
        const std::size_t gap = column < kMarginColumns ? kMarginColumns - column : 2;
        text += std::string(gap, ' ') +
                coloured(glyph(entry.cell, style.is_utf8), entry.cell, style) + " " + words;
        column += gap + columns;
    }
    return text + "\n\n";
}

std::string list_row(const FileMap& map, const Extent& extent, std::size_t fragment,
                     const DrawStyle& style)
{
    std::array<char, 160> row{};
    const std::string number = fragment == 0 ? "-" : std::to_string(fragment);
    const std::string place = extent.kind == Kind::kHole
                                  ? "-"
                                  : "disk " + std::to_string(extent.disk_index) + " at " +
                                        std::to_string(disk_offset(map, extent));
    (void)std::snprintf(row.data(), row.size(), "%6s  %-9s  %15s  %10s  %s", number.c_str(),
                        kind_name(extent.kind), std::to_string(extent.file_offset).c_str(),
                        size_text(extent.bytes).c_str(), place.c_str());
    return coloured(row.data(), {paint_of(extent.kind), fragment}, style) + "\n";
}

std::string list_pieces(const FileMap& map, const std::vector<std::size_t>& fragments,
                        const DrawStyle& style)
{
    if (map.extents.empty()) return {};
    std::string text = "     #  kind           file offset      length  place\n";
    const std::size_t shown = std::min(map.extents.size(), kListedPieces);
    for (std::size_t i = 0; i < shown; ++i)
        text += list_row(map, map.extents[i], fragments[i], style);
    if (shown < map.extents.size()) {
        text += "        " + std::to_string(map.extents.size() - shown) +
                " more; run without --draw for all\n";
    }
    return text;
}

}  // namespace

std::vector<std::size_t> number_fragments(const FileMap& map)
{
    std::vector<std::size_t> numbers;
    std::size_t count = 0;
    const Extent* before = nullptr;
    for (const Extent& extent : map.extents) {
        if (extent.kind == Kind::kHole) {
            numbers.push_back(0);
            continue;
        }
        const bool goes_on = before != nullptr && before->disk_index == extent.disk_index &&
                             before->slice_offset + before->bytes == extent.slice_offset;
        if (!goes_on) ++count;
        numbers.push_back(count);
        before = &extent;
    }
    return numbers;
}

MapSummary summarize(const FileMap& map)
{
    MapSummary summary;
    for (const std::size_t number : number_fragments(map)) {
        summary.fragment_count = std::max(summary.fragment_count, number);
    }
    for (const Extent& extent : map.extents) {
        summary.hole_count += extent.kind == Kind::kHole ? 1 : 0;
        summary.unwritten_count += extent.kind == Kind::kUnwritten ? 1 : 0;
    }
    return summary;
}

std::string summary_text(const FileMap& map)
{
    const MapSummary summary = summarize(map);
    std::string text = size_text(map.file_size);
    if (map.file_size >= 1024) text += " (" + std::to_string(map.file_size) + " bytes)";
    if (map.file_size == 0) return text + ", empty";
    text += " in " + plural(summary.fragment_count, "fragment", "fragments");
    if (summary.hole_count != 0) text += ", " + plural(summary.hole_count, "hole", "holes");
    if (summary.unwritten_count != 0) {
        text += ", " + plural(summary.unwritten_count, "unwritten extent", "unwritten extents");
    }
    return text;
}

std::int64_t disk_offset(const FileMap& map, const Extent& extent)
{
    return map.volume.slice_start(extent.disk_index) + extent.slice_offset;
}

const char* kind_name(Kind kind)
{
    switch (kind) {
        case Kind::kData:
            return "data";
        case Kind::kHole:
            return "hole";
        case Kind::kUnwritten:
            break;
    }
    return "unwritten";
}

std::string draw_map(const FileMap& map, const DrawStyle& style)
{
    std::string text =
        printable(map.path) + " of " + printable(map.share) + ": " + summary_text(map) + "\n";
    if (map.file_size == 0) return text;
    const auto fragments = number_fragments(map);
    Bar all = draw_file(map, fragments, style);
    for (std::size_t i = 0; i < map.volume.disks.size(); ++i) {
        const Bar disk = draw_disk(map, fragments, i, style);
        all.has_several = all.has_several || disk.has_several;
        all.has_nothing = all.has_nothing || disk.has_nothing;
        all.text += disk.text;
    }
    return text + "\n" + all.text + draw_legend(summarize(map), all, style) +
           list_pieces(map, fragments, style);
}

}  // namespace corvane
