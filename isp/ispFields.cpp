// SPDX-License-Identifier: MIT
//
// One accessor for every row of the register map. The rows differ only in data: a getter, a setter and a
// readout do the work for all of them, and the accessors below are expanded from the map.
#include "isp/fieldMasks.h"
#include "kelisp/ispCXD3193AR.h"
#include "kelisp/sensorInfo.h"

#include <stddef.h>

SensorInfo gtSensorInfo;

static_assert(offsetof(SensorInfo, fps) == 24 && offsetof(SensorInfo, extGioEnable) == 32);
static_assert(offsetof(SensorInfo, pixelClockHz) == 40 && sizeof(SensorInfo) == 64,
              "the same on every machine");

namespace
{

enum class Setter : uint8_t { Plain, Rmw, Readout };

// The mirrors under the names that the map uses: their places in the record.
constexpr uint8_t none = 0; // no mirror stands there
constexpr uint8_t extGioEnable = offsetof(SensorInfo, extGioEnable);
constexpr uint8_t infoOut = offsetof(SensorInfo, infoOut);
constexpr uint8_t longExpFrames = offsetof(SensorInfo, longExpFrames);
constexpr uint8_t cisType = offsetof(SensorInfo, cisType);
constexpr uint8_t nrAuto = offsetof(SensorInfo, nrAuto);
constexpr uint8_t dayNightOn = offsetof(SensorInfo, dayNightOn);

/// A row of the map; four bytes, so that an accessor hands it on in one register.
struct Field {
    uint8_t reg;
    uint8_t high : 4;
    uint8_t low : 4;
    Setter setter;
    uint8_t mirror;

    constexpr uint8_t Mask() const { return static_cast<uint8_t>((0xFF >> (7 - high)) & (0xFF << low)); }
};

// ---- The map is checked when it is compiled

constexpr Field kFields[] = {
#define KEL_FIELD(reg, high, low, name, setter, mirror, ...) {reg, high, low, Setter::setter, mirror},
#define KEL_READOUT(reg, high, low, name, ...) {reg, high, low, Setter::Readout, none},
#include "kelisp/registerMap.def"
};

constexpr bool FieldsFitAndAscend()
{
    for (size_t i = 0; i < sizeof(kFields) / sizeof(kFields[0]); ++i) {
        const Field &field = kFields[i];
        if (field.high > 7 || field.low > field.high)
            return false;
        if (i == 0)
            continue;
        // Fields of one register stand from high bits to low and do not overlap.
        const Field &before = kFields[i - 1];
        if (field.reg < before.reg || (field.reg == before.reg && field.high >= before.low))
            return false;
    }
    return true;
}
static_assert(FieldsFitAndAscend(), "register map: order, width or overlap");

constexpr bool PlainSettersOwnTheirRegister()
{
    for (const Field &a : kFields)
        for (const Field &b : kFields)
            if (&a != &b && a.reg == b.reg && a.setter == Setter::Plain)
                return false;
    return true;
}
static_assert(PlainSettersOwnTheirRegister(),
              "register map: a plain setter would clear a neighbouring field");

constexpr bool EveryMirrorHasOneField()
{
    uint64_t seen = 0;
    for (const Field &field : kFields) {
        const uint64_t bit = uint64_t{1} << field.mirror;
        if (field.mirror != none && (seen & bit) != 0)
            return false;
        seen |= bit;
    }
    return seen == (uint64_t{0x3F} << extGioEnable | 1);
}
static_assert(EveryMirrorHasOneField(), "register map: mirrors");

/// 16-bit rows and blocks: `reg`, and how many registers.
struct Span {
    uint8_t reg;
    uint8_t length;
};

constexpr Span kSpans[] = {
#define KEL_WORD(reg, name, ...) {reg, 2},
#define KEL_READOUT_WORD(reg, bits, name, ...) {reg, 2},
#define KEL_BLOCK(reg, length, name, masks, ...) {reg, length},
#define KEL_STRETCH(reg, length, name, masks, ...) {reg, length},
#include "kelisp/registerMap.def"
};

constexpr bool SpansAscend()
{
    int end = 0;
    for (const Span &span : kSpans) {
        if (span.reg < end || span.reg + span.length > 0x100)
            return false;
        end = span.reg + span.length;
    }
    return true;
}
static_assert(SpansAscend(), "register map: words and blocks");

// ---- Bits kept by the accessors that move several registers

using namespace kel::masks;

constexpr int kPairRegs = 2;
constexpr int kTableRegs = 30;

const Masks *PairMasks(uint8_t startReg)
{
    if (startReg >= kPairsA4Reg && startReg < kPairA8First)
        return &pairA4;
    return startReg >= kPairA8First && startReg <= kPairA8Last ? &pairA8 : nullptr;
}

void CopyMasked(uint8_t *to, const uint8_t *from, int count, const Masks &masks)
{
    for (int i = 0; i < count; ++i)
        to[i] = from[i] & masks.of[i];
}

// ---- The work behind the accessors

/// The record keeps no more frames than one second holds: 30 per second with sensor type 6, 60 with type 7.
void HoldLongExpFrames()
{
    const uint8_t limit = gtSensorInfo.cisType == 6 ? 29 : gtSensorInfo.cisType == 7 ? 59 : 0xFF;
    if (gtSensorInfo.longExpFrames > limit)
        gtSensorInfo.longExpFrames = limit;
}

void StoreMirror(uint8_t mirror, uint8_t value)
{
    if (mirror == none)
        return;
    reinterpret_cast<uint8_t *>(&gtSensorInfo)[mirror] = value;
    if (mirror == longExpFrames)
        HoldLongExpFrames();
}

int GetField(Field field, uint8_t *value)
{
    uint8_t content = 0;
    const int status = CXD3193AR_Read(field.reg, &content, 1);
    if (status < 0)
        return status;
    *value = static_cast<uint8_t>((content & field.Mask()) >> field.low);
    StoreMirror(field.mirror, *value);
    return 0;
}

int SetField(Field field, const uint8_t *value)
{
    const uint8_t input = *value; // taken once: the caller's byte may be the mirror itself
    auto content = static_cast<uint8_t>((input << field.low) & field.Mask());
    if (field.setter == Setter::Rmw) {
        uint8_t old = 0;
        const int status = CXD3193AR_Read(field.reg, &old, 1);
        if (status < 0)
            return status;
        content |= static_cast<uint8_t>(old & ~field.Mask());
    }
    const int status = CXD3193AR_Write(field.reg, &content, 1);
    if (status < 0)
        return status;
    StoreMirror(field.mirror, input);
    return 0;
}

int GetBlock(uint8_t reg, int count, const Masks &masks, uint8_t *values)
{
    uint8_t content[kMaxBlock];
    const int status = CXD3193AR_Read(reg, content, count);
    if (status < 0)
        return status;
    CopyMasked(values, content, count, masks);
    return 0;
}

int SetBlock(uint8_t reg, int count, const Masks &masks, const uint8_t *values)
{
    uint8_t content[kMaxBlock];
    CopyMasked(content, values, count, masks);
    return CXD3193AR_Write(reg, content, count);
}

int GetWord(uint8_t reg, unsigned bits, uint16_t *value)
{
    uint8_t content[2];
    const int status = CXD3193AR_Read(reg, content, 2);
    if (status < 0)
        return status;
    const unsigned both = content[0] + content[1] * 256U;
    *value = static_cast<uint16_t>(both & ((1U << bits) - 1));
    return 0;
}

int SetWord(uint8_t reg, const uint16_t *value)
{
    const uint8_t content[2] = {static_cast<uint8_t>(*value), static_cast<uint8_t>(*value >> 8)};
    return CXD3193AR_Write(reg, content, 2);
}

/// Switches the information output back to the live readouts. The gate goes by the mirror, not by the
/// register: with a mirror of 0 this costs no transfer.
int CloseInfoGate()
{
    if (gtSensorInfo.infoOut == 0)
        return 0;
    const uint8_t readouts = 0;
    const int status = CXD3193AR_Set_InfoOut(&readouts);
    if (status < 0)
        return status;
    return gtSensorInfo.infoOut == 0 ? 0 : CXD3193AR_GATE_OPEN;
}

int ReadOutField(Field field, uint8_t *value)
{
    const int status = CloseInfoGate();
    return status < 0 ? status : GetField(field, value);
}

int ReadOutWord(uint8_t reg, unsigned bits, uint16_t *value)
{
    const int status = CloseInfoGate();
    return status < 0 ? status : GetWord(reg, bits, value);
}

constexpr Field kNrDn = {0x53, 1, 0, Setter::Plain, none};

} // namespace

// ---- The accessors

#define KEL_FIELD(reg, high, low, name, setter, mirror, ...)                                                 \
    int CXD3193AR_Get_##name(uint8_t *value)                                                                 \
    {                                                                                                        \
        return GetField({reg, high, low, Setter::setter, mirror}, value);                                    \
    }                                                                                                        \
    int CXD3193AR_Set_##name(const uint8_t *value)                                                           \
    {                                                                                                        \
        return SetField({reg, high, low, Setter::setter, mirror}, value);                                    \
    }
#define KEL_WORD(reg, name, ...)                                                                             \
    int CXD3193AR_Get_##name(uint16_t *value)                                                                \
    {                                                                                                        \
        return GetWord(reg, 16, value);                                                                      \
    }                                                                                                        \
    int CXD3193AR_Set_##name(const uint16_t *value)                                                          \
    {                                                                                                        \
        return SetWord(reg, value);                                                                          \
    }
#define KEL_BLOCK(reg, length, name, masks, ...)                                                             \
    int CXD3193AR_Get_##name(uint8_t *values)                                                                \
    {                                                                                                        \
        return GetBlock(reg, length, masks, values);                                                         \
    }                                                                                                        \
    int CXD3193AR_Set_##name(const uint8_t *values)                                                          \
    {                                                                                                        \
        return SetBlock(reg, length, masks, values);                                                         \
    }
#define KEL_READOUT(reg, high, low, name, ...)                                                               \
    int CXD3193AR_Info_##name(uint8_t *value)                                                                \
    {                                                                                                        \
        return ReadOutField({reg, high, low, Setter::Readout, none}, value);                                 \
    }
#define KEL_READOUT_WORD(reg, bits, name, ...)                                                               \
    int CXD3193AR_Info_##name(uint16_t *value)                                                               \
    {                                                                                                        \
        return ReadOutWord(reg, bits, value);                                                                \
    }
#include "kelisp/registerMap.def"

int CXD3193AR_Get_NrDnMode(uint8_t *nr, uint8_t *dayNight)
{
    uint8_t both = 0;
    const int status = GetField(kNrDn, &both);
    if (status < 0)
        return status;
    *nr = both & 1;
    *dayNight = both >> 1;
    StoreMirror(nrAuto, *nr);
    StoreMirror(dayNightOn, *dayNight);
    return 0;
}

int CXD3193AR_Set_NrDnMode(const uint8_t *nr, const uint8_t *dayNight)
{
    const uint8_t newNr = *nr;
    const uint8_t newDayNight = *dayNight;
    const auto sum = static_cast<uint8_t>(newNr + 2 * newDayNight);
    if (sum > 3)
        return CXD3193AR_FAILED;
    const int status = SetField(kNrDn, &sum);
    if (status < 0)
        return status;
    StoreMirror(nrAuto, newNr);
    StoreMirror(dayNightOn, newDayNight);
    return 0;
}

int CXD3193AR_Get_PairA4(uint8_t startReg, uint8_t *values)
{
    uint8_t content[kPairRegs];
    const int status = CXD3193AR_Read(startReg, content, kPairRegs);
    if (status < 0)
        return status;
    const Masks *masks = PairMasks(startReg);
    if (masks == nullptr)
        return CXD3193AR_FAILED;
    CopyMasked(values, content, kPairRegs, *masks);
    return 0;
}

int CXD3193AR_Set_PairA4(uint8_t startReg, const uint8_t *values)
{
    const Masks *masks = PairMasks(startReg);
    return masks == nullptr ? CXD3193AR_FAILED : SetBlock(startReg, kPairRegs, *masks, values);
}

int CXD3193AR_Get_Tbl30(uint8_t startReg, uint8_t *values)
{
    return GetBlock(startReg, kTableRegs, tbl30, values);
}

int CXD3193AR_Set_Tbl30(uint8_t startReg, const uint8_t *values)
{
    return SetBlock(startReg, kTableRegs, tbl30, values);
}

int CXD3193AR_Set_YGamma(const uint8_t *values)
{
    return CXD3193AR_Set_Tbl30(kYGammaReg, values);
}
