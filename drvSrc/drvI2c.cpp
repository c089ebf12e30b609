// SPDX-License-Identifier: MIT
//
// The camera bus device, one request per call. Retries, messages and locking are its users'.
#include "kelisp/drvI2c.h"

#include <errno.h>
#include <fcntl.h>
#include <stddef.h>
#include <sys/ioctl.h>
#include <unistd.h>

// The driver's record is 12 bytes with 32-bit pointers; elsewhere the pointers are as wide as the machine's.
static_assert(offsetof(DrvI2cXfer, dataSize) == 0 && offsetof(DrvI2cXfer, count) == 1);
static_assert(offsetof(DrvI2cXfer, regAddr) == sizeof(void *));
static_assert(offsetof(DrvI2cXfer, regValue) == 2 * sizeof(void *));
static_assert(sizeof(DrvI2cXfer) == 3 * sizeof(void *));

DrvI2cHndl gtI2cHndl;

namespace
{

constexpr char kDevicePath[] = "/dev/dev_i2c";

int Transfer(const DrvI2cHndl *handle, unsigned request, uint8_t dataSize, uint8_t *regAddr, void *regValue,
             uint8_t count)
{
    DrvI2cXfer xfer = {dataSize, count, regAddr, regValue};
    return ioctl(handle->fd, request, &xfer);
}

} // namespace

int DrvI2cOpen(DrvI2cHndl *handle, uint8_t slaveAddr)
{
    handle->fd = open(kDevicePath, O_RDWR | O_CLOEXEC);
    if (handle->fd < 0)
        return -1;
    const int status = ioctl(handle->fd, DRV_I2C_SELECT, static_cast<unsigned long>(slaveAddr));
    if (status < 0) {
        const int reason = errno;
        close(handle->fd);
        handle->fd = -1; // a number that may soon belong to another file must not stay behind
        errno = reason;
    }
    return status;
}

int DrvI2cClose(DrvI2cHndl *handle)
{
    return close(handle->fd);
}

int DrvI2cRead8(DrvI2cHndl *handle, uint8_t *regAddr, uint8_t *regValue, uint8_t count)
{
    return Transfer(handle, DRV_I2C_READ, 1, regAddr, regValue, count);
}

int DrvI2cRead16(DrvI2cHndl *handle, uint8_t *regAddr, uint16_t *regValue, uint8_t count)
{
    return Transfer(handle, DRV_I2C_READ, 2, regAddr, regValue, count);
}

int DrvI2cWrite8(DrvI2cHndl *handle, uint8_t *regAddr, uint8_t *regValue, uint8_t count)
{
    return Transfer(handle, DRV_I2C_WRITE, 1, regAddr, regValue, count);
}

int DrvI2cWrite16(DrvI2cHndl *handle, uint8_t *regAddr, uint16_t *regValue, uint8_t count)
{
    return Transfer(handle, DRV_I2C_WRITE, 2, regAddr, regValue, count);
}

int DrvI2cReadBlk8(DrvI2cHndl *handle, uint8_t *regAddr, uint8_t *regValue, uint8_t count)
{
    return Transfer(handle, DRV_I2C_READ_BLOCK, 1, regAddr, regValue, count);
}
