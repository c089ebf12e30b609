// SPDX-License-Identifier: MIT
//
// The driver of the chip-support nodes. The layer's own request functions exist, but what their records mean
// is the driver's secret: it takes any.
#include "sim/board/board.h"
#include "sim/calls/faults.h"
#include "sim/drivers/devices.h"

namespace sim
{

namespace
{

constexpr RequestKind kCslRequests[] = {{0xCC14, UINT32_MAX, Call::Ioctl, "request 20", 0, 0, false, false},
                                        {0xCC11, UINT32_MAX, Call::Ioctl, "request 17", 0, 0, false, false}};

void ServeCsl(Event &event, Request &)
{
    InjectFault(event);
}

} // namespace

constinit const Driver kCslDriver = {kCslRequests, ServeCsl, nullptr, nullptr};
constinit const DeviceMemory kVpssMemory = {kVpssFile, 0x01C70000, kVpssBytes, false};

} // namespace sim
