// Loading one set: its texts in the process's code set, its valid messages with their addresses.
#include "codeset/kel.h"
#include "nls/catalogue_file.hpp"
#include "nls/catalogue_runtime.h"
#include "nls/set_state.hpp"

namespace {

using corvane::nls_ptr;

constexpr std::int32_t kLoaded = 1;
constexpr std::int32_t kCorrupt = 0;
constexpr std::int32_t kNoMemory = -1;

// Reads a block of the file into new memory; an empty block too has an address.
std::int32_t read_block(int fd, std::uint32_t offset, std::uint64_t size,
                        nls_ptr<char>& block) noexcept
{
    if (!corvane::file_holds(fd, offset, size)) return kCorrupt;
    block.reset(static_cast<char*>(nls_malloc(size + 1)));
    if (block == nullptr) return kNoMemory;
    return corvane::read_exactly(fd, offset, block.get(), size) ? kLoaded : kCorrupt;
}

// The converted texts of a set, one behind the other.
struct TextBuffer {
    char* end;
    std::uint32_t room;

    // Converts a text to the end of the buffer; null when there is no room for even its terminator.
    const char* append(const char* utf8) noexcept
    {
        const std::uint32_t written = kel_from_utf8(/*cs=*/nullptr, utf8, /*length=*/-1, end, room);
        if (written == 0) return nullptr;
        const char* const text = end;
        end += written;
        room -= written;
        return text;
    }
};

// Keeps the valid records in place, each with its text's address. A record whose text does not lie
// in the block is left out: a look-up of it is a miss.
std::uint32_t convert_messages(const MCSetT& set, const char* texts, TextBuffer& out,
                               char* records) noexcept
{
    std::uint32_t kept = 0;
    for (std::uint32_t index = 0; index < set.numMsgs; ++index) {
        MCMsgT message;
        std::memcpy(&message, records + std::size_t{index} * sizeof message, sizeof message);
        ntoh_MCMsgT(&message);
        if (message.invalid != 0) continue;
        const char* const utf8 = corvane::block_text(texts, set.dataLen, message.textOffset.offset);
        const char* const text = utf8 == nullptr ? nullptr : out.append(utf8);
        if (text == nullptr) continue;
        corvane::set_slot_address(message.textOffset, text);
        std::memcpy(records + std::size_t{kept} * sizeof message, &message, sizeof message);
        ++kept;
    }
    return kept;
}

}  // namespace

std::int32_t loadSet(vor_cat_t catalogue, MCSetT* set) noexcept
{
    const std::uint64_t bytes = set->dataLen + std::uint64_t{set->numMsgs} * sizeof(MCMsgT);
    if (!corvane::is_fair_share(catalogue->fd, catalogue->loadedBytes + bytes)) return kCorrupt;
    nls_ptr<char> texts;
    nls_ptr<char> records;
    std::int32_t result = read_block(catalogue->fd, set->dataOffset.offset, set->dataLen, texts);
    if (result != kLoaded) return result;
    // The capacity must fit the record's 32-bit word.
    if (set->dataLen > UINT32_MAX / 2) return kNoMemory;
    const std::uint32_t capacity = set->dataLen * 2;
    nls_ptr<char> buffer(static_cast<char*>(nls_malloc(std::size_t{capacity} + 1)));
    if (buffer == nullptr) return kNoMemory;
    result = read_block(catalogue->fd, set->msgIndex.offset,
                        std::uint64_t{set->numMsgs} * sizeof(MCMsgT), records);
    if (result != kLoaded) return result;

    TextBuffer out = {buffer.get(), capacity};
    set->numMsgs = convert_messages(*set, texts.get(), out, records.get());
    set->dataLen = capacity;
    corvane::set_slot_address(set->dataOffset, buffer.release());
    corvane::set_slot_address(set->msgIndex, records.release());
    catalogue->loadedBytes += bytes;
    corvane::publish_loaded(*set);
    return kLoaded;
}
