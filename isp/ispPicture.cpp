// SPDX-License-Identifier: MIT
//
// White balance, picture and day/night controls: levels, indexes, gains and EV values to register values.
#include "kelisp/ispSensor.h"

#include "base/numbers.h"
#include "isp/ispSensorStep.h"
#include "kelisp/ispCXD3193AR.h"

#include <stdint.h>
#include <string.h>

using kel::Clamp;
using kel::FailSensorStep;
using kel::ReadCode;
using kel::ReadValue;
using kel::SetCode;

namespace
{

constexpr int kMaxLevel = 255;

constexpr int kGammaEntries = 30;

// The luminance gamma curve at and above the middle brightness.
constexpr uint8_t kBaseGamma[kGammaEntries] = {58, 63, 46, 25, 20, 15, 13, 12, 12, 11, 10, 9, 8, 7, 5,
                                               4,  3,  3,  3,  2,  2,  2,  2,  2,  2,  2,  2, 1, 1, 1};

/// Below the middle brightness the curve's first entries fall to 0 one after the other: from `fromLevel` on,
/// `entry` is slope x level + offset, and the entries before it are 0.
struct GammaBand {
    int fromLevel;
    int entry;
    int slope;
    int offset;
};

constexpr int kBrightFrom = 128;
constexpr GammaBand kGammaBands[] = {
    {99, 0, 2, -198}, {68, 1, 2, -135}, {45, 2, 2, -90}, {33, 3, 2, -65}, {13, 4, 1, -13}, {0, 5, 1, 2},
};

constexpr int kMaxYofst = 127;

constexpr int kWdrIndexes = 4;
constexpr int kAccPowerPerIndex = 5;

constexpr double kEvOfIndex[] = {-2.0, -1.5, -1.0, -0.5, 0.0, 0.5, 1.0, 1.5, 2.0};

constexpr int kMaxNfLevel = 44;
constexpr int kNfBlock = 8;
constexpr uint8_t kNfFixedBlock[kNfBlock] = {0x00, 0x3F, 0x00, 0x19, 0x00, 0x3F, 0xAC, 0x1C};

/// Where a picture level moves its register: 0 up to `start`, then one per level up to `max`.
constexpr uint8_t RampLevel(int level, int start, int max)
{
    return static_cast<uint8_t>(Clamp(Clamp(level, 0, kMaxLevel) - start, 0, max));
}

/// Aperture positive gain that goes with an aperture gain: 0 to 5 over 0 to 44, then 5 to 15 over 44 to 63.
uint8_t AperturePositiveGain(uint8_t apertureGain)
{
    const double g = apertureGain;
    return static_cast<uint8_t>(g < 44.0 ? g * 5.0 / 44.0 : (g - 44.0) * 10.0 / 19.0 + 5.0);
}

int SetWbGain(double gain, int (*set)(const uint8_t *), const char *step, kel::Where where = {})
{
    const int code = CXD3193AR_WbTable_Gain2RegValue(gain);
    if (code < 0)
        return FailSensorStep("CXD3193AR_WbTable_Gain2RegValue", code, where);
    return SetCode(set, step, static_cast<uint8_t>(code), where);
}

int SetSwitchLevel(int level, int (*set)(const uint8_t *), const char *step, kel::Where where = {})
{
    if (level < 0 || level > kMaxLevel)
        return KEL_SENSOR_REJECTED;
    return SetCode(set, step, static_cast<uint8_t>(level), where);
}

} // namespace

int SetMnlWbrGain(double gain)
{
    return SetWbGain(gain, KEL_NAMED(CXD3193AR_Set_MwbR));
}

int SetMnlWbbGain(double gain)
{
    return SetWbGain(gain, KEL_NAMED(CXD3193AR_Set_MwbB));
}

double GetMnlWbrGain(void)
{
    return ReadValue(KEL_NAMED(CXD3193AR_Get_MwbR), CXD3193AR_WbTable_RegValue2Gain);
}

double GetMnlWbbGain(void)
{
    return ReadValue(KEL_NAMED(CXD3193AR_Get_MwbB), CXD3193AR_WbTable_RegValue2Gain);
}

int SetBrightness(int level)
{
    const int status = SetYGamma(level);
    if (status < 0)
        return FailSensorStep("SetYGamma", status);
    return SetCode(KEL_NAMED(CXD3193AR_Set_Yofst), RampLevel(level, kBrightFrom, kMaxYofst));
}

int SetYGamma(int level)
{
    const int held = Clamp(level, 0, kMaxLevel);
    uint8_t curve[kGammaEntries];
    memcpy(curve, kBaseGamma, sizeof(curve));
    if (held < kBrightFrom) {
        const GammaBand *band = kGammaBands;
        while (held < band->fromLevel)
            ++band;
        for (int i = 0; i < band->entry; ++i)
            curve[i] = 0;
        curve[band->entry] = static_cast<uint8_t>(band->slope * held + band->offset);
    }
    return CXD3193AR_Set_YGamma(curve);
}

int SetContrast(int level)
{
    return SetCode(KEL_NAMED(CXD3193AR_Set_Ygain), RampLevel(level, 96, 64));
}

int SetSaturation(int level)
{
    const uint8_t gain = RampLevel(level, 104, 48);
    const int status = SetCode(KEL_NAMED(CXD3193AR_Set_RYG), gain);
    return status < 0 ? status : SetCode(KEL_NAMED(CXD3193AR_Set_BYG), gain);
}

int SetSharpness(int level)
{
    const uint8_t gain = RampLevel(level, 56, 63);
    const int status = SetCode(KEL_NAMED(CXD3193AR_Set_ApGan), gain);
    return status < 0 ? status : SetCode(KEL_NAMED(CXD3193AR_Set_ApPosGn), AperturePositiveGain(gain));
}

int SetWdr(int index)
{
    if (index < 0 || index >= kWdrIndexes)
        return FailSensorStep("Wdr Index", KEL_SENSOR_REJECTED);
    const auto power = static_cast<uint8_t>(index * kAccPowerPerIndex);
    const uint8_t automatic = power != 0;
    const int status = SetCode(KEL_NAMED(CXD3193AR_Set_AccAutoH), automatic);
    return status < 0 ? status : SetCode(KEL_NAMED(CXD3193AR_Set_AccPwr), power);
}

int SetBlc(double ev)
{
    const int code = CXD3193AR_Ev2RegValue(ev);
    if (code < 0)
        return FailSensorStep("CXD3193AR_Ev2RegValue", code);
    return SetCode(KEL_NAMED(CXD3193AR_Set_AeEvSet), static_cast<uint8_t>(code));
}

double GetBlc(void)
{
    const int code = ReadCode(KEL_NAMED(CXD3193AR_Get_AeEvSet));
    if (code < 0)
        return code;
    const double ev = CXD3193AR_RegValue2Ev(static_cast<unsigned>(code));
    return ev == CXD3193AR_BAD_EV ? FailSensorStep("CXD3193AR_RegValue2Ev", CXD3193AR_BAD_EV) : ev;
}

int SetBlcIndex(int index)
{
    constexpr int count = sizeof(kEvOfIndex) / sizeof(kEvOfIndex[0]);
    return SetBlc(index >= 0 && index < count ? kEvOfIndex[index] : 0.0);
}

int SetNfAutoMode(int nrAuto, int dayNight)
{
    const uint8_t nr = nrAuto != 0;
    const uint8_t dn = dayNight != 0;
    return CXD3193AR_Set_NrDnMode(&nr, &dn);
}

int GetNrDnMode(unsigned *nrAuto, unsigned *dayNight)
{
    uint8_t nr = 0;
    uint8_t dn = 0;
    const int status = CXD3193AR_Get_NrDnMode(&nr, &dn);
    if (status < 0)
        return status;
    *nrAuto = nr;
    *dayNight = dn;
    return 0;
}

int SetNfManualLevel(int mode, int level)
{
    if (mode == 1)
        return CXD3193AR_Set_Blk55(kNfFixedBlock);
    const auto held = static_cast<uint8_t>(Clamp(level, 0, kMaxNfLevel));
    const uint8_t block[kNfBlock] = {0, held, 0, static_cast<uint8_t>(held / 2), 0, 0x3F, 0, held};
    return CXD3193AR_Set_Blk55(block);
}

int SetFlip(int on)
{
    const uint8_t flip = on != 0;
    return CXD3193AR_Set_RegCA_3(&flip);
}

int SetMirror(int on)
{
    const uint8_t mirror = on != 0;
    return CXD3193AR_Set_RegCA_2(&mirror);
}

int SetNight2Day(int level)
{
    return SetSwitchLevel(level, KEL_NAMED(CXD3193AR_Set_DyNtRecv));
}

int SetDay2Night(int level)
{
    return SetSwitchLevel(level, KEL_NAMED(CXD3193AR_Set_DyNtSupr));
}
