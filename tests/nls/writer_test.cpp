// What the compiler writes: compiled files, constants, dumps, skeletons; and what it reads back.
#include <gtest/gtest.h>

#include "nls/set_state.hpp"
#include "tests/nls/compiler_support.hpp"

namespace {

using namespace corvane::test;

// The same as `catalogue`, with the reserved words as the compiler writes them.
std::string written(const std::vector<std::pair<std::uint32_t, Messages>>& sets)
{
    std::string bytes = catalogue(sets);
    for (const std::string& filler : {be32(0xAAAAAAAA), be32(0xBBBBBBBB), be32(0xCCCCCCCC)}) {
        for (std::size_t at = bytes.find(filler); at != std::string::npos;
             at = bytes.find(filler)) {
            bytes.replace(at, 4, be32(0));
        }
    }
    return bytes;
}

TEST(CatalogueWriter, WritesTheBytesOfTheFormat)
{
    const Compiler compiler;
    ASSERT_EQ(compiler.parse("$set 2\n7 b\n5 a\n"), "");

    const std::string expected(
        "*nazgul*"
        "\0\0\0\1"
        "\0\0\0\0"
        "\0\0\0\0"
        "\0\0\0\1"
        "\0\0\0\x1c"
        "\0\0\0\2"
        "\0\0\0\0"
        "\0\0\0\x44"
        "\0\0\0\0"
        "\0\0\0\x40"
        "\0\0\0\0"
        "\0\0\0\4"
        "\0\0\0\2"
        "\0\0\0\0"
        "a\0b\0"
        "\0\0\0\5"
        "\0\0\0\0"
        "\0\0\0\0"
        "\0\0\0\0"
        "\0\0\0\7"
        "\0\0\0\0"
        "\0\0\0\2"
        "\0\0\0\0",
        28 + 36 + 4 + 32);
    EXPECT_EQ(compiler.compiled(), expected);
}

TEST(CatalogueWriter, LaysOutSetsOneBehindTheOther)
{
    const Compiler compiler;
    ASSERT_EQ(compiler.parse("$set 9\n1 nine\n$set 0\n$set 4\n3 c\n1 a\n2\n"), "");
    EXPECT_EQ(compiler.compiled(),
              written({{0, {}}, {4, {{1, "a"}, {2, ""}, {3, "c"}}}, {9, {{1, "nine"}}}}));
    EXPECT_EQ(cat->last->prev->last->textOffset, 3) << "the offset of message 3 is kept";
}

TEST(CatalogueWriter, DeletionsLeaveRecordsOut)
{
    const Compiler compiler;
    ASSERT_EQ(compiler.parse("$set 1\n1 a\n$set 2\n1 b\n2 c\n$delset 1\n"), "");
    MCDelMsg(1);  // of set 2, which is current
    EXPECT_EQ(compiler.compiled(), written({{2, {{2, "c"}}}}));
}

TEST(CatalogueWriter, WritesToAPipe)
{
    const Compiler compiler;
    ASSERT_EQ(compiler.parse("$set 1\n1 a\n"), "");
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    MCWriteCat(ends[1]);
    close(ends[1]);
    std::string bytes(200, '\0');
    bytes.resize(static_cast<std::size_t>(read(ends[0], bytes.data(), bytes.size())));
    close(ends[0]);
    EXPECT_EQ(bytes, written({{1, {{1, "a"}}}}));
}

TEST(CatalogueWriter, WithoutACatalogueWritesAHeaderOfNoSets)
{
    const Compiler compiler;
    std::string expected = header(0);
    EXPECT_EQ(compiler.compiled(), expected);
}

TEST(CatalogueWriter, FullDiskIsFatal)
{
    const Compiler compiler;
    ASSERT_EQ(compiler.parse("$set 1\n1 a\n"), "");
    const Descriptor full("/dev/full", O_WRONLY);
    EXPECT_EXIT(MCWriteCat(full), testing::ExitedWithCode(1),
                "^gencat: unable to write the output on line 2\n1 a\n$");
}

TEST(CatalogueWriter, RuntimeReadsWhatTheCompilerWrote)
{
    const Compiler compiler;
    std::string source;
    for (int set = 0; set < 5; ++set) {
        source += "$set " + std::to_string(set * 3) + "\n";
        for (int number = 1; number < 50; number += 1 + set) {
            source += std::to_string(number) + " text " + std::to_string(set) + "." +
                      std::to_string(number) + "\n";
        }
    }
    ASSERT_EQ(compiler.parse(source), "");
    const ScratchFolder folder;
    const PrivateSettings settings;
    const vor_cat_t opened = vor_catopen(folder.file("test.cat", compiler.compiled()).c_str(), 0);

    for (const MCSetNode* set = cat->first; set != nullptr; set = set->next) {
        for (const MCMessageNode* message = set->first; message != nullptr;
             message = message->next) {
            EXPECT_STREQ(vor_catgets(opened, set->setId, message->msgId, ""), message->text);
        }
    }
    EXPECT_EQ(opened->numSets, 5);
    empty_cache();
}

TEST(CatalogueReader, AddsSetsAndMessagesToTheOnesInMemory)
{
    const Compiler compiler;
    ASSERT_EQ(compiler.parse("$set 1 # Name\n1 old\n2 kept\n"), "");
    compiler.read(catalogue({{1, {{1, "new"}, {3, "more"}}}, {5, {}}}));
    EXPECT_EQ(Compiler::model(), "1{1=new|2=kept|3=more}5{}");
}

TEST(CatalogueReader, SkipsDeletedRecordsAndFollowsTheChainWhateverTheSetCount)
{
    const Compiler compiler;
    const std::string data("x\0y\0", 4);
    compiler.read(header(5) + set_record(1, 64, 0, 0, 0, 0, /*invalid=*/7) +
                  set_record(2, 0, 104, 100, 4, 2) + data + message_record(1, 0, /*invalid=*/1) +
                  message_record(2, 2));
    EXPECT_EQ(Compiler::model(), "2{2=y}");
}

TEST(CatalogueReader, SetWithoutTextsIsNotReadFurther)
{
    const Compiler compiler;
    compiler.read(header(1) + set_record(2, 0, UINT32_MAX, UINT32_MAX, 0, 5));
    EXPECT_EQ(Compiler::model(), "2{}");
}

TEST(CatalogueReader, CorruptFilesAreFatal)
{
    const std::string data("x\0", 2);
    for (const std::string& bytes :
         {std::string(), header(1).substr(0, 27), "?" + header(1).substr(1), header(1),
          header(0) + set_record(1, 0, 0, 0, 0, 0),
          header(UINT32_MAX) + set_record(1, 0, 0, 0, 0, 0),
          header(1) + set_record(1, 28, 0, 0, 0, 0), header(1) + set_record(1, 64, 0, 0, 0, 0),
          header(1, 5), header(1) + set_record(1, 0, 64, 64, 3, 0) + data,
          header(1) + set_record(1, 0, 66, 64, 2, 1) + data,
          header(1) + set_record(1, 0, 66, 64, 2, UINT32_MAX) + data + message_record(1, 0),
          header(1) + set_record(1, 0, 66, 64, 2, 1) + data + message_record(1, 2),
          header(1) + set_record(1, 0, 65, 64, 1, 1) + "x" + message_record(1, 0)}) {
        const Compiler compiler;
        EXPECT_EXIT(compiler.read(bytes), testing::ExitedWithCode(1),
                    "^gencat: corrupt message catalog on line 0\n\n$");
    }
}

TEST(CatalogueReader, TextsMayBeSharedButNotWithoutBound)
{
    const auto shared = [](std::uint32_t messages) {
        std::string records;
        for (std::uint32_t number = 1; number <= messages; ++number)
            records += message_record(number, 0);
        const std::string data = std::string(9999, 'x') + '\0';
        return header(1) + set_record(2, 0, 10064, 64, 10000, messages) + data + records;
    };
    const Compiler compiler;
    compiler.read(shared(50));
    EXPECT_EQ(cat->first->last->msgId, 50);
    EXPECT_EXIT(compiler.read(shared(200)), testing::ExitedWithCode(1),
                "^gencat: corrupt message catalog on line 0\n\n$");
}

TEST(CatalogueReader, OtherVersionIsFatal)
{
    const Compiler compiler;
    for (const std::uint32_t sets : {1U, 0U}) {
        EXPECT_EXIT(compiler.read(header(sets, 28, 2)), testing::ExitedWithCode(1),
                    "^gencat: unrecognized catalog version on line 0\n\n$");
    }
}

constexpr char kMacros[] =
    "/* Use these Macros to compose and decompose setId's and msgId's */\n"
    "#ifndef MCMakeId\n"
    "# define MCMakeId(s,m)\t(unsigned long)(((unsigned short)s<<(sizeof(short)*8))\\\n"
    "\t\t\t\t\t|(unsigned short)m)\n"
    "# define MCSetId(id)\t(unsigned int) (id >> (sizeof(short) * 8))\n"
    "# define MCMsgId(id)\t(unsigned int) ((id << (sizeof(short) * 8))\\\n"
    "\t\t\t\t\t>> (sizeof(short) * 8))\n"
    "#endif\n";

constexpr char kNamed[] =
    "$set 1\n$ # Lone\n1 a\n"
    "$set 26 # Error\n$ # Disk\n10 b\n11 c\n$ # Net\n300 d\n"
    "$set 65537 # Big\n$ # Far\n65538 e\n";

TEST(ConstantsWriter, DefinesForC)
{
    const Compiler compiler;
    ASSERT_EQ(compiler.parse(kNamed), "");
    EXPECT_EQ(compiler.constants(0, false),
              "#define Lone\t0x1\n"
              "\n#define ErrorSet\t0x1a\n#define ErrorDisk\t0xa\n#define ErrorNet\t0x12c\n"
              "\n#define BigSet\t0x10001\n#define BigFar\t0x10002\n");
}

TEST(ConstantsWriter, LongConstantsForTheOtherLanguages)
{
    for (const std::int32_t type : {1, 2}) {
        const Compiler compiler;
        ASSERT_EQ(compiler.parse(kNamed), "");
        EXPECT_EQ(compiler.constants(type, false),
                  "const long Lone\t= 1;\n"
                  "\nconst long ErrorSet\t= 26;\nconst long ErrorDisk\t= 10;\nconst long "
                  "ErrorNet\t= 300;\n"
                  "\nconst long BigSet\t= 65537;\nconst long BigFar\t= 65538;\n");
    }
}

TEST(ConstantsWriter, CombinedIdentifiersHoldSixteenBitsOfEach)
{
    const Compiler compiler;
    ASSERT_EQ(compiler.parse(kNamed), "");
    EXPECT_EQ(
        compiler.constants(0, true),
        std::string(kMacros) +
            "#define Lone\t0x10001\n"
            "\n#define ErrorSet\t0x1a\n#define ErrorDisk\t0x1a000a\n#define ErrorNet\t0x1a012c\n"
            "\n#define BigSet\t0x10001\n#define BigFar\t0x10002\n");
}

TEST(ConstantsWriter, CombinedIdentifiersInDecimal)
{
    const Compiler compiler;
    ASSERT_EQ(compiler.parse("$set 40000\n$ # High\n1 a\n"), "");
    EXPECT_EQ(compiler.constants(2, true),
              std::string(kMacros) + "const long High\t= 2621440001;\n");
}

TEST(ConstantsWriter, NamesAreConsumed)
{
    const Compiler compiler;
    ASSERT_EQ(compiler.parse(kNamed), "");
    (void)compiler.constants(0, false);
    EXPECT_EQ(Compiler::model(), "1{1=a}26{10=b|11=c|300=d}65537{65538=e}");
    EXPECT_EQ(compiler.constants(1, true), kMacros);
}

TEST(ConstantsWriter, OtherLanguageIsFatalWithTheFirstConstant)
{
    for (const std::int32_t type : {-1, 3}) {
        const Compiler compiler;
        ASSERT_EQ(compiler.parse("$set 1\n1 a\n"), "");
        EXPECT_EQ(compiler.constants(type, true), "")
            << "nothing to write, nothing to complain about";
        ASSERT_EQ(compiler.parse("$set 1\n$ # A\n1 a\n"), "");
        EXPECT_EXIT((void)compiler.constants(type, false), testing::ExitedWithCode(1),
                    "gencat: not a recognized \\(programming\\) language type on line 3\n");
        ASSERT_EQ(compiler.parse("$set 1 # S\n"), "");
        EXPECT_EXIT((void)compiler.constants(type, false), testing::ExitedWithCode(1),
                    "gencat: not a recognized \\(programming\\) language type on line 1\n");
    }
}

TEST(Dump, WritesSetsAndMessagesAsSource)
{
    const Compiler compiler;
    ASSERT_EQ(compiler.parse("$set 1 # Errors\n$ # Disk\n1 a\\\\b\n2\n$set 3\n7 x\\ny\\n\n"), "");
    EXPECT_EQ(compiler.dumped(),
              "$set 1 # Errors\n\n# Disk\n1\ta\\\\b\n2\t\n\n"
              "$set 3\n\n7\tx\\n\\\ny\\n\\\n\n\n");
}

TEST(Dump, OfAnEmptyCatalogueIsEmpty)
{
    const Compiler compiler;
    ASSERT_EQ(compiler.parse(""), "");
    EXPECT_EQ(compiler.dumped(), "");
}

TEST(Dump, WithoutACatalogueEndsTheProcess)
{
    const Compiler compiler;
    EXPECT_EXIT(MCDumpcat(stdout), testing::ExitedWithCode(1), "^No catalog open\n$");
    EXPECT_EXIT(MCTranslatecat(stdout), testing::ExitedWithCode(1), "^No catalog open\n$");
}

TEST(Dump, ParsedAgainGivesTheSameCatalogue)
{
    std::string every_byte;
    for (int byte = 1; byte < 256; ++byte) every_byte += static_cast<char>(byte);
    const std::string compiled = written({{0, {{1, "zero"}}},
                                          {2,
                                           {{1, every_byte},
                                            {2, ""},
                                            {5, " leading and trailing "},
                                            {6, "\n\n"},
                                            {7, "\\"},
                                            {8, "\\n"},
                                            {9, "\"quoted\""},
                                            {1000000, "$set 5\n1 x"}}},
                                          {3, {}}});
    const Compiler first;
    first.read(compiled);
    const std::string dump = first.dumped();

    const Compiler second;
    ASSERT_EQ(second.parse(dump), "");

    EXPECT_EQ(second.compiled(), compiled);
}

TEST(Skeleton, TakesTranslationsWhereThereAreAny)
{
    const Compiler compiler;
    ASSERT_EQ(compiler.parse("$set 1\n1 one\n2 two\n4 four\\n\n9 nine\n"
                             "$set 2\n2 zwei\n3 drei\n9 neun\\\\\n"),
              "");
    EXPECT_EQ(compiler.skeleton(), "$set 2\n\n1\tone\n2\tzwei\n4\tfour\\n\\\n\n9\tneun\\\\\n\n");
}

TEST(Skeleton, WithoutSetTwoRepeatsSetOne)
{
    const Compiler compiler;
    ASSERT_EQ(compiler.parse("$set 1 # Named\n$ # A\n1 one\n"), "");
    EXPECT_EQ(compiler.skeleton(), "$set 2\n\n1\tone\n\n");
}

TEST(Skeleton, NeedsSetOne)
{
    const Compiler compiler;
    ASSERT_EQ(compiler.parse("$set 2\n1 one\n"), "");
    EXPECT_EXIT((void)compiler.skeleton(), testing::ExitedWithCode(1),
                "^gencat: specified set doesn't exist on line 2\n1 one\n$");
}

}  // namespace
