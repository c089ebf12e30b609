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
    if (TouchesReflect(event))
        ApplyReflectFaults(event, state);
    ReadRegisters(event, state, transfer, isBlock);
}

void ServeTransfer(Event &event, Node &node, unsigned long request, void *argument)
{
    Transfer transfer = {};
    const bool isBlock = request == kI2cReadBlock;
    if (argument != nullptr)
        memcpy(&transfer, argument, sizeof(transfer));
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

} // namespace

void ServeI2c(Event &event, Node &node, unsigned long request, void *argument)
{
    switch (request) {
    case kI2cSelect:
        event.call = Call::I2cSelect;
        event.request = "select";
        event.slave = static_cast<uint8_t>(reinterpret_cast<uintptr_t>(argument));
        if (!InjectFault(event))
            node.slave = event.slave;
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

} // namespace sim
