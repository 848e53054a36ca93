// Creating and attaching the shared segment: sizes, second programs, failures.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <sys/utsname.h>

#include <cstring>
#include <string>

#include "mdcmain/segment.h"
#include "tests/mdcmain/private_machine.hpp"
#include "tests/mdcmain/segment_layout.hpp"

namespace {

using corvane::test::in_private_machine;
using corvane::test::output_of;
using corvane::test::read_file;
using corvane::test::status_of_child;
using corvane::test::write_file;
using ::testing::EndsWith;
using ::testing::HasSubstr;
namespace layout = corvane::test::layout;

constexpr int kKey = 1124;

shmid_ds segment_status()
{
    shmid_ds status{};
    EXPECT_EQ(shmctl(shmget(kKey, 0, 0), IPC_STAT, &status), 0);
    return status;
}

// A new machine gives its first segment the id 0, which a second look takes for a failure.
void use_up_the_first_id()
{
    ASSERT_EQ(shmget(IPC_PRIVATE, 4096, IPC_CREAT | 0600), 0);
}

// What another program of the product does first, with its own CORVANEVOLS (null: unset).
int map_in_another_program(
    const char* volumes, void (*then)() = [] {})
{
    return status_of_child([=] {
        if (fs != nullptr) shmdt(fs);
        fs = nullptr;
        volumes == nullptr ? unsetenv("CORVANEVOLS") : setenv("CORVANEVOLS", volumes, 1);
        fused_mapShared();
        then();
    });
}

TEST(SegmentSize, FollowsCorvanevolsFromThirtyTwo)
{
    struct Row {
        const char* volumes;
        std::size_t bytes;
        int stored;
    };
    for (const auto& row :
         {Row{nullptr, layout::kBytesFor32, 32}, Row{"10", layout::kBytesFor32, 32},
          Row{"-7", layout::kBytesFor32, 32}, Row{"many", layout::kBytesFor32, 32},
          Row{"32", layout::kBytesFor32, 32},
          Row{"33", layout::kBytesFor32 + layout::kVolumeBytes, 33},
          Row{"64", layout::kBytesFor64, 64}, Row{"64x", layout::kBytesFor64, 64}}) {
        in_private_machine([&row] {
            use_up_the_first_id();
            EXPECT_EQ(map_in_another_program(row.volumes), 0);
            const shmid_ds status = segment_status();
            EXPECT_EQ(status.shm_segsz, row.bytes) << row.volumes;
            EXPECT_EQ(status.shm_perm.mode & 0777U, 0777U);
            fused_mapShared();
            EXPECT_EQ(fs->maxVolumes, row.stored);
            EXPECT_EQ(fs->segmentSize, static_cast<int>(row.bytes));
        });
    }
}

TEST(SegmentSize, OneThatNoSegmentCanHaveIsACreateFailure)
{
    in_private_machine([] {
        EXPECT_EQ(
            output_of([] { EXPECT_EQ(map_in_another_program("2147483647"), 1); }),
            "Corvane error: shared mem create failed size:371531852948712 :Invalid argument\n");
    });
}

TEST(SegmentSetup, ASmallerExistingSegmentIsACreateFailure)
{
    in_private_machine([] {
        EXPECT_EQ(map_in_another_program(nullptr), 0);
        EXPECT_EQ(output_of([] { EXPECT_EQ(map_in_another_program("64"), 1); }),
                  "Corvane error: shared mem create failed size:13221048 :Invalid argument\n");
    });
}

TEST(SegmentSetup, AProgramWithFewerVolumesMapsTheCreatorsSize)
{
    in_private_machine([] {
        use_up_the_first_id();
        EXPECT_EQ(map_in_another_program("64"), 0);
        EXPECT_EQ(map_in_another_program(
                      "10",
                      [] {
                          auto* const bytes = reinterpret_cast<unsigned char*>(fs);
                          EXPECT_EQ(fs->segmentSize, static_cast<int>(layout::kBytesFor64));
                          bytes[layout::kBytesFor64 - 1] = 0x5A;
                          EXPECT_EQ(segment_status().shm_nattch, 1U);
                      }),
                  0);
    });
}

TEST(SegmentSetup, AnIdOfZeroIsTakenForAFailureOfTheSecondLook)
{
    in_private_machine([] {
        EXPECT_EQ(map_in_another_program("64"), 0);
        EXPECT_EQ(map_in_another_program("32"), 1);
    });
}

TEST(SegmentSetup, OnlySizeAndVolumesTogetherMakeASecondLook)
{
    in_private_machine([] {  // the id is 0 here: a second look would fail
        fused_mapShared();
        fs->maxVolumes = 64;
        EXPECT_EQ(map_in_another_program("32"), 0);
        fs->maxVolumes = 32;
        fs->segmentSize = INT32_MAX;
        EXPECT_EQ(map_in_another_program("32"), 0);
    });
}

TEST(SegmentSetup, AStoredVolumeCountThatCannotBeIsAFailure)
{
    in_private_machine([] {
        use_up_the_first_id();
        fused_mapShared();
        fs->maxVolumes = INT32_MAX;
        fs->segmentSize = INT32_MAX;
        EXPECT_EQ(map_in_another_program("32"), 1);
    });
}

TEST(SegmentSetup, AnExistingSegmentKeepsItsSettings)
{
    in_private_machine([] {
        EXPECT_EQ(map_in_another_program(nullptr,
                                         [] {
                                             fs->mdcPort = 6000;
                                             fs->logMaxSize = 1;
                                         }),
                  0);
        EXPECT_EQ(map_in_another_program(nullptr,
                                         [] {
                                             EXPECT_EQ(fs->mdcPort, 6000);
                                             EXPECT_EQ(fs->logMaxSize, 1);
                                         }),
                  0);
    });
}

TEST(SegmentSetup, AnUninitialisedSegmentIsFilled)
{
    in_private_machine([] {
        const int id = shmget(kKey, layout::kBytesFor64, IPC_CREAT | 0777);
        auto* const bytes = static_cast<unsigned char*>(shmat(id, nullptr, 0));
        std::memset(bytes, 0xA5, layout::kBytesFor64);  // initialised is not 1, either

        fused_mapShared();

        const std::string_view found(reinterpret_cast<const char*>(bytes), layout::kBytesFor64);
        EXPECT_EQ(found.substr(0, layout::kFixedBytes),
                  layout::new_image(corvane::test::kCatalogue));
        // The area of 32 volumes is cleared, the rest stays as it was.
        EXPECT_EQ(found.find_first_not_of('\0', layout::kFixedBytes), layout::kBytesFor32);
        EXPECT_EQ(found.substr(layout::kBytesFor32).find_first_not_of('\xA5'),
                  std::string_view::npos);
    });
}

TEST(SegmentSetup, MappingTwiceKeepsTheAddress)
{
    in_private_machine([] {
        fused_mapShared();
        CorvaneSegment* const first = fs;
        fused_mapShared();
        setupSharedMemory();
        EXPECT_EQ(fs, first);
        EXPECT_EQ(segment_status().shm_nattch, 1U);
    });
}

TEST(SegmentSetup, CreationIsLoggedWithVersionSystemAndVolumes)
{
    in_private_machine([] {
        write_file("/usr/Corvane/version.txt", "9.8.7\nsecond line\n");
        setenv("CORVANEVOLS", "40", 1);

        fused_mapShared();

        utsname system{};
        ASSERT_EQ(uname(&system), 0);
        EXPECT_THAT(read_file("/usr/Corvane/mclog0"),
                    EndsWith("Shm init id 0 ver 9.8.7 " + std::string(system.nodename) + " " +
                             system.sysname + " " + system.release + " " + system.version + " " +
                             system.machine + " Max Volumes 40\n"));
    });
}

TEST(SegmentSetup, WithoutACatalogueTheCreatorEndsAfterTwoMessages)
{
    in_private_machine([] {
        std::filesystem::remove(corvane::test::kCatalogue);
        EXPECT_EQ(map_in_another_program(nullptr), 1);
        const std::string log = read_file("/usr/Corvane/mclog0");
        EXPECT_THAT(
            log, HasSubstr("No nlsPath found, This will cause the system to be very unstable.\n"));
        EXPECT_THAT(log, EndsWith("nls return NULL from nlsSetup we are going to exit\n"));
    });
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(SegmentSetup, AFailedAttachEndsTheProgram)
{
    in_private_machine([] {
        EXPECT_EQ(map_in_another_program(nullptr), 0);
        const int status = status_of_child([] {
            dup2(open("/tmp/errors", O_WRONLY | O_CREAT, 0600), STDERR_FILENO);
            const rlimit no_room{1, 1};
            ASSERT_EQ(setrlimit(RLIMIT_AS, &no_room), 0);
            fused_mapShared();
        });
        EXPECT_EQ(status, 1);
        EXPECT_EQ(read_file("/tmp/errors"), "fs=shmat failed: Cannot allocate memory\n");
    });
}
#endif

}  // namespace
