// Texts between the command line (UTF-8) and the wire (FSUNI, 16-bit units).
#ifndef CORVANE_CLIENT_TEXT_HPP
#define CORVANE_CLIENT_TEXT_HPP

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "osl/types.h"

namespace corvane {

// Returns the UTF-16 units of a UTF-8 text, without a zero. Throws Failure(kBadArgument), naming
// the text as `what`, when it is not valid UTF-8 or holds a zero character.
[[nodiscard]] std::vector<FSUNI> fsuni_from_utf8(std::string_view text, const char* what);

// Returns one unit for each byte, the sign extended, as the controller widens its own names: what
// it narrows again byte by byte arrives unchanged, whatever the code set.
[[nodiscard]] std::vector<FSUNI> fsuni_from_bytes(std::string_view text);

// Returns UTF-8 text; an unpaired surrogate becomes U+FFFD.
[[nodiscard]] std::string utf8_from_fsuni(const std::vector<FSUNI>& units);
[[nodiscard]] std::string utf8_from_wide(const wchar_t* text);

// Returns `text` fit for one line of a terminal: control characters and invalid bytes become "?".
[[nodiscard]] std::string printable(std::string_view text);

// Returns bytes as "9a3f..." in lower case.
[[nodiscard]] std::string hex_text(const std::uint8_t* bytes, std::size_t count);

// Returns a byte count for people, as "12.5 MiB" or "512 bytes".
[[nodiscard]] std::string size_text(std::int64_t bytes);

// The same with two decimals, fewer when they are zeros: "2.25 MiB".
[[nodiscard]] std::string fine_size_text(std::int64_t bytes);

}  // namespace corvane
#endif
