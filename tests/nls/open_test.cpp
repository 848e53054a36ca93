// Opening catalogue files: header checks, the chain of set records, loading at once, descriptors.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/nls/support.hpp"

namespace {

using namespace corvane::test;

std::string corrupt_message(const std::string& path)
{
    return "Message Catalog System: Attempted to use ZEL message catalog software to access\n" +
           path +
           " which is not a valid ZEL message catalog.\n"
           "Moving the ZEL message catalog directory to the front of NLSPATH\n"
           "may correct this problem.\n";
}

class Open : public testing::Test {
protected:
    ~Open() override { empty_cache(); }

    // Opens `bytes` as a file; what was written to standard error is in `errors`.
    vor_cat_t open_bytes(const std::string& bytes, std::uint32_t flags = 0)
    {
        path = folder.file("test.cat", bytes);
        Capture captured(STDERR_FILENO);
        const vor_cat_t opened = vor_catopen(path.c_str(), flags);
        errors = captured.take();
        return opened;
    }
    void expect_corrupt(const std::string& bytes, std::uint32_t flags = 0)
    {
        EXPECT_EQ(open_bytes(bytes, flags), nullptr);
        EXPECT_EQ(errors, corrupt_message(path));
    }

    ScratchFolder folder;
    std::string path;
    std::string errors;
};

TEST_F(Open, NullAndEmptyPathsGiveNoCatalogue)
{
    EXPECT_EQ(vor_catopen(nullptr, 0), VOR_NO_CATALOGUE);
    EXPECT_EQ(vor_catopen("", 0), VOR_NO_CATALOGUE);
    EXPECT_EQ(loadCat(nullptr, 0), VOR_NO_CATALOGUE);
    EXPECT_EQ(loadCat("", 0), VOR_NO_CATALOGUE);
}

TEST_F(Open, MissingFileGivesNoCatalogueWithoutAWord)
{
    Capture captured(STDERR_FILENO);
    EXPECT_EQ(vor_catopen(folder.path("absent.cat").c_str(), 0), VOR_NO_CATALOGUE);
    EXPECT_EQ(captured.take(), "");
}

TEST_F(Open, HandleHoldsFlagsDescriptorAndSetsInFileOrder)
{
    const vor_cat_t opened = open_bytes(catalogue({{2, {{1, "one"}}}, {7, {}}}), 1);

    ASSERT_NE(opened, nullptr);
    ASSERT_NE(opened, VOR_NO_CATALOGUE);
    EXPECT_EQ(errors, "");
    EXPECT_EQ(opened->flags, 1U);
    EXPECT_GT(opened->fd, 2);
    ASSERT_EQ(opened->numSets, 2);
    EXPECT_EQ(opened->sets[0].setId, 2U);
    EXPECT_EQ(opened->sets[0].invalid, static_cast<std::uint32_t>(-1)) << "not loaded yet";
    EXPECT_EQ(opened->sets[1].setId, 7U);
}

TEST_F(Open, ShortHeaderIsCorrupt)
{
    const std::string whole = header(1);
    for (std::size_t size = 0; size < 28; ++size) expect_corrupt(whole.substr(0, size));
}

TEST_F(Open, EachByteOfTheMagicCounts)
{
    for (std::size_t at = 0; at < 8; ++at) {
        std::string bytes = catalogue({{1, {{1, "x"}}}});
        bytes[at] = static_cast<char>(bytes[at] ^ 0x20);
        expect_corrupt(bytes);
    }
}

TEST_F(Open, DirectoryIsCorrupt)
{
    Capture captured(STDERR_FILENO);
    EXPECT_EQ(vor_catopen("/", 0), nullptr);
    EXPECT_EQ(captured.take(), corrupt_message("/"));
}

TEST_F(Open, PipeIsCorruptAndNobodyWaitsForItsWriter)
{
    path = folder.path("pipe");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    Capture captured(STDERR_FILENO);
    EXPECT_EQ(vor_catopen(path.c_str(), 0), nullptr);
    EXPECT_EQ(captured.take(), corrupt_message(path));
}

TEST_F(Open, OtherVersionsAreRefused)
{
    for (const std::uint32_t version : {0U, 2U, 0x01000000U}) {
        std::string bytes = catalogue({{1, {{1, "x"}}}});
        bytes.replace(8, 4, be32(version));
        EXPECT_EQ(open_bytes(bytes), VOR_NO_CATALOGUE);
        EXPECT_EQ(errors, "Message Catalog System: " + path + " is version " +
                              std::to_string(version) + ", we need 1.\n");
    }
}

TEST_F(Open, MinorVersionAndReservedWordAreNotRead)
{
    std::string bytes = catalogue({{1, {{1, "x"}}}});
    bytes.replace(12, 8, "whatever");
    EXPECT_NE(open_bytes(bytes), nullptr);
    EXPECT_EQ(errors, "");
}

TEST_F(Open, FewerThanOneSetIsRefused)
{
    for (const std::int32_t sets : {0, -1, INT32_MIN}) {
        EXPECT_EQ(open_bytes(header(static_cast<std::uint32_t>(sets))), VOR_NO_CATALOGUE);
        EXPECT_EQ(errors,
                  "Message Catalog System: " + path + " has " + std::to_string(sets) + " sets!\n");
    }
}

TEST_F(Open, VersionIsRefusedBeforeTheSetCount)
{
    EXPECT_EQ(open_bytes(header(0, 28, 2)), VOR_NO_CATALOGUE);
    EXPECT_EQ(errors, "Message Catalog System: " + path + " is version 2, we need 1.\n");
}

TEST_F(Open, DeletedSetsDoNotCount)
{
    const vor_cat_t opened =
        open_bytes(header(2) + set_record(1, 64, 0, 0, 0, 0) +
                   set_record(2, 100, 0, 0, 0, 0, /*invalid=*/1) + set_record(3, 0, 0, 0, 0, 0));

    ASSERT_NE(opened, nullptr);
    ASSERT_EQ(opened->numSets, 2);
    EXPECT_EQ(opened->sets[0].setId, 1U);
    EXPECT_EQ(opened->sets[1].setId, 3U);
}

TEST_F(Open, SetsBehindTheCountedOnesAreLeftOut)
{
    const vor_cat_t opened =
        open_bytes(header(1) + set_record(1, 64, 0, 0, 0, 0) + set_record(2, 0, 0, 0, 0, 0));
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(opened->numSets, 1);
}

TEST_F(Open, SetsMayLieAnywhere)
{
    const std::string bytes = header(2, 71) + std::string(7, 'x') + set_record(9, 0, 0, 0, 0, 0) +
                              set_record(4, 35, 0, 0, 0, 0);
    const vor_cat_t opened = open_bytes(bytes);
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(opened->sets[0].setId, 4U);
    EXPECT_EQ(opened->sets[1].setId, 9U);
}

TEST_F(Open, SetRecordThatIsCutOffIsCorrupt)
{
    const std::string whole = header(1) + set_record(1, 0, 0, 0, 0, 0);
    for (std::size_t size = 28; size < whole.size(); ++size) expect_corrupt(whole.substr(0, size));
}

TEST_F(Open, ChainThatEndsEarlyIsCorrupt)
{
    expect_corrupt(header(2) + set_record(1, 0, 0, 0, 0, 0));
}

TEST_F(Open, ChainThatComesBackIsCorrupt)
{
    expect_corrupt(header(2) + set_record(1, 28, 0, 0, 0, 0));
    expect_corrupt(header(1) + set_record(1, 28, 0, 0, 0, 0, /*invalid=*/1));
    expect_corrupt(header(3) + set_record(1, 64, 0, 0, 0, 0) + set_record(2, 28, 0, 0, 0, 0));
}

TEST_F(Open, SetRecordInsideTheHeaderIsCorrupt)
{
    expect_corrupt(header(1, 0) + set_record(1, 0, 0, 0, 0, 0));
    expect_corrupt(header(1, 27) + set_record(1, 0, 0, 0, 0, 0));
}

TEST_F(Open, PromiseOfTwoBillionSetsTakesNoMemory)
{
    expect_corrupt(header(INT32_MAX) + set_record(1, 0, 0, 0, 0, 0));
}

TEST_F(Open, FlagTwoLoadsEverySetAndClosesTheFile)
{
    const vor_cat_t opened =
        open_bytes(catalogue({{1, {{1, "a"}}}, {2, {{5, "b"}}}}), VOR_LOAD_ALL);

    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(opened->fd, -1);
    EXPECT_EQ(opened->sets[0].invalid, 0U);
    EXPECT_EQ(opened->sets[1].invalid, 0U);
    std::filesystem::remove(path);
    ASSERT_NE(MCGetMsg(MCGetSet(opened, 2), 5), nullptr);
}

TEST_F(Open, FlagTwoRefusesAFileWithACorruptSet)
{
    expect_corrupt(header(1) + set_record(1, 0, 64, 64, 1000, 0), VOR_LOAD_ALL);
    expect_corrupt(header(1) + set_record(1, 0, 64, 64, 0, 1000), VOR_LOAD_ALL);
}

TEST_F(Open, SetWithoutMessagesIsValid)
{
    const vor_cat_t opened = open_bytes(catalogue({{3, {}}}), VOR_LOAD_ALL);
    ASSERT_NE(opened, nullptr);
    MCSetT* const set = MCGetSet(opened, 3);
    ASSERT_NE(set, nullptr);
    EXPECT_EQ(set->numMsgs, 0U);
    EXPECT_EQ(MCGetMsg(set, 1), nullptr);
}

TEST_F(Open, SetWithoutMessagesIsValidWhereverItsEmptyBlocksLie)
{
    const vor_cat_t opened =
        open_bytes(header(1) + set_record(3, 0, 5000, 9000, 0, 0), VOR_LOAD_ALL);
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(errors, "");
    EXPECT_EQ(opened->sets[0].invalid, 0U);
}

TEST_F(Open, DescriptorIsClosedOnExec)
{
    const vor_cat_t opened = open_bytes(catalogue({{1, {}}}));
    ASSERT_NE(opened, nullptr);
    EXPECT_NE(fcntl(opened->fd, F_GETFD) & FD_CLOEXEC, 0);
}

// Gives the descriptor of a catalogue that is opened with the named standard descriptors closed.
int descriptor_with_closed(const std::string& path, std::initializer_list<int> closed)
{
    for (const int fd : closed) close(fd);
    const vor_cat_t opened = vor_catopen(path.c_str(), 0);
    return opened == nullptr || opened == VOR_NO_CATALOGUE ? 99 : opened->fd;
}

TEST_F(Open, CatalogueNeverSitsOnStandardInputOrOutput)
{
    path = folder.file("test.cat", catalogue({{1, {}}}));
    EXPECT_EXIT(_exit(descriptor_with_closed(path, {0}) > 1 ? 0 : 1), testing::ExitedWithCode(0),
                "");
    EXPECT_EXIT(_exit(descriptor_with_closed(path, {1}) > 1 ? 0 : 1), testing::ExitedWithCode(0),
                "");
    EXPECT_EXIT(_exit(descriptor_with_closed(path, {0, 1}) > 1 ? 0 : 1), testing::ExitedWithCode(0),
                "");
    // Standard input is free again afterwards.
    EXPECT_EXIT(
        {
            (void)descriptor_with_closed(path, {0});
            _exit(fcntl(0, F_GETFD) == -1 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(Open, RefusedFilesLeaveNoDescriptorBehind)
{
    const int before = dup(0);
    close(before);
    (void)open_bytes("short");
    (void)open_bytes(header(0));
    (void)open_bytes(header(1) + set_record(1, 0, 64, 64, 1000, 0), VOR_LOAD_ALL);
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

}  // namespace
