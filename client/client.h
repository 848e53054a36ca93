/* The client library: ask a metadata controller where a file's bytes lie, and read and write them
 * straight on the shared disks, under the controller's lease.
 *
 * A CorvaneClient speaks to one controller. Its functions may be called by one thread at a time;
 * any number of clients may be used at once, and corvane_client_stop may be called at any time.
 * Names are UTF-8. A `share` is a share name or an absolute path on the controller; a `path` names
 * an existing file inside it (the protocol creates none). Functions return 0, or a code: one of the
 * controller's (see fsmdc/fs_result.h), of the transport's (1100 to 1106, 16), or one of those
 * below; then corvane_client_error says in one line what happened and what to do. */
#ifndef CORVANE_CLIENT_CLIENT_H
#define CORVANE_CLIENT_CLIENT_H

#include <stddef.h>
#include <stdint.h>

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

#define CORVANE_E_BAD_REPLY 2000u   /* the reply contradicts itself */
#define CORVANE_E_NO_DISK 2001u     /* a disk of the volume is not on this host, or not only once */
#define CORVANE_E_DISK 2002u        /* a disk could not be opened, read or written */
#define CORVANE_E_LEASE_ENDED 2003u /* the lease ran out before the work was done */
#define CORVANE_E_INTERRUPTED 2004u /* corvane_client_stop was called */
#define CORVANE_E_BAD_ARGUMENT 2005u /* a name or number that cannot be asked for */
#define CORVANE_E_LOCAL_FILE 2006u   /* a descriptor of this host could not be read or written */
#define CORVANE_E_NO_BLOCKS 2007u    /* the controller gave the file no blocks for the bytes */

typedef struct CorvaneClient CorvaneClient;

/* How to reach a controller and the disks; zeros and nulls mean the defaults. */
typedef struct CorvaneClientOptions {
    const char* host;         /* default "127.0.0.1" */
    int32_t port;             /* default 5501 */
    int32_t timeout_s;        /* seconds to wait for one reply; default 10 */
    int32_t tries;            /* attempts in all; default 5 */
    const char* const* disks; /* devices or images to look for the volume's disks on; null: all
                                 block devices of this host */
    size_t disk_count;        /* number of `disks` */
    int32_t
        sg_chunk_blocks; /* 512-byte blocks of one command to a SCSI generic node; default 128 */
} CorvaneClientOptions;

/* One disk of a volume: the slice that the volume has of it. */
typedef struct CorvaneVolumeDisk {
    uint8_t signature[16];
    int32_t signature_bytes;  /* how many of them count */
    int64_t signature_offset; /* where they stand, in bytes from the start of the disk */
    int64_t first_block;
    int64_t block_count;
} CorvaneVolumeDisk;

typedef struct CorvaneVolume {
    int32_t fs_type;   /* the plug-in's code */
    int32_t glom_type; /* how the disks are joined: the plug-in's code */
    int32_t glom_info;
    int32_t block_bytes;
    size_t disk_count;
} CorvaneVolume;

#define CORVANE_EXTENT_DATA 0
#define CORVANE_EXTENT_HOLE 1      /* no blocks; reads as zeros */
#define CORVANE_EXTENT_UNWRITTEN 2 /* blocks that read as zeros */

/* A run of a file's bytes. */
typedef struct CorvaneExtent {
    int64_t file_offset; /* bytes */
    int64_t bytes;
    int32_t kind;        /* CORVANE_EXTENT_...; of a hole nothing below counts */
    uint32_t disk_index; /* into the volume's disks */
    int64_t disk_offset; /* bytes from the start of the disk */
} CorvaneExtent;

/* Returns a new client, which the caller frees with corvane_client_free, or null when memory is
 * short. Null `options` are the defaults; they are copied. */
CORVANE_API CorvaneClient* corvane_client_create(const CorvaneClientOptions* options)
    CORVANE_NOEXCEPT;

/* Frees a client; null is allowed. */
CORVANE_API void corvane_client_free(CorvaneClient* client) CORVANE_NOEXCEPT;

/* Returns the line about the last failure of this client, empty before the first; valid until the
 * next call with the client. */
CORVANE_API const char* corvane_client_error(const CorvaneClient* client) CORVANE_NOEXCEPT;

/* Makes the operation under way, and all later ones, end early with CORVANE_E_INTERRUPTED, the
 * lease closed. From any thread; from a signal handler as well. */
CORVANE_API void corvane_client_stop(CorvaneClient* client) CORVANE_NOEXCEPT;

/* Returns 0 when the controller answers. Stores the round trip in microseconds unless null. */
CORVANE_API uint32_t corvane_client_ping(CorvaneClient* client,
                                         int64_t* round_trip_us) CORVANE_NOEXCEPT;

/* Describes a volume. Stores it and its first `room` disks; `disks` may be null with a room of 0.
 */
CORVANE_API uint32_t corvane_client_volume(CorvaneClient* client, const char* share,
                                           CorvaneVolume* volume, CorvaneVolumeDisk* disks,
                                           size_t room) CORVANE_NOEXCEPT;

/* Maps a file. Stores its size in bytes, the number of its extents (holes included, together the
 * whole file) and the first `room` of them; `extents` may be null with a room of 0. */
CORVANE_API uint32_t corvane_client_map(CorvaneClient* client, const char* share, const char* path,
                                        int64_t* file_size, CorvaneExtent* extents, size_t room,
                                        size_t* extent_count) CORVANE_NOEXCEPT;

/* Writes a file's bytes to `descriptor`, which stays the caller's. Zeros become holes when it is an
 * empty regular file. */
CORVANE_API uint32_t corvane_client_read(CorvaneClient* client, const char* share, const char* path,
                                         int descriptor) CORVANE_NOEXCEPT;

/* Replaces a file's contents by those of `descriptor`, a regular file, from its start; it stays the
 * caller's. Blocks are overwritten in place and the size changes last; when it fails, the error
 * line says whether the file is as it was or how many of its first bytes are new. */
CORVANE_API uint32_t corvane_client_write(CorvaneClient* client, const char* share,
                                          const char* path, int descriptor) CORVANE_NOEXCEPT;

/* Changes a file's size, in bytes. */
CORVANE_API uint32_t corvane_client_set_size(CorvaneClient* client, const char* share,
                                             const char* path, int64_t bytes) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif
