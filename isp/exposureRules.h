// SPDX-License-Identifier: MIT
//
// The rules between codes and their units that more than one file needs. Times follow the timing in gtSensorInfo.
// Internal to the library and its programs.
#ifndef CAMSTAT_ISP_EXPOSURE_RULES_H
#define CAMSTAT_ISP_EXPOSURE_RULES_H

#include "base/numbers.h"
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

/// The gains that live codes stand for. Code 0 of the analog gain gives infinity.
inline double LiveAnalogGain(uint16_t code)
{
    return 4096.0 / code;
}

inline double LiveDigitalGain(uint16_t code)
{
    return code * 0.03125;
}

inline constexpr double kRawFullScale = 4096.0; // the raw average is a 12-bit level

/// What the two exposure registers hold.
struct Exposure {
    uint8_t frames;
    uint16_t lines;
};

/// A long exposure: the nearest number of whole frames, less one, and the lines of all of them but the last
/// line. Held at the longest exposure that both registers can express.
inline Exposure LongExposure(double timeUs)
{
    constexpr uint32_t kMaxLongExpFrames = 127; // 7 bits
    constexpr uint32_t kMaxLines = 65535;       // 16 bits
    const SensorInfo &info = gtSensorInfo;
    const double frameLines = info.fullHeight;
    const double frames =
        (timeUs + info.offsetTimeUs + info.lineTimeUs) / (info.lineTimeUs * frameLines) - 1.0 + 0.5;
    const auto height = static_cast<uint32_t>(info.fullHeight);
    uint32_t maxFrames = kMaxLongExpFrames;
    if (height != 0 && (kMaxLines + 1) / height <= maxFrames)
        maxFrames = (kMaxLines + 1) / height - 1;
    uint32_t count = TruncateToUint32(frames);
    if (count > maxFrames)
        count = maxFrames;
    return {static_cast<uint8_t>(count), static_cast<uint16_t>(height * (count + 1) - 1)};
}

} // namespace kel

#endif
