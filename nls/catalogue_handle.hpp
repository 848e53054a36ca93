// Handles of catalogues in our own code: the one that stands for none, and the end of one.
#ifndef CORVANE_NLS_CATALOGUE_HANDLE_HPP
#define CORVANE_NLS_CATALOGUE_HANDLE_HPP

#include "nls/catalogue_runtime.h"

namespace corvane {

// NOLINTNEXTLINE(performance-no-int-to-ptr): -1 is how the interface says "none".
inline vor_catalogue* const kNoCatalogue = VOR_NO_CATALOGUE;

// Closes the file, if it is open, and frees the loaded sets, the set array and the handle, without
// a word on standard output.
void release_catalogue(vor_cat_t catalogue) noexcept;

}  // namespace corvane
#endif
