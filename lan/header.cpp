// The common header: its layout, its byte order and its dump.
#include "lan/header.h"

#include <array>
#include <cstddef>
#include <type_traits>

#include "mdcmain/log.hpp"
#include "osl/byte_order.h"
#include "osl/bytes.hpp"

namespace {

static_assert(offsetof(LanHeader, endian) == 0 && offsetof(LanHeader, revision) == 4, "layout");
static_assert(offsetof(LanHeader, messageID) == 8 && offsetof(LanHeader, functionCode) == 24,
              "layout");
static_assert(offsetof(LanHeader, length) == 28 && offsetof(LanHeader, flags) == 32, "layout");
static_assert(offsetof(LanHeader, result) == 36 && offsetof(LanHeader, spare1) == 40, "layout");
static_assert(offsetof(LanHeader, spare2) == 42 && offsetof(LanHeader, spare3) == 44, "layout");
static_assert(sizeof(LanHeader) == 48, "layout");
static_assert(std::has_unique_object_representations_v<LanHeader>, "no padding");

struct Field {
    std::size_t offset;
    std::uint32_t width_bytes;
};

// The fields that turn round, in their order. The marker, the identifier and two spares never do.
constexpr std::array<Field, 6> kSwappedFields{{
    {offsetof(LanHeader, flags), 4},
    {offsetof(LanHeader, functionCode), 4},
    {offsetof(LanHeader, length), 4},
    {offsetof(LanHeader, result), 4},
    {offsetof(LanHeader, revision), 4},
    {offsetof(LanHeader, spare2), 2},
}};

}  // namespace

void LANSUP_TransLanHeader(void* header) noexcept
{
    if (corvane::load<std::uint32_t>(header) == 1) return;
    for (const Field& field : kSwappedFields) {
        doendian(static_cast<std::byte*>(header) + field.offset, field.width_bytes);
    }
}

void LANSUP_DumpLanHeader(const void* header) noexcept
{
    if (header == nullptr || !corvane::trace_wanted()) return;
    const auto head = corvane::load<LanHeader>(header);
    std::array<char, 3 * sizeof head.messageID + 1> identifier{};

    corvane_trace("functionCode %d\n", head.functionCode);
    corvane_trace("length %d\n", static_cast<int>(head.length));
    corvane_trace("messageID %s\n",
                  bytesToString(head.messageID, sizeof head.messageID, identifier.data()));
    corvane_trace("revision %d\n", head.revision);
    corvane_trace("result %d\n", head.result);
}
