// SPDX-License-Identifier: MIT
//
// System calls by number. Nothing here touches errno's value as the program sees it: the callers in the
// preloaded library keep it.
#include "sim/board/host.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace sim::host
{

namespace
{

constexpr int kOwnDescriptors = 700;

// The kernel's 64-bit time record; on 32-bit machines the C library's own record may be narrower.
struct KernelTime {
    int64_t sec;
    int64_t nsec;
};

#ifdef SYS_clock_gettime64
constexpr long kClockGetTime = SYS_clock_gettime64;
constexpr long kClockSleep = SYS_clock_nanosleep_time64;
#else
constexpr long kClockGetTime = SYS_clock_gettime;
constexpr long kClockSleep = SYS_clock_nanosleep;
#endif

long OrErrno(long result)
{
    return result < 0 ? -errno : result;
}

// A line of a process's list of mappings, as far as it tells which file is where.
struct MappedFile {
    unsigned long begin;
    unsigned long end;
    char device[32];
    char inode[32];
};

// Reads a list of mappings line by line into `file` until `isWanted`.
template <class IsWanted>
Mapped FindMapping(const char *list, MappedFile *file, IsWanted isWanted)
{
    const int fd = Open(list, O_RDONLY);
    if (fd < 0)
        return fd == -ENOENT || fd == -ESRCH ? Mapped::No : Mapped::Unknown;
    char text[8192];
    size_t length = 0;
    Mapped found = Mapped::No;
    for (long got = 1; got > 0 && found == Mapped::No;) {
        got = Read(fd, text + length, sizeof(text) - 1 - length);
        length += got > 0 ? static_cast<size_t>(got) : 0;
        text[length] = '\0';
        char *line = text;
        for (char *end = nullptr; found == Mapped::No && (end = strchr(line, '\n')) != nullptr;
             line = end + 1)
            if (sscanf(line, "%lx-%lx %*s %*s %31s %31s", &file->begin, &file->end, file->device,
                       file->inode) == 4 &&
                isWanted())
                found = Mapped::Yes;
        length -= static_cast<size_t>(line - text);
        memmove(text, line, length);
    }
    Close(fd);
    return found;
}

} // namespace

int Open(const char *path, int flags, unsigned mode)
{
    return static_cast<int>(OrErrno(syscall(SYS_openat, AT_FDCWD, path, flags | O_CLOEXEC, mode)));
}

void Close(int fd)
{
    syscall(SYS_close, fd);
}

bool WriteAll(int fd, const char *bytes, size_t count)
{
    while (count > 0) {
        const long written = OrErrno(syscall(SYS_write, fd, bytes, count));
        if (written == -EINTR || written == -EAGAIN)
            continue;
        if (written <= 0)
            return false;
        bytes += written;
        count -= static_cast<size_t>(written);
    }
    return true;
}

long Read(int fd, void *dest, size_t count)
{
    long got = -EINTR;
    while (got == -EINTR)
        got = OrErrno(syscall(SYS_read, fd, dest, count));
    return got;
}

long FileSize(int fd)
{
    const long size = OrErrno(syscall(SYS_lseek, fd, 0L, SEEK_END));
    syscall(SYS_lseek, fd, 0L, SEEK_SET);
    return size;
}

bool Truncate(int fd)
{
    return syscall(SYS_ftruncate, fd, 0L) == 0;
}

void *MapShared(int fd, size_t length)
{
#ifdef SYS_mmap2
    const long map = syscall(SYS_mmap2, 0L, length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0L);
#else
    const long map = syscall(SYS_mmap, 0L, length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0L);
#endif
    void *address = nullptr;
    memcpy(&address, &map, sizeof(address));
    return map == -1 ? nullptr : address;
}

bool Reopen(int fd, const char *path, int flags)
{
    const int reopened = Open(path, flags);
    const bool good = reopened >= 0 && syscall(SYS_dup3, reopened, fd, 0L) >= 0;
    Close(reopened);
    return good;
}

int MoveToHighNumber(int fd)
{
#ifdef SYS_fcntl64
    return static_cast<int>(OrErrno(syscall(SYS_fcntl64, fd, F_DUPFD_CLOEXEC, kOwnDescriptors)));
#else
    return static_cast<int>(OrErrno(syscall(SYS_fcntl, fd, F_DUPFD_CLOEXEC, kOwnDescriptors)));
#endif
}

int64_t ClockNs(int clock)
{
    KernelTime now = {};
    syscall(kClockGetTime, clock, &now);
    return now.sec * 1000000000 + now.nsec;
}

uint64_t MonotonicNs()
{
    return static_cast<uint64_t>(ClockNs(CLOCK_MONOTONIC));
}

void SleepNs(uint64_t ns)
{
    KernelTime left = {static_cast<int64_t>(ns / 1000000000U), static_cast<int64_t>(ns % 1000000000U)};
    while (syscall(kClockSleep, CLOCK_MONOTONIC, 0, &left, &left) < 0 && errno == EINTR) {
    }
}

void Yield()
{
    syscall(SYS_sched_yield);
}

uint32_t ProcessId()
{
    return static_cast<uint32_t>(syscall(SYS_getpid));
}

uint32_t ThreadId()
{
    return static_cast<uint32_t>(syscall(SYS_gettid));
}

bool IsAlive(uint32_t id)
{
    // 0 and what is negative as a number would ask for groups of processes.
    return static_cast<int32_t>(id) > 0 &&
           (syscall(SYS_kill, static_cast<long>(id), 0L) == 0 || errno != ESRCH);
}

bool IsOwnThread(uint32_t id)
{
    char path[48];
    snprintf(path, sizeof(path), "/proc/self/task/%u", id);
    const int fd = Open(path, O_PATH);
    Close(fd);
    return fd >= 0;
}

Mapped HasMapped(uint32_t id, const void *address)
{
    MappedFile own = {};
    MappedFile other = {};
    const auto place = reinterpret_cast<uintptr_t>(address);
    char path[48];
    if (FindMapping("/proc/self/maps", &own, [&] { return place >= own.begin && place < own.end; }) !=
        Mapped::Yes)
        return IsAlive(id) ? Mapped::Unknown : Mapped::No;
    snprintf(path, sizeof(path), "/proc/%u/maps", id);
    return FindMapping(path, &other, [&] {
        return strcmp(own.device, other.device) == 0 && strcmp(own.inode, other.inode) == 0;
    });
}

void Kill(uint32_t process)
{
    do {
        syscall(SYS_kill, static_cast<long>(process), static_cast<long>(SIGKILL));
    } while (process == ProcessId());
}

} // namespace sim::host
