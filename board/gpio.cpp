// SPDX-License-Identifier: MIT
//
// GPIO operations: open, request, close.
#include "kelisp/gpio.h"

#include "base/pause.h"
#include "board/gpioDevice.h"
#include "kelisp/debugFlags.h"

#include <unistd.h>

static_assert(sizeof(GioPinLevel) == 8, "the argument size in the request numbers");

namespace
{

constexpr uint32_t kAlarmPollUs = 1000000;

int RequestOnce(unsigned request, uint32_t pin, uint32_t level)
{
    const int fd = kel::OpenGpio();
    if (fd < 0)
        return KEL_GPIO_FAILED;
    const int status = kel::RequestGpio(fd, request, pin, level);
    close(fd);
    return status;
}

int SetPin(uint32_t pin, unsigned level)
{
    return level > 1 ? KEL_GPIO_FAILED : RequestOnce(GIO_SET_LEVEL, pin, level);
}

} // namespace

int SetResetPin(unsigned level)
{
    return SetPin(KEL_PIN_SENSOR_RESET, level);
}

int setIRL(unsigned level)
{
    return SetPin(KEL_PIN_IR_LED, level);
}

int SetICR(unsigned level)
{
    return SetPin(KEL_PIN_ICR, level);
}

int WaitAlarmIn(void)
{
    const int fd = kel::OpenGpio();
    if (fd < 0)
        return KEL_GPIO_FAILED;
    if (gfDebugFlag != 0)
        fputs("listening alarm in... (press CTRL-C to stop)\n", stdout);
    GioPinLevel alarm = {KEL_PIN_ALARM_IN, 0};
    int status = ioctl(fd, GIO_WAIT_ALARM, &alarm);
    while (status < 0) {
        kel::PauseUs(kAlarmPollUs);
        status = ioctl(fd, GIO_WAIT_ALARM, &alarm);
    }
    close(fd);
    return status;
}

int AlarmInCtl(void)
{
    return RequestOnce(GIO_ALARM_CTL, KEL_PIN_ALARM_IN, 0);
}
