// The steps of the language set-up that belong to mapping the segment, and to starting the daemon.
#ifndef CORVANE_MDCMAIN_LANGUAGE_HPP
#define CORVANE_MDCMAIN_LANGUAGE_HPP

namespace corvane {

// Settles the language of a new segment. Ends the process with status 1 when there is no catalogue.
// Does not open the catalogue.
void set_up_language() noexcept;

// Brings an existing segment's language up to date with this process's and opens the catalogue.
void refresh_language() noexcept;

// Opens the daemon's catalogue by the segment's path where this process created the segment, and so
// has not opened it yet.
void open_creators_catalogue() noexcept;

}  // namespace corvane
#endif
