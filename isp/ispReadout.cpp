// SPDX-License-Identifier: MIT
//
// Live readouts: what the processor's automatic exposure and white balance are doing now, in physical units.
#include "kelisp/ispSensor.h"

#include "isp/exposureRules.h"
#include "isp/ispSensorStep.h"
#include "kelisp/ispCXD3193AR.h"

using kel::FailSensorStep;

namespace
{

constexpr double kLiveAgainUnity = 4096.0; // gain = 4096 / code
constexpr double kLiveDgainUnit = 0.03125; // gain = code / 32

double GainOfReciprocal(uint16_t code)
{
    return kLiveAgainUnity / code; // code 0 gives infinity
}

double GainOf32nds(uint16_t code)
{
    return code * kLiveDgainUnit;
}

double TimeOfLines(uint16_t lines)
{
    return kel::LinesToUs(lines);
}

/// Reads one readout and converts it; `step` names the accessor in the report of `function`.
template <typename Code>
double ReadOut(int (*read)(Code *), double (*convert)(Code), const char *step,
               const char *function = __builtin_FUNCTION(), int line = __builtin_LINE())
{
    Code code = 0;
    const int status = read(&code);
    return status < 0 ? FailSensorStep(step, status, function, line) : convert(code);
}

/// Reads one readout that is passed on as a code.
template <typename Code>
int ReadOutCode(int (*read)(Code *), const char *step, const char *function = __builtin_FUNCTION(),
                int line = __builtin_LINE())
{
    Code code = 0;
    const int status = read(&code);
    return status < 0 ? FailSensorStep(step, status, function, line) : code;
}

} // namespace

double InfoExpTime(void)
{
    return ReadOut(CXD3193AR_Info_ExpTime, TimeOfLines, "CXD3193AR_Info_ExpTime");
}

double InfoLongExpTime(void)
{
    return ReadOut(CXD3193AR_Info_LngExpFrm, kel::FramesToUs, "CXD3193AR_Info_LngExpFrm");
}

double InfoAnlgGain(void)
{
    return ReadOut(CXD3193AR_Info_AnlGain, GainOfReciprocal, "CXD3193AR_Info_AnlGain");
}

double InfoDgtlGain(void)
{
    return ReadOut(CXD3193AR_Info_DgtlGain, GainOf32nds, "CXD3193AR_Info_DgtlGain");
}

double InfoWbrGain(void)
{
    return ReadOut(CXD3193AR_Info_WbrGain, CXD3193AR_WbTable_RegValue2Gain, "CXD3193AR_Info_WbrGain");
}

double InfoWbbGain(void)
{
    return ReadOut(CXD3193AR_Info_WbbGain, CXD3193AR_WbTable_RegValue2Gain, "CXD3193AR_Info_WbbGain");
}

int InfoRawAvg(void)
{
    return ReadOutCode(CXD3193AR_Info_RawAvg, "CXD3193AR_Info_RawAvg");
}

int InfoDnStatus(void)
{
    return ReadOutCode(CXD3193AR_Info_DnStatus, "CXD3193AR_Info_DnStatus");
}

int InfoMirisStatus(void)
{
    return ReadOutCode(CXD3193AR_Info_MirisStatus, "CXD3193AR_Info_MirisStatus");
}
