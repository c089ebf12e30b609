// SPDX-License-Identifier: MIT
//
// The driver of the camera bus: slave selection and register transfers. Only the camera processor answers,
// and not while it is held in reset; a failed transfer leaves a line in the kernel log.
#include "sim/drivers/devices.h"

#include "sim/board/board.h"
#include "sim/board/camera.h"
#include "sim/board/host.h"
#include "sim/calls/faults.h"

#include <stdio.h>
#include <string.h>

namespace sim
{

namespace
{

// The record of a transfer: two bytes, and the addresses of the program's two lists (Request::lists).
constexpr RequestKind BusRow(uint32_t number, Call call, const char *text)
{
    return {number, UINT32_MAX, call, text, 2, 2, false, false};
}
constexpr uint32_t kReadBlock = 0x2C04;
constexpr RequestKind kBusRequests[] = {{0x2C01, UINT32_MAX, Call::I2cSelect, "select", 0, 0, false, false},
                                        BusRow(0x2C02, Call::I2cRead, "read"),
                                        BusRow(0x2C03, Call::I2cWrite, "write"),
                                        BusRow(kReadBlock, Call::I2cRead, "read block")};

struct Transfer {
    uint32_t dataSize; ///< bytes per value
    uint32_t count;
    const uint8_t *regs;
    uint8_t *values;
    bool isBlock;
};

bool IsValid(const Transfer &transfer)
{
    return transfer.dataSize == 1 || (transfer.dataSize == 2 && !transfer.isBlock);
}

Transfer TransferOf(Request &request)
{
    return {request.record.bytes[0], request.record.bytes[1], request.lists[0].bytes, request.lists[1].bytes,
            request.kind->number == kReadBlock};
}

void FindTransferLists(Request &request)
{
    const Transfer transfer = TransferOf(request);
    const bool isWrite = request.kind->call == Call::I2cWrite;
    Part &regs = request.lists[0];
    Part &values = request.lists[1];
    memcpy(&regs.address, request.record.bytes + request.pointerSize, request.pointerSize);
    memcpy(&values.address, request.record.bytes + size_t{2} * request.pointerSize, request.pointerSize);
    regs.size = regs.address != 0 ? transfer.count : 0;
    regs.isFetched = true;
    values.size = values.address != 0 && IsValid(transfer) ? transfer.count * transfer.dataSize : 0;
    values.isFetched = isWrite;
    values.isStored = !isWrite;
}

void LogTransferError(const Event &event, const char *reason)
{
    char line[128];
    snprintf(line, sizeof(line), "i2c_davinci i2c_davinci.1: %s of slave 0x%02x register 0x%02x: %s",
             event.isWrite ? "write" : "read", event.slave, event.targetCount > 0 ? event.targets[0] : 0,
             reason);
    LogToKernel(line);
}

// Keeps a register of a transfer for the trace.
void RecordRegister(Event &event, uint8_t reg, uint8_t before, uint8_t after)
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
    if (PickRule(event, Effect::Stuck) != nullptr)
        state.registers[kReflectLast] |= 0x01;
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
    for (uint32_t i = 0; i < event.targetCount; ++i)
        if (event.targets[i] >= kReflectFirst && event.targets[i] <= kReflectLast)
            return true;
    return false;
}

// Register `byte` of value `index`: a block read takes only the first address from the list; a value of 16
// bits is the register's own byte and, above it, that of the next register.
uint8_t AddressOf(const Transfer &transfer, uint32_t index, uint32_t byte)
{
    return static_cast<uint8_t>((transfer.isBlock ? transfer.regs[0] + index : transfer.regs[index]) + byte);
}

void TransferRegisters(Event &event, BoardState &state, const Transfer &transfer)
{
    const uint32_t busyUs = event.isWrite ? BusyUs(event, state) : 0;
    for (uint32_t i = 0; i < transfer.count * transfer.dataSize; ++i) {
        const uint8_t reg = AddressOf(transfer, i / transfer.dataSize, i % transfer.dataSize);
        const uint8_t before = state.registers[reg];
        if (event.isWrite) {
            WriteRegister(state, reg, transfer.values[i], busyUs, gBoard.speed);
            RecordRegister(event, reg, before, state.registers[reg]);
        } else {
            transfer.values[i] = ReadRegister(state, reg);
            RecordRegister(event, reg, transfer.values[i], transfer.values[i]);
        }
    }
}

void AskCamera(Event &event, const Transfer &transfer)
{
    const BoardLock lock;
    BoardState &state = *gBoard.state;
    if (event.slave != kCameraSlave || IsHeldInReset(state)) {
        LogTransferError(event,
                         event.slave != kCameraSlave ? "no acknowledge" : "no acknowledge, camera in reset");
        Fail(event, EREMOTEIO);
        return;
    }
    UpdateCamera(state, host::MonotonicNs(), gBoard.speed);
    if (!event.isWrite && TouchesReflect(event))
        ApplyReflectFaults(event, state);
    TransferRegisters(event, state, transfer);
}

void ServeTransfer(Event &event, Request &request)
{
    const bool hasRecord = request.record.address != 0;
    const Transfer transfer = hasRecord ? TransferOf(request) : Transfer{};
    const bool hasLists = request.lists[0].address != 0 && request.lists[1].address != 0;
    event.isWrite = event.call == Call::I2cWrite;
    event.slave = request.node.slave;
    event.dataSize = static_cast<uint8_t>(transfer.dataSize);
    event.targets = transfer.regs;
    event.targetCount = request.lists[0].size;
    event.reg[0] = hasRecord && event.targetCount > 0 ? transfer.regs[0] : uint8_t{0};
    if (InjectFault(event)) {
        const BoardLock lock;
        LogTransferError(event, "transfer error");
    } else if (!hasRecord || (transfer.count > 0 && !hasLists)) {
        Fail(event, EFAULT);
    } else if (!IsValid(transfer)) {
        Fail(event, EINVAL);
    } else {
        AskCamera(event, transfer);
    }
}

void ServeBus(Event &event, Request &request)
{
    if (event.call != Call::I2cSelect) {
        ServeTransfer(event, request);
        return;
    }
    event.slave = static_cast<uint8_t>(request.argument);
    if (!InjectFault(event))
        request.node.slave = event.slave;
}

} // namespace

constinit const Driver kBusDriver = {kBusRequests, ServeBus, FindTransferLists, nullptr};

} // namespace sim
