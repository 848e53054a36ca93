// Collects the trace lines of all threads while it lives.
#ifndef CORVANE_TESTS_LAN_TRACE_CAPTURE_HPP
#define CORVANE_TESTS_LAN_TRACE_CAPTURE_HPP

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "mdcmain/log.h"

namespace lan_test {

class TraceCapture {
public:
    TraceCapture()
    {
        clear();
        collecting_ = true;
    }
    ~TraceCapture() { collecting_ = false; }
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    [[nodiscard]] static std::vector<std::string> lines()
    {
        const std::lock_guard guard(mutex());
        return store();
    }
    [[nodiscard]] static std::size_t count(const std::string& line)
    {
        const auto all = lines();
        return static_cast<std::size_t>(std::count(all.begin(), all.end(), line));
    }
    static void clear()
    {
        const std::lock_guard guard(mutex());
        store().clear();
    }

private:
    static void take(const char* text)
    {
        if (!collecting_) return;
        const std::lock_guard guard(mutex());
        store().emplace_back(text);
    }
    [[nodiscard]] static bool install()
    {
        dbgSetOutputStringHandler(&TraceCapture::take);
        return true;
    }
    // Never destroyed: listener threads outlive every test.
    static std::mutex& mutex()
    {
        static auto* const only = new std::mutex;
        return *only;
    }
    static std::vector<std::string>& store()
    {
        static auto* const only = new std::vector<std::string>;
        return *only;
    }

    static inline std::atomic<bool> collecting_ = false;
    static inline const bool installed_ = install();  // handlers are set before any thread runs
};

}  // namespace lan_test
#endif
