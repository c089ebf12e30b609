// SPDX-License-Identifier: MIT
//
// What the sensor functions share: how a failed step reads, and clamping. Internal to the room.
#ifndef CAMSTAT_ISP_ISP_SENSOR_STEP_H
#define CAMSTAT_ISP_ISP_SENSOR_STEP_H

#include "base/report.h"

namespace kel
{

/// Reports the failed step of the calling ispSensor function and hands its status on.
[[gnu::cold]] inline int FailSensorStep(const char *step, int status,
                                        const char *function = __builtin_FUNCTION(),
                                        int line = __builtin_LINE())
{
    return ReportStep("ispSensor", step, status, function, line);
}

template <typename T>
constexpr T Clamp(T value, T low, T high)
{
    if (!(value >= low)) // so that NaN is held, too
        return low;
    return value > high ? high : value;
}

} // namespace kel

#endif
