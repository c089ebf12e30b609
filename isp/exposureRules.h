// SPDX-License-Identifier: MIT
//
// The rules between lines or frames and microseconds that more than one file needs. They follow the timing in
// gtSensorInfo. Internal to the room.
#ifndef CAMSTAT_ISP_EXPOSURE_RULES_H
#define CAMSTAT_ISP_EXPOSURE_RULES_H

#include "kelisp/sensorInfo.h"

namespace kel
{

/// Time of an exposure of `lines` lines, in microseconds.
inline double LinesToUs(double lines)
{
    return lines * gtSensorInfo.lineTimeUs - gtSensorInfo.offsetTimeUs;
}

/// Time of a register's line count.
inline double LineCodeToUs(uint16_t lines)
{
    return LinesToUs(lines);
}

/// Time of a live long exposure of `frames` + 1 frames, in microseconds: all their lines but the last.
inline double FramesToUs(uint8_t frames)
{
    return LinesToUs(static_cast<double>(gtSensorInfo.fullHeight * (frames + 1) - 1));
}

} // namespace kel

#endif
