/* SPDX-License-Identifier: MIT
 *
 * Client of the contiguous-memory driver behind "/dev/cmem", which hands out physically contiguous buffers.
 * camStat only starts and stops it, which proves that the driver is loaded and speaks this interface version.
 *
 * Every failure prints a message that begins with "CMEM Error: " on standard error. Operations called before
 * CMEM_init, after a failed CMEM_init or after the last CMEM_exit say so and fail. CMEM_allocPool and
 * CMEM_registerAlloc do not look: they fail, too, but with the message of their request, made without a device.
 *
 * One thread at a time: the descriptor and the count of users are plain globals.
 */
#ifndef KELISP_CMEM_H
#define KELISP_CMEM_H

#include "kelisp/decls.h"

#include <stddef.h>
#include <stdint.h>

KEL_DECLS_BEGIN

/** Where and how a buffer is allocated. */
typedef struct CmemAllocParams {
    /** 0 from a pool; nonzero from the heap, and or-ed into the free request (heap bit 0x400) */
    uint32_t type;
    /** or-ed into the allocation request; nonzero selects its cached variant (driver's bit) */
    uint32_t flags;
    /** heap allocations only, in bytes; 0 is taken as 1 */
    uint32_t alignment;
} CmemAllocParams;

/**
 * Opens the driver, or counts one more user when it is open already. The driver must report version
 * 0x0230xxxx. The descriptor is not inherited by programs that this process starts.
 *
 * @return 0, or -1 when the device cannot be opened or has another version
 */
int CMEM_init(void);

/**
 * Gives one CMEM_init back; the last one closes the driver.
 *
 * @return 0, the result of the last close, or -1 when the client is not open
 */
int CMEM_exit(void);

/** The driver's version word, or -1. */
int CMEM_getVersion(void);

/**
 * Bounds of a memory block.
 *
 * @param blockId      block number
 * @param first, second  receive the two physical bounds in the driver's order; untouched on failure
 * @return 0 or -1
 */
int CMEM_getBlock(int blockId, unsigned long *first, unsigned long *second);

/**
 * Finds the pool of block `blockId` whose buffers fit `size` bytes.
 *
 * @return pool number, or -1
 */
int CMEM_getPool(int blockId, size_t size);

/** CMEM_getPool of block 0. */
int CMEM_getPoolBlock0(size_t size);

/**
 * Allocates a buffer from pool `poolId` of block `blockId` and maps it. Does not look whether the driver is open.
 *
 * @param params  null for the defaults (pool, not cached, alignment 1)
 * @return the buffer's address, or null
 */
void *CMEM_allocPool(int blockId, int poolId, const CmemAllocParams *params);

/**
 * Allocates `size` bytes from a fitting pool, or from the heap, and maps them.
 *
 * @param params  null for the defaults (pool, not cached, alignment 1)
 * @return the buffer's address, or null
 */
void *CMEM_alloc(int blockId, size_t size, const CmemAllocParams *params);

/**
 * Registers this process as a user of the buffer at `physAddr` and maps it. Does not look whether the driver is
 * open.
 *
 * @return the buffer's address, or null
 */
void *CMEM_registerAlloc(unsigned long physAddr);

/**
 * Frees a buffer and unmaps it.
 *
 * @param params  those of its allocation; null for the defaults
 * @return 0 or -1
 */
int CMEM_free(void *address, const CmemAllocParams *params);

/** The physical address behind `address`, or 0. */
unsigned long CMEM_getPhys(void *address);

/** Writes back, invalidates, or both, the cache over `size` bytes at `address`; 0 or -1. */
int CMEM_cacheWb(void *address, size_t size);
int CMEM_cacheInv(void *address, size_t size);
int CMEM_cacheWbInv(void *address, size_t size);

KEL_DECLS_END

#endif
