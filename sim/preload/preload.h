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

#include <dlfcn.h>
#include <errno.h>

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

/// Lets a new descriptor of a file on a full flash write
/// no byte. The file stays a file, which /dev/full is not.
inline void FillUp(int fd, const char *path)
{
    if (host::MakeReadOnly(fd, path))
        NodeOf(fd)->full = true;
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

/// Makes a call on a path: where it is the board's, with its faults and its story. `real` takes the path on
/// this PC and returns what the wrapped function does, negative with errno for a failure.
template <class Real>
long CallOnPath(Call call, const char *path, bool changes, Real real)
{
    Place place;
    FindPlace(path, &place);
    if (place.kind == NodeKind::None)
        return real(path);
    Event event(call, path);
    if (!InjectFault(event) && !(place.kind == NodeKind::File && InjectFlashFault(event, changes))) {
        if (!place.exists) {
            Fail(event, ENOENT);
        } else {
            event.result = real(place.path);
            event.error = errno;
        }
    }
    return Finish(event);
}

} // namespace sim

#endif
