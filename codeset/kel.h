/* The code-set library: all of its public headers. It needs nothing but the C library, and serves C
 * and C++ callers alike. */
#ifndef CORVANE_CODESET_KEL_H
#define CORVANE_CODESET_KEL_H

#include "codeset/kel_convert.h"
#include "codeset/kel_cs.h"
#include "codeset/kel_family.h"
#include "codeset/kel_lang.h"
#include "codeset/kel_wcs.h"

#endif
