// SPDX-License-Identifier: MIT
//
// The drivers behind the nodes. Requests that a driver does not know fail with ENOTTY.
#include "sim/devices.h"

#include "sim/board.h"
#include "sim/camera.h"
#include "sim/faults.h"
#include "sim/host.h"

#include <stdio.h>
#include <string.h>

namespace sim
{

namespace
{

// ---------------------------------------------------------------------------------------------- camera bus

// The transfer record of the bus driver, with the pointers of the program.
struct Transfer {
    uint8_t dataSize; ///< bytes per value
    uint8_t count;
    const uint8_t *regAddr;
    void *regValue;
};

enum I2cRequest : unsigned long {
    kI2cSelect = 0x2C01,
    kI2cRead = 0x2C02,
    kI2cWrite = 0x2C03,
    kI2cReadBlock = 0x2C04
};

void LogTransferError(const Event &event, const char *reason)
{
    char line[128];
    snprintf(line, sizeof(line), "i2c_davinci i2c_davinci.1: %s of slave 0x%02x register 0x%02x: %s",
             event.isWrite ? "write" : "read", event.slave, event.targetCount > 0 ? event.targets[0] : 0,
             reason);
    LogToKernel(line);
}

// Remembers the registers of a transfer for the trace.
void TellRegister(Event &event, uint8_t reg, uint8_t before, uint8_t after)
{
    if (event.count < kTracedRegisters) {
        event.reg[event.count] = reg;
        event.before[event.count] = before;
        event.after[event.count] = after;
        ++event.count;
    }
}

// The reflect registers as the fault rules want them, before the camera's state is shown.
void ApplyReflectFaults(Event &event, BoardState &state)
{
    const Call call = event.call;
    event.call = Call::Reflect;
    if (PickRule(event, Effect::Stuck) != nullptr) {
        state.registers[kReflectLast] |= 0x01;
    }
    event.call = call;
}

uint32_t BusyUs(Event &event, const BoardState &state)
{
    const Call call = event.call;
    event.call = Call::Reflect;
    const FaultRule *rule = PickRule(event, Effect::Busy);
    event.call = call;
    return rule != nullptr ? rule->value : state.scene.reflectBusyUs;
}

bool TouchesReflect(const Event &event)
{
    for (uint32_t i = 0; i < event.targetCount; ++i) {
        if (event.targets[i] >= kReflectFirst && event.targets[i] <= kReflectLast) {
            return true;
        }
    }
    return false;
}

// Register `index` of a transfer. A block read takes only the first address from the list; a value of 16 bits
// is the register's own byte and, above it, that of the next register.
uint8_t AddressOf(const Transfer &transfer, bool isBlock, unsigned index)
{
    return static_cast<uint8_t>(isBlock ? transfer.regAddr[0] + index : transfer.regAddr[index]);
}

void ReadRegisters(Event &event, const BoardState &state, const Transfer &transfer, bool isBlock)
{
    auto *values = static_cast<uint8_t *>(transfer.regValue);
    for (unsigned i = 0; i < transfer.count; ++i) {
        for (unsigned byte = 0; byte < transfer.dataSize; ++byte) {
            const auto reg = static_cast<uint8_t>(AddressOf(transfer, isBlock, i) + byte);
            const uint8_t value = ReadRegister(state, reg);
            values[i * transfer.dataSize + byte] = value;
            TellRegister(event, reg, value, value);
        }
    }
}

void WriteRegisters(Event &event, BoardState &state, const Transfer &transfer)
{
    const auto *values = static_cast<const uint8_t *>(transfer.regValue);
    const uint32_t busyUs = BusyUs(event, state);
    for (unsigned i = 0; i < transfer.count; ++i) {
        for (unsigned byte = 0; byte < transfer.dataSize; ++byte) {
            const auto reg = static_cast<uint8_t>(transfer.regAddr[i] + byte);
            const uint8_t before = state.registers[reg];
            WriteRegister(state, reg, values[i * transfer.dataSize + byte], busyUs, gBoard.speed);
            TellRegister(event, reg, before, state.registers[reg]);
        }
    }
}

void Move(Event &event, const Node &node, const Transfer &transfer, bool isBlock)
{
    const BoardLock lock;
    BoardState &state = *gBoard.state;
    if (node.slave != kCameraSlave || IsHeldInReset(state)) {
        LogTransferError(event,
                         node.slave != kCameraSlave ? "no acknowledge" : "no acknowledge, camera in reset");
        Fail(event, EREMOTEIO);
        return;
    }
    UpdateCamera(state, host::MonotonicNs(), gBoard.speed);
    if (event.isWrite) {
        WriteRegisters(event, state, transfer);
        return;
    }
    if (TouchesReflect(event)) {
        ApplyReflectFaults(event, state);
    }
    ReadRegisters(event, state, transfer, isBlock);
}

void ServeTransfer(Event &event, Node &node, unsigned long request, void *argument)
{
    Transfer transfer = {};
    const bool isBlock = request == kI2cReadBlock;
    if (argument != nullptr) {
        memcpy(&transfer, argument, sizeof(transfer));
    }
    const bool isComplete =
        transfer.count == 0 || (transfer.regAddr != nullptr && transfer.regValue != nullptr);
    event.call = request == kI2cWrite ? Call::I2cWrite : Call::I2cRead;
    event.request = isBlock ? "read block" : request == kI2cRead ? "read" : "write";
    event.isWrite = request == kI2cWrite;
    event.slave = node.slave;
    event.dataSize = transfer.dataSize;
    event.targets = transfer.regAddr;
    event.targetCount = transfer.regAddr != nullptr ? transfer.count : 0;
    event.reg[0] = event.targetCount > 0 ? transfer.regAddr[0] : uint8_t{0};
    if (InjectFault(event)) {
        const BoardLock lock;
        LogTransferError(event, "transfer error");
    } else if (argument == nullptr || !isComplete) {
        Fail(event, EFAULT);
    } else if (transfer.dataSize != 1 && (transfer.dataSize != 2 || isBlock)) {
        Fail(event, EINVAL);
    } else {
        Move(event, node, transfer, isBlock);
    }
    event.targets = nullptr;
}

void ServeI2c(Event &event, Node &node, unsigned long request, void *argument)
{
    switch (request) {
    case kI2cSelect:
        event.call = Call::I2cSelect;
        event.request = "select";
        event.slave = static_cast<uint8_t>(reinterpret_cast<uintptr_t>(argument));
        if (!InjectFault(event)) {
            node.slave = event.slave;
        }
        break;
    case kI2cRead:
    case kI2cWrite:
    case kI2cReadBlock:
        ServeTransfer(event, node, request, argument);
        break;
    default:
        InjectFault(event);
        Fail(event, event.error != 0 ? event.error : ENOTTY);
    }
}

// ---------------------------------------------------------------------------------------------------- GPIO

struct PinLevel {
    uint32_t pin;
    uint32_t level;
};

enum GioRequest : uint32_t {
    kGioSet = 0xC0086708,
    kGioAlarm = 0xC0086709,
    kGioControl = 0xC008670A,
    kGioConfig = 0xC008670B
};

void ServePin(Event &event, PinLevel pinLevel)
{
    const BoardLock lock;
    BoardState &state = *gBoard.state;
    const bool drives = event.call == Call::GioSet || event.call == Call::GioConfig;
    if (pinLevel.pin >= kPins || (drives && pinLevel.level > 1)) {
        Fail(event, EINVAL);
    } else if (drives) {
        event.words[2] = state.pins[pinLevel.pin];
        DrivePin(state, pinLevel.pin, static_cast<uint8_t>(pinLevel.level));
    } else if (event.call == Call::GioAlarm && state.pins[pinLevel.pin] == 0) {
        Fail(event, EAGAIN); // nothing to report yet
    }
}

void ServeGio(Event &event, unsigned long request, void *argument)
{
    switch (static_cast<uint32_t>(request)) {
    case kGioSet:
        event.call = Call::GioSet;
        event.request = "set level";
        break;
    case kGioAlarm:
        event.call = Call::GioAlarm;
        event.request = "wait for alarm";
        break;
    case kGioControl:
        event.call = Call::GioControl;
        event.request = "alarm control";
        break;
    case kGioConfig:
        event.call = Call::GioConfig;
        event.request = "configure level";
        break;
    default:
        InjectFault(event);
        Fail(event, event.error != 0 ? event.error : ENOTTY);
        return;
    }
    if (argument == nullptr) {
        Fail(event, EFAULT);
        return;
    }
    PinLevel pinLevel = {};
    memcpy(&pinLevel, argument, sizeof(pinLevel));
    const auto pin = static_cast<uint8_t>(pinLevel.pin);
    event.targets = &pin;
    event.targetCount = 1;
    event.words[0] = pinLevel.pin;
    event.words[1] = pinLevel.level;
    event.wordCount = 2;
    if (!InjectFault(event)) {
        ServePin(event, pinLevel);
    }
    event.targets = nullptr;
    event.targetCount = 0;
}

// --------------------------------------------------------------------------------------- contiguous memory

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

constexpr uint32_t kCmemBase = 0x85000000;
constexpr uint32_t kCmemEnd = 0x86800000;
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
    for (CmemBuffer &buffer : state.cmem) {
        if (buffer.size != 0 && buffer.phys == phys) {
            return &buffer;
        }
    }
    return nullptr;
}

bool IsFree(const BoardState &state, uint32_t base, uint32_t size)
{
    for (const CmemBuffer &buffer : state.cmem) {
        if (buffer.size != 0 && base < buffer.phys + buffer.size && buffer.phys < base + size) {
            return false;
        }
    }
    return true;
}

// Programs that ended without closing the device leave their buffers behind.
void DropDeadOwners(BoardState &state)
{
    for (CmemBuffer &buffer : state.cmem) {
        if (buffer.size != 0 && !host::IsAlive(buffer.owner)) {
            buffer.size = 0;
        }
    }
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
        if (pool.block != event.words[1] || wantedPool-- != 0) {
            continue;
        }
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
void FreeBuffer(Event &event, BoardState &state, CmemBuffer *buffer)
{
    (void)state;
    if (buffer == nullptr) {
        Fail(event, EINVAL);
        return;
    }
    event.words[1] = buffer->size;
    if (--buffer->users == 0) {
        buffer->size = 0;
    }
}

// words: size, block -> pool. The smallest pool whose buffers fit.
void FindPool(Event &event)
{
    uint32_t number = 0;
    uint32_t bestSize = UINT32_MAX;
    uint32_t best = 0;
    for (const CmemPool &pool : kCmemPools) {
        if (pool.block != event.words[1]) {
            continue;
        }
        if (pool.bufferSize >= event.words[0] && pool.bufferSize < bestSize) {
            bestSize = pool.bufferSize;
            best = number;
        }
        ++number;
    }
    event.words[0] = best;
    if (bestSize == UINT32_MAX) {
        Fail(event, EINVAL);
    }
}

struct CmemRequest {
    uint32_t code;
    uint32_t mask; ///< bits of the request that make up the code; the others are flags
    Call call;
    const char *text;
    uint32_t words; ///< words of the argument, in and out
};

constexpr uint32_t kAllBits = UINT32_MAX;
constexpr CmemRequest kCmemRequests[] = {
    {1, ~kCmemCached, Call::CmemAlloc, "allocate from pool", 2},
    {2, ~kCmemCached, Call::CmemAllocHeap, "allocate from heap", 3},
    {3, ~kCmemHeap, Call::CmemFree, "free", 2},
    {kCmemByPhys | 3, ~kCmemHeap, Call::CmemFree, "free physical", 2},
    {4, kAllBits, Call::CmemPhys, "get physical address", 1},
    {6, kAllBits, Call::CmemPool, "get pool", 2},
    {0x107, kAllBits, Call::CmemCache, "write cache back", 2},
    {0x207, kAllBits, Call::CmemCache, "invalidate cache", 2},
    {0x307, kAllBits, Call::CmemCache, "write back and invalidate cache", 2},
    {8, kAllBits, Call::CmemVersion, "get version", 1},
    {9, kAllBits, Call::CmemBlock, "get block", 2},
    {10, kAllBits, Call::CmemRegister, "register user", 1},
};

const CmemRequest *FindCmemRequest(unsigned long request)
{
    for (const CmemRequest &row : kCmemRequests) {
        if ((request & row.mask) == row.code) {
            return &row;
        }
    }
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
        FreeBuffer(event, state, buffer);
        break;
    case Call::CmemPhys: {
        const Mapping *mapping = MappingAt(words[0]);
        words[0] =
            mapping != nullptr ? static_cast<uint32_t>(mapping->phys + (words[0] - mapping->address)) : 0;
        if (mapping == nullptr) {
            Fail(event, EINVAL);
        }
        break;
    }
    case Call::CmemPool:
        FindPool(event);
        break;
    case Call::CmemCache:
        if (MappingAt(words[0]) == nullptr) {
            Fail(event, EFAULT);
        }
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
        if (buffer == nullptr) {
            Fail(event, EINVAL);
        } else {
            ++buffer->users;
        }
    }
}

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
    if (!InjectFault(event)) {
        AnswerCmem(event, *row);
    }
    if (event.result == 0) {
        memcpy(argument, event.words, row->words * sizeof(uint32_t));
    }
}

// -------------------------------------------------------------------------------------------- chip support

constexpr uint32_t kVpssBase = 0x01C70000;
constexpr uint32_t kVpssLength = 0x10000;

// The layer's own request functions exist, but what their records mean is the driver's secret: it takes any.
void ServeCsl(Event &event, unsigned long request)
{
    const bool isKnown = request == 0xCC14 || request == 0xCC11;
    event.request = request == 0xCC14 ? "request 20" : request == 0xCC11 ? "request 17" : "unknown request";
    if (!InjectFault(event) && !isKnown) {
        Fail(event, ENOTTY);
    }
}

} // namespace

void ServeRequest(Event &event, Node &node, unsigned long request, void *argument)
{
    switch (node.kind) {
    case NodeKind::I2c:
        ServeI2c(event, node, request, argument);
        break;
    case NodeKind::Gio:
        ServeGio(event, request, argument);
        break;
    case NodeKind::Cmem:
        ServeCmem(event, request, argument);
        break;
    case NodeKind::Csl:
        ServeCsl(event, request);
        break;
    default:
        Fail(event, ENOTTY);
    }
}

bool FindMemory(NodeKind kind, uint64_t offset, size_t length, const char **file, uint64_t *fileOffset)
{
    const bool isCmem = kind == NodeKind::Cmem;
    const uint64_t base = isCmem ? kCmemBase : kVpssBase;
    const uint64_t end = isCmem ? uint64_t{kCmemEnd} : uint64_t{kVpssBase} + kVpssLength;
    *file = isCmem ? kCmemFile : kVpssFile;
    *fileOffset = offset - base;
    return (isCmem || kind == NodeKind::Csl) && offset >= base && offset < end && length <= end - offset;
}

void ReleaseBuffers()
{
    const BoardLock lock;
    for (CmemBuffer &buffer : gBoard.state->cmem) {
        if (buffer.size != 0 && buffer.owner == host::ProcessId()) {
            buffer.size = 0;
        }
    }
}

} // namespace sim
