// Runs queued jobs in one thread that never ends.
#include "plugins/mounted/worker.hpp"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace corvane::mounted {
namespace {

class Worker {
public:
    void start()
    {
        const std::scoped_lock guard(mutex_);
        if (is_started_) return;
        std::thread([this] { run(); }).detach();
        is_started_ = true;
    }

    void push(std::function<void()> job)
    {
        {
            const std::scoped_lock guard(mutex_);
            jobs_.push_back(std::move(job));
        }
        wakes_.notify_one();
    }

private:
    void run() noexcept
    {
        for (;;) {
            std::function<void()> job;
            {
                std::unique_lock guard(mutex_);
                wakes_.wait(guard, [this] { return !jobs_.empty(); });
                job = std::move(jobs_.front());
                jobs_.pop_front();
            }
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
    std::deque<std::function<void()>> jobs_;
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
    worker().push(std::move(job));
}

}  // namespace corvane::mounted
