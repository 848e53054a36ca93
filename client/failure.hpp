// What can go wrong in a client: one exception with a result code and a line for a person.
#ifndef CORVANE_CLIENT_FAILURE_HPP
#define CORVANE_CLIENT_FAILURE_HPP

#include <cstdint>
#include <stdexcept>
#include <string>

namespace corvane {

// Codes of this side, beyond those of the controller and the transport.
constexpr std::uint32_t kBadReply = 2000;     // a reply that contradicts itself
constexpr std::uint32_t kNoDisk = 2001;       // a disk of the volume is not here, or not only once
constexpr std::uint32_t kDiskError = 2002;    // a disk could not be opened, read or written
constexpr std::uint32_t kLeaseEnded = 2003;   // the lease ran out or could not be renewed
constexpr std::uint32_t kInterrupted = 2004;  // the caller asked to stop
constexpr std::uint32_t kBadArgument = 2005;  // a name or number that cannot be asked for
constexpr std::uint32_t kLocalFile = 2006;    // a file of this host could not be read or written
constexpr std::uint32_t kNoBlocks = 2007;     // the file has no blocks where bytes are to go

// Ends an operation. `what()` is one line, without a newline, that says what to do next.
class Failure : public std::runtime_error {
public:
    Failure(std::uint32_t code, const std::string& text) : std::runtime_error(text), code_(code) {}
    [[nodiscard]] std::uint32_t code() const noexcept { return code_; }

private:
    std::uint32_t code_;
};

// Whoever reads our output has closed it: nothing more to say or do.
class OutputClosed : public Failure {
public:
    OutputClosed() : Failure(kLocalFile, "the reader of the output has gone; keep it open") {}
};

// Returns the text of a code with the code itself, as "unknown share (code 100)".
[[nodiscard]] std::string describe_code(std::uint32_t code);

// Returns what a user can do about a code; empty when there is nothing to say.
[[nodiscard]] std::string advice(std::uint32_t code);

// Throws the Failure of a non-zero code: `what` failed, the code's text, the advice.
[[noreturn]] void fail(std::uint32_t code, const std::string& what);

// Throws a Failure that ends in the text of `errno_value`, then `advice_text`.
[[noreturn]] void fail_errno(std::uint32_t code, const std::string& what, int errno_value,
                             const std::string& advice_text);

}  // namespace corvane
#endif
