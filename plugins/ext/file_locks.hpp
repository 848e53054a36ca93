// The files of one volume whose maps are out, and what must not happen to them until they come
// back.
#ifndef CORVANE_PLUGINS_EXT_FILE_LOCKS_HPP
#define CORVANE_PLUGINS_EXT_FILE_LOCKS_HPP

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "plugins/ext/cookies.hpp"
#include "plugins/ext/layout.hpp"

namespace corvane::ext {

// What an unlocked file leaves to be done by the next call that may take its time.
struct Returned {
    FileId file;
    std::vector<BlockRange> freed;  // blocks of the volume that may be used again
    bool has_loan = false;          // written blocks past the end of the file have to go
};

// A table of its own with a lock of its own, held for a few instructions: FS_UnlockMap runs under
// the daemon's lease lock and must never wait for a disk.
class FileLocks {
public:
    // Locks the file. `may_be_new_holder`: the call may come from a client that held no map before.
    void lock(FileId file, bool may_be_new_holder);

    // Ends the lock. False when the file was not locked.
    bool unlock(FileId file);

    // Upper bound of the clients that hold a map of the file; 0: not locked.
    [[nodiscard]] std::uint32_t holders(FileId file) const;

    // The checked layout of a locked file, as long as nothing changed it; else null.
    [[nodiscard]] std::shared_ptr<const Layout> layout(FileId file) const;
    void keep_layout(FileId file, std::shared_ptr<const Layout> layout);
    void forget_layout(FileId file);

    // Blocks of the file, past its end, that are zeroed and handed out for writing though the disk
    // still calls them unwritten. Ascending.
    [[nodiscard]] std::vector<BlockRange> prepared(FileId file) const;
    void set_prepared(FileId file, std::vector<BlockRange> ranges);

    // Remembers that the file has written blocks past its end, which the disk format does not allow
    // for long.
    void set_loan(FileId file, bool has_loan);

    // Keeps blocks that the file just gave up from being used again while a map of it is out.
    // Blocks of a file that is not locked come back with the next take_returned.
    void hold_back(FileId file, const std::vector<BlockRange>& freed);

    // Every block held back now.
    [[nodiscard]] std::vector<BlockRange> held_back() const;

    // What came back since the last call.
    std::vector<Returned> take_returned();

private:
    struct Entry {
        std::uint32_t generation = 0;
        std::uint32_t holders = 0;
        bool has_loan = false;
        std::vector<BlockRange> prepared;
        std::vector<BlockRange> freed;
        std::shared_ptr<const Layout> layout;
    };
    Entry* find(FileId file);
    [[nodiscard]] const Entry* find(FileId file) const;

    mutable std::mutex mutex_;
    std::unordered_map<std::uint32_t, Entry> entries_;  // by inode
    std::vector<Returned> returned_;
};

}  // namespace corvane::ext

#endif
