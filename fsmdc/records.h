/* The volume-info and map-info records that plug-ins write into replies and clients read out of
 * them. Integers are two's complement in the sender's byte order. In a message a record may lie at
 * any address: copy it in and out. */
#ifndef CORVANE_FSMDC_RECORDS_H
#define CORVANE_FSMDC_RECORDS_H

#include <stdint.h>

#define FS_COOKIE_BYTES \
    32 /* a volume or file cookie: opaque, made by a plug-in, compared bytewise */

/* Where a volume lies. `nDisks` disk records follow at 104 when vendorStatus is 0; else a
 * zero-terminated FSUNI error text (vError) does. */
typedef struct VolumeInfo {
    int32_t msgLen;            /*   0: bytes of the whole record */
    int32_t vendorStatus;      /*   4: 0 = valid */
    int32_t FStype;            /*   8: the plug-in's own type code */
    int32_t GlomType;          /*  12: how the disks are joined */
    int32_t GlomInfo;          /*  16: parameter of GlomType */
    uint32_t nDisks;           /*  20: disk records that follow */
    int32_t BlockSize;         /*  24: bytes per block */
    uint8_t uninterpreted[36]; /* 28 */
    uint8_t fsSystem[40];      /*  64: the plug-in's own bytes, never translated */
} VolumeInfo;                  /* 104 bytes */

/* One disk of a volume, 80 bytes. */
typedef struct FSDisk {
    uint8_t DiskID[16];        /*  0: signature; the first IDlength bytes count */
    int64_t IDoffset;          /* 16: byte offset of the signature on the disk */
    int64_t BlockOffset;       /* 24: first block of the volume's slice on this disk */
    int64_t nBlocks;           /* 32: blocks in the slice */
    int32_t IDlength;          /* 40: valid bytes of DiskID */
    int32_t unused;            /* 44: translated, not interpreted */
    uint8_t uninterpreted[32]; /* 48 */
} FSDisk;

/* Where a file's bytes lie. `nExtents` extents of the layout `extentType` follow at 64 when
 * vendorStatus is 0; else a zero-terminated FSUNI error text (vError) does. */
typedef struct MapInfo {
    int64_t fileSize;          /*  0: bytes */
    int64_t allocation;        /*  8: allocated bytes */
    int32_t msgLen;            /* 16: bytes of the whole record, extents included */
    int32_t vendorStatus;      /* 20: 0 = valid */
    int32_t nExtents;          /* 24 */
    int32_t extentType;        /* 28: FS_EXTENT_... */
    int64_t fileOffset;        /* 32: first file byte that the map covers */
    int64_t fileBytes;         /* 40: file bytes that the map covers */
    uint8_t uninterpreted[16]; /* 48 */
} MapInfo;                     /* 64 bytes */

#define FS_EXTENT_COMPACT 0
#define FS_EXTENT_VERBOSE 1
#define FS_EXTENT_SIMPLE 2
#define FS_EXTENT_VERBOSE2 3 /* the same layout as FS_EXTENT_VERBOSE */

typedef struct CompactExtent {
    int64_t BlockOffset; /*  0: first block on the volume */
    int64_t nBlocks;     /*  8 */
} CompactExtent;         /* 16 bytes */

typedef struct VerboseExtent {
    int64_t LogicalByteAddr;  /*  0: first byte in the file */
    int64_t PhysicalByteAddr; /*  8: first byte within the volume's slice of the disk */
    int64_t nBytes;           /* 16 */
    int32_t VolumeOrdinal;    /* 24: index of the disk record */
    int32_t validity;         /* 28: FS_VALIDITY_... */
} VerboseExtent;              /* 32 bytes */

typedef struct SimpleExtent {
    int64_t VolOrd;        /*  0: its first 4 bytes in little-endian order are the ordinal */
    int64_t VolSliceBlock; /*  8: first block within the slice */
    int64_t NBlocks;       /* 16 */
} SimpleExtent;            /* 24 bytes */

/* What a verbose extent's bytes hold. */
#define FS_VALIDITY_DATA 0      /* written data */
#define FS_VALIDITY_HOLE 1      /* no blocks: reads as zeros; PhysicalByteAddr is 0 */
#define FS_VALIDITY_UNWRITTEN 2 /* blocks that read as zeros until they are written */

#endif
