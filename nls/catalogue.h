/* Message catalogues at run time: find the language's file, open it, fetch texts by number, with
 * the built-in table behind them. */
#ifndef CORVANE_NLS_CATALOGUE_H
#define CORVANE_NLS_CATALOGUE_H

#include <stdint.h>

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* An open catalogue; VOR_NO_CATALOGUE stands for none, null for a file that is no catalogue. */
typedef struct vor_catalogue* vor_cat_t;
#ifdef __cplusplus
#define VOR_NO_CATALOGUE (reinterpret_cast<vor_cat_t>(-1))
#else
#define VOR_NO_CATALOGUE ((vor_cat_t)-1)
#endif

#define VOR_LOAD_ALL 2u /* flag: load every set at once and close the file */

/* The built-in texts by message number. */
#define CORVANECAT_ENTRIES 1055
CORVANE_API extern const char* const corvanecat[CORVANECAT_ENTRIES];

/* Writes the path of the catalogue for the process's language into `path` (256 bytes of room);
 * leaves it unchanged when there is none. */
CORVANE_API void vor_getNlsPath(char* path) CORVANE_NOEXCEPT;

/* Opens a catalogue, or returns the open one of the same path. VOR_NO_CATALOGUE on failure, null
 * for a file that is not a catalogue. Before other threads use catalogues. */
CORVANE_API vor_cat_t vor_catopen(const char* path, uint32_t flags) CORVANE_NOEXCEPT;

/* Returns the text of a message; never null, not to be freed. Any thread. */
CORVANE_API const char* vor_catgets(vor_cat_t catalogue, int32_t set, int32_t message,
                                    const char* default_text) CORVANE_NOEXCEPT;

/* Marks a catalogue as closed; it stays cached until its slot is needed. Returns 0, or -1 for a
 * handle that is not open. */
CORVANE_API int32_t vor_catclose(vor_cat_t catalogue) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif
