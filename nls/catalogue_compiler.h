/* The catalogue compiler: parses message sources into one catalogue in memory, merges a compiled
 * one, writes the compiled file, a header of constants, a dump, a translation skeleton. One
 * catalogue at a time, in module state; single-threaded. A fatal error writes a diagnostic to
 * standard error and ends the process with status 1. */
#ifndef CORVANE_NLS_CATALOGUE_COMPILER_H
#define CORVANE_NLS_CATALOGUE_COMPILER_H

#include <stdint.h>
#include <stdio.h>

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A message of the catalogue in memory; lists ascend by number. */
typedef struct MCMessageNode {
    int32_t msgId;      /* at least 1 */
    char* text;         /* bytes as decoded from the source, zero-terminated */
    char* constName;    /* or null */
    int32_t textOffset; /* in the set's text block; filled while writing */
    struct MCMessageNode* prev;
    struct MCMessageNode* next;
} MCMessageNode;

/* A set of the catalogue in memory. */
typedef struct MCSetNode {
    int32_t setId;   /* at least 0 */
    char* constName; /* or null */
    MCMessageNode* first;
    MCMessageNode* last;
    struct MCSetNode* prev;
    struct MCSetNode* next;
} MCSetNode;

typedef struct MCCatalogueNode {
    MCSetNode* first;
    MCSetNode* last;
} MCCatalogueNode;

CORVANE_API extern MCCatalogueNode* cat; /* null until the first parse, read or addition */
CORVANE_API extern MCSetNode* curSet;    /* where messages go; null before a set directive */
CORVANE_API extern char* curline;        /* the current source line, zero-terminated, or null */
CORVANE_API extern long lineno;          /* its number from 1; diagnostics name it */
CORVANE_API extern int32_t set2flag;     /* not 0: a set directive naming set 1 means set 2 */

/* Language types of MCWriteConst. */
#define MC_LANGUAGE_C 0    /* #define NAME 0x1 */
#define MC_LANGUAGE_CPP 1  /* const long NAME = 1; */
#define MC_LANGUAGE_ANSI 2 /* const long NAME = 1; */

/* Reads the whole source behind `fd` into `cat`: adds, replaces and deletes sets and messages. */
CORVANE_API void MCParse(int fd) CORVANE_NOEXCEPT;

/* Adds the sets and messages of a compiled catalogue (a seekable descriptor) to `cat`. */
CORVANE_API void MCReadCat(int fd) CORVANE_NOEXCEPT;

/* Writes `cat` as a compiled catalogue from the descriptor's current position on. */
CORVANE_API void MCWriteCat(int fd) CORVANE_NOEXCEPT;

/* Writes the constants of all named sets and messages for language `type`; with `combined` not 0
 * each message's value holds its set number too. Names are consumed: a second call writes none. */
CORVANE_API void MCWriteConst(int fd, int32_t type, int32_t combined) CORVANE_NOEXCEPT;

/* Writes `cat` back as source text. */
CORVANE_API void MCDumpcat(FILE* out) CORVANE_NOEXCEPT;

/* Writes every message of set 1, in its translation of set 2 where there is one, as a source of
 * set 2. */
CORVANE_API void MCTranslatecat(FILE* out) CORVANE_NOEXCEPT;

/* Makes set `number` current, creating it if needed, and gives it the name (null: none). */
CORVANE_API void MCAddSet(int32_t number, const char* name) CORVANE_NOEXCEPT;

/* Adds or replaces a message of the current set. `text` and `name` are copied; `name` may be null.
 */
CORVANE_API void MCAddMsg(int32_t number, const char* text, const char* name) CORVANE_NOEXCEPT;

/* Deletes a set with its messages, or a message of the current set; warns when there is none. */
CORVANE_API void MCDelSet(int32_t number) CORVANE_NOEXCEPT;
CORVANE_API void MCDelMsg(int32_t number) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif
