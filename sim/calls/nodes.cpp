// SPDX-License-Identifier: MIT
//
// Paths, descriptors and mappings of the board in one process.
#include "sim/calls/nodes.h"

#include "sim/board/board.h"

#include <stdio.h>
#include <string.h>

namespace sim
{

namespace
{

constexpr int kDescriptors = 1024;
constexpr int kMappings = 64;

Node gNodes[kDescriptors];
Mapping gMappings[kMappings];

struct NodePath {
    const char *path;
    NodeKind kind;
};

constexpr NodePath kDevices[] = {
    {"/dev/dev_i2c", NodeKind::I2c},
    {"/dev/gio", NodeKind::Gio},
    {"/dev/cmem", NodeKind::Cmem},
};

constexpr const char *kFolders[] = {"/mnt/nand", "/sysconf", "/defconf", "/proc/driver/rtc"};

// Devices that programs expect on any machine; every other one is the board's to have or not to have.
constexpr const char *kPlainDevices[] = {
    "/dev/null", "/dev/zero",  "/dev/full",   "/dev/random", "/dev/urandom", "/dev/tty", "/dev/pts",
    "/dev/ptmx", "/dev/stdin", "/dev/stdout", "/dev/stderr", "/dev/fd",      "/dev/shm", "/dev/log"};

template <size_t count>
bool IsBelowAny(const char *path, const char *const (&folders)[count])
{
    for (const char *folder : folders)
        if (IsBelow(path, folder))
            return true;
    return false;
}

NodeKind DeviceAt(const char *path)
{
    for (const NodePath &device : kDevices)
        if (strcmp(path, device.path) == 0)
            return device.kind;
    const bool isCsl =
        strncmp(path, "/dev/csl", 8) == 0 && path[8] >= '1' && path[8] <= '9' && path[9] == '\0';
    return isCsl ? NodeKind::Csl : NodeKind::None;
}

} // namespace

bool IsBelow(const char *path, const char *folder)
{
    const size_t length = strlen(folder);
    return strncmp(path, folder, length) == 0 && (path[length] == '\0' || path[length] == '/');
}

void FindPlace(const char *path, Place *place)
{
    place->kind = NodeKind::None;
    place->exists = true;
    if (path == nullptr)
        return;
    if (strncmp(path, "/dev/", 5) == 0 && !IsBelowAny(path, kPlainDevices)) {
        place->kind = DeviceAt(path);
        place->exists = place->kind != NodeKind::None && gBoard.state != nullptr;
        place->kind = place->exists ? place->kind : NodeKind::Csl;
        // A harmless stand-in where a path is all that matters,
        // and a path that nothing has where there is no device.
        snprintf(place->path, sizeof(place->path), "%s", place->exists ? "/dev/null" : "");
    } else if (IsBelowAny(path, kFolders)) {
        place->kind = NodeKind::File;
        place->exists = BoardPath(path, place->path, sizeof(place->path));
    }
}

Node *NodeOf(int fd)
{
    return fd >= 0 && fd < kDescriptors && gNodes[fd].kind != NodeKind::None ? &gNodes[fd] : nullptr;
}

bool KeepNode(int fd, NodeKind kind, const char *path)
{
    if (fd < 0 || fd >= kDescriptors)
        return false;
    Node &node = gNodes[fd];
    node.kind = kind;
    node.slave = 0;
    node.full = false;
    snprintf(node.path, sizeof(node.path), "%s", path);
    return true;
}

void ForgetNode(int fd)
{
    if (fd >= 0 && fd < kDescriptors)
        gNodes[fd].kind = NodeKind::None;
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
