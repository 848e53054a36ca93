// A received reply: checked, then turned into this host's byte order.
#ifndef CORVANE_CLIENT_REPLY_HPP
#define CORVANE_CLIENT_REPLY_HPP

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "lan/header.h"
#include "osl/bytes.hpp"

namespace corvane {

class Reply {
public:
    // Takes the receive buffer (which may be longer than what was received) of the answer to
    // `request`. Checks and translates the header. Throws Failure(kBadReply) when it contradicts
    // itself, and the controller's code when the header carries one.
    Reply(std::vector<std::byte> buffer, std::size_t received_bytes, const LanHeader& request);

    // The body's result.
    [[nodiscard]] std::uint32_t code() const;

    // A 4-byte field in this host's order, whether the body is translated yet or not.
    [[nodiscard]] std::uint32_t word(std::size_t offset) const;

    // Translates the body, after making sure that every count in it stays inside the reply.
    void translate_body();

    // What the reply holds from `offset` on; empty when it ends before.
    [[nodiscard]] std::span<const std::byte> from(std::size_t offset) const;

    [[nodiscard]] bool is_foreign() const { return is_foreign_; }
    [[nodiscard]] std::int32_t function_code() const { return header_.functionCode; }

    // The text at `offset` of this reply that a plug-in wrote in place of a record's contents.
    [[nodiscard]] std::string error_text(std::size_t offset) const;

private:
    [[nodiscard]] bool is_only_text(std::uint32_t vendor_status) const;
    void check_volume_record(std::size_t offset) const;
    void check_map_record(std::size_t offset) const;
    void read_header(const LanHeader& request);

    std::vector<std::byte> buffer_;
    std::size_t length_bytes_ = 0;
    bool is_foreign_ = false;  // sent by a controller of the other byte order
    bool is_translated_ = false;
    LanHeader header_{};
};

// The size in bytes of one extent of a layout; 0 for a layout that does not exist.
[[nodiscard]] std::size_t extent_bytes(std::int32_t extent_type);

}  // namespace corvane
#endif
