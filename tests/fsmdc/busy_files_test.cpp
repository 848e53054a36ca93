// The table of busy files: what is asked for often is in it, with its count, whatever else comes.
#include "fsmdc/busy_files.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

namespace corvane {
namespace {

LeaseRecord lease_on(std::uint32_t file)
{
    LeaseRecord record{};
    std::memcpy(record.fileCookie, &file, sizeof file);
    record.volumeCookie[0] = 7;
    return record;
}

class Busy : public testing::Test {
protected:
    void note(std::uint32_t file, int times = 1)
    {
        const LeaseRecord record = lease_on(file);
        for (int i = 0; i < times; ++i) files_->note(record);
    }
    // Null when the file is not in the table.
    [[nodiscard]] std::unique_ptr<BusyFile> find(std::uint32_t file) const
    {
        std::vector<BusyFile> all(BusyFiles::kSets * BusyFiles::kPlaces);
        all.resize(files_->copy(all));
        for (const BusyFile& entry : all) {
            if (std::memcmp(entry.file_cookie, &file, sizeof file) == 0) {
                return std::make_unique<BusyFile>(entry);
            }
        }
        return nullptr;
    }

    std::unique_ptr<BusyFiles> files_ = std::make_unique<BusyFiles>();
};

TEST_F(Busy, EveryRequestOfAFileCounts)
{
    note(1, 5);
    note(2, 1000);

    ASSERT_TRUE(find(1) && find(2));
    EXPECT_EQ(find(1)->requests, 5U);
    EXPECT_EQ(find(2)->requests, 1000U);
    EXPECT_EQ(find(2)->volume_cookie[0], 7);
    EXPECT_FALSE(find(3));
}

TEST_F(Busy, ABusyFileStaysWhileMillionsOfOthersPass)
{
    for (std::uint32_t i = 0; i < 200'000; ++i) {
        note(1);
        note(1000 + i);
    }

    ASSERT_TRUE(find(1));
    EXPECT_EQ(find(1)->requests, 200'000U);
}

TEST_F(Busy, OneThatFellIdleMakesRoom)
{
    note(1, 1'000'000);
    ASSERT_TRUE(find(1));

    for (std::uint32_t i = 0; i < 100'000; ++i) note(1000 + i);

    EXPECT_FALSE(find(1));
}

TEST_F(Busy, NumbersNameOneStay)
{
    note(1);
    const std::uint32_t number = find(1)->number;
    ASSERT_NE(files_->find(number), nullptr);
    EXPECT_EQ(files_->find(number)->requests, 1U);
    for (std::uint32_t i = 0; i < 100'000; ++i) note(1000 + i);
    EXPECT_EQ(files_->find(number), nullptr);

    note(1, 50);

    ASSERT_TRUE(find(1));
    EXPECT_NE(find(1)->number, number);
    EXPECT_EQ(files_->find(0), nullptr);
}

TEST_F(Busy, CopiesNoMoreThanAsked)
{
    for (std::uint32_t i = 0; i < 5000; ++i) note(i, 2);
    std::vector<BusyFile> few(10);

    EXPECT_EQ(files_->copy(few), few.size());

    files_->clear();
    EXPECT_EQ(files_->copy(few), 0U);
}

}  // namespace
}  // namespace corvane
