// SPDX-License-Identifier: MIT
//
// The driver of the contiguous memory: two blocks of physical addresses, cut into pools and a heap, and the
// buffers in them. The memory itself is a file of the board, which every process that maps a buffer shares.
#include "sim/drivers/devices.h"

#include "sim/board/board.h"
#include "sim/board/host.h"
#include "sim/calls/faults.h"

#include <string.h>

namespace sim
{

namespace
{

constexpr uint32_t kCmemVersion = 0x02300105;
constexpr uint32_t kCmemCached = 0x200; // the driver's flag for a cached buffer
constexpr uint32_t kCmemHeap = 0x400;
constexpr uint32_t kCmemByPhys = 0x1000;

// A block is cut into pools of equal buffers; what is left over is its heap.
struct CmemPool {
    uint32_t block;
    uint32_t base;
    uint32_t bufferSize;
    uint32_t buffers;
};

constexpr uint32_t kCmemBlockEnd[] = {0x86000000, 0x86800000};
constexpr uint32_t kCmemHeapBase[] = {0x85800000, 0x86400000};
constexpr CmemPool kCmemPools[] = {{0, 0x85000000, 0x00010000, 16},
                                   {0, 0x85100000, 0x00100000, 3},
                                   {0, 0x85400000, 0x00400000, 1},
                                   {1, 0x86000000, 0x00100000, 4}};
constexpr uint32_t kPage = 4096;

uint32_t BlockBase(uint32_t block)
{
    return block == 0 ? kCmemBase : kCmemBlockEnd[block - 1];
}

CmemBuffer *BufferAt(BoardState &state, uint32_t phys)
{
    for (CmemBuffer &buffer : state.cmem)
        if (buffer.size != 0 && buffer.phys == phys)
            return &buffer;
    return nullptr;
}

bool IsFree(const BoardState &state, uint32_t base, uint32_t size)
{
    for (const CmemBuffer &buffer : state.cmem)
        if (buffer.size != 0 && base < buffer.phys + buffer.size && buffer.phys < base + size)
            return false;
    return true;
}

// Programs that ended without closing the device leave their buffers behind.
void DropDeadOwners(BoardState &state)
{
    for (CmemBuffer &buffer : state.cmem)
        if (buffer.size != 0 && !host::IsAlive(buffer.owner))
            buffer.size = 0;
}

bool TakeBuffer(BoardState &state, uint32_t phys, uint32_t size)
{
    for (CmemBuffer &buffer : state.cmem) {
        if (buffer.size == 0) {
            buffer = {phys, size, host::ProcessId(), 1};
            return true;
        }
    }
    return false;
}

// words: pool, block -> physical address, size
void AllocatePool(Event &event, BoardState &state)
{
    uint32_t wantedPool = event.words[0];
    DropDeadOwners(state);
    for (const CmemPool &pool : kCmemPools) {
        if (pool.block != event.words[1] || wantedPool-- != 0)
            continue;
        for (uint32_t i = 0; i < pool.buffers; ++i) {
            const uint32_t phys = pool.base + i * pool.bufferSize;
            if (IsFree(state, phys, pool.bufferSize) && TakeBuffer(state, phys, pool.bufferSize)) {
                event.words[0] = phys;
                event.words[1] = pool.bufferSize;
                return;
            }
        }
        Fail(event, ENOMEM);
        return;
    }
    Fail(event, EINVAL);
}

// words: size, alignment, block -> physical address
void AllocateHeap(Event &event, BoardState &state)
{
    const uint32_t size = (event.words[0] + kPage - 1) / kPage * kPage;
    const uint32_t alignment = event.words[1] > kPage ? event.words[1] : kPage;
    const uint32_t block = event.words[2];
    if (block > 1 || size == 0 || (alignment & (alignment - 1)) != 0) {
        Fail(event, EINVAL);
        return;
    }
    DropDeadOwners(state);
    const uint64_t end = kCmemBlockEnd[block];
    for (uint64_t phys = kCmemHeapBase[block]; phys + size <= end; phys += alignment) {
        const uint64_t aligned = (phys + alignment - 1) / alignment * alignment;
        if (aligned + size <= end && IsFree(state, static_cast<uint32_t>(aligned), size) &&
            TakeBuffer(state, static_cast<uint32_t>(aligned), size)) {
            event.words[0] = static_cast<uint32_t>(aligned);
            return;
        }
    }
    Fail(event, ENOMEM);
}

// The buffer behind a program's address, or null.
CmemBuffer *BufferOfAddress(BoardState &state, uint32_t address)
{
    const Mapping *mapping = MappingAt(address);
    return mapping == nullptr || mapping->kind != NodeKind::Cmem ? nullptr : BufferAt(state, mapping->phys);
}

// words: address -> ..., size
void FreeBuffer(Event &event, CmemBuffer *buffer)
{
    if (buffer == nullptr) {
        Fail(event, EINVAL);
        return;
    }
    event.words[1] = buffer->size;
    if (--buffer->users == 0)
        buffer->size = 0;
}

// words: size, block -> pool. The smallest pool whose buffers fit.
void FindPool(Event &event)
{
    uint32_t number = 0;
    uint32_t bestSize = UINT32_MAX;
    uint32_t best = 0;
    for (const CmemPool &pool : kCmemPools) {
        if (pool.block != event.words[1])
            continue;
        if (pool.bufferSize >= event.words[0] && pool.bufferSize < bestSize) {
            bestSize = pool.bufferSize;
            best = number;
        }
        ++number;
    }
    event.words[0] = best;
    if (bestSize == UINT32_MAX)
        Fail(event, EINVAL);
}

struct CmemRequest {
    uint32_t code;
    uint32_t mask;  ///< bits of the request that make up the code; the others are flags
    uint32_t words; ///< words of the argument, in and out
    Call call;
    const char *text;
};

constexpr uint32_t kAllBits = UINT32_MAX;
constexpr CmemRequest kCmemRequests[] = {
    {1, ~kCmemCached, 2, Call::CmemAlloc, "allocate from pool"},
    {2, ~kCmemCached, 3, Call::CmemAllocHeap, "allocate from heap"},
    {3, ~kCmemHeap, 2, Call::CmemFree, "free"},
    {kCmemByPhys | 3, ~kCmemHeap, 2, Call::CmemFree, "free physical"},
    {4, kAllBits, 1, Call::CmemPhys, "get physical address"},
    {6, kAllBits, 2, Call::CmemPool, "get pool"},
    {0x107, kAllBits, 2, Call::CmemCache, "write cache back"},
    {0x207, kAllBits, 2, Call::CmemCache, "invalidate cache"},
    {0x307, kAllBits, 2, Call::CmemCache, "write back and invalidate cache"},
    {8, kAllBits, 1, Call::CmemVersion, "get version"},
    {9, kAllBits, 2, Call::CmemBlock, "get block"},
    {10, kAllBits, 1, Call::CmemRegister, "register user"},
};

const CmemRequest *FindCmemRequest(unsigned long request)
{
    for (const CmemRequest &row : kCmemRequests)
        if ((request & row.mask) == row.code)
            return &row;
    return nullptr;
}

void ServeCmemVersion(Event &event)
{
    const FaultRule *rule = PickRule(event, Effect::Value);
    event.words[0] = rule != nullptr ? rule->value : kCmemVersion;
}

void AnswerCmem(Event &event, const CmemRequest &row)
{
    const BoardLock lock;
    BoardState &state = *gBoard.state;
    uint32_t *words = event.words;
    CmemBuffer *buffer = nullptr;
    switch (event.call) {
    case Call::CmemAlloc:
        AllocatePool(event, state);
        break;
    case Call::CmemAllocHeap:
        AllocateHeap(event, state);
        break;
    case Call::CmemFree:
        buffer = (row.code & kCmemByPhys) != 0 ? BufferAt(state, words[0]) : BufferOfAddress(state, words[0]);
        FreeBuffer(event, buffer);
        break;
    case Call::CmemPhys: {
        const Mapping *mapping = MappingAt(words[0]);
        words[0] =
            mapping != nullptr ? static_cast<uint32_t>(mapping->phys + (words[0] - mapping->address)) : 0;
        if (mapping == nullptr)
            Fail(event, EINVAL);
        break;
    }
    case Call::CmemPool:
        FindPool(event);
        break;
    case Call::CmemCache:
        if (MappingAt(words[0]) == nullptr)
            Fail(event, EFAULT);
        break;
    case Call::CmemVersion:
        ServeCmemVersion(event);
        break;
    case Call::CmemBlock:
        if (words[0] > 1) {
            Fail(event, EINVAL);
        } else {
            words[1] = kCmemBlockEnd[words[0]];
            words[0] = BlockBase(words[0]);
        }
        break;
    default: // CmemRegister
        buffer = BufferAt(state, words[0]);
        words[0] = buffer != nullptr ? buffer->size : 0;
        if (buffer == nullptr)
            Fail(event, EINVAL);
        else
            ++buffer->users;
    }
}

} // namespace

void ServeCmem(Event &event, unsigned long request, void *argument)
{
    const CmemRequest *row = FindCmemRequest(request);
    if (row == nullptr) {
        InjectFault(event);
        Fail(event, event.error != 0 ? event.error : ENOTTY);
        return;
    }
    event.call = row->call;
    event.request = row->text;
    event.wordCount = row->words;
    if (argument == nullptr) {
        Fail(event, EFAULT);
        return;
    }
    memcpy(event.words, argument, row->words * sizeof(uint32_t));
    if (!InjectFault(event))
        AnswerCmem(event, *row);
    if (event.result == 0)
        memcpy(argument, event.words, row->words * sizeof(uint32_t));
}

bool FindBufferMemory(uint64_t offset, size_t length, uint64_t *fileOffset)
{
    *fileOffset = offset - kCmemBase;
    return offset >= kCmemBase && offset < kCmemEnd && length <= kCmemEnd - offset;
}

void ReleaseBuffers()
{
    const BoardLock lock;
    for (CmemBuffer &buffer : gBoard.state->cmem)
        if (buffer.size != 0 && buffer.owner == host::ProcessId())
            buffer.size = 0;
}

} // namespace sim
