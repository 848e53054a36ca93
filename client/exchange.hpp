// One question to the controller and its answer.
#ifndef CORVANE_CLIENT_EXCHANGE_HPP
#define CORVANE_CLIENT_EXCHANGE_HPP

#include <atomic>
#include <cstdint>
#include <string>

#include "client/clock.hpp"
#include "client/reply.hpp"
#include "client/request.hpp"

namespace corvane {

struct Endpoint {
    std::string host = "127.0.0.1";
    std::int32_t port = 5501;
    std::int32_t timeout_s = 10;  // for one attempt
    std::int32_t tries = 5;       // attempts in all, at least 1
};

// Asks one controller. Keeps no state of a question: any thread may ask at any time.
class Exchange {
public:
    // `stop` may be null; once it is true, no further attempt starts. It outlives this object.
    explicit Exchange(Endpoint endpoint, const std::atomic<bool>* stop = nullptr);

    // Sends the request until its reply comes. Throws Failure with the transport's or the header's
    // code, or kInterrupted.
    [[nodiscard]] Reply ask(const Message& request) const;

    // The same with limits of its own, and without regard to `stop`: for what must still be said.
    [[nodiscard]] Reply ask_within(const Message& request, std::int32_t timeout_s,
                                   std::int32_t tries) const;

    [[nodiscard]] const Endpoint& endpoint() const { return endpoint_; }
    [[nodiscard]] bool is_stopped() const { return stop_ != nullptr && stop_->load(); }
    void throw_if_stopped() const;

private:
    [[nodiscard]] Reply send(const Message& request, std::int32_t timeout_s, std::int32_t tries,
                             bool heed_stop) const;

    Endpoint endpoint_;
    const std::atomic<bool>* stop_;
};

}  // namespace corvane
#endif
