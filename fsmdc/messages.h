/* The bodies of the metadata requests and replies, behind the 48-byte LAN header. Offsets count
 * from the first byte of the message; integers are in the sender's byte order; bytes that no field
 * covers are zero. */
#ifndef CORVANE_FSMDC_MESSAGES_H
#define CORVANE_FSMDC_MESSAGES_H

#include <stdint.h>

#include "lan/header.h"
#include "osl/export.h"
#include "osl/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Function codes of requests; a reply carries the negated code. */
#define SP_GET_VOLUME 1
#define SP_GET_INITIAL_MAP 2
#define SP_GET_EXTENDED_MAP 3
#define SP_SET_SIZE 4
#define SP_CLOSE 5

#define SP_PATH_UNITS 1024  /* units of a request's path area, zeros included */
#define SP_INTENTION_READ 1 /* any other intention writes */

typedef struct GetVolumeRequest {
    LanHeader header;          /*   0 */
    uint8_t unused1[36];       /*  48 */
    uint8_t volumeCookie[32];  /*  84: the volume, when `path` is empty */
    uint8_t unused2[64];       /* 116 */
    FSUNI path[SP_PATH_UNITS]; /* 180: share name or absolute path */
} GetVolumeRequest;            /* 2228 bytes */

typedef struct GetInitialMapRequest {
    LanHeader header;          /*   0 */
    int64_t filesize;          /*  48: new size in bytes, -1 = unchanged */
    int64_t allocsize;         /*  56: new allocation in bytes, -1 = unchanged */
    int32_t lease;             /*  64: wanted lease in milliseconds, 0 = default */
    int32_t intention;         /*  68: SP_INTENTION_READ, or write */
    int32_t flag;              /*  72: map flags for the plug-in */
    uint8_t unused[36];        /*  76 */
    FSUNI path[SP_PATH_UNITS]; /* 112: share name, zero, path inside the share, zero */
} GetInitialMapRequest;        /* 2160 bytes */

typedef struct GetExtendedMapRequest {
    LanHeader header;   /*  0 */
    int64_t filesize;   /* 48: new size in bytes, -1 = unchanged */
    int64_t allocation; /* 56: new allocation in bytes, -1 = unchanged */
    int64_t start;      /* 64: first byte to map */
    int64_t length;     /* 72: bytes to map, 0 = the whole file */
    int32_t lease;      /* 80: wanted lease in milliseconds, 0 = default */
    uint32_t key;       /* 84: lease key */
    int32_t flag;       /* 88: map flags for the plug-in */
    uint8_t unused[4];  /* 92: pads the structure; a message may end at 92 */
} GetExtendedMapRequest;

typedef struct SetSizeRequest {
    LanHeader header; /*  0 */
    int64_t filesize; /* 48: new size in bytes */
    int32_t lease;    /* 56: wanted lease in milliseconds, 0 = default */
    uint32_t key;     /* 60: lease key */
} SetSizeRequest;     /* 64 bytes */

typedef struct CloseRequest {
    LanHeader header;  /*  0 */
    int64_t filesize;  /* 48: final size in bytes, -1 = unchanged */
    uint32_t key;      /* 56: lease key */
    uint8_t unused[4]; /* 60: pads the structure; a message may end at 60 */
} CloseRequest;

typedef struct GetVolumeReply {
    LanHeader header;   /*  0 */
    int32_t result;     /* 48: result code */
    uint8_t unused[36]; /* 52 */
                        /* 88: volume-info record */
} GetVolumeReply;

typedef struct GetInitialMapReply {
    LanHeader header;         /*   0 */
    int32_t result;           /*  48: result code */
    int32_t lease;            /*  52: granted lease in milliseconds */
    uint32_t key;             /*  56: lease key */
    uint8_t unused[36];       /*  60 */
    uint8_t fileCookie[32];   /*  96 */
    uint8_t volumeCookie[32]; /* 128 */
                              /* 160: map-info record */
} GetInitialMapReply;

typedef struct GetExtendedMapReply {
    LanHeader header;   /*  0 */
    int32_t result;     /* 48: result code */
    int32_t lease;      /* 52: granted lease in milliseconds, 0 = none */
    uint8_t unused[32]; /* 56 */
                        /* 88: map-info record */
} GetExtendedMapReply;

typedef struct SetSizeReply {
    LanHeader header;   /*  0 */
    int32_t result;     /* 48: result code */
    int32_t lease;      /* 52: granted lease in milliseconds, 0 = none */
    uint8_t unused[16]; /* 56 */
} SetSizeReply;         /* 72 bytes */

typedef struct CloseReply {
    LanHeader header;   /*  0 */
    int32_t result;     /* 48: result code */
    uint8_t unused[36]; /* 52 */
} CloseReply;           /* 88 bytes */

#define SP_GET_VOLUME_RECORD 88 /* offset of the record in each reply */
#define SP_GET_INITIAL_MAP_RECORD 160
#define SP_GET_EXTENDED_MAP_RECORD 88

/* Turn the body of a received request (header already in host order) into host order, in place, by
 * the header's marker. The message has LAN_REQUEST_ROOM bytes of room. */
CORVANE_API void SPSUP_TransLanGetVolume(void* request) CORVANE_NOEXCEPT;
CORVANE_API void SPSUP_TransLanGetInitialMap(void* request) CORVANE_NOEXCEPT;
CORVANE_API void SPSUP_TransLanGetExtendedMap(void* request) CORVANE_NOEXCEPT;
CORVANE_API void SPSUP_TransLanSetSize(void* request) CORVANE_NOEXCEPT;
CORVANE_API void SPSUP_TransLanClose(void* request) CORVANE_NOEXCEPT;

/* The same for a received reply. Nothing behind the message's `length` is touched, whatever the
 * record's counts say; a length below 48 cannot be one, and then the counts are believed: a
 * receiver checks the length against what it received first. */
CORVANE_API void SPSUP_TransLanGetVolumeResp(void* reply) CORVANE_NOEXCEPT;
CORVANE_API void SPSUP_TransLanGetInitialMapResp(void* reply) CORVANE_NOEXCEPT;
CORVANE_API void SPSUP_TransLanGetExtendedMapResp(void* reply) CORVANE_NOEXCEPT;
CORVANE_API void SPSUP_TransLanSetSizeResp(void* reply) CORVANE_NOEXCEPT;
CORVANE_API void SPSUP_TransLanCloseResp(void* reply) CORVANE_NOEXCEPT;

/* Trace a message in host order: SPSUP_DumpMessage picks by function code, and dumps nothing for
 * null and for codes it does not know. A reply is read up to its `length`, as above. */
CORVANE_API void SPSUP_DumpMessage(const void* message) CORVANE_NOEXCEPT;
CORVANE_API void SPSUP_DumpGetVolumeMsg(const void* message) CORVANE_NOEXCEPT;
CORVANE_API void SPSUP_DumpGetInitialMapMsg(const void* message) CORVANE_NOEXCEPT;
CORVANE_API void SPSUP_DumpGetExtendedMapMsg(const void* message) CORVANE_NOEXCEPT;
CORVANE_API void SPSUP_DumpSetSizeMsg(const void* message) CORVANE_NOEXCEPT;
CORVANE_API void SPSUP_DumpCloseMsg(const void* message) CORVANE_NOEXCEPT;
CORVANE_API void SPSUP_DumpGetVolumeReply(const void* message) CORVANE_NOEXCEPT;
CORVANE_API void SPSUP_DumpGetInitialMapReply(const void* message) CORVANE_NOEXCEPT;
CORVANE_API void SPSUP_DumpGetExtendedMapReply(const void* message) CORVANE_NOEXCEPT;
CORVANE_API void SPSUP_DumpSetSizeReply(const void* message) CORVANE_NOEXCEPT;
CORVANE_API void SPSUP_DumpCloseReply(const void* message) CORVANE_NOEXCEPT;

/* Translate one record, at any address, between byte orders, in place, whatever any marker says.
 * The caller vouches for its counts. */
CORVANE_API void FSMDCSUP_TransVolInfo(void* record) CORVANE_NOEXCEPT;
CORVANE_API void FSMDCSUP_TransFSSystem(void* descriptor) CORVANE_NOEXCEPT;
CORVANE_API void FSMDCSUP_TransFSDisk(void* disk) CORVANE_NOEXCEPT;
CORVANE_API void FSMDCSUP_TransMapInfo(void* record) CORVANE_NOEXCEPT;
CORVANE_API void FSMDCSUP_TransCompactExtent(void* extent) CORVANE_NOEXCEPT;
CORVANE_API void FSMDCSUP_TransSimpleExtent(void* extent) CORVANE_NOEXCEPT;
CORVANE_API void FSMDCSUP_TransVerboseExtent(void* extent) CORVANE_NOEXCEPT;

/* Trace one record in host order, at any address. The caller vouches for its counts. */
CORVANE_API void FSMDCSUP_DumpVolInfo(const void* record) CORVANE_NOEXCEPT;
CORVANE_API void FSMDCSUP_DumpFSSystem(const void* descriptor) CORVANE_NOEXCEPT;
CORVANE_API void FSMDCSUP_DumpFSDisk(const void* disk) CORVANE_NOEXCEPT;
CORVANE_API void FSMDCSUP_DumpFSMapInfo(const void* record) CORVANE_NOEXCEPT;
CORVANE_API void FSMDCSUP_DumpCompactExtent(const void* extent) CORVANE_NOEXCEPT;
CORVANE_API void FSMDCSUP_DumpSimpleExtent(const void* extent) CORVANE_NOEXCEPT;
CORVANE_API void FSMDCSUP_DumpVerboseExtent(const void* extent) CORVANE_NOEXCEPT;

/* Writes `count` bytes as "%02X " each, the byte taken as signed (0x80 gives "FFFFFF80 "), into
 * `out` (9 x count + 1 bytes of room). */
CORVANE_API void FSMDCSUP_DiskIdToString(const void* bytes, int32_t count,
                                         char* out) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif
