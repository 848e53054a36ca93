// `corvane volume` and `corvane ping`.
#include <nlohmann/json.hpp>

#include "client/command.hpp"
#include "client/failure.hpp"
#include "client/interrupt.hpp"
#include "client/open_file.hpp"
#include "client/text.hpp"

namespace corvane {
namespace {

using nlohmann::json;

bool can_be_found(const VolumeDisk& disk)
{
    return disk.signature_bytes >= 1 && disk.signature_bytes <= 16 && disk.signature_offset >= 0;
}

// Where each disk of the volume is on this host. Showing a volume never fails for a missing disk.
std::vector<Matches> find_all(const Volume& volume, const CommandOptions& options)
{
    const Candidates candidates = candidates_from(options.disks, options.sg_chunk_blocks);
    std::vector<Matches> found;
    for (const VolumeDisk& disk : volume.disks) {
        found.push_back(can_be_found(disk) ? find_disk(disk, candidates) : Matches{});
    }
    return found;
}

std::string volume_json(const std::string& share, const Volume& volume,
                        const std::vector<Matches>& found)
{
    json disks = json::array();
    for (std::size_t i = 0; i < volume.disks.size(); ++i) {
        const VolumeDisk& disk = volume.disks[i];
        disks.push_back({{"ordinal", i},
                         {"signature", disk.signature_text()},
                         {"signatureOffset", disk.signature_offset},
                         {"signatureLength", disk.signature_bytes},
                         {"blockOffset", disk.first_block},
                         {"blocks", disk.block_count},
                         {"devices", found[i].paths}});
    }
    const json result = {{"share", share},
                         {"fsType", volume.fs_type},
                         {"glomType", volume.glom_type},
                         {"glomInfo", volume.glom_info},
                         {"blockSize", volume.block_bytes},
                         {"disks", disks}};
    return result.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

std::string device_text(const Matches& matches)
{
    if (matches.paths.size() == 1) return matches.paths.front();
    std::string text;
    for (const auto& path : matches.paths) text += (text.empty() ? "" : ", ") + path;
    if (!text.empty()) return text + " (more than one: name the right one with --disk)";
    text = "not found on this host";
    if (matches.unreadable_count != 0) {
        text += " (" + std::to_string(matches.unreadable_count) + " devices could not be read)";
    }
    return text;
}

std::string volume_text(const std::string& share, const Volume& volume,
                        const std::vector<Matches>& found)
{
    std::string text = "volume       " + printable(share) + "\n";
    text += "file system  type " + std::to_string(volume.fs_type) + "\n";
    text += "layout       type " + std::to_string(volume.glom_type) + ", parameter " +
            std::to_string(volume.glom_info) + "\n";
    text += "block size   " + std::to_string(volume.block_bytes) + " bytes\n";
    for (std::size_t i = 0; i < volume.disks.size(); ++i) {
        const VolumeDisk& disk = volume.disks[i];
        text += "\ndisk " + std::to_string(i) + "\n";
        text += "  signature  " + disk.signature_text() + " at byte " +
                std::to_string(disk.signature_offset) + "\n";
        text += "  slice      " + std::to_string(disk.block_count) + " blocks from block " +
                std::to_string(disk.first_block);
        std::int64_t bytes = 0;
        if (!__builtin_mul_overflow(disk.block_count, volume.block_bytes, &bytes) && bytes >= 0) {
            text += " (" + size_text(bytes) + ")";
        }
        text += "\n  device     " + device_text(found[i]) + "\n";
    }
    return text;
}

}  // namespace

void run_volume(const CommandOptions& options)
{
    const Exchange exchange(options.endpoint, &interrupt_flag());
    const Volume volume = ask_volume(exchange, options.share);
    const auto found = find_all(volume, options);
    print_out(options.is_json ? volume_json(options.share, volume, found)
                              : volume_text(options.share, volume, found));
}

// Any answer will do: the controller is asked for a volume that no one has.
void run_ping(const CommandOptions& options)
{
    const Exchange exchange(options.endpoint, &interrupt_flag());
    const auto started = Clock::now();
    const Reply reply = exchange.ask(volume_request(Cookie{}));
    const std::chrono::duration<double, std::milli> elapsed = Clock::now() - started;
    const Endpoint& endpoint = exchange.endpoint();
    if (options.is_json) {
        const json result = {{"host", endpoint.host},
                             {"port", endpoint.port},
                             {"milliseconds", elapsed.count()},
                             {"foreignByteOrder", reply.is_foreign()}};
        print_out(result.dump(2, ' ', false, json::error_handler_t::replace) + "\n");
        return;
    }
    std::array<char, 32> milliseconds{};
    (void)std::snprintf(milliseconds.data(), milliseconds.size(), "%.2f", elapsed.count());
    print_out("the controller at " + printable(endpoint.host) + " port " +
              std::to_string(endpoint.port) + " answered in " + milliseconds.data() + " ms\n");
}

}  // namespace corvane
