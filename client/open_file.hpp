// A file under a lease: its volume, its size and its map, piece by piece.
#ifndef CORVANE_CLIENT_OPEN_FILE_HPP
#define CORVANE_CLIENT_OPEN_FILE_HPP

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/exchange.hpp"
#include "client/extent_map.hpp"
#include "client/lease.hpp"
#include "client/volume.hpp"

namespace corvane {

enum class Intention { kRead, kWrite };

// Asks for a volume by share name or absolute path.
[[nodiscard]] Volume ask_volume(const Exchange& exchange, const std::string& share);

class OpenFile {
public:
    // Takes a lease on `path` of `share` and its first map. Throws Failure; then no lease is left
    // behind. `exchange` outlives this object.
    OpenFile(const Exchange& exchange, const std::string& share, const std::string& path,
             Intention intention);

    // The volume of the file itself, which need not be the share's.
    [[nodiscard]] const Volume& volume() const { return volume_; }
    [[nodiscard]] std::int64_t size() const { return first_map_.file_size; }
    [[nodiscard]] std::int64_t allocation() const { return first_map_.allocation; }

    // The map from a block-aligned byte on: as much of it as one reply holds. Its `end` is where
    // the next piece begins.
    [[nodiscard]] ExtentMap map_from(std::int64_t start);

    // All extents of [0, end), holes included, adjacent ones joined. Bounded in number.
    [[nodiscard]] std::vector<Extent> whole_map(std::int64_t end);

    // Asks for blocks up to `bytes`; earlier maps are void. Where none lack this only asks for
    // leave to write. A controller may make the file as long as its blocks until the close names a
    // size.
    void allocate(std::int64_t bytes, bool lacks_blocks);

    // True once blocks were asked for, whether or not they came.
    [[nodiscard]] bool has_allocated() const { return has_allocated_; }

    // Changes the file's size.
    void set_size(std::int64_t bytes);

    // Throws Failure when the lease may end before another transfer does.
    void check_lease() const { lease_->check(); }

    // How long a transfer may take, and what to call after each with when it began; see Lease.
    [[nodiscard]] Clock::duration transfer_budget() const { return lease_->transfer_budget(); }
    void end_transfer(Clock::time_point began) { lease_->end_transfer(began); }

    // Ends the lease, with a final size or kUnchanged. Without it the destructor does, unchanged.
    void close(std::int64_t final_size = kUnchanged) { lease_->close(final_size); }

private:
    [[nodiscard]] ExtentMap ask_map(const AskedRange& asked, std::int64_t allocation);
    [[nodiscard]] std::optional<ExtentMap> try_map(const AskedRange& asked,
                                                   std::int64_t allocation);

    const Exchange& exchange_;
    std::unique_ptr<Lease> lease_;
    Volume volume_;
    ExtentMap first_map_;
    bool has_allocated_ = false;
};

// Appends `extent`, joined with the last one when it goes on in the file and on the disk.
void append_extent(std::vector<Extent>& extents, const Extent& extent);

}  // namespace corvane
#endif
