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

// A real kernel log is a ring; this one begins anew at a size that hours of faults do not reach.
constexpr long kKernelLogLimit = 8L << 20;

// Used while there is no board, whose state holds the lock.
uint32_t gNoBoardLock = 0;

uint32_t *LockWord()
{
    return gBoard.state == nullptr ? &gNoBoardLock : &gBoard.state->lock;
}

} // namespace

WordLock::WordLock(uint32_t *word) : word_(word)
{
    const uint32_t self = host::ThreadId();
    for (unsigned tries = 1;; ++tries) {
        uint32_t holder = 0;
        if (__atomic_compare_exchange_n(word, &holder, self, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED))
            return;
        if (tries % 256 == 0 && (holder == self || !host::IsAlive(holder))) {
            // The holder died in the middle; its number may have been given to this thread since.
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
}

} // namespace sim
