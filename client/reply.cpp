// Checks a reply's lengths and counts before anything reads or turns what they describe.
#include "client/reply.hpp"

#include <algorithm>
#include <cstddef>

#include "client/failure.hpp"
#include "client/text.hpp"
#include "fsmdc/messages.h"
#include "fsmdc/records.h"
#include "osl/byte_order.h"

namespace corvane {
namespace {

[[noreturn]] void refuse(const std::string& why)
{
    throw Failure(kBadReply, "the controller's reply was refused: " + why +
                                 "; check the controller's plug-in and its log");
}

std::int32_t reversed(std::int32_t value)
{
    doendian(&value, sizeof value);
    return value;
}

std::size_t record_offset(std::int32_t function_code)
{
    switch (function_code) {
        case -SP_GET_VOLUME:
            return SP_GET_VOLUME_RECORD;
        case -SP_GET_INITIAL_MAP:
            return SP_GET_INITIAL_MAP_RECORD;
        case -SP_GET_EXTENDED_MAP:
            return SP_GET_EXTENDED_MAP_RECORD;
        default:
            return 0;
    }
}

}  // namespace

std::size_t extent_bytes(std::int32_t extent_type)
{
    switch (extent_type) {
        case FS_EXTENT_COMPACT:
            return sizeof(CompactExtent);
        case FS_EXTENT_VERBOSE:
        case FS_EXTENT_VERBOSE2:
            return sizeof(VerboseExtent);
        case FS_EXTENT_SIMPLE:
            return sizeof(SimpleExtent);
        default:
            return 0;
    }
}

Reply::Reply(std::vector<std::byte> buffer, std::size_t received_bytes, const LanHeader& request)
    : buffer_(std::move(buffer))
{
    if (received_bytes < sizeof(LanHeader) || received_bytes > buffer_.size()) {
        refuse("it is shorter than a header");
    }
    length_bytes_ = received_bytes;
    read_header(request);
    if (header_.length < sizeof(LanHeader) || header_.length > received_bytes) {
        refuse("its length field says " + std::to_string(header_.length) + " bytes, but " +
               std::to_string(received_bytes) + " came");
    }
    length_bytes_ = header_.length;
    if (header_.result != 0) {
        fail(static_cast<std::uint32_t>(header_.result), "the controller refused the request");
    }
    constexpr std::size_t kResultEnd = offsetof(CloseReply, result) + sizeof(CloseReply::result);
    if (length_bytes_ < kResultEnd) refuse("it has no result");
}

void Reply::read_header(const LanHeader& request)
{
    is_foreign_ = load<std::uint32_t>(buffer_.data()) != 1;
    LANSUP_TransLanHeader(buffer_.data());
    header_ = load<LanHeader>(buffer_.data());
    // An error reply that is a bare header keeps the request's marker, whatever order the
    // controller writes the rest in: its length tells.
    const auto length = static_cast<std::int32_t>(header_.length);
    if (!is_foreign_ && reversed(length) == static_cast<std::int32_t>(sizeof(LanHeader))) {
        header_.functionCode = reversed(header_.functionCode);
        header_.length = sizeof(LanHeader);
        header_.result = reversed(header_.result);
    }
    if (header_.functionCode != -request.functionCode) {
        refuse("it answers function " + std::to_string(header_.functionCode) + " instead of " +
               std::to_string(-request.functionCode));
    }
}

std::uint32_t Reply::word(std::size_t offset) const
{
    if (offset + sizeof(std::uint32_t) > length_bytes_) refuse("it ends before its fields do");
    auto value = load<std::uint32_t>(buffer_.data() + offset);
    if (is_foreign_ && !is_translated_) doendian(&value, sizeof value);
    return value;
}

std::uint32_t Reply::code() const
{
    return word(offsetof(CloseReply, result));
}

// A plug-in that failed writes a text and may leave any count; it is never used. Yet a foreign
// record is turned by its counts all the same, so there they must hold.
bool Reply::is_only_text(std::uint32_t vendor_status) const
{
    return vendor_status != 0 && !is_foreign_;
}

void Reply::check_volume_record(std::size_t offset) const
{
    if (length_bytes_ < offset + sizeof(VolumeInfo)) refuse("its volume record is cut off");
    // The translator turns as many disk records as the count says, valid or not.
    const std::uint64_t disk_count = word(offset + offsetof(VolumeInfo, nDisks));
    const std::size_t room = length_bytes_ - offset - sizeof(VolumeInfo);
    if (is_only_text(word(offset + offsetof(VolumeInfo, vendorStatus)))) return;
    if (disk_count > room / sizeof(FSDisk)) {
        refuse("it announces " + std::to_string(disk_count) + " disks and is too short for them");
    }
}

void Reply::check_map_record(std::size_t offset) const
{
    if (length_bytes_ < offset + sizeof(MapInfo)) refuse("its map record is cut off");
    const auto count = static_cast<std::int32_t>(word(offset + offsetof(MapInfo, nExtents)));
    const auto type = static_cast<std::int32_t>(word(offset + offsetof(MapInfo, extentType)));
    const std::size_t each = extent_bytes(type);
    const std::size_t room = length_bytes_ - offset - sizeof(MapInfo);
    if (is_only_text(word(offset + offsetof(MapInfo, vendorStatus)))) return;
    if (count < 0 || (each != 0 && static_cast<std::size_t>(count) > room / each)) {
        refuse("it announces " + std::to_string(count) + " extents and is too short for them");
    }
}

void Reply::translate_body()
{
    const std::size_t offset = record_offset(header_.functionCode);
    switch (header_.functionCode) {
        case -SP_GET_VOLUME:
            check_volume_record(offset);
            SPSUP_TransLanGetVolumeResp(buffer_.data());
            break;
        case -SP_GET_INITIAL_MAP:
            check_map_record(offset);
            SPSUP_TransLanGetInitialMapResp(buffer_.data());
            break;
        case -SP_GET_EXTENDED_MAP:
            check_map_record(offset);
            SPSUP_TransLanGetExtendedMapResp(buffer_.data());
            break;
        case -SP_SET_SIZE:
            if (length_bytes_ < sizeof(SetSizeReply)) refuse("it is cut off");
            SPSUP_TransLanSetSizeResp(buffer_.data());
            break;
        case -SP_CLOSE:
            SPSUP_TransLanCloseResp(buffer_.data());
            break;
        default:
            refuse("it answers an unknown function");
    }
    is_translated_ = true;
}

std::span<const std::byte> Reply::from(std::size_t offset) const
{
    if (offset >= length_bytes_) return {};
    return std::span(buffer_).subspan(offset, length_bytes_ - offset);
}

std::string Reply::error_text(std::size_t offset) const
{
    constexpr std::size_t kLongest = 1024;
    std::vector<FSUNI> units;
    for (auto rest = from(offset); rest.size() >= sizeof(FSUNI) && units.size() < kLongest;
         rest = rest.subspan(sizeof(FSUNI))) {
        auto unit = load<FSUNI>(rest.data());
        if (unit == 0) break;
        if (is_foreign_) doendian(&unit, sizeof unit);  // no translator turns these texts
        units.push_back(unit);
    }
    return printable(utf8_from_fsuni(units));
}

}  // namespace corvane
