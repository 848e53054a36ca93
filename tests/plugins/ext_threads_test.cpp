// Many threads on two volumes at once: every call keeps its own word.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/plugins/ext_image.hpp"
#include "tests/plugins/host_log.hpp"

namespace corvane::test {
namespace {

const Plugin& plugin()
{
    static const Plugin loaded(CORVANE_PLUGIN_FILE);
    return loaded;
}

// One client with a file of its own: allocates, writes, closes, reads back, again and again.
void write_and_read(const ExtImage& image, const std::string& path, unsigned seed,
                    std::atomic<int>& rounds_done)
{
    for (unsigned round = 0; round < 12; ++round) {
        const auto file = plugin().find(path);
        const std::string content =
            pattern(1000 + (seed * 7919 + round * 31337) % 60000, seed + round);
        const auto size = static_cast<std::int64_t>(content.size());
        EXPECT_EQ(plugin().map(file).result, 0U);
        EXPECT_EQ(plugin().set_sizes(file, size, size), 0U);
        const Map map = plugin().map(file, 0, -1, FS_M_FLAG_REMAP);
        EXPECT_EQ(image.write_through(map, 0, content), content.size());
        EXPECT_EQ(plugin().set_sizes(file, size, size), 0U);
        EXPECT_EQ(plugin().unlock(file), 0U);
        EXPECT_EQ(image.read_through(plugin().map(file)), content);
        EXPECT_EQ(plugin().unlock(file), 0U);
        ++rounds_done;
    }
}

// Readers share one file that nobody changes.
void read_shared(const ExtImage& image, const std::string& path, const std::string& content)
{
    for (int round = 0; round < 40; ++round) {
        const auto file = plugin().find(path);
        EXPECT_EQ(image.read_through(plugin().map(file)), content);
        (void)plugin().unlock(file);  // another reader may have been first
    }
}

TEST(ExtThreads, ClientsDoNotDisturbEachOther)
{
    const Scratch scratch;
    const ExtImage first(scratch, "-t ext4 -b 1024", 8192, "first");
    const ExtImage second(scratch, "-t ext3 -b 1024", 8192, "second");
    const std::string shared = pattern(50000, 99);
    for (const ExtImage* const image : {&first, &second}) {
        image->put("shared", shared);
        for (const char* const name : {"a", "b"}) image->put(name, "");
    }
    serve(plugin(), scratch,
          "/mnt/1 ext " + first.path() + " rw\n/mnt/2 ext " + second.path() + " rw\n");
    std::atomic<int> rounds_done{0};
    {
        std::vector<std::jthread> threads;
        unsigned seed = 1;
        for (const char* const name : {"a", "b"}) {
            threads.emplace_back([&, name, s = seed++] {
                write_and_read(first, std::string("/mnt/1/") + name, s, rounds_done);
            });
            threads.emplace_back([&, name, s = seed++] {
                write_and_read(second, std::string("/mnt/2/") + name, s, rounds_done);
            });
        }
        threads.emplace_back([&] { read_shared(first, "/mnt/1/shared", shared); });
        threads.emplace_back([&] { read_shared(second, "/mnt/2/shared", shared); });
    }
    EXPECT_EQ(rounds_done, 48);
    first.expect_clean("the first volume");
    second.expect_clean("the second volume");
}

}  // namespace
}  // namespace corvane::test
