// SPDX-License-Identifier: MIT
//
// Fields by name, their codes in the registers, and values as people write them.
#include "app/camCtl/fields.h"

#include "isp/exposureRules.h"
#include "isp/fieldMasks.h"
#include "isp/sensorPresets.h"
#include "kelisp/ispCXD3193AR.h"

#include <ctype.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

namespace
{

using kel::Unit;

using namespace kel::masks; // under the names that the map uses

// A line and the offset are the same for both sensor types.
constexpr double kLineUs = kel::kSensorPresets[0].lineTimeUs;
static_assert(kel::kSensorPresets[1].lineTimeUs == kLineUs);

struct UnitRow {
    Unit unit;
    const char *name;
    const char *format; // of its values, for people
};

constexpr UnitRow kUnits[] = {
    {Unit::Plain, "", ""},
    {Unit::Switch, "switch", ""},
    {Unit::SensorType, "sensor type", ""},
    {Unit::Flicker, "lamps", ""},
    {Unit::Lines, "lines", "%.2f us"},
    {Unit::Frames, "frames", ""},
    {Unit::AnalogGain, "gain", "%.3fx"},
    {Unit::DigitalGain, "gain", "%.3fx"},
    {Unit::WhiteGain, "gain", "%.3fx"},
    {Unit::Ev, "EV", "%+.2fEV"},
    {Unit::LiveAnalogGain, "gain", "%.3fx"},
    {Unit::LiveDigitalGain, "gain", "%.3fx"},
    {Unit::RawLevel, "level", "%.1f%%"},
    {Unit::DayNight, "day or night", ""},
};

const UnitRow &RowOf(Unit unit)
{
    for (const UnitRow &row : kUnits)
        if (row.unit == unit)
            return row;
    return kUnits[0];
}

bool IsGain(Unit unit)
{
    return unit == Unit::AnalogGain || unit == Unit::DigitalGain || unit == Unit::WhiteGain;
}

/// The whole text as a number followed by one of the suffixes; which one, or -1.
template <size_t count>
int ParseWithSuffix(const char *text, const char *const (&suffixes)[count], double *number)
{
    char *end = nullptr;
    if (!isdigit(static_cast<unsigned char>(text[text[0] == '-' || text[0] == '+' ? 1 : 0])))
        return -1; // neither blanks nor "inf" nor "nan"
    *number = strtod(text, &end);
    if (strcspn(text, "xX") < static_cast<size_t>(end - text))
        return -1; // hexadecimal digits are a code's
    for (size_t i = 0; i < count; ++i)
        if (isfinite(*number) && strcasecmp(end, suffixes[i]) == 0)
            return static_cast<int>(i);
    return -1;
}

/// The code whose value is nearest; false when `wanted` lies beyond the first or the last value by half a step and more.
bool NearestCode(const camCtl::Field &field, double wanted, uint32_t *code)
{
    bool found = false;
    double best = 0.0;
    double low = 0.0;
    double high = 0.0;
    for (uint32_t at = 0; at <= field.MaxCode(); ++at) {
        double value = 0.0;
        if (!camCtl::PhysicalOf(field.unit, at, &value))
            continue;
        if (!found || value < low)
            low = value;
        if (!found || value > high)
            high = value;
        if (!found || fabs(value - wanted) < best) {
            best = fabs(value - wanted);
            *code = at;
        }
        found = true;
    }
    return found && wanted >= low - 1e-9 && wanted <= high + 1e-9;
}

bool ParsePhysical(Unit unit, const char *text, double *value)
{
    static constexpr const char *kEv[] = {"EV"};
    if (unit == Unit::Lines)
        return camCtl::ParseTimeUs(text, value);
    if (unit == Unit::Ev)
        return ParseWithSuffix(text, kEv, value) >= 0;
    return IsGain(unit) && camCtl::ParseGain(text, value);
}

} // namespace

namespace camCtl
{

// The sensor type and the information output are not saved; the fields of 0x55 to 0x5C stand for their block.
#define KEL_FIELD(reg, high, low, name, setter, mirror, group, unit, meaning)                                \
    {#name,      reg,    1,       high,   low, false, false, reg != 0x0E && reg != 0xCC,                     \
     Unit::unit, #group, nullptr, meaning},
#define KEL_WORD(reg, name, group, unit, meaning)                                                            \
    {#name, reg, 2, 15, 0, false, false, true, Unit::unit, #group, nullptr, meaning},
#define KEL_BLOCK(reg, length, name, masks, group, unit, meaning)                                            \
    {#name, reg, length, 7, 0, false, reg == 0x55, true, Unit::unit, #group, masks.of, meaning},
#define KEL_STRETCH(reg, length, name, masks, group, unit, meaning)                                          \
    {#name, reg, length, 7, 0, false, false, reg != kPairsA4Reg, Unit::unit, #group, masks.of, meaning},
#define KEL_READOUT(reg, high, low, name, group, unit, meaning)                                              \
    {#name, reg, 1, high, low, true, false, false, Unit::unit, #group, nullptr, meaning},
#define KEL_READOUT_WORD(reg, bits, name, group, unit, meaning)                                              \
    {#name, reg, 2, bits - 1, 0, true, false, false, Unit::unit, #group, nullptr, meaning},

constexpr Field kRows[] = {
#include "kelisp/registerMap.def"
};

const Field *const kFields = kRows;
const size_t kFieldCount = sizeof(kRows) / sizeof(kRows[0]);

const Field *FindField(const char *name)
{
    for (const Field &field : kRows)
        if (strcasecmp(field.name, name) == 0)
            return &field;
    return nullptr;
}

const char *NearestName(const char *name)
{
    // Edit distance, one row at a time; names have 12 characters at most.
    const size_t length = strlen(name);
    size_t best = 4; // more changes than that are another word
    const char *nearest = nullptr;
    unsigned char row[33];
    if (length >= sizeof(row))
        return nullptr;
    for (const Field &field : kRows) {
        for (size_t i = 0; i <= length; ++i)
            row[i] = static_cast<unsigned char>(i);
        for (size_t j = 1; field.name[j - 1] != '\0'; ++j) {
            unsigned char diagonal = row[0];
            row[0] = static_cast<unsigned char>(j);
            for (size_t i = 1; i <= length; ++i) {
                const bool same = tolower(static_cast<unsigned char>(field.name[j - 1])) ==
                                  tolower(static_cast<unsigned char>(name[i - 1]));
                unsigned cost = diagonal + (same ? 0U : 1U);
                diagonal = row[i];
                cost = cost < row[i] + 1U ? cost : row[i] + 1U;
                cost = cost < row[i - 1] + 1U ? cost : row[i - 1] + 1U;
                row[i] = static_cast<unsigned char>(cost);
            }
        }
        if (row[length] < best) {
            best = row[length];
            nearest = field.name;
        }
    }
    return nearest;
}

bool PhysicalOf(Unit unit, uint32_t code, double *value)
{
    switch (unit) {
    case Unit::Lines:
        *value = code * kLineUs - kel::kOffsetTimeUs;
        return code > 0;
    case Unit::AnalogGain:
        *value = code < CXD3193AR_AGAIN_ROWS ? gtAgainTable[code].gain : 0.0;
        return code < CXD3193AR_AGAIN_ROWS;
    case Unit::WhiteGain:
        *value = gtWbTable[code & 0xFF].gain;
        return true;
    case Unit::DigitalGain:
        *value = CXD3193AR_RegValue2Dgain(code);
        return true;
    case Unit::Ev:
        *value = CXD3193AR_RegValue2Ev(code);
        return *value > -90.0;
    case Unit::LiveAnalogGain:
        *value = code > 0 ? kel::LiveAnalogGain(static_cast<uint16_t>(code)) : 0.0;
        return code > 0;
    case Unit::LiveDigitalGain:
        *value = kel::LiveDigitalGain(static_cast<uint16_t>(code));
        return true;
    case Unit::RawLevel:
        *value = code * 100 / kel::kRawFullScale;
        return true;
    default:
        return false;
    }
}

void DescribeCode(const Field &field, uint32_t code, char *text, size_t size)
{
    double value = 0.0;
    const bool stands = PhysicalOf(field.unit, code, &value);
    kel::DescribeCode(field.unit, code, stands ? &value : nullptr, text, size);
}

const char *UnitName(Unit unit)
{
    return RowOf(unit).name;
}

uint32_t CodeOf(const Field &field, const uint8_t *registers)
{
    uint32_t content = registers[field.reg];
    if (field.registers == 2)
        content |= static_cast<uint32_t>(registers[field.reg + 1]) << 8;
    return content >> field.low & field.MaxCode();
}

void PutCode(const Field &field, uint32_t code, uint8_t *registers)
{
    const uint32_t mask = field.MaxCode() << field.low;
    for (unsigned i = 0; i < field.registers; ++i) {
        uint8_t &content = registers[field.reg + i];
        const auto kept = static_cast<uint8_t>(content & ~(mask >> (8 * i)));
        content = static_cast<uint8_t>(kept | (code << field.low >> (8 * i) & mask >> (8 * i)));
    }
}

bool ParseTimeUs(const char *text, double *us)
{
    static constexpr const char *kSuffixes[] = {"us", "ms", "s", "m", "h"};
    static constexpr double kUs[] = {1.0, 1e3, 1e6, 60e6, 3600e6};
    double divisor = 1.0;
    const char *slash = strchr(text, '/');
    if (slash != nullptr) {
        if (strncmp(text, "1/", 2) != 0)
            return false;
        text = slash + 1;
    }
    const int suffix = ParseWithSuffix(text, kSuffixes, slash != nullptr ? &divisor : us);
    if (suffix < 0 || divisor <= 0.0 || (slash == nullptr && *us < 0.0))
        return false;
    *us = (slash != nullptr ? 1.0 / divisor : *us) * kUs[suffix];
    return true;
}

bool ParseGain(const char *text, double *gain)
{
    static constexpr const char *kSuffixes[] = {"x", "dB"};
    const int suffix = ParseWithSuffix(text, kSuffixes, gain);
    if (suffix == 1)
        *gain = CXD3193AR_Db2Gain(*gain);
    return suffix >= 0;
}

void DescribeRange(const Field &field, char *text, size_t size)
{
    if (field.IsBlock()) {
        snprintf(text, size, "%u bytes", field.registers);
        return;
    }
    double low = 0.0;
    double high = 0.0;
    uint32_t first = 0;
    uint32_t last = field.MaxCode();
    while (last > 0 && RowOf(field.unit).format[0] != '\0' && !PhysicalOf(field.unit, last, &high))
        --last;
    while (first < last && RowOf(field.unit).format[0] != '\0' && !PhysicalOf(field.unit, first, &low))
        ++first;
    if (field.unit == Unit::Lines)
        first = 0; // no exposure
    const int length = snprintf(text, size, "%u to %u", first, last);
    if (RowOf(field.unit).format[0] == '\0')
        return;
    char values[48];
    snprintf(values, sizeof(values), RowOf(field.unit).format, low);
    const size_t used = static_cast<size_t>(length);
    const int added = snprintf(text + used, size - used, ", %s to ", values);
    snprintf(text + used + static_cast<size_t>(added), size - used - static_cast<size_t>(added),
             RowOf(field.unit).format, high);
}

bool ParseCode(const char *text, char **end, unsigned long *code)
{
    const bool isHex = text[0] == '0' && tolower(static_cast<unsigned char>(text[1])) == 'x' &&
                       isxdigit(static_cast<unsigned char>(text[2]));
    *code = strtoul(text, end, isHex ? 16 : 10);
    return isdigit(static_cast<unsigned char>(text[0])) != 0;
}

bool ParseValue(const Field &field, const char *text, uint32_t *code, char *why, size_t size)
{
    char range[96];
    DescribeRange(field, range, sizeof(range));
    for (const kel::CodeWord &row : kel::kCodeWords) {
        if (row.unit == field.unit && strcasecmp(row.word, text) == 0) {
            *code = row.code;
            return true;
        }
    }
    char *end = nullptr;
    unsigned long number = 0;
    if (ParseCode(text, &end, &number) && *end == '\0') {
        *code = static_cast<uint32_t>(number);
        snprintf(why, size, "%.40s is outside %s", text, range);
        if (number > field.MaxCode())
            return false;
        double value = 0.0; // a code that stands for nothing is outside the field's range
        return RowOf(field.unit).format[0] == '\0' || field.unit == Unit::Lines ||
               PhysicalOf(field.unit, *code, &value);
    }
    double wanted = 0.0;
    if (!ParsePhysical(field.unit, text, &wanted)) {
        snprintf(why, size, "%.40s is no value; it takes %s", text, range);
        return false;
    }
    snprintf(why, size, "%.40s is outside %s", text, range);
    return NearestCode(field, wanted, code);
}

} // namespace camCtl
