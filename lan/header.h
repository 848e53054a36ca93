/* The 48-byte header of every request and reply. */
#ifndef CORVANE_LAN_HEADER_H
#define CORVANE_LAN_HEADER_H

#include <stdint.h>

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct LanHeader {
    uint32_t endian;       /*  0: reads 1 in the sender's own order; never swapped */
    int32_t revision;      /*  4: revision of the message layout */
    uint8_t messageID[16]; /*  8: opaque, chosen by the client; a reply repeats it */
    int32_t functionCode;  /* 24: 1 to 99; negated in a reply */
    uint32_t length;       /* 28: the whole message in bytes, at least 48 */
    uint32_t flags;        /* 32: LAN_FLAG_TRACK */
    int32_t result;        /* 36: result code; 0 in requests */
    uint8_t spare1[2];     /* 40: carried unchanged */
    uint16_t spare2;       /* 42: carried; the metadata requests' path separator (FSUNI) */
    uint8_t spare3[4];     /* 44: carried unchanged */
} LanHeader;

#define LAN_FLAG_TRACK 1u /* the sender asks for duplicate detection */

/* Traces a header in host order in five lines. `header` may lie at any address. Any thread. */
CORVANE_API void LANSUP_DumpLanHeader(const void* header) CORVANE_NOEXCEPT;

/* Turns the swapped fields of a foreign header into host order, in place, at any address; a header
 * whose marker reads 1 stays as it is. The marker itself never changes: call it once. Any thread.
 */
CORVANE_API void LANSUP_TransLanHeader(void* header) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif
