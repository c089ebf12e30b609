// SPDX-License-Identifier: MIT
//
// One device call of the program under test, from its beginning to its result: what the faults look at, what
// the devices fill in, and what the trace tells.
#ifndef SIM_CALLS_EVENT_H
#define SIM_CALLS_EVENT_H

#include "sim/calls/calls.h"

#include <stdint.h>

namespace sim
{

/// Registers of a transfer that the trace keeps; longer lists are cut there.
inline constexpr int kTracedRegisters = 64;

struct Event {
    explicit Event(Call which, const char *onPath = "", int descriptor = -1);

    int callersErrno; ///< kept when the call succeeds
    Call call;
    int fd;
    uint32_t process = 0;     ///< that makes the call; 0 for this one
    const char *path;         ///< node or file on the board, as the program names it
    const char *request = ""; ///< what a request asks for, in words
    const char *text = "";    ///< fopen mode, second path, command
    long result = 0;
    int error = 0;        ///< errno when the call fails
    uint32_t fault = 0;   ///< number of the rule that changed the call, from 1
    uint64_t startNs = 0; ///< board's time; kept for an observer
    double sleepUs = 0.0;

    uint8_t slave = 0; ///< bus transfers
    uint8_t dataSize = 0;
    bool isWrite = false;
    uint32_t count = 0;               ///< registers in the lists below
    const uint8_t *targets = nullptr; ///< what a rule may ask for: registers, or the one pin
    uint32_t targetCount = 0;
    uint8_t reg[kTracedRegisters];
    uint8_t before[kTracedRegisters];
    uint8_t after[kTracedRegisters];

    uint32_t words[4] = {}; ///< pin and level, or the words of a memory request
    uint32_t wordCount = 0;
};

/// Failure of the call; returns -1.
long Fail(Event &event, int error);

/// Hears of every call at its end, in the board's time; null while nobody listens.
using Observer = void (*)(const Event &event, uint64_t endNs);
extern Observer gObserver;

/// Ends the call: tells the observer, and sets errno when the call failed. Returns the result.
long Finish(Event &event);

} // namespace sim

#endif
