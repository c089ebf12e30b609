// SPDX-License-Identifier: MIT
//
// The rule that tells night from day. Internal to the configuration.
#ifndef CAMSTAT_CONFIG_DAY_NIGHT_H
#define CAMSTAT_CONFIG_DAY_NIGHT_H

#include "kelisp/imgConfig.h"

namespace kel
{

/// Night as the record has it: a mode of its own, or as the light sensor or the digital input says.
constexpr bool IsNight(const ImgCfgStatus &record)
{
    switch (record.dnMode) {
    case 0:
    case 4:
        return record.dnLs == 1;
    case 2:
        return true;
    case 3:
        return record.dnDi == 0;
    default:
        return false;
    }
}

/// Whether the IR-cut filter and the IR LEDs take their night levels.
constexpr bool IsIrNight(const ImgCfgStatus &record)
{
    return record.dnIcr == 1 && IsNight(record);
}

} // namespace kel

#endif
