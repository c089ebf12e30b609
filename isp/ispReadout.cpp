// SPDX-License-Identifier: MIT
//
// Live readouts: what the processor's automatic exposure and white balance are doing now, in physical units.
#include "kelisp/ispSensor.h"

#include "isp/exposureRules.h"
#include "isp/ispSensorStep.h"
#include "kelisp/ispCXD3193AR.h"

using kel::ReadCode;
using kel::ReadValue;

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
    return ReadValue(KEL_NAMED(CXD3193AR_Info_AnlGain), kel::LiveAnalogGain);
}

double InfoDgtlGain(void)
{
    return ReadValue(KEL_NAMED(CXD3193AR_Info_DgtlGain), kel::LiveDigitalGain);
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
