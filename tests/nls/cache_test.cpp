// The cache of open catalogues: hits, closing, eviction.
#include <gtest/gtest.h>

#include "tests/nls/support.hpp"

namespace {

using namespace corvane::test;

class Cache : public testing::Test {
protected:
    Cache() { empty_cache(); }
    ~Cache() override { empty_cache(); }

    vor_cat_t open_numbered(int number, std::uint32_t flags = 0)
    {
        const std::string name = path(number);
        if (!std::filesystem::exists(name)) {
            folder.file(std::to_string(number) + ".cat",
                        catalogue({{1, {{1, std::to_string(number)}}}}));
        }
        return vor_catopen(name.c_str(), flags);
    }
    [[nodiscard]] std::string path(int number) const
    {
        return folder.path(std::to_string(number) + ".cat");
    }
    void fill()
    {
        for (int number = 0; number < VOR_CACHE_SLOTS; ++number)
            handles[number] = open_numbered(number);
    }

    ScratchFolder folder;
    vor_cat_t handles[VOR_CACHE_SLOTS] = {};
};

TEST_F(Cache, SamePathGivesTheSameHandleWithoutReadingTheFileAgain)
{
    const vor_cat_t first = open_numbered(1);
    std::filesystem::remove(path(1));

    EXPECT_EQ(vor_catopen(path(1).c_str(), VOR_LOAD_ALL), first);

    EXPECT_EQ(first->flags, 0U) << "the flags of the first opening stay";
}

TEST_F(Cache, EntryHoldsACopyOfThePathTheHandleAndTheTick)
{
    std::string name = path(1);
    const vor_cat_t handle = open_numbered(1);

    ASSERT_NE(catCache[0], nullptr);
    EXPECT_EQ(catCache[0]->path, name);
    EXPECT_NE(catCache[0]->path, name.data());
    EXPECT_EQ(catCache[0]->catalogue, handle);
    EXPECT_EQ(catCache[0]->lastUse, 0U);
    EXPECT_EQ(catCache[0]->inUse, 1);
}

TEST_F(Cache, OnlyHitsAdvanceTheTicker)
{
    (void)open_numbered(1);
    (void)open_numbered(2);
    EXPECT_EQ(lookTicker, 0U);

    (void)open_numbered(2);
    EXPECT_EQ(lookTicker, 1U);
    EXPECT_EQ(catCache[1]->lastUse, 0U);

    (void)open_numbered(1);
    EXPECT_EQ(lookTicker, 2U);
    EXPECT_EQ(catCache[0]->lastUse, 1U);
    EXPECT_EQ(lookupCat(path(1).c_str()), catCache[0]->catalogue);
    EXPECT_EQ(catCache[0]->lastUse, 2U);
    EXPECT_EQ(lookupCat("/nowhere"), VOR_NO_CATALOGUE);
    EXPECT_EQ(lookTicker, 3U);
}

TEST_F(Cache, IndexNamesTheSlot)
{
    fill();
    EXPECT_EQ(cacheIndex(path(0).c_str()), 0);
    EXPECT_EQ(cacheIndex(path(9).c_str()), 9);
    EXPECT_EQ(cacheIndex("/nowhere"), -1);
}

TEST_F(Cache, NullPathIsNeverCached)
{
    const vor_cat_t handle = open_numbered(1);
    EXPECT_EQ(cacheIndex(nullptr), -1);
    EXPECT_EQ(lookupCat(nullptr), VOR_NO_CATALOGUE);
    EXPECT_EQ(addCat(nullptr, handle), -1);
    EXPECT_EQ(catCache[1], nullptr);
    EXPECT_EQ(lookTicker, 0U);
}

TEST_F(Cache, CloseOnlyClearsTheInUseFlag)
{
    const vor_cat_t handle = open_numbered(1);

    EXPECT_EQ(vor_catclose(handle), 0);

    EXPECT_EQ(catCache[0]->inUse, 0);
    EXPECT_EQ(vor_catclose(handle), -1) << "closed already";
    EXPECT_NE(MCGetMsg(MCGetSet(handle, 1), 1), nullptr) << "still cached";
    EXPECT_EQ(open_numbered(1), handle);
    EXPECT_EQ(catCache[0]->inUse, 0) << "a hit does not set it again";
}

TEST_F(Cache, CloseOfWhatIsNotOpenFails)
{
    EXPECT_EQ(vor_catclose(VOR_NO_CATALOGUE), -1);
    EXPECT_EQ(vor_catclose(nullptr), -1);
}

TEST_F(Cache, EleventhIsRefusedWhileTenAreOpen)
{
    fill();
    Capture out(STDOUT_FILENO);

    EXPECT_EQ(open_numbered(10), VOR_NO_CATALOGUE);

    EXPECT_EQ(out.take(), "") << "a catalogue that never was open is freed without a word";
    EXPECT_EQ(open_numbered(3), handles[3]) << "the ten are untouched";
}

TEST_F(Cache, EvictsTheClosedOneThatWasLookedUpLongestAgo)
{
    fill();
    (void)open_numbered(2);  // tick 0
    (void)open_numbered(7);  // tick 1
    (void)open_numbered(4);  // tick 2
    for (const int number : {4, 7}) EXPECT_EQ(vor_catclose(handles[number]), 0);
    const std::string line = "calling close on cat->fd " + std::to_string(handles[7]->fd) + "\n";
    Capture out(STDOUT_FILENO);

    const vor_cat_t eleventh = open_numbered(10);

    EXPECT_EQ(out.take(), line);
    ASSERT_NE(eleventh, VOR_NO_CATALOGUE);
    EXPECT_EQ(cacheIndex(path(10).c_str()), 7);
    EXPECT_EQ(cacheIndex(path(7).c_str()), -1);
    EXPECT_EQ(catCache[7]->lastUse, 3U);
    EXPECT_EQ(catCache[7]->inUse, 1);
    EXPECT_EQ(lookTicker, 3U) << "an entry does not advance the ticker";
}

TEST_F(Cache, TiesGoToTheLowestSlot)
{
    fill();
    for (const int number : {8, 5, 6}) EXPECT_EQ(vor_catclose(handles[number]), 0);
    Capture out(STDOUT_FILENO);
    (void)open_numbered(10);
    (void)out.take();
    EXPECT_EQ(cacheIndex(path(10).c_str()), 5);
}

TEST_F(Cache, AddFillsTheFirstEmptySlot)
{
    fill();
    {
        const Capture quiet(STDOUT_FILENO);
        real_catclose(catCache[6]->catalogue);
    }
    nls_free(catCache[6]->path);
    nls_free(catCache[6]);
    catCache[6] = nullptr;
    (void)vor_catclose(handles[2]);

    (void)open_numbered(10);

    EXPECT_EQ(cacheIndex(path(10).c_str()), 6);
    EXPECT_EQ(cacheIndex(path(2).c_str()), 2);
}

TEST_F(Cache, RealCloseIsSilentForAFileThatIsClosed)
{
    Capture out(STDOUT_FILENO);
    real_catclose(VOR_NO_CATALOGUE);
    real_catclose(nullptr);
    const vor_cat_t handle = open_numbered(1, VOR_LOAD_ALL);
    vor_cache_entry* const entry = catCache[0];
    catCache[0] = nullptr;
    nls_free(entry->path);
    nls_free(entry);

    real_catclose(handle);

    EXPECT_EQ(out.take(), "");
}

TEST_F(Cache, RealCloseClosesTheFile)
{
    const vor_cat_t handle = open_numbered(1);
    const int fd = handle->fd;
    (void)MCGetSet(handle, 1);

    empty_cache();

    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

}  // namespace
