/* Reads and writes 512-byte blocks of a disk through the Linux SCSI generic driver. */
#ifndef CORVANE_FSMDC_SCSI_IO_H
#define CORVANE_FSMDC_SCSI_IO_H

#include <stdint.h>

#include "osl/export.h"

#ifdef __cplusplus
extern "C" {
#endif

#define SCSI_BLOCK_BYTES 512
#define SCSI_DEFAULT_BLOCKS_PER_COMMAND 128

#define SCSI_IO_DIRECT 0       /* done as direct I/O */
#define SCSI_IO_INDIRECT 1     /* done, but not as direct I/O */
#define SCSI_IO_FAILED (-1)    /* not submitted or not collected */
#define SCSI_IO_NO_MEMORY (-5) /* not submitted for lack of memory */
#define SCSI_IO_STATUS (-10)   /* the device, adapter or driver reported an error */

/* The next command's packet id; grows by one a command. */
CORVANE_API extern int32_t id_count;

/* Moves `blocks` blocks (at most 65535) at `block_address` by one command; `write` not 0 writes.
 * `buffer` holds blocks x 512 bytes. Returns a SCSI_IO_ code. Any thread with a descriptor of its
 * own. */
CORVANE_API int32_t do_io(int32_t descriptor, int32_t write, void* buffer, int32_t blocks,
                          uint32_t block_address) CORVANE_NOEXCEPT;

/* The same in as many commands as it takes, `blocks_per_command` blocks each (0: 128). Stops at the
 * first failure. Returns that, or 1 when any command was not direct, or 0; -1 when there was
 * nothing to do. */
CORVANE_API int32_t scsi_io(int32_t descriptor, int32_t write, void* buffer, int32_t blocks,
                            uint32_t block_address, int32_t blocks_per_command) CORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif
