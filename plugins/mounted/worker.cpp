// Runs queued jobs in one thread that never ends.
#include "plugins/mounted/worker.hpp"

#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

namespace corvane::mounted {
namespace {

using Clock = std::chrono::steady_clock;

class Worker {
public:
    void start()
    {
        const std::scoped_lock guard(mutex_);
        if (is_started_) return;
        std::thread([this] { run(); }).detach();
        is_started_ = true;
    }

    void push(Clock::time_point when, std::function<void()> job)
    {
        {
            const std::scoped_lock guard(mutex_);
            jobs_.emplace(when, std::move(job));
        }
        wakes_.notify_one();
    }

private:
    // Waits until a job's time has come.
    std::function<void()> take()
    {
        std::unique_lock guard(mutex_);
        for (;;) {
            if (jobs_.empty()) {
                wakes_.wait(guard);
                continue;
            }
            const auto first = jobs_.begin();
            if (first->first <= Clock::now()) {
                auto job = std::move(first->second);
                jobs_.erase(first);
                return job;
            }
            const auto when = first->first;
            wakes_.wait_until(guard, when);
        }
    }

    void run() noexcept
    {
        for (;;) {
            const std::function<void()> job = take();
            try {
                job();
            } catch (...) {
                continue;  // the file's next call does what is left
            }
        }
    }

    std::mutex mutex_;
    std::condition_variable wakes_;
    bool is_started_ = false;
    std::multimap<Clock::time_point, std::function<void()>> jobs_;  // in order, also of equal times
};

// Lives as long as the process: its thread never ends.
Worker& worker()
{
    static auto* const only = new Worker;
    return *only;
}

}  // namespace

void start_worker()
{
    worker().start();
}

void queue_work(std::function<void()> job)
{
    worker().push(Clock::now(), std::move(job));
}

void queue_work_at(std::chrono::steady_clock::time_point when, std::function<void()> job)
{
    worker().push(when, std::move(job));
}

}  // namespace corvane::mounted
