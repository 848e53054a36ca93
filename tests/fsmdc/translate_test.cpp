// Byte order of bodies and records: exactly the listed fields turn round, at any address, within
// the message.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "fsmdc/messages.h"
#include "tests/fsmdc/bytes.hpp"

namespace fsmdc_test {
namespace {

struct Field {
    std::size_t at;
    std::size_t width;
};

struct Translation {
    const char* name;
    void (*translate)(void*) noexcept;
    std::size_t size;
    std::vector<Field> fields;
    std::size_t path_at = 0;   // 2048 bytes of FSUNI, 0: none
    std::uint32_t length = 0;  // of the message's header
};

Bytes with_marker(Bytes bytes, std::uint32_t marker)
{
    put32(bytes, 0, marker);
    return bytes;
}

// What the message must look like afterwards.
Bytes turned(Bytes bytes, const Translation& translation)
{
    for (const Field& field : translation.fields) reverse(bytes, field.at, field.width);
    for (std::size_t i = 0; translation.path_at != 0 && i < 2048; i += 2) {
        reverse(bytes, translation.path_at + i, 2);
    }
    return bytes;
}

// Runs the translation at an odd address, in a block of exactly that size.
Bytes translate_odd(const Translation& translation, const Bytes& message)
{
    const auto block = std::make_unique<unsigned char[]>(message.size() + 1);
    std::copy(message.begin(), message.end(), block.get() + 1);
    translation.translate(block.get() + 1);
    return {block.get() + 1, block.get() + 1 + message.size()};
}

class MessageTranslation : public ::testing::TestWithParam<Translation> {};

TEST_P(MessageTranslation, AForeignMarkerTurnsTheFieldsOnly)
{
    const Translation& translation = GetParam();
    Bytes message = with_marker(counting(translation.size), 0x01000000);
    put32(message, 28, translation.length);
    if (translation.size >= 96)
        put64(message, 72, 0x0000000000040506);  // believed once it is turned
    EXPECT_EQ(hex(translate_odd(translation, message)), hex(turned(message, translation)));
}

TEST_P(MessageTranslation, AMarkerOfOneTurnsNothing)
{
    const Translation& translation = GetParam();
    Bytes message = with_marker(counting(translation.size), 1);
    if (translation.size >= 96) put64(message, 72, 7);
    EXPECT_EQ(hex(translate_odd(translation, message)), hex(message));
}

std::string name_of(const ::testing::TestParamInfo<Translation>& test)
{
    return test.param.name;
}

INSTANTIATE_TEST_SUITE_P(
    Requests, MessageTranslation,
    ::testing::Values(Translation{"GetVolume", SPSUP_TransLanGetVolume, 2300, {}, 180},
                      Translation{"GetInitialMap",
                                  SPSUP_TransLanGetInitialMap,
                                  2300,
                                  {{48, 8}, {56, 8}, {64, 4}, {68, 4}, {72, 4}},
                                  112},
                      Translation{
                          "SetSize", SPSUP_TransLanSetSize, 72, {{48, 8}, {56, 4}, {60, 4}}},
                      Translation{"Close", SPSUP_TransLanClose, 72, {{48, 8}, {56, 4}}}),
    name_of);

INSTANTIATE_TEST_SUITE_P(
    FixedReplies, MessageTranslation,
    ::testing::Values(
        Translation{"SetSize", SPSUP_TransLanSetSizeResp, 72, {{48, 4}, {52, 4}}, 0, 72},
        Translation{"SetSizeCut", SPSUP_TransLanSetSizeResp, 52, {{48, 4}}, 0, 52},
        Translation{"Close", SPSUP_TransLanCloseResp, 88, {{48, 4}}, 0, 88},
        Translation{"CloseHeaderOnly", SPSUP_TransLanCloseResp, 48, {}, 0, 48},
        Translation{"GetVolumeHeaderOnly", SPSUP_TransLanGetVolumeResp, 48, {}, 0, 48},
        Translation{"GetInitialMapHeaderOnly", SPSUP_TransLanGetInitialMapResp, 48, {}, 0, 48},
        Translation{"GetExtendedMapHeaderOnly", SPSUP_TransLanGetExtendedMapResp, 48, {}, 0, 48}),
    name_of);

// The length of a GetExtendedMap request before and after, in host order.
struct MendedLength {
    const char* name;
    std::uint32_t marker;
    std::int64_t before;
    std::int64_t after;
};
class ExtendedMapLength : public ::testing::TestWithParam<MendedLength> {};

TEST_P(ExtendedMapLength, IsReversedWhenItCannotBeMeant)
{
    Bytes message = with_marker(counting(92), GetParam().marker);
    put64(message, 72, GetParam().before);
    const Bytes before = message;

    SPSUP_TransLanGetExtendedMap(message.data());

    EXPECT_EQ(get<std::int64_t>(message.data(), 72), GetParam().after);
    Bytes rest = before;
    if (GetParam().marker != 1) {
        for (const Field& field :
             std::vector<Field>{{48, 8}, {56, 8}, {64, 8}, {80, 4}, {84, 4}, {88, 4}}) {
            reverse(rest, field.at, field.width);
        }
    }
    put64(rest, 72, GetParam().after);
    EXPECT_EQ(hex(message), hex(rest));
}
INSTANTIATE_TEST_SUITE_P(
    Lengths, ExtendedMapLength,
    ::testing::Values(MendedLength{"none", 1, 0, 0}, MendedLength{"longest", 1, 512000, 512000},
                      MendedLength{"one_more", 1, 512001, 0x01D0070000000000},
                      MendedLength{"minus_one", 1, -1, -1},
                      MendedLength{"minus_two", 1, -2, -0x0100000000000001},
                      MendedLength{"in_the_wrong_order", 1, 0x0010000000000000, 4096},
                      MendedLength{"foreign", 2, 0x0010000000000000, 4096},
                      MendedLength{"foreign_and_too_long", 2, 0x01D0070000000000,
                                   0x01D0070000000000},
                      MendedLength{"foreign_minus_one", 2, -1, -1}),
    [](const auto& test) { return std::string(test.param.name); });

// The records, whatever any marker says.
class RecordTranslation : public ::testing::TestWithParam<Translation> {};

TEST_P(RecordTranslation, TurnsTheFieldsOnly)
{
    const Bytes record = counting(GetParam().size);
    EXPECT_EQ(hex(translate_odd(GetParam(), record)), hex(turned(record, GetParam())));
}
INSTANTIATE_TEST_SUITE_P(
    Records, RecordTranslation,
    ::testing::Values(
        Translation{"Descriptor", FSMDCSUP_TransFSSystem, 40, {}},
        Translation{
            "Disk", FSMDCSUP_TransFSDisk, 80, {{16, 8}, {24, 8}, {32, 8}, {40, 4}, {44, 4}}},
        Translation{"Compact", FSMDCSUP_TransCompactExtent, 16, {{0, 8}, {8, 8}}},
        Translation{"Simple", FSMDCSUP_TransSimpleExtent, 24, {{0, 8}, {8, 8}, {16, 8}}},
        Translation{"Verbose",
                    FSMDCSUP_TransVerboseExtent,
                    32,
                    {{0, 8}, {8, 8}, {16, 8}, {24, 4}, {28, 4}}}),
    name_of);

const std::vector<Field> kVolumeFields = {{0, 4},  {4, 4},  {8, 4}, {12, 4},
                                          {16, 4}, {20, 4}, {24, 4}};
const std::vector<Field> kMapFields = {{0, 8},  {8, 8},  {16, 4}, {20, 4},
                                       {24, 4}, {28, 4}, {32, 8}, {40, 8}};

// A foreign volume record: its count and status in the other order.
Bytes foreign_volume(std::size_t size, std::uint32_t disks, std::uint32_t status)
{
    Bytes record = counting(size);
    put32(record, 20, __builtin_bswap32(disks));
    put32(record, 4, __builtin_bswap32(status));
    return record;
}
Bytes foreign_map(std::size_t size, std::uint32_t extents, std::uint32_t type, std::uint32_t status)
{
    Bytes record = counting(size);
    put32(record, 20, __builtin_bswap32(status));
    put32(record, 24, __builtin_bswap32(extents));
    put32(record, 28, __builtin_bswap32(type));
    return record;
}
std::vector<Field> shifted(std::vector<Field> fields, std::size_t by)
{
    for (Field& field : fields) field.at += by;
    return fields;
}
std::vector<Field> joined(std::vector<Field> fields, const std::vector<Field>& more)
{
    fields.insert(fields.end(), more.begin(), more.end());
    return fields;
}
std::vector<Field> disks_at(std::size_t at, std::size_t count)
{
    std::vector<Field> fields;
    for (std::size_t i = 0; i < count; ++i) {
        fields =
            joined(fields, shifted({{16, 8}, {24, 8}, {32, 8}, {40, 4}, {44, 4}}, at + 80 * i));
    }
    return fields;
}
void expect_turned(const Bytes& record, void (*translate)(void*) noexcept,
                   const std::vector<Field>& fields)
{
    const Translation translation{"", translate, record.size(), fields};
    EXPECT_EQ(hex(translate_odd(translation, record)), hex(turned(record, translation)));
}

TEST(VolumeTranslation, TurnsAsManyDisksAsTheRecordSays)
{
    expect_turned(foreign_volume(104 + 240, 2, 0), FSMDCSUP_TransVolInfo,
                  joined(kVolumeFields, disks_at(104, 2)));
}

TEST(VolumeTranslation, AnErrorTextStaysAsItLies)
{
    expect_turned(foreign_volume(104 + 80, 1, 3), FSMDCSUP_TransVolInfo, kVolumeFields);
}

TEST(MapTranslation, TurnsTheExtentsOfEachLayout)
{
    expect_turned(foreign_map(64 + 48, 2, 0, 0), FSMDCSUP_TransMapInfo,
                  joined(kMapFields, {{64, 8}, {72, 8}, {80, 8}, {88, 8}}));
    expect_turned(foreign_map(64 + 72, 2, 2, 0), FSMDCSUP_TransMapInfo,
                  joined(kMapFields, {{64, 8}, {72, 8}, {80, 8}, {88, 8}, {96, 8}, {104, 8}}));
    for (const std::uint32_t verbose : {1U, 3U}) {
        expect_turned(foreign_map(64 + 64, 1, verbose, 0), FSMDCSUP_TransMapInfo,
                      joined(kMapFields, {{64, 8}, {72, 8}, {80, 8}, {88, 4}, {92, 4}}));
    }
}

TEST(MapTranslation, AnUnknownLayoutAnErrorTextAndANegativeCountStay)
{
    expect_turned(foreign_map(64 + 64, 1, 7, 0), FSMDCSUP_TransMapInfo, kMapFields);
    expect_turned(foreign_map(64 + 64, 1, 0, 3), FSMDCSUP_TransMapInfo, kMapFields);
    expect_turned(foreign_map(64 + 64, 0x80000001, 0, 0), FSMDCSUP_TransMapInfo, kMapFields);
}

// A reply whose record claims more than the message holds: nothing behind its length is touched.
Bytes reply_with(const Bytes& record, std::size_t at, std::uint32_t length)
{
    Bytes reply = counting(at + record.size());
    put32(reply, 0, 0x01000000);
    put32(reply, 28, length);
    std::copy(record.begin(), record.end(), reply.begin() + static_cast<std::ptrdiff_t>(at));
    return reply;
}

TEST(ReplyTranslation, AVolumeReplyIsTurnedAsFarAsItsLengthGoes)
{
    const Bytes record = foreign_volume(104 + 240, 0xFFFFFFFF, 0);
    const auto fields = joined({{48, 4}}, joined(shifted(kVolumeFields, 88), disks_at(192, 2)));

    expect_turned(reply_with(record, 88, 192 + 239), SPSUP_TransLanGetVolumeResp, fields);
}

TEST(ReplyTranslation, MapRepliesAreTurnedAsFarAsTheirLengthGoes)
{
    const Bytes record = foreign_map(64 + 48, 0x7FFFFFFF, 0, 0);
    const auto fields = joined(kMapFields, {{64, 8}, {72, 8}, {80, 8}, {88, 8}});

    expect_turned(reply_with(record, 160, 160 + 64 + 47), SPSUP_TransLanGetInitialMapResp,
                  joined({{48, 4}, {52, 4}, {56, 4}}, shifted(fields, 160)));
    expect_turned(reply_with(record, 88, 88 + 64 + 47), SPSUP_TransLanGetExtendedMapResp,
                  joined({{48, 4}, {52, 4}}, shifted(fields, 88)));
}

TEST(ReplyTranslation, ARecordThatTheLengthCutsLosesOnlyWhatIsCut)
{
    const Bytes record = foreign_map(64, 1, 0, 0);
    expect_turned(
        reply_with(record, 88, 88 + 30), SPSUP_TransLanGetExtendedMapResp,
        joined({{48, 4}, {52, 4}}, shifted({{0, 8}, {8, 8}, {16, 4}, {20, 4}, {24, 4}}, 88)));
}

TEST(ReplyTranslation, ANativeReplyStays)
{
    const Bytes record = foreign_map(64 + 48, 2, 0, 0);
    Bytes reply = reply_with(record, 160, 272);
    put32(reply, 0, 1);
    expect_turned(reply, SPSUP_TransLanGetInitialMapResp, {});
    expect_turned(reply, SPSUP_TransLanGetExtendedMapResp, {});
    expect_turned(reply, SPSUP_TransLanGetVolumeResp, {});
}

}  // namespace
}  // namespace fsmdc_test
