// `corvane map`: a file's map as a table, as JSON or drawn.
#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "client/command.hpp"
#include "client/interrupt.hpp"
#include "client/open_file.hpp"
#include "client/terminal.hpp"
#include "client/text.hpp"

namespace corvane {
namespace {

using nlohmann::json;

FileMap ask_file_map(const CommandOptions& options)
{
    const Exchange exchange(options.endpoint, &interrupt_flag());
    OpenFile file(exchange, options.share, options.path, Intention::kRead);
    FileMap map{options.share,     options.path,  file.size(),
                file.allocation(), file.volume(), file.whole_map(file.size())};
    file.close();
    return map;
}

std::string map_json(const FileMap& map)
{
    json extents = json::array();
    for (const Extent& extent : map.extents) {
        json row = {{"fileOffset", extent.file_offset},
                    {"bytes", extent.bytes},
                    {"kind", kind_name(extent.kind)}};
        if (extent.kind != Kind::kHole) {
            row["disk"] = extent.disk_index;
            row["diskOffset"] = disk_offset(map, extent);
            row["signature"] = map.volume.disks[extent.disk_index].signature_text();
        }
        extents.push_back(std::move(row));
    }
    const json result = {{"share", map.share},
                         {"path", map.path},
                         {"fileSize", map.file_size},
                         {"allocation", map.allocation},
                         {"blockSize", map.volume.block_bytes},
                         {"extents", std::move(extents)}};
    return result.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

std::string table_row(const FileMap& map, std::size_t index, std::size_t fragment)
{
    const Extent& extent = map.extents[index];
    const bool is_hole = extent.kind == Kind::kHole;
    const std::string number = is_hole ? "-" : std::to_string(fragment);
    const std::string disk = is_hole ? "-" : std::to_string(extent.disk_index);
    const std::string place = is_hole ? "-" : std::to_string(disk_offset(map, extent));
    std::array<char, 160> row{};
    (void)std::snprintf(row.data(), row.size(), "%16lld %16lld  %-9s %8s %5s %20s\n",
                        static_cast<long long>(extent.file_offset),
                        static_cast<long long>(extent.bytes), kind_name(extent.kind),
                        number.c_str(), disk.c_str(), place.c_str());
    return row.data();
}

std::string map_table(const FileMap& map)
{
    std::string text =
        printable(map.path) + " of " + printable(map.share) + ": " + summary_text(map) + "\n";
    if (map.extents.empty()) return text;
    text += "     file offset            bytes  kind      fragment  disk          disk offset\n";
    const auto fragments = number_fragments(map);
    for (std::size_t i = 0; i < map.extents.size(); ++i) text += table_row(map, i, fragments[i]);
    return text;
}

}  // namespace

void run_map(const CommandOptions& options)
{
    const FileMap map = ask_file_map(options);
    if (options.is_json) {
        print_out(map_json(map));
    } else if (options.is_drawn) {
        print_out(draw_map(map, standard_output_style()));
    } else {
        print_out(map_table(map));
    }
}

}  // namespace corvane
