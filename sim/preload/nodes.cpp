// SPDX-License-Identifier: MIT
//
// Stand-ins for the calls on descriptors: opening, closing, requests, mappings. A node's descriptor is a real
// one (of /dev/null), so that close, dup, poll and the like behave, and its number is noted (nodes.h).
#include "sim/preload/preload.h"

#include "sim/board/host.h"
#include "sim/drivers/devices.h"
#include "sim/trace/trace.h"

#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

namespace sim
{

namespace
{

[[gnu::constructor]] void BeginProgram()
{
    const int before = errno;
    const char *folder = getenv("CAMSIM_BOARD");
    const char *speed = getenv("CAMSIM_SPEED");
    const char *run = getenv("CAMSIM_RUN");
    if (folder != nullptr && AttachBoard(folder) == AttachResult::Ok) {
        gBoard.speed = speed != nullptr ? strtod(speed, nullptr) : 1.0;
        gBoard.speed = gBoard.speed > 0.0 ? gBoard.speed : 1.0;
        gBoard.run = run != nullptr ? static_cast<uint32_t>(strtoul(run, nullptr, 10)) : 0;
        StartTrace();
    }
    errno = before;
}

[[gnu::destructor]] void EndProgram()
{
    EndTrace();
}

bool OpensForWriting(int flags)
{
    return (flags & O_ACCMODE) != O_RDONLY;
}
bool MayCreate(int flags)
{
    return (flags & (O_CREAT | O_TRUNC)) != 0;
}
bool TakesMode(int flags)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

template <class Real>
int OpenPath(const char *path, int flags, Real real)
{
    Place place;
    FindPlace(path, &place);
    if (place.kind == NodeKind::None)
        return real(path);
    const bool isFile = place.kind == NodeKind::File;
    Event event(Call::Open, path);
    event.text = !OpensForWriting(flags) ? "for reading" : isFile ? "for writing" : "";
    if (!InjectFault(event) &&
        !(isFile && InjectFlashFault(event, OpensForWriting(flags) || MayCreate(flags)))) {
        const int fd = place.exists ? real(place.path) : -1;
        event.error = place.exists ? errno : ENOENT;
        event.result = fd;
        if (fd >= 0 && !KeepNode(fd, place.kind, path)) {
            host::Close(fd);
            Fail(event, EMFILE);
        } else if (fd >= 0 && isFile && OpensForWriting(flags) && IsFlashFull(event)) {
            FillUp(fd, place.path);
        }
    }
    return static_cast<int>(Finish(event));
}

int CopyNode(int from, int to)
{
    const Node *node = NodeOf(from);
    ForgetNode(to);
    if (node != nullptr && to >= 0 && KeepNode(to, node->kind, node->path))
        NodeOf(to)->slave = node->slave;
    return to;
}

// The memory behind a node, mapped from a file of the board.
template <class Real>
void *MapNode(const Node &node, size_t length, int flags, uint64_t offset, Real real)
{
    Event event(Call::Mmap, node.path);
    event.words[0] = static_cast<uint32_t>(offset);
    event.words[1] = static_cast<uint32_t>(length);
    event.wordCount = 2;
    const char *file = nullptr;
    uint64_t fileOffset = 0;
    void *map = MAP_FAILED;
    char path[4200];
    if (InjectFault(event)) {
    } else if (!FindMemory(node, offset, length, &file, &fileOffset) ||
               !BoardPath(file, path, sizeof(path))) {
        Fail(event, EINVAL);
    } else {
        const int fd = host::Open(path, O_RDWR);
        map = fd < 0 ? MAP_FAILED : real(flags, fd, fileOffset);
        host::Close(fd);
        const Mapping mapping = {reinterpret_cast<uintptr_t>(map), length, static_cast<uint32_t>(offset),
                                 node.kind};
        if (map == MAP_FAILED || !KeepMapping(mapping))
            Fail(event, ENOMEM);
    }
    Finish(event);
    return event.result < 0 ? MAP_FAILED : map;
}

// Addresses travel through the memory driver in 32 bits, so that its buffers lie low on a 64-bit PC, too.
int LowAddress(const Node &node)
{
#ifdef MAP_32BIT
    return node.kind == NodeKind::Cmem ? MAP_32BIT : 0;
#else
    (void)node;
    return 0;
#endif
}

bool IsDevice(const Node &node)
{
    return node.kind != NodeKind::File;
}

template <class Real>
long MoveBytes(Call call, int fd, Real real)
{
    Node *node = NodeOf(fd);
    if (node == nullptr)
        return real();
    Event event(call, node->path, fd);
    if (!InjectFault(event)) {
        if (IsDevice(*node)) {
            Fail(event, EINVAL);
        } else {
            event.result = static_cast<long>(CallOnFull(*node, real));
            event.error = errno;
        }
    }
    return Finish(event);
}

int RequestOnNode(int fd, unsigned long request, void *argument)
{
    Node *node = NodeOf(fd);
    Event event(Call::Ioctl, node->path, fd);
    ServeRequest(event, *node, request, argument);
    return static_cast<int>(Finish(event));
}

} // namespace

// ---- Open

#define SIM_WRAP_OPEN(symbol)                                                                                \
    SIM_WRAP(int, symbol, (const char *path, int flags, ...))                                                \
    {                                                                                                        \
        va_list arguments;                                                                                   \
        va_start(arguments, flags);                                                                          \
        const int mode = TakesMode(flags) ? va_arg(arguments, int) : 0;                                      \
        va_end(arguments);                                                                                   \
        return OpenPath(path, flags, [=](const char *onPc) { return SIM_NEXT(symbol)(onPc, flags, mode); }); \
    }

#define SIM_WRAP_OPENAT(symbol)                                                                              \
    SIM_WRAP(int, symbol, (int folder, const char *path, int flags, ...))                                    \
    {                                                                                                        \
        va_list arguments;                                                                                   \
        va_start(arguments, flags);                                                                          \
        const int mode = TakesMode(flags) ? va_arg(arguments, int) : 0;                                      \
        va_end(arguments);                                                                                   \
        return OpenPath(path, flags,                                                                         \
                        [=](const char *onPc) { return SIM_NEXT(symbol)(folder, onPc, flags, mode); });      \
    }

// The checked variants that compilers choose where no mode is given.
#define SIM_WRAP_OPEN_2(symbol)                                                                              \
    SIM_WRAP(int, symbol, (const char *path, int flags))                                                     \
    {                                                                                                        \
        return OpenPath(path, flags, [=](const char *onPc) { return SIM_NEXT(symbol)(onPc, flags); });       \
    }

#define SIM_WRAP_OPENAT_2(symbol)                                                                            \
    SIM_WRAP(int, symbol, (int folder, const char *path, int flags))                                         \
    {                                                                                                        \
        return OpenPath(path, flags,                                                                         \
                        [=](const char *onPc) { return SIM_NEXT(symbol)(folder, onPc, flags); });            \
    }

#define SIM_WRAP_CREAT(symbol)                                                                               \
    SIM_WRAP(int, symbol, (const char *path, unsigned mode))                                                 \
    {                                                                                                        \
        return OpenPath(path, O_CREAT | O_WRONLY | O_TRUNC,                                                  \
                        [=](const char *onPc) { return SIM_NEXT(symbol)(onPc, mode); });                     \
    }

SIM_WRAP_OPEN(open)
SIM_WRAP_OPEN(open64)
SIM_WRAP_OPENAT(openat)
SIM_WRAP_OPENAT(openat64)
SIM_WRAP_OPEN_2(__open_2)
SIM_WRAP_OPEN_2(__open64_2)
SIM_WRAP_OPENAT_2(__openat_2)
SIM_WRAP_OPENAT_2(__openat64_2)
SIM_WRAP_CREAT(creat)
SIM_WRAP_CREAT(creat64)

// ---- Close and duplicates

SIM_WRAP(int, close, (int fd))
{
    const Node *node = NodeOf(fd);
    if (node == nullptr)
        return SIM_NEXT(close)(fd);
    const Node closed = *node;
    Event event(Call::Close, closed.path, fd);
    ForgetNode(fd);
    if (closed.kind == NodeKind::Cmem)
        ReleaseBuffers();
    const int result = SIM_NEXT(close)(fd);
    const int error = errno;
    if (!InjectFault(event)) {
        event.result = result;
        event.error = error;
    }
    return static_cast<int>(Finish(event));
}

SIM_WRAP(int, dup, (int fd))
{
    return CopyNode(fd, SIM_NEXT(dup)(fd));
}
SIM_WRAP(int, dup2, (int fd, int target))
{
    return fd == target ? fd : CopyNode(fd, SIM_NEXT(dup2)(fd, target));
}
SIM_WRAP(int, dup3, (int fd, int target, int flags))
{
    return CopyNode(fd, SIM_NEXT(dup3)(fd, target, flags));
}

#define SIM_WRAP_FCNTL(symbol)                                                                               \
    SIM_WRAP(int, symbol, (int fd, int command, ...))                                                        \
    {                                                                                                        \
        va_list arguments;                                                                                   \
        va_start(arguments, command);                                                                        \
        const long argument = va_arg(arguments, long);                                                       \
        va_end(arguments);                                                                                   \
        const Node *node = NodeOf(fd);                                                                       \
        if (node == nullptr)                                                                                 \
            return SIM_NEXT(symbol)(fd, command, argument);                                                  \
        Event event(Call::Fcntl, node->path, fd);                                                            \
        event.request = command == F_GETFD   ? "get descriptor flags"                                        \
                        : command == F_SETFD ? "set descriptor flags"                                        \
                                             : "control descriptor";                                         \
        if (!InjectFault(event)) {                                                                           \
            event.result = SIM_NEXT(symbol)(fd, command, argument);                                          \
            event.error = errno;                                                                             \
            if (command == F_DUPFD || command == F_DUPFD_CLOEXEC)                                            \
                CopyNode(fd, static_cast<int>(event.result));                                                \
        }                                                                                                    \
        return static_cast<int>(Finish(event));                                                              \
    }

SIM_WRAP_FCNTL(fcntl)
SIM_WRAP_FCNTL(fcntl64)

// ---- Requests, bytes

#define SIM_WRAP_IOCTL(symbol)                                                                               \
    SIM_WRAP(int, symbol, (int fd, unsigned long request, ...))                                              \
    {                                                                                                        \
        va_list arguments;                                                                                   \
        va_start(arguments, request);                                                                        \
        void *argument = va_arg(arguments, void *);                                                          \
        va_end(arguments);                                                                                   \
        return NodeOf(fd) == nullptr ? SIM_NEXT(symbol)(fd, request, argument)                               \
                                     : RequestOnNode(fd, request, argument);                                 \
    }

SIM_WRAP_IOCTL(ioctl)

SIM_WRAP(ssize_t, read, (int fd, void *dest, size_t count))
{
    return MoveBytes(
        Call::Read, fd, [=] { return SIM_NEXT(read)(fd, dest, count); });
}

SIM_WRAP(ssize_t, __read_chk, (int fd, void *dest, size_t count, size_t room))
{
    return MoveBytes(
        Call::Read, fd, [=] { return SIM_NEXT(__read_chk)(fd, dest, count, room); });
}

SIM_WRAP(ssize_t, write, (int fd, const void *source, size_t count))
{
    return MoveBytes(
        Call::Write, fd, [=] { return SIM_NEXT(write)(fd, source, count); });
}

SIM_WRAP(int, fsync, (int fd))
{
    return static_cast<int>(MoveBytes(
        Call::Fsync, fd, [=] { return SIM_NEXT(fsync)(fd); }));
}

SIM_WRAP(int, fdatasync, (int fd))
{
    return static_cast<int>(MoveBytes(
        Call::Fsync, fd, [=] { return SIM_NEXT(fdatasync)(fd); }));
}

// ---- Mappings

SIM_WRAP(void *, mmap, (void *where, size_t length, int protection, int flags, int fd, long offset))
{
    const Node *node = NodeOf(fd);
    if (node == nullptr || !IsDevice(*node))
        return SIM_NEXT(mmap)(where, length, protection, flags, fd, offset);
    // An offset above 2 GiB is negative where it has 32 bits.
    const auto unsignedOffset = static_cast<unsigned long>(offset);
    return MapNode(*node, length, flags | LowAddress(*node), unsignedOffset,
                   [=](int how, int file, uint64_t at) {
                       return SIM_NEXT(mmap)(where, length, protection, how, file, static_cast<long>(at));
                   });
}

SIM_WRAP(void *, mmap64, (void *where, size_t length, int protection, int flags, int fd, int64_t offset))
{
    const Node *node = NodeOf(fd);
    if (node == nullptr || !IsDevice(*node))
        return SIM_NEXT(mmap64)(where, length, protection, flags, fd, offset);
    const auto unsignedOffset = static_cast<uint64_t>(offset);
    return MapNode(
        *node, length, flags | LowAddress(*node), unsignedOffset, [=](int how, int file, uint64_t at) {
            return SIM_NEXT(mmap64)(where, length, protection, how, file, static_cast<int64_t>(at));
        });
}

SIM_WRAP(int, munmap, (void *address, size_t length))
{
    Mapping *mapping = MappingAt(reinterpret_cast<uintptr_t>(address));
    if (mapping == nullptr)
        return SIM_NEXT(munmap)(address, length);
    Event event(Call::Munmap, mapping->kind == NodeKind::Cmem ? "/dev/cmem" : "/dev/csl1");
    event.words[0] = mapping->phys;
    event.words[1] = static_cast<uint32_t>(length);
    event.wordCount = 2;
    if (!InjectFault(event)) {
        event.result = SIM_NEXT(munmap)(address, length);
        event.error = errno;
        mapping->address = event.result == 0 ? 0 : mapping->address;
    }
    return static_cast<int>(Finish(event));
}

#if __TIMESIZE == 32
// 32-bit programs with 64-bit time reach these under names of their own.
SIM_WRAP_IOCTL(__ioctl_time64)
SIM_WRAP_FCNTL(__fcntl_time64)
#endif

} // namespace sim
