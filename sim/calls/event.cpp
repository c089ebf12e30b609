// SPDX-License-Identifier: MIT
//
// Begin and end of a device call.
#include "sim/calls/event.h"

#include "sim/board/board.h"

namespace sim
{

Observer gObserver = nullptr;

Event::Event(Call which, const char *onPath, int descriptor)
    : callersErrno(errno), call(which), fd(descriptor), path(onPath),
      startNs(gObserver != nullptr ? BoardNs() : 0)
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
    if (gObserver != nullptr)
        gObserver(event, BoardNs());
    errno = event.result < 0 ? event.error : event.callersErrno;
    return event.result;
}

} // namespace sim
