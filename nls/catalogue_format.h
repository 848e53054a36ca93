/* Records of a compiled catalogue file. Every integer is unsigned, 32 bits, most significant byte
 * first in the file and in host order once converted. */
#ifndef CORVANE_NLS_CATALOGUE_FORMAT_H
#define CORVANE_NLS_CATALOGUE_FORMAT_H

#include <stddef.h>
#include <stdint.h>

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

#define MC_MAGIC "*nazgul*" /* the first MC_MAGIC_BYTES bytes of every catalogue */
#define MC_MAGIC_BYTES 8
#define MC_MAJOR_VERSION 1

/* The file header, at offset 0. */
typedef struct MCHeaderT {
    char magic[MC_MAGIC_BYTES]; /*  0: not terminated */
    uint32_t majorVer;          /*  8 */
    uint32_t minorVer;          /* 12: written as 0, never read */
    uint32_t reserved;          /* 16: written as 0, never read */
    uint32_t numSets;           /* 20: valid sets in the file, at least 1 */
    uint32_t firstSet;          /* 24: file offset of the first set record */
} MCHeaderT;

/* In a file an offset and a reserved word; in memory an address may lie over both words. */
typedef struct MCSlotT {
    uint32_t offset;   /* 0 */
    uint32_t reserved; /* 4: never swapped */
} MCSlotT;

/* One set of messages. In memory `dataOffset` holds the address of the converted texts, `msgIndex`
 * that of the valid message records, `dataLen` the capacity of the text buffer and `invalid` 0 when
 * the set is loaded, all bits set while it is not. */
typedef struct MCSetT {
    uint32_t setId;     /*  0 */
    uint32_t nextSet;   /*  4: file offset of the next set record, 0 in the last one */
    MCSlotT msgIndex;   /*  8: file offset of the message records */
    MCSlotT dataOffset; /* 16: file offset of the text block */
    uint32_t dataLen;   /* 24: bytes in the text block */
    uint32_t numMsgs;   /* 28: message records */
    uint32_t invalid;   /* 32: not 0 marks a deleted set */
} MCSetT;

/* One message. In memory `textOffset` holds the address of the converted text. */
typedef struct MCMsgT {
    uint32_t msgId;     /* 0 */
    uint32_t invalid;   /* 4: not 0 marks a deleted message */
    MCSlotT textOffset; /* 8: offset of the text in the set's text block */
} MCMsgT;

/* Convert one record in place between host and file order, field by field: five integers of a
 * header, seven of a set, three of a message. Magic and reserved words stay as they are. Any
 * address. */
CORVANE_API void hton_MCHeaderT(void* header) CORVANE_NOEXCEPT;
CORVANE_API void ntoh_MCHeaderT(void* header) CORVANE_NOEXCEPT;
CORVANE_API void hton_MCSetT(void* set) CORVANE_NOEXCEPT;
CORVANE_API void ntoh_MCSetT(void* set) CORVANE_NOEXCEPT;
CORVANE_API void hton_MCMsgT(void* message) CORVANE_NOEXCEPT;
CORVANE_API void ntoh_MCMsgT(void* message) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}

static_assert(sizeof(MCHeaderT) == 28 && offsetof(MCHeaderT, majorVer) == 8 &&
                  offsetof(MCHeaderT, numSets) == 20 && offsetof(MCHeaderT, firstSet) == 24,
              "layout of the file");
static_assert(sizeof(MCSetT) == 36 && offsetof(MCSetT, msgIndex) == 8 &&
                  offsetof(MCSetT, dataOffset) == 16 && offsetof(MCSetT, dataLen) == 24 &&
                  offsetof(MCSetT, invalid) == 32,
              "layout of the file");
static_assert(sizeof(MCMsgT) == 16 && offsetof(MCMsgT, invalid) == 4 &&
                  offsetof(MCMsgT, textOffset) == 8,
              "layout of the file");
#endif
#endif
