// Memory of the OS layer.
#include "osl/memory.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>

#include "osl/bytes.hpp"

// Sanitizers end the process for what the C library answers with a null, unless told not to.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options()
{
    return "allocator_may_return_null=1";
}
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options()
{
    return "allocator_may_return_null=1";
}

namespace {

using corvane::allocation_tag;
using corvane::osl_ptr;

TEST(OslMemory, MallocGivesUsableBlocksWhateverTheTag)
{
    for (const std::uint32_t tag : {0U, 0xabcdU, allocation_tag("sael"), allocation_tag("fsun")}) {
        const osl_ptr<void> block(OSL_Malloc(100, tag));
        ASSERT_NE(block, nullptr);
        std::memset(block.get(), 0x5A, 100);
    }
}

TEST(OslMemory, TagsAreFourBytesInMemoryOrder)
{
    const std::uint32_t tag = allocation_tag("dcba");

    EXPECT_EQ(std::memcmp(&tag, "dcba", 4), 0);
}

TEST(OslMemory, MallocAlignIgnoresTheAlignment)
{
    const osl_ptr<void> block(OSL_MallocAlign(/*alignment=*/3, 64));

    ASSERT_NE(block, nullptr);
    std::memset(block.get(), 1, 64);
}

TEST(OslMemory, CallocFillsWithZeros)
{
    // A dirty block of the same size goes back first, so that zeros are no accident.
    void* const dirty = OSL_Malloc(512, 0);
    std::memset(dirty, 0xFF, 512);
    OSL_Free(dirty);

    const osl_ptr<char> block(static_cast<char*>(OSL_Calloc(512, allocation_tag("lanh"))));

    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::string(block.get(), 512), std::string(512, '\0'));
}

TEST(OslMemory, TooMuchMemoryIsANullAndNoMore)
{
    volatile std::size_t too_much = SIZE_MAX / 2;
    EXPECT_EQ(OSL_Malloc(too_much, 0), nullptr);
    EXPECT_EQ(OSL_Calloc(too_much, 0), nullptr);
    EXPECT_EQ(OSL_MallocAlign(16, too_much), nullptr);
    OSL_Free(nullptr);
}

TEST(OslMemory, MemCopyNeedsBothPointers)
{
    std::array<char, 4> to{'a', 'b', 'c', 'd'};

    OSL_MemCopy(to.data(), nullptr, 4);
    OSL_MemCopy(nullptr, to.data(), 4);
    EXPECT_EQ(std::string(to.data(), 4), "abcd");

    OSL_MemCopy(to.data(), "wxyz", 3);
    EXPECT_EQ(std::string(to.data(), 4), "wxyd");
}

TEST(OslMemory, MemSetTakesTheLowByteAndReturnsTheCount)
{
    std::array<unsigned char, 5> area{1, 2, 3, 4, 5};

    EXPECT_EQ(OSL_MemSet(area.data() + 1, 0x1FE, 3), 3U);
    EXPECT_EQ(area, (std::array<unsigned char, 5>{1, 0xFE, 0xFE, 0xFE, 5}));
    EXPECT_EQ(OSL_MemSet(area.data(), 0, 0), 0U);
    EXPECT_EQ(area[0], 1);
}

TEST(OslMemory, MemCompareOrdersUnsignedBytesByTheFirstDifference)
{
    EXPECT_EQ(OSL_MemCompare("\x80", "\x7f", 1), 1);
    EXPECT_EQ(OSL_MemCompare("\x7f", "\x80", 1), -1);
    EXPECT_EQ(OSL_MemCompare("a\x01\xff", "a\x02\x01", 3), -1);
    EXPECT_EQ(OSL_MemCompare("abc", "abd", 2), 0);
    EXPECT_EQ(OSL_MemCompare("a\0b", "a\0a", 3), 1);
    EXPECT_EQ(OSL_MemCompare("x", "y", 0), 0);
}

TEST(OslMemory, StrNCopyPadsAndMayLeaveNoZero)
{
    std::array<char, 6> to{};
    to.fill('#');

    EXPECT_EQ(OSL_StrNCopy(to.data(), "ab", 5), to.data());
    EXPECT_EQ(std::string(to.data(), 6), std::string("ab\0\0\0#", 6));

    OSL_StrNCopy(to.data(), "vwxyz", 3);
    EXPECT_EQ(std::string(to.data(), 4), std::string("vwx\0", 4));
}

}  // namespace
