// Remembers, for the next daemon, which files are longer than their clients know: a daemon may be
// killed before they come back.
#ifndef CORVANE_PLUGINS_MOUNTED_LOAN_RECORD_HPP
#define CORVANE_PLUGINS_MOUNTED_LOAN_RECORD_HPP

#include <cstdint>
#include <string>
#include <vector>

#include "plugins/mounted/cookies.hpp"

namespace corvane::mounted {

struct Loan {
    Uuid volume{};
    FileId file;
    std::uint64_t named = 0;  // the size that clients know
    std::uint64_t real = 0;   // the size that the file has meanwhile
    // When the file was changed last: by this plug-in, for clients' own writes leave no trace.
    std::int64_t changed_ns = 0;
};

// Each of the following may be called by any thread.

// Reads the record at `path`, keeps to it from now on, and returns what an earlier process left in
// it. A record that cannot be read counts as empty.
std::vector<Loan> open_loan_record(const std::string& path);

// Puts a loan into the record, or changes it. Written to the file, and to its disk, when this
// returns; a failure is logged once.
void note_loan(const Loan& loan);

// Takes a loan out of the record.
void forget_loan(const Uuid& volume, const FileId& file);

}  // namespace corvane::mounted

#endif
