// Any source compiled: what was written reads back as the same catalogue, and so does its dump.
#include <cstdint>

#include "fuzz/nls_support.hpp"
#include "nls/catalogue_compiler.h"
#include "nls/compiler_core.hpp"
#include "nls/compiler_diagnostics.hpp"
#include "nls/source_model.hpp"

namespace {

std::string compiled()
{
    const corvane::fuzz::MemoryFile out("", 0);
    corvane::write_compiled(out.fd());
    return out.contents();
}

std::string dumped()
{
    char* memory = nullptr;
    std::size_t size = 0;
    std::FILE* const out = open_memstream(&memory, &size);
    MCDumpcat(out);
    std::fclose(out);
    std::string text(memory, size);
    std::free(memory);
    return text;
}

void round_trip(const std::string& catalogue)
{
    corvane::reset_compiler();
    corvane::read_compiled(corvane::fuzz::MemoryFile(catalogue.data(), catalogue.size()).fd());
    if (compiled() != catalogue) std::abort();
    const std::string source = dumped();
    corvane::reset_compiler();
    corvane::parse_source(corvane::fuzz::MemoryFile(source.data(), source.size()).fd());
    if (compiled() != catalogue) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    corvane::fuzz::silence();
    try {
        set2flag = size % 2 == 1 ? 1 : 0;
        corvane::parse_source(corvane::fuzz::MemoryFile(data, size).fd());
        const corvane::fuzz::MemoryFile nowhere("", 0);
        const std::string catalogue = compiled();
        corvane::write_constants(nowhere.fd(), MC_LANGUAGE_C, /*combined=*/true);
        round_trip(catalogue);
    } catch (const corvane::CompileFailed&) {
        // refused, which is an answer
    }
    corvane::reset_compiler();
    return 0;
}
