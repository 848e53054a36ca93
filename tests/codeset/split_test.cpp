// The resumable contract: input and output cut at every position give the unsplit result, for every
// family and direction.
#include <gtest/gtest.h>

#include <functional>

#include "tests/codeset/support.hpp"

namespace {

using namespace corvane::test;

// A code set and a text of it that has every kind of sequence, shift and error.
struct Sample {
    const char* table;
    std::string text;
    std::u16string characters;
};

void PrintTo(const Sample& sample, std::ostream* out)
{
    *out << sample.table;
}

const std::u16string kMixed = std::u16string(
                                  u"A\u00E4 plain text of a block \u65E5\u672C\u8A9E\u3042\uFF71B"
                                  u"\u0E01\u4E02\U00010000\U0010FFFF\u20AC\uFFFF\x0E\x0F\n") +
                              char16_t{0xDC00} + u"x" + char16_t{0xD800} + u"yz";

[[nodiscard]] std::vector<Sample> samples()
{
    return {
        {"UTF8", "A\xC3\xA4 plain text of a block \xE6\x97\xA5\xF0\x90\x80\x80\x80\xFF\xC1\x81z",
         kMixed},
        {"", "A\xE4 plain text of a block \x80\xFFz", kMixed},  // pass-through
        {"ISO88591", "A\xE4 plain text of a block \x80\xFFz", kMixed},
        {"SHIFTJIS", "A\x93\xFA\x96\x7B plain text of a block \xB1\x81\x20\xFF\x80z", kMixed},
        {"EUCJP", "A\xC6\xFC plain text of a block \x8E\xB1\x8F\xB0\xA2\xA0\x8F\x20\x20\x85z",
         kMixed},
        {"GB18030",
         "A\xC8\xD5 plain text of a block \x81\x30\x81\x30\x90\x30\x81\x30\x80\xFF\x81\x20z",
         kMixed},
        {"IBM1047", "\xC1\x43\x15\x25\x0E\x0F plain text of a block \xFFz", kMixed},
        {"IBM939", "\xC1\x0E\x45\x66\x44\x81\x0F\xC2\x0E\x0F\x0E\x15\x42\xC1\x0F\x0F\xFFz", kMixed},
    };
}

class Split : public testing::TestWithParam<Sample> {
protected:
    void SetUp() override
    {
        const std::string name = GetParam().table;
        cs_ = name.empty() ? CsPtr(kel_cs_new("UTF8")) : open_built(name);
        ASSERT_NE(cs_, nullptr);
        if (name.empty()) cs_->type = KEL_TYPE_OS;
    }
    CsPtr cs_;
};

template <class From, class To>
using Member = std::int32_t (*)(kel_cs_t*, const From**, std::uint32_t*, To**,
                                std::uint32_t*) noexcept;

// Converts `source` in pieces: input is shown up to the next cut, then up to the end; output has
// `room` first and ample room after. Returns the result code of the last call before the flush and
// the output.
template <class From, class To>
[[nodiscard]] std::pair<std::int32_t, std::vector<To>> in_pieces(const kel_cs_t& cs,
                                                                 Member<From, To> convert,
                                                                 const std::vector<From>& source,
                                                                 std::size_t cut, std::size_t room)
{
    kel_cs_t copy = cs;
    std::vector<To> out(8 * source.size() + 16);
    const From* from = source.data();
    const From* const end = source.data() + source.size();
    To* to = out.data();
    To* const to_end = out.data() + out.size();
    const auto step = [&](const From* stop, To* limit) {
        auto from_left = static_cast<std::uint32_t>(stop - from);
        auto to_left = static_cast<std::uint32_t>(limit - to);
        const From* const before = from;
        To* const to_before = to;
        const std::int32_t result = convert(&copy, &from, &from_left, &to, &to_left);
        EXPECT_EQ(stop - from, from_left);
        EXPECT_EQ(limit - to, to_left);
        EXPECT_GE(from, before);
        EXPECT_GE(to, to_before);
        EXPECT_TRUE(result != KEL_DONE || from == stop);
        EXPECT_TRUE(result != KEL_FULL || limit - to < 4);  // no character here is longer
        return result;
    };
    (void)step(source.data() + cut, out.data() + room);
    if (from < source.data() + cut) (void)step(source.data() + cut, to_end);
    const std::int32_t result = step(end, to_end);
    const From* none = nullptr;
    std::uint32_t none_left = 0;
    auto to_left = static_cast<std::uint32_t>(to_end - to);
    EXPECT_EQ(convert(&copy, &none, &none_left, &to, &to_left), KEL_DONE);
    out.resize(static_cast<std::size_t>(to - out.data()));
    return {result, out};
}

template <class From, class To>
void check_every_split(const kel_cs_t& cs, Member<From, To> convert,
                       const std::vector<From>& source)
{
    const std::size_t ample = 8 * source.size();
    const auto whole = in_pieces(cs, convert, source, source.size(), ample);
    for (std::size_t cut = 0; cut <= source.size(); ++cut) {
        for (std::size_t room = 0; room <= whole.second.size() + 1; ++room) {
            ASSERT_EQ(in_pieces(cs, convert, source, cut, room), whole)
                << "cut " << cut << " room " << room;
        }
    }
}

[[nodiscard]] std::vector<char> bytes(const std::string& text)
{
    return {text.begin(), text.end()};
}

TEST_P(Split, ToUcs2)
{
    check_every_split<char, std::uint16_t>(*cs_, kel_to_ucs2_r, bytes(GetParam().text));
}

TEST_P(Split, ToUtf8)
{
    check_every_split<char, char>(*cs_, kel_to_utf8_r, bytes(GetParam().text));
}

TEST_P(Split, FromUcs2)
{
    const std::u16string& text = GetParam().characters;
    check_every_split<std::uint16_t, char>(*cs_, kel_from_ucs2_r, {text.begin(), text.end()});
}

TEST_P(Split, FromUtf8)
{
    check_every_split<char, char>(*cs_, kel_from_utf8_r,
                                  bytes(utf8_of_units(GetParam().characters) + "\x80\xC3\xA4\xFF"));
}

INSTANTIATE_TEST_SUITE_P(Families, Split, testing::ValuesIn(samples()), [](const auto& sample) {
    const std::string name = sample.param.table;
    return name.empty() ? std::string("PassThrough") : name;
});

}  // namespace
