// SPDX-License-Identifier: MIT
//
// Begin and end of a device call.
#include "sim/calls/event.h"

#include "sim/board/board.h"
#include "sim/trace/trace.h"

namespace sim
{

Event::Event(Call which, const char *onPath, int descriptor)
    : callersErrno(errno), call(which), fd(descriptor), path(onPath), startNs(IsTracing() ? BoardNs() : 0)
{
}

long Fail(Event &event, int error)
{
    event.error = error;
    event.result = -1;
    return -1;
}

long Finish(Event &event)
{
    if (IsTracing())
        TraceEvent(event, BoardNs());
    errno = event.result < 0 ? event.error : event.callersErrno;
    return event.result;
}

} // namespace sim
