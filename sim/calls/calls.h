// SPDX-License-Identifier: MIT
//
// The device calls that the board knows by name: a fault rule picks calls by these names, the trace shows
// them. A name before the dot picks the whole family.
#ifndef SIM_CALLS_CALLS_H
#define SIM_CALLS_CALLS_H

#include <errno.h>
#include <stdint.h>

namespace sim
{

// SIM_CALL(identifier, name, errno of a fault that names none, what it is)
#define SIM_CALLS(SIM_CALL)                                                                                  \
    SIM_CALL(Open, "open", ENOENT, "open, openat on the board's nodes and files")                            \
    SIM_CALL(Close, "close", EIO, "close; the descriptor is closed all the same")                            \
    SIM_CALL(Read, "read", EIO, "read from a descriptor of the board")                                       \
    SIM_CALL(Write, "write", EIO, "write to a descriptor of the board")                                      \
    SIM_CALL(Mmap, "mmap", ENOMEM, "mmap of a node")                                                         \
    SIM_CALL(Munmap, "munmap", EINVAL, "munmap of a node's memory")                                          \
    SIM_CALL(Fcntl, "fcntl", EBADF, "fcntl on a descriptor of the board")                                    \
    SIM_CALL(Fopen, "fopen", EACCES, "fopen of a file of the board")                                         \
    SIM_CALL(Fclose, "fclose", EIO, "fclose; the stream is closed all the same")                             \
    SIM_CALL(Fflush, "fflush", EIO, "fflush")                                                                \
    SIM_CALL(Getc, "getc", EIO, "getc, once a buffer; the stream's error mark is set")                       \
    SIM_CALL(Fwrite, "fwrite", EIO, "fwrite, fputs, fprintf; the stream's error mark is set")                \
    SIM_CALL(Fsync, "fsync", EIO, "fsync")                                                                   \
    SIM_CALL(Rename, "rename", EIO, "rename")                                                                \
    SIM_CALL(Unlink, "unlink", EIO, "unlink")                                                                \
    SIM_CALL(Stat, "stat", EACCES, "stat")                                                                   \
    SIM_CALL(Access, "access", EACCES, "access")                                                             \
    SIM_CALL(System, "system", EAGAIN, "the kernel-log commands given to system")                            \
    SIM_CALL(Clock, "clock", EINVAL, "clock_gettime")                                                        \
    SIM_CALL(Time, "time", EFAULT, "time, gettimeofday")                                                     \
    SIM_CALL(Sleep, "sleep", EINTR, "clock_nanosleep, nanosleep, usleep, sleep; EINTR comes half-way")       \
    SIM_CALL(I2cSelect, "i2c.select", ENXIO, "choice of the slave address")                                  \
    SIM_CALL(I2cRead, "i2c.read", EIO, "register reads, single and block")                                   \
    SIM_CALL(I2cWrite, "i2c.write", EIO, "register writes")                                                  \
    SIM_CALL(GioSet, "gio.set", EIO, "driving a pin")                                                        \
    SIM_CALL(GioAlarm, "gio.alarm", EAGAIN, "waiting for the alarm input")                                   \
    SIM_CALL(GioControl, "gio.control", EIO, "alarm input control")                                          \
    SIM_CALL(GioConfig, "gio.config", EIO, "driving a pin from the configuration")                           \
    SIM_CALL(CmemVersion, "cmem.version", EIO, "the driver's version")                                       \
    SIM_CALL(CmemAlloc, "cmem.alloc", ENOMEM, "allocation from a pool")                                      \
    SIM_CALL(CmemAllocHeap, "cmem.heap", ENOMEM, "allocation from the heap")                                 \
    SIM_CALL(CmemFree, "cmem.free", EINVAL, "giving a buffer back")                                          \
    SIM_CALL(CmemPhys, "cmem.phys", EINVAL, "address of a buffer")                                           \
    SIM_CALL(CmemPool, "cmem.pool", EINVAL, "search for a pool")                                             \
    SIM_CALL(CmemBlock, "cmem.block", EINVAL, "bounds of a block")                                           \
    SIM_CALL(CmemCache, "cmem.cache", EINVAL, "cache operations")                                            \
    SIM_CALL(CmemRegister, "cmem.register", EINVAL, "registration as a user")                                \
    SIM_CALL(Ioctl, "ioctl", ENOTTY, "requests that a node does not know")                                   \
    SIM_CALL(Reflect, "reflect", EIO, "reading the reflect registers; takes stuck or busy=TIME")             \
    SIM_CALL(Flash, "flash", EIO, "anything below /mnt/nand; takes missing, full or readonly")

enum class Call : uint8_t {
#define SIM_CALL(identifier, name, error, meaning) identifier,
    SIM_CALLS(SIM_CALL)
#undef SIM_CALL
        Count
};

struct CallInfo {
    const char *name;
    int error;
    const char *meaning;
};

inline constexpr CallInfo kCalls[] = {
#define SIM_CALL(identifier, name, error, meaning) {name, error, meaning},
    SIM_CALLS(SIM_CALL)
#undef SIM_CALL
};

constexpr uint64_t BitOf(Call call)
{
    return uint64_t{1} << static_cast<unsigned>(call);
}
constexpr const char *NameOf(Call call)
{
    return kCalls[static_cast<unsigned>(call)].name;
}

} // namespace sim

#endif
