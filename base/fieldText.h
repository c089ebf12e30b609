// SPDX-License-Identifier: MIT
//
// How the value of a register field reads, by the unit that the register map gives it: "gain 2.000",
// "16643.61 us, 1/60 s", "on". What a code stands for is computed by the caller, so that all who show values say the
// same of the same one, and each works it out by itself.
#ifndef CAMSTAT_BASE_FIELD_TEXT_H
#define CAMSTAT_BASE_FIELD_TEXT_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

namespace kel
{

/// The units of the register map.
enum class Unit : uint8_t {
    Plain,
    Switch,
    SensorType,
    Flicker,
    Lines,
    Frames,
    AnalogGain,
    DigitalGain,
    WhiteGain,
    Ev,
    LiveAnalogGain,
    LiveDigitalGain,
    RawLevel,
    DayNight
};

/// A code that its unit gives a word.
struct CodeWord {
    Unit unit;
    uint32_t code;
    const char *word; ///< as people also write it in a setting
    const char *text;
};

inline constexpr CodeWord kCodeWords[] = {
    {Unit::Switch, 0, "off", "off"},
    {Unit::Switch, 1, "on", "on"},
    {Unit::SensorType, 6, "30fps", "IMX076, 30 fps"},
    {Unit::SensorType, 7, "60fps", "IMX076, 60 fps"},
    {Unit::Flicker, 0, "off", "off"},
    {Unit::Flicker, 4, "60Hz", "for 60 Hz lamps"},
    {Unit::Flicker, 6, "50Hz", "for 50 Hz lamps"},
    {Unit::DayNight, 0, "day", "day"},
    {Unit::DayNight, 1, "night", "night"},
    {Unit::Frames, 0, "off", "no long exposure"},
};

inline void DescribeTime(double us, char *text, size_t size)
{
    if (us <= 0.0)
        snprintf(text, size, "no exposure");
    else if (us < 1000000.0 / 1.5)
        snprintf(text, size, "%.2f us, 1/%.0f s", us, 1000000.0 / us);
    else
        snprintf(text, size, "%.2f us, %.1f s", us, us / 1000000.0);
}

/// Writes what a code means, or an empty text when nothing is known. `value` is what it stands for: microseconds, a
/// gain factor, EV, percent of full scale; null when the code stands for nothing.
inline void DescribeCode(Unit unit, uint32_t code, const double *value, char *text, size_t size)
{
    text[0] = '\0';
    for (const CodeWord &row : kCodeWords)
        if (row.unit == unit && row.code == code)
            snprintf(text, size, "%s", row.text);
    if (text[0] != '\0')
        return;
    switch (unit) {
    case Unit::Plain:
    case Unit::Flicker:
    case Unit::Switch:
    case Unit::DayNight:
        break;
    case Unit::SensorType:
        snprintf(text, size, "no IMX076");
        break;
    case Unit::Frames:
        snprintf(text, size, "%u further frame%s", code, code == 1 ? "" : "s");
        break;
    case Unit::Lines:
        DescribeTime(value != nullptr ? *value : 0.0, text, size);
        break;
    case Unit::Ev:
        if (value != nullptr)
            snprintf(text, size, "%+.2f EV", *value);
        else
            snprintf(text, size, "outside 6 to 26");
        break;
    case Unit::RawLevel:
        if (value != nullptr)
            snprintf(text, size, "%.1f %% of full scale", *value);
        break;
    case Unit::AnalogGain:
        if (value == nullptr)
            snprintf(text, size, "beyond the gain table");
        [[fallthrough]];
    case Unit::DigitalGain:
    case Unit::WhiteGain:
    case Unit::LiveAnalogGain:
    case Unit::LiveDigitalGain:
        if (value != nullptr)
            snprintf(text, size, "gain %.3f", *value);
        break;
    }
}

} // namespace kel

#endif
