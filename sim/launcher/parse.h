// SPDX-License-Identifier: MIT
//
// The one strict place where the launcher reads numbers
// and times: the whole text, within bounds, or not at all.
#ifndef SIM_LAUNCHER_PARSE_H
#define SIM_LAUNCHER_PARSE_H

#include <stdint.h>

#include <string>

namespace sim
{

/// A whole number, decimal or hexadecimal with 0x.
bool ParseNumber(const std::string &text, uint32_t least, uint32_t most, uint32_t *number);

/// A decimal fraction.
bool ParseFraction(const std::string &text, double least, double most, double *number);

/// A time with its unit, us, ms (also without one) or s, in microseconds; at most an hour.
bool ParseTime(const std::string &text, uint32_t *us);

} // namespace sim

#endif
