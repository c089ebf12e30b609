// SPDX-License-Identifier: MIT
//
// The register map as data, and the chip's units in words. The arithmetic is the simulator's own.
#include "sim/board/registers.h"

#include <stdio.h>
#include <string.h>
#include <strings.h>

namespace sim
{

namespace
{

constexpr bool Same(const char *a, const char *b)
{
    while (*a != '\0' && *a == *b) {
        ++a;
        ++b;
    }
    return *a == *b;
}

struct NamedUnit {
    const char *name;
    Unit unit;
};

constexpr NamedUnit kUnits[] = {
    {"CisType", Unit::SensorType},  {"DnStatus", Unit::DayNight},      {"LngExpFrm", Unit::Frames},
    {"ExpTime", Unit::Lines},       {"AnlGain", Unit::LiveAnalogGain}, {"DgtlGain", Unit::LiveDigitalGain},
    {"WbbGain", Unit::WhiteGain},   {"WbrGain", Unit::WhiteGain},      {"RawAvg", Unit::RawLevel},
    {"AeSwitch", Unit::Switch},     {"AeFlickMode", Unit::Flicker},    {"AeMinAgc", Unit::AnalogGain},
    {"AeMaxAgc", Unit::AnalogGain}, {"AeMaxDgn", Unit::DigitalGain},   {"AeExpHldH", Unit::Switch},
    {"AeHoldH", Unit::Switch},      {"MeExpTim", Unit::Lines},         {"MnlAgn", Unit::AnalogGain},
    {"MnlDgn", Unit::DigitalGain},  {"AeMaxExpH", Unit::Switch},       {"MirUseH", Unit::Switch},
    {"AutoLgExpH", Unit::Switch},   {"LongExp", Unit::Frames},         {"WbAutoH", Unit::Switch},
    {"WbHoldH", Unit::Switch},      {"MwbR", Unit::WhiteGain},         {"MwbB", Unit::WhiteGain},
    {"DyNgtOnH", Unit::Switch},     {"NrAutoH", Unit::Switch},         {"AccAutoH", Unit::Switch},
    {"AeEvSet", Unit::Ev},          {"RegCA_3", Unit::Switch},         {"RegCA_2", Unit::Switch},
    {"ExtPrstH", Unit::Switch},
};

constexpr Unit UnitOf(const char *name)
{
    for (const NamedUnit &named : kUnits)
        if (Same(named.name, name))
            return named.unit;
    return Unit::Plain;
}

#define KEL_FIELD(reg, high, low, name, setter, mirror, meaning)                                             \
    {#name, meaning, reg, high, low, 1, false, UnitOf(#name)},
#define KEL_WORD(reg, name, meaning) {#name, meaning, reg, 15, 0, 2, false, UnitOf(#name)},
#define KEL_BLOCK(reg, length, name, masks, meaning) {#name, meaning, reg, 7, 0, length, false, Unit::Plain},
#define KEL_READOUT(reg, high, low, name, meaning) {#name, meaning, reg, high, low, 1, true, UnitOf(#name)},
#define KEL_READOUT_WORD(reg, bits, name, meaning) {#name, meaning, reg, bits - 1, 0, 2, true, UnitOf(#name)},

constexpr Field kFields[] = {
#include "kelisp/registerMap.def"
    {"YGamma", "luminance gamma curve", 0x75, 7, 0, 30, false, Unit::Plain},
    {"PairA4", "overlapping pairs of settings", 0xA4, 7, 0, 9, false, Unit::Plain},
    {"Reflect", "groups that are still being taken over", 0x20, 7, 0, 3, true, Unit::Plain},
};

const char *OnOff(uint32_t value)
{
    return value != 0 ? "on" : "off";
}

void DescribeLines(uint32_t lines, char *text, size_t size)
{
    const double us = lines * kLineUs - kOffsetUs;
    if (us <= 0.0)
        snprintf(text, size, "no exposure");
    else if (us < 1000000.0 / 1.5)
        snprintf(text, size, "%.2f us, 1/%u s", us, RoundNear(1000000.0 / us));
    else
        snprintf(text, size, "%.2f us, %.1f s", us, us / 1000000.0);
}

// 2^(exponent) for the octaves of the gain codes.
double Octave(uint32_t exponent)
{
    return static_cast<double>(1U << exponent);
}

} // namespace

const Field *FieldsBegin()
{
    return kFields;
}
const Field *FieldsEnd()
{
    return kFields + sizeof(kFields) / sizeof(kFields[0]);
}

const Field *FindField(const char *name)
{
    for (const Field &field : kFields)
        if (strcasecmp(field.name, name) == 0)
            return &field;
    return nullptr;
}

uint32_t FieldValue(const Field &field, const uint8_t *registers)
{
    uint32_t value = registers[field.reg];
    if (field.registers == 2)
        value |= static_cast<uint32_t>(registers[field.reg + 1]) << 8;
    return (value >> field.low) & ((2U << (field.high - field.low)) - 1U);
}

double AnalogGainOfCode(uint32_t code)
{
    if (code >= 192)
        return code == 192 ? 7.953 : 0.0; // the table ends one step short of 8; higher codes mean nothing
    return Octave(code / 64) * 128.0 / (128.0 - code % 64);
}

double WhiteGainOfCode(uint32_t code)
{
    return Octave(code / 64) * (64.0 + code % 64) / 128.0;
}

uint8_t WhiteCodeOfGain(double gain)
{
    uint32_t code = 255;
    while (code > 0 && WhiteGainOfCode(code) > gain + 1e-9)
        --code;
    return static_cast<uint8_t>(code);
}

double EvFactor(uint32_t code)
{
    constexpr double kFifth = 1.148698354997035;   // 2^(1/5)
    constexpr double kQuarter = 1.189207115002721; // 2^(1/4)
    double factor = 1.0;
    for (uint32_t step = 16; step < code && step < 26; ++step)
        factor *= kFifth;
    for (uint32_t step = 16; step > code && step > 6; --step)
        factor /= kQuarter;
    return factor;
}

void DescribeValue(const Field &field, uint32_t value, char *text, size_t size)
{
    text[0] = '\0';
    switch (field.unit) {
    case Unit::Plain:
        break;
    case Unit::Switch:
        snprintf(text, size, "%s", OnOff(value));
        break;
    case Unit::SensorType:
        snprintf(text, size, "%s",
                 value == 6   ? "IMX076, 30 fps"
                 : value == 7 ? "IMX076, 60 fps"
                              : "no IMX076");
        break;
    case Unit::Flicker:
        snprintf(text, size, "%s",
                 value == 6   ? "for 50 Hz lamps"
                 : value == 4 ? "for 60 Hz lamps"
                 : value == 0 ? "off"
                              : "");
        break;
    case Unit::Lines:
        DescribeLines(value, text, size);
        break;
    case Unit::Frames:
        if (value > 0)
            snprintf(text, size, "%u further frame%s", value, value == 1 ? "" : "s");
        else
            snprintf(text, size, "no long exposure");
        break;
    case Unit::AnalogGain:
        if (value > 192)
            snprintf(text, size, "beyond the gain table");
        else
            snprintf(text, size, "gain %.3f", AnalogGainOfCode(value));
        break;
    case Unit::DigitalGain:
        snprintf(text, size, "gain %.3f", value / 8.0);
        break;
    case Unit::WhiteGain:
        snprintf(text, size, "gain %.3f", WhiteGainOfCode(value));
        break;
    case Unit::Ev:
        if (value < 6 || value > 26)
            snprintf(text, size, "outside 6 to 26");
        else
            snprintf(text, size, "%+.2f EV", (static_cast<int>(value) - 16) * (value < 16 ? 0.25 : 0.2));
        break;
    case Unit::LiveAnalogGain:
        if (value > 0)
            snprintf(text, size, "gain %.3f", 4096.0 / value);
        break;
    case Unit::LiveDigitalGain:
        snprintf(text, size, "gain %.3f", value / 32.0);
        break;
    case Unit::RawLevel:
        snprintf(text, size, "%.1f %% of full scale", value / 40.96);
        break;
    case Unit::DayNight:
        snprintf(text, size, "%s", value != 0 ? "night" : "day");
        break;
    }
}

} // namespace sim
