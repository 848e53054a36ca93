// The code-set registry: objects, the built-in sets, the default, and the names of the process's
// code set.
#include <langinfo.h>

#include <clocale>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "codeset/kel_cs.h"
#include "codeset/table_image.hpp"
#include "codeset/text.hpp"

static_assert(offsetof(kel_cs_t, type) == 8 && offsetof(kel_cs_t, hdr_block) == 16, "layout");
static_assert(offsetof(kel_cs_t, from_state) == 32 && offsetof(kel_cs_t, table_size) == 36,
              "layout");

kel_cs_t utf8_uc_ch_t = {.table = nullptr,
                         .type = KEL_TYPE_UTF8,
                         .table_backed = 0,
                         .hdr_value_a = 0,
                         .hdr_value_b = 0,
                         .hdr_block = {},
                         .from_state = 0,
                         .to_state = 0,
                         .table_size = 0};
kel_cs_t os_uc_ch_t = {.table = nullptr,
                       .type = KEL_TYPE_OS,
                       .table_backed = 0,
                       .hdr_value_a = 0,
                       .hdr_value_b = 0,
                       .hdr_block = {},
                       .from_state = 0,
                       .to_state = 0,
                       .table_size = 0};
kel_cs_t* utf8_cs = &utf8_uc_ch_t;
kel_cs_t* os_cs = &os_uc_ch_t;
kel_cs_t* def_cs = &os_uc_ch_t;
kel_cs_t* os_loc_cs = &os_uc_ch_t;
uint8_t kel_initialized = 0;

namespace {

using namespace corvane::kel;

constexpr std::uint32_t kNameSize = 128;

void init_once() noexcept
{
    if (kel_initialized == 0) (void)kel_init();
}

// Makes the code set `name` the default and the locale's; says whether there is one.
[[nodiscard]] bool adopt(const char* name) noexcept
{
    kel_cs_t* const cs = kel_cs_new(name);
    if (cs == nullptr) return false;
    (void)kel_set_def_cs(cs);
    os_loc_cs = cs;
    return true;
}

// Fills the fields of `cs` that its table's header gives.
void read_header(kel_cs_t& cs) noexcept
{
    const auto* const header = static_cast<const std::uint8_t*>(cs.table);
    cs.hdr_value_a = load_le16(header + kValueAAt);
    cs.hdr_value_b = load_le16(header + kValueBAt);
    std::memcpy(cs.hdr_block, header + kBlockAt, sizeof cs.hdr_block);
    cs.table_backed = 1;
    const bool is_ebcdic = load_le16(header + kEncodingSchemeAt) == kSchemeEbcdicSbcs;
    cs.type = is_ebcdic ? std::uint16_t{KEL_TYPE_EBCDIC_SBCS} : load_le16(header + kTypeAt);
}

}  // namespace

const char* corvane::kel::environment(const char* name) noexcept
{
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

uint32_t kel_init(void) noexcept
{
    if (kel_initialized != 0) return 0;
    kel_initialized = 1;  // first, so that what follows does not come back here
    char name[kNameSize];
    (void)kel_os_cs_name(name, sizeof name);
    if (!adopt(name)) (void)adopt("DEFAULT");  // without either, bytes pass through
    return 0;
}

uint32_t kel_uninit(void) noexcept
{
    if (kel_initialized == 0) return 0;
    kel_initialized = 0;
    (void)kel_cs_free(def_cs);  // resets os_loc_cs too when both are one object
    (void)kel_cs_free(os_loc_cs);
    return 0;
}

kel_cs_t* kel_cs_new(const char* name) noexcept
{
    return cs_new(name);
}

kel_cs_t* cs_new(const char* name) noexcept
{
    if (name == nullptr) return nullptr;
    auto* const cs = static_cast<kel_cs_t*>(std::calloc(1, sizeof(kel_cs_t)));
    if (cs == nullptr) return nullptr;
    if (std::strcmp(name, "UTF8") == 0) {
        cs->type = KEL_TYPE_UTF8;
        return cs;
    }
    cs->table = get_table(name, &cs->table_size);
    if (cs->table == nullptr) {
        std::free(cs);
        return nullptr;
    }
    read_header(*cs);
    return cs;
}

uint32_t kel_cs_free(kel_cs_t* cs) noexcept
{
    if (cs == nullptr || cs == utf8_cs || cs == os_cs) return 0;
    if (cs == def_cs) def_cs = os_cs;
    if (cs == os_loc_cs) os_loc_cs = os_cs;
    std::free(cs->table);
    std::free(cs);
    return 0;
}

void* kel_cs_table(kel_cs_t* cs, uint32_t* size) noexcept
{
    if (cs == nullptr) cs = kel_get_def_cs();
    if (size != nullptr) *size = cs->table != nullptr ? cs->table_size : 0;
    return cs->table;
}

uint32_t kel_set_def_cs(kel_cs_t* cs) noexcept
{
    init_once();
    def_cs = cs != nullptr ? cs : os_cs;
    return 0;
}

kel_cs_t* kel_get_def_cs(void) noexcept
{
    init_once();
    return def_cs;
}

uint32_t kel_os_cs_name(char* buffer, uint32_t size) noexcept
{
    char raw[kNameSize];
    (void)get_cs_name(raw, sizeof raw);
    return get_table_name(raw, buffer, size);
}

uint32_t get_cs_name(char* buffer, uint32_t size) noexcept
{
    if (size == 0) return 1;
    const char* name = environment("KEL_CODESET");
    if (*name == '\0') {
        (void)setlocale(LC_ALL, "");  // an unknown locale leaves the former one
        name = nl_langinfo(CODESET);
        if (*name == '\0') name = "ISO88591";
    }
    copy_text(buffer, size, name);
    return 0;
}

uint32_t get_table_name(const char* name, char* buffer, uint32_t size) noexcept
{
    if (size != 0) {
        if (std::strncmp(name, "ZAR", 3) == 0) name += 3;
        std::uint32_t length = 0;
        for (; *name != '\0' && length < size - 1; ++name) {
            if (is_alphanumeric(*name)) buffer[length++] = to_upper(*name);
        }
        std::memset(buffer + length, '\0', size - length);
    }
    (void)get_alias();
    return 0;
}

uint32_t get_alias(void) noexcept
{
    return 1;
}
