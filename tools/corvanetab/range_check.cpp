// Verifies the range block of a GB18030 table.
#include <algorithm>
#include <cstdint>

#include "codeset/table_layout.hpp"
#include "tools/corvanetab/table_check.hpp"

namespace corvane::tab {
namespace {

using namespace corvane::kel;

struct Entry {
    std::size_t first, last, kind, parameter;
};

// One direction of the block. Places are counted in words behind the bases.
class RangeChecker {
public:
    RangeChecker(Bytes words, Bytes block, bool from_ucs2, Complaints& complaints)
        : words_(words),
          direction_(from_ucs2 ? "from UCS-2" : "to UCS-2"),
          last_key_(from_ucs2 ? 0xFFFF : kRangeKeyLimit - 1),
          stops_at_hit_(from_ucs2),
          complaints_(complaints)
    {
        const std::size_t bases_at = from_ucs2 ? kRangeFromBasesAt : kRangeToBasesAt;
        ranges_base_ = long_at(block, bases_at);
        index_base_ = long_at(block, bases_at + 4);
        values_base_ = long_at(block, bases_at + 8);
    }

    void check()
    {
        for (std::size_t block = 0; block <= last_key_ >> kRangeKeysShift; ++block) {
            if (!has(index_base_ + block, 1)) {
                complaints_.add("%s: the index of keys from %zu lies outside the file", direction_,
                                block << kRangeKeysShift);
                return;
            }
            check_walk(word(index_base_ + block), block << kRangeKeysShift);
        }
    }

private:
    [[nodiscard]] bool has(std::size_t number, std::size_t count) const
    {
        return 2 * (number + count) <= words_.size();
    }
    [[nodiscard]] std::uint16_t word(std::size_t number) const
    {
        return word_at(words_, 2 * number);
    }

    // Follows the walk of the keys of one index word: it must end inside the file, in ascending
    // order, and no range before its start may cover one of them.
    void check_walk(std::size_t number, std::size_t first_key)
    {
        const std::size_t key_end =
            std::min(last_key_, first_key + (std::size_t{1} << kRangeKeysShift) - 1);
        Entry before{};
        if (number != 0 && read(number - 1, before) && before.last >= first_key) {
            complaints_.add(
                "%s: the index of keys from %zu begins behind range %zu, which has some",
                direction_, first_key, number - 1);
        }
        std::size_t least_first = 0;
        for (Entry entry{};; ++number) {
            if (!read(number, entry)) {
                complaints_.add("%s: the walk of keys from %zu runs out of the file at range %zu",
                                direction_, first_key, number);
                return;
            }
            if (entry.first < least_first) {
                complaints_.add("%s: range %zu begins at %zu, before the one in front of it",
                                direction_, number, entry.first);
                return;
            }
            least_first = entry.first;
            check_entry(number, entry);
            if (entry.first > key_end || (stops_at_hit_ && entry.last >= key_end)) return;
        }
    }

    [[nodiscard]] bool read(std::size_t number, Entry& entry) const
    {
        const std::size_t at = ranges_base_ + 4 * number;
        if (!has(at, 4)) return false;
        entry = {word(at), word(at + 1), word(at + 2), word(at + 3)};
        return true;
    }

    void check_entry(std::size_t number, const Entry& entry)
    {
        if (number < checked_) return;  // an earlier walk looked at it
        checked_ = number + 1;
        if (entry.last < entry.first) {
            complaints_.add("%s: range %zu ends at %zu, before its first key %zu", direction_,
                            number, entry.last, entry.first);
            return;
        }
        if (entry.kind > kRangeLinear) {
            complaints_.add("%s: range %zu has kind %zu", direction_, number, entry.kind);
        }
        const std::size_t length = entry.last - entry.first + 1;
        if (entry.kind == kRangeListed && !has(values_base_ + entry.parameter, length)) {
            complaints_.add("%s: the values of range %zu end outside the file", direction_, number);
        }
        if (entry.kind == kRangeLinear && entry.parameter + length - 1 > 0xFFFF) {
            complaints_.add("%s: range %zu counts beyond 65535", direction_, number);
        }
    }

    Bytes words_;
    std::size_t ranges_base_ = 0;
    std::size_t index_base_ = 0;
    std::size_t values_base_ = 0;
    const char* direction_;
    std::size_t last_key_;
    bool stops_at_hit_;
    Complaints& complaints_;
    std::size_t checked_ = 0;
};

}  // namespace

void check_ranges(Bytes file, Complaints& complaints)
{
    const std::size_t at = word_at(file, kRangeBlockAt);
    if (at + kRangeWordsAt > file.size()) {
        complaints.add("the range block at %zu lies outside the file's %zu bytes", at, file.size());
        return;
    }
    const Bytes block = file.subspan(at);
    const Bytes words = block.subspan(kRangeWordsAt);
    RangeChecker(words, block, /*from_ucs2=*/true, complaints).check();
    RangeChecker(words, block, /*from_ucs2=*/false, complaints).check();
}

}  // namespace corvane::tab
