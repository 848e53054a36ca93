// A lease list of its own, on a clock that the test sets.
#ifndef CORVANE_TESTS_FSMDC_LEASE_LIST_FIXTURE_HPP
#define CORVANE_TESTS_FSMDC_LEASE_LIST_FIXTURE_HPP

#include "tests/fsmdc/fake_clock.hpp"
#include "tests/fsmdc/service_fixture.hpp"

namespace fsmdc_test {

class LeaseList : public ServiceTest {
protected:
    LeaseList() { g_clock_s = 1000; }

    struct Grant {
        unsigned char file = 0x50;
        unsigned char message = 1;
        unsigned char client = 2;
        std::int32_t intention = 1;
        std::uint32_t duration_ms = 5000;
        FsLibrary* library = &PluginA::library;
        unsigned char volume = 0x10;
    };
    static std::uint32_t add(const Grant& grant)
    {
        std::uint32_t key = 0xDEAD;
        EXPECT_EQ(AddLeaseToList(cookie(grant.volume).data(), cookie(grant.file).data(),
                                 cookie(grant.message, 16).data(), cookie(grant.client, 16).data(),
                                 grant.intention, grant.duration_ms, &key, grant.library),
                  0);
        return key;
    }
    // Leases of as many files, under keys from 0 on.
    static void add_files(std::uint32_t count)
    {
        globalKey = 0;
        for (std::uint32_t i = 0; i < count; ++i) {
            Bytes file(32);
            put32(file, 0, __builtin_bswap32(i));
            ASSERT_EQ(AddLeaseToList(cookie(0x10).data(), file.data(), cookie(1, 16).data(),
                                     cookie(2, 16).data(), 1, 5000, nullptr, nullptr),
                      0);
        }
    }
    static LeaseRecord copy_of(std::uint32_t key)
    {
        LeaseRecord copy{};
        EXPECT_EQ(GetLeaseCopy(key, &copy), 0u) << "key " << key;
        return copy;
    }
    static bool is_listed(std::uint32_t key)
    {
        LeaseRecord copy;
        return GetLeaseCopy(key, &copy) == 0;
    }
    static std::uint32_t remove(std::uint32_t key, FsLibrary* library = &PluginA::library)
    {
        Bytes volume(32);
        Bytes file(32);
        return RemoveLeaseFromList(key, volume.data(), file.data(), library, "a label");
    }
    static std::vector<std::uint32_t> keys()
    {
        std::vector<std::uint32_t> listed;
        for (const LeaseRecord* lease = leaseListHeadGlb.next; lease != &leaseListHeadGlb;
             lease = lease->next) {
            EXPECT_EQ(lease->next->prev, lease);
            listed.push_back(lease->key);
        }
        return listed;
    }
};

}  // namespace fsmdc_test
#endif
