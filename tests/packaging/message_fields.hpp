// What the dissector shall show of a message, worked out apart from it.
#ifndef CORVANE_TESTS_PACKAGING_MESSAGE_FIELDS_HPP
#define CORVANE_TESTS_PACKAGING_MESSAGE_FIELDS_HPP

#include "tests/packaging/capture.hpp"

namespace corvane::harness {

[[nodiscard]] std::string order_field(codec::Order order);

// The fields of a request of one of the five functions, which was sent in `order`.
[[nodiscard]] Fields request_fields(const codec::Bytes& request, codec::Order order);

// The fields of a successful reply; its header and records are in `order`.
[[nodiscard]] Fields reply_fields(const codec::Bytes& reply, codec::Order order);

}  // namespace corvane::harness
#endif
