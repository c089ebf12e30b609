// SPDX-License-Identifier: MIT
//
// Stand-ins for the calls on descriptors: opening, closing, requests, mappings. A node's descriptor is a real
// one (of /dev/null), so that close, dup, poll and the like behave, and its number is noted (nodes.h). This is
// the road on which requests reach the drivers from within the program's own process.
#include "sim/preload/preload.h"

#include "sim/board/host.h"
#include "sim/trace/trace.h"

#include <fcntl.h>
#include <stdarg.h>
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

bool TakesMode(int flags)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

template <class Real>
int OpenPath(const char *path, int flags, Real real)
{
    Place place;
    FindPlace(path, &place);
    if (place.where == Place::Where::Pc)
        return real(path);
    const bool writes = (flags & O_ACCMODE) != O_RDONLY;
    const bool mayCreate = (flags & (O_CREAT | O_TRUNC)) != 0;
    Event event(Call::Open, path);
    event.text = !writes ? "for reading" : place.device == nullptr ? "for writing" : "";
    if (!IsBarred(event, place, writes || mayCreate)) {
        event.result = real(place.path);
        event.error = errno;
        const auto fd = static_cast<int>(event.result);
        if (fd >= 0 && !KeepOpened(event, fd, place, writes))
            host::Close(fd);
    }
    return static_cast<int>(Finish(event));
}

int CopyNode(int from, int to)
{
    const Node *node = NodeOf(from);
    ForgetNode(to);
    if (node != nullptr)
        KeepNode(to, *node);
    return to;
}

bool Holds(const DeviceMemory &memory, uint64_t offset, size_t length)
{
    const uint64_t end = uint64_t{memory.base} + memory.length;
    return offset >= memory.base && offset < end && length <= end - offset;
}

// The memory behind a node, mapped from a file of the board.
template <class Real>
void *MapNode(const Node &node, size_t length, int flags, uint64_t offset, Real real)
{
    Event event(Call::Mmap, node.path);
    event.words[0] = static_cast<uint32_t>(offset);
    event.words[1] = static_cast<uint32_t>(length);
    event.wordCount = 2;
    const DeviceMemory *memory = node.device->memory;
    void *map = MAP_FAILED;
    char path[4200];
    if (InjectFault(event)) {
    } else if (memory == nullptr || !Holds(*memory, offset, length) ||
               !BoardPath(memory->file, path, sizeof(path))) {
        Fail(event, EINVAL);
    } else {
        const int fd = host::Open(path, O_RDWR);
        map = fd < 0 ? MAP_FAILED : real(flags, fd, offset - memory->base);
        host::Close(fd);
        const Mapping mapping = {reinterpret_cast<uintptr_t>(map), length, static_cast<uint32_t>(offset),
                                 node.device};
        if (map == MAP_FAILED || !KeepMapping(mapping))
            Fail(event, ENOMEM);
    }
    Finish(event);
    return event.result < 0 ? MAP_FAILED : map;
}

// Where addresses travel in 32 bits, mappings lie low on a 64-bit PC, too.
int LowAddress(const Node &node)
{
#ifdef MAP_32BIT
    return node.device->memory != nullptr && node.device->memory->isAddressed ? MAP_32BIT : 0;
#else
    (void)node;
    return 0;
#endif
}

template <class Real>
long CallOnDescriptor(Call call, int fd, Real real)
{
    Node *node = NodeOf(fd);
    if (node == nullptr)
        return real();
    Event event(call, node->path, fd);
    if (!InjectFault(event)) {
        if (node->device != nullptr) {
            Fail(event, EINVAL);
        } else {
            event.result = static_cast<long>(CallOnFull(*node, real));
            event.error = errno;
        }
    }
    return Finish(event);
}

// Between the program's memory and the copies that a driver works on.
void Fetch(Part &part)
{
    if (part.isFetched && part.address != 0)
        memcpy(part.bytes, reinterpret_cast<const void *>(static_cast<uintptr_t>(part.address)), part.size);
}

void Store(const Part &part)
{
    if (part.isStored && part.address != 0)
        memcpy(reinterpret_cast<void *>(static_cast<uintptr_t>(part.address)), part.bytes, part.size);
}

int RequestOnNode(Node &node, int fd, unsigned long number, void *argument)
{
    const Device &device = *node.device;
    Request request(number, reinterpret_cast<uintptr_t>(argument), sizeof(void *), host::ProcessId(), node);
    Event event(Call::Ioctl, node.path, fd);
    FindRecord(device, request);
    Fetch(request.record);
    FindLists(device, request);
    for (Part &list : request.lists)
        Fetch(list);
    if (request.kind != nullptr && request.kind->namesMemory && request.record.address != 0) {
        uint32_t address = 0;
        memcpy(&address, request.record.bytes, sizeof(address));
        request.memory = MappingAt(address);
    }
    Serve(device, request, event);
    if (event.result == 0)
        for (const Part *part : {&request.record, &request.lists[0], &request.lists[1]})
            Store(*part);
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

SIM_WRAP_OPEN(open)
SIM_WRAP_OPEN(open64)
SIM_WRAP_OPENAT(openat)
SIM_WRAP_OPENAT(openat64)
SIM_WRAP_OPEN_2(__open_2)
SIM_WRAP_OPEN_2(__open64_2)
SIM_WRAP_OPENAT_2(__openat_2)
SIM_WRAP_OPENAT_2(__openat64_2)

// ---- Close and duplicates

SIM_WRAP(int, close, (int fd))
{
    const Node *node = NodeOf(fd);
    if (node == nullptr)
        return SIM_NEXT(close)(fd);
    const Node closed = *node;
    Event event(Call::Close, closed.path, fd);
    ForgetNode(fd);
    if (closed.device != nullptr && closed.device->driver->close != nullptr)
        closed.device->driver->close(host::ProcessId());
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
        Node *node = NodeOf(fd);                                                                             \
        return node == nullptr || node->device == nullptr ? SIM_NEXT(symbol)(fd, request, argument)          \
                                                          : RequestOnNode(*node, fd, request, argument);     \
    }

SIM_WRAP_IOCTL(ioctl)

SIM_WRAP(ssize_t, read, (int fd, void *dest, size_t count))
{
    return CallOnDescriptor(
        Call::Read, fd, [=] { return SIM_NEXT(read)(fd, dest, count); });
}

SIM_WRAP(ssize_t, __read_chk, (int fd, void *dest, size_t count, size_t room))
{
    return CallOnDescriptor(
        Call::Read, fd, [=] { return SIM_NEXT(__read_chk)(fd, dest, count, room); });
}

SIM_WRAP(ssize_t, write, (int fd, const void *source, size_t count))
{
    return CallOnDescriptor(
        Call::Write, fd, [=] { return SIM_NEXT(write)(fd, source, count); });
}

SIM_WRAP(int, fsync, (int fd))
{
    return static_cast<int>(CallOnDescriptor(
        Call::Fsync, fd, [=] { return SIM_NEXT(fsync)(fd); }));
}

SIM_WRAP(int, ftruncate, (int fd, long length))
{
    return CallWritable(
        fd, [=] { return SIM_NEXT(ftruncate)(fd, length); });
}

SIM_WRAP(int, ftruncate64, (int fd, int64_t length))
{
    return CallWritable(
        fd, [=] { return SIM_NEXT(ftruncate64)(fd, length); });
}

// ---- Mappings

SIM_WRAP(void *, mmap, (void *where, size_t length, int protection, int flags, int fd, long offset))
{
    const Node *node = NodeOf(fd);
    if (node == nullptr || node->device == nullptr)
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
    if (node == nullptr || node->device == nullptr)
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
    Event event(Call::Munmap, mapping->device->path);
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
