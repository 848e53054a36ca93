/* The catalogue runtime's inner operations: the cache of open catalogues, opening, loading, look-up
 * and path search. Programs use nls/catalogue.h. Opening, closing and path search belong to one
 * thread; MCGetSet and MCGetMsg may be called by any. */
#ifndef CORVANE_NLS_CATALOGUE_RUNTIME_H
#define CORVANE_NLS_CATALOGUE_RUNTIME_H

#include <stddef.h>
#include <stdint.h>

#include "nls/catalogue.h"
#include "nls/catalogue_format.h"
#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* An open catalogue. */
struct vor_catalogue {
    uint32_t flags;       /* as given to vor_catopen */
    int32_t fd;           /* -1 once all sets are loaded and the file is closed */
    int32_t numSets;      /* valid sets */
    MCSetT* sets;         /* in file order, which ascends by number */
    uint64_t loadedBytes; /* of the file, in all sets loaded so far */
};

#define VOR_CACHE_SLOTS 10
#define VOR_PATH_BYTES 256 /* room of every path here, its zero byte included */

typedef struct vor_cache_entry {
    char* path; /* as given to vor_catopen */
    vor_cat_t catalogue;
    uint32_t lastUse; /* a value of lookTicker */
    int32_t inUse;    /* 1 until vor_catclose */
} vor_cache_entry;

CORVANE_API extern vor_cache_entry* catCache[VOR_CACHE_SLOTS]; /* null: an empty slot */
CORVANE_API extern uint32_t lookTicker;                        /* advances with every cache hit */

/* Memory of this module: covers of malloc, realloc and free, in a file of their own so that a
 * program can bring others. */
CORVANE_API void* nls_malloc(size_t size) CORVANE_NOEXCEPT;
CORVANE_API void* nls_realloc(void* block, size_t size) CORVANE_NOEXCEPT;
CORVANE_API void nls_free(void* block) CORVANE_NOEXCEPT;

/* Returns the cache slot that holds `path`, or -1; null is in none. */
CORVANE_API int32_t cacheIndex(const char* path) CORVANE_NOEXCEPT;

/* Returns the cached catalogue of `path`, its use noted, or VOR_NO_CATALOGUE. */
CORVANE_API vor_cat_t lookupCat(const char* path) CORVANE_NOEXCEPT;

/* Enters a catalogue in the cache, in place of the one that was closed and not looked up for
 * longest when no slot is free. Returns 0, or -1 when all slots are in use or `path` is null. */
CORVANE_API int32_t addCat(const char* path, vor_cat_t catalogue) CORVANE_NOEXCEPT;

/* What vor_catopen does. */
CORVANE_API vor_cat_t loadCat(const char* path, uint32_t flags) CORVANE_NOEXCEPT;

/* Closes and frees a catalogue; VOR_NO_CATALOGUE and null are ignored. */
CORVANE_API void real_catclose(vor_cat_t catalogue) CORVANE_NOEXCEPT;

/* Reads a set of the catalogue and converts its texts. Returns 1, 0 for a corrupt file, -1 when
 * memory is short; the set changes only on success. The caller sees to it that no other thread
 * loads it. */
CORVANE_API int32_t loadSet(vor_cat_t catalogue, MCSetT* set) CORVANE_NOEXCEPT;

/* Returns the set of that number, loaded if that can be done, or null. */
CORVANE_API MCSetT* MCGetSet(vor_cat_t catalogue, int32_t number) CORVANE_NOEXCEPT;

/* Returns the message of that number in a loaded set, or null. */
CORVANE_API MCMsgT* MCGetMsg(MCSetT* set, int32_t number) CORVANE_NOEXCEPT;

/* Expands one path template (%L locale, %N name, %l language, %t territory, %c code set) into
 * `path` (VOR_PATH_BYTES of room). Returns 1 when that catalogue is cached or the file exists, else
 * 0; a path that does not fit is not found. */
CORVANE_API int32_t try_path(const char* path_template, const char* locale, const char* name,
                             char* path) CORVANE_NOEXCEPT;

/* Copy a part of the locale name to `out`, without a terminator, at most `room` bytes. Return the
 * length of the part, which is more than `room` when it was cut. */
CORVANE_API size_t copy_language(char* out, const char* locale, size_t room) CORVANE_NOEXCEPT;
CORVANE_API size_t copy_territory(char* out, const char* locale, size_t room) CORVANE_NOEXCEPT;
CORVANE_API size_t copy_codeset(char* out, const char* locale, size_t room) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif
