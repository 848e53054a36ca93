// One thread asks every socket in turn and never sleeps, so that the server is not charged for
// waking it.
#include "bench/load_generator_loop.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace corvane::bench {
namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kSilence = std::chrono::seconds(1);
constexpr std::uint32_t kMostResent = 30;  // of one request, then the server is taken for dead
constexpr std::size_t kReplyRoom_bytes = 65536;

std::uint64_t nanoseconds(Clock::duration duration)
{
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(duration).count());
}

std::vector<Kind> kinds_of(Mix mix)
{
    switch (mix) {
        case Mix::kVolume:
            return {Kind::kGetVolume};
        case Mix::kInitial:
            return {Kind::kGetInitialMap};
        case Mix::kExtended:
            return {Kind::kGetExtendedMap};
        case Mix::kSetSize:
            return {Kind::kSetSize};
        case Mix::kClose:
            return {Kind::kClose};
        case Mix::kPair:
            return {Kind::kGetInitialMap, Kind::kClose};
        case Mix::kAll:
            break;
    }
    return {Kind::kGetVolume, Kind::kGetInitialMap, Kind::kGetExtendedMap, Kind::kSetSize,
            Kind::kClose};
}

bool needs_lease(Mix mix)
{
    return mix == Mix::kVolume || mix == Mix::kExtended || mix == Mix::kSetSize || mix == Mix::kAll;
}

// One client: its socket, and the request that it waits for.
class Client {
public:
    Client(const Options& options, std::uint32_t number, std::uint64_t run)
        : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), options_(options)
    {
        subject_.run = run;
        subject_.socket = number;
        subject_.file = options.first_file + number;
        sockaddr_in server{};
        server.sin_family = AF_INET;
        server.sin_port = htons(options.port);
        server.sin_addr.s_addr = htonl(options.address);
        if (socket_ < 0 ||
            connect(socket_, reinterpret_cast<const sockaddr*>(&server), sizeof server) != 0) {
            throw std::runtime_error("cannot make a socket");
        }
    }
    ~Client()
    {
        if (socket_ >= 0) close(socket_);
    }
    Client(Client&& other) noexcept
        : socket_(std::exchange(other.socket_, -1)),
          options_(other.options_),
          subject_(other.subject_),
          step_(other.step_)
    {
    }
    Client& operator=(Client&&) = delete;
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // Sends the next request of `kinds`, or the last one again while it has repeats left.
    void send_next(RequestWriter& writer, const std::vector<Kind>& kinds)
    {
        if (repeats_left_ > 0) {
            --repeats_left_;
        } else {
            kind_ = kinds[step_++ % kinds.size()];
            ++subject_.number;
            repeats_left_ = options_.repeat;
            if (options_.mix == Mix::kInitial) subject_.file += options_.sockets;
            if (options_.mix == Mix::kClose) subject_.key = 0xFFFFFFF0;
        }
        resent_ = 0;
        transmit(writer);
    }

    void send_again(RequestWriter& writer)
    {
        if (++resent_ > kMostResent) throw std::runtime_error("the server does not answer");
        transmit(writer);
    }

    // The reply that came, if one did. Other datagrams are passed over.
    [[nodiscard]] std::optional<ReplyView> poll(RequestWriter& writer, std::vector<std::byte>& room)
    {
        const ssize_t received = recv(socket_, room.data(), room.size(), MSG_DONTWAIT);
        if (received < 0) return std::nullopt;
        const ReplyView reply{{room.data(), static_cast<std::size_t>(received)}};
        if (!reply.answers(writer.write(kind_, subject_))) return std::nullopt;
        return reply;
    }

    // Keeps what later requests need. False when the reply is not what it should be.
    bool take(const ReplyView& reply)
    {
        if (options_.is_echo) return true;
        if (options_.mix == Mix::kClose && kind_ == Kind::kClose) return !reply.is_success(kind_);
        if (!reply.is_success(kind_)) return false;
        if (kind_ == Kind::kGetInitialMap) {
            subject_.key = reply.key();
            subject_.volume = reply.volume();
        }
        return true;
    }

    [[nodiscard]] Kind kind() const { return kind_; }
    [[nodiscard]] Clock::time_point sent_at() const { return sent_at_; }
    void restart() { step_ = 0; }

private:
    void transmit(RequestWriter& writer)
    {
        const auto message = writer.write(kind_, subject_);
        sent_at_ = Clock::now();
        // A full buffer or a server not yet there: the silence brings it up again.
        (void)!send(socket_, message.data(), message.size(), MSG_NOSIGNAL);
    }

    int socket_;
    const Options& options_;
    Subject subject_;
    std::size_t step_ = 0;
    Kind kind_ = Kind::kGetInitialMap;
    std::uint32_t repeats_left_ = 0;
    std::uint32_t resent_ = 0;
    Clock::time_point sent_at_;
};

// Collects latencies, for the whole run and window by window.
class Meter {
public:
    Meter(Report& report, std::uint32_t window_ms)
        : report_(report),
          window_(std::chrono::milliseconds(window_ms)),
          window_end_(Clock::now() + window_)
    {
    }
    void add(Clock::time_point sent, Clock::time_point now)
    {
        report_.latency.add(nanoseconds(now - sent));
        if (window_.count() == 0) return;
        if (now >= window_end_) close_window(now);
        in_window_.add(nanoseconds(now - sent));
    }

private:
    void close_window(Clock::time_point now)
    {
        constexpr std::uint64_t kEnough = 1000;  // below, a thousandth is nothing
        if (in_window_.count() >= kEnough) {
            report_.windows.push_back({in_window_.count(), in_window_.quantile(0.999)});
        }
        in_window_.clear();
        window_end_ = now + window_;
    }

    Report& report_;
    Histogram in_window_;
    Clock::duration window_;
    Clock::time_point window_end_;
};

class Loop {
public:
    explicit Loop(const Options& options)
        : options_(options), writer_(options.style), room_(kReplyRoom_bytes)
    {
        const auto run = static_cast<std::uint64_t>(Clock::now().time_since_epoch().count());
        clients_.reserve(options.sockets);
        for (std::uint32_t i = 0; i < options.sockets; ++i) clients_.emplace_back(options, i, run);
    }

    // Runs `count` requests over all clients, or until the time is over.
    Report run(const std::vector<Kind>& kinds, std::uint64_t count)
    {
        Report report;
        Meter meter(report, options_.window_ms);
        const auto start = Clock::now();
        const auto end = start + std::chrono::seconds(options_.limit_s);
        for (Client& client : clients_) client.send_next(writer_, kinds);
        std::uint64_t started = clients_.size();
        std::size_t waiting = clients_.size();
        std::vector<bool> is_done(clients_.size());
        while (waiting > 0) {
            const auto now = Clock::now();
            for (std::size_t i = 0; i < clients_.size(); ++i) {
                if (is_done[i] || !advance(clients_[i], now, report, meter)) continue;
                if (started < count && now < end) {
                    ++started;
                    clients_[i].send_next(writer_, kinds);
                } else {
                    is_done[i] = true;
                    --waiting;
                }
            }
        }
        report.seconds = std::chrono::duration<double>(Clock::now() - start).count();
        return report;
    }

    void restart_clients()
    {
        for (Client& client : clients_) client.restart();
    }

private:
    // Takes the client's reply. False while it has none.
    bool advance(Client& client, Clock::time_point now, Report& report, Meter& meter)
    {
        const auto reply = client.poll(writer_, room_);
        if (!reply) {
            if (now - client.sent_at() > kSilence) {
                ++report.resent;
                client.send_again(writer_);
            }
            return false;
        }
        meter.add(client.sent_at(), Clock::now());
        ++report.requests;
        report.reply_bytes.at(static_cast<std::size_t>(client.kind())) = reply->bytes.size();
        if (!client.take(*reply)) ++report.failures;
        return true;
    }

    Options options_;
    RequestWriter writer_;
    std::vector<std::byte> room_;
    std::vector<Client> clients_;
};

}  // namespace

std::optional<Mix> mix_by_name(const std::string& name)
{
    static const std::vector<std::pair<std::string, Mix>> kNames{
        {"volume", Mix::kVolume},   {"initial", Mix::kInitial}, {"extended", Mix::kExtended},
        {"setsize", Mix::kSetSize}, {"close", Mix::kClose},     {"pair", Mix::kPair},
        {"all", Mix::kAll}};
    for (const auto& [known, mix] : kNames) {
        if (known == name) return mix;
    }
    return std::nullopt;
}

void Histogram::add(std::uint64_t nanoseconds)
{
    // The doubling, and within it the next five bits.
    const auto doubling = static_cast<std::size_t>(std::bit_width(nanoseconds | kSteps)) - 6;
    const auto slot = doubling * kSteps + ((nanoseconds | kSteps) >> doubling) % kSteps;
    ++slots_.at(slot);
    ++count_;
}

void Histogram::clear()
{
    slots_.fill(0);
    count_ = 0;
}

std::uint64_t Histogram::quantile(double share) const
{
    const auto wanted = static_cast<std::uint64_t>(share * static_cast<double>(count_));
    std::uint64_t seen = 0;
    for (std::size_t slot = 0; slot < slots_.size(); ++slot) {
        seen += slots_[slot];
        if (seen > wanted) return (kSteps + slot % kSteps + 1) << slot / kSteps;
    }
    return 0;
}

Report run_load(const Options& options)
{
    Loop loop(options);
    if (needs_lease(options.mix)) {
        (void)loop.run({Kind::kGetInitialMap},
                       options.sockets);  // one each; judged by what follows
        loop.restart_clients();
    }
    return loop.run(kinds_of(options.mix), options.requests);
}

}  // namespace corvane::bench
