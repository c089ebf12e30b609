// SPDX-License-Identifier: MIT
//
// The board's devices as their drivers present them, by whatever road a request reaches them: bytes in, bytes
// out. A road fetches what a request names in the program's memory, lets the driver serve it, and stores what
// the driver filled:
//   Request request(...);
//   FindRecord(device, request);  fetch request.record
//   FindLists(device, request);   fetch request.lists
//   Serve(device, request, event); where the result is 0: store the parts that are filled
#ifndef SIM_DRIVERS_DEVICES_H
#define SIM_DRIVERS_DEVICES_H

#include "sim/calls/event.h"
#include "sim/calls/nodes.h"

#include <span>
#include <stddef.h>
#include <stdint.h>

namespace sim
{

/// A part of the program's memory that a request names, and the copy that the driver works on.
struct Part {
    uint64_t address = 0; ///< in the program; 0 is its null pointer
    uint32_t size = 0;    ///< 0: nothing to fetch or to store
    bool isFetched = false;
    bool isStored = false;
    uint8_t bytes[512]; ///< nothing in it is meant before the fetch
};

/// A kind of request: what a driver's row says of it.
struct RequestKind {
    uint32_t number;
    uint32_t mask; ///< bits of a request that make up its number; the others are flags
    Call call;
    const char *text;   ///< what it asks for, in words
    uint8_t recordSize; ///< bytes that the argument points to; 0: it is a value, not a pointer
    uint8_t pointers;   ///< that follow in the record, aligned as the program's machine aligns them
    bool isAnswered;    ///< the driver fills the record
    bool namesMemory;   ///< the record begins with an address in a mapping of the program
};

struct Request {
    Request(unsigned long wanted, uint64_t word, uint32_t widthOfPointers, uint32_t ofProcess, Node &ofNode)
        : number(static_cast<uint32_t>(wanted)), argument(word), pointerSize(widthOfPointers),
          process(ofProcess), node(ofNode)
    {
    }

    uint32_t number;
    uint64_t argument;    ///< as the program gave it: a value, or the address of the record
    uint32_t pointerSize; ///< of the program: 4 or 8 bytes
    uint32_t process;
    Node &node;                        ///< what the descriptor remembers
    const RequestKind *kind = nullptr; ///< null: the driver does not know the request
    Part record;
    Part lists[2];
    const Mapping *memory = nullptr; ///< the program's mapping that the record names, if there is one
};

/// Memory that a device lets programs map: a file of the board, at these physical addresses.
struct DeviceMemory {
    const char *file;
    uint32_t base;
    uint32_t length;
    bool isAddressed; ///< requests carry the addresses of mappings, in 32 bits
};

struct Driver {
    std::span<const RequestKind> requests;
    void (*serve)(Event &event, Request &request);
    void (*findLists)(
        Request &request);           ///< the parts that the fetched record points to; null: there are none
    void (*close)(uint32_t process); ///< null: closing changes nothing
};

struct Device {
    const char *path;
    const Driver *driver;
    const DeviceMemory *memory; ///< null: it cannot be mapped
};

extern const Driver kBusDriver, kGpioDriver, kMemoryDriver, kCslDriver;
extern const DeviceMemory kBufferMemory, kVpssMemory;

/// Where a path of the program leads on this PC.
struct Place {
    enum class Where : uint8_t { Pc, Board, Nowhere } where = Where::Pc;
    const Device *device = nullptr; ///< null: a file
    char path[4200];                ///< on the PC; not for Where::Pc, which is the path unchanged
};

void FindPlace(const char *path, Place *place);

std::span<const Device> AllDevices();

/// Finds the request's kind, and the record to fetch.
void FindRecord(const Device &device, Request &request);
/// Finds the lists to fetch, once the record is there.
void FindLists(const Device &device, Request &request);
/// Serves a request: fills the event's result, error and story, which refers to the request from then on.
void Serve(const Device &device, Request &request, Event &event);

} // namespace sim

#endif
