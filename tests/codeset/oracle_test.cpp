// Every converter against the naive oracle: all units, all short sequences, random texts, on the
// built tables and on hostile ones, whose images end where their memory ends.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>

#include "tests/codeset/naive.hpp"
#include "tests/codeset/support.hpp"
#include "tests/codeset/table_writer.hpp"

namespace {

using namespace corvane::test;

// A code set on an image of exactly its size, so that a sanitizer sees a read behind it.
class Exact {
public:
    Exact(std::uint16_t type, const std::string& image)
        : bytes_(new char[image.size()]), naive_(type, image)
    {
        std::memcpy(bytes_.get(), image.data(), image.size());
        cs_.table = bytes_.get();
        cs_.table_size = static_cast<std::uint32_t>(image.size());
        cs_.type = type;
    }

    void check_reading(const std::string& text) const
    {
        const Characters expected = naive_.read(text);
        std::u16string units;
        std::string utf8;
        for (const char32_t character : expected.text) {
            // Beyond Unicode the two halves are what the formulas give.
            if (character > 0xFFFF) {
                units += static_cast<char16_t>(0xD800 | (character - 0x10000) >> 10);
                units += static_cast<char16_t>(0xDC00 | (character & 0x3FF));
            } else {
                units += static_cast<char16_t>(character);
            }
            utf8 += utf8_of(character);
        }
        ASSERT_EQ(to_ucs2(cs_, text), (Units{expected.result, units})) << hex(text);
        ASSERT_EQ(to_utf8(cs_, text), (Bytes{expected.result, utf8})) << hex(text);
    }

    void check_writing(const std::u16string& text) const
    {
        const Characters from = naive_.read_ucs2(text);
        ASSERT_EQ(from_ucs2(cs_, text), (Bytes{from.result, write(from.text)})) << hex(text);
    }

    void check_writing_utf8(const std::string& text) const
    {
        const Characters from = naive_.read_utf8(text);
        ASSERT_EQ(from_utf8(cs_, text), (Bytes{from.result, write(from.text)})) << hex(text);
    }

private:
    [[nodiscard]] std::string write(const std::u32string& characters) const
    {
        if (cs_.type != KEL_TYPE_UTF8) return naive_.write(characters);
        std::string utf8;
        for (const char32_t character : characters) utf8 += utf8_of(character);
        return utf8;
    }

    std::unique_ptr<char[]> bytes_;
    Naive naive_;
    kel_cs_t cs_ = {};
};

constexpr std::uint16_t kTypes[] = {KEL_TYPE_ASCII_SBCS,  KEL_TYPE_ASCII_DBCS, KEL_TYPE_ASCII_MBCS,
                                    KEL_TYPE_EBCDIC_DBCS, KEL_TYPE_UTF8,       KEL_TYPE_EBCDIC_SBCS,
                                    KEL_TYPE_GB18030};

[[nodiscard]] unsigned draw(std::mt19937& random, unsigned below)
{
    return static_cast<unsigned>(random() % below);
}

// Texts that hit what a family treats specially more often than chance would.
class Texts {
public:
    explicit Texts(unsigned seed) : random_(seed) {}

    [[nodiscard]] std::string bytes()
    {
        static constexpr unsigned char kSpecial[] = {0x0E, 0x0F, 0x15, 0x20, 0x30, 0x39, 0x3F, 0x40,
                                                     0x7F, 0x80, 0x81, 0x8E, 0x8F, 0x90, 0xA1, 0xC3,
                                                     0xE2, 0xED, 0xF0, 0xF7, 0xF8, 0xFE, 0xFF};
        std::string text(length(), ' ');
        const unsigned mood = draw(random_, 3);
        for (char& byte : text) {
            const bool is_special = mood != 0 && random_() % 2 == 0;
            byte = static_cast<char>(is_special  ? kSpecial[random_() % sizeof kSpecial]
                                     : mood == 2 ? random_() % 128
                                                 : random_());
        }
        return text;
    }

    [[nodiscard]] std::u16string units()
    {
        std::u16string text(length(), u' ');
        const unsigned mood = draw(random_, 3);
        for (char16_t& unit : text) {
            unit = static_cast<char16_t>(mood == 0   ? random_()
                                         : mood == 1 ? random_() % 0x180
                                                     : 0xD700 + random_() % 0xA00);
        }
        return text;
    }

private:
    // Some texts are long enough for the loops that go by blocks.
    [[nodiscard]] unsigned length() { return draw(random_, draw(random_, 8) == 0 ? 500 : 40); }

    std::mt19937 random_;
};

// ---- built tables ----

class OracleOnBuilt : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override
    {
        const CsPtr cs = open_built(GetParam());
        ASSERT_NE(cs, nullptr);
        exact_ = std::make_unique<Exact>(
            cs->type, std::string(static_cast<const char*>(cs->table), cs->table_size));
    }
    std::unique_ptr<Exact> exact_;
};

TEST_P(OracleOnBuilt, AllUnits)
{
    for (unsigned unit = 0; unit < 0x10000; ++unit) {
        const std::u16string text{static_cast<char16_t>(unit), u'A'};
        exact_->check_writing(text);
        exact_->check_writing_utf8(utf8_of(unit) + "A");
        if (HasFatalFailure()) return;
    }
}

TEST_P(OracleOnBuilt, AllPairsOfBytes)
{
    for (unsigned pair = 0; pair < 0x10000; ++pair) {
        const std::string text{static_cast<char>(pair >> 8), static_cast<char>(pair)};
        exact_->check_reading(text);
        exact_->check_reading(text + "\x30\x81\x30");
        if (HasFatalFailure()) return;
    }
}

TEST_P(OracleOnBuilt, RandomTexts)
{
    Texts texts(1);
    for (int round = 0; round < 20000; ++round) {
        exact_->check_reading(texts.bytes());
        exact_->check_writing(texts.units());
        exact_->check_writing_utf8(texts.bytes());
        if (HasFatalFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(Families, OracleOnBuilt,
                         testing::Values("UTF8", "ISO88592", "SHIFTJIS", "EUCJP", "GB18030",
                                         "IBM1140", "IBM939"),
                         [](const auto& name) { return std::string(name.param); });

// ---- hostile tables ----

// Every family on tables whose header and data are random, at sizes around those that matter.
TEST(OracleOnHostile, RandomImages)
{
    std::mt19937 random(2);
    Texts texts(3);
    for (int round = 0; round < 3000; ++round) {
        std::string image(1755 + random() % 3000, '\0');
        for (char& byte : image) byte = static_cast<char>(random());
        for (std::size_t i = 0; i < 256 && random() % 4 != 0; ++i) {
            image[1248 + i] = static_cast<char>(random() % 5);
        }
        // Places that lie inside more often than chance would have it.
        const auto put16 = [&](std::size_t at, unsigned value) {
            image[at] = static_cast<char>(value);
            image[at + 1] = static_cast<char>(value >> 8);
        };
        put16(0, draw(random, 4000));
        put16(2, draw(random, 16) == 0 ? draw(random, 65536) : 0);
        put16(38, draw(random, 4000));
        for (std::size_t i = 0; i < 512; ++i) put16(224 + 2 * i, draw(random, 800));
        const std::uint16_t type = kTypes[static_cast<std::size_t>(round) % std::size(kTypes)];
        const Exact exact(type, image);
        for (int text = 0; text < 5; ++text) {
            exact.check_reading(texts.bytes());
            exact.check_writing(texts.units());
            exact.check_writing_utf8(texts.bytes());
        }
        if (testing::Test::HasFatalFailure()) return;
    }
}

// Good tables cut off at sizes all through them.
TEST(OracleOnHostile, CutTables)
{
    Texts texts(4);
    for (const char* name : {"ISO88592", "SHIFTJIS", "EUCJP", "GB18030", "IBM1140", "IBM939"}) {
        const CsPtr cs = open_built(name);
        ASSERT_NE(cs, nullptr) << name;
        const std::string image(static_cast<const char*>(cs->table), cs->table_size);
        for (std::size_t size = 0; size < image.size();
             size += size < 1750 || size > 1900 ? 97 : 1) {
            const Exact exact(cs->type, image.substr(0, size));
            exact.check_reading(texts.bytes());
            exact.check_writing(texts.units());
            exact.check_writing_utf8(texts.bytes());
            ASSERT_FALSE(HasFatalFailure()) << name << " cut at " << size;
        }
    }
}

TEST(OracleOnHostile, NoTableAtAll)
{
    for (const std::uint16_t type : kTypes) {
        kel_cs_t cs = {};
        cs.type = type;
        const bool is_ebcdic = type == KEL_TYPE_EBCDIC_SBCS || type == KEL_TYPE_EBCDIC_DBCS;
        if (type == KEL_TYPE_UTF8) continue;
        EXPECT_EQ(from_ucs2(cs, u"\u4E00"), (Bytes{KEL_DONE, is_ebcdic ? "\x6F" : "?"})) << type;
        EXPECT_EQ(to_ucs2(cs, "\xB0\x41\x41\x41").text.front(), u'?') << type;
    }
}

// A walk over a list of ranges that never exceeds the key ends with the image.
TEST(OracleOnHostile, EndlessRangesEnd)
{
    std::string image(200000, '\0');
    image[38] = '\x00';
    image[39] = '\x08';
    const Exact exact(KEL_TYPE_GB18030, image);

    exact.check_reading("\x81\x40\x81\x30\x81\x30");
    exact.check_writing(u"\u4E00");
}

}  // namespace
