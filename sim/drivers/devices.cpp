// SPDX-License-Identifier: MIT
//
// The small drivers, GPIO and chip support, and the way from a node to its driver. Requests that a driver
// does not know fail with ENOTTY.
#include "sim/drivers/devices.h"

#include "sim/board/board.h"
#include "sim/board/camera.h"
#include "sim/calls/faults.h"

#include <string.h>

namespace sim
{

namespace
{

struct PinLevel {
    uint32_t pin;
    uint32_t level;
};

enum GioRequest : uint32_t {
    kGioSet = 0xC0086708,
    kGioAlarm = 0xC0086709,
    kGioControl = 0xC008670A,
    kGioConfig = 0xC008670B
};

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

void ServeGio(Event &event, unsigned long request, void *argument)
{
    switch (static_cast<uint32_t>(request)) {
    case kGioSet:
        event.call = Call::GioSet;
        event.request = "set level";
        break;
    case kGioAlarm:
        event.call = Call::GioAlarm;
        event.request = "wait for alarm";
        break;
    case kGioControl:
        event.call = Call::GioControl;
        event.request = "alarm control";
        break;
    case kGioConfig:
        event.call = Call::GioConfig;
        event.request = "configure level";
        break;
    default:
        InjectFault(event);
        Fail(event, event.error != 0 ? event.error : ENOTTY);
        return;
    }
    if (argument == nullptr) {
        Fail(event, EFAULT);
        return;
    }
    PinLevel pinLevel = {};
    memcpy(&pinLevel, argument, sizeof(pinLevel));
    const auto pin = static_cast<uint8_t>(pinLevel.pin);
    event.targets = &pin;
    event.targetCount = 1;
    event.words[0] = pinLevel.pin;
    event.words[1] = pinLevel.level;
    event.wordCount = 2;
    if (!InjectFault(event))
        ServePin(event, pinLevel);
    event.targets = nullptr;
    event.targetCount = 0;
}

constexpr char kVpssNode[] = "/dev/csl1"; // the only one with memory
constexpr uint32_t kVpssBase = 0x01C70000;
constexpr uint32_t kVpssLength = 0x10000;

// The layer's own request functions exist, but what their records mean is the driver's secret: it takes any.
void ServeCsl(Event &event, unsigned long request)
{
    const bool isKnown = request == 0xCC14 || request == 0xCC11;
    event.request = request == 0xCC14 ? "request 20" : request == 0xCC11 ? "request 17" : "unknown request";
    if (!InjectFault(event) && !isKnown)
        Fail(event, ENOTTY);
}

} // namespace

void ServeRequest(Event &event, Node &node, unsigned long request, void *argument)
{
    switch (node.kind) {
    case NodeKind::I2c:
        ServeI2c(event, node, request, argument);
        break;
    case NodeKind::Gio:
        ServeGio(event, request, argument);
        break;
    case NodeKind::Cmem:
        ServeCmem(event, request, argument);
        break;
    case NodeKind::Csl:
        ServeCsl(event, request);
        break;
    default:
        Fail(event, ENOTTY);
    }
}

bool FindMemory(const Node &node, uint64_t offset, size_t length, const char **file, uint64_t *fileOffset)
{
    if (node.kind == NodeKind::Cmem) {
        *file = kCmemFile;
        return FindBufferMemory(offset, length, fileOffset);
    }
    *file = kVpssFile;
    *fileOffset = offset - kVpssBase;
    return strcmp(node.path, kVpssNode) == 0 && offset >= kVpssBase && offset < kVpssBase + kVpssLength &&
           length <= kVpssBase + kVpssLength - offset;
}

} // namespace sim
