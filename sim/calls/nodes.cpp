// SPDX-License-Identifier: MIT
//
// Descriptors and mappings of the board in one process.
#include "sim/calls/nodes.h"

namespace sim
{

namespace
{

constexpr int kMappings = 64;

Node gNodes[kDescriptors];
Mapping gMappings[kMappings];

bool IsKept(int fd)
{
    return fd >= 0 && fd < kDescriptors;
}

} // namespace

Node *NodeOf(int fd)
{
    return IsKept(fd) && gNodes[fd].path[0] != '\0' ? &gNodes[fd] : nullptr;
}

bool KeepNode(int fd, const Node &node)
{
    if (IsKept(fd))
        gNodes[fd] = node;
    return IsKept(fd);
}

void ForgetNode(int fd)
{
    if (IsKept(fd))
        gNodes[fd].path[0] = '\0';
}

bool KeepMapping(const Mapping &mapping)
{
    for (Mapping &entry : gMappings) {
        if (entry.address == 0) {
            entry = mapping;
            return true;
        }
    }
    return false;
}

Mapping *MappingAt(uintptr_t address)
{
    for (Mapping &entry : gMappings)
        if (entry.address != 0 && address >= entry.address && address - entry.address < entry.length)
            return &entry;
    return nullptr;
}

} // namespace sim
