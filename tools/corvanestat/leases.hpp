// corvanestat leases and corvanestat release.
#ifndef CORVANE_TOOLS_CORVANESTAT_LEASES_HPP
#define CORVANE_TOOLS_CORVANESTAT_LEASES_HPP

#include <cstdint>
#include <string>
#include <vector>

#include "tools/corvanestat/administration.hpp"

namespace corvane::stat {

// Which leases are shown, and in which order. An empty text lets everything pass.
struct LeaseQuery {
    std::string volume;  // part of the volume's name or cookie
    std::string file;    // the same of the file
    std::string client;  // an address, or address:port
    std::string mode;    // read or write
    std::string sort = "key";
    bool reverse = false;
    std::uint64_t limit = 0;  // 0: all
};

// The names that `sort` may have.
[[nodiscard]] const std::vector<std::string>& lease_orders();

// The daemon's leases as a table, or as JSON.
[[nodiscard]] std::string lease_report(Administration& daemon, const LeaseQuery& query,
                                       bool as_json);

// What a file is called: its name without anything that a terminal would obey; without a name, its
// cookie.
[[nodiscard]] std::string shown_name(const std::string& name, const Cookie& cookie);

}  // namespace corvane::stat
#endif
