// SPDX-License-Identifier: MIT
//
// How the preloaded library stands in for a function of the C library: SIM_WRAP begins
// the stand-in, SIM_NEXT is the function that it stands in for. The stand-ins carry C++
// names of their own, so that neither the C library's declarations and inline variants
// nor its 64-bit redirections get in the way; only the symbol is the original's.
//
// Stand-ins answer for what is the board's, and hand everything else on unchanged. They never print and never
// end the program. Inside, the simulator uses host.h, not the functions that are wrapped here.
#ifndef SIM_PRELOAD_PRELOAD_H
#define SIM_PRELOAD_PRELOAD_H

#include "sim/board/board.h"
#include "sim/board/host.h"
#include "sim/calls/event.h"
#include "sim/calls/faults.h"
#include "sim/calls/nodes.h"
#include "sim/drivers/devices.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>

#define SIM_WRAP(result, symbol, parameters)                                                                 \
    extern "C" [[gnu::visibility("default")]] result wrap_##symbol parameters __asm__(#symbol);              \
    result wrap_##symbol parameters

/// The wrapped function behind wrapper `symbol`, found once.
/// Threads that look it up at the same time find the same.
#define SIM_NEXT(symbol)                                                                                     \
    ([]() -> decltype(&wrap_##symbol) {                                                                      \
        static decltype(&wrap_##symbol) next;                                                                \
        if (next == nullptr) {                                                                               \
            next = reinterpret_cast<decltype(&wrap_##symbol)>(dlsym(RTLD_NEXT, #symbol));                    \
        }                                                                                                    \
        return next;                                                                                         \
    }())

namespace sim
{

/// Notes the new descriptor of an open call; false, with the event's failure, when its number is too high. On a
/// full flash a file that is opened for writing takes no byte: it stays a file, which /dev/full is not.
inline bool KeepOpened(Event &event, int fd, const Place &place, bool writes)
{
    Node node = {place.device, 0, false, ""};
    snprintf(node.path, sizeof(node.path), "%s", event.path);
    node.full =
        writes && place.device == nullptr && IsFlashFull(event) && host::Reopen(fd, place.path, O_RDONLY);
    const bool isKept = KeepNode(fd, node);
    if (!isKept)
        Fail(event, EMFILE);
    return isKept;
}

/// A fault stands in the way of a call on a path of the board, or nothing is there; the event says how it fails.
inline bool IsBarred(Event &event, const Place &place, bool changes)
{
    if (InjectFault(event) || (place.device == nullptr && InjectFlashFault(event, changes)))
        return true;
    if (place.where == Place::Where::Nowhere)
        Fail(event, ENOENT);
    return event.result < 0;
}

/// Makes a call that may write to a file on a full flash: the failure is one for want of room.
template <class Real>
auto CallOnFull(const Node &node, Real real)
{
    const int before = errno;
    errno = 0;
    const auto result = real();
    errno = errno == 0 ? before : node.full && errno == EBADF ? ENOSPC : errno;
    return result;
}

/// Makes a call that a full flash does not refuse, as it brings no byte: the descriptor can write meanwhile.
template <class Real>
auto CallWritable(int fd, Real real)
{
    const Node *node = NodeOf(fd);
    if (node == nullptr || !node->full)
        return real();
    char path[32];
    snprintf(path, sizeof(path), "/proc/self/fd/%d", fd);
    host::Reopen(fd, path, O_RDWR);
    const auto result = real();
    host::Reopen(fd, path, O_RDONLY);
    return result;
}

/// Makes a call on a path: where it is the board's, with its faults and its story. `real` takes the path on
/// this PC and returns what the wrapped function does, negative with errno for a failure.
template <class Real>
long CallOnPath(Call call, const char *path, bool changes, Real real)
{
    Place place;
    FindPlace(path, &place);
    if (place.where == Place::Where::Pc)
        return real(path);
    Event event(call, path);
    if (!IsBarred(event, place, changes)) {
        event.result = real(place.path);
        event.error = errno;
    }
    return Finish(event);
}

} // namespace sim

#endif
