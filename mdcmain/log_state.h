/* The log's process-wide words. Only the log changes them; they are here for tests and diagnosis.
 */
#ifndef CORVANE_MDCMAIN_LOG_STATE_H
#define CORVANE_MDCMAIN_LOG_STATE_H

#include <stdint.h>

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

CORVANE_API extern int32_t recurseCk;  /* above 0 while a message is written: others are dropped */
CORVANE_API extern uint64_t loopcount; /* messages written; every 50th looks at the file's size */
CORVANE_API extern int32_t pid;        /* this process, once a message wanted it; 0 before */
CORVANE_API extern int32_t prevCount;  /* the count last saved; always 0 */

#ifdef __cplusplus
}
#endif
#endif
