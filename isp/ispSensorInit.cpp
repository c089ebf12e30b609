// SPDX-License-Identifier: MIT
//
// Sensor information and initialisation, and the sensor's reset pulse.
#include "kelisp/ispSensor.h"

#include "base/pause.h"
#include "isp/ispSensorStep.h"
#include "isp/sensorPresets.h"
#include "kelisp/debugFlags.h"
#include "kelisp/gpio.h"
#include "kelisp/ispCXD3193AR.h"

#include <stdio.h>
#include <string.h>

namespace
{

constexpr uint32_t kResetLowUs = 2000;
constexpr uint32_t kResetSettleUs = 20000;

/// The fields whose mirrors are loaded at start, in this order; the accessor stores the mirror.
struct MirrorRead {
    int (*get)(uint8_t *);
    const char *name;
};

constexpr MirrorRead kMirrorReads[] = {
    {KEL_NAMED(CXD3193AR_Get_ExtPrstH)}, {KEL_NAMED(CXD3193AR_Get_InfoOut)},
    {KEL_NAMED(CXD3193AR_Get_LongExp)},  {KEL_NAMED(CXD3193AR_Get_NrAutoH)},
    {KEL_NAMED(CXD3193AR_Get_DyNgtOnH)},
};

const kel::SensorPreset *FindPreset(uint8_t cisType)
{
    for (const kel::SensorPreset &preset : kel::kSensorPresets)
        if (preset.cisType == cisType)
            return &preset;
    return nullptr;
}

void StorePreset(const kel::SensorPreset &preset)
{
    gtSensorInfo.fullWidth = preset.fullWidth;
    gtSensorInfo.fullHeight = preset.fullHeight;
    gtSensorInfo.validWidth = preset.validWidth;
    gtSensorInfo.validHeight = preset.validHeight;
    gtSensorInfo.validStartX = preset.validStartX;
    gtSensorInfo.validStartY = preset.validStartY;
    gtSensorInfo.fps = preset.fps;
    gtSensorInfo.pixelClockHz = preset.pixelClockHz;
    gtSensorInfo.lineTimeUs = preset.lineTimeUs;
    gtSensorInfo.offsetTimeUs = kel::kOffsetTimeUs;
}

void PrintSensorInfo()
{
    const SensorInfo &info = gtSensorInfo;
    fprintf(stderr, "Full Width\t:\t%d\n", info.fullWidth);
    fprintf(stderr, "Full Height\t:\t%d\n", info.fullHeight);
    fprintf(stderr, "Valid Width\t:\t%d\n", info.validWidth);
    fprintf(stderr, "Valid Height\t:\t%d\n", info.validHeight);
    fprintf(stderr, "Valid Start X\t:\t%d\n", info.validStartX);
    fprintf(stderr, "Valid Start Y\t:\t%d\n", info.validStartY);
    fprintf(stderr, "Fps\t\t:\t%lf\n", info.fps);
    fprintf(stderr, "Pixel Clock\t:\t%u Hz\n", info.pixelClockHz);
    fprintf(stderr, "1H Time\t\t:\t%lf us\n", info.lineTimeUs);
    fprintf(stderr, "Offset Time\t:\t%lf us\n", info.offsetTimeUs);
    fprintf(stderr, "Ext GIO enable\t:\t%d\n", info.extGioEnable);
    fprintf(stderr, "Output info\t:\t%d\n", info.infoOut);
    fprintf(stderr, "Cis Type\t:\t%d\n", info.cisType);
}

} // namespace

int SensorInit(void)
{
    // cppcheck-suppress memsetClassFloat ; all bits zero is 0.0 on every machine this runs on
    memset(&gtSensorInfo, 0, sizeof(gtSensorInfo));
    int status = kel::ReadCode(KEL_NAMED(CXD3193AR_Get_CisType));
    if (status < 0)
        return status;
    const kel::SensorPreset *preset = FindPreset(gtSensorInfo.cisType);
    if (preset == nullptr) {
        kel::ReportError("ispSensor", "[kel_isp] Sensor is not IMX076.\n");
        return KEL_SENSOR_REJECTED;
    }
    StorePreset(*preset);
    for (const MirrorRead &read : kMirrorReads) {
        status = kel::ReadCode(read.get, read.name);
        if (status < 0)
            return status;
    }
    if (gfDebugFlag != 0)
        PrintSensorInfo();
    return 0;
}

int ResetSensor(void)
{
    const int low = SetResetPin(0);
    kel::PauseUs(kResetLowUs);
    const int high = SetResetPin(1);
    kel::PauseUs(kResetSettleUs);
    return low < 0 ? low : high;
}
