// SPDX-License-Identifier: MIT
//
// The board as character devices of this machine's kernel: the road for programs into which no library can be
// loaded. It needs CUSE (character devices in user space) in the kernel, libfuse3, and root.
#ifndef SIM_SERVE_SERVE_H
#define SIM_SERVE_SERVE_H

#include "sim/calls/calls.h"

#include <functional>
#include <string>

namespace sim
{

/// What does not go this road, for people.
inline constexpr char kNotServed[] = "contiguous memory cannot be mapped, and clocks are this machine's";

/// Offers the attached board in `folder`, an absolute path: bus, GPIO and contiguous memory as character devices,
/// the chip-support nodes as files. Nodes outside of /dev lead to devices that the kernel names after this process.
/// Calls `ready` when the nodes are there, and serves until SIGTERM, SIGINT or SIGHUP; then the nodes are gone.
/// False, with `problem`, where a node exists, or none can be made.
bool ServeNodes(const std::string &folder, const std::function<void()> &ready, std::string *problem);

/// Whether a call on `path` (empty: on any) is ever seen on this road; what the kernel, the C library
/// or the file system do by themselves is not.
bool IsServed(Call call, const char *path);

} // namespace sim

#endif
