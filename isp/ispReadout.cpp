// SPDX-License-Identifier: MIT
//
// Live readouts: what the processor's automatic exposure and white balance are doing now, in physical units.
#include "kelisp/ispSensor.h"

#include "isp/exposureRules.h"
#include "isp/ispSensorStep.h"
#include "kelisp/ispCXD3193AR.h"

using kel::ReadCode;
using kel::ReadValue;

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

} // namespace

double InfoExpTime(void)
{
    return ReadValue(KEL_NAMED(CXD3193AR_Info_ExpTime), kel::LineCodeToUs);
}

double InfoLongExpTime(void)
{
    return ReadValue(KEL_NAMED(CXD3193AR_Info_LngExpFrm), kel::FramesToUs);
}

double InfoAnlgGain(void)
{
    return ReadValue(KEL_NAMED(CXD3193AR_Info_AnlGain), GainOfReciprocal);
}

double InfoDgtlGain(void)
{
    return ReadValue(KEL_NAMED(CXD3193AR_Info_DgtlGain), GainOf32nds);
}

double InfoWbrGain(void)
{
    return ReadValue(KEL_NAMED(CXD3193AR_Info_WbrGain), CXD3193AR_WbTable_RegValue2Gain);
}

double InfoWbbGain(void)
{
    return ReadValue(KEL_NAMED(CXD3193AR_Info_WbbGain), CXD3193AR_WbTable_RegValue2Gain);
}

int InfoRawAvg(void)
{
    return ReadCode(KEL_NAMED(CXD3193AR_Info_RawAvg));
}

int InfoDnStatus(void)
{
    return ReadCode(KEL_NAMED(CXD3193AR_Info_DnStatus));
}

int InfoMirisStatus(void)
{
    return ReadCode(KEL_NAMED(CXD3193AR_Info_MirisStatus));
}
