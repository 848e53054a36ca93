// Sets load once with any number of threads that ask first.
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <thread>

#include "nls/set_state.hpp"
#include "tests/nls/support.hpp"

namespace {

using namespace corvane::test;

constexpr int kThreads = 8;
constexpr int kSets = 40;
constexpr std::uint32_t kMessages = 30;

std::string text_of(int set, std::uint32_t message)
{
    return "set " + std::to_string(set) + " message " + std::to_string(message);
}

std::string large_catalogue()
{
    std::vector<std::pair<std::uint32_t, Messages>> sets;
    for (int set = 0; set < kSets; ++set) {
        Messages messages;
        for (std::uint32_t number = 1; number <= kMessages; ++number)
            messages.emplace_back(number, text_of(set, number));
        sets.emplace_back(set, messages);
    }
    return catalogue(sets);
}

}  // namespace

TEST(CatalogueThreads, EverySetLoadsOnceForAllThatAskAtTheSameTime)
{
    const PrivateSettings settings;
    const ScratchFolder folder;
    const std::string path = folder.file("test.cat", large_catalogue());
    const vor_cat_t cat = vor_catopen(path.c_str(), 1);
    ASSERT_NE(cat, nullptr);
    std::barrier start(kThreads);
    std::atomic<int> wrong = 0;
    // The text buffers that each thread saw: a second load would leave another one.
    std::vector<std::vector<const char*>> buffers(kThreads);

    std::vector<std::thread> threads;
    std::uint32_t message = 0;
    for (std::vector<const char*>& seen : buffers) {
        ++message;
        threads.emplace_back([&, message] {
            for (int set = 0; set < kSets; ++set) {
                start.arrive_and_wait();
                const char* const text =
                    vor_catgets(cat, set, static_cast<std::int32_t>(message), "");
                if (text_of(set, message) != text) ++wrong;
                seen.push_back(corvane::slot_address<const char>(MCGetSet(cat, set)->dataOffset));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();

    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(buffers[0].size(), static_cast<std::size_t>(kSets));
    for (const std::vector<const char*>& seen : buffers) EXPECT_EQ(seen, buffers[0]);
    empty_cache();
}
