// Renews, watches and ends a lease.
#include "client/lease.hpp"

#include <csignal>

#include <algorithm>
#include <cstddef>

#include "client/failure.hpp"
#include "client/request.hpp"
#include "fsmdc/fs_result.h"
#include "fsmdc/messages.h"

namespace corvane {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// The least margin: how long before the end no transfer begins any more, however short they are.
milliseconds least_margin(milliseconds granted)
{
    return std::min<milliseconds>(granted / 4, seconds(5));
}

// The part of a lease after which it is renewed: early enough for a second attempt before transfers
// have to stop.
milliseconds renewal_delay(milliseconds granted)
{
    return granted / 3;
}

// How long one renewal is waited for; whole seconds are what the transport counts in.
std::int32_t renewal_timeout_s(milliseconds granted)
{
    return granted >= seconds(12) ? 2 : 1;
}

// Closing must not keep a user waiting who has already asked to stop.
constexpr std::int32_t kStoppedTimeoutSeconds = 2;
constexpr std::int32_t kStoppedTries = 3;

}  // namespace

Lease::Lease(const Exchange& exchange, std::uint32_t key, std::int32_t granted_ms,
             Clock::time_point asked_at)
    : exchange_(exchange),
      key_(key),
      asked_at_(asked_at),
      granted_(std::max(granted_ms, 0)),
      keeper_([this] { keep(); })
{
}

Lease::~Lease()
{
    stop_keeping();
    if (is_open_) close_quietly();
}

void Lease::close_quietly() noexcept
{
    try {
        close(kUnchanged);
    } catch (...) {
        // The failure that brought us here is the one to report; the controller's purge ends the
        // lease.
        return;
    }
}

// Time for the transfer under way: as long as the longest one so far, and some more. The caller
// holds the mutex, as for the two below.
Clock::duration Lease::margin() const
{
    return least_margin(granted_) + longest_transfer_;
}

// The last moment at which a transfer may begin.
Clock::time_point Lease::last_start() const
{
    return asked_at_ + granted_ - margin();
}

void Lease::fail_ended(const std::string& what) const
{
    std::string why = what;
    if (!last_failure_.empty()) {
        why += " (" + last_failure_ + ")";
    } else if (longest_transfer_ > granted_ / 2) {
        const auto ms = std::chrono::duration_cast<milliseconds>(longest_transfer_).count();
        why += " (one transfer took " + std::to_string(ms) + " ms of a lease of " +
               std::to_string(granted_.count()) + ")";
    }
    throw Failure(kLeaseEnded, why + "; run the command again once the controller answers");
}

void Lease::check() const
{
    const std::scoped_lock lock(mutex_);
    if (!is_gone_ && Clock::now() < last_start()) return;
    fail_ended("the lease on the file ended");
}

Clock::duration Lease::transfer_budget() const
{
    const std::scoped_lock lock(mutex_);
    return least_margin(granted_) / 4;
}

void Lease::end_transfer(Clock::time_point began)
{
    const std::scoped_lock lock(mutex_);
    const auto now = Clock::now();
    longest_transfer_ = std::max(longest_transfer_, now - began);
    if (!is_gone_ && now < asked_at_ + granted_) return;
    fail_ended("the lease on the file ended during a transfer");
}

void Lease::adopt(std::int32_t granted_ms, Clock::time_point asked_at)
{
    {
        const std::scoped_lock lock(mutex_);
        if (granted_ms <= 0) return;
        // Two renewals may cross: the one that was sent later is the one in force.
        if (asked_at < asked_at_) return;
        asked_at_ = asked_at;
        granted_ = milliseconds(granted_ms);
        last_failure_.clear();
    }
    changed_.notify_all();
}

void Lease::set_probe_bytes(std::int64_t bytes)
{
    const std::scoped_lock lock(mutex_);
    probe_bytes_ = std::min(bytes, kLongestRangeBytes);
}

// The keeper thread: sleeps until a third of the lease has passed, renews, and tries again while
// there is anything left to save.
void Lease::keep()
{
    // Signals are for the caller's threads: they end its blocking calls.
    sigset_t all;
    (void)sigfillset(&all);
    (void)pthread_sigmask(SIG_BLOCK, &all, nullptr);
    std::unique_lock lock(mutex_);
    while (!stop_keeping_ && !is_gone_) {
        const auto renew_at = asked_at_ + renewal_delay(granted_);
        if (Clock::now() < renew_at) {
            (void)changed_.wait_until(lock, renew_at);
            continue;
        }
        if (Clock::now() >= asked_at_ + granted_) return;
        lock.unlock();
        renew();
        lock.lock();
        if (last_failure_.empty() || stop_keeping_ || is_gone_) continue;
        constexpr milliseconds kPause{50};
        (void)changed_.wait_for(lock, std::clamp(granted_ / 20, kPause, milliseconds(1000)));
    }
}

// A map of one block, asked for without a size change, renews the lease when it succeeds.
void Lease::renew()
{
    ExtendedMapArguments arguments;
    arguments.key = key_;
    arguments.lease_ms = kWantedLeaseMs;
    std::string failure;
    bool is_gone = false;
    std::int32_t timeout_s = exchange_.endpoint().timeout_s;
    const auto asked_at = Clock::now();
    try {
        {
            const std::scoped_lock lock(mutex_);
            arguments.length = probe_bytes_;
            timeout_s = std::min(timeout_s, renewal_timeout_s(granted_));
        }
        Reply reply = exchange_.ask_within(extended_map_request(arguments), timeout_s, /*tries=*/1);
        const std::uint32_t code = reply.code();
        if (code == 0) {
            adopt(static_cast<std::int32_t>(reply.word(offsetof(GetExtendedMapReply, lease))),
                  asked_at);
            return;
        }
        is_gone = code == FS_E_INVALID_KEY || code == FS_E_UNABLE_TO_SET_LEASE;
        failure = "renewing it failed: " + describe_code(code);
    } catch (const std::exception& caught) {
        failure = caught.what();
    }
    const std::scoped_lock lock(mutex_);
    last_failure_ = failure;
    is_gone_ = is_gone_ || is_gone;
}

void Lease::stop_keeping()
{
    {
        const std::scoped_lock lock(mutex_);
        stop_keeping_ = true;
    }
    changed_.notify_all();
    if (keeper_.joinable()) keeper_.join();
}

void Lease::close(std::int64_t final_size)
{
    stop_keeping();
    if (!is_open_) return;
    is_open_ = false;
    const Message request = close_request(key_, final_size);
    Reply reply = exchange_.is_stopped()
                      ? exchange_.ask_within(request, kStoppedTimeoutSeconds, kStoppedTries)
                      : exchange_.ask_within(request, exchange_.endpoint().timeout_s,
                                             exchange_.endpoint().tries);
    if (reply.code() != 0) fail(reply.code(), "closing the file failed");
}

}  // namespace corvane
