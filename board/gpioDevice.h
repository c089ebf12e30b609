// SPDX-License-Identifier: MIT
//
// The two steps that every user of the GPIO device takes, with their messages. Internal to the library.
#ifndef CAMSTAT_BOARD_GPIO_DEVICE_H
#define CAMSTAT_BOARD_GPIO_DEVICE_H

#include "kelisp/gpio.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/ioctl.h>

namespace kel
{

/// Opens the GPIO device for reading and writing; negative after its message.
inline int OpenGpio()
{
    const int fd = open("/dev/gio", O_RDWR | O_CLOEXEC);
    if (fd < 0)
        fputs("[kel_isp] ERROR: open device failed\n", stderr);
    return fd;
}

/// Issues one request; 0, or KEL_GPIO_FAILED after its message. The caller closes `fd`.
inline int RequestGpio(int fd, unsigned request, uint32_t pin, uint32_t level)
{
    GioPinLevel record = {pin, level};
    if (ioctl(fd, request, &record) >= 0)
        return 0;
    fputs("[kel_isp] ERROR: ioctl failed\n", stderr);
    return KEL_GPIO_FAILED;
}

} // namespace kel

#endif
