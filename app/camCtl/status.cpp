// SPDX-License-Identifier: MIT
//
// camCtl status: what camStat -r reads, a value a line, as JSON, or as OpenMetrics text.
#include "app/camCtl/camCtl.h"

#include "kelisp/ispCXD3193AR.h"
#include "kelisp/ispSensor.h"

#include <math.h>

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
    return level < 0 ? level : level * 100 / 4096.0;
}

template <unsigned part>
double NrDnMode()
{
    unsigned modes[2] = {};
    const int status = GetNrDnMode(&modes[0], &modes[1]);
    return status < 0 ? status : modes[part];
}

/// A value under the name that camStat -r gives it, in snake case with its unit. Metrics have the base unit of
/// Prometheus' conventions: the value times `scale`.
struct Row {
    const char *name;
    double (*read)();
    int decimals;
    const char *metric;
    double scale;
};

constexpr double kSeconds = 1e-6;

constexpr Row kRows[] = {
    {"miris_status", Code<InfoMirisStatus>, 0, "miris_status", 1},
    {"dn_status", Code<InfoDnStatus>, 0, "dn_status", 1},
    {"long_exp_time_us", InfoLongExpTime, 2, "long_exp_time_seconds", kSeconds},
    {"exposure_time_us", InfoExpTime, 2, "exposure_time_seconds", kSeconds},
    {"analog_gain", InfoAnlgGain, 3, "analog_gain_ratio", 1},
    {"digital_gain", InfoDgtlGain, 3, "digital_gain_ratio", 1},
    {"wbr_gain", InfoWbrGain, 3, "wbr_gain_ratio", 1},
    {"wbb_gain", InfoWbbGain, 3, "wbb_gain_ratio", 1},
    {"raw_average_percent", RawPercent, 2, "raw_average_ratio", 0.01},
    {"ae_switch", FieldCode<CXD3193AR_Get_AeSwitch>, 0, "ae_switch", 1},
    {"ae_flick_mode", FieldCode<CXD3193AR_Get_AeFlickMode>, 0, "ae_flick_mode", 1},
    {"ae_ref_level", FieldCode<CXD3193AR_Get_AeRefLev>, 0, "ae_ref_level", 1},
    {"ae_ev_set", FieldCode<CXD3193AR_Get_AeEvSet>, 0, "ae_ev_set", 1},
    {"ae_timer", FieldCode<CXD3193AR_Get_AeTimer>, 0, "ae_timer", 1},
    {"ae_hold", FieldCode<CXD3193AR_Get_AeHoldH>, 0, "ae_hold", 1},
    {"ae_fix_shutter", FieldCode<CXD3193AR_Get_AeExpHldH>, 0, "ae_fix_shutter", 1},
    {"ae_option", FieldCode<CXD3193AR_Get_OptnMode>, 0, "ae_option", 1},
    {"ae_miris", FieldCode<CXD3193AR_Get_MirUseH>, 0, "ae_miris", 1},
    {"ae_max_exp", FieldCode<CXD3193AR_Get_AeMaxExpH>, 0, "ae_max_exp", 1},
    {"ae_long_exp", FieldCode<CXD3193AR_Get_AutoLgExpH>, 0, "ae_long_exp", 1},
    {"ae_acc", FieldCode<CXD3193AR_Get_AccAutoH>, 0, "ae_acc", 1},
    {"nr_mode", NrDnMode<0>, 0, "nr_mode", 1},
    {"dn_mode", NrDnMode<1>, 0, "dn_mode", 1},
    {"me_exp_time_us", GetMeExpTime, 2, "me_exp_time_seconds", kSeconds},
    {"me_again", GetMnlAgn, 3, "me_again_ratio", 1},
    {"me_dgain", GetMnlDgn, 3, "me_dgain_ratio", 1},
    {"ae_min_again", GetMinAgn, 3, "ae_min_again_ratio", 1},
    {"ae_max_again", GetMaxAgn, 3, "ae_max_again_ratio", 1},
    {"ae_max_dgain", GetMaxDgn, 3, "ae_max_dgain_ratio", 1},
    {"awb_auto", FieldCode<CXD3193AR_Get_WbAutoH>, 0, "awb_auto", 1},
    {"manual_wbr", GetMnlWbrGain, 3, "manual_wbr_ratio", 1},
    {"manual_wbb", GetMnlWbbGain, 3, "manual_wbb_ratio", 1},
};

/// -r prints 0 for a live long exposure that is none.
double Shown(const Row &row, double value)
{
    return row.read == InfoLongExpTime && value <= KEL_LONG_EXPOSURE_US ? 0.0 : value;
}

} // namespace

int camCtl::Status(const Arguments &arguments)
{
    int retries = 0;
    if (arguments.Has(kJson) && arguments.Has(kMetrics))
        return cli::Fail("--metrics", "and --json are two forms, take one");
    if (!TakeRetries(arguments, &retries) || OpenCamera(retries) != cli::kDone)
        return cli::kFailed;
    if (SensorInit() != 0) {
        CloseCamera();
        return cli::Fail("sensor", "cannot be read, or is no IMX076; camCtl doctor tells more");
    }
    double values[sizeof(kRows) / sizeof(kRows[0])];
    int status = cli::kDone;
    for (size_t i = 0; i < sizeof(kRows) / sizeof(kRows[0]); ++i) {
        values[i] = kRows[i].read();
        if (values[i] < 0.0)
            status = cli::Fail(kRows[i].name, "cannot be read");
        values[i] = values[i] < 0.0 ? NAN : Shown(kRows[i], values[i]);
    }
    CloseCamera();
    cli::Json json;
    if (arguments.Has(kJson))
        json.Open('{');
    for (size_t i = 0; i < sizeof(kRows) / sizeof(kRows[0]); ++i) {
        const Row &row = kRows[i];
        if (arguments.Has(kJson))
            json.Number(row.name, values[i]);
        else if (isnan(values[i]))
            continue;
        else if (arguments.Has(kMetrics))
            printf("# HELP camera_%s %s as camStat -r reads it.\n# TYPE camera_%s gauge\ncamera_%s %.10g\n",
                   row.metric, row.name, row.metric, row.metric, values[i] * row.scale);
        else
            printf("%s = %.*f\n", row.name, row.decimals, values[i]);
    }
    if (arguments.Has(kJson)) {
        json.Close('}');
        putchar('\n');
    } else if (arguments.Has(kMetrics)) {
        puts("# EOF");
    }
    return status;
}
