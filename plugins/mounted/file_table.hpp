// The files of one volume whose maps are out, and those that just came back.
#ifndef CORVANE_PLUGINS_MOUNTED_FILE_TABLE_HPP
#define CORVANE_PLUGINS_MOUNTED_FILE_TABLE_HPP

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "plugins/mounted/cookies.hpp"
#include "plugins/mounted/lent_file.hpp"

namespace corvane::mounted {

// The table has a lock of its own, held for a few instructions: FS_UnlockMap runs under the
// daemon's lease lock and must never wait for a disk. Each file has a lock that is held over
// everything slow, so that files do not wait for one another.
class FileTable {
public:
    // Each of the two works on the file alone, after what its last return left to do.
    std::uint32_t map(const Volume& volume, const FileId& id, const MapRequest& request,
                      void* record, std::uint32_t& room_bytes);
    std::uint32_t set_sizes(const Volume& volume, const FileId& id, SizeRequest request);

    // Ends the file's loan; settle() has to follow, or the next call for the file does its work.
    // False when no map was out.
    bool unlock(const FileId& id);

    // The path that a lent file had when it was lent; empty when it is not lent.
    std::string path_of(const FileId& id);

    // Does what is left to do for a file that came back.
    void settle(const FileId& id);

    // Lends a file again that an earlier process had lent for writing when it was killed.
    void adopt(const Volume& volume, const Loan& loan);

    // The time of such a loan is over; clients that came since keep theirs.
    void end_adopted(const Volume& volume, const Loan& loan);

    // Ends every loan, for good.
    void settle_all();

private:
    struct Entry {
        Entry(const Volume& volume, const FileId& id) : file(volume, id) {}

        std::mutex io;  // guards `file`; taken before the table's lock
        LentFile file;
        std::uint32_t holders = 0;  // of a map: an upper bound. Guarded by the table's lock, as is:
        bool has_returned = false;  // the file is to be settled first
        bool is_adopted = false;    // one of the holders had its map from an earlier process
        bool is_gone = false;       // no longer in the table
        std::string path;
    };
    using EntryPtr = std::shared_ptr<Entry>;

    template <class Body>
    std::uint32_t with_file(const Volume& volume, const FileId& id, Body body);
    EntryPtr find_or_add(const Volume& volume, const FileId& id);
    EntryPtr find(const FileId& id);
    void settle_returned(Entry& entry);
    void remove_unlocked(const FileId& id, Entry& entry);

    std::mutex mutex_;
    std::map<FileId, EntryPtr> entries_;
};

}  // namespace corvane::mounted

#endif
