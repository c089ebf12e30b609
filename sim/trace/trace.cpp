// SPDX-License-Identifier: MIT
//
// Where the trace goes, and its sums; what a line says is in tracePerson.cpp and traceJson.cpp.
#include "sim/trace/trace.h"

#include "sim/board/board.h"
#include "sim/board/host.h"
#include "sim/trace/traceLine.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace sim
{

namespace
{

bool gIsJson = false;
int gFd = -1;
bool gColour = false;
TraceTotals gTotals;
uint32_t gLock = 0;

void CountEvent(const Event &event, uint64_t endNs)
{
    ++gTotals.calls;
    gTotals.transfers += event.call == Call::I2cRead || event.call == Call::I2cWrite ? 1U : 0U;
    gTotals.faults += event.fault != 0 ? 1U : 0U;
    gTotals.pausedNs += event.call == Call::Sleep ? endNs - event.startNs : 0U;
}

void TraceEvent(const Event &event, uint64_t endNs)
{
    const WordLock lock(&gLock);
    CountEvent(event, endNs);
    if (gIsJson)
        WriteJsonLine(event, endNs, gFd);
    else
        WritePersonLine(event, endNs, gFd, gColour);
}

} // namespace

void StartTrace()
{
    const char *mode = getenv(kTraceVariable);
    const char *file = getenv(kTraceFileVariable);
    if (mode == nullptr)
        return;
    const int fd = file != nullptr ? host::Open(file, O_WRONLY | O_CREAT | O_APPEND, 0644) : STDERR_FILENO;
    // Out of the program's way: it gets the descriptors that it would get on the board.
    gFd = fd < 0 ? -1 : host::MoveToHighNumber(fd);
    if (file != nullptr && fd >= 0)
        host::Close(fd);
    if (gFd < 0)
        return;
    gColour = strcmp(mode, "colour") == 0;
    gIsJson = strcmp(mode, "json") == 0;
    gObserver = TraceEvent;
}

void EndTrace()
{
    if (gObserver == nullptr)
        return;
    const WordLock lock(&gLock);
    if (gIsJson)
        WriteJsonSummary(gTotals, BoardNs(), gFd);
    else
        WritePersonSummary(gTotals, BoardNs(), gFd);
}

} // namespace sim
