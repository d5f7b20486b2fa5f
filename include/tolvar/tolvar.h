/*
 * tolvar: incremental block-level backup of NTFS volumes from their
 * Volume Shadow Copy snapshots.
 *
 * The library exports flat C functions with undecorated names. Every
 * function returns a signed 32-bit status; failures leave numbered
 * messages on a process-wide error queue that GetNextError drains.
 * This header compiles as C89, C99 and C++.
 */
#ifndef TOLVAR_TOLVAR_H
#define TOLVAR_TOLVAR_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Status codes returned by the exported functions. */
#define TOLVAR_OK 0               /* success */
#define TOLVAR_SIZE_RETURNED 1    /* a null buffer asked for the size; it was written */
#define TOLVAR_END_OF_BLOCKS 2    /* GetBlock: no further changed block */
#define TOLVAR_E_BLOCK (-1)       /* GetBlock: buffer too small, or a block read failed */
#define TOLVAR_E_FAILED (-2)      /* bad argument, short buffer or failure to open */
#define TOLVAR_E_NOT_FOUND (-3)   /* file not found, or the NTFS view is unavailable */
#define TOLVAR_E_RESERVED (-1000) /* reserved for a failed handle open */

/* Option bits of Init's flags argument. */
#define TOLVAR_OPTION_NEWEST_PASS 0x00000001u /* the newest snapshot adds one more pass */
#define TOLVAR_OPTION_ERROR_QUEUE 0x20000000u /* create the error queue */

/* Codes of the records on the error queue. */
#define TOLVAR_ERROR_IO 1u        /* a read or open failed */
#define TOLVAR_ERROR_INVALID 2u   /* input of the wrong kind */
#define TOLVAR_ERROR_FORMAT 3u    /* an on-disk structure of the wrong type */
#define TOLVAR_ERROR_STORE 12u    /* the shadow-copy store is inconsistent */
#define TOLVAR_ERROR_NO_START 13u /* the older snapshot is not in the store */
#define TOLVAR_ERROR_NO_END 14u   /* the newer snapshot is not in the store */

/* The opaque tracking handle: one volume, two of its shadow copies and the
 * blocks that changed between them. */
typedef void* TolvarHandle;

/*
 * Opens a tracking handle on volume between the shadow copies named
 * fromSnapshotId (older) and toSnapshotId (newer), each as 36 lower-case
 * hexadecimal characters with hyphens and no braces. blockSize is a
 * multiple of 4096 from 4096 to 131072; flags holds TOLVAR_OPTION_* bits.
 * Returns TOLVAR_OK and *handle_out, or TOLVAR_E_FAILED.
 *
 * volume on Windows: a volume device path such as "\\.\C:". On Linux: the
 * path of a volume image, a whole-disk image or a block device, optionally
 * followed by a suffix that picks the volume inside it:
 *   "PATH@partition=N"   partition N (from 1: MBR primaries 1-4 by slot,
 *                        logical partitions from 5, GPT entries by slot)
 *   "PATH@offset=BYTES"  the NTFS volume BYTES (decimal) bytes into PATH
 * A volume string that names an existing file is that file, suffix or not.
 * A whole disk with a partition table needs a suffix. The image is only
 * read. When the volume cannot be picked, the error queue says why in one
 * record of code 1 before "Can't open volume %s".
 */
int32_t Init(TolvarHandle* handle_out, const char* volume, const char* fromSnapshotId, const char* toSnapshotId,
             uint64_t blockSize, uint32_t flags);

/* Releases a handle from Init or ExcludeFiles; a null handle is ignored. */
void FreeHandle(TolvarHandle handle);

/*
 * Copies the changed-block bitmap (bit i, least significant first in byte
 * i / 8, stands for block i). A null buffer asks for its length in *size
 * (TOLVAR_SIZE_RETURNED); a buffer smaller than *size bytes fails.
 */
int32_t GetDiffBitmap(TolvarHandle handle, unsigned char* buffer, uint64_t* size);

/*
 * Reads the next changed block from the newer shadow copy into buffer
 * (*size bytes of room; set to the block size). With compare non-zero,
 * blocks that read the same in both shadow copies may be skipped.
 * TOLVAR_OK with *blockIndex_out (may be null); TOLVAR_END_OF_BLOCKS at the
 * end; TOLVAR_E_BLOCK when *size is too small (then set to the block size)
 * or a block cannot be read (the walk ends).
 */
int32_t GetBlock(TolvarHandle handle, unsigned char* buffer, uint64_t* size, uint64_t* blockIndex_out, uint8_t compare);

/*
 * Makes in *newHandle_out a second handle whose changed blocks no longer
 * hold the blocks of the files named in paths (paths inside the volume,
 * ended by a null pointer). The bits are cleared in the bitmap that both
 * handles share; the new handle walks its blocks from block 0 and must be
 * freed with FreeHandle. TOLVAR_OK; TOLVAR_E_FAILED when newHandle_out or
 * paths is null; TOLVAR_E_NOT_FOUND when a path is not found or the newer
 * shadow copy has no NTFS view (then nothing is cleared).
 */
int32_t ExcludeFiles(TolvarHandle handle, TolvarHandle* newHandle_out, const char** paths);

/*
 * Writes the change map of the file at path: bit i (least significant
 * first in byte i / 8) is set when the file's block i changed. A null
 * buffer asks for the map's length in *size (TOLVAR_SIZE_RETURNED);
 * otherwise *size is the buffer's room and is left unchanged. TOLVAR_OK;
 * TOLVAR_E_FAILED on a null argument or a buffer too small;
 * TOLVAR_E_NOT_FOUND when the path is not found or the newer shadow copy
 * has no NTFS view.
 */
int32_t GetFileChangesMap(TolvarHandle handle, const char* path, unsigned char* buffer, uint64_t* size);

/*
 * Takes the newest record off the error queue. Returns 1 and writes its
 * code to *code_out and min(message length, bufferSize) bytes of its text
 * to buffer, without a terminating NUL; returns 0 when there is none.
 */
int32_t GetNextError(uint32_t* code_out, char* buffer, uint64_t bufferSize);

/* Always 1: the error queue is available. */
int32_t ExtendedErrorsAvailable(void);

/* Always 0: the library keeps no log. */
int32_t LoggingAvailable(void);

#ifdef __cplusplus
}
#endif

#endif /* TOLVAR_TOLVAR_H */
