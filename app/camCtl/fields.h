// SPDX-License-Identifier: MIT
//
// The register map by name: what camCtl's commands call a field, where it lies, what its code means and which
// values it takes. The rows come from the register map.
#ifndef CAMSTAT_APP_CAM_CTL_FIELDS_H
#define CAMSTAT_APP_CAM_CTL_FIELDS_H

#include "base/fieldText.h"

#include <stddef.h>
#include <stdint.h>

namespace camCtl
{

struct Field {
    const char *name;
    uint8_t reg;
    uint8_t registers; ///< 1; 2 for a 16-bit field, low byte first; more for a block of bytes
    uint8_t high;      ///< highest and lowest bit; of each register in a block
    uint8_t low;
    bool live;  ///< a readout that the camera alone changes
    bool alias; ///< its registers have fields of their own, which `all`, dump and save show instead
    bool fixed; ///< saved and loaded; not so the sensor type, the information output and the pairs
    kel::Unit unit;
    const char *group;
    const uint8_t *masks; ///< of a block: the bits kept of each register
    const char *meaning;

    constexpr bool IsBlock() const { return registers > 2; }
    constexpr uint8_t Last() const { return static_cast<uint8_t>(reg + registers - 1); }
    constexpr uint32_t MaxCode() const { return (2U << (high - low)) - 1U; }
    /// The field's bits in one of its registers.
    constexpr unsigned MaskIn(unsigned index) const
    {
        return IsBlock() ? masks[index] : MaxCode() << low >> (8 * index) & 0xFF;
    }
};

extern const Field *const kFields;
extern const size_t kFieldCount;

/// The field with this name, whatever the case; null when there is none.
const Field *FindField(const char *name);
/// The name that is most like an unknown one; null when none is.
const char *NearestName(const char *name);

/// What a code stands for, as the library computes it: microseconds, a gain factor, EV, percent of full scale. False
/// when it stands for nothing.
bool PhysicalOf(kel::Unit unit, uint32_t code, double *value);
/// What a code means, in words; an empty text when nothing is known.
void DescribeCode(const Field &field, uint32_t code, char *text, size_t size);
/// The unit's name; an empty text for plain codes.
const char *UnitName(kel::Unit unit);

/// The groups of the map.
inline constexpr char kGroupNames[] = "@live @ae @exposure @awb @picture @daynight @noise @other";

/// The live readouts and the reflect registers: nothing may write there.
constexpr bool IsCamerasOwn(unsigned reg)
{
    return reg >= 0x10 && reg <= 0x22;
}

/// A field's code out of all 256 registers; fields of one or two registers only.
uint32_t CodeOf(const Field &field, const uint8_t *registers);
/// Puts a code into the registers; all other bits stay.
void PutCode(const Field &field, uint32_t code, uint8_t *registers);

/// A code in decimal or 0x; false when the text begins with none.
bool ParseCode(const char *text, char **end, unsigned long *code);

/// Reads a value: a code in decimal or 0x, or a value in the field's unit ("2.0x", "6dB", "1/30s", "10ms", "-0.5EV",
/// "on"). The nearest step counts. On failure `why` tells what the field takes.
bool ParseValue(const Field &field, const char *text, uint32_t *code, char *why, size_t size);

/// The range of values that the field takes, for people: "0 to 192, gain 1.000 to 7.953".
void DescribeRange(const Field &field, char *text, size_t size);

/// A time with its unit: us, ms, s, m, h, or a fraction such as 1/30s; in microseconds.
bool ParseTimeUs(const char *text, double *us);
/// A gain such as "2.0x" or "6dB" as a factor.
bool ParseGain(const char *text, double *gain);

} // namespace camCtl

#endif
