// GB18030's range block: for each direction the ranges, an index over them and the values they
// list.
#include <algorithm>
#include <limits>
#include <optional>

#include "codeset/table_layout.hpp"
#include "tools/corvanetab/table_builder.hpp"

namespace corvane::tab {
namespace {

using namespace corvane::kel;

constexpr std::size_t kKeys = 0x10000;
constexpr std::size_t kEntryWords = 4;
// A range counts for more words than it has: each is a step of somebody's walk. With its mere size
// the file would be a quarter smaller, and Chinese text would take four times as long.
constexpr std::size_t kRangeCost = 48;
constexpr std::size_t kIndexWords = kKeys >> kRangeKeysShift;

// The value of every key; none where the walk shall miss.
using Values = std::vector<std::optional<std::uint16_t>>;

// Keys whose values follow one another, or that have none. `is_own` says how it is stored: as a
// range of its own, or as words of a list.
struct Run {
    std::size_t first = 0;
    std::size_t length = 0;
    std::optional<std::uint16_t> value;  // of the first key
    bool is_own = true;
};

[[nodiscard]] std::vector<Run> find_runs(const Values& values)
{
    std::vector<Run> runs;
    for (std::size_t key = 0; key < values.size(); ++key) {
        const bool continues =
            !runs.empty() && runs.back().value.has_value() == values[key].has_value() &&
            (!values[key] || *runs.back().value + runs.back().length == *values[key]);
        if (continues) {
            ++runs.back().length;
        } else {
            runs.push_back({key, 1, values[key]});
        }
    }
    return runs;
}

// Decides for each run how to store it, in the fewest words. A range costs four words, a listed key
// one more, and keys without a value nothing, unless they stand in the middle of a list that may
// say so.
void choose_storage(std::vector<Run>& runs, bool may_list_gaps)
{
    constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max() / 2;
    struct Step {
        std::size_t closed, listed;  // fewest words so far, ending without or with an open list
        bool closed_from_list, listed_from_list;
    };
    std::vector<Step> steps{{0, kNever, false, false}};
    for (const Run& run : runs) {
        const Step& before = steps.back();
        const std::size_t own = run.value ? kRangeCost : 0;
        const bool can_list = run.value || may_list_gaps;
        const std::size_t opened = before.closed + kRangeCost;
        steps.push_back({std::min(before.closed, before.listed) + own,
                         can_list ? std::min(opened, before.listed) + run.length : kNever,
                         before.listed < before.closed, before.listed < opened});
    }
    bool is_listed = steps.back().listed < steps.back().closed;
    for (std::size_t i = runs.size(); i-- > 0;) {
        runs[i].is_own = !is_listed;
        is_listed = is_listed ? steps[i + 1].listed_from_list : steps[i + 1].closed_from_list;
    }
}

// The three lists of one direction, in words.
struct Lists {
    std::vector<std::uint16_t> ranges;
    std::vector<std::uint16_t> index;
    std::vector<std::uint16_t> values;

    void add_range(std::size_t first, std::size_t length, std::uint16_t kind, std::size_t parameter)
    {
        for (const std::size_t word : {first, first + length - 1, std::size_t{kind}, parameter}) {
            ranges.push_back(static_cast<std::uint16_t>(word));
        }
    }
};

// One index word for 512 keys: the first range that ends at or behind the first of them.
void add_index(Lists& lists)
{
    std::size_t entry = 0;
    for (std::size_t block = 0; block < kIndexWords; ++block) {
        while (lists.ranges[kEntryWords * entry + 1] < block << kRangeKeysShift) ++entry;
        lists.index.push_back(static_cast<std::uint16_t>(entry));
    }
}

[[nodiscard]] Lists make_lists(const Values& values, bool may_list_gaps)
{
    std::vector<Run> runs = find_runs(values);
    choose_storage(runs, may_list_gaps);
    Lists lists;
    for (std::size_t i = 0; i < runs.size(); ++i) {
        const Run& run = runs[i];
        if (run.is_own) {
            if (run.value) lists.add_range(run.first, run.length, kRangeLinear, *run.value);
            continue;
        }
        if (i != 0 && !runs[i - 1].is_own) {
            lists.ranges[lists.ranges.size() - 3] =
                static_cast<std::uint16_t>(run.first + run.length - 1);
        } else {
            lists.add_range(run.first, run.length, kRangeListed, lists.values.size());
        }
        for (std::size_t offset = 0; offset < run.length; ++offset) {
            lists.values.push_back(values[run.first + offset].value_or(kUnmapped));
        }
    }
    // Ends every walk; in the direction from UCS-2 it writes "?" for U+FFFF if nothing before did.
    lists.add_range(kUnmapped, 1, kRangeSingleByte, '?');
    add_index(lists);
    return lists;
}

[[nodiscard]] std::uint16_t linear_number(const std::string& code)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(code[i]); };
    const unsigned number =
        code.size() == 2
            ? byte(0) * 191U + byte(1) - 24702
            : (((byte(0) & 0x7FU) * 10 + byte(1)) * 126 + byte(2)) * 10 + byte(3) - 50351;
    return static_cast<std::uint16_t>(number);
}

void append_words(std::vector<std::uint8_t>& bytes, const std::vector<std::uint16_t>& words)
{
    for (const std::uint16_t word : words) {
        bytes.push_back(static_cast<std::uint8_t>(word));
        bytes.push_back(static_cast<std::uint8_t>(word >> 8));
    }
}

void store32(std::vector<std::uint8_t>& bytes, std::size_t at, std::size_t value)
{
    for (std::size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

// Appends one direction's lists and enters their places, counted in words, into its three bases.
void append_lists(std::vector<std::uint8_t>& block, std::size_t bases_at, const Lists& lists)
{
    const auto place = [&] { return (block.size() - kRangeWordsAt) / 2; };
    store32(block, bases_at, place());
    append_words(block, lists.ranges);
    store32(block, bases_at + 4, place());
    append_words(block, lists.index);
    store32(block, bases_at + 8, place());
    append_words(block, lists.values);
}

}  // namespace

std::vector<std::uint8_t> build_gb18030(const Mapping& mapping)
{
    Values to(kKeys);
    for (const auto& [bytes, character] : mapping.characters) {
        if (bytes.size() > 1) to[linear_number(bytes)] = character;
    }
    Values from(kKeys);
    for (std::size_t character = 0x80; character < kKeys; ++character) {
        const std::string& code = mapping.codes[character];
        if (code.size() > 1) from[character] = linear_number(code);
    }
    std::vector<std::uint8_t> block(kRangeWordsAt);
    append_lists(block, kRangeFromBasesAt, make_lists(from, /*may_list_gaps=*/false));
    append_lists(block, kRangeToBasesAt, make_lists(to, /*may_list_gaps=*/true));
    Header header(mapping);
    header.put16(kRangeBlockAt, kLeastTableSize);
    return header.with(block);
}

}  // namespace corvane::tab
