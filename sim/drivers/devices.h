// SPDX-License-Identifier: MIT
//
// The board's device nodes as their drivers present them to a program: the camera bus, GPIO, contiguous
// memory, chip support. Descriptors and mappings are the preloaded library's matter (nodes.h,
// preloadNodes.cpp).
#ifndef SIM_DRIVERS_DEVICES_H
#define SIM_DRIVERS_DEVICES_H

#include "sim/calls/event.h"
#include "sim/calls/nodes.h"

namespace sim
{

/// Serves a request on a node: fills the event's result, error and story.
void ServeRequest(Event &event, Node &node, unsigned long request, void *argument);

/// The file below the board's folder, and the offset in it, that a mapping of the node shows. False when the
/// node has no memory there.
bool FindMemory(const Node &node, uint64_t offset, size_t length, const char **file, uint64_t *fileOffset);

/// Gives the buffers of this process back, as the driver does when its descriptor is closed.
void ReleaseBuffers();

// The drivers with files of their own.
void ServeI2c(Event &event, Node &node, unsigned long request, void *argument);
void ServeCmem(Event &event, unsigned long request, void *argument);
bool FindBufferMemory(uint64_t offset, size_t length, uint64_t *fileOffset);

} // namespace sim

#endif
