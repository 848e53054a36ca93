// Looking up a text: the set, loaded on first use, the message, and what stands in for a missing
// one.
#include <algorithm>
#include <cstdio>
#include <mutex>

#include "mdcmain/segment.h"
#include "nls/catalogue_handle.hpp"
#include "nls/catalogue_runtime.h"
#include "nls/set_state.hpp"

namespace {

// Held while a set loads, so that each loads once; it covers the first use of the code-set library
// too.
std::mutex g_load_mutex;

// Numbers up to here are texts when catalogues are off; those past the table are answered as bad.
constexpr std::int32_t kBuiltInMessages = CORVANECAT_ENTRIES;

// Bisection among `count` records of distinct ascending numbers, in which a record cannot lie
// further right of a probe than its number is higher. `first_probe` counts when it is below
// `count`. Returns the index, or -1. Records in any other order are merely not found.
template <class NumberAt>
std::int64_t bounded_bisection(std::int64_t count, std::int64_t wanted, std::int64_t first_probe,
                               NumberAt number_at) noexcept
{
    std::int64_t low = 0;
    std::int64_t high = count - 1;
    std::int64_t probe = first_probe < count ? first_probe : (low + high) / 2;
    while (low <= high) {
        const std::int64_t found = number_at(probe);
        if (found == wanted) return probe;
        if (found < wanted) {
            low = probe + 1;
            high = std::min(high, probe + wanted - found);
        } else {
            high = probe - 1;
        }
        probe = (low + high) / 2;
    }
    return -1;
}

void load_once(vor_cat_t catalogue, MCSetT& set) noexcept
{
    const std::lock_guard lock(g_load_mutex);
    // A set that cannot be loaded stays as it is, and the look-up goes to the built-in table.
    if (!corvane::is_loaded(set)) (void)loadSet(catalogue, &set);
}

const char* built_in_text(std::int32_t message) noexcept
{
    if (message >= 0 && message < kBuiltInMessages) return corvanecat[message];
    std::printf("vor_catgets: bad id:%d\n", message);
    std::fflush(stdout);
    return "BAD MSGID VALUE";
}

// Behind the exported look-ups, which another library may replace and the compiler therefore does
// not look into: most of a text's price would be calls.
inline MCSetT* find_set(vor_cat_t catalogue, std::int32_t number) noexcept
{
    if (catalogue == nullptr || catalogue == corvane::kNoCatalogue || number < 0) return nullptr;
    MCSetT* const sets = catalogue->sets;
    const std::int64_t index = bounded_bisection(
        catalogue->numSets, number, number, [sets](std::int64_t at) { return sets[at].setId; });
    if (index < 0) return nullptr;
    if (!corvane::is_loaded(sets[index])) [[unlikely]]
        load_once(catalogue, sets[index]);
    return &sets[index];
}

inline MCMsgT* find_message(MCSetT* set, std::int32_t number) noexcept
{
    if (set == nullptr || number < 1 || !corvane::is_loaded(*set)) return nullptr;
    auto* const messages = corvane::slot_address<MCMsgT>(set->msgIndex);
    const std::int64_t index =
        bounded_bisection(set->numMsgs, number, std::int64_t{number} - 1,
                          [messages](std::int64_t at) { return messages[at].msgId; });
    return index < 0 ? nullptr : &messages[index];
}

}  // namespace

MCSetT* MCGetSet(vor_cat_t catalogue, std::int32_t number) noexcept
{
    return find_set(catalogue, number);
}

MCMsgT* MCGetMsg(MCSetT* set, std::int32_t number) noexcept
{
    return find_message(set, number);
}

const char* vor_catgets(vor_cat_t catalogue, std::int32_t set, std::int32_t message,
                        const char* default_text) noexcept
{
    if (fused_getNls() == 0) return built_in_text(message);
    if (catalogue == corvane::kNoCatalogue) return default_text == nullptr ? "" : default_text;
    const MCMsgT* const found = find_message(find_set(catalogue, set), message);
    if (found == nullptr) return built_in_text(message);
    return corvane::slot_address<const char>(found->textOffset);
}
