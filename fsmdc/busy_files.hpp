// Which files are asked for most, in a table of fixed size that every request passes. Guarded by
// leaseListLock.
#ifndef CORVANE_FSMDC_BUSY_FILES_HPP
#define CORVANE_FSMDC_BUSY_FILES_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "fsmdc/lease.h"

namespace corvane {

struct BusyFile {
    std::uint64_t hash = 0;      // of the file cookie
    std::uint32_t number = 0;    // of this stay in the table; 0: empty
    std::uint32_t requests = 0;  // counted during this stay, modulo 2^32
    std::uint32_t weight = 0;
    const FsLibrary* library = nullptr;
    std::uint8_t volume_cookie[FS_COOKIE_BYTES] = {};
    std::uint8_t file_cookie[FS_COOKIE_BYTES] = {};
};

// A file has four places where it may stand, each worth some points. A request gives its own file a
// point, up to a few; one whose file stands nowhere takes a place without points, or else a point
// from all four. So whatever has a good share of the requests stays, what was busy once goes, and a
// request looks at four hashes.
class BusyFiles {
public:
    // A request named the file of this lease.
    void note(const LeaseRecord& record) noexcept;

    // Copies the files that stand in the table, in no order. Returns their number.
    [[nodiscard]] std::size_t copy(std::span<BusyFile> files) const noexcept;

    // The file of this number, or null.
    [[nodiscard]] const BusyFile* find(std::uint32_t number) const noexcept;

    void clear() noexcept;

    static constexpr std::size_t kSets = 64;
    static constexpr std::size_t kPlaces = 4;

private:
    static constexpr std::uint32_t kMostPoints = 32;

    void enter(BusyFile& place, std::uint64_t hash, const LeaseRecord& record) noexcept;

    std::array<std::array<BusyFile, kPlaces>, kSets> sets_{};
    std::uint32_t last_number_ = 0;
};

}  // namespace corvane
#endif
