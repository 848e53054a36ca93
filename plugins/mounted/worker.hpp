// The thread that does the slow part of giving files back.
#ifndef CORVANE_PLUGINS_MOUNTED_WORKER_HPP
#define CORVANE_PLUGINS_MOUNTED_WORKER_HPP

#include <chrono>
#include <functional>

namespace corvane::mounted {

// Starts the thread. Only the first call does anything.
void start_worker();

// Puts a job aside until its time comes.
void queue_work_at(std::chrono::steady_clock::time_point when, std::function<void()> job);

// Puts a job behind the others. The thread does one after the other, and drops what one throws.
// Returns at once: callers hold locks that everybody waits for.
void queue_work(std::function<void()> job);

}  // namespace corvane::mounted

#endif
