// SPDX-License-Identifier: MIT
//
// Attaching to a board, its lock, and its kernel log.
#include "sim/board/board.h"

#include "sim/board/host.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>

namespace sim
{

Board gBoard;

namespace
{

// A real kernel log is a ring; this one begins anew at a size that days of faults do not reach.
constexpr long kKernelLogLimit = 64L << 20;

// Used while there is no board, whose state holds the lock.
uint32_t gNoBoardLock = 0;

uint32_t *LockWord()
{
    return gBoard.state == nullptr ? &gNoBoardLock : &gBoard.state->lock;
}

// Whether a thread with this number may be about to give the word free. Processes of other users keep to
// themselves what they map; a lock is held for microseconds, so they are believed for a second.
bool MayHold(const uint32_t *word, uint32_t holder, uint64_t waitedNs)
{
    constexpr uint64_t kPatienceNs = 1000000000;
    if (gBoard.state == nullptr || word != &gBoard.state->lock)
        return host::IsOwnThread(holder);
    const host::Mapped mapped = host::HasMapped(holder, word);
    return mapped == host::Mapped::Yes || (mapped == host::Mapped::Unknown && waitedNs < kPatienceNs);
}

// Not for a number that is none.
bool IsWithin(double value, double least, double most)
{
    return value >= least && value <= most;
}

bool IsSound(const CmemBuffer &buffer)
{
    return buffer.size == 0 || (buffer.phys >= kCmemBase && buffer.phys < kCmemEnd &&
                                buffer.size <= kCmemEnd - buffer.phys && buffer.users > 0);
}

bool IsSound(const FaultRule &rule)
{
    constexpr uint32_t kMostErrno = 4095;
    const bool hasTime =
        rule.effect == Effect::Delay || rule.effect == Effect::Busy || rule.effect == Effect::Back;
    return rule.text[sizeof(rule.text) - 1] == '\0' && rule.path[sizeof(rule.path) - 1] == '\0' &&
           rule.effect <= Effect::Kill && rule.error <= kMostErrno && rule.used <= 1 &&
           (rule.used == 0 || rule.error > 0) && !(hasTime && rule.value > kLongestUs);
}

template <class Record, size_t count>
bool AreSound(const Record (&records)[count])
{
    for (const Record &record : records)
        if (!IsSound(record))
            return false;
    return true;
}

// All other members may have any value.
bool IsSound(const BoardState &state)
{
    constexpr double kMostExposureGain = 1e12; // beyond the longest exposure with the highest gains
    constexpr double kMostWhiteGain = 16.0;
    constexpr double kMostFrames = 1e6;
    const Scene &scene = state.scene;
    const Live &live = state.live;
    return IsWithin(scene.lightLux, 0.0, kMostLux) && IsWithin(scene.kelvin, kLeastKelvin, kMostKelvin) &&
           scene.sensorType <= kMostSensorType && scene.reflectBusyUs <= kLongestUs &&
           IsWithin(live.exposureGain, 0.0, kMostExposureGain) && IsWithin(live.red, 0.0, kMostWhiteGain) &&
           IsWithin(live.blue, 0.0, kMostWhiteGain) && IsWithin(live.frames, 0.0, kMostFrames) &&
           AreSound(state.cmem) && state.faultCount <= kFaultRules && AreSound(state.faults);
}

} // namespace

WordLock::WordLock(uint32_t *word) : word_(word)
{
    const uint32_t self = host::ThreadId();
    uint64_t startNs = 0;
    for (unsigned tries = 1;; ++tries) {
        uint32_t holder = 0;
        if (__atomic_compare_exchange_n(word, &holder, self, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED))
            return;
        if (tries % 256 == 0) {
            startNs = startNs != 0 ? startNs : host::MonotonicNs();
            // The holder died in the middle; its number may have been given to this thread since.
            if (holder == self || !MayHold(word, holder, host::MonotonicNs() - startNs))
                __atomic_compare_exchange_n(word, &holder, 0, false, __ATOMIC_RELAXED, __ATOMIC_RELAXED);
        }
        host::Yield();
    }
}

WordLock::~WordLock()
{
    __atomic_store_n(word_, 0U, __ATOMIC_RELEASE);
}

BoardLock::BoardLock() : WordLock(LockWord()) {}

AttachResult AttachBoard(const char *folder)
{
    char path[4096];
    snprintf(gBoard.folder, sizeof(gBoard.folder), "%s", folder);
    if (!BoardPath(kStateFile, path, sizeof(path)))
        return AttachResult::NoFile;
    const int fd = host::Open(path, O_RDWR);
    if (fd < 0)
        return AttachResult::NoFile;
    const long size = host::FileSize(fd);
    void *map =
        size < static_cast<long>(sizeof(BoardState)) ? nullptr : host::MapShared(fd, sizeof(BoardState));
    host::Close(fd);
    if (map == nullptr)
        return AttachResult::Damaged;
    auto *state = static_cast<BoardState *>(map);
    if (memcmp(state->magic, kMagic, sizeof(kMagic)) != 0)
        return AttachResult::Damaged;
    if (state->layout != kLayout || state->size != sizeof(BoardState))
        return AttachResult::OtherLayout;
    if (!IsSound(*state))
        return AttachResult::Damaged;
    gBoard.startNs = host::MonotonicNs();
    gBoard.state = state;
    return AttachResult::Ok;
}

bool BoardPath(const char *name, char *path, size_t size)
{
    const char *slash = name[0] == '/' ? "" : "/";
    const int length = snprintf(path, size, "%s%s%s", gBoard.folder, slash, name);
    return length > 0 && static_cast<size_t>(length) < size;
}

uint64_t BoardNs()
{
    return static_cast<uint64_t>(static_cast<double>(host::MonotonicNs() - gBoard.startNs) * gBoard.speed);
}

void LogToKernel(const char *text)
{
    char path[4096];
    if (!BoardPath(kKernelLogFile, path, sizeof(path)))
        return;
    const int fd = host::Open(path, O_RDWR | O_CREAT | O_APPEND, 0644);
    if (fd < 0)
        return;
    if (host::FileSize(fd) > kKernelLogLimit)
        host::Truncate(fd);
    const uint64_t us = gBoard.startNs / 1000 + BoardNs() / 1000;
    char line[256];
    int length =
        snprintf(line, sizeof(line), "[%5llu.%06llu] %s\n", static_cast<unsigned long long>(us / 1000000),
                 static_cast<unsigned long long>(us % 1000000), text);
    if (length >= static_cast<int>(sizeof(line)))
        length = sizeof(line) - 1;
    host::WriteAll(fd, line, static_cast<size_t>(length));
    host::Close(fd);
    if (gBoard.kernelLog >= 0) { // it stamps its lines by itself
        const char *unstamped = strstr(line, "] ") + 2;
        host::WriteAll(gBoard.kernelLog, unstamped, strlen(unstamped));
    }
}

} // namespace sim
