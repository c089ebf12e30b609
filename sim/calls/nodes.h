// SPDX-License-Identifier: MIT
//
// Which paths belong to the board, and which descriptors of this process lead to it.
#ifndef SIM_CALLS_NODES_H
#define SIM_CALLS_NODES_H

#include <stddef.h>
#include <stdint.h>

namespace sim
{

enum class NodeKind : uint8_t { None, I2c, Gio, Cmem, Csl, File };

/// What a descriptor of this process leads to.
struct Node {
    NodeKind kind;
    uint8_t slave; ///< selected on a descriptor of the bus
    bool full;     ///< a file on a full flash: its descriptor cannot write, which is to look like ENOSPC
    char path[61]; ///< as the program named it
};

/// Where a path of the program leads on this PC.
struct Place {
    NodeKind kind = NodeKind::None; ///< None: the PC's own path, unchanged
    bool exists = true;             ///< false: a device that the board does not have
    char path[4200];                ///< the PC's path, unless kind is None
};

/// The path is the folder itself, or something below it.
bool IsBelow(const char *path, const char *folder);

/// Finds out where a path leads.
void FindPlace(const char *path, Place *place);

/// The node behind a descriptor; null when it is the PC's own.
Node *NodeOf(int fd);

/// Notes that a descriptor now leads to the board. False when its number is too high to be kept.
bool KeepNode(int fd, NodeKind kind, const char *path);

/// Notes that a descriptor is closed.
void ForgetNode(int fd);

/// A mapping of a node's memory in this process.
struct Mapping {
    uintptr_t address; ///< 0 is a free entry
    size_t length;
    uint32_t phys; ///< physical address of its first byte
    NodeKind kind;
};

bool KeepMapping(const Mapping &mapping);
/// The mapping that holds an address; null when the memory is the program's own.
Mapping *MappingAt(uintptr_t address);

} // namespace sim

#endif
