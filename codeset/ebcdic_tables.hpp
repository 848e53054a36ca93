// The invariant EBCDIC bytes and their characters in one table, for a single access a byte.
#ifndef CORVANE_CODESET_EBCDIC_TABLES_HPP
#define CORVANE_CODESET_EBCDIC_TABLES_HPP

#include <array>
#include <cstdint>

namespace corvane::kel {

// In the low half `def_eb_to_ucs` where `invar_eb_to_ucs` has a flag, else 0; in the high half a
// mask that leaves the table's value to the other bytes. So a mix of both needs no jump.
extern const std::array<std::uint32_t, 256> kInvariantUnits;

}  // namespace corvane::kel
#endif
