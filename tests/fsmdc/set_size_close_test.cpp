// SetSize and Close: the lease's file, its size, and the lease's renewal or end.
#include "tests/fsmdc/fake_clock.hpp"
#include "tests/fsmdc/service_fixture.hpp"

namespace fsmdc_test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

class LeasedFile : public ServiceTest {
protected:
    LeasedFile()
    {
        g_clock_s = 1000;
        key_ = add(cookie(1, 16));
        AddVolumeDispatcherToList(cookie(0x10).data(), &PluginA::library);
        g_clock_s = 1010;
    }
    static std::uint32_t add(const Bytes& message)
    {
        std::uint32_t key = 0;
        EXPECT_EQ(AddLeaseToList(cookie(0x10).data(), cookie(0x50).data(), message.data(),
                                 cookie(2, 16).data(), 2, 99000, &key, &PluginB::library),
                  0);
        return key;
    }
    [[nodiscard]] LeaseRecord lease() const
    {
        LeaseRecord copy{};
        EXPECT_EQ(GetLeaseCopy(key_, &copy), 0u);
        return copy;
    }

    std::uint32_t key_ = 0;
};

class SetSize : public LeasedFile {
protected:
    SetSize()
    {
        put64(request_, 48, 12345);
        put32(request_, 56, 7000);
        put32(request_, 60, key_);
    }
    Reply ask() { return Reply(SP_LanSetSize(request_.data(), nullptr)); }
    Bytes request_ = request(4, 64);
};

TEST_F(SetSize, SetsTheSizeAndRenewsTheLease)
{
    const Reply reply = ask();

    EXPECT_EQ(hex(reply.get(), 72),
              "0100000005000000404142434445464748494a4b4c4d4e4ffcffffff48000000"
              "000000000000000000002f0000000000"
              "00000000581b0000" +
                  std::string(32, '0'));
    EXPECT_THAT(calls(), ElementsAre("0 SetFileSizes 1011 5051 0 size 12345 allocation -1 -1"));
    EXPECT_EQ(lease().duration, 7000u);
    EXPECT_EQ(lease().creationTime, 1010000u);
}

TEST_F(SetSize, TheLeaseIsOneOfTheLeasesIntention)
{
    put32(request_, 56, 0);
    PluginA::script.read_s = 1;
    PluginA::script.write_s = 7;

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 52), 7000);
    EXPECT_EQ(g_calls.back(), "0 GetMaxLeases 1011 read 3600000 write 3600000");
}

TEST_F(SetSize, AShortAllocationIsAFailureHere)
{
    PluginA::script.size_results = {400};

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 400);
    EXPECT_EQ(get32(reply.get(), 52), 0);
    EXPECT_EQ(get32(reply.get(), 4), 5);
    EXPECT_EQ(lease().duration, 99000u);
}

TEST_F(SetSize, AnUnknownKeyIsInvalid)
{
    put32(request_, 60, key_ + 1);

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 407);
    EXPECT_EQ(get32(reply.get(), 28), 72);
    EXPECT_EQ(get32(reply.get(), 4), 77);
    EXPECT_THAT(g_calls, IsEmpty());
}

TEST_F(SetSize, WithoutALibraryItIs405)
{
    corvane::reset_dispatchers();

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 405);
    EXPECT_EQ(get32(reply.get(), 28), 72);
}

TEST_F(SetSize, AForeignRequestIsTurnedRound)
{
    collect_traces();
    put32(request_, 0, 0x01000000);
    reverse(request_, 48, 8);
    reverse(request_, 56, 4);
    reverse(request_, 60, 4);

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 52), 7000);
    EXPECT_EQ(get32(reply.get(), 0), 1);
    EXPECT_EQ(g_traces[0],
              "FTX2023I SP_LanSetSize handler called key " + std::to_string(key_) + "\n");
    EXPECT_EQ(g_traces[1], "--- SetSize Message ---\n");
    EXPECT_THAT(g_traces, Contains("--- SetSize Reply Message ---\n"));
}

class Close : public LeasedFile {
protected:
    Close()
    {
        put64(request_, 48, -1);
        put32(request_, 56, key_);
    }
    Reply ask() { return Reply(SP_LanClose(request_.data(), nullptr)); }
    Bytes request_ = request(5, 60);
};

TEST_F(Close, EndsTheLeaseAndUnlocksThroughTheVolumesPlugIn)
{
    collect_traces();

    const Reply reply = ask();

    EXPECT_EQ(hex(reply.get(), 88),
              "0100000005000000404142434445464748494a4b4c4d4e4ffbffffff58000000"
              "000000000000000000002f0000000000" +
                  std::string(80, '0'));
    EXPECT_THAT(g_calls, ElementsAre("0 UnlockMap 1011 5051"));  // not the library of the record
    EXPECT_EQ(GetLeasePointer(key_), nullptr);
    EXPECT_EQ(g_traces[0],
              "FTX2024I SP_LanClose handler called key " + std::to_string(key_) + "\n");
    EXPECT_EQ(g_traces[1], "--- Close Message ---\n");
    EXPECT_THAT(g_traces, Contains("--- Close Reply Message ---\n"));
}

TEST_F(Close, ASizeIsSetWithTheAllocation)
{
    collect_traces();
    put64(request_, 48, 777);
    PluginA::script.size_results = {400};

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 0);
    EXPECT_THAT(g_calls, ElementsAre("0 SetFileSizes 1011 5051 0 size 777 allocation 777 -1",
                                     "0 UnlockMap 1011 5051"));
    EXPECT_THAT(g_traces, Contains("FTX2025I LanClose calling FS_SetFileSize key " +
                                   std::to_string(key_) + "\n"));
    EXPECT_THAT(g_warnings, IsEmpty());
}

TEST_F(Close, AFailedSizeChangeIsTheResultAndTheLeaseEndsAllTheSame)
{
    collect_traces();
    put64(request_, 48, 777);
    PluginA::script.size_results = {104};

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 104);
    EXPECT_EQ(GetLeasePointer(key_), nullptr);
    EXPECT_THAT(g_traces, Contains("SP_Close, FS_SetFileSizes returned error 104\n"));
    EXPECT_THAT(g_warnings, ElementsAre("SP_Close, FS_SetFileSizes returned error 104\n"));
}

TEST_F(Close, ANegativeSizeCodeBecomesAMiscellaneousError)
{
    put64(request_, 48, 777);
    PluginA::script.size_results = {0xFFFFFFFF};

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 408);
    EXPECT_THAT(g_warnings, ElementsAre("SP_Close, FS_SetFileSizes returned error -1\n"));
}

TEST_F(Close, ALeaseThatWentMeanwhileIsWarnedOfAndCountsAsClosed)
{
    globalKey = 0x30;
    const std::uint32_t key = add(cookie(9, 16));
    put32(request_, 56, key);
    put64(request_, 48, 777);
    PluginA::script.during_sizes = [key] {
        Bytes volume(32);
        Bytes file(32);
        EXPECT_EQ(RemoveLeaseFromList(key, volume.data(), file.data(), nullptr, "test"), 0u);
    };

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 0);
    EXPECT_THAT(
        g_warnings,
        ElementsAre("SP_Close, RemoveLeaseFromList 48(0x30) returned error 408, Likely removed "
                    "by prior message.\n"));
}

TEST_F(SetSize, ALeaseThatWentMeanwhileCannotBeRenewed)
{
    PluginA::script.during_sizes = [this] {
        Bytes volume(32);
        Bytes file(32);
        EXPECT_EQ(RemoveLeaseFromList(key_, volume.data(), file.data(), nullptr, "test"), 0u);
    };

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 409);
    EXPECT_EQ(get32(reply.get(), 52), 0);
}

TEST_F(Close, ASecondCloseFindsNoKey)
{
    collect_traces();
    globalKey = 0x30;
    const std::uint32_t key = add(cookie(9, 16));
    put32(request_, 56, key);
    const Reply first = ask();
    g_traces.clear();

    const Reply second = ask();

    EXPECT_EQ(get32(second.get(), 48), 407);
    EXPECT_EQ(get32(second.get(), 28), 88);
    EXPECT_THAT(g_traces, Contains("SP_Close, key not found in list. 0x30\n"));
}

TEST_F(Close, WithoutALibraryItIs405AndTheLeaseStays)
{
    collect_traces();
    corvane::reset_dispatchers();

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 405);
    EXPECT_THAT(g_traces, Contains("SP_Close, no library.\n"));
    EXPECT_EQ(lease().key, key_);
}

TEST_F(Close, AFileWithAnotherLeaseStaysLocked)
{
    (void)add(cookie(9, 16));

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 0);
    EXPECT_THAT(g_calls, IsEmpty());
}

TEST_F(Close, AForeignRequestIsTurnedRound)
{
    put32(request_, 0, 0x01000000);
    put64(request_, 48, 777);
    put32(request_, 56, key_);
    reverse(request_, 48, 8);
    reverse(request_, 56, 4);

    const Reply reply = ask();

    EXPECT_EQ(get32(reply.get(), 48), 0);
    EXPECT_EQ(g_calls.front(), "0 SetFileSizes 1011 5051 0 size 777 allocation 777 -1");
}

class DumpInfo : public ServiceTest {};

TEST_F(DumpInfo, TracesLeasesAndCountersAndAnswersZero)
{
    collect_traces();
    const Bytes message = request(7, 48);

    const Reply reply(SP_LanDumpInfo(const_cast<unsigned char*>(message.data()), nullptr));

    EXPECT_EQ(get32(reply.get(), 24), -7);
    EXPECT_EQ(get32(reply.get(), 28), 88);
    EXPECT_EQ(get32(reply.get(), 48), 0);
    ASSERT_EQ(g_traces.size(), 3u);
    EXPECT_EQ(g_traces[0], "FTX2014I Key list is empty\n");
    EXPECT_EQ(g_traces[1].substr(0, 41), "Number of duplicate messages responded to");
}

}  // namespace
}  // namespace fsmdc_test
