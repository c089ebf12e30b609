// SPDX-License-Identifier: MIT
//
// The one place that turns a text into a decimal integer, and a double into an integer, without undefined
// results, and that holds numbers at their limits. Internal to the library and its programs.
#ifndef CAMSTAT_BASE_NUMBERS_H
#define CAMSTAT_BASE_NUMBERS_H

#include <stdint.h>
#include <stdlib.h>

namespace kel
{

/// Base 10 as strtol reads it: leading white space and a sign are fine, what follows the digits is ignored,
/// no digits give 0. A number beyond 32 bits is held at the nearest limit, as it is where `long` has 32 bits.
inline int32_t ParseInt32(const char *text)
{
    const long value = strtol(text, nullptr, 10);
    if (value > INT32_MAX)
        return INT32_MAX;
    return value < INT32_MIN ? INT32_MIN : static_cast<int32_t>(value);
}

/// Truncates toward zero to 32 bits, unsigned; held at the limits, NaN gives 0.
inline uint32_t TruncateToUint32(double value)
{
    if (!(value > 0.0))
        return 0;
    return value >= 4294967296.0 ? UINT32_MAX : static_cast<uint32_t>(value);
}

/// Truncates toward zero to 32 bits, signed; held at the limits, NaN gives 0.
inline int32_t TruncateToInt32(double value)
{
    if (value >= 2147483648.0)
        return INT32_MAX;
    if (value <= -2147483649.0)
        return INT32_MIN;
    return value == value ? static_cast<int32_t>(value) : 0;
}

template <typename T>
constexpr T Clamp(T value, T low, T high)
{
    if (!(value >= low)) // so that NaN is held, too
        return low;
    return value > high ? high : value;
}

} // namespace kel

#endif
