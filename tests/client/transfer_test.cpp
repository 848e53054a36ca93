// Whole files read and written on an image, against a scripted controller of either byte order.
#include "client/transfer.hpp"

#include <gtest/gtest.h>

#include <cstring>

#include "client/failure.hpp"
#include "tests/client/fake_controller.hpp"

namespace corvane {
namespace {

using test::Extent;
using test::FakeController;
using test::image_with;
using test::kImageBytes;
using test::kSignature;
using test::kSliceStart;
using test::one_disk_script;
using test::Order;
using test::pattern;
using test::Script;
using test::TemporaryFile;

class MemorySink : public Sink {
public:
    void write(std::span<const std::byte> bytes) override
    {
        text_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    }
    void write_zeros(std::int64_t count) override
    {
        text_.append(static_cast<std::size_t>(count), '\0');
    }
    [[nodiscard]] const std::string& text() const { return text_; }

private:
    std::string text_;
};

class MemorySource : public Source {
public:
    explicit MemorySource(std::string text) : text_(std::move(text)) {}
    [[nodiscard]] std::int64_t size() const override
    {
        return static_cast<std::int64_t>(text_.size());
    }
    void read(std::span<std::byte> bytes) override
    {
        if (at_ >= fails_at_) throw Failure(kLocalFile, "the source broke; mend it");
        std::memcpy(bytes.data(), text_.data() + at_, bytes.size());
        at_ += bytes.size();
    }
    void fail_at(std::size_t at) { fails_at_ = at; }

private:
    std::string text_;
    std::size_t at_ = 0;
    std::size_t fails_at_ = SIZE_MAX;
};

struct Outcome {
    std::uint32_t code = 0;
    std::string what;
    std::string text;
};

Outcome read_all(const FakeController& controller, const std::vector<std::string>& disks)
{
    const Exchange exchange(controller.endpoint());
    MemorySink sink;
    Outcome outcome;
    try {
        OpenFile file(exchange, "data", "f", Intention::kRead);
        read_file(exchange, file, sink, {candidates_from(disks, 0), {}});
    } catch (const Failure& failure) {
        outcome = {failure.code(), failure.what(), {}};
    }
    outcome.text = sink.text();
    return outcome;
}

Outcome write_all(const FakeController& controller, const std::string& disk, Source& source)
{
    const Exchange exchange(controller.endpoint());
    try {
        OpenFile file(exchange, "data", "f", Intention::kWrite);
        write_file(exchange, file, source, {candidates_from({disk}, 0), {}});
    } catch (const Failure& failure) {
        return {failure.code(), failure.what(), {}};
    }
    return {};
}

Script script_of(std::int64_t size, std::vector<Extent> extents)
{
    Script script = one_disk_script();
    script.file_size = size;
    script.allocation = size;
    script.extents = std::move(extents);
    return script;
}

class TransferInBothOrders : public ::testing::TestWithParam<Order> {};
INSTANTIATE_TEST_SUITE_P(Orders, TransferInBothOrders,
                         ::testing::Values(Order::kLittle, Order::kBig), [](const auto& instance) {
                             return instance.param == Order::kLittle ? "Little" : "Big";
                         });

TEST_P(TransferInBothOrders, ReadsDataHolesUnwrittenAndGaps)
{
    const std::string a = pattern(8192, 1);
    const std::string b = pattern(5000, 2);
    const TemporaryFile image(
        image_with(kSignature, kImageBytes, {{kSliceStart + 40960, a}, {kSliceStart, b}}));
    Script script = script_of(24576 + 5000, {{0, 40960, 8192, 0, 0},
                                             {8192, 0, 4096, 0, 1},
                                             {12288, 81920, 8192, 0, 2},
                                             {24576, 0, 8192, 0, 0}});
    script.order = GetParam();
    FakeController controller(script);

    const Outcome outcome = read_all(controller, {image.path()});

    EXPECT_EQ(outcome.code, 0U) << outcome.what;
    EXPECT_TRUE(outcome.text == a + std::string(16384, '\0') + b);
    EXPECT_EQ(controller.asked(5).size(), 1U);
    EXPECT_EQ(controller.asked(5).at(0).file_size, -1);
}

TEST_P(TransferInBothOrders, ReadsLongMapsPieceByPiece)
{
    std::string text;
    std::string contents = image_with(kSignature, kImageBytes, {});
    Script script = script_of(0, {});
    for (int i = 0; i < 50; ++i) {
        const std::string piece = pattern(4096, static_cast<unsigned>(i));
        const std::size_t place = static_cast<std::size_t>(99 - 2 * i) * 4096;
        contents.replace(kSliceStart + place, piece.size(), piece);
        script.extents.push_back({i * 4096, static_cast<std::int64_t>(place), 4096, 0, 0});
        text += piece;
    }
    script.file_size = 50 * 4096;
    script.extents_per_reply = 7;
    script.order = GetParam();
    const TemporaryFile image(contents);
    FakeController controller(script);

    const Outcome outcome = read_all(controller, {image.path()});

    EXPECT_EQ(outcome.code, 0U) << outcome.what;
    EXPECT_TRUE(outcome.text == text);
    const auto maps = controller.asked(3);
    ASSERT_EQ(maps.size(), 7U);
    for (std::size_t i = 0; i < maps.size(); ++i) {
        EXPECT_EQ(maps[i].start, static_cast<std::int64_t>(7 * 4096 * (i + 1)));
        EXPECT_EQ(maps[i].length, 0);
    }
}

// A partial reply that could not hold a record is asked again for less.
TEST(Transfer, ReadsOnWhenARestDoesNotFitAnyReply)
{
    const std::string text = pattern(40 * 4096, 5);
    std::string contents = image_with(kSignature, kImageBytes, {});
    Script script = script_of(40 * 4096, {});
    for (std::int64_t i = 0; i < 40; ++i) {
        contents.replace(kSliceStart + static_cast<std::size_t>(2 * i) * 4096, 4096,
                         text.substr(static_cast<std::size_t>(i) * 4096, 4096));
        script.extents.push_back({i * 4096, 2 * i * 4096, 4096, 0, 0});
    }
    script.extents_per_reply = 10;
    script.hides_long_maps = true;
    const TemporaryFile image(contents);
    FakeController controller(script);

    const Outcome outcome = read_all(controller, {image.path()});

    EXPECT_EQ(outcome.code, 0U) << outcome.what;
    EXPECT_TRUE(outcome.text == text);
    for (const auto& asked : controller.asked(3)) EXPECT_LE(asked.length, 512000);
}

TEST(Transfer, ReadsFromTwoDisks)
{
    const std::string a = pattern(4096, 1);
    const std::string b = pattern(4096, 2);
    const TemporaryFile first(image_with("disk one", 65536, {{8192, a}}));
    const TemporaryFile second(image_with("disk two", 65536, {{16384, b}}));
    Script script = script_of(8192, {{0, 0, 4096, 1, 0}, {4096, 4096, 4096, 0, 0}});
    script.disks = {{"disk one", 100, 1, 10}, {"disk two", 100, 4, 2}};
    FakeController controller(script);

    EXPECT_TRUE(read_all(controller, {first.path(), second.path()}).text == b + a);
    EXPECT_EQ(read_all(controller, {first.path()}).code, kNoDisk);
    EXPECT_EQ(controller.asked(5).size(), 2U);
}

TEST(Transfer, EmptyFileNeedsNoDisk)
{
    FakeController controller(script_of(0, {}));
    const TemporaryFile none("not a disk of the volume");

    const Outcome outcome = read_all(controller, {none.path()});

    EXPECT_EQ(outcome.code, 0U) << outcome.what;
    EXPECT_EQ(outcome.text, "");
}

TEST(Transfer, DiskShorterThanTheSliceIsAnError)
{
    const TemporaryFile image(image_with(kSignature, kSliceStart + 4096, {}));
    FakeController controller(script_of(4096, {{0, 8192, 4096, 0, 0}}));

    const Outcome outcome = read_all(controller, {image.path()});

    EXPECT_EQ(outcome.code, kDiskError);
    EXPECT_EQ(outcome.text, "");
    EXPECT_EQ(controller.asked(5).size(), 1U);
}

TEST(Transfer, LaterPieceIsCheckedLikeTheFirst)
{
    const TemporaryFile image(image_with(kSignature, kImageBytes, {}));
    Script script = script_of(8192, {{0, 0, 4096, 0, 0}, {4096, 101 * 4096, 4096, 0, 0}});
    script.extents_per_reply = 1;
    FakeController controller(script);

    const Outcome outcome = read_all(controller, {image.path()});

    EXPECT_EQ(outcome.code, kBadReply);
    EXPECT_EQ(outcome.text.size(), 4096U);
    EXPECT_EQ(controller.asked(5).size(), 1U);
}

TEST_P(TransferInBothOrders, WritesInPlaceAndClosesWithTheSize)
{
    const std::string old = image_with(kSignature, kImageBytes, {});
    const TemporaryFile image(old);
    Script script = script_of(12288, {{0, 40960, 8192, 0, 0}, {8192, 0, 4096, 0, 0}});
    script.order = GetParam();
    FakeController controller(script);
    MemorySource source(pattern(10000, 9));

    const Outcome outcome = write_all(controller, image.path(), source);

    EXPECT_EQ(outcome.code, 0U) << outcome.what;
    std::string wanted = old;
    const std::string text = pattern(10000, 9);
    wanted.replace(kSliceStart + 40960, 8192, text.substr(0, 8192));
    wanted.replace(kSliceStart, 4096, text.substr(8192) + std::string(4096 - 1808, '\0'));
    EXPECT_TRUE(image.contents() == wanted);
    ASSERT_EQ(controller.asked(5).size(), 1U);
    EXPECT_EQ(controller.asked(5)[0].file_size, 10000);
    EXPECT_TRUE(controller.asked(4).empty());
}

// Blocks are asked for without a size change; the size comes with the close.
TEST(Transfer, GrowthAsksForBlocksFirst)
{
    const TemporaryFile image(image_with(kSignature, kImageBytes, {}));
    Script script = script_of(4096, {{0, 0, 4096, 0, 0}});
    script.on_allocate = [](Script& changed, std::int64_t bytes) {
        changed.allocation = bytes;
        changed.extents = {{0, 0, 4096, 0, 0}, {4096, 8192, 8192, 0, 0}};
    };
    FakeController controller(script);
    MemorySource source(pattern(12288, 3));

    const Outcome outcome = write_all(controller, image.path(), source);

    EXPECT_EQ(outcome.code, 0U) << outcome.what;
    const auto maps = controller.asked(3);
    ASSERT_FALSE(maps.empty());
    EXPECT_EQ(maps[0].allocation, 12288);
    EXPECT_EQ(maps[0].file_size, -1);
    EXPECT_GT(maps[0].length, 0) << "a whole map would count as another client's";
    EXPECT_EQ(controller.asked(5).at(0).file_size, 12288);
    EXPECT_TRUE(image.contents().substr(kSliceStart + 8192, 8192) ==
                pattern(12288, 3).substr(4096));
}

// A controller whose file system keeps blocks only inside a file makes it as long as its blocks
// until the close says how long it is.
TEST(Transfer, FileMayBeAsLongAsItsBlocksUntilTheClose)
{
    for (const std::int64_t grown : {9000, 12288, 12289}) {
        const TemporaryFile image(image_with(kSignature, kImageBytes, {}));
        Script script = script_of(4096, {{0, 0, 4096, 0, 0}});
        script.on_allocate = [grown](Script& changed, std::int64_t) {
            changed.file_size = grown;
            changed.extents = {{0, 0, 12288, 0, 0}};
        };
        FakeController controller(script);
        MemorySource source(pattern(9000, 4));

        const Outcome outcome = write_all(controller, image.path(), source);

        const bool is_taken = grown <= 12288;
        EXPECT_EQ(outcome.code, is_taken ? 0U : kBadReply) << outcome.what;
        EXPECT_EQ(controller.asked(5).at(0).file_size, is_taken ? 9000 : 4096);
    }
}

TEST(Transfer, AllocationNeverShrinks)
{
    const TemporaryFile image(image_with(kSignature, kImageBytes, {}));
    Script script = script_of(12288, {{4096, 4096, 8192, 0, 0}});
    script.allocation = 20480;
    script.on_allocate = [](Script& changed, std::int64_t) {
        changed.extents = {{0, 40960, 4096, 0, 0}, {4096, 4096, 8192, 0, 0}};
    };
    FakeController controller(script);
    MemorySource source(pattern(100, 3));

    EXPECT_EQ(write_all(controller, image.path(), source).code, 0U);
    EXPECT_EQ(controller.asked(3).at(0).allocation, 20480);
}

TEST(Transfer, NothingIsWrittenWhenBlocksLack)
{
    const std::string old = image_with(kSignature, kImageBytes, {});
    const TemporaryFile image(old);
    for (const std::int32_t validity : {1, 2}) {
        FakeController controller(
            script_of(8192, {{0, 0, 4096, 0, 0}, {4096, 4096, 4096, 0, validity}}));
        MemorySource source(pattern(8192, 3));
        const Outcome outcome = write_all(controller, image.path(), source);

        EXPECT_EQ(outcome.code, kNoBlocks);
        EXPECT_NE(outcome.what.find("; the file is as it was"), std::string::npos) << outcome.what;
        EXPECT_TRUE(image.contents() == old);
        ASSERT_EQ(controller.asked(5).size(), 1U);
        EXPECT_EQ(controller.asked(5)[0].file_size, 8192) << "added blocks go back";
    }
}

TEST(Transfer, NothingIsWrittenThroughAMapWithSharedBlocks)
{
    const std::string old = image_with(kSignature, kImageBytes, {});
    const TemporaryFile image(old);
    FakeController controller(script_of(8192, {{0, 0, 4096, 0, 0}, {4096, 0, 4096, 0, 0}}));
    MemorySource source(pattern(8192, 3));

    EXPECT_EQ(write_all(controller, image.path(), source).code, kBadReply);
    EXPECT_TRUE(image.contents() == old);
}

TEST(Transfer, NothingIsWrittenWhenTheDiskIsMissing)
{
    const TemporaryFile image(image_with("another disk", kImageBytes, {}));
    FakeController controller(script_of(4096, {{0, 0, 4096, 0, 0}}));
    MemorySource source(pattern(4096, 3));

    const Outcome outcome = write_all(controller, image.path(), source);

    EXPECT_EQ(outcome.code, kNoDisk);
    EXPECT_NE(outcome.what.find("; the file is as it was"), std::string::npos) << outcome.what;
    EXPECT_EQ(controller.asked(5).at(0).file_size, -1);
}

TEST(Transfer, FailureHalfWaySaysWhatIsWritten)
{
    constexpr std::size_t kChunk = 4 << 20;
    constexpr std::size_t kBlocks = 2 * kChunk / 4096;
    const TemporaryFile image(image_with(kSignature, kSliceStart + 2 * kChunk, {}));
    Script script = script_of(2 * kChunk, {{0, 0, 2 * kChunk, 0, 0}});
    script.disks[0].block_count = kBlocks;
    FakeController controller(script);
    MemorySource source(pattern(2 * kChunk, 4));
    source.fail_at(kChunk);

    const Outcome outcome = write_all(controller, image.path(), source);

    EXPECT_EQ(
        outcome.what,
        "the source broke; mend it; of 8388608 bytes the first 4194304 are new, those from byte "
        "4194304 on and the size are as before: put the file again");
    EXPECT_TRUE(image.contents().substr(kSliceStart, kChunk) ==
                pattern(2 * kChunk, 4).substr(0, kChunk));
    EXPECT_EQ(controller.asked(5).at(0).file_size, -1);
}

TEST(Transfer, FailingCloseIsReported)
{
    const TemporaryFile image(image_with(kSignature, kImageBytes, {}));
    Script script = script_of(4096, {{0, 0, 4096, 0, 0}});
    script.close_code = 104;
    FakeController controller(script);
    MemorySource source(pattern(4096, 4));

    const Outcome outcome = write_all(controller, image.path(), source);

    EXPECT_EQ(outcome.code, 104U);
    EXPECT_NE(outcome.what.find("all 4096 bytes are in their blocks"), std::string::npos)
        << outcome.what;
}

TEST(Transfer, NoBlockIsTouchedAfterTheLease)
{
    const std::string old = image_with(kSignature, kImageBytes, {});
    const TemporaryFile image(old);
    Script script = script_of(4096, {{0, 0, 4096, 0, 0}});
    script.lease_ms = 0;
    FakeController controller(script);
    MemorySource source(pattern(4096, 4));

    EXPECT_EQ(write_all(controller, image.path(), source).code, kLeaseEnded);
    EXPECT_TRUE(image.contents() == old);
    EXPECT_EQ(read_all(controller, {image.path()}).code, kLeaseEnded);
}

}  // namespace
}  // namespace corvane
