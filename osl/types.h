/* The fixed-width types of every wire format. FSUNI is the 16-bit character of all messages: a
 * string ends with a zero unit, and lengths are in units unless a name ends in `_bytes`. */
#ifndef CORVANE_OSL_TYPES_H
#define CORVANE_OSL_TYPES_H

#include <stdint.h>

typedef uint16_t FSUNI;    /* one character: 2 bytes */
typedef int32_t FSLONG;    /* 4 bytes, signed */
typedef uint32_t FSULONG;  /* 4 bytes, unsigned */
typedef int64_t FS64LONG;  /* 8 bytes, signed */
typedef struct FS128LONG { /* 16 opaque bytes */
    uint8_t bytes[16];
} FS128LONG;

#endif
