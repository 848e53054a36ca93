// The header of constants: symbolic names of sets and messages for programs.
#include <cinttypes>
#include <cstdio>
#include <string>
#include <string_view>

#include "nls/buffered_output.hpp"
#include "nls/catalogue_compiler.h"
#include "nls/compiler_core.hpp"
#include "nls/source_model.hpp"

namespace {

constexpr char kMacros[] =
    "/* Use these Macros to compose and decompose setId's and msgId's */\n"
    "#ifndef MCMakeId\n"
    "# define MCMakeId(s,m)\t(unsigned long)(((unsigned short)s<<(sizeof(short)*8))\\\n"
    "\t\t\t\t\t|(unsigned short)m)\n"
    "# define MCSetId(id)\t(unsigned int) (id >> (sizeof(short) * 8))\n"
    "# define MCMsgId(id)\t(unsigned int) ((id << (sizeof(short) * 8))\\\n"
    "\t\t\t\t\t>> (sizeof(short) * 8))\n"
    "#endif\n";

// Writes one definition of `prefix` and `name`, put together, in the form of the language.
void write_constant(corvane::BufferedOutput& out, std::int32_t type, std::string_view prefix,
                    std::string_view name, std::uint32_t value)
{
    if (type < MC_LANGUAGE_C || type > MC_LANGUAGE_ANSI) {
        corvane::compile_error("not a recognized (programming) language type");
    }
    const bool is_macro = type == MC_LANGUAGE_C;
    char end[24];
    (void)std::snprintf(end, sizeof end, is_macro ? "\t0x%" PRIx32 "\n" : "\t= %" PRIu32 ";\n",
                        value);
    out.write(is_macro ? "#define " : "const long ");
    out.write(prefix);
    out.write(name);
    out.write(end);
}

std::uint32_t message_value(const MCSetNode& set, const MCMessageNode& message,
                            bool combined) noexcept
{
    const auto number = static_cast<std::uint32_t>(message.msgId);
    if (!combined) return number;
    return (static_cast<std::uint32_t>(set.setId) & 0xFFFFu) << 16 | (number & 0xFFFFu);
}

void write_set(corvane::BufferedOutput& out, MCSetNode& set, std::int32_t type, bool combined)
{
    const std::string set_name = set.constName == nullptr ? "" : set.constName;
    if (set.constName != nullptr) {
        out.write("\n");
        write_constant(out, type, set_name, "Set", static_cast<std::uint32_t>(set.setId));
        corvane::drop_name(set.constName);
    }
    for (MCMessageNode* message = set.first; message != nullptr; message = message->next) {
        if (message->constName == nullptr) continue;
        write_constant(out, type, set_name, message->constName,
                       message_value(set, *message, combined));
        corvane::drop_name(message->constName);
    }
}

}  // namespace

namespace corvane {

void write_constants(int fd, std::int32_t type, bool combined)
{
    BufferedOutput out(fd);
    if (combined && type >= MC_LANGUAGE_C && type <= MC_LANGUAGE_ANSI) out.write(kMacros);
    for (MCSetNode* set = cat == nullptr ? nullptr : cat->first; set != nullptr; set = set->next) {
        write_set(out, *set, type, combined);
    }
    out.flush();
}

}  // namespace corvane

void MCWriteConst(int fd, std::int32_t type, std::int32_t combined) noexcept
{
    corvane::compile_or_exit([&] { corvane::write_constants(fd, type, combined != 0); });
}
