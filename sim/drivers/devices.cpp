// SPDX-License-Identifier: MIT
//
// The board's devices and files by path, and what is common to the requests of all drivers.
#include "sim/drivers/devices.h"

#include "sim/board/board.h"
#include "sim/calls/faults.h"

#include <stdio.h>
#include <string.h>

namespace sim
{

namespace
{

constexpr Device kDevices[] = {
    {"/dev/dev_i2c", &kBusDriver, nullptr},        {"/dev/gio", &kGpioDriver, nullptr},
    {"/dev/cmem", &kMemoryDriver, &kBufferMemory}, {"/dev/csl1", &kCslDriver, &kVpssMemory},
    {"/dev/csl2", &kCslDriver, nullptr},           {"/dev/csl3", &kCslDriver, nullptr},
    {"/dev/csl4", &kCslDriver, nullptr},           {"/dev/csl5", &kCslDriver, nullptr},
    {"/dev/csl6", &kCslDriver, nullptr},           {"/dev/csl7", &kCslDriver, nullptr},
    {"/dev/csl8", &kCslDriver, nullptr},           {"/dev/csl9", &kCslDriver, nullptr},
};

constexpr const char *kFolders[] = {kFlashPath, "/sysconf", "/defconf", "/proc/driver/rtc"};

// Devices that programs expect on any machine; every other one is the board's to have or not to have.
constexpr const char *kPlainDevices[] = {
    "/dev/null", "/dev/zero",  "/dev/full",   "/dev/random", "/dev/urandom", "/dev/tty", "/dev/pts",
    "/dev/ptmx", "/dev/stdin", "/dev/stdout", "/dev/stderr", "/dev/fd",      "/dev/shm", "/dev/log"};

bool IsBelowAny(const char *path, std::span<const char *const> folders)
{
    for (const char *folder : folders)
        if (IsBelow(path, folder))
            return true;
    return false;
}

const Device *DeviceAt(const char *path)
{
    for (const Device &device : kDevices)
        if (strcmp(path, device.path) == 0)
            return &device;
    return nullptr;
}

} // namespace

void FindPlace(const char *path, Place *place)
{
    using Where = Place::Where;
    place->where = Where::Pc;
    place->device = nullptr;
    if (path == nullptr)
        return;
    if (strncmp(path, "/dev/", 5) == 0 && !IsBelowAny(path, kPlainDevices)) {
        place->device = gBoard.state != nullptr ? DeviceAt(path) : nullptr;
        place->where = place->device != nullptr ? Where::Board : Where::Nowhere;
        // A harmless stand-in where a path is all that matters, and a path that nothing has.
        snprintf(place->path, sizeof(place->path), "%s", place->device != nullptr ? "/dev/null" : "");
    } else if (IsBelowAny(path, kFolders)) {
        place->where = BoardPath(path, place->path, sizeof(place->path)) ? Where::Board : Where::Nowhere;
    }
}

std::span<const Device> AllDevices()
{
    return kDevices;
}

void FindRecord(const Device &device, Request &request)
{
    for (const RequestKind &kind : device.driver->requests)
        if ((request.number & kind.mask) == kind.number)
            request.kind = &kind;
    if (request.kind == nullptr || request.kind->recordSize == 0)
        return;
    Part &record = request.record;
    record.address = request.argument;
    record.size = request.kind->pointers == 0 ? request.kind->recordSize
                                              : request.pointerSize * (1U + request.kind->pointers);
    record.isFetched = true;
    record.isStored = request.kind->isAnswered;
}

void FindLists(const Device &device, Request &request)
{
    if (request.kind != nullptr && request.record.address != 0 && device.driver->findLists != nullptr)
        device.driver->findLists(request);
}

void Serve(const Device &device, Request &request, Event &event)
{
    event.request = request.kind != nullptr ? request.kind->text : "unknown request";
    if (request.kind != nullptr) {
        event.call = request.kind->call;
        device.driver->serve(event, request);
    } else if (!InjectFault(event)) {
        Fail(event, ENOTTY);
    }
}

} // namespace sim
