// The catalogue runtime with an allocator of the program's own, and what it does when that one has
// nothing left.
#include <gtest/gtest.h>

#include <cstdlib>

#include "nls/set_state.hpp"
#include "tests/nls/support.hpp"

namespace {

int g_blocks = 0;          // allocated and not yet freed
int g_until_refusal = -1;  // allocations still to be granted before one is refused; below 0: all

}  // namespace

// In the place of the runtime's own covers.
void* nls_malloc(std::size_t size) noexcept
{
    if (g_until_refusal-- == 0) return nullptr;
    ++g_blocks;
    return std::malloc(size);
}
void* nls_realloc(void* block, std::size_t size) noexcept
{
    return std::realloc(block, size);
}
void nls_free(void* block) noexcept
{
    if (block != nullptr) --g_blocks;
    std::free(block);
}

namespace {

using namespace corvane::test;

class Memory : public testing::Test {
protected:
    ~Memory() override
    {
        g_until_refusal = -1;
        empty_cache();
        EXPECT_EQ(g_blocks, 0) << "blocks that nobody freed";
    }

    // Opens the catalogue with the allocation of this index refused.
    vor_cat_t open_refusing(int index, std::uint32_t flags = 0)
    {
        Capture captured(STDERR_FILENO);
        g_until_refusal = index;
        const vor_cat_t opened = vor_catopen(path.c_str(), flags);
        g_until_refusal = -1;
        errors = captured.take();
        return opened;
    }

    PrivateSettings settings;
    ScratchFolder folder;
    std::string path = folder.file("test.cat", catalogue({{1, {{1, "a"}}}, {2, {{1, "b"}}}}));
    std::string errors;
};

TEST_F(Memory, ComesFromTheProgramsAllocator)
{
    ASSERT_NE(vor_catopen(path.c_str(), VOR_LOAD_ALL), VOR_NO_CATALOGUE);
    EXPECT_EQ(g_blocks, 4 + 2 * 2) << "handle, sets, path, entry; texts and messages of two sets";
}

TEST_F(Memory, WithoutRoomForHandleOrSetsTheOpenFailsAndSaysWhy)
{
    for (const int index : {0, 1}) {
        EXPECT_EQ(open_refusing(index), VOR_NO_CATALOGUE);
        EXPECT_EQ(errors, "Message Catalog System: no more memory.\n");
        EXPECT_EQ(g_blocks, 0);
    }
}

TEST_F(Memory, WithoutRoomForTheCacheEntryTheOpenFails)
{
    for (const int index : {2, 3}) {
        EXPECT_EQ(open_refusing(index), VOR_NO_CATALOGUE);
        EXPECT_EQ(cacheIndex(path.c_str()), -1);
        EXPECT_EQ(g_blocks, 0);
    }
}

TEST_F(Memory, OpeningAtOnceGoesOnPastASetForWhichThereIsNone)
{
    // Text block, text buffer and message records of the first set.
    for (const int index : {2, 3, 4}) {
        const vor_cat_t opened = open_refusing(index, VOR_LOAD_ALL);
        ASSERT_NE(opened, nullptr);
        ASSERT_NE(opened, VOR_NO_CATALOGUE);
        EXPECT_EQ(errors, "");
        EXPECT_EQ(opened->fd, -1);
        EXPECT_EQ(opened->sets[0].invalid, corvane::kSetNotLoaded);
        EXPECT_STREQ(vor_catgets(opened, 1, 1, "default"), "FTX1000W %s failed: %s\n");
        EXPECT_STREQ(vor_catgets(opened, 2, 1, "default"), "b");
        empty_cache();
    }
}

TEST_F(Memory, LookUpWithoutAnyFallsBackAndTheNextOneLoads)
{
    const vor_cat_t opened = vor_catopen(path.c_str(), 0);
    for (const int index : {0, 1, 2}) {
        g_until_refusal = index;
        EXPECT_EQ(loadSet(opened, &opened->sets[1]), -1);
        g_until_refusal = index;
        EXPECT_STREQ(vor_catgets(opened, 2, 1, "default"), "FTX1000W %s failed: %s\n");
    }
    g_until_refusal = -1;
    EXPECT_STREQ(vor_catgets(opened, 2, 1, "default"), "b");
}

}  // namespace
