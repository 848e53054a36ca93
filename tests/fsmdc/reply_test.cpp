// Replies: their header, and the longest one as MAXDGRAM says.
#include <sys/wait.h>
#include <unistd.h>

#include "tests/fsmdc/fake_clock.hpp"
#include "tests/fsmdc/service_fixture.hpp"

namespace fsmdc_test {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;

class InitReply : public ServiceTest {};

TEST_F(InitReply, IsZeroBehindTheAnsweringHeader)
{
    Bytes message = request(3, 92);
    put32(message, 0, 0x01000000);
    put32(message, 32, 1);

    const Reply reply(SP_InitReply(message.data(), 100, &PluginB::library));

    EXPECT_EQ(hex(reply.get(), 100),
              "0100000006000000404142434445464748494a4b4c4d4e4ffdffffff64000000"
              "010000000000000000002f0000000000" +
                  std::string(104, '0'));
}

TEST_F(InitReply, WithoutALibraryTheRevisionStays)
{
    const Reply reply(SP_InitReply(request(1, 92).data(), 48, nullptr));

    EXPECT_EQ(get32(reply.get(), 4), 77);
}

TEST_F(InitReply, TheMostNegativeCodeHasNoNegative)
{
    const Reply reply(SP_InitReply(request(INT32_MIN, 92).data(), 48, nullptr));

    EXPECT_EQ(get32(reply.get(), 24), INT32_MIN);
}

// MAXDGRAM is read once, so each setting has a process of its own.
class LongestReply : public ServiceTest {
protected:
    template <class Body>
    static void with_maxdgram(const char* setting, Body body)
    {
        std::fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            if (setting != nullptr) setenv("MAXDGRAM", setting, 1);
            body();
            std::fflush(nullptr);
            _exit(HasFailure() ? 1 : 0);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << "MAXDGRAM " << (setting != nullptr ? setting : "unset");
    }

    struct Lengths {
        std::int32_t volume;
        std::int32_t initial;
        std::int32_t extended;
    };
    // The three replies when the plug-in reports nothing, and the rooms that it was given.
    void expect_rooms(const Lengths& rooms)
    {
        AddVolumeDispatcherToList(cookie(0x10).data(), &PluginA::library);
        Bytes volume = request(1, 2228);
        fill(volume, 84, 32, 0x10);
        const Reply volume_reply(SP_LanGetVolume(volume.data(), nullptr));
        EXPECT_EQ(get32(volume_reply.get(), 48), 0);
        EXPECT_EQ(get32(volume_reply.get(), 28), 274);

        Bytes initial = request(2, 2160);
        put64(initial, 48, -1);
        put64(initial, 56, -1);
        put_text(initial, 112, std::string("/v\0f", 4));
        const Reply initial_reply(SP_LanGetInitialMap(initial.data(), sender()));
        EXPECT_EQ(get32(initial_reply.get(), 48), 0);
        EXPECT_EQ(get32(initial_reply.get(), 28), 162);

        Bytes extended = request(3, 92);
        put64(extended, 48, -1);
        put64(extended, 56, -1);
        put32(extended, 84, globalKey - 1);
        const Reply extended_reply(SP_LanGetExtendedMap(extended.data(), nullptr));
        EXPECT_EQ(get32(extended_reply.get(), 48), 0);
        EXPECT_EQ(get32(extended_reply.get(), 28), 162);

        const auto has_room = [](const char* call, std::int32_t room) {
            return ::testing::AllOf(HasSubstr(call),
                                    ::testing::EndsWith(" room " + std::to_string(room)));
        };
        EXPECT_THAT(g_calls, Contains(has_room("GetVolByCookie", rooms.volume)));
        EXPECT_THAT(g_calls, Contains(has_room("GetLockedMap", rooms.initial)));
        EXPECT_THAT(g_calls, Contains(has_room("GetLockedMap", rooms.extended)));
    }
};

TEST_F(LongestReply, IsTheDefaultWithoutASetting)
{
    with_maxdgram(nullptr, [&] {
        unsetenv("MAXDGRAM");
        EXPECT_EQ(maxDgramSize(), 64512);
        setenv("MAXDGRAM", "1000", 1);
        EXPECT_EQ(maxDgramSize(), 64512);  // read once
    });
}

TEST_F(LongestReply, IsWhateverTheSettingSays)
{
    with_maxdgram("1500", [&] { EXPECT_EQ(maxDgramSize(), 1500); });
    with_maxdgram("-3", [&] { EXPECT_EQ(maxDgramSize(), -3); });
    with_maxdgram("many", [&] { EXPECT_EQ(maxDgramSize(), 0); });
    with_maxdgram("", [&] { EXPECT_EQ(maxDgramSize(), 0); });
}

TEST_F(LongestReply, GivesThePlugInsTheirRooms)
{
    with_maxdgram("1500", [&] { expect_rooms({1228, 1244, 1316}); });
}

TEST_F(LongestReply, MayBeLongerThanAnyDatagram)
{
    with_maxdgram("1000000", [&] { expect_rooms({999728, 999744, 999816}); });
}

TEST_F(LongestReply, IsNeverShorterThanTheFixedOne)
{
    with_maxdgram("-2147483648", [&] { expect_rooms({0, 0, 0}); });
    with_maxdgram("0", [&] { expect_rooms({0, 0, 0}); });
    with_maxdgram("200", [&] { expect_rooms({0, 0, 16}); });
}

TEST_F(LongestReply, APartialMapBeyondAShortSettingIsReportedWithoutIt)
{
    with_maxdgram("300", [&] {
        AddVolumeDispatcherToList(cookie(0x10).data(), &PluginA::library);
        std::uint32_t key = 0;
        EXPECT_EQ(AddLeaseToList(cookie(0x10).data(), cookie(0x50).data(), cookie(1, 16).data(),
                                 cookie(2, 16).data(), 1, 5000, &key, nullptr),
                  0);
        PluginA::script.maps = {{1, Bytes(116)}};
        put32(PluginA::script.maps[0].record, 16, 139);
        Bytes message = request(3, 92);
        put64(message, 48, -1);
        put64(message, 56, -1);
        put32(message, 84, key);

        const Reply reply(SP_LanGetExtendedMap(message.data(), nullptr));

        EXPECT_EQ(get32(reply.get(), 48), 1);
        EXPECT_EQ(get32(reply.get(), 28), 184);
    });
}

}  // namespace
}  // namespace fsmdc_test
