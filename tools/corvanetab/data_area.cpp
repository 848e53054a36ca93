// Packs the pieces of a table, sharing bytes.
#include "tools/corvanetab/data_area.hpp"

#include <algorithm>
#include <map>
#include <stdexcept>

namespace corvane::tab {

void append_word(Piece& piece, std::optional<std::uint16_t> word)
{
    if (!word) {
        piece.resize(piece.size() + 2);
        return;
    }
    piece.emplace_back(static_cast<std::uint8_t>(*word));
    piece.emplace_back(static_cast<std::uint8_t>(*word >> 8));
}

bool DataArea::agrees(const Piece& piece, std::size_t at) const
{
    const std::size_t shared = std::min(piece.size(), area_.size() - at);
    for (std::size_t i = 0; i < shared; ++i) {
        const auto& there = area_[at + i];
        if (piece[i] && there && *piece[i] != *there) return false;
    }
    return true;
}

std::uint16_t DataArea::place(const Piece& piece, std::size_t alignment)
{
    std::size_t at = 0;
    while (at < area_.size() && !agrees(piece, at)) at += alignment;
    if (at / alignment >= 0xFFFF) throw std::runtime_error("the data area is full");
    area_.resize(std::max(area_.size(), at + piece.size()));
    for (std::size_t i = 0; i < piece.size(); ++i) {
        if (piece[i]) area_[at + i] = piece[i];
    }
    return static_cast<std::uint16_t>(at / alignment);
}

std::size_t DataArea::growth(const Piece& piece, std::size_t alignment) const
{
    std::size_t at = area_.size() > piece.size() ? area_.size() - piece.size() : 0;
    at = (at + alignment - 1) / alignment * alignment;
    while (at < area_.size() && !agrees(piece, at)) at += alignment;
    return at + piece.size() - std::min(area_.size(), at + piece.size());
}

std::vector<std::uint16_t> DataArea::place_all(const std::vector<Piece>& pieces,
                                               std::size_t alignment)
{
    std::map<Piece, std::uint16_t> places;  // equal pieces once
    for (const Piece& piece : pieces) places.emplace(piece, std::uint16_t{0});
    std::vector<decltype(places)::value_type*> waiting;
    waiting.reserve(places.size());
    for (auto& entry : places) waiting.push_back(&entry);
    const auto free_bytes = [](const auto* entry) {
        return std::count(entry->first.begin(), entry->first.end(), std::nullopt);
    };
    std::stable_sort(waiting.begin(), waiting.end(),
                     [&](const auto* a, const auto* b) { return free_bytes(a) < free_bytes(b); });
    while (!waiting.empty()) {
        auto next = waiting.begin();
        std::size_t least = growth((*next)->first, alignment);
        for (auto it = next + 1; it != waiting.end() && least != 0; ++it) {
            const std::size_t bytes = growth((*it)->first, alignment);
            if (bytes < least) {
                next = it;
                least = bytes;
            }
        }
        (*next)->second = place((*next)->first, alignment);
        waiting.erase(next);
    }
    std::vector<std::uint16_t> result;
    result.reserve(pieces.size());
    for (const Piece& piece : pieces) result.push_back(places.at(piece));
    return result;
}

std::vector<std::uint8_t> DataArea::bytes() const
{
    std::vector<std::uint8_t> bytes(area_.size());
    std::transform(area_.begin(), area_.end(), bytes.begin(),
                   [](const auto& byte) { return byte.value_or(0); });
    return bytes;
}

}  // namespace corvane::tab
