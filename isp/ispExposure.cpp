// SPDX-License-Identifier: MIT
//
// Manual exposure and gains, and the limits within which the automatic exposure may move them.
#include "kelisp/ispSensor.h"

#include "base/numbers.h"
#include "isp/exposureRules.h"
#include "isp/ispSensorStep.h"
#include "kelisp/ispCXD3193AR.h"

using kel::Clamp;
using kel::FailSensorStep;
using kel::ReadValue;
using kel::SetCode;

namespace
{

constexpr double kMinGain = 1.0;
constexpr double kMaxAgain = 7.953;
constexpr double kMaxDgain = 31.875;
constexpr double kMaxTotalGain = 253.501875; // 7.953 x 31.875

constexpr int kMaxGainIndex = 7;

using CodeSetter = int (*)(const uint8_t *);
using GainSetter = int (*)(double);

double AgainOf(uint8_t code)
{
    return CXD3193AR_AgainTable_RegValue2Again(code);
}

double DgainOf(uint8_t code)
{
    return CXD3193AR_RegValue2Dgain(code);
}

/// Writes an analog gain to its register.
int SetAgain(double gain, int (*set)(const uint8_t *), const char *step, kel::Where where = {})
{
    const int code = CXD3193AR_AgainTable_Again2RegValue(gain);
    if (code < 0)
        return FailSensorStep("CXD3193AR_AgainTable_Again2RegValue", code, where);
    return SetCode(set, step, static_cast<uint8_t>(code), where);
}

/// One half of a total gain: which setter takes it, and its name in a report.
struct GainStep {
    GainSetter set;
    const char *name;
};

/// Splits a total gain: the analog gain as far as it goes, the digital gain for the rest.
int SplitGain(double total, GainStep analog, GainStep digital, kel::Where where = {})
{
    const bool analogAlone = total <= kMaxAgain;
    int status = analog.set(analogAlone ? total : kMaxAgain);
    if (status < 0)
        return FailSensorStep(analog.name, status, where);
    status = digital.set(analogAlone ? kMinGain : total / kMaxAgain);
    return status < 0 ? FailSensorStep(digital.name, status, where) : 0;
}

double TotalGainOfIndex(int index)
{
    return index < 0 || index > kMaxGainIndex ? 1.0 : static_cast<double>(2 << index);
}

kel::Exposure ShortExposure(double timeUs)
{
    const uint32_t lines =
        kel::TruncateToUint32((timeUs + gtSensorInfo.offsetTimeUs) / gtSensorInfo.lineTimeUs);
    return {0, static_cast<uint16_t>(lines)};
}

} // namespace

double GetMeExpTime(void)
{
    return ReadValue(KEL_NAMED(CXD3193AR_Get_MeExpTim), kel::LineCodeToUs);
}

double GetMnlAgn(void)
{
    return ReadValue(KEL_NAMED(CXD3193AR_Get_MnlAgn), AgainOf);
}

double GetMnlDgn(void)
{
    return ReadValue(KEL_NAMED(CXD3193AR_Get_MnlDgn), DgainOf);
}

double GetMinAgn(void)
{
    return ReadValue(KEL_NAMED(CXD3193AR_Get_AeMinAgc), AgainOf);
}

double GetMaxAgn(void)
{
    return ReadValue(KEL_NAMED(CXD3193AR_Get_AeMaxAgc), AgainOf);
}

double GetMaxDgn(void)
{
    return ReadValue(KEL_NAMED(CXD3193AR_Get_AeMaxDgn), DgainOf);
}

int SetMeExpTime(double timeUs)
{
    const kel::Exposure exposure =
        timeUs > KEL_LONG_EXPOSURE_US ? kel::LongExposure(timeUs) : ShortExposure(timeUs);
    const int status = SetCode(KEL_NAMED(CXD3193AR_Set_LongExp), exposure.frames);
    return status < 0 ? status : SetCode(KEL_NAMED(CXD3193AR_Set_MeExpTim), exposure.lines);
}

int SetMnlAgn(double gain)
{
    return SetAgain(Clamp(gain, kMinGain, kMaxAgain), KEL_NAMED(CXD3193AR_Set_MnlAgn));
}

int SetMnlDgn(double gain)
{
    return SetCode(KEL_NAMED(CXD3193AR_Set_MnlDgn),
                   CXD3193AR_Dgain2RegValue(Clamp(gain, kMinGain, kMaxDgain)));
}

int SetMaxAgn(double gain)
{
    return SetAgain(Clamp(gain, kMinGain, kMaxAgain), KEL_NAMED(CXD3193AR_Set_AeMaxAgc));
}

int SetMaxDgn(double gain)
{
    return SetCode(KEL_NAMED(CXD3193AR_Set_AeMaxDgn),
                   CXD3193AR_Dgain2RegValue(Clamp(gain, kMinGain, kMaxDgain)));
}

int SetMinAgn(double gain)
{
    return SetAgain(gain, KEL_NAMED(CXD3193AR_Set_AeMinAgc));
}

int SetMinAgain(double gain)
{
    const int status = SetMinAgn(Clamp(gain, kMinGain, kMaxAgain));
    return status < 0 ? FailSensorStep("SetMinAgn", status) : 0;
}

int SetMaxGain(double totalGain)
{
    return SplitGain(Clamp(totalGain, kMinGain, kMaxTotalGain), {KEL_NAMED(SetMaxAgn)},
                     {KEL_NAMED(SetMaxDgn)});
}

int SetManGain(double totalGain)
{
    if (!(totalGain >= kMinGain && totalGain <= kMaxTotalGain)) {
        kel::ReportError("ispSensor", "[kel_isp] Gain < Min ||  Gain > Max.\n");
        return KEL_SENSOR_REJECTED;
    }
    return SplitGain(totalGain, {KEL_NAMED(SetMnlAgn)}, {KEL_NAMED(SetMnlDgn)});
}

int SetMaxGainIndex(int index)
{
    return SetMaxGain(TotalGainOfIndex(index));
}

int SetManGainIndex(int index)
{
    return SetManGain(TotalGainOfIndex(index));
}
