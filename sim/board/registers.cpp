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

#define KEL_FIELD(reg, high, low, name, setter, mirror, group, unit, meaning)                                \
    {#name, meaning, reg, high, low, 1, false, Unit::unit},
#define KEL_WORD(reg, name, group, unit, meaning) {#name, meaning, reg, 15, 0, 2, false, Unit::unit},
#define KEL_BLOCK(reg, length, name, masks, group, unit, meaning)                                            \
    {#name, meaning, reg, 7, 0, length, false, Unit::unit},
#define KEL_STRETCH(...) KEL_BLOCK(__VA_ARGS__)
#define KEL_READOUT(reg, high, low, name, group, unit, meaning)                                              \
    {#name, meaning, reg, high, low, 1, true, Unit::unit},
#define KEL_READOUT_WORD(reg, bits, name, group, unit, meaning)                                              \
    {#name, meaning, reg, bits - 1, 0, 2, true, Unit::unit},

constexpr Field kFields[] = {
#include "kelisp/registerMap.def"
    {"Reflect", "groups that are still being taken over", 0x20, 7, 0, 3, true, Unit::Plain},
};

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

void DescribeValue(const Field &field, uint32_t code, char *text, size_t size)
{
    double value = 0.0;
    bool stands = true;
    switch (field.unit) {
    case Unit::Lines:
        value = code * kLineUs - kOffsetUs;
        break;
    case Unit::AnalogGain:
        value = AnalogGainOfCode(code);
        stands = code <= 192;
        break;
    case Unit::DigitalGain:
        value = code / 8.0;
        break;
    case Unit::WhiteGain:
        value = WhiteGainOfCode(code);
        break;
    case Unit::Ev:
        value = (static_cast<int>(code) - 16) * (code < 16 ? 0.25 : 0.2);
        stands = code >= 6 && code <= 26;
        break;
    case Unit::LiveAnalogGain:
        value = code > 0 ? 4096.0 / code : 0.0;
        stands = code > 0;
        break;
    case Unit::LiveDigitalGain:
        value = code / 32.0;
        break;
    case Unit::RawLevel:
        value = code / 40.96;
        break;
    default:
        stands = false;
    }
    kel::DescribeCode(field.unit, code, stands ? &value : nullptr, text, size);
}

} // namespace sim
