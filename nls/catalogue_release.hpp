// Freeing a catalogue without a word on standard output.
#ifndef CORVANE_NLS_CATALOGUE_RELEASE_HPP
#define CORVANE_NLS_CATALOGUE_RELEASE_HPP

#include "nls/catalogue_runtime.h"

namespace corvane {

// Closes the file, if it is open, and frees the loaded sets, the set array and the handle.
void release_catalogue(vor_cat_t catalogue) noexcept;

}  // namespace corvane
#endif
