// Finding a volume's disks among images by their signatures.
#include "client/disk_finder.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "client/failure.hpp"
#include "tests/client/fake_controller.hpp"

namespace corvane {
namespace {

using test::image_with;
using test::TemporaryFile;

VolumeDisk disk_with(const std::string& signature, std::int64_t offset)
{
    VolumeDisk disk;
    std::ranges::copy(signature, disk.signature.begin());
    disk.signature_bytes = static_cast<std::int32_t>(signature.size());
    disk.signature_offset = offset;
    return disk;
}

Volume volume_of(std::vector<VolumeDisk> disks)
{
    Volume volume;
    volume.block_bytes = 4096;
    volume.disks = std::move(disks);
    return volume;
}

std::string failure_of(const std::function<void()>& body)
{
    try {
        body();
    } catch (const Failure& failure) {
        return failure.what();
    }
    return "nothing failed";
}

TEST(DiskFinder, EachDiskIsFoundByItsOwnSignature)
{
    const TemporaryFile other(image_with("nothing", 8192, {}));
    const TemporaryFile second(image_with("2", 8192, {{1000, "second"}}));
    const TemporaryFile first(image_with("first", 8192, {}));
    const Volume volume = volume_of({disk_with("first", 100), disk_with("second", 1000)});
    const Candidates candidates = candidates_from({other.path(), second.path(), first.path()}, 0);

    const auto disks = open_disks(volume, candidates, Access::kRead, {true, true});

    EXPECT_EQ(disks[0]->name(), first.path());
    EXPECT_EQ(disks[1]->name(), second.path());
}

TEST(DiskFinder, MissingDiskIsNamedBySignature)
{
    const TemporaryFile other(image_with("nothing", 8192, {}));
    const Volume volume = volume_of({disk_with("first", 100)});

    EXPECT_EQ(
        failure_of([&] {
            (void)open_disks(volume, candidates_from({other.path()}, 0), Access::kRead, {true});
        }),
        "disk 0 of the volume, with the signature 6669727374 at byte 100, was not found among 1 "
        "named disks; name its device or image with --disk");
}

TEST(DiskFinder, DisksThatAreNotNeededAreNotLookedFor)
{
    const TemporaryFile first(image_with("first", 8192, {}));
    const Volume volume = volume_of({disk_with("first", 100), disk_with("absent", 100)});
    const auto disks =
        open_disks(volume, candidates_from({first.path()}, 0), Access::kRead, {true, false});

    EXPECT_NE(disks[0], nullptr);
    EXPECT_EQ(disks[1], nullptr);
}

TEST(DiskFinder, TwoDisksWithOneSignatureAreRefused)
{
    const TemporaryFile one(image_with("first", 8192, {}));
    const TemporaryFile two(image_with("first", 8192, {}));
    const Volume volume = volume_of({disk_with("first", 100)});

    EXPECT_EQ(failure_of([&] {
                  (void)open_disks(volume, candidates_from({one.path(), two.path()}, 0),
                                   Access::kRead, {true});
              }),
              "disk 0 of the volume is not one disk: " + one.path() + " and " + two.path() +
                  " carry the signature 6669727374; name the right one with --disk");
}

TEST(DiskFinder, OneDiskUnderTwoNamesCountsOnce)
{
    const TemporaryFile one(image_with("first", 8192, {}));
    const std::string link = one.path() + ".link";
    std::filesystem::create_symlink(one.path(), link);
    const Candidates candidates = candidates_from({one.path(), link, one.path()}, 0);
    std::filesystem::remove(link);

    EXPECT_EQ(candidates.paths, std::vector<std::string>{one.path()});
}

TEST(DiskFinder, SignatureBehindTheEndIsNoMatch)
{
    const TemporaryFile small(std::string(103, 'x') + "fi");
    const Candidates candidates = candidates_from({small.path()}, 0);

    EXPECT_TRUE(find_disk(disk_with("first", 103), candidates).paths.empty());
    EXPECT_TRUE(find_disk(disk_with("first", INT64_MAX - 5), candidates).paths.empty());
    EXPECT_EQ(find_disk(disk_with("fi", 103), candidates).paths.size(), 1U);
}

TEST(DiskFinder, NamedDiskThatIsNotThereIsAnError)
{
    EXPECT_THROW((void)candidates_from({"/nonexistent/disk"}, 0), Failure);
    EXPECT_THROW((void)open_disk("/tmp", Access::kRead), Failure);
    EXPECT_THROW((void)open_disk("/dev/null", Access::kRead), Failure);
}

TEST(DiskFinder, BlockDevicesAreListedWithTheirPartitions)
{
    namespace files = std::filesystem;
    const TemporaryFile name;
    const files::path root = name.path() + ".sys";
    const auto device = [&root](const std::string& path, int sectors, bool is_partition) {
        files::create_directories(root / path);
        std::ofstream(root / path / "size") << sectors << "\n";
        if (is_partition) std::ofstream(root / path / "partition") << "1\n";
    };
    device("sda", 100, false);
    device("sda/sda1", 50, true);
    device("sda/queue", 50, false);
    device("loop0", 0, false);
    device("cciss!c0d0", 7, false);
    const auto found = block_devices(root.string());
    files::remove_all(root);

    EXPECT_EQ(found, (std::vector<std::string>{"/dev/cciss/c0d0", "/dev/sda", "/dev/sda1"}));
    EXPECT_TRUE(block_devices("/nonexistent").empty());
}

TEST(ImageDisk, ReadsAndWritesInsideOnly)
{
    const TemporaryFile file(std::string(8192, 'x'));
    const auto disk = open_disk(file.path(), Access::kReadWrite);
    const AlignedBuffer buffer(4096);
    std::ranges::fill(buffer.bytes(), std::byte{'y'});
    disk->write(4096, buffer.bytes());
    disk->flush();

    EXPECT_EQ(file.contents(), std::string(4096, 'x') + std::string(4096, 'y'));
    EXPECT_THROW(disk->read(4097, buffer.bytes()), Failure);
    EXPECT_THROW(disk->write(8192, buffer.bytes()), Failure);
    EXPECT_THROW(disk->read(-1, buffer.bytes()), Failure);
    EXPECT_THROW(disk->read(INT64_MAX, buffer.bytes()), Failure);
}

}  // namespace
}  // namespace corvane
