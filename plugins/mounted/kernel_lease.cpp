// Takes kernel leases and watches over them in one thread.
#include "plugins/mounted/kernel_lease.hpp"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "plugins/mounted/descriptor.hpp"
#include "plugins/mounted/openers.hpp"

namespace corvane::mounted {

using Clock = std::chrono::steady_clock;

struct LeaseWatch {
    int descriptor = -1;
    int type = F_UNLCK;  // F_RDLCK or F_WRLCK
    std::function<void(const std::string&)> report;
    // Guarded by the keeper's mutex from here on.
    bool is_breaking = false;  // somebody opened the file; since when, and who
    bool is_lost = false;      // and the kernel let it in
    Clock::time_point since;
    std::optional<Clock::time_point> until;  // when the kernel will; never without
    bool wants_to_write = false;
    std::string who;
    Clock::time_point next_search;  // for who it is, ever more rarely
    Clock::duration pause{};
};

namespace {

using Guard = std::scoped_lock<std::mutex>;
using WatchPtr = std::shared_ptr<LeaseWatch>;

// The kernel queues so many real-time signals and then falls back to SIGIO: both mean "look at all
// leases".
int lease_signal()
{
    return SIGRTMIN + 7;
}

// A program that waits is found at once; one that did not wait is looked for a few times.
constexpr std::chrono::milliseconds kFirstPause{5};
constexpr std::chrono::seconds kLastPause{2};

std::string seconds_text(Clock::duration duration)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f s", std::chrono::duration<double>(duration).count());
    return text;
}

std::string who_text(const std::string& who)
{
    return who.empty() ? "a program that has not waited" : who;
}

// How long the kernel lets an opener wait.
std::optional<std::chrono::seconds> break_time()
{
    std::int64_t seconds = 45;
    std::ifstream("/proc/sys/fs/lease-break-time") >> seconds;
    if (seconds <= 0) return std::nullopt;
    return std::chrono::seconds(seconds);
}

class Keeper {
public:
    bool start()
    {
        const Guard guard(start_mutex_);
        if (is_started_) return true;
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, lease_signal());
        sigaddset(&signals, SIGIO);
        if (pthread_sigmask(SIG_BLOCK, &signals, nullptr) != 0) return false;
        signals_.reset(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
        if (!signals_.is_open()) return false;
        std::thread([this] { run(); }).detach();
        while (thread_.load() == 0) std::this_thread::yield();
        is_started_ = true;
        return true;
    }

    int take(const WatchPtr& watch)
    {
        const int descriptor = watch->descriptor;
        // The signal goes to the one thread that waits for it, whatever threads the program has.
        const f_owner_ex owner{F_OWNER_TID, thread_.load()};
        if (fcntl(descriptor, F_SETSIG, lease_signal()) != 0) return errno;
        if (fcntl(descriptor, F_SETOWN_EX, &owner) != 0) return errno;
        const Guard guard(mutex_);
        if (fcntl(descriptor, F_SETLEASE, watch->type) != 0) return errno;
        watches_.push_back(watch);
        return 0;
    }

    bool is_held(LeaseWatch& watch)
    {
        const Guard guard(mutex_);
        look_at(watch);
        return !watch.is_lost;
    }

    bool could_write(LeaseWatch& watch)
    {
        const Guard guard(mutex_);
        look_at(watch);
        if (watch.is_lost || fcntl(watch.descriptor, F_SETLEASE, F_WRLCK) != 0) return false;
        (void)fcntl(watch.descriptor, F_SETLEASE, watch.type);  // a weaker one is always granted
        return true;
    }

    void release(const WatchPtr& watch)
    {
        const Guard guard(mutex_);
        look_at(*watch);
        const bool holds_opener = watch->is_breaking && !watch->is_lost;
        if (holds_opener && watch->who.empty()) {
            watch->who = find_waiting_openers(inode_of(watch->descriptor));
        }
        (void)fcntl(watch->descriptor, F_SETLEASE, F_UNLCK);  // it may be gone already
        std::erase(watches_, watch);
        if (!holds_opener) return;
        watch->report(who_text(watch->who) + " was held for " +
                      seconds_text(Clock::now() - watch->since) + ", until the map came back" +
                      count_text());
    }

    [[nodiscard]] std::uint64_t open_count() const { return open_count_.load(); }

private:
    void run() noexcept
    {
        thread_.store(gettid());
        std::optional<Clock::time_point> next;
        for (;;) {
            int timeout_ms = -1;
            if (next) {
                const auto left =
                    std::chrono::ceil<std::chrono::milliseconds>(*next - Clock::now());
                timeout_ms = static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 60000));
            }
            pollfd wait{signals_.get(), POLLIN, 0};
            (void)poll(&wait, 1, timeout_ms);
            signalfd_siginfo taken{};
            while (read(signals_.get(), &taken, sizeof taken) > 0) continue;
            try {
                next = look_at_all();
            } catch (...) {
                next = Clock::now() + kLastPause;  // out of memory for a line: later, then
            }
        }
    }

    // Returns when to look again; nothing: when a signal comes.
    std::optional<Clock::time_point> look_at_all()
    {
        std::vector<WatchPtr> unknown;
        std::optional<Clock::time_point> next;
        const auto look_again_at = [&next](Clock::time_point when) {
            if (!next || when < *next) next = when;
        };
        {
            const Guard guard(mutex_);
            const auto now = Clock::now();
            for (const auto& watch : watches_) {
                look_at(*watch);
                if (!watch->is_breaking || watch->is_lost) continue;
                if (watch->until) look_again_at(*watch->until);
                if (!watch->who.empty() || watch->pause > kLastPause) continue;
                if (watch->next_search <= now) {
                    unknown.push_back(watch);
                    watch->next_search = now + watch->pause;
                    watch->pause *= 2;
                }
                look_again_at(watch->next_search);
            }
        }
        for (const auto& watch : unknown) find_who(watch);
        return next;
    }

    // The search takes its time, so it is done without the lock; the descriptor may be closed
    // meanwhile, then nothing is found.
    void find_who(const WatchPtr& watch)
    {
        Inode file;
        {
            const Guard guard(mutex_);
            if (std::ranges::find(watches_, watch) == watches_.end()) return;
            file = inode_of(watch->descriptor);
        }
        std::string who = find_waiting_openers(file);
        if (who.empty()) return;
        const Guard guard(mutex_);
        if (!watch->who.empty() || watch->is_lost) return;
        watch->who = std::move(who);
        watch->report(watch->who + " opens it for " +
                      (watch->wants_to_write ? "writing" : "reading") +
                      " while a map of it is out, and is held" +
                      (watch->until ? " for at most " + seconds_text(*watch->until - watch->since)
                                    : std::string()));
    }

    // With the lock held: did somebody open the file, and did the kernel let him in?
    void look_at(LeaseWatch& watch)
    {
        if (watch.is_lost) return;
        const int type = fcntl(watch.descriptor, F_GETLEASE);
        if (!watch.is_breaking) {
            if (type == watch.type) return;
            watch.is_breaking = true;
            watch.wants_to_write = type == F_UNLCK;
            watch.since = Clock::now();
            const auto patience = break_time();
            if (patience) watch.until = watch.since + *patience;
            open_count_.fetch_add(1);
            watch.next_search = watch.since;
            watch.pause = kFirstPause;
        }
        if (!watch.until || Clock::now() < *watch.until) return;
        watch.is_lost = true;
        watch.report(who_text(watch.who) + " was held for " +
                     seconds_text(*watch.until - watch.since) +
                     ", then the kernel let it in although a map is out: what it reads may be old, "
                     "and what it writes may be lost" +
                     count_text());
    }

    [[nodiscard]] std::string count_text() const
    {
        return "; local opens of lent files so far: " + std::to_string(open_count_.load());
    }

    std::mutex start_mutex_;
    bool is_started_ = false;  // guarded by start_mutex_
    Descriptor signals_;
    std::atomic<pid_t> thread_{0};
    std::atomic<std::uint64_t> open_count_{0};
    std::mutex mutex_;
    std::vector<WatchPtr> watches_;  // guarded by mutex_, and so is each lease
};

// Lives as long as the process: its thread never ends.
Keeper& keeper()
{
    static auto* const only = new Keeper;
    return *only;
}

}  // namespace

int KernelLease::take(int descriptor, LeaseKind kind,
                      std::function<void(const std::string&)> report)
{
    release();
    auto watch = std::make_shared<LeaseWatch>();
    watch->descriptor = descriptor;
    watch->type = kind == LeaseKind::kRead ? F_RDLCK : F_WRLCK;
    watch->report = std::move(report);
    const int error = keeper().take(watch);
    if (error == 0) watch_ = std::move(watch);
    return error;
}

bool KernelLease::is_held() const
{
    return watch_ != nullptr && keeper().is_held(*watch_);
}

bool KernelLease::could_write() const
{
    return watch_ != nullptr && keeper().could_write(*watch_);
}

void KernelLease::release()
{
    if (watch_ == nullptr) return;
    keeper().release(watch_);
    watch_ = nullptr;
}

bool start_lease_thread()
{
    return keeper().start();
}

std::uint64_t count_local_opens()
{
    return keeper().open_count();
}

}  // namespace corvane::mounted
