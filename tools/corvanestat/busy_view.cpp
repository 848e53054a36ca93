// Differences between two readings of the daemon's table of busy files.
#include "tools/corvanestat/busy_view.hpp"

#include <algorithm>
#include <utility>

#include "tools/corvanestat/leases.hpp"

namespace corvane::stat {

void BusyView::read(std::size_t limit)
{
    rows_.clear();
    problem_.clear();
    try {
        // A connection a picture: the daemon ends those that are silent for long.
        Administration daemon(port_);
        compare(daemon, daemon.busy_files(), limit);
    } catch (const Refusal& refusal) {
        problem_ = refusal.what();
        has_before_ = false;
    }
}

void BusyView::compare(Administration& daemon, const std::vector<BusyFile>& files,
                       std::size_t limit)
{
    std::map<std::uint32_t, std::uint32_t> now;
    std::vector<std::pair<std::uint32_t, const BusyFile*>> active;  // by requests since
    for (const BusyFile& file : files) {
        now[file.number] = file.requests;
        const auto known = before_.find(file.number);
        // One that was not there before has got its number, and all its requests, meanwhile.
        const std::uint32_t since =
            known != before_.end() ? file.requests - known->second : file.requests;
        if (has_before_ && since != 0) active.emplace_back(since, &file);
    }
    std::erase_if(names_, [&](const auto& name) { return !now.contains(name.first); });
    before_ = std::move(now);
    has_before_ = true;

    std::ranges::sort(active, std::greater<>(), [](const auto& entry) {
        return std::pair(entry.first, entry.second->number);
    });
    if (active.size() > limit) active.resize(limit);
    for (const auto& [requests, file] : active) {
        auto name = names_.find(file->number);
        if (name == names_.end()) {
            name = names_.emplace(file->number, daemon.name_of(*file)).first;
        }
        rows_.push_back({requests, shown_name(name->second, file->file_cookie)});
    }
}

std::string end_of(const std::string& text, std::size_t columns)
{
    const auto begins = [&](std::size_t at) {
        return (static_cast<unsigned char>(text[at]) & 0xC0) != 0x80;
    };
    std::size_t characters = 0;
    for (std::size_t at = 0; at < text.size(); ++at) characters += begins(at) ? 1 : 0;
    if (characters <= columns || columns < 3) return text;
    std::size_t at = 0;
    for (std::size_t left_out = 0; left_out < characters - (columns - 3); ++left_out) {
        do {
            ++at;
        } while (!begins(at));
    }
    return "..." + text.substr(at);
}

}  // namespace corvane::stat
