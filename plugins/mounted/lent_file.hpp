// One file whose map is out: its descriptor, its kernel lease, its blocks, and the sizes that its
// clients named.
#ifndef CORVANE_PLUGINS_MOUNTED_LENT_FILE_HPP
#define CORVANE_PLUGINS_MOUNTED_LENT_FILE_HPP

#include <cstdint>
#include <string>
#include <vector>

#include "plugins/mounted/cookies.hpp"
#include "plugins/mounted/descriptor.hpp"
#include "plugins/mounted/file_extents.hpp"
#include "plugins/mounted/kernel_lease.hpp"
#include "plugins/mounted/loan_record.hpp"

namespace corvane::mounted {

struct Volume;

struct MapRequest {
    std::int64_t start = 0;
    std::int64_t length = -1;  // negative: to the end
    std::int32_t flag = 0;
};

// Sizes in bytes; -1: unchanged.
struct SizeRequest {
    std::int64_t file_size = -1;
    std::int64_t allocation = -1;
    std::uint32_t holders = 0;  // upper bound of the clients that hold a map
};

// A file is lent for reading until somebody allocates or changes its size; from then on it is lent
// for writing. A file lent for writing is longer than its clients know: it ends with the last block
// that a client may write, since the kernel takes nothing behind the end for data. settle() gives
// it the size that was named last.
//
// Not for two threads at once. Functions that return a number return a result code.
class LentFile {
public:
    LentFile(const Volume& volume, const FileId& id) : volume_(volume), id_(id) {}

    std::uint32_t map(const MapRequest& request, void* record, std::uint32_t& room_bytes);
    std::uint32_t set_sizes(const SizeRequest& request);

    // Takes up a loan for writing that an earlier process was killed over. False when there is
    // nothing to take up: the file has that size, or somebody changed it since.
    bool adopt(const Loan& loan);

    // The map came back: the file gets its size, what was allocated in vain is given back, and
    // nothing of it stays open or in memory.
    void settle();

    // As it was when the file was lent.
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

private:
    struct Plan {
        std::uint64_t named = 0;   // the size that clients are told
        std::uint64_t real = 0;    // the size that the kernel is told
        std::uint64_t filled = 0;  // up to here every block shall be a written one
        bool is_short = false;     // less than was asked for
        bool keeps_tail = false;   // a client may have written behind the old end
    };

    // lent_file.cpp: opening, lending, settling.
    [[nodiscard]] bool is_open() const noexcept { return file_.is_open(); }
    std::uint32_t open_by_handle(int flags, Descriptor& file) const;
    std::uint32_t reopen(int flags, Descriptor& file) const;
    std::uint32_t open_first();
    std::uint32_t check_kind();
    std::uint32_t ensure_lent();
    std::uint32_t lend(LeaseKind kind);
    std::uint32_t lend_once(LeaseKind kind, bool& has_changed);
    int take_lease(LeaseKind kind);
    std::uint32_t start_writing();
    void return_to_reading();
    std::uint32_t drop_pages();
    std::uint32_t read_blocks(std::vector<FileExtent>& extents);
    std::uint32_t refuse(std::uint32_t result, const std::string& why) const;
    std::uint32_t refuse_in_use(const std::string& why) const;
    [[nodiscard]] std::uint64_t real_bytes() const;
    [[nodiscard]] std::uint64_t whole_blocks(std::uint64_t bytes) const;
    void report(const std::string& text) const;
    void settle_size();
    void note_sizes() const;
    [[nodiscard]] std::int64_t changed_ns() const;

    // lent_sizes.cpp: sizes and allocations.
    [[nodiscard]] std::uint64_t map_end() const;
    [[nodiscard]] bool changes_nothing(const SizeRequest& request) const;
    Plan plan_for(const SizeRequest& request) const;
    std::uint32_t carry_out(Plan plan, std::uint32_t holders);
    std::uint32_t resize(std::uint64_t bytes, bool keeps_tail);
    std::uint32_t fill(std::uint64_t end, std::uint64_t& done_end);
    std::uint32_t align_end();
    std::uint32_t check_unshared() const;
    void give_back();

    const Volume& volume_;
    const FileId id_;
    std::string path_;  // as it was when it was lent, for log lines
    Descriptor keep_;   // names the inode while `file_` is closed for a moment
    Descriptor file_;
    KernelLease lease_;  // on `file_`; released before it is closed
    bool is_writing_ = false;
    std::uint64_t named_ = 0;          // the size as clients know it
    std::uint64_t allocated_end_ = 0;  // up to here every block is a written one
    std::uint64_t last_real_ = 0;      // the size that this plug-in gave it last
    std::vector<FileExtent> extents_;  // up to the end of the last block; true while lent
    std::vector<Gap> filled_;          // holes that were filled
};

}  // namespace corvane::mounted

#endif
