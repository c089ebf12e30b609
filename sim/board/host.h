// SPDX-License-Identifier: MIT
//
// The PC underneath: plain system calls for the simulator's own use. The
// preloaded library stands in for open, close, clock_gettime and their kin,
// so its own work must not go through those names; it goes through these.
#ifndef SIM_BOARD_HOST_H
#define SIM_BOARD_HOST_H

#include <stddef.h>
#include <stdint.h>

namespace sim::host
{

/// Opens a file with the flags of open(2), close-on-exec added; a descriptor, or the negative errno.
int Open(const char *path, int flags, unsigned mode = 0);
void Close(int fd);
/// Writes all bytes, whatever comes between; false on an error.
bool WriteAll(int fd, const char *bytes, size_t count);
/// Reads up to `count` bytes; the number read, 0 at the end, or the negative errno.
long Read(int fd, void *dest, size_t count);
long FileSize(int fd);
bool Truncate(int fd);
/// Maps `length` bytes of a file, shared, for reading and writing; null on failure.
void *MapShared(int fd, size_t length);
/// Opens the file at `path` with other flags, under the number of a descriptor that is open.
bool Reopen(int fd, const char *path, int flags);
/// Moves a descriptor to a number above those that programs see, close-on-exec; or the negative errno.
int MoveToHighNumber(int fd);

/// A clock of the PC, by its number for clock_gettime.
int64_t ClockNs(int clock);
uint64_t MonotonicNs();
void SleepNs(uint64_t ns);
void Yield();
uint32_t ProcessId();
uint32_t ThreadId();
/// A process or thread with this number is there.
bool IsAlive(uint32_t id);
/// A thread of this process has this number.
bool IsOwnThread(uint32_t id);

enum class Mapped { No, Yes, Unknown };

/// Whether the process of this thread has mapped the file
/// that this process has mapped at `address`; Unknown where it cannot be looked up.
Mapped HasMapped(uint32_t id, const void *address);
/// Ends a process at once, with nothing flushed; returns only for another one than this.
void Kill(uint32_t process);

} // namespace sim::host

#endif
