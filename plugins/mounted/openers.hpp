// Which programs of this host wait to open a file, have it open, or map it.
#ifndef CORVANE_PLUGINS_MOUNTED_OPENERS_HPP
#define CORVANE_PLUGINS_MOUNTED_OPENERS_HPP

#include <sys/types.h>

#include <string>

namespace corvane::mounted {

// The inode that a descriptor stands for.
struct Inode {
    dev_t device = 0;
    ino_t number = 0;
    bool operator==(const Inode&) const = default;
};
Inode inode_of(int descriptor);

// "pid 123 (smbd, user 1000)" of each program that sleeps in a call which opens the file (or cuts
// it by name), apart by commas; empty when none does any more.
std::string find_waiting_openers(const Inode& file);

// The same for programs (other than this one) that have the file open or map it.
std::string find_holders(const Inode& file);

}  // namespace corvane::mounted

#endif
