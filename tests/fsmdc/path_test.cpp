// Paths: joining a directory and a name, and the strings of an area.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "fsmdc/service.h"
#include "mdcmain/log.h"

namespace {

std::vector<FSUNI> wide(const std::string& text)
{
    std::vector<FSUNI> units(text.begin(), text.end());
    units.push_back(0);
    return units;
}

// The first `count` units of `out`; "." for a unit that was not written.
std::string joined(const std::string& name, const std::string& directory, char separator,
                   std::uint32_t out_bytes, std::size_t count)
{
    std::vector<FSUNI> out(count, 0xEEEE);
    EXPECT_EQ(ConcatFilenameToPath(wide(name).data(), wide(directory).data(),
                                   static_cast<FSUNI>(separator), out.data(), out_bytes),
              out.data());
    std::string text;
    for (const FSUNI unit : out) {
        text += unit == 0xEEEE ? '.' : unit == 0 ? '0' : static_cast<char>(unit);
    }
    return text;
}

TEST(ConcatFilenameToPath, PutsOneSeparatorBetween)
{
    EXPECT_EQ(joined("file", "/vol", '/', 100, 12), "/vol/file0..");
    EXPECT_EQ(joined("file", "/vol/", '/', 100, 12), "/vol/file0..");
    EXPECT_EQ(joined("/file", "/vol", '/', 100, 12), "/vol/file0..");
    EXPECT_EQ(joined("/file", "/vol/", '/', 100, 12), "/vol/file0..");
    EXPECT_EQ(joined("file", "vol", ':', 100, 12), "vol:file0...");
    EXPECT_EQ(joined("//x", "/v", '/', 100, 8), "/v//x0..");
}

TEST(ConcatFilenameToPath, ANameOfOneSeparatorStays)
{
    EXPECT_EQ(joined("/", "/v", '/', 100, 8), "/v//0...");
}

TEST(ConcatFilenameToPath, AnEmptyDirectoryIsTheRoot)
{
    EXPECT_EQ(joined("file", "", '/', 100, 8), "/file0..");
}

// "/vol/" takes 10 bytes; "file" is appended when more than 10 are left.
TEST(ConcatFilenameToPath, ANameThatDoesNotFitIsLeftOut)
{
    EXPECT_EQ(joined("file", "/vol", '/', 21, 12), "/vol/file0..");
    EXPECT_EQ(joined("file", "/vol", '/', 20, 12), "/vol/0......");
    EXPECT_EQ(joined("file", "/vol", '/', 11, 12), "/vol/.......");
    EXPECT_EQ(joined("file", "/vol", '/', 10, 12), "/vol0.......");
}

TEST(ConcatFilenameToPath, ADirectoryThatDoesNotFitIsLeftOut)
{
    EXPECT_EQ(joined("file", "/vol", '/', 9, 12), "............");
    EXPECT_EQ(joined("file", "/vol", '/', 0, 12), "............");
}

TEST(ConcatFilenameToPath, SeparatorZeroJoinsAsItIs)
{
    EXPECT_EQ(joined("file", "/vol", '\0', 100, 12), "/volfile0...");
    EXPECT_EQ(joined("file", "/vol/", '\0', 100, 12), "/vol/file0..");
    EXPECT_EQ(joined("", "", '\0', 100, 3), "0..");
}

TEST(ConcatFilenameToPath, SeparatorZeroWritesTheWholePathOrNothing)
{
    EXPECT_EQ(joined("file", "/vol", '\0', 18, 12), "/volfile0...");
    EXPECT_EQ(joined("file", "/vol", '\0', 17, 12), "............");
    EXPECT_EQ(joined("file", "/vol", '\0', 7, 12), "............");
}

TEST(ConcatFilenameToPath, TheOldFormIsSeparatorZero)
{
    std::array<FSUNI, 10> out{};
    EXPECT_EQ(ConcatFilenameToPathOld(wide("ab").data(), wide("cd").data(), out.data(), sizeof out),
              out.data());
    EXPECT_EQ(std::string(out.begin(), out.begin() + 5), std::string("cdab\0", 5));
}

TEST(GetNextString, IsBehindTheFirstZeroUnlessThatIsTheLast)
{
    std::array<FSUNI, 6> area{'a', 'b', 0, 'c', 'd', 0};
    EXPECT_EQ(GetNextString(area.data(), 12), area.data() + 3);
    EXPECT_EQ(GetNextString(area.data(), 8), area.data() + 3);
    EXPECT_EQ(GetNextString(area.data(), 7), nullptr);
    EXPECT_EQ(GetNextString(area.data(), 6), nullptr);
    EXPECT_EQ(GetNextString(area.data(), 4), nullptr);
    EXPECT_EQ(GetNextString(area.data(), 0), nullptr);
    area[0] = 0;
    EXPECT_EQ(GetNextString(area.data(), 12), area.data() + 1);
}

std::string g_line;

TEST(PrintFsuni, TracesTheTextInBrackets)
{
    dbgSetOutputStringHandler([](const char* text) { g_line = text; });
    printFSUNI(wide("a/b").data());
    EXPECT_EQ(g_line, "FTX2013I [a/b]\n");
    g_line = "untouched";
    printFSUNI(nullptr);
    EXPECT_EQ(g_line, "untouched");
    const std::vector<FSUNI> foreign{'a', 0x4E2D, 'b', 0};
    printFSUNI(foreign.data());
    EXPECT_EQ(g_line, "FTX2013I [a?b]\n");
    printFSUNI(std::vector<FSUNI>(wide(std::string(5000, 'x'))).data());
    EXPECT_EQ(g_line.substr(0, 20), "FTX2013I [xxxxxxxxxx");
    dbgSetOutputStringHandler(nullptr);
}

TEST(Cookies, CompareAllThirtyTwoBytes)
{
    std::array<unsigned char, 32> a{};
    std::array<unsigned char, 32> b{};
    EXPECT_EQ(CompareFileCookies(a.data(), b.data()), 0);
    EXPECT_EQ(CompareVolCookies(a.data(), b.data()), 0);
    b[31] = 1;
    EXPECT_EQ(CompareFileCookies(a.data(), b.data()), 1);
    EXPECT_EQ(CompareVolCookies(a.data(), b.data()), 1);
}

}  // namespace
