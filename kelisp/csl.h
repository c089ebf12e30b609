/* SPDX-License-Identifier: MIT
 *
 * Chip support: one device node per video-processing module of the processor ("/dev/csl1" to "/dev/csl9") and
 * the mapped register window of the video-processing subsystem. camStat opens them around its work.
 *
 * Nothing is printed; after a failed open errno tells why. One thread at a time: CSL_sysInit and CSL_sysExit write
 * the handles without a lock. Between the two any thread may read them and issue requests.
 */
#ifndef KELISP_CSL_H
#define KELISP_CSL_H

#include "kelisp/decls.h"

#include <stdint.h>

KEL_DECLS_BEGIN

/** Bytes of the register window, and its physical address. */
#define CSL_VPSS_LENGTH 0x10000U
#define CSL_VPSS_PHYS_BASE 0x01C70000U

/** Number of register blocks in the window. */
#define CSL_VPSS_BLOCKS 9

/** The video-processing subsystem: its node and its register window. */
typedef struct CSL_VpssHndl {
    int32_t fd;
    uint32_t length;                          /**< CSL_VPSS_LENGTH */
    uint32_t physBase;                        /**< CSL_VPSS_PHYS_BASE */
    uint8_t *base;                            /**< where the window is mapped; null when it is not */
    volatile uint32_t *regs[CSL_VPSS_BLOCKS]; /**< base + 0x200, 0x0, 0x1000, 0x800, 0x1200 (IPIPEIF),
                                                  0x400 (resizer), 0x1400 (H3A), 0x1600, 0x1800 */
} CSL_VpssHndl;

/** A module with a register block: the pointer into the window, and its node. */
typedef struct CSL_RegsHndl {
    volatile uint32_t *regs;
    int32_t fd;
} CSL_RegsHndl;

/** A module reached through its node alone. */
typedef struct CSL_DevHndl {
    int32_t fd;
} CSL_DevHndl;

extern CSL_VpssHndl gCSL_vpssHndl;      /**< /dev/csl1 */
extern CSL_RegsHndl gCSL_rszHndl;       /**< /dev/csl2, resizer */
extern CSL_DevHndl gCSL_ipipeHndl;      /**< /dev/csl3 */
extern CSL_DevHndl gCSL_ccdcHndl;       /**< /dev/csl4 */
extern CSL_RegsHndl gCSL_ipipeifHndl;   /**< /dev/csl5 */
extern CSL_DevHndl gCSL_h3aHndl;        /**< /dev/csl6 */
extern CSL_DevHndl gCSL_ldcHndl;        /**< /dev/csl7 */
extern CSL_DevHndl gCSL_faceDetectHndl; /**< /dev/csl8 */
extern CSL_DevHndl gCSL_gpioHndl;       /**< /dev/csl9 */
extern volatile uint32_t *csl_h3aRegs;  /**< the H3A register block, window base + 0x1400 */

/**
 * Opens "/dev/csl<module>" for reading and writing.
 *
 * @param module  0 to 9
 * @return the descriptor, or -1 for a number above 9 or a failed open
 */
int CSL_devOpen(unsigned module);

/**
 * Opens all nine handles in the order of their numbers, each attempted even when an earlier one failed, and
 * maps the register window. A handle whose open failed holds -1; a window that could not be mapped leaves
 * null pointers. Programs that this process starts do not inherit the descriptors.
 *
 * Not counted: a second start opens and maps everything anew, and the descriptors and the window of the first,
 * which nothing names any more, stay open until the process ends. Call CSL_sysExit in between.
 *
 * @return 0 when everything succeeded, -1 otherwise
 */
int CSL_sysInit(void);

/**
 * Closes all nine handles in reverse order; the window is unmapped before its descriptor is closed. The
 * handle fields keep their old values, so that a second stop closes these numbers again, whoever has them then:
 * once for each CSL_sysInit, also for one that failed half-way.
 *
 * @return 0 when every step succeeded, -1 otherwise
 */
int CSL_sysExit(void);

/** Record of CSL_devRequest20; the meaning of its words is the driver's. */
typedef struct CSL_Request20 {
    uint32_t value;
    void *data;
} CSL_Request20;

/** Record of CSL_devRequest17; the meaning of its words is the driver's. */
typedef struct CSL_Request17 {
    uint32_t value;
    void *data;
    uint32_t count;
} CSL_Request17;

/**
 * Request 20 (code 0xCC14) of a module with a register block.
 *
 * @return the request's result, or -1 when `data` is null
 */
int CSL_devRequest20(const CSL_RegsHndl *handle, uint32_t value, void *data);

/**
 * Request 17 (code 0xCC11) of a module with a register block.
 *
 * @return the request's result, or -1 when `data` is null or `count` is 0
 */
int CSL_devRequest17(const CSL_RegsHndl *handle, uint32_t value, void *data, uint32_t count);

KEL_DECLS_END

#endif
