// Opening a catalogue file: header checks, set records, entry in the cache.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <new>
#include <vector>

#include "nls/catalogue_file.hpp"
#include "nls/catalogue_handle.hpp"
#include "nls/catalogue_runtime.h"
#include "nls/set_state.hpp"

namespace {

constexpr char kSystem[] = "Message Catalog System";

void report_corrupt(const char* path) noexcept
{
    std::fprintf(stderr,
                 "%s: Attempted to use ZEL message catalog software to access\n"
                 "%s which is not a valid ZEL message catalog.\n"
                 "Moving the ZEL message catalog directory to the front of NLSPATH\n"
                 "may correct this problem.\n",
                 kSystem, path);
}

void report_no_memory() noexcept
{
    std::fprintf(stderr, "%s: no more memory.\n", kSystem);
}

// Opens for reading, never as standard input or output and never blocking on a pipe's far end.
int open_file(const char* path) noexcept
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0 || fd > STDOUT_FILENO) return fd;
    const int higher = fcntl(fd, F_DUPFD_CLOEXEC, STDOUT_FILENO + 1);
    close(fd);
    return higher;
}

// Reads the header; false, reported, when the catalogue is refused, with the handle that says so.
bool accept_header(int fd, const char* path, MCHeaderT& header, vor_cat_t& refusal) noexcept
{
    if (!corvane::read_header(fd, header)) {
        report_corrupt(path);
        refusal = nullptr;
        return false;
    }
    refusal = corvane::kNoCatalogue;
    if (header.majorVer != MC_MAJOR_VERSION) {
        std::fprintf(stderr, "%s: %s is version %ld, we need %d.\n", kSystem, path,
                     static_cast<long>(header.majorVer), MC_MAJOR_VERSION);
        return false;
    }
    const auto sets = static_cast<std::int32_t>(header.numSets);
    if (sets < 1) {
        std::fprintf(stderr, "%s: %s has %ld sets!\n", kSystem, path, static_cast<long>(sets));
        return false;
    }
    return true;
}

// Collects the valid set records. False when the chain ends early or cannot be followed. The memory
// grows with the records found, not with what the header promises.
bool read_sets(int fd, const MCHeaderT& header, std::vector<MCSetT>& sets)
{
    corvane::SetChain chain(fd, header.firstSet);
    while (sets.size() < header.numSets) {
        MCSetT set;
        if (chain.next(set) != corvane::SetChain::Step::kRecord) return false;
        set.invalid = corvane::kSetNotLoaded;
        sets.push_back(set);
    }
    return true;
}

bool keep_sets(vor_catalogue& catalogue, const std::vector<MCSetT>& sets) noexcept
{
    catalogue.sets = static_cast<MCSetT*>(nls_malloc(sets.size() * sizeof(MCSetT)));
    if (catalogue.sets == nullptr) return false;
    std::copy(sets.begin(), sets.end(), catalogue.sets);
    catalogue.numSets = static_cast<std::int32_t>(sets.size());
    return true;
}

// Loads every set; a set for which memory is short stays unloaded.
bool load_all_sets(vor_catalogue& catalogue) noexcept
{
    for (std::int32_t index = 0; index < catalogue.numSets; ++index) {
        if (loadSet(&catalogue, &catalogue.sets[index]) == 0) return false;
    }
    return true;
}

// Fills the handle from the open file. Returns the handle, or what the caller of vor_catopen gets.
vor_cat_t fill(vor_catalogue& catalogue, const char* path)
{
    MCHeaderT header;
    vor_cat_t refusal = corvane::kNoCatalogue;
    if (!accept_header(catalogue.fd, path, header, refusal)) return refusal;
    std::vector<MCSetT> sets;
    if (!read_sets(catalogue.fd, header, sets)) {
        report_corrupt(path);
        return nullptr;
    }
    if (!keep_sets(catalogue, sets)) {
        report_no_memory();
        return corvane::kNoCatalogue;
    }
    if ((catalogue.flags & VOR_LOAD_ALL) != 0) {
        if (!load_all_sets(catalogue)) {
            report_corrupt(path);
            return nullptr;
        }
        close(catalogue.fd);
        catalogue.fd = -1;
    }
    return &catalogue;
}

vor_cat_t fill_or_refuse(vor_catalogue& catalogue, const char* path) noexcept
{
    try {
        return fill(catalogue, path);
    } catch (const std::bad_alloc&) {
        report_no_memory();
        return corvane::kNoCatalogue;
    }
}

}  // namespace

vor_cat_t loadCat(const char* path, std::uint32_t flags) noexcept
{
    if (path == nullptr || *path == '\0') return corvane::kNoCatalogue;
    vor_catalogue* const cached = lookupCat(path);
    if (cached != corvane::kNoCatalogue) return cached;

    auto* const memory = static_cast<vor_catalogue*>(nls_malloc(sizeof(vor_catalogue)));
    if (memory == nullptr) {
        report_no_memory();
        return corvane::kNoCatalogue;
    }
    *memory = {flags, open_file(path), 0, nullptr, 0};
    vor_cat_t result = memory->fd < 0 ? corvane::kNoCatalogue : fill_or_refuse(*memory, path);
    if (result == memory && addCat(path, memory) != 0) result = corvane::kNoCatalogue;
    if (result != memory) corvane::release_catalogue(memory);
    return result;
}

vor_cat_t vor_catopen(const char* path, std::uint32_t flags) noexcept
{
    return loadCat(path, flags);
}
