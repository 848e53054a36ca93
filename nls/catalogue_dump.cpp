// The catalogue in memory back as source text: a dump, and a skeleton for a translator.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "nls/catalogue_compiler.h"
#include "nls/compiler_core.hpp"
#include "nls/compiler_diagnostics.hpp"

namespace {

void require_catalogue() noexcept
{
    if (cat != nullptr) return;
    std::fputs("No catalog open\n", stderr);
    std::exit(1);
}

// Writes one message line. A line feed is followed by a continued line, so that a dump reads as the
// text does.
void write_message(std::FILE* out, const MCMessageNode& message) noexcept
{
    std::fprintf(out, "%ld\t", static_cast<long>(message.msgId));
    const char* rest = message.text;
    while (*rest != '\0') {
        const std::size_t plain = std::strcspn(rest, "\\\n");
        (void)std::fwrite(rest, 1, plain, out);
        rest += plain;
        if (*rest == '\0') break;
        std::fputs(*rest == '\n' ? "\\n\\\n" : "\\\\", out);
        ++rest;
    }
    std::fputc('\n', out);
}

MCSetNode* find_set(std::int32_t number) noexcept
{
    MCSetNode* set = cat->first;
    while (set != nullptr && set->setId != number) set = set->next;
    return set;
}

void dump_set(std::FILE* out, const MCSetNode& set) noexcept
{
    std::fprintf(out, "$set %ld", static_cast<long>(set.setId));
    if (set.constName != nullptr) std::fprintf(out, " # %s", set.constName);
    std::fputs("\n\n", out);
    for (const MCMessageNode* message = set.first; message != nullptr; message = message->next) {
        if (message->constName != nullptr) std::fprintf(out, "# %s\n", message->constName);
        write_message(out, *message);
    }
    std::fputc('\n', out);
}

}  // namespace

namespace corvane {

void write_skeleton(std::FILE* out)
{
    const MCSetNode* const source = find_set(1);
    if (source == nullptr) compile_error("specified set doesn't exist");
    const MCSetNode* const translated = find_set(2);
    const MCMessageNode* candidate = translated == nullptr ? nullptr : translated->first;
    std::fputs("$set 2\n\n", out);
    for (const MCMessageNode* message = source->first; message != nullptr;
         message = message->next) {
        // Both lists ascend, so one walk over each is enough.
        while (candidate != nullptr && candidate->msgId < message->msgId)
            candidate = candidate->next;
        const bool found = candidate != nullptr && candidate->msgId == message->msgId;
        write_message(out, found ? *candidate : *message);
    }
    std::fputc('\n', out);
}

}  // namespace corvane

void MCDumpcat(std::FILE* out) noexcept
{
    require_catalogue();
    for (const MCSetNode* set = cat->first; set != nullptr; set = set->next) dump_set(out, *set);
}

void MCTranslatecat(std::FILE* out) noexcept
{
    require_catalogue();
    corvane::compile_or_exit([&] { corvane::write_skeleton(out); });
}
