// SPDX-License-Identifier: MIT
//
// The image-settings applier: what differs from the settings last applied goes to the camera, in a fixed
// order. How a setting becomes registers is ispSensor's.
#include "config/imageSet.h"

#include "base/numbers.h"
#include "base/pause.h"
#include "base/report.h"
#include "config/confKeys.h"
#include "config/dayNight.h"
#include "kelisp/debugFlags.h"
#include "kelisp/gpio.h"
#include "kelisp/ispCXD3193AR.h"
#include "kelisp/ispImageSet.h"
#include "kelisp/ispSensor.h"
#include "kelisp/sysconf.h"

#include <stdio.h>

int32_t giImgSetErrCount = 0;

namespace
{

using kel::ConfField;

constexpr char kModule[] = "ispImageSet";
constexpr double kGainUnit = 512.0;       // stored white-balance gains are gain x 512
constexpr uint32_t kWbHoldUs = 50 * 1000; // for the held gains to settle before they are read

// ---- Reports

/// Counts a failed step that has reported itself.
void Count(int status)
{
    if (status < 0)
        ++giImgSetErrCount;
}

/// Counts and reports a failed step of ImageSet; processing goes on.
void Check(int status, const char *step, int line = __builtin_LINE())
{
    Count(status);
    if (status < 0)
        kel::ReportStep(kModule, step, status, {"ImageSet", line});
}

void DebugLine(const char *text)
{
    if (gfImgDebugFlag != 0)
        printf("[kel_isp] %s\n", text);
}

void DebugValue(const char *name, int32_t value)
{
    if (gfImgDebugFlag != 0)
        printf("[kel_isp] %s = %d\n", name, value);
}

// ---- One run of the applier, and groups of fields

struct Run { // the arguments of ApplySettings
    ImgCfgStatus &wanted;
    ImgCfgStatus &applied;
    const bool known;
    const ImgCfgStatus *const given;
    bool gainsRead = true; ///< false: reading a gain has failed
};

bool Differs(const Run &run, ConfField field)
{
    return !run.known || run.wanted.*field != run.applied.*field;
}

struct NamedField {
    ConfField field;
    const char *debugName;
    bool startsGroup = true; ///< a change of this field alone is one of the group
};

template <size_t N>
bool AnyDiffers(const Run &run, const NamedField (&fields)[N])
{
    for (const NamedField &row : fields)
        if (row.startsGroup && Differs(run, row.field))
            return true;
    return false;
}

template <size_t N>
void CopyGroup(Run &run, const NamedField (&fields)[N])
{
    for (const NamedField &row : fields)
        run.applied.*row.field = run.wanted.*row.field;
    for (const NamedField &row : fields)
        DebugValue(row.debugName, run.wanted.*row.field);
}

/// A setting that goes to one setter.
struct Level {
    ConfField field;
    int (*set)(int);
    bool clamp;            ///< to 0 to 255 before it is set
    const char *step;      ///< name in the failure report
    const char *debugName; ///< null: no debug line
};

constexpr Level kBrightness = {&ImgCfgStatus::brightness, SetBrightness, true, "ERROR: SetBrightness",
                               "BRIGHTNESS"};
constexpr Level kContrast = {&ImgCfgStatus::contrast, SetContrast, true, "ERROR: SetContrast", "CONTRAST"};
constexpr Level kSharpness = {&ImgCfgStatus::sharpness, SetSharpness, true, "ERROR: SetSharpness",
                              "SHARPNESS"};
constexpr Level kMirror = {&ImgCfgStatus::mirror, SetMirror, false, "ERROR: SetMirror", "MIRROR"};
constexpr Level kFlip = {&ImgCfgStatus::flip, SetFlip, false, "ERROR: SetFlip", "FLIP"};
constexpr Level kBacklight = {&ImgCfgStatus::extBlc, SetBlcIndex, false, "ERROR: SetBlcIndex", nullptr};
constexpr Level kWdr = {&ImgCfgStatus::extWdr, SetWdr, false, "SetWdr", "WDR"};

void ApplyLevel(Run &run, const Level &level)
{
    if (!Differs(run, level.field))
        return;
    const int32_t value = run.wanted.*level.field;
    Check(level.set(level.clamp ? kel::Clamp(value, 0, 255) : value), level.step);
    run.applied.*level.field = value;
    if (level.debugName != nullptr)
        DebugValue(level.debugName, value);
}

// ---- Saturation, day and night

constexpr NamedField kDayNightFields[] = {
    {&ImgCfgStatus::saturation, "SATURATION"},
    {&ImgCfgStatus::dnMode, "DN MODE"},
    {&ImgCfgStatus::dnBw, "DN BW"},
    {&ImgCfgStatus::dnIcr, "DN ICR", false}, // waits for the next change of day and night
    {&ImgCfgStatus::dnDi, "DN DI"},
    {&ImgCfgStatus::dnLs, "DN LS"},
};

void SaveLightSensor(int32_t state)
{
    char text[16];
    snprintf(text, sizeof(text), "%d", state);
    const int status = sysconf_fset(IMG_CFG_SYSTEM_FILE, "DN_LS", text);
    Count(status);
    if (status != 0)
        DebugLine("Save LS Data Error!!!!!!");
    DebugLine("SAVE Light Sensor Status to CONF");
}

void ApplyDayNight(Run &run)
{
    const ImgCfgStatus &wanted = run.wanted;
    if (!AnyDiffers(run, kDayNightFields))
        return;
    if (wanted.dnLs != run.applied.dnLs)
        SaveLightSensor(wanted.dnLs);
    const bool grey = kel::IsNight(wanted) && wanted.dnBw == 1;
    Check(SetSaturation(grey ? 0 : wanted.saturation), "ERROR: SetSaturation");
    const bool irNight = kel::IsIrNight(wanted);
    Count(SetICR(irNight ? 1 : 0));
    Count(setIRL(irNight ? 0 : 1));
    DebugValue("ICR Type", wanted.icrType);
    CopyGroup(run, kDayNightFields);
}

// ---- Noise filter

void ApplyNoiseFilter(Run &run)
{
    const int mode = run.wanted.nfMode;
    const int level = run.wanted.nfLevel;
    if (Differs(run, &ImgCfgStatus::nfMode)) {
        Check(SetNfAutoMode(mode, mode != 0 ? 1 : 0), "ERROR: SetNfAutoMode");
        Check(SetNfManualLevel(mode, level), "ERROR: SetNfManualLevel");
        DebugValue("IMG_NF_MODE", mode);
        run.applied.nfMode = mode;
    }
    if (Differs(run, &ImgCfgStatus::nfLevel)) {
        Check(SetNfManualLevel(mode, level), "ERROR: SetNfManualLevel");
        DebugValue("IMG_NF_LEVEL", level);
        run.applied.nfLevel = level;
    }
}

// ---- Exposure and gain

constexpr NamedField kExposureFields[] = {
    {&ImgCfgStatus::aecEn, "AEC"},          {&ImgCfgStatus::agcEn, "AGC"},
    {&ImgCfgStatus::manExposure, "ME"},     {&ImgCfgStatus::manGain, "MG"},
    {&ImgCfgStatus::maxExposure, "MaxExp"}, {&ImgCfgStatus::maxGain, "MaxGain"},
    {&ImgCfgStatus::dnFps, "DN Fps"},       {&ImgCfgStatus::deflicker, "DE-FICKER"},
};

// Exposure times in microseconds by index, for 50 Hz and for 60 Hz mains.
constexpr double kManualShutterUs[2][12] = {
    {1000000.0 / 3, 1000000.0 / 6, 1000000.0 / 12, 40000, 20000, 10000, 5000, 2500, 1250, 625, 312.5, 156.25},
    {250000, 125000, 200000.0 / 3, 100000.0 / 3, 50000.0 / 3, 25000.0 / 3, 4000, 2000, 1000, 500, 250, 125},
};
constexpr double kSlowShutterUs[2][5] = {
    {1000000.0 / 12, 1000000.0 / 6, 1000000.0 / 3, 2000000.0 / 3, 1000000},
    {200000.0 / 3, 125000, 250000, 500000, 1000000},
};
constexpr double kShutterCeilingUs[2][5] = {
    {40000, 20000, 10000, 5000, 2500},
    {100000.0 / 3, 50000.0 / 3, 25000.0 / 3, 12500.0 / 3, 6250.0 / 3},
};

template <size_t N>
int SetShutter(const double (&timesUs)[2][N], int mainsHz, int index)
{
    if (mainsHz != 50 && mainsHz != 60)
        return KEL_SENSOR_REJECTED;
    return SetMeExpTime(timesUs[mainsHz == 60 ? 1 : 0][index]);
}

int SetManualShutter(const ImgCfgStatus &wanted)
{
    const bool listed = wanted.manExposure >= 0 && wanted.manExposure <= 11;
    return SetShutter(kManualShutterUs, wanted.deflicker, listed ? wanted.manExposure : 3);
}

int SetShutterCeiling(const ImgCfgStatus &wanted)
{
    const bool listed = wanted.maxExposure >= 1 && wanted.maxExposure <= 4;
    return SetShutter(kShutterCeilingUs, wanted.deflicker, listed ? wanted.maxExposure : 0);
}

int SetSlowShutter(const ImgCfgStatus &wanted)
{
    const bool listed = wanted.dnFps >= 1 && wanted.dnFps <= 5;
    return listed ? SetShutter(kSlowShutterUs, wanted.deflicker, wanted.dnFps - 1) : 0;
}

int SetManualGain(const ImgCfgStatus &wanted)
{
    return SetManGainIndex(wanted.manGain);
}

int SetGainCeiling(const ImgCfgStatus &wanted)
{
    return SetMaxGainIndex(wanted.maxGain);
}

int SetLowestGain(const ImgCfgStatus &)
{
    return SetMinAgain(1.0);
}

int SetFlickerMode(const ImgCfgStatus &wanted)
{
    const uint8_t mode = wanted.deflicker == 50 ? 6 : wanted.deflicker == 60 ? 4 : 0;
    return CXD3193AR_Set_AeFlickMode(&mode);
}

/// Writes a fixed value to one field.
template <int (*Set)(const uint8_t *), uint8_t Value>
int Write(const ImgCfgStatus &)
{
    const uint8_t value = Value;
    return Set(&value);
}

using Step = int (*)(const ImgCfgStatus &wanted);

/// Runs the steps up to the first negative status and returns that; else 0.
template <size_t N>
int RunSteps(const Step (&steps)[N], const ImgCfgStatus &wanted)
{
    for (const Step step : steps) {
        const int status = step(wanted);
        if (status < 0)
            return status;
    }
    return 0;
}

constexpr Step kSwitchToManual[] = {
    Write<CXD3193AR_Set_AeFlickMode, 0>,
    Write<CXD3193AR_Set_AeExpHldH, 0>,
    Write<CXD3193AR_Set_AeMaxExpH, 0>,
    Write<CXD3193AR_Set_AutoLgExpH, 0>,
    SetManualShutter,
    SetManualGain,
    Write<CXD3193AR_Set_AeSwitch, 0>,
};
constexpr Step kSwitchToManualShutter[] = {
    Write<CXD3193AR_Set_AeFlickMode, 0>,
    Write<CXD3193AR_Set_AeMaxExpH, 0>,
    Write<CXD3193AR_Set_AeExpHldH, 1>,
    Write<CXD3193AR_Set_AutoLgExpH, 0>,
    SetLowestGain,
    SetGainCeiling,
    SetManualShutter,
    Write<CXD3193AR_Set_AeSwitch, 1>,
};
constexpr Step kSlowAuto[] = {
    SetFlickerMode,
    Write<CXD3193AR_Set_AeExpHldH, 0>,
    Write<CXD3193AR_Set_AeMaxExpH, 0>,
    SetSlowShutter,
    Write<CXD3193AR_Set_AutoLgExpH, 1>,
    SetGainCeiling,
    Write<CXD3193AR_Set_AeSwitch, 1>,
};
constexpr Step kAuto[] = {
    SetFlickerMode,
    Write<CXD3193AR_Set_AeExpHldH, 0>,
    Write<CXD3193AR_Set_AutoLgExpH, 0>,
    SetShutterCeiling,
    Write<CXD3193AR_Set_AeMaxExpH, 1>,
    SetGainCeiling,
    Write<CXD3193AR_Set_AeSwitch, 1>,
};

/// A manual mode: switched to as a whole when another one was applied, then its gain and the shutter where
/// they differ from what was applied.
template <size_t N>
int SetManualMode(const Run &run, const Step (&switchOver)[N], ConfField gainField, Step setGain)
{
    int status = 0;
    if (Differs(run, &ImgCfgStatus::aecEn) || Differs(run, &ImgCfgStatus::agcEn))
        status = RunSteps(switchOver, run.wanted);
    if (status >= 0 && Differs(run, gainField))
        status = setGain(run.wanted);
    if (status >= 0 && Differs(run, &ImgCfgStatus::manExposure))
        status = SetManualShutter(run.wanted);
    return status < 0 ? status : 0;
}

int SetExposure(const Run &run)
{
    const ImgCfgStatus &wanted = run.wanted;
    if (wanted.aecEn == 0 && wanted.agcEn == 0)
        return SetManualMode(run, kSwitchToManual, &ImgCfgStatus::manGain, SetManualGain);
    if (wanted.aecEn == 0 && wanted.agcEn == 1)
        return SetManualMode(run, kSwitchToManualShutter, &ImgCfgStatus::maxGain, SetGainCeiling);
    if (wanted.aecEn == 1 && wanted.agcEn == 0)
        return 0;
    return wanted.dnFps != 0 ? RunSteps(kSlowAuto, wanted) : RunSteps(kAuto, wanted);
}

void ApplyExposure(Run &run)
{
    if (!AnyDiffers(run, kExposureFields))
        return;
    Check(SetExposure(run), "ERROR: SetAE");
    CopyGroup(run, kExposureFields);
}

// ---- White balance

void SetWbAuto(uint8_t on)
{
    Check(CXD3193AR_Set_WbAutoH(&on), "CXD3193AR_Set_WbAutoH");
}

void SetWbHold(uint8_t on)
{
    Check(CXD3193AR_Set_WbHoldH(&on), "CXD3193AR_Set_WbHoldH");
}

int32_t ReadGain(Run &run, double (*info)(), const char *step)
{
    const double gain = info();
    if (gain < 0) {
        Check(kel::TruncateToInt32(gain), step);
        run.gainsRead = false;
    }
    return kel::TruncateToInt32(gain * kGainUnit);
}

void ReadWbGains(Run &run)
{
    run.wanted.wbR = ReadGain(run, InfoWbrGain, "InfoWbrGain");
    run.wanted.wbB = ReadGain(run, InfoWbbGain, "InfoWbbGain");
}

void SetWbGains(const ImgCfgStatus &wanted)
{
    Check(SetMnlWbrGain(wanted.wbR * (1 / kGainUnit)), "SetMnlWbrGain");
    Check(SetMnlWbbGain(wanted.wbB * (1 / kGainUnit)), "SetMnlWbbGain");
}

void SaveWbGains(Run &run, const char *lastLine)
{
    DebugLine("SAVE WB to CONF");
    Count(SaveWB(IMG_CFG_SYSTEM_FILE, run.wanted.wbR, run.wanted.wbB, &run.wanted.wbSave));
    if (lastLine != nullptr)
        DebugLine(lastLine);
    run.applied.wbSave = run.wanted.wbSave;
    DebugValue("Save WB", run.wanted.wbSave);
}

/// Makes the current automatic gains the manual ones.
void FreezeWb(Run &run)
{
    SetWbHold(1);
    kel::PauseUs(kWbHoldUs);
    ReadWbGains(run);
    SetWbGains(run.wanted);
    SetWbHold(0);
    SetWbAuto(0);
}

/// After the camera's gains were frozen: those are applied, and the given ones, with these values, are wanted.
void WantGivenGains(Run &run, int32_t red, int32_t blue)
{
    run.applied.wbR = run.wanted.wbR;
    run.applied.wbB = run.wanted.wbB;
    if (run.given->wbR != 0)
        run.wanted.wbR = red;
    if (run.given->wbB != 0)
        run.wanted.wbB = blue;
}

void ApplyWbMode(Run &run)
{
    ImgCfgStatus &wanted = run.wanted;
    if (!Differs(run, &ImgCfgStatus::awbEn))
        return;
    const int32_t red = wanted.wbR;
    const int32_t blue = wanted.wbB;
    if (wanted.awbEn == 1)
        SetWbAuto(1);
    else
        FreezeWb(run);
    run.applied.awbEn = wanted.awbEn;
    DebugValue("AWB EN", wanted.awbEn);
    if (run.given == nullptr && wanted.wbSave == 1)
        SaveWbGains(run, nullptr);
    if (run.given != nullptr && wanted.awbEn != 1)
        WantGivenGains(run, red, blue);
}

void ApplyWbGains(Run &run)
{
    static constexpr NamedField kGains[] = {{&ImgCfgStatus::wbR, "WB R"}, {&ImgCfgStatus::wbB, "WB B"}};
    ImgCfgStatus &wanted = run.wanted;
    if (wanted.wbSave != 1 && wanted.wbR == run.applied.wbR && wanted.wbB == run.applied.wbB)
        return;
    if (wanted.awbEn == 1)
        ReadWbGains(run);
    else
        SetWbGains(wanted);
    if (wanted.wbSave == 1 && (run.given == nullptr || run.gainsRead))
        SaveWbGains(run, "Finished SAVE WB to CONF");
    CopyGroup(run, kGains);
}

bool SaveGain(const char *path, const char *key, int gain)
{
    char text[80] = {};
    snprintf(text, sizeof(text), "%d", gain);
    return sysconf_fset(path, key, text) == 0;
}

} // namespace

int SetAE(const ImgCfgStatus *wanted)
{
    ImgCfgStatus record = *wanted;
    return SetExposure({record, gtImgCfgStatus, true, nullptr});
}

int SaveWB(const char *path, int red, int blue, int32_t *saveFlag)
{
    DebugLine("Enter SAVE WB Function");
    DebugLine("sysconf_fset WB_R ");
    if (!SaveGain(path, "2A_WB_R", red)) {
        kel::ReportError(kModule, "[kel_isp] Save WB R Data Error!!!!!!\n");
        return KEL_SAVE_FAILED;
    }
    DebugLine("sysconf_fset WB_B ");
    if (!SaveGain(path, "2A_WB_B", blue)) {
        kel::ReportError(kModule, "[kel_isp] Save WB B Data Error!!!!!!\n");
        return KEL_SAVE_FAILED;
    }
    DebugLine("Set WB_SAVE to 0");
    *saveFlag = 0;
    return 0;
}

void kel::ApplySettings(ImgCfgStatus &wanted, ImgCfgStatus &applied, bool known, const ImgCfgStatus *given)
{
    Run run{wanted, applied, known, given};
    if (given != nullptr && given->wbR == 0)
        wanted.wbR = applied.wbR;
    if (given != nullptr && given->wbB == 0)
        wanted.wbB = applied.wbB;
    if (Differs(run, &ImgCfgStatus::extDebug)) {
        gfImgDebugFlag = wanted.extDebug;
        gfDebugFlag = wanted.extDebug;
        applied.extDebug = wanted.extDebug;
    }
    ApplyLevel(run, kBrightness);
    ApplyLevel(run, kContrast);
    ApplyDayNight(run);
    ApplyLevel(run, kSharpness);
    ApplyNoiseFilter(run);
    ApplyLevel(run, kMirror);
    ApplyLevel(run, kFlip);
    ApplyLevel(run, kBacklight);
    ApplyExposure(run);
    ApplyWbMode(run);
    ApplyWbGains(run);
    ApplyLevel(run, kWdr);
}

int ImageSet(ImgCfgStatus *wanted)
{
    kel::ApplySettings(*wanted, gtImgCfgStatus);
    return 0;
}
