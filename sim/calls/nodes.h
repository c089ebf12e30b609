// SPDX-License-Identifier: MIT
//
// Which descriptors and mappings of this process lead to the board.
#ifndef SIM_CALLS_NODES_H
#define SIM_CALLS_NODES_H

#include <stddef.h>
#include <stdint.h>

namespace sim
{

struct Device; // a row of the drivers' table (sim/drivers/devices.h)

/// Descriptors with higher numbers cannot lead to the board.
inline constexpr int kDescriptors = 1024;

/// What a descriptor of this process leads to.
struct Node {
    const Device *device; ///< null for a file of the board
    uint8_t slave;        ///< selected on a descriptor of the bus
    bool full;     ///< a file on a full flash: its descriptor cannot write, which is to look like ENOSPC
    char path[61]; ///< as the program named it; empty for an entry that is free
};

/// The node behind a descriptor; null when it is the PC's own.
Node *NodeOf(int fd);

/// Notes that a descriptor now leads to the board. False when its number is too high to be kept.
bool KeepNode(int fd, const Node &node);

/// Notes that a descriptor is closed.
void ForgetNode(int fd);

/// A mapping of a device's memory in this process.
struct Mapping {
    uintptr_t address; ///< 0 is a free entry
    size_t length;
    uint32_t phys; ///< physical address of its first byte
    const Device *device;
};

bool KeepMapping(const Mapping &mapping);
/// The mapping that holds an address; null when the memory is the program's own.
Mapping *MappingAt(uintptr_t address);

} // namespace sim

#endif
