// SPDX-License-Identifier: MIT
//
// The day/night switch of a configuration record: IR-cut filter and IR LEDs together, past the GPIO operations,
// with requests of its own.
#include "config/dayNight.h"

#include "board/gpioDevice.h"
#include "kelisp/debugFlags.h"

#include <stdio.h>
#include <unistd.h>

namespace
{

int SendDayNight(int fd, bool night)
{
    if (gfDebugFlag != 0)
        puts(night ? "[kel_isp] Set ICR = IR_PASS" : "[kel_isp] Set ICR = IR_CUT");
    int status = kel::RequestGpio(fd, GIO_CONFIG, KEL_PIN_ICR, night ? 1 : 0);
    if (status != 0)
        return status;
    if (gfDebugFlag != 0)
        puts(night ? "[kel_isp] Set IR LEDs = ON" : "[kel_isp] Set IR LEDs = OFF");
    status = kel::RequestGpio(fd, GIO_CONFIG, KEL_PIN_IR_LED, night ? 0 : 1);
    if (status != 0)
        return status;
    return kel::RequestGpio(fd, GIO_CONFIG, KEL_PIN_SENSOR_RESET, 1);
}

} // namespace

int ApplyIcrLedConfig(const ImgCfgStatus *record)
{
    const int fd = kel::OpenGpio();
    if (fd < 0)
        return KEL_GPIO_FAILED;
    const int status = SendDayNight(fd, kel::IsIrNight(*record));
    close(fd);
    return status;
}
