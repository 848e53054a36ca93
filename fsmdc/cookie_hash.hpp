// Hashes of cookies and keys. Clients choose some of the bytes, so the seed is this process's
// secret: nobody can aim many records at one bucket.
#ifndef CORVANE_FSMDC_COOKIE_HASH_HPP
#define CORVANE_FSMDC_COOKIE_HASH_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "osl/bytes.hpp"

namespace corvane {

struct HashSeed {
    std::uint64_t words[4];
};

// Drawn once, on first use.
[[nodiscard]] const HashSeed& hash_seed() noexcept;

// Both halves of the 128-bit product, folded.
[[nodiscard]] inline std::uint64_t mix(std::uint64_t a, std::uint64_t b) noexcept
{
    __extension__ using Wide = unsigned __int128;
    const Wide product = static_cast<Wide>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

// Hashes 16 bytes at any address on top of `state`.
[[nodiscard]] inline std::uint64_t hash16(const void* bytes, std::uint64_t state,
                                          const HashSeed& seed) noexcept
{
    const auto low = load<std::uint64_t>(bytes);
    const auto high = load<std::uint64_t>(static_cast<const std::byte*>(bytes) + 8);
    return mix(low ^ seed.words[0] ^ state, high ^ seed.words[1]);
}

[[nodiscard]] inline std::uint64_t hash32(const void* bytes, std::uint64_t state,
                                          const HashSeed& seed) noexcept
{
    const std::uint64_t first = hash16(bytes, state, seed);
    return hash16(static_cast<const std::byte*>(bytes) + 16, first ^ seed.words[2], seed);
}

[[nodiscard]] inline std::uint64_t hash_cookie(const void* cookie) noexcept
{
    const HashSeed& seed = hash_seed();
    return mix(hash32(cookie, 0, seed) ^ seed.words[3], seed.words[1] | 1);
}

[[nodiscard]] inline std::uint64_t hash_key(std::uint32_t key) noexcept
{
    return mix(key ^ hash_seed().words[0], hash_seed().words[1] | 1);
}

}  // namespace corvane
#endif
