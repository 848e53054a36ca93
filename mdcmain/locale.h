/* Language set-up: the locale string, the catalogue search path, the number punctuation. At
 * start-up, on one thread; afterwards only the catalogue handle is read. */
#ifndef CORVANE_MDCMAIN_LOCALE_H
#define CORVANE_MDCMAIN_LOCALE_H

#include "nls/catalogue.h"
#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The daemon's catalogue; null or VOR_NO_CATALOGUE while none is open. */
CORVANE_API extern vor_cat_t corvane_cat;

/* This process's copy of the catalogue search path; empty before the language set-up. */
CORVANE_API extern char glbNlsPath[256];

/* Builds the locale string, "/" before each set one of LC_CTYPE, LC_COLLATE, LC_TIME, LC_NUMERIC,
 * LC_MONETARY, LC_MESSAGES and LANG, cut at 255 bytes, in `buffer` (256 bytes of room). Returns
 * `buffer`, or null (the buffer filled all the same) when LANG is unset. */
CORVANE_API char* corvaneSetLocale(char* buffer) CORVANE_NOEXCEPT;

/* Copies the first line of the language file /usr/Corvane/lang.txt into `buffer` (256 bytes of
 * room); leaves it as it is when the file is missing or empty. */
CORVANE_API void checkLang(char* buffer) CORVANE_NOEXCEPT;

/* Finds the catalogue search path, by the language file or the process's language, and writes it
 * into `buffer` (256 bytes of room); empty, with a line in the log, when there is none. */
CORVANE_API void nlsSetup(char* buffer) CORVANE_NOEXCEPT;

/* Sets the segment's thousands separator and decimal point by the names of languages that occur
 * anywhere in `text`, a catalogue search path. */
CORVANE_API void setThousandSeperator(const char* text) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif
