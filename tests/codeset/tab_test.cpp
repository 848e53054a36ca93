// corvanetab: what it builds, shows and finds wrong, through the command itself.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <nlohmann/json.hpp>

#include "tests/codeset/support.hpp"
#include "tests/codeset/table_writer.hpp"

namespace {

using namespace corvane::test;
using testing::Test;
namespace fs = std::filesystem;

struct Outcome {
    int status = -1;
    std::string text;  // both streams
};

class Tab : public Test {
protected:
    void SetUp() override
    {
        std::string pattern = (fs::temp_directory_path() / "corvanetab-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
    }
    void TearDown() override { fs::remove_all(folder_); }

    [[nodiscard]] Outcome run(const std::string& arguments) const
    {
        const std::string command =
            "cd " + folder_.string() + " && " CORVANETAB " " + arguments + " 2>&1";
        FILE* const pipe = popen(command.c_str(), "r");
        Outcome outcome;
        std::array<char, 4096> buffer{};
        while (fgets(buffer.data(), buffer.size(), pipe) != nullptr) outcome.text += buffer.data();
        outcome.status = WEXITSTATUS(pclose(pipe));
        return outcome;
    }

    [[nodiscard]] std::string read(const std::string& name) const
    {
        std::ifstream file(folder_ / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    void write(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(folder_ / name, std::ios::binary) << bytes;
    }

    // What check says of a built table after `spoil` changed its image.
    [[nodiscard]] Outcome check_spoiled(const char* table,
                                        const std::function<void(std::string&)>& spoil)
    {
        const CsPtr cs = open_built(table);
        std::string image(static_cast<const char*>(cs->table), cs->table_size);
        spoil(image);
        write("SPOILED", image);
        return run("check SPOILED");
    }

    fs::path folder_;
};

void put16(std::string& image, std::size_t at, unsigned value)
{
    image[at] = static_cast<char>(value);
    image[at + 1] = static_cast<char>(value >> 8);
}

[[nodiscard]] unsigned word(const std::string& image, std::size_t at)
{
    const unsigned high = static_cast<unsigned char>(image[at + 1]);
    return static_cast<unsigned char>(image[at]) | high << 8;
}

// ---- usage ----

TEST_F(Tab, WrongUsageIsTwoAndOneLine)
{
    for (const char* arguments : {"", "build", "nosuch", "check", "build --nosuch X"}) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_EQ(std::count(outcome.text.begin(), outcome.text.end(), '\n'), 1) << outcome.text;
    }
    EXPECT_EQ(run("--help").status, 0);
    EXPECT_EQ(run("--version").status, 0);
}

TEST_F(Tab, FailureIsOneAndOneLine)
{
    for (const char* arguments :
         {"build nosuch", "build UTF-8", "build ISO-2022-JP", "build UTF-16", "check nosuch",
          "show nosuch", "build CP1252 -o no/such/folder"}) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 1) << arguments;
        EXPECT_EQ(std::count(outcome.text.begin(), outcome.text.end(), '\n'), 1) << outcome.text;
    }
}

// ---- build ----

TEST_F(Tab, BuildsUnderTheNameThatTheLibraryLooksFor)
{
    EXPECT_EQ(run("build ISO-8859-1").text,
              "ISO-8859-1: ASCII single-byte, 2144 bytes in ISO88591\n");
    EXPECT_EQ(run("check ISO88591").text, "ISO88591: sound\n");
}

TEST_F(Tab, WritesAliasFilesBesideTheTable)
{
    EXPECT_EQ(run("build KOI8-R -o K8 --alias R1 --alias R2").status, 0);

    EXPECT_EQ(read("R1"), "K8\n");
    EXPECT_EQ(read("R2"), "K8\n");
}

TEST_F(Tab, SaysWhatATableCannotDo)
{
    EXPECT_NE(run("build IBM930").text.find("bytes that the invariant set overrides: 0x15 0x81"),
              std::string::npos);
    EXPECT_NE(run("build CP1255").text.find("34 characters need more than one code"),
              std::string::npos);
    EXPECT_NE(run("build SHIFT_JIS").text.find("2 bytes below 0x80 are not ASCII"),
              std::string::npos);
    EXPECT_NE(run("build IBM1390").text.find("303 codes stand for characters beyond the BMP"),
              std::string::npos);
}

TEST_F(Tab, BuildsReproducibly)
{
    for (const ListedSet& set : listed_sets()) {
        if (set.table != "EUCJP" && set.table != "GB18030" && set.table != "IBM939") continue;
        ASSERT_EQ(run("build " + set.iconv_name + " -o AGAIN").status, 0);
        const CsPtr cs = open_built(set.table);
        EXPECT_EQ(read("AGAIN"), std::string(static_cast<const char*>(cs->table), cs->table_size));
    }
}

TEST_F(Tab, PrintsJson)
{
    const auto built = nlohmann::json::parse(run("build CP1252 --json").text);
    EXPECT_EQ(built["file"], "CP1252");
    EXPECT_EQ(built["family"], "ASCII single-byte");
    const auto shown = nlohmann::json::parse(run("show CP1252 --json").text);
    EXPECT_EQ(shown["type"], 1);
    EXPECT_EQ(shown["bytes"], built["bytes"]);
    const auto checked = nlohmann::json::parse(run("--json check CP1252").text);
    EXPECT_EQ(checked["sound"], true);
}

// ---- show ----

TEST_F(Tab, ShowsFamilyClassesAndCoverage)
{
    ASSERT_EQ(run("build EUC-JP").status, 0);

    const std::string text = run("show EUCJP").text;

    EXPECT_NE(text.find("3, ASCII multi-byte"), std::string::npos);
    EXPECT_NE(text.find("0x8F-0x8F: 3, lead of a sequence"), std::string::npos);
    EXPECT_NE(text.find("0xA0-0xA0: 255, invalid"), std::string::npos);
    EXPECT_NE(text.find("13169 characters written, 13167 of them read back"), std::string::npos);
}

TEST_F(Tab, ShowsNoAliasFile)
{
    write("ALIAS", "ISO88591\n");

    const Outcome outcome = run("show ALIAS");

    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.text.find("this is an alias file"), std::string::npos);
}

// ---- check ----

TEST_F(Tab, FindsEveryShippedTableSound)
{
    for (const ListedSet& set : listed_sets()) {
        const Outcome outcome =
            run("check " + std::string(tables_folder()) + "/codeset/" + set.table);
        EXPECT_EQ(outcome.status, 0) << outcome.text;
    }
}

struct Spoiled {
    const char* name;
    const char* table;
    std::function<void(std::string&)> spoil;
    const char* complaint;
};

// The place of a value in the data area, which follows the header.
[[nodiscard]] std::size_t place(unsigned value)
{
    return 1760 + std::size_t{4} * value;
}

// The start of the triple of bases of a direction, and a word behind the bases.
constexpr std::size_t kFromBases = 1760;
constexpr std::size_t kToBases = 1760 + 16;
[[nodiscard]] std::size_t range_word(const std::string& image, std::size_t base_at, unsigned number)
{
    return 1792 + 2 * (std::size_t{word(image, base_at)} + number);
}

[[nodiscard]] std::vector<Spoiled> spoiled_tables()
{
    const auto at16 = [](std::size_t at, unsigned value) {
        return [=](std::string& image) { put16(image, at, value); };
    };
    return {
        {"short", "ISO88591", [](std::string& image) { image.resize(1759); },
         "1759 bytes are fewer than the 1760 of a table"},
        {"magic", "ISO88591", at16(8, 0), "no \"ucv\" at offset 8"},
        {"type", "ISO88591", at16(48, 7), "type 7 has no family"},
        {"data area", "ISO88591", at16(2, 1), "the data area begins at 67296"},
        {"byte page", "ISO88591", at16(224 + 2 * 5, 9000), "page 0x05 (value 9000) ends outside"},
        {"class", "ISO88591", at16(1248 + 0x90, 0x0102), "byte 0x90 has class 2"},
        {"class 0", "EUCJP", at16(1248 + 0x90, 0x0100), "byte 0x90 has class 0"},
        {"cut", "SHIFTJIS", [](std::string& image) { image.resize(image.size() - 2); },
         "ends outside the file"},
        {"lead row", "SHIFTJIS", at16(736 + 2 * 0x93, 65000), "the row of byte 0x93 (value 65000)"},
        {"single row", "SHIFTJIS", at16(736, 65000), "the row of byte 0x00 (value 65000)"},
        {"code page", "SHIFTJIS", at16(224 + 2 * 0x4E, 65000), "page 0x4E (value 65000)"},
        {"code", "SHIFTJIS",
         [](std::string& image) { put16(image, place(word(image, 224 + 2 * 0x4E)), 0xFE40); },
         "U+4E00 has code 0xFE40, which cannot be read back"},
        {"EBCDIC row", "IBM939", at16(736 + 2 * 0x45, 65000), "the row of byte 0x45 (value 65000)"},
        {"EBCDIC page", "IBM939", at16(224 + 2 * 0x30, 65000), "page 0x30 (value 65000)"},
        {"node", "EUCJP", at16(736 + 2 * 0xB0, 65000), "node 65000 lies outside the file"},
        {"node count", "EUCJP",
         [](std::string& image) { put16(image, place(word(image, 736 + 2 * 0xB0)), 60000); },
         "(60000 entries) ends outside the file"},
        {"node bytes", "EUCJP",
         [](std::string& image) { put16(image, place(word(image, 736 + 2 * 0xB0)), 200); },
         "covers bytes 161 to 360"},
        {"inner node", "EUCJP",
         [](std::string& image) { put16(image, place(word(image, 736 + 2 * 0x8F)) + 4, 65000); },
         "node 65000 lies outside the file"},
        {"prefix index", "EUCJP",
         [](std::string& image) { put16(image, place(word(image, 224 + 2 * 0x4E)), 60000); },
         "prefix record 60000 (of U+4E00) ends outside"},
        {"prefix length", "EUCJP",
         [](std::string& image) {
             put16(image, 1760 + 16 * word(image, place(word(image, 224 + 2 * 0x4E))) + 14, 15);
         },
         "has 15 bytes, more than 14"},
        {"range block", "GB18030", at16(38, 65535), "UCS-2: "},
        {"range block behind the end", "GB18030", [](std::string& image) { image.resize(1780); },
         "the range block at 1760 lies outside"},
        {"index", "GB18030", at16(kFromBases + 6, 0x7FFF), "the index of keys from 0 lies outside"},
        {"index entry", "GB18030",
         [](std::string& image) { put16(image, range_word(image, kFromBases + 4, 3), 60000); },
         "from UCS-2: the walk of keys from 1536 runs out of the file at range 60000"},
        {"index behind its range", "GB18030",
         [](std::string& image) {
             const std::size_t at = range_word(image, kToBases + 4, 20);
             put16(image, at, word(image, at) + 1);
         },
         "to UCS-2: the index of keys from 10240 begins behind range"},
        {"range order", "GB18030",
         [](std::string& image) { put16(image, range_word(image, kFromBases, 4), 0); },
         "from UCS-2: range 1 begins at 0, before the one in front of it"},
        {"range end", "GB18030",
         [](std::string& image) { put16(image, range_word(image, kFromBases, 1), 0); },
         "from UCS-2: range 0 ends at 0, before its first key"},
        {"range kind", "GB18030",
         [](std::string& image) { put16(image, range_word(image, kToBases, 2), 3); },
         "to UCS-2: range 0 has kind 3"},
        {"values", "GB18030", at16(kToBases + 10, 0x7FFF), "end outside the file"},
    };
}

TEST_F(Tab, SaysWhatIsWrong)
{
    for (const Spoiled& spoiled : spoiled_tables()) {
        const Outcome outcome = check_spoiled(spoiled.table, spoiled.spoil);
        EXPECT_EQ(outcome.status, 1) << spoiled.name << ": " << outcome.text;
        EXPECT_NE(outcome.text.find(spoiled.complaint), std::string::npos)
            << spoiled.name << ": " << outcome.text;
    }
}

TEST_F(Tab, NamesAHundredFaultsAndCountsTheRest)
{
    const Outcome outcome = check_spoiled(
        "ISO88591", [](std::string& image) { image.replace(224, 512, std::string(512, '\xFF')); });

    EXPECT_EQ(std::count(outcome.text.begin(), outcome.text.end(), '\n'), 101);
    EXPECT_NE(outcome.text.find("and 156 more"), std::string::npos);
}

// Nodes that lead in circles cost no more than their number.
TEST_F(Tab, ChecksLoopingNodesOnce)
{
    TableWriter table(KEL_TYPE_ASCII_MBCS);
    const unsigned node = table.add(4 + 2 * 256, 0);
    table.put16(TableWriter::place(node), 256);
    for (std::size_t i = 0; i < 256; ++i) table.put16(TableWriter::place(node) + 4 + 2 * i, node);
    for (unsigned lead = 0x80; lead < 255; ++lead) {
        table.set_class(lead, 250);
        table.set_byte_value(lead, node);
    }
    write("LOOP", table.image);

    EXPECT_EQ(run("check LOOP").text, "LOOP: sound\n");
}

}  // namespace
