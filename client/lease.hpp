// A lease on a file: renewed in the background before it ends, closed on every way out.
#ifndef CORVANE_CLIENT_LEASE_HPP
#define CORVANE_CLIENT_LEASE_HPP

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "client/exchange.hpp"

namespace corvane {

// The lease that is asked for. A third of it passes between two renewals.
constexpr std::int32_t kWantedLeaseMs = 60000;

// Holds one lease key. A thread of its own renews it; `check` says whether another transfer may
// begin, `end_transfer` whether one that ended was still covered. Time counts from before a request
// was sent, so this side always believes in less than was granted; what it believes in less a
// margin, which grows with the longest transfer so far, is when the last transfer may begin. Locks:
// one mutex, never held during an exchange.
class Lease {
public:
    // `asked_at` is when the granting request was first sent.
    Lease(const Exchange& exchange, std::uint32_t key, std::int32_t granted_ms,
          Clock::time_point asked_at);
    ~Lease();  // closes without a size change when `close` was not called
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

    // Throws Failure(kLeaseEnded) when the next transfer might outlast the lease.
    void check() const;

    // How long one transfer may take: a part of the margin.
    [[nodiscard]] Clock::duration transfer_budget() const;

    // Called after each transfer with when it began. Throws Failure(kLeaseEnded) when the lease
    // ended first: what was read may be another file's by then, and what was written may have hit
    // one.
    void end_transfer(Clock::time_point began);

    // A reply renewed the lease on its way.
    void adopt(std::int32_t granted_ms, Clock::time_point asked_at);

    // Tells how many bytes of the file a renewal asks for: one block, once its size is known.
    void set_probe_bytes(std::int64_t bytes);

    // Ends the lease, with a final file size or kUnchanged. Throws Failure when the controller did
    // not take it; the lease counts as closed either way, and closing it again does nothing.
    void close(std::int64_t final_size);

    [[nodiscard]] std::uint32_t key() const { return key_; }

private:
    void keep();
    void renew();
    void stop_keeping();
    void close_quietly() noexcept;
    [[nodiscard]] Clock::duration margin() const;
    [[nodiscard]] Clock::time_point last_start() const;
    [[noreturn]] void fail_ended(const std::string& what) const;

    const Exchange& exchange_;
    const std::uint32_t key_;
    bool is_open_ = true;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    Clock::time_point asked_at_;  // under mutex_, as all below
    std::chrono::milliseconds granted_;
    Clock::duration longest_transfer_{0};
    std::int64_t probe_bytes_ = 512;
    std::string last_failure_;  // of the latest renewal; empty after a success
    bool is_gone_ = false;      // the controller does not know the key any more
    bool stop_keeping_ = false;
    std::thread keeper_;
};

}  // namespace corvane
#endif
