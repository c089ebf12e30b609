// SPDX-License-Identifier: MIT
//
// Strict reading of numbers and times.
#include "sim/launcher/parse.h"

#include "sim/board/boardState.h"

#include <errno.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

namespace sim
{

bool ParseNumber(const std::string &text, uint32_t least, uint32_t most, uint32_t *number)
{
    const bool isHex = text.compare(0, 2, "0x") == 0 || text.compare(0, 2, "0X") == 0;
    const char *digits = text.c_str() + (isHex ? 2 : 0);
    const char *accepted = isHex ? "0123456789abcdefABCDEF" : "0123456789";
    const size_t length = strlen(digits);
    if (length == 0 || length > 16 || strspn(digits, accepted) != length)
        return false;
    const unsigned long long value = strtoull(digits, nullptr, isHex ? 16 : 10);
    if (value < least || value > most)
        return false;
    *number = static_cast<uint32_t>(value);
    return true;
}

bool ParseFraction(const std::string &text, double least, double most, double *number)
{
    if (text.empty() || strspn(text.c_str(), "0123456789.") != text.size())
        return false;
    char *end = nullptr;
    const double value = strtod(text.c_str(), &end);
    if (*end != '\0' || end == text.c_str() || value < least || value > most)
        return false;
    *number = value;
    return true;
}

bool ParseTime(const std::string &text, uint32_t *us)
{
    const size_t unitAt = text.find_first_not_of("0123456789.");
    const std::string unit = unitAt == std::string::npos ? "ms" : text.substr(unitAt);
    const double factor = unit == "us" ? 1.0 : unit == "ms" ? 1000.0 : unit == "s" ? 1e6 : 0.0;
    double value = 0.0;
    if (factor == 0.0 || !ParseFraction(text.substr(0, unitAt), 0.0, kLongestUs / factor, &value))
        return false;
    *us = static_cast<uint32_t>(llround(value * factor));
    return true;
}

} // namespace sim
