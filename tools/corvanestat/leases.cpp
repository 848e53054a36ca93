// Filters, sorts and prints leases.
#include "tools/corvanestat/leases.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>
#include <tuple>

namespace corvane::stat {
namespace {

std::string hex(const Cookie& cookie)
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : cookie) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xF];
    }
    return text;
}

bool names(const std::string& wanted, const std::string& name, const Cookie& cookie)
{
    return name.find(wanted) != std::string::npos || hex(cookie).find(wanted) != std::string::npos;
}

std::string client_text(const Lease& lease)
{
    return address_text(lease) + ":" + std::to_string(lease.client_port);
}

bool is_wanted(const Lease& lease, const LeaseQuery& query)
{
    if (!query.mode.empty() && (query.mode == "read") != lease.reads) return false;
    if (!query.client.empty() && query.client != address_text(lease) &&
        query.client != client_text(lease)) {
        return false;
    }
    return names(query.volume, lease.volume, lease.volume_cookie) &&
           names(query.file, lease.file, lease.file_cookie);
}

using Order = bool (*)(const Lease& a, const Lease& b);
struct NamedOrder {
    const char* name;
    Order comes_before;
};
// What is looked for comes first: the busiest, and everything else ascending.
constexpr std::array kOrders = {
    NamedOrder{"key", [](const Lease& a, const Lease& b) { return a.key < b.key; }},
    NamedOrder{"client",
               [](const Lease& a, const Lease& b) {
                   return std::tie(a.client_address, a.client_port) <
                          std::tie(b.client_address, b.client_port);
               }},
    NamedOrder{"file",
               [](const Lease& a, const Lease& b) {
                   return std::tie(a.volume, a.file, a.volume_cookie, a.file_cookie) <
                          std::tie(b.volume, b.file, b.volume_cookie, b.file_cookie);
               }},
    NamedOrder{"since", [](const Lease& a, const Lease& b) { return a.granted_s < b.granted_s; }},
    NamedOrder{"until", [](const Lease& a, const Lease& b) { return a.until_s < b.until_s; }},
    NamedOrder{"requests", [](const Lease& a, const Lease& b) { return a.requests > b.requests; }},
};

void put_in_order(std::vector<Lease>& leases, const LeaseQuery& query)
{
    const auto order = std::ranges::find(kOrders, query.sort, &NamedOrder::name);
    std::ranges::sort(leases, kOrders[0].comes_before);  // what is equal stays in order of keys
    std::ranges::stable_sort(leases, order->comes_before);
    if (query.reverse) std::ranges::reverse(leases);
    if (query.limit != 0 && leases.size() > query.limit) leases.resize(query.limit);
}

std::string moment(std::int64_t seconds)
{
    const std::time_t time = seconds;
    std::tm local{};
    localtime_r(&time, &local);
    std::array<char, 32> text{};
    (void)std::strftime(text.data(), text.size(), "%m-%d %H:%M:%S", &local);
    return text.data();
}

std::string table(const std::vector<Lease>& leases, bool hidden)
{
    std::string text =
        "KEY        MODE  CLIENT                SINCE          UNTIL          "
        "REQUESTS FILE\n";
    for (const Lease& lease : leases) {
        std::array<char, 128> row{};
        (void)std::snprintf(row.data(), row.size(), "%-10u %-5s %-21s %14s %14s %8u ", lease.key,
                            lease.reads ? "read" : "write", client_text(lease).c_str(),
                            moment(lease.granted_s).c_str(), moment(lease.until_s).c_str(),
                            lease.requests);
        text += row.data() + shown_name(lease.file, lease.file_cookie) + "\n";
    }
    if (hidden) text += "The names of files are shown to root only.\n";
    return text;
}

nlohmann::json name_or_null(const std::string& name)
{
    return name.empty() ? nlohmann::json() : nlohmann::json(name);
}

std::string json(const std::vector<Lease>& leases, bool hidden)
{
    nlohmann::json all = {{"names_hidden", hidden}, {"leases", nlohmann::json::array()}};
    for (const Lease& lease : leases) {
        all["leases"].push_back({{"key", lease.key},
                                 {"mode", lease.reads ? "read" : "write"},
                                 {"client", address_text(lease)},
                                 {"client_port", lease.client_port},
                                 {"since", lease.granted_s},
                                 {"renewed", lease.renewed_s},
                                 {"until", lease.until_s},
                                 {"requests", lease.requests},
                                 {"slot", lease.slot},
                                 {"volume", name_or_null(lease.volume)},
                                 {"file", name_or_null(lease.file)},
                                 {"volume_cookie", hex(lease.volume_cookie)},
                                 {"file_cookie", hex(lease.file_cookie)}});
    }
    // A name may be bytes of any code set.
    return all.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

// The length of the UTF-8 character that begins at `at`, if it is whole and can be shown; else 0.
std::size_t shown_bytes(const std::string& text, std::size_t at)
{
    const auto byte = [&](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const unsigned first = byte(at);
    if (first < 0x80) return first >= 0x20 && first != 0x7F ? 1 : 0;
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC2 ? 2 : 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xC0) != 0x80) return 0;
    }
    return first == 0xC2 && byte(at + 1) < 0xA0 ? 0 : length;  // control characters, too
}

}  // namespace

const std::vector<std::string>& lease_orders()
{
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        all.reserve(kOrders.size());
        for (const NamedOrder& order : kOrders) all.emplace_back(order.name);
        return all;
    }();
    return names;
}

std::string lease_report(Administration& daemon, const LeaseQuery& query, bool as_json)
{
    std::vector<Lease> leases;
    const bool hidden = daemon.list([&](Lease&& lease) {
        if (is_wanted(lease, query)) leases.push_back(std::move(lease));
    });
    put_in_order(leases, query);
    return as_json ? json(leases, hidden) : table(leases, hidden);
}

std::string shown_name(const std::string& name, const Cookie& cookie)
{
    if (name.empty()) {
        std::string text = hex(cookie);
        while (text.ends_with("00")) text.resize(text.size() - 2);
        return "cookie " + text;
    }
    std::string text;
    for (std::size_t at = 0; at < name.size();) {
        const std::size_t length = shown_bytes(name, at);
        text += length == 0 ? "?" : name.substr(at, length);
        at += std::max<std::size_t>(length, 1);
    }
    return text;
}

}  // namespace corvane::stat
