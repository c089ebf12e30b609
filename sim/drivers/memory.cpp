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

bool TakeBuffer(BoardState &state, uint32_t owner, uint32_t phys, uint32_t size)
{
    for (CmemBuffer &buffer : state.cmem) {
        if (buffer.size == 0) {
            buffer = {phys, size, owner, 1};
            return true;
        }
    }
    return false;
}

// words: pool, block -> physical address, size
void AllocatePool(Event &event, BoardState &state, uint32_t owner)
{
    uint32_t wantedPool = event.words[0];
    DropDeadOwners(state);
    for (const CmemPool &pool : kCmemPools) {
        if (pool.block != event.words[1] || wantedPool-- != 0)
            continue;
        for (uint32_t i = 0; i < pool.buffers; ++i) {
            const uint32_t phys = pool.base + i * pool.bufferSize;
            if (IsFree(state, phys, pool.bufferSize) && TakeBuffer(state, owner, phys, pool.bufferSize)) {
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
void AllocateHeap(Event &event, BoardState &state, uint32_t owner)
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
            TakeBuffer(state, owner, static_cast<uint32_t>(aligned), size)) {
            event.words[0] = static_cast<uint32_t>(aligned);
            return;
        }
    }
    Fail(event, ENOMEM);
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

constexpr RequestKind MemoryRow(uint32_t number, uint32_t flags, uint8_t words, Call call, const char *text,
                                bool namesMemory = false)
{
    return {number, ~flags, call, text, static_cast<uint8_t>(words * sizeof(uint32_t)), 0, true, namesMemory};
}

constexpr RequestKind kMemoryRequests[] = {
    MemoryRow(1, kCmemCached, 2, Call::CmemAlloc, "allocate from pool"),
    MemoryRow(2, kCmemCached, 3, Call::CmemAllocHeap, "allocate from heap"),
    MemoryRow(3, kCmemHeap, 2, Call::CmemFree, "free", true),
    MemoryRow(kCmemByPhys | 3, kCmemHeap, 2, Call::CmemFree, "free physical"),
    MemoryRow(4, 0, 1, Call::CmemPhys, "get physical address", true),
    MemoryRow(6, 0, 2, Call::CmemPool, "get pool"),
    MemoryRow(0x107, 0, 2, Call::CmemCache, "write cache back", true),
    MemoryRow(0x207, 0, 2, Call::CmemCache, "invalidate cache", true),
    MemoryRow(0x307, 0, 2, Call::CmemCache, "write back and invalidate cache", true),
    MemoryRow(8, 0, 1, Call::CmemVersion, "get version"),
    MemoryRow(9, 0, 2, Call::CmemBlock, "get block"),
    MemoryRow(10, 0, 1, Call::CmemRegister, "register user"),
};

void AnswerVersion(Event &event)
{
    const FaultRule *rule = PickRule(event, Effect::Value);
    event.words[0] = rule != nullptr ? rule->value : kCmemVersion;
}

void Answer(Event &event, const Request &request)
{
    const BoardLock lock;
    BoardState &state = *gBoard.state;
    uint32_t *words = event.words;
    const Mapping *mapping = request.memory;
    CmemBuffer *buffer = nullptr;
    switch (event.call) {
    case Call::CmemAlloc:
        AllocatePool(event, state, request.process);
        break;
    case Call::CmemAllocHeap:
        AllocateHeap(event, state, request.process);
        break;
    case Call::CmemFree:
        if (!request.kind->namesMemory)
            buffer = BufferAt(state, words[0]);
        else if (mapping != nullptr)
            buffer = BufferAt(state, mapping->phys);
        FreeBuffer(event, buffer);
        break;
    case Call::CmemPhys:
        words[0] =
            mapping != nullptr ? static_cast<uint32_t>(mapping->phys + (words[0] - mapping->address)) : 0;
        if (mapping == nullptr)
            Fail(event, EINVAL);
        break;
    case Call::CmemPool:
        FindPool(event);
        break;
    case Call::CmemCache:
        if (mapping == nullptr)
            Fail(event, EFAULT);
        break;
    case Call::CmemVersion:
        AnswerVersion(event);
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

void ServeMemory(Event &event, Request &request)
{
    event.wordCount = static_cast<uint32_t>(request.record.size / sizeof(uint32_t));
    if (request.record.address == 0) {
        Fail(event, EFAULT);
        return;
    }
    memcpy(event.words, request.record.bytes, request.record.size);
    if (!InjectFault(event))
        Answer(event, request);
    memcpy(request.record.bytes, event.words, request.record.size);
}

// The buffers of a process go back when it closes the device.
void ReleaseBuffers(uint32_t process)
{
    const BoardLock lock;
    for (CmemBuffer &buffer : gBoard.state->cmem)
        if (buffer.size != 0 && buffer.owner == process)
            buffer.size = 0;
}

} // namespace

constinit const Driver kMemoryDriver = {kMemoryRequests, ServeMemory, nullptr, ReleaseBuffers};
constinit const DeviceMemory kBufferMemory = {kCmemFile, kCmemBase, kCmemEnd - kCmemBase, true};

} // namespace sim
