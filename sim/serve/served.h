// SPDX-License-Identifier: MIT
//
// What is served on one character device: its calls, as the kernel hands them over.
#ifndef SIM_SERVE_SERVED_H
#define SIM_SERVE_SERVED_H

#include "sim/drivers/devices.h"

#define FUSE_USE_VERSION 31
#include <cuse_lowlevel.h>

namespace sim
{

/// What the kernel's requests refer to, the session's user data.
struct Served {
    const Device *device;
    bool isReady; ///< the kernel has made the device
};

extern const cuse_lowlevel_ops kServedCalls;

/// A plain file is enough of a node: programs open and map it, and ask it for nothing.
bool IsServedFile(const Device &device);

} // namespace sim

#endif
