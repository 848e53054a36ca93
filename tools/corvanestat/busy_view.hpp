// The busiest files between two readings, for the full-screen view.
#ifndef CORVANE_TOOLS_CORVANESTAT_BUSY_VIEW_HPP
#define CORVANE_TOOLS_CORVANESTAT_BUSY_VIEW_HPP

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/corvanestat/administration.hpp"

namespace corvane::stat {

class BusyView {
public:
    struct Row {
        std::uint32_t requests;  // since the last reading
        std::string name;        // as it can be shown
    };

    explicit BusyView(std::uint32_t port) : port_(port) {}

    // Asks the daemon; afterwards rows() are the busiest `limit` files, or problem() says why there
    // are none. Names are asked for once.
    void read(std::size_t limit);

    [[nodiscard]] const std::vector<Row>& rows() const { return rows_; }
    [[nodiscard]] const std::string& problem() const { return problem_; }

private:
    void compare(Administration& daemon, const std::vector<BusyFile>& files, std::size_t limit);

    std::uint32_t port_;
    bool has_before_ = false;
    std::map<std::uint32_t, std::uint32_t> before_;  // requests by the file's number
    std::map<std::uint32_t, std::string> names_;
    std::vector<Row> rows_;
    std::string problem_;
};

// The last `columns` characters of a text in UTF-8; what is cut off shows as "...".
[[nodiscard]] std::string end_of(const std::string& text, std::size_t columns);

}  // namespace corvane::stat
#endif
