// SPDX-License-Identifier: MIT
//
// The report texts. Every value comes from a getter; this file owns the order
// of the lines, their exact texts and the few conversions made for printing.
// What a getter reports about its failure goes to standard error, from there.
#include "app/camStat/reports.h"

#include "base/numbers.h"
#include "base/report.h"
#include "isp/exposureRules.h"
#include "kelisp/ispCXD3193AR.h"
#include "kelisp/ispSensor.h"

#include <stdio.h>

namespace
{

void PrintFailure(const char *name)
{
    printf("%s failed.\n", name);
}

/// n of the shutter 1/n s, rounded to nearest; a time of 0 saturates.
int Reciprocal(double timeUs)
{
    return kel::TruncateToInt32(1000000.0 / timeUs + 0.5);
}

void PrintExposure(const char *format, double timeUs)
{
    printf(format, timeUs, Reciprocal(timeUs));
}

// ---- Live readouts

void PrintCode(const char *format, double value)
{
    printf(format, static_cast<int>(value));
}

void PrintFactor(const char *format, double value)
{
    printf(format, value);
}

void PrintLongExposure(const char *format, double timeUs)
{
    if (timeUs > KEL_LONG_EXPOSURE_US)
        PrintExposure(format, timeUs);
    else
        puts("Long Exp Time\t:\t0");
}

void PrintRawAverage(const char *format, double value)
{
    printf(format, static_cast<int>(value), value * 100 / kel::kRawFullScale);
}

template <int (*readCode)()>
double AsDouble()
{
    return readCode();
}

#define NAMED_CODE(function) AsDouble<function>, #function

/// One line of the live readouts. Codes are small integers: as doubles they are exact.
struct Readout {
    double (*read)();
    const char *name;
    void (*print)(const char *format, double value);
    const char *format;
};

constexpr Readout kReadouts[] = {
    {NAMED_CODE(InfoMirisStatus), PrintCode, "Miris Status\t:\t%d\n"},
    {NAMED_CODE(InfoDnStatus), PrintCode, "D/N Status\t:\t%d\n"},
    {KEL_NAMED(InfoLongExpTime), PrintLongExposure, "Long Exp Time\t:\t%.2lf us, 1/%d sec\n"},
    {KEL_NAMED(InfoExpTime), PrintExposure, "Exposure Time\t:\t%.2lf us, 1/%d sec\n"},
    {KEL_NAMED(InfoAnlgGain), PrintFactor, "Analog Gain\t:\t%.3lf\n"},
    {KEL_NAMED(InfoDgtlGain), PrintFactor, "Digital Gain\t:\t%.3lf\n"},
    {KEL_NAMED(InfoWbrGain), PrintFactor, "Wbr Gain\t:\t%.3lf\n"},
    {KEL_NAMED(InfoWbbGain), PrintFactor, "Wbb Gain\t:\t%.3lf\n"},
    {NAMED_CODE(InfoRawAvg), PrintRawAverage, "Raw Average\t:\t%d (%.2f %% of 4096)\n"},
};

// ---- Automatic exposure and white balance

/// A line that shows a register field as it stands.
struct FieldLine {
    int (*get)(uint8_t *);
    const char *name;
    const char *format;
};

constexpr FieldLine kAeFields[] = {
    {KEL_NAMED(CXD3193AR_Get_AeSwitch), "Ae Switch\t:\t%d\n"},
    {KEL_NAMED(CXD3193AR_Get_AeFlickMode), "Ae flick mode\t:\t%d\n"},
    {KEL_NAMED(CXD3193AR_Get_AeRefLev), "Ae ref level\t:\t%d\n"},
    {KEL_NAMED(CXD3193AR_Get_AeEvSet), "Ae Ev set\t:\t%d\n"},
    {KEL_NAMED(CXD3193AR_Get_AeTimer), "Ae timer\t:\t%d\n"},
    {KEL_NAMED(CXD3193AR_Get_AeHoldH), "Ae hold\t\t:\t%d\n"},
    {KEL_NAMED(CXD3193AR_Get_AeExpHldH), "Ae fix shutter\t:\t%d\n"},
    {KEL_NAMED(CXD3193AR_Get_OptnMode), "Ae option\t:\t%d\n"},
    {KEL_NAMED(CXD3193AR_Get_MirUseH), "Ae Miris\t:\t%d\n"},
    {KEL_NAMED(CXD3193AR_Get_AeMaxExpH), "Ae Max Exp\t:\t%d\n"},
    {KEL_NAMED(CXD3193AR_Get_AutoLgExpH), "Ae Long Exp\t:\t%d\n"},
    {KEL_NAMED(CXD3193AR_Get_AccAutoH), "Ae ACC\t\t:\t%d\n"},
};

constexpr FieldLine kAwbField = {KEL_NAMED(CXD3193AR_Get_WbAutoH), "Awb Auto\t:\t%d\n"};

constexpr Readout kAeValues[] = {
    {KEL_NAMED(GetMeExpTime), PrintExposure, "Me Exp Time\t:\t%.2lf us, 1/%d sec.\n"},
    {KEL_NAMED(GetMnlAgn), PrintFactor, "Me Again\t:\t%.3lf\n"},
    {KEL_NAMED(GetMnlDgn), PrintFactor, "Me Dgain\t:\t%.3lf\n"},
    {KEL_NAMED(GetMinAgn), PrintFactor, "Ae Min Again\t:\t%.3lf\n"},
    {KEL_NAMED(GetMaxAgn), PrintFactor, "Ae Max Again\t:\t%.3lf\n"},
    {KEL_NAMED(GetMaxDgn), PrintFactor, "Ae Max Dgain\t:\t%.3lf\n"},
};

constexpr Readout kAwbValues[] = {
    {KEL_NAMED(GetMnlWbrGain), PrintFactor, "Manual Wbr\t:\t%.3lf\n"},
    {KEL_NAMED(GetMnlWbbGain), PrintFactor, "Manual Wbb\t:\t%.3lf\n"},
};

void PrintField(const FieldLine &line)
{
    uint8_t value = 0;
    if (line.get(&value) < 0)
        PrintFailure(line.name);
    else
        printf(line.format, value);
}

/// Prints one value line, or its failure text; returns the value.
double PrintValue(const Readout &line)
{
    const double value = line.read();
    if (value < 0.0)
        PrintFailure(line.name);
    else
        line.print(line.format, value);
    return value;
}

void PrintNrDnMode()
{
    unsigned nr = 0;
    unsigned dayNight = 0;
    if (GetNrDnMode(&nr, &dayNight) < 0) {
        PrintFailure("GetNrDnMode");
        return;
    }
    printf("Nr Mode\t\t:\t%u\n", nr);
    printf("Dn Mode\t\t:\t%u\n", dayNight);
}

void PrintAeStatus()
{
    puts("===================== Ae Status ====================");
    for (const FieldLine &line : kAeFields)
        PrintField(line);
    PrintNrDnMode();
    for (const Readout &line : kAeValues)
        PrintValue(line);
}

void PrintAwbStatus()
{
    puts("==================== Awb Status ====================");
    PrintField(kAwbField);
    for (const Readout &line : kAwbValues)
        PrintValue(line);
    puts("====================================================");
}

} // namespace

int InfoOut()
{
    puts("===================== InfoOut ======================");
    for (const Readout &line : kReadouts) {
        const double value = PrintValue(line);
        if (value < 0.0)
            return kel::TruncateToInt32(value);
    }
    return 0;
}

void ReadInfo()
{
    puts("ReadInfo...");
    InfoOut();
    PrintAeStatus();
    PrintAwbStatus();
}
