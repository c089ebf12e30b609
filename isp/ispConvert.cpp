// SPDX-License-Identifier: MIT
//
// Register codes to physical units and back: gain tables, digital gain, exposure compensation. Pure
// functions; the exposure-time rules are where they are used, in ispExposure.cpp and ispReadout.cpp.
#include "kelisp/ispCXD3193AR.h"

#include "base/numbers.h"

namespace
{

constexpr int kCodesPerOctave = 64;

constexpr double kMaxTableGain = 8.0;
constexpr double kMinWbGain = 0.5;
constexpr double kMinAgain = 1.0;

constexpr double kDgainUnit = 0.125;

constexpr unsigned kMinEvCode = 6;
constexpr unsigned kMaxEvCode = 26;
constexpr double kZeroEvCode = 16.0;
constexpr double kEvStepBelow = 0.25;
constexpr double kEvStepAbove = 0.2;
constexpr double kMinEv = -2.5;
constexpr double kMaxEv = 2.0;

/// numerator / denominator rounded half away from zero to three decimals. One exact integer divided by 1000.0
/// is the double nearest to the three-decimal number.
constexpr double RoundToThousandths(int numerator, int denominator)
{
    const int thousandths = (numerator * 2000 + denominator) / (2 * denominator);
    return thousandths / 1000.0;
}

/// Row `code` of the white-balance table: octave k, step m of 64: 2^(k - 1) x (64 + m) / 64.
constexpr double WbGain(int code)
{
    if (code == 141)
        return 2.404; // the processor's table departs from the rule here (2.406)
    const int octave = code / kCodesPerOctave;
    const int step = code % kCodesPerOctave;
    return RoundToThousandths((kCodesPerOctave + step) << octave, 2 * kCodesPerOctave);
}

/// Row `code` of the analog table: octave k, step m of 64: 2^k x 128 / (128 - m).
constexpr double Again(int code)
{
    if (code == 192)
        return 7.953; // the highest gain; the rule would give 8.0
    const int octave = code / kCodesPerOctave;
    const int step = code % kCodesPerOctave;
    return RoundToThousandths(128 << octave, 128 - step);
}

} // namespace

static_assert(sizeof(GainTableEntry) == 16);

// Rows from the rules above, worked out by the compiler.
// clang-format off
#define ROWS_4(gain, r) {(r), gain(r)}, {(r) + 1, gain((r) + 1)}, {(r) + 2, gain((r) + 2)}, {(r) + 3, gain((r) + 3)}
#define ROWS_16(gain, r) ROWS_4(gain, r), ROWS_4(gain, (r) + 4), ROWS_4(gain, (r) + 8), ROWS_4(gain, (r) + 12)
#define ROWS_64(gain, r) ROWS_16(gain, r), ROWS_16(gain, (r) + 16), ROWS_16(gain, (r) + 32), ROWS_16(gain, (r) + 48)
// clang-format on

constexpr GainTableEntry gtWbTable[CXD3193AR_WB_ROWS] = {ROWS_64(WbGain, 0), ROWS_64(WbGain, 64),
                                                         ROWS_64(WbGain, 128), ROWS_64(WbGain, 192)};

constexpr GainTableEntry gtAgainTable[CXD3193AR_AGAIN_ROWS] = {
    ROWS_64(Again, 0), ROWS_64(Again, 64), ROWS_64(Again, 128), {192, Again(192)}};

namespace
{

template <int rows>
constexpr bool CodesAndGainsAscend(const GainTableEntry (&table)[rows])
{
    for (int r = 0; r < rows; ++r)
        if (table[r].regValue != r || (r > 0 && table[r].gain <= table[r - 1].gain))
            return false;
    return true;
}
static_assert(CodesAndGainsAscend(gtWbTable) && CodesAndGainsAscend(gtAgainTable));

/// The row with the largest gain not above `gain`.
template <int rows>
int FindCode(const GainTableEntry (&table)[rows], double minGain, double gain)
{
    if (gain < minGain || gain > kMaxTableGain)
        return CXD3193AR_FAILED;
    int row = 0;
    while (row + 1 < rows && gain >= table[row + 1].gain) // NaN stays at row 0
        ++row;
    return table[row].regValue;
}

} // namespace

double CXD3193AR_WbTable_RegValue2Gain(uint8_t code)
{
    return gtWbTable[code].gain;
}

int CXD3193AR_WbTable_Gain2RegValue(double gain)
{
    return FindCode(gtWbTable, kMinWbGain, gain);
}

double CXD3193AR_AgainTable_RegValue2Again(uint8_t code)
{
    return code < CXD3193AR_AGAIN_ROWS ? gtAgainTable[code].gain : 0.0; // row r holds code r
}

int CXD3193AR_AgainTable_Again2RegValue(double gain)
{
    return FindCode(gtAgainTable, kMinAgain, gain);
}

double CXD3193AR_RegValue2Dgain(unsigned code)
{
    return code * kDgainUnit;
}

uint8_t CXD3193AR_Dgain2RegValue(double gain)
{
    return static_cast<uint8_t>(kel::TruncateToUint32(gain * 8.0));
}

double CXD3193AR_RegValue2Ev(unsigned code)
{
    if (code < kMinEvCode || code > kMaxEvCode)
        return CXD3193AR_BAD_EV;
    return (code - kZeroEvCode) * (code < kZeroEvCode ? kEvStepBelow : kEvStepAbove);
}

int CXD3193AR_Ev2RegValue(double ev)
{
    if (!(ev >= kMinEv && ev <= kMaxEv))
        return CXD3193AR_BAD_EV;
    // The codes follow from these two expressions in double
    // arithmetic as they stand, not from an equal rewriting.
    return static_cast<int>(ev >= 0.0 ? (ev + 3.2) / 0.2 : (ev + 4.0) * 4.0);
}
