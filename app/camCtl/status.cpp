// SPDX-License-Identifier: MIT
//
// camCtl status: what camStat -r reads, a value a line, as JSON, or as OpenMetrics text.
#include "app/camCtl/camCtl.h"

#include "app/camCtl/status.h"
#include "isp/exposureRules.h"
#include "kelisp/ispCXD3193AR.h"
#include "kelisp/ispSensor.h"
#include "kelisp/sensorInfo.h"

#include <errno.h>
#include <math.h>
#include <string.h>

namespace
{

using namespace camCtl;
using cli::Arguments;

template <int (*readCode)()>
double Code()
{
    return readCode();
}

template <int (*get)(uint8_t *)>
double FieldCode()
{
    uint8_t code = 0;
    const int status = get(&code);
    return status < 0 ? status : code;
}

double RawPercent()
{
    const int level = InfoRawAvg();
    return level < 0 ? level : level * 100 / kel::kRawFullScale;
}

template <unsigned part>
double NrDnMode()
{
    unsigned modes[2] = {};
    const int status = GetNrDnMode(&modes[0], &modes[1]);
    return status < 0 ? status : modes[part];
}

constexpr double kSeconds = 1e-6;

constexpr StatusRow kRows[] = {
    {"miris_status", Code<InfoMirisStatus>, 0, "miris_status", 1, "MirisStatus"},
    {"dn_status", Code<InfoDnStatus>, 0, "dn_status", 1, "DnStatus"},
    {"long_exp_time_us", InfoLongExpTime, 2, "long_exp_time_seconds", kSeconds, "LngExpFrm"},
    {"exposure_time_us", InfoExpTime, 2, "exposure_time_seconds", kSeconds, "ExpTime"},
    {"analog_gain", InfoAnlgGain, 3, "analog_gain_ratio", 1, "AnlGain"},
    {"digital_gain", InfoDgtlGain, 3, "digital_gain_ratio", 1, "DgtlGain"},
    {"wbr_gain", InfoWbrGain, 3, "wbr_gain_ratio", 1, "WbrGain"},
    {"wbb_gain", InfoWbbGain, 3, "wbb_gain_ratio", 1, "WbbGain"},
    {"raw_average_percent", RawPercent, 2, "raw_average_ratio", 0.01, "RawAvg"},
    {"ae_switch", FieldCode<CXD3193AR_Get_AeSwitch>, 0, "ae_switch", 1, nullptr},
    {"ae_flick_mode", FieldCode<CXD3193AR_Get_AeFlickMode>, 0, "ae_flick_mode", 1, nullptr},
    {"ae_ref_level", FieldCode<CXD3193AR_Get_AeRefLev>, 0, "ae_ref_level", 1, nullptr},
    {"ae_ev_set", FieldCode<CXD3193AR_Get_AeEvSet>, 0, "ae_ev_set", 1, nullptr},
    {"ae_timer", FieldCode<CXD3193AR_Get_AeTimer>, 0, "ae_timer", 1, nullptr},
    {"ae_hold", FieldCode<CXD3193AR_Get_AeHoldH>, 0, "ae_hold", 1, nullptr},
    {"ae_fix_shutter", FieldCode<CXD3193AR_Get_AeExpHldH>, 0, "ae_fix_shutter", 1, nullptr},
    {"ae_option", FieldCode<CXD3193AR_Get_OptnMode>, 0, "ae_option", 1, nullptr},
    {"ae_miris", FieldCode<CXD3193AR_Get_MirUseH>, 0, "ae_miris", 1, nullptr},
    {"ae_max_exp", FieldCode<CXD3193AR_Get_AeMaxExpH>, 0, "ae_max_exp", 1, nullptr},
    {"ae_long_exp", FieldCode<CXD3193AR_Get_AutoLgExpH>, 0, "ae_long_exp", 1, nullptr},
    {"ae_acc", FieldCode<CXD3193AR_Get_AccAutoH>, 0, "ae_acc", 1, nullptr},
    {"nr_mode", NrDnMode<0>, 0, "nr_mode", 1, nullptr},
    {"dn_mode", NrDnMode<1>, 0, "dn_mode", 1, nullptr},
    {"me_exp_time_us", GetMeExpTime, 2, "me_exp_time_seconds", kSeconds, nullptr},
    {"me_again", GetMnlAgn, 3, "me_again_ratio", 1, nullptr},
    {"me_dgain", GetMnlDgn, 3, "me_dgain_ratio", 1, nullptr},
    {"ae_min_again", GetMinAgn, 3, "ae_min_again_ratio", 1, nullptr},
    {"ae_max_again", GetMaxAgn, 3, "ae_max_again_ratio", 1, nullptr},
    {"ae_max_dgain", GetMaxDgn, 3, "ae_max_dgain_ratio", 1, nullptr},
    {"awb_auto", FieldCode<CXD3193AR_Get_WbAutoH>, 0, "awb_auto", 1, nullptr},
    {"manual_wbr", GetMnlWbrGain, 3, "manual_wbr_ratio", 1, nullptr},
    {"manual_wbb", GetMnlWbbGain, 3, "manual_wbb_ratio", 1, nullptr},
};

/// -r prints 0 for a live long exposure that is none; an exposure of no lines is none as well.
double Shown(const StatusRow &row, double value)
{
    const bool isNone = row.read == InfoLongExpTime && value <= KEL_LONG_EXPOSURE_US;
    return isNone || value < 0.0 ? 0.0 : value;
}

void PrintMetric(const StatusRow &row, double value)
{
    printf("# HELP camera_%s %s as camStat -r reads it.\n# TYPE camera_%s gauge\ncamera_%s %.10g\n",
           row.metric, row.name, row.metric, row.metric, value * row.scale);
}

} // namespace

const camCtl::StatusRow *const camCtl::kStatusRows = kRows;
const size_t camCtl::kStatusCount = sizeof(kRows) / sizeof(kRows[0]);

const camCtl::StatusRow *camCtl::FindStatus(const char *name)
{
    for (const StatusRow &row : kRows)
        if (strcmp(row.name, name) == 0)
            return &row;
    return nullptr;
}

bool camCtl::IsFailure(double value)
{
    return value == CXD3193AR_FAILED || value == CXD3193AR_GATE_OPEN;
}

int camCtl::StartSensor()
{
    const int status = SensorInit();
    if (status == 0)
        return cli::kDone;
    if (status != KEL_SENSOR_REJECTED)
        return FailAttempts("sensor", "read");
    return cli::FailWith("sensor", "type %d is no IMX076", gtSensorInfo.cisType);
}

int camCtl::ReadStatus(const StatusRow &row, double *value)
{
    *value = row.read();
    if (IsFailure(*value)) {
        *value = NAN;
        return FailAttempts(row.name, "read");
    }
    *value = Shown(row, *value);
    return cli::kDone;
}

int camCtl::Status(const Arguments &arguments)
{
    int retries = 0;
    const bool asJson = arguments.Has(kJson);
    const bool asMetrics = arguments.Has(kMetrics);
    if (asJson && asMetrics)
        return cli::Fail("--metrics", "and --json are two forms, take one");
    if (!TakeRetries(arguments, &retries) || OpenCamera(retries) != cli::kDone)
        return cli::kFailed;
    int status = StartSensor();
    double values[sizeof(kRows) / sizeof(kRows[0])];
    const bool started = status == cli::kDone;
    for (size_t i = 0; started && i < kStatusCount; ++i)
        if (ReadStatus(kRows[i], &values[i]) != cli::kDone)
            status = cli::kFailed;
    CloseCamera();
    if (!started)
        return status;
    cli::Json json;
    if (asJson)
        json.Begin();
    for (size_t i = 0; i < kStatusCount; ++i) {
        const StatusRow &row = kRows[i];
        if (asJson)
            json.Number(row.name, values[i]);
        else if (isnan(values[i]))
            continue;
        else if (asMetrics)
            PrintMetric(row, values[i]);
        else
            printf("%s = %.*f\n", row.name, row.decimals, values[i]);
    }
    if (asJson)
        json.End();
    else if (asMetrics)
        puts("# EOF");
    return status;
}
