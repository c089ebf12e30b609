// SPDX-License-Identifier: MIT
//
// The timing of the sensor types. Internal to the library and its programs.
#ifndef CAMSTAT_ISP_SENSOR_PRESETS_H
#define CAMSTAT_ISP_SENSOR_PRESETS_H

#include <stdint.h>

namespace kel
{

/// The fields are those of SensorInfo.
struct SensorPreset {
    uint8_t cisType;
    int32_t fullWidth, fullHeight;
    int32_t validWidth, validHeight;
    int32_t validStartX, validStartY;
    uint32_t pixelClockHz;
    double fps;        // pixelClockHz / (fullWidth x fullHeight)
    double lineTimeUs; // fullWidth x 10^6 / pixelClockHz
};

inline constexpr SensorPreset kSensorPresets[] = {
    {6, 1650, 1090, 1280, 1024, 78, 43, 54000000, 30.025020850708923, 30.555555555555557},
    {7, 825, 552, 640, 512, 44, 25, 27000000, 59.28853754940712, 30.555555555555557},
};

inline constexpr double kOffsetTimeUs = 9.17; // the same for both types

} // namespace kel

#endif
