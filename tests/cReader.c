/* SPDX-License-Identifier: MIT
 *
 * A C program that reads a register through the library. It brings a camera bus of its own: the program's
 * open and ioctl come before the C library's.
 */
#include "kelisp.h"

#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

enum { BUS_FD = 777 };

int open(const char *path, int flags, ...)
{
    return strcmp(path, "/dev/dev_i2c") == 0 ? BUS_FD : openat(AT_FDCWD, path, flags, 0);
}

int ioctl(int fd, unsigned long request, ...)
{
    va_list args;
    va_start(args, request);
    const DrvI2cXfer *xfer = va_arg(args, const DrvI2cXfer *);
    va_end(args);
    if (fd != BUS_FD || (request != DRV_I2C_SELECT && request != DRV_I2C_READ_BLOCK)) {
        return -1;
    }
    if (request == DRV_I2C_READ_BLOCK && xfer->regAddr[0] == 0x34) {
        memset(xfer->regValue, 0xB6, xfer->count);
    }
    return 0;
}

int main(void)
{
    uint8_t timer = 0;
    uint8_t hold = 0;
    if (DrvI2cOpen(&gtI2cHndl, 0xE2) != 0 || CXD3193AR_Get_AeTimer(&timer) != 0 ||
        CXD3193AR_Get_AeHoldH(&hold) != 0) {
        fputs("the registers cannot be read\n", stderr);
        return 1;
    }
    printf("AeTimer %u AeHoldH %u, code 141 is %.3f\n", timer, hold, gtAgainTable[141].gain);
    return timer == 0x16 && hold == 1 && gtAgainTable[141].gain == 4.452 ? 0 : 1;
}
