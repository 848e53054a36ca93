/* The shared configuration segment: the settings of every program of the product on this host, in
 * one System V segment that the first of them creates. Little-endian; integers are signed 32-bit
 * words, texts are zero-terminated. Fields of other programs keep their offsets and defaults for
 * them. Words are read and written without a lock, by any thread of any process. */
#ifndef CORVANE_MDCMAIN_SEGMENT_H
#define CORVANE_MDCMAIN_SEGMENT_H

#include <stdint.h>

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

#define CORVANE_SEGMENT_KEY 1124
#define CORVANE_SEGMENT_FIXED_BYTES 2148536 /* the area below */
#define CORVANE_SEGMENT_VOLUME_BYTES 173008 /* per volume, behind it, for other programs */
#define CORVANE_SEGMENT_MIN_VOLUMES 32

/* A record of other programs; a zero at offset 12 is an empty name. */
typedef struct CorvaneOtherRecord {
    uint8_t bytes[19824];
} CorvaneOtherRecord;

typedef struct CorvaneSegment {
    int32_t segmentSize;                /* 0x000000: bytes with which it was created */
    int32_t maxVolumes;                 /* 0x000004: volumes of the creator */
    int32_t initialised;                /* 0x000008: 1 once the defaults are written */
    uint8_t reserved1[8];               /* 0x00000C: reserved */
    int32_t logLevel;                   /* 0x000014: 0 normal; 1, 2, 3 and more: more output */
    int32_t logMode;                    /* 0x000018: 1 log file, 0 standard output, other ring */
    int32_t logMaxSize;                 /* 0x00001C: bytes past which the log file is rotated */
    int32_t numLogs;                    /* 0x000020: number of rotating log files */
    int32_t logCount;                   /* 0x000024: rotation counter */
    char logBaseName[256];              /* 0x000028: path prefix of the log files */
    int32_t other1;                     /* 0x000128: other programs; default 1 */
    int32_t other2;                     /* 0x00012C: other programs; default 65536 */
    int32_t other3;                     /* 0x000130: other programs; default 0 */
    int32_t other4;                     /* 0x000134: other programs; default 10485760 */
    int32_t other5;                     /* 0x000138: other programs; default 0 */
    char otherText1[256];               /* 0x00013C: other programs; empty */
    int32_t otherWords1[8];             /* 0x00023C: other programs; default 0 */
    int32_t reserved2;                  /* 0x00025C: reserved */
    CorvaneOtherRecord otherTable[100]; /* 0x000260: other programs; byte 12 of each is 0 */
    int32_t reserved3;                  /* 0x1E4220: reserved */
    int32_t other6;                     /* 0x1E4224: other programs; default 30 */
    int32_t reserved4;                  /* 0x1E4228: reserved */
    int32_t other7;                     /* 0x1E422C: other programs; default 0 */
    int32_t reserved5;                  /* 0x1E4230: reserved */
    int32_t other8;                     /* 0x1E4234: other programs; default 2 */
    int32_t other9;                     /* 0x1E4238: other programs; default 1 */
    int32_t other10;                    /* 0x1E423C: other programs; default 0 */
    int32_t other11;                    /* 0x1E4240: other programs; default 1 */
    int32_t other12;                    /* 0x1E4244: other programs; default 0 */
    int32_t other13;                    /* 0x1E4248: other programs; default 2 */
    int32_t other14;                    /* 0x1E424C: other programs; default 5 */
    int32_t other15;                    /* 0x1E4250: other programs; default 2 */
    int32_t other16;                    /* 0x1E4254: other programs; default 1048576 */
    int32_t other17;                    /* 0x1E4258: other programs; default 31457280 */
    int32_t other18;                    /* 0x1E425C: other programs; default 3 */
    int32_t other19;                    /* 0x1E4260: other programs; default 10240 */
    char otherText2[256];               /* 0x1E4264: other programs; empty */
    char otherArea[133376];             /* 0x1E4364: other programs; begins with the text "hd" */
    int32_t mdcPort;          /* 0x204C64: UDP port of the metadata service (low 16 bits) */
    uint8_t reserved6[16];    /* 0x204C68: reserved */
    int32_t otherWords2[2];   /* 0x204C78: other programs; default 0 */
    int32_t other20;          /* 0x204C80: other programs; default 3600000 */
    int32_t other21;          /* 0x204C84: other programs; default 0 */
    char otherText3[256];     /* 0x204C88: other programs; empty */
    int32_t dgramThreads;     /* 0x204D88: datagram listener threads */
    char optionalDir[256];    /* 0x204D8C: optional directory; empty = none */
    int32_t shmLogUsed;       /* 0x204E8C: bytes used in shmLog */
    char shmLog[20480];       /* 0x204E90: the log's ring: one zero-terminated text */
    int32_t other22;          /* 0x209E90: other programs; default 0 */
    int32_t other23;          /* 0x209E94: other programs; default 10 */
    int32_t other24;          /* 0x209E98: other programs; default 5 */
    int32_t rawAlignment;     /* 0x209E9C: bytes, for raw disk transfers */
    int32_t other25;          /* 0x209EA0: other programs; default 10 */
    int32_t mapDrv;           /* 0x209EA4: map-driver setting */
    int32_t nlsEnabled;       /* 0x209EA8: 1 = texts from catalogues, 0 = built-in texts */
    char langName[256];       /* 0x209EAC: the locale string in force */
    char nlsPath[256];        /* 0x209FAC: the catalogue search path in force */
    int32_t spBufferSize;     /* 0x20A0AC: buffer of the metadata service in bytes */
    int32_t other26;          /* 0x20A0B0: other programs; default 5 */
    int32_t other27;          /* 0x20A0B4: other programs; default 64 */
    int32_t sysName;          /* 0x20A0B8: operating-system code */
    int32_t other28;          /* 0x20A0BC: other programs; default 0 */
    int32_t langFromFile;     /* 0x20A0C0: 1 when nlsPath came from the language file */
    int32_t thousandsSep;     /* 0x20A0C4: character code */
    int32_t decimalPoint;     /* 0x20A0C8: character code */
    int32_t other29;          /* 0x20A0CC: other programs; default 1 */
    int32_t nlsReady;         /* 0x20A0D0: -1 once the creator finished the language set-up */
    int32_t otherWords3[3];   /* 0x20A0D4: other programs; default 0 */
    int32_t logopPrivate;     /* 0x20A0E0: not 0: files made for "logop" requests get 0600 */
    int32_t other30;          /* 0x20A0E4: other programs; default 33554432 */
    int32_t other31;          /* 0x20A0E8: other programs; default 420 */
    int32_t other32;          /* 0x20A0EC: other programs; default 1 */
    int32_t reserved7;        /* 0x20A0F0: reserved */
    int32_t other33;          /* 0x20A0F4: other programs; default 0 */
    int32_t other34;          /* 0x20A0F8: other programs; default 2 */
    int32_t other35;          /* 0x20A0FC: other programs; default 262144 */
    int32_t otherWords4[2];   /* 0x20A100: other programs; default -1 */
    uint8_t reserved8[10160]; /* 0x20A108: reserved */
} CorvaneSegment;             /* 0x20C8B8 bytes; the per-volume area follows */

/* The attached segment of this process; null before the first use. */
CORVANE_API extern CorvaneSegment* fs;

/* Creates or attaches the segment. Any failure ends the process with status 1. */
CORVANE_API void setupSharedMemory(void) CORVANE_NOEXCEPT;

/* setupSharedMemory, if this process has not attached yet. */
CORVANE_API void fused_mapShared(void) CORVANE_NOEXCEPT;

/* Writes every default into the attached segment; does nothing without one. */
CORVANE_API void fused_setDefaults(void) CORVANE_NOEXCEPT;

/* Settings. Getters map the segment first, and so do the setters of the buffer size and the
 * directory; the other setters do nothing without an attached segment. */
CORVANE_API int32_t fused_getDgram(void) CORVANE_NOEXCEPT; /* listener threads */
CORVANE_API void fused_setDgram(int32_t count) CORVANE_NOEXCEPT;
CORVANE_API int32_t fused_getSPBufferSize(void) CORVANE_NOEXCEPT; /* bytes, at most 65536 */
CORVANE_API int32_t fused_setSPBufferSize(int32_t kilobytes) CORVANE_NOEXCEPT; /* returns bytes */
CORVANE_API char* fused_getOptionalDir(char* buffer) CORVANE_NOEXCEPT;    /* 256 bytes of room */
CORVANE_API void fused_setOptionalDir(const char* text) CORVANE_NOEXCEPT; /* "-" clears it */
CORVANE_API int32_t fused_getRawAlignment(void) CORVANE_NOEXCEPT;         /* bytes; 0 becomes 512 */
CORVANE_API void fused_setRawAlignment(int32_t bytes) CORVANE_NOEXCEPT;
CORVANE_API int32_t fused_getMapDrv(void) CORVANE_NOEXCEPT;
CORVANE_API void fused_setMapDrv(int32_t value) CORVANE_NOEXCEPT;
CORVANE_API int32_t fused_getNls(void) CORVANE_NOEXCEPT; /* 0 = built-in texts */
CORVANE_API void fused_setNls(int32_t value) CORVANE_NOEXCEPT;

/* Returns the operating-system code: 1, 2, 3 for certain releases of other systems, 0 here. */
CORVANE_API int32_t setSysName(void) CORVANE_NOEXCEPT;

/* Asks the `systune` command for the largest DMA transfer. Returns bytes, or -1. */
CORVANE_API int32_t getMaxDmaSize(void) CORVANE_NOEXCEPT;

/* Writes the first line of version.txt (at most 63 characters, its last one dropped) into `buffer`
 * (64 bytes of room). Returns 0, or -1 when there is no such file. */
CORVANE_API int32_t getVersion(char* buffer) CORVANE_NOEXCEPT;

/* Logs `text` when logLevel is above 2. */
CORVANE_API void clientDebug(const char* text) CORVANE_NOEXCEPT;

/* Called after a failed create; does nothing. */
CORVANE_API void printhints(void) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif
