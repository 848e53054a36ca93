// Writing the catalogue in memory as a compiled file: the offsets are known before the first byte
// is written, so that a pipe will do.
#include <cstring>

#include "nls/buffered_output.hpp"
#include "nls/catalogue_compiler.h"
#include "nls/catalogue_format.h"
#include "nls/compiler_core.hpp"

namespace {

std::uint32_t set_count() noexcept
{
    std::uint32_t count = 0;
    for (const MCSetNode* set = cat == nullptr ? nullptr : cat->first; set != nullptr;
         set = set->next)
        ++count;
    return count;
}

std::uint32_t offset_in_file(std::uint64_t position)
{
    if (position > UINT32_MAX) corvane::compile_error("catalog too large");
    return static_cast<std::uint32_t>(position);
}

// Fills the text offsets of the set's messages; gives the set's record for a set at `position`.
MCSetT lay_out(const MCSetNode& set, std::uint32_t position)
{
    std::uint64_t data_bytes = 0;
    std::uint32_t messages = 0;
    for (MCMessageNode* message = set.first; message != nullptr;
         message = message->next, ++messages) {
        if (data_bytes > INT32_MAX) corvane::compile_error("catalog too large");
        message->textOffset = static_cast<std::int32_t>(data_bytes);
        data_bytes += std::strlen(message->text) + 1;
    }
    MCSetT record = {};
    record.setId = static_cast<std::uint32_t>(set.setId);
    record.dataOffset.offset = offset_in_file(position + std::uint64_t{sizeof record});
    record.dataLen = offset_in_file(data_bytes);
    record.msgIndex.offset = offset_in_file(record.dataOffset.offset + data_bytes);
    record.numMsgs = messages;
    const std::uint32_t end =
        offset_in_file(record.msgIndex.offset + std::uint64_t{messages} * sizeof(MCMsgT));
    record.nextSet = set.next == nullptr ? 0 : end;
    return record;
}

void write_messages(corvane::BufferedOutput& out, const MCSetNode& set)
{
    for (const MCMessageNode* message = set.first; message != nullptr; message = message->next) {
        out.write(message->text, std::strlen(message->text) + 1);
    }
    for (const MCMessageNode* message = set.first; message != nullptr; message = message->next) {
        MCMsgT record = {};
        record.msgId = static_cast<std::uint32_t>(message->msgId);
        record.textOffset.offset = static_cast<std::uint32_t>(message->textOffset);
        hton_MCMsgT(&record);
        out.write(&record, sizeof record);
    }
}

}  // namespace

namespace corvane {

void write_compiled(int fd)
{
    BufferedOutput out(fd);
    MCHeaderT header = {};
    std::memcpy(header.magic, MC_MAGIC, MC_MAGIC_BYTES);
    header.majorVer = MC_MAJOR_VERSION;
    header.numSets = set_count();
    header.firstSet = sizeof header;
    std::uint32_t position = header.firstSet;
    hton_MCHeaderT(&header);
    out.write(&header, sizeof header);
    for (const MCSetNode* set = cat == nullptr ? nullptr : cat->first; set != nullptr;
         set = set->next) {
        MCSetT record = lay_out(*set, position);
        position = record.nextSet;
        hton_MCSetT(&record);
        out.write(&record, sizeof record);
        write_messages(out, *set);
    }
    out.flush();
}

}  // namespace corvane

void MCWriteCat(int fd) noexcept
{
    corvane::compile_or_exit([&] { corvane::write_compiled(fd); });
}
