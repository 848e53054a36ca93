// Any file read as a catalogue, by the runtime and by the compiler: every text that is found ends
// within its buffer.
#include <cstdint>
#include <cstring>
#include <span>

#include "fuzz/nls_support.hpp"
#include "nls/catalogue_runtime.h"
#include "nls/compiler_core.hpp"
#include "nls/compiler_diagnostics.hpp"
#include "nls/set_state.hpp"
#include "nls/source_model.hpp"

namespace {

void look_up_all(vor_cat_t catalogue)
{
    for (MCSetT& record :
         std::span(catalogue->sets, static_cast<std::size_t>(catalogue->numSets))) {
        MCSetT* const set = MCGetSet(catalogue, static_cast<std::int32_t>(record.setId));
        if (set == nullptr || !corvane::is_loaded(*set)) continue;
        const char* const texts = corvane::slot_address<const char>(set->dataOffset);
        for (const MCMsgT& message :
             std::span(corvane::slot_address<MCMsgT>(set->msgIndex), set->numMsgs)) {
            const char* const text = corvane::slot_address<const char>(message.textOffset);
            if (text < texts || text + std::strlen(text) >= texts + set->dataLen) std::abort();
            (void)MCGetMsg(set, static_cast<std::int32_t>(message.msgId));
        }
        for (const std::int32_t number : {-1, 0, 1, 2, 1000, INT32_MAX})
            (void)MCGetMsg(set, number);
    }
}

void forget(vor_cache_entry*& entry)
{
    if (entry == nullptr) return;
    real_catclose(entry->catalogue);
    nls_free(entry->path);
    nls_free(entry);
    entry = nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    corvane::fuzz::silence();
    const corvane::fuzz::MemoryFile file(data, size);
    for (const std::uint32_t flags : {1U, VOR_LOAD_ALL}) {
        const vor_cat_t catalogue = vor_catopen(file.path().c_str(), flags);
        if (catalogue != nullptr && catalogue != VOR_NO_CATALOGUE) look_up_all(catalogue);
        forget(catCache[0]);
    }
    try {
        corvane::read_compiled(file.fd());
    } catch (const corvane::CompileFailed&) {
        // refused, which is an answer
    }
    corvane::reset_compiler();
    return 0;
}
