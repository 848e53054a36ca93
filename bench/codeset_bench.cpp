// Conversions of the code-set library beside iconv and ICU: the same text, in the same run. Every
// row checks its result against iconv's before it is timed; `ratio` on our rows is our speed over
// the better of the yardsticks measured next to it.
#include <benchmark/benchmark.h>
#include <iconv.h>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "codeset/kel.h"

namespace {

enum class Direction { kToUcs2, kFromUcs2 };

// ---- texts ----

[[nodiscard]] std::u16string words(std::size_t units, char16_t first, unsigned count,
                                   unsigned ascii_percent)
{
    std::mt19937 random(7);
    std::u16string text;
    while (text.size() < units) {
        const std::size_t length = 2 + random() % 9;
        for (std::size_t i = 0; i < length; ++i) {
            const bool is_ascii = random() % 100 < ascii_percent;
            text +=
                static_cast<char16_t>(is_ascii ? 'a' + random() % 26 : first + random() % count);
        }
        text += u' ';
    }
    text.resize(units);
    return text;
}

// Letters with marks among plain ones, as in French or German.
[[nodiscard]] std::u16string latin(std::size_t units)
{
    return words(units, 0xE0, 22, 90);
}

// Kana with kanji of the first level, as in a Japanese sentence, few ASCII among them.
[[nodiscard]] std::u16string japanese(std::size_t units)
{
    static constexpr std::u16string_view kKanji =
        u"日本語文字変換表漢字速度計算機械部分一致検索結果";
    std::mt19937 random(8);
    std::u16string text;
    while (text.size() < units) {
        const unsigned kind = static_cast<unsigned>(random() % 20);
        if (kind < 10) {
            text += static_cast<char16_t>(0x3042 + random() % 0x48);
        } else if (kind < 19) {
            text += kKanji[random() % kKanji.size()];
        } else {
            text += static_cast<char16_t>('a' + random() % 26);
        }
    }
    return text;
}

[[nodiscard]] std::u16string chinese(std::size_t units)
{
    std::mt19937 random(9);
    std::u16string text;
    while (text.size() < units) {
        // The common part of the unified ideographs; a full stop now and then.
        text += random() % 20 == 0 ? u'\u3002' : static_cast<char16_t>(0x4E00 + random() % 0x1000);
    }
    return text;
}

[[nodiscard]] std::u16string ascii(std::size_t units)
{
    return words(units, 'a', 26, 100);
}

[[nodiscard]] std::u16string random_bmp(std::size_t units)
{
    std::mt19937 random(10);
    std::u16string text;
    while (text.size() < units) {
        const auto unit = static_cast<char16_t>(random());
        if ((unit & 0xF800) != 0xD800 && unit != 0xFFFF && unit != 0) text += unit;
    }
    return text;
}

// ---- engines ----

// One direction of one code set; converts all of its input into a buffer that is large enough.
class Engine {
public:
    virtual ~Engine() = default;
    virtual std::size_t run() = 0;  // bytes written
    [[nodiscard]] const char* output() const { return output_.data(); }

protected:
    explicit Engine(std::string input) : input_(std::move(input)), output_(4 * input_.size() + 64)
    {
    }
    std::string input_;
    std::vector<char> output_;
};

class Ours : public Engine {
public:
    Ours(const std::string& table, Direction direction, std::string input)
        : Engine(std::move(input)), cs_(kel_cs_new(table.c_str())), direction_(direction)
    {
        if (cs_ == nullptr) throw std::runtime_error("no table " + table);
    }
    ~Ours() override { (void)kel_cs_free(cs_); }
    std::size_t run() override
    {
        const auto room = static_cast<std::uint32_t>(output_.size());
        if (direction_ == Direction::kToUcs2) {
            return 2 * kel_to_ucs2(cs_, input_.data(), static_cast<std::int32_t>(input_.size()),
                                   reinterpret_cast<std::uint16_t*>(output_.data()), room / 2);
        }
        return kel_from_ucs2(cs_, reinterpret_cast<const std::uint16_t*>(input_.data()),
                             static_cast<std::int32_t>(input_.size() / 2), output_.data(), room);
    }

private:
    kel_cs_t* cs_;
    Direction direction_;
};

class Iconv : public Engine {
public:
    Iconv(const std::string& name, Direction direction, std::string input)
        : Engine(std::move(input)),
          converter_(direction == Direction::kToUcs2 ? iconv_open("UTF-16LE", name.c_str())
                                                     : iconv_open(name.c_str(), "UTF-16LE"))
    {
        if (converter_ == reinterpret_cast<iconv_t>(-1))
            throw std::runtime_error("no iconv " + name);
    }
    ~Iconv() override { (void)iconv_close(converter_); }
    std::size_t run() override
    {
        char* from = input_.data();
        std::size_t from_left = input_.size();
        char* to = output_.data();
        std::size_t to_left = output_.size();
        (void)iconv(converter_, nullptr, nullptr, nullptr, nullptr);
        (void)iconv(converter_, &from, &from_left, &to, &to_left);
        (void)iconv(converter_, nullptr, nullptr, &to, &to_left);
        return from_left == 0 ? output_.size() - to_left : 0;
    }

private:
    iconv_t converter_;
};

class Icu : public Engine {
public:
    Icu(const std::string& name, Direction direction, std::string input)
        : Engine(std::move(input)), direction_(direction)
    {
        UErrorCode error = U_ZERO_ERROR;
        converter_ = ucnv_open(name.c_str(), &error);
        if (U_FAILURE(error)) throw std::runtime_error("no ICU " + name);
    }
    ~Icu() override { ucnv_close(converter_); }
    std::size_t run() override
    {
        UErrorCode error = U_ZERO_ERROR;
        const auto size = static_cast<std::int32_t>(input_.size());
        const auto room = static_cast<std::int32_t>(output_.size());
        if (direction_ == Direction::kToUcs2) {
            return 2 * static_cast<std::size_t>(
                           ucnv_toUChars(converter_, reinterpret_cast<UChar*>(output_.data()),
                                         room / 2, input_.data(), size, &error));
        }
        return static_cast<std::size_t>(
            ucnv_fromUChars(converter_, output_.data(), room,
                            reinterpret_cast<const UChar*>(input_.data()), size / 2, &error));
    }

private:
    UConverter* converter_ = nullptr;
    Direction direction_;
};

// ICU's direct functions between UTF-8 and its own strings.
class IcuUtf8 : public Engine {
public:
    IcuUtf8(Direction direction, std::string input)
        : Engine(std::move(input)), direction_(direction)
    {
    }
    std::size_t run() override
    {
        UErrorCode error = U_ZERO_ERROR;
        const auto size = static_cast<std::int32_t>(input_.size());
        const auto room = static_cast<std::int32_t>(output_.size());
        std::int32_t written = 0;
        if (direction_ == Direction::kToUcs2) {
            u_strFromUTF8(reinterpret_cast<UChar*>(output_.data()), room / 2, &written,
                          input_.data(), size, &error);
            return 2 * static_cast<std::size_t>(written);
        }
        u_strToUTF8(output_.data(), room, &written, reinterpret_cast<const UChar*>(input_.data()),
                    size / 2, &error);
        return static_cast<std::size_t>(written);
    }

private:
    Direction direction_;
};

// ---- rows ----

struct Row {
    std::string name;
    std::string table;
    std::string iconv_name;
    std::string icu_name;  // empty: not a yardstick of this row
    std::u16string (*text)(std::size_t);
    std::size_t units;
};

// The thread's own time: another process on the core slows nobody's figure.
[[nodiscard]] double thread_seconds()
{
    timespec now = {};
    (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

[[nodiscard]] double seconds_of(Engine& engine, std::size_t repeats)
{
    const double start = thread_seconds();
    for (std::size_t i = 0; i < repeats; ++i) benchmark::DoNotOptimize(engine.run());
    return thread_seconds() - start;
}

// The input of a row: the text as UCS-2, or as what iconv writes for it. Characters that the set
// does not have are left out first.
class Inputs {
public:
    explicit Inputs(const Row& row)
    {
        const std::u16string text = row.text(row.units);
        const iconv_t probe = iconv_open(row.iconv_name.c_str(), "UTF-16LE");
        for (const char16_t unit : text) {
            char16_t one = unit;
            char out[16];
            char* from = reinterpret_cast<char*>(&one);
            std::size_t from_left = 2;
            char* to = out;
            std::size_t to_left = sizeof out;
            const bool has_code =
                iconv(probe, &from, &from_left, &to, &to_left) != static_cast<std::size_t>(-1);
            if (has_code) units_.append(reinterpret_cast<const char*>(&unit), 2);
        }
        (void)iconv_close(probe);
        Iconv writer(row.iconv_name, Direction::kFromUcs2, units_);
        const std::size_t size = writer.run();
        codes_.assign(writer.output(), size);
    }
    [[nodiscard]] const std::string& of(Direction direction) const
    {
        return direction == Direction::kToUcs2 ? codes_ : units_;
    }

private:
    std::string units_;
    std::string codes_;
};

void run_row(benchmark::State& state, const Row& row, Direction direction)
{
    const std::string input = Inputs(row).of(direction);
    Ours ours(row.table, direction, input);
    std::vector<std::pair<const char*, std::unique_ptr<Engine>>> yardsticks;
    yardsticks.emplace_back("iconv", std::make_unique<Iconv>(row.iconv_name, direction, input));
    if (row.icu_name == "UTF-8") {
        yardsticks.emplace_back("icu", std::make_unique<IcuUtf8>(direction, input));
        yardsticks.emplace_back("ucnv", std::make_unique<Icu>("UTF-8", direction, input));
    } else if (!row.icu_name.empty()) {
        yardsticks.emplace_back("icu", std::make_unique<Icu>(row.icu_name, direction, input));
    }
    Engine& oracle = *yardsticks.front().second;
    const std::size_t expected = oracle.run();
    if (ours.run() != expected || std::memcmp(ours.output(), oracle.output(), expected) != 0) {
        state.SkipWithError("our result is not iconv's");
        return;
    }
    // Rounds of all engines in turn, so that whatever slows the machine slows them alike.
    const std::size_t repeats = std::max<std::size_t>(1, (1U << 20) / (2 * row.units));
    double our_seconds = 0;
    std::vector<double> their_seconds(yardsticks.size());
    for (auto _ : state) {
        const double seconds = seconds_of(ours, repeats);
        state.SetIterationTime(seconds);
        our_seconds += seconds;
        for (std::size_t i = 0; i < yardsticks.size(); ++i) {
            their_seconds[i] += seconds_of(*yardsticks[i].second, repeats);
        }
    }
    const double rounds = static_cast<double>(state.iterations() * repeats);
    const double megabytes = static_cast<double>(input.size()) * rounds / 1e6;
    double best = their_seconds[0];
    state.counters["ours_MB/s"] = megabytes / our_seconds;
    for (std::size_t i = 0; i < yardsticks.size(); ++i) {
        best = std::min(best, their_seconds[i]);
        state.counters[std::string(yardsticks[i].first) + "_MB/s"] = megabytes / their_seconds[i];
    }
    state.counters["ratio"] = best / our_seconds;
}

constexpr std::size_t kLong = 1U << 19;  // 1 MiB of units
constexpr std::size_t kShort = 32;       // 64 bytes of units

[[nodiscard]] std::vector<Row> rows()
{
    return {
        {"utf8/latin", "UTF8", "UTF-8", "UTF-8", latin, kLong},
        {"utf8/japanese", "UTF8", "UTF-8", "UTF-8", japanese, kLong},
        {"utf8/chinese", "UTF8", "UTF-8", "UTF-8", chinese, kLong},
        {"utf8/random", "UTF8", "UTF-8", "UTF-8", random_bmp, kLong},
        {"ascii/utf8", "UTF8", "UTF-8", "", ascii, kLong},
        {"ascii/sbcs", "ISO88591", "ISO-8859-1", "", ascii, kLong},
        {"ascii/dbcs", "SHIFTJIS", "SHIFT_JIS", "", ascii, kLong},
        {"ascii/mbcs", "EUCJP", "EUC-JP", "", ascii, kLong},
        {"ascii/gb18030", "GB18030", "GB18030", "", ascii, kLong},
        {"latin/iso88591", "ISO88591", "ISO-8859-1", "ISO-8859-1", latin, kLong},
        {"japanese/shiftjis", "CP932", "CP932", "windows-31j", japanese, kLong},
        {"japanese/eucjp", "EUCJP", "EUC-JP", "EUC-JP", japanese, kLong},
        {"chinese/gbk", "GBK", "GBK", "GBK", chinese, kLong},
        {"chinese/big5", "BIG5", "BIG5", "Big5", chinese, kLong},
        {"gb18030/chinese", "GB18030", "GB18030", "", chinese, kLong},
        {"gb18030/random", "GB18030", "GB18030", "", random_bmp, kLong},
        {"ebcdic/1047", "IBM1047", "IBM1047", "ibm-1047", latin, kLong},
        {"ebcdic/939", "IBM939", "IBM939", "ibm-939", japanese, kLong},
        {"short/utf8-latin", "UTF8", "UTF-8", "UTF-8", latin, kShort},
        {"short/utf8-japanese", "UTF8", "UTF-8", "UTF-8", japanese, kShort},
        {"short/iso88591", "ISO88591", "ISO-8859-1", "ISO-8859-1", latin, kShort},
        {"short/shiftjis", "CP932", "CP932", "windows-31j", japanese, kShort},
        {"short/eucjp", "EUCJP", "EUC-JP", "EUC-JP", japanese, kShort},
        {"short/gbk", "GBK", "GBK", "GBK", chinese, kShort},
        {"short/gb18030", "GB18030", "GB18030", "gb18030", chinese, kShort},
        {"short/ebcdic1047", "IBM1047", "IBM1047", "ibm-1047", latin, kShort},
        {"short/ebcdic939", "IBM939", "IBM939", "ibm-939", japanese, kShort},
    };
}

}  // namespace

int main(int argc, char** argv)
{
    setenv("CORKELDIR", CORVANE_TABLES_DIR, /*overwrite=*/1);
    for (const Row& row : rows()) {
        for (const Direction direction : {Direction::kToUcs2, Direction::kFromUcs2}) {
            const std::string name = row.name + (direction == Direction::kToUcs2 ? "/to" : "/from");
            benchmark::RegisterBenchmark(name.c_str(), [row, direction](benchmark::State& state) {
                run_row(state, row, direction);
            })->UseManualTime();
        }
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
