// SPDX-License-Identifier: MIT
//
// The GPIO driver: one record of pin and level for all of its requests.
#include "sim/board/board.h"
#include "sim/board/camera.h"
#include "sim/calls/faults.h"
#include "sim/drivers/devices.h"

#include <string.h>

namespace sim
{

namespace
{

struct PinLevel {
    uint32_t pin;
    uint32_t level;
};

constexpr RequestKind GpioRow(uint32_t number, Call call, const char *text)
{
    return {number, UINT32_MAX, call, text, sizeof(PinLevel), 0, false, false};
}
constexpr RequestKind kGpioRequests[] = {GpioRow(0xC0086708, Call::GioSet, "set level"),
                                         GpioRow(0xC0086709, Call::GioAlarm, "wait for alarm"),
                                         GpioRow(0xC008670A, Call::GioControl, "alarm control"),
                                         GpioRow(0xC008670B, Call::GioConfig, "configure level")};

void ServePin(Event &event, PinLevel pinLevel)
{
    const BoardLock lock;
    BoardState &state = *gBoard.state;
    const bool drives = event.call == Call::GioSet || event.call == Call::GioConfig;
    if (pinLevel.pin >= kPins || (drives && pinLevel.level > 1)) {
        Fail(event, EINVAL);
    } else if (drives) {
        event.words[2] = state.pins[pinLevel.pin];
        DrivePin(state, pinLevel.pin, static_cast<uint8_t>(pinLevel.level));
    } else if (event.call == Call::GioAlarm && state.pins[pinLevel.pin] == 0) {
        Fail(event, EAGAIN); // nothing to report yet
    }
}

void ServeGpio(Event &event, Request &request)
{
    if (request.record.address == 0) {
        Fail(event, EFAULT);
        return;
    }
    PinLevel pinLevel = {};
    memcpy(&pinLevel, request.record.bytes, sizeof(pinLevel));
    event.targets = request.record.bytes; // the low byte of the pin's number
    event.targetCount = 1;
    event.words[0] = pinLevel.pin;
    event.words[1] = pinLevel.level;
    event.wordCount = 2;
    if (!InjectFault(event))
        ServePin(event, pinLevel);
}

} // namespace

constinit const Driver kGpioDriver = {kGpioRequests, ServeGpio, nullptr, nullptr};

} // namespace sim
