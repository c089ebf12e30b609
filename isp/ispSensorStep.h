// SPDX-License-Identifier: MIT
//
// What the sensor functions share: steps, and how a failed one reads. Internal to the room.
#ifndef CAMSTAT_ISP_ISP_SENSOR_STEP_H
#define CAMSTAT_ISP_ISP_SENSOR_STEP_H

#include "base/report.h"

namespace kel
{

/// Reports the failed step of the calling ispSensor function and hands its status on.
[[gnu::cold]] inline int FailSensorStep(const char *step, int status, Where where = {})
{
    return ReportStep("ispSensor", step, status, where);
}

/// Hands a code to the accessor `step`.
template <typename Code>
int SetCode(int (*set)(const Code *), const char *step, Code code, Where where = {})
{
    const int status = set(&code);
    return status < 0 ? FailSensorStep(step, status, where) : 0;
}

/// Reads a code with the accessor `step`.
template <typename Code>
int ReadCode(int (*read)(Code *), const char *step, Where where = {})
{
    Code code = 0;
    const int status = read(&code);
    return status < 0 ? FailSensorStep(step, status, where) : code;
}

/// Reads a code with the accessor `step` and converts it to its unit.
template <typename Code>
double ReadValue(int (*read)(Code *), const char *step, double (*convert)(Code), Where where = {})
{
    const int code = ReadCode(read, step, where);
    return code < 0 ? code : convert(static_cast<Code>(code));
}

} // namespace kel

#endif
