// Merging a compiled catalogue into the one in memory.
#include <cstring>
#include <vector>

#include "nls/catalogue_compiler.h"
#include "nls/catalogue_file.hpp"
#include "nls/compiler_core.hpp"
#include "nls/compiler_diagnostics.hpp"
#include "nls/source_model.hpp"

namespace {

[[noreturn]] void corrupt()
{
    corvane::compile_error("corrupt message catalog");
}

std::vector<char> read_block(int fd, std::uint32_t offset, std::uint64_t size)
{
    if (!corvane::file_holds(fd, offset, size)) corrupt();
    std::vector<char> block(size);
    if (!corvane::read_exactly(fd, offset, block.data(), block.size())) corrupt();
    return block;
}

// Adds the set's messages; `read_bytes` counts what all sets have taken so far.
void read_messages(int fd, const MCSetT& set, std::uint64_t& read_bytes)
{
    read_bytes += set.dataLen + std::uint64_t{set.numMsgs} * sizeof(MCMsgT);
    if (!corvane::is_fair_share(fd, read_bytes)) corrupt();
    const std::vector<char> texts = read_block(fd, set.dataOffset.offset, set.dataLen);
    const std::vector<char> records =
        read_block(fd, set.msgIndex.offset, std::uint64_t{set.numMsgs} * sizeof(MCMsgT));
    for (std::size_t at = 0; at < records.size(); at += sizeof(MCMsgT)) {
        MCMsgT message;
        std::memcpy(&message, records.data() + at, sizeof message);
        ntoh_MCMsgT(&message);
        if (message.invalid != 0) continue;
        const char* const text =
            corvane::block_text(texts.data(), texts.size(), message.textOffset.offset);
        if (text == nullptr) corrupt();
        read_bytes += std::strlen(text);
        if (!corvane::is_fair_share(fd, read_bytes)) corrupt();
        corvane::add_message(static_cast<std::int32_t>(message.msgId), text, nullptr);
    }
}

}  // namespace

namespace corvane {

void read_compiled(int fd)
{
    MCHeaderT header;
    if (!read_header(fd, header)) corrupt();
    if (header.majorVer != MC_MAJOR_VERSION) compile_error("unrecognized catalog version");
    if (static_cast<std::int32_t>(header.numSets) < 1) corrupt();
    (void)open_catalogue();
    SetChain chain(fd, header.firstSet);
    std::uint64_t read_bytes = 0;
    MCSetT set;
    SetChain::Step step = chain.next(set);
    for (; step == SetChain::Step::kRecord; step = chain.next(set)) {
        add_set(static_cast<std::int32_t>(set.setId), nullptr);
        if (set.dataLen != 0) read_messages(fd, set, read_bytes);
    }
    if (step == SetChain::Step::kCorrupt) corrupt();
}

}  // namespace corvane

void MCReadCat(int fd) noexcept
{
    corvane::compile_or_exit([&] { corvane::read_compiled(fd); });
}
