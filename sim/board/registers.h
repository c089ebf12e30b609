// SPDX-License-Identifier: MIT
//
// What the registers of the camera processor are called and what their values
// mean, for people: the trace and the scene. Names, bits and
// units come from the register map, the words for a value from base/fieldText.h; what a code stands for is the chip's,
// computed here.
#ifndef SIM_BOARD_REGISTERS_H
#define SIM_BOARD_REGISTERS_H

#include "base/fieldText.h"

#include <stddef.h>
#include <stdint.h>

namespace sim
{

using kel::Unit;

/// A named group of bits in one register, a 16-bit value in two, or a block of registers.
struct Field {
    const char *name;
    const char *meaning;
    uint8_t reg;
    uint8_t high; ///< highest and lowest bit
    uint8_t low;
    uint8_t registers; ///< 1; 2 for a 16-bit value, low byte first; more for a block of bytes
    bool live;         ///< a readout that the camera alone changes
    Unit unit;
};

/// A camera's line time and offset, the same for both sensor types, in microseconds.
inline constexpr double kLineUs = 1650.0 / 54.0;
inline constexpr double kOffsetUs = 9.17;

/// The nearest whole number to a positive value.
inline uint32_t RoundNear(double value)
{
    const double shifted = value + 0.5;
    return static_cast<uint32_t>(shifted);
}

/// All fields in address order, wider ones before the fields that they contain.
const Field *FieldsBegin();
const Field *FieldsEnd();

/// The field with this name, whatever the case; null when there is none.
const Field *FindField(const char *name);

/// The field's value out of all 256 registers; fields of one or two registers only.
uint32_t FieldValue(const Field &field, const uint8_t *registers);

/// What the value of a field means, for example "gain 2.000"; an empty text when nothing is known.
void DescribeValue(const Field &field, uint32_t value, char *text, size_t size);

/// The gains that codes stand for, as the chip computes them: in octaves of 64 codes.
double AnalogGainOfCode(uint32_t code);
double WhiteGainOfCode(uint32_t code);
/// The code of the largest gain that is not above `gain`.
uint8_t WhiteCodeOfGain(double gain);
/// The exposure compensation of an EV code as a factor of light: 1.0 for EV 0.
double EvFactor(uint32_t code);

} // namespace sim

#endif
