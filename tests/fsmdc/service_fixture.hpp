// A metadata service inside the test program: two fake plug-ins in slots 0 and 2, settings of its
// own, a log of its own, its traces and warnings collected. No segment of the machine is touched.
#ifndef CORVANE_TESTS_FSMDC_SERVICE_FIXTURE_HPP
#define CORVANE_TESTS_FSMDC_SERVICE_FIXTURE_HPP

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "fsmdc/dispatch.hpp"
#include "fsmdc/lease.h"
#include "fsmdc/lease_list.hpp"
#include "fsmdc/service.h"
#include "mdcmain/log.h"
#include "mdcmain/segment.h"
#include "osl/bytes.hpp"
#include "tests/fsmdc/bytes.hpp"
#include "tests/fsmdc/fake_plugin.hpp"

namespace fsmdc_test {

inline std::vector<std::string> g_traces;
inline std::vector<std::string> g_warnings;

using Reply = corvane::osl_ptr<void>;

[[nodiscard]] inline const unsigned char* bytes_of(const Reply& reply, std::size_t at)
{
    return static_cast<const unsigned char*>(reply.get()) + at;
}

class ServiceTest : public ::testing::Test {
protected:
    ServiceTest()
    {
        char folder[] = "/tmp/fsmdc_test_XXXXXX";
        folder_ = mkdtemp(folder);
        segment_ = std::make_unique<CorvaneSegment>();
        fs = segment_.get();
        segment_->logMode = 1;
        segment_->numLogs = 1;
        segment_->logMaxSize = 1 << 20;
        (void)(folder_ + "/log").copy(segment_->logBaseName, 255);
        PluginA::reset();
        PluginB::reset();
        PluginB::script.version = PluginB::library.version = 6;
        libs[0] = &PluginA::library;
        libs[2] = &PluginB::library;
        corvane::reset_dispatchers();
        corvane::reset_leases();
        g_calls.clear();
        g_traces.clear();
        g_warnings.clear();
        dbgSetOutputStringHandlerErr([](const char* text) { g_warnings.emplace_back(text); });
    }
    ~ServiceTest() override
    {
        dbgSetOutputStringHandler(nullptr);
        dbgSetOutputStringHandlerErr(nullptr);
        corvane::reset_leases();
        libs[0] = libs[2] = nullptr;
        fs = nullptr;
        std::filesystem::remove_all(folder_);
    }

    static void collect_traces()
    {
        dbgSetOutputStringHandler([](const char* text) { g_traces.emplace_back(text); });
    }
    [[nodiscard]] std::string log() const
    {
        std::ostringstream text;
        text << std::ifstream(folder_ + "/log0").rdbuf();
        return text.str();
    }
    // Calls that only ask how long a lease may be are left out unless a test wants them.
    [[nodiscard]] static std::vector<std::string> calls()
    {
        std::vector<std::string> wanted;
        for (const auto& call : g_calls) {
            if (call.find("GetMaxLeases") == std::string::npos) wanted.push_back(call);
        }
        return wanted;
    }

    // The first 16 bytes are all that anybody may read of a sender.
    Bytes sender_ = cookie(0xC0, 16);
    [[nodiscard]] const DgramReplyAddr* sender() const
    {
        return static_cast<const DgramReplyAddr*>(static_cast<const void*>(sender_.data()));
    }

private:
    std::string folder_;
    std::unique_ptr<CorvaneSegment> segment_;
};

}  // namespace fsmdc_test
#endif
