// SPDX-License-Identifier: MIT
//
// The one way to wait: a relative sleep that is never shorter than asked, and as a rule one call.
#ifndef CAMSTAT_BASE_PAUSE_H
#define CAMSTAT_BASE_PAUSE_H

#include <errno.h>
#include <stdint.h>
#include <time.h>

namespace kel
{

/// Sleeps for `us` microseconds. A signal does not cut the pause short: the remainder is slept as well.
inline void PauseUs(uint32_t us)
{
    timespec left = {};
    left.tv_sec = static_cast<time_t>(us / 1000000U);
    left.tv_nsec = static_cast<long>(us % 1000000U) * 1000L;
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
    }
}

} // namespace kel

#endif
