/* SPDX-License-Identifier: MIT
 *
 * The camera bus: the board's private I2C character device "/dev/dev_i2c" (not the
 * standard i2c-dev interface). Every primitive is exactly one request; it retries
 * nothing, prints nothing and locks nothing. The register utility that prints and
 * writes registers of any slave from its own command line lives here, too.
 */
#ifndef KELISP_DRV_I2C_H
#define KELISP_DRV_I2C_H

#include "kelisp/decls.h"

#include <stdint.h>

KEL_DECLS_BEGIN

/** Requests of the device: magic 0x2C, no size or direction bits. */
#define DRV_I2C_SELECT 0x2C01U     /**< argument: the slave address itself */
#define DRV_I2C_READ 0x2C02U       /**< argument: a DrvI2cXfer; reads each listed register */
#define DRV_I2C_WRITE 0x2C03U      /**< argument: a DrvI2cXfer; writes each listed register */
#define DRV_I2C_READ_BLOCK 0x2C04U /**< argument: a DrvI2cXfer; reads consecutive 8-bit registers at once */

/** An open camera bus device. */
typedef struct DrvI2cHndl {
    int32_t fd; /**< descriptor of the device, or the negative result of a failed open */
} DrvI2cHndl;

/** The transfer record as the driver expects it; 12 bytes where pointers are 32 bits wide. */
typedef struct DrvI2cXfer {
    uint8_t dataSize; /**< bytes per register value, 1 or 2 */
    uint8_t count;    /**< number of registers, 0 to 255 */
    uint8_t *regAddr; /**< `count` register addresses, one byte each */
    void *regValue;   /**< `count` values: bytes, or 16-bit words in native order when dataSize is 2 */
} DrvI2cXfer;

/** The link to the camera processor; camStat opens it at start-up and closes it at the end. */
extern DrvI2cHndl gtI2cHndl;

/**
 * Opens the device and selects the slave for all later transfers on this handle. What the handle held before is
 * overwritten, not closed. Programs that this process starts do not inherit the descriptor.
 *
 * @param handle     receives the descriptor; negative after any failure
 * @param slaveAddr  slave address as the driver takes it (the camera processor is 0xE2)
 * @return 0; -1 when the device cannot be opened; the request's negative result when the slave is refused,
 * after closing the device again. errno tells more.
 */
int DrvI2cOpen(DrvI2cHndl *handle, uint8_t slaveAddr);

/** Closes the handle's descriptor and returns the result of `close`. */
int DrvI2cClose(DrvI2cHndl *handle);

/**
 * The transfers. Each issues one request with `count` (0 to 255) registers.
 *
 * @param handle    an open handle
 * @param regAddr   `count` register addresses; callers list consecutive ones
 * @param regValue  `count` values, filled by a read and taken by a write
 * @return the request's result unchanged: 0, or negative with errno set
 */
int DrvI2cRead8(DrvI2cHndl *handle, uint8_t *regAddr, uint8_t *regValue, uint8_t count);
int DrvI2cRead16(DrvI2cHndl *handle, uint8_t *regAddr, uint16_t *regValue, uint8_t count);
int DrvI2cWrite8(DrvI2cHndl *handle, uint8_t *regAddr, uint8_t *regValue, uint8_t count);
int DrvI2cWrite16(DrvI2cHndl *handle, uint8_t *regAddr, uint16_t *regValue, uint8_t count);
int DrvI2cReadBlk8(DrvI2cHndl *handle, uint8_t *regAddr, uint8_t *regValue, uint8_t count);

/**
 * Reads a hexadecimal text. Characters that are no hexadecimal digits count as the digit 0, so a leading "0x"
 * does no harm; the value wraps at 32 bits; an empty text gives 0.
 */
uint32_t HexStrToUint(const char *text);

/**
 * The register utility: `-r|-w|-b <devAddrInHex> <regAddrInHex> <regValueInHex or numRegsToReadInDec>
 * <regSizeInBytes>`. Reads (-r), block-reads (-b) or writes (-w) registers and prints what it did on standard
 * output, each line under the print lock.
 *
 * @return 0 once the device was open, whatever the transfer's outcome; -1 for a wrong command line, a slave
 * address of 0 or a block read of 16-bit registers; the status of a failed open
 */
int DrvI2cTestMain(int argc, char **argv);

KEL_DECLS_END

#endif
