// SPDX-License-Identifier: MIT
//
// Values that stand behind camCtl's options.
#include "app/camCtl/camCtl.h"

#include <ctype.h>
#include <stdlib.h>

using cli::Arguments;

bool camCtl::TakeRetries(const Arguments &arguments, int *retries)
{
    *retries = 3;
    return !arguments.Has(kRetries) || TakeNumber(arguments, kRetries, 0, 100, retries);
}

bool camCtl::TakeNumber(const Arguments &arguments, OptionIndex option, int least, int most, int *number)
{
    char *end = nullptr;
    const char *text = arguments.options[option];
    const long value = strtol(text, &end, 10);
    *number = static_cast<int>(value);
    if (isdigit(static_cast<unsigned char>(text[0])) && *end == '\0' && value >= least && value <= most)
        return true;
    return cli::FailWith(arguments.Name(option), "%s is not a number from %d to %d", text, least, most) ==
           cli::kDone;
}

bool camCtl::TakeTime(const Arguments &arguments, OptionIndex option, double *us)
{
    constexpr double kLongestUs = 1e15; // thirty years
    const char *text = arguments.options[option];
    if (ParseTimeUs(text, us) && *us >= 1.0 && *us <= kLongestUs)
        return true;
    return cli::FailWith(arguments.Name(option), "%s is not a time such as 500us, 10ms, 2s, 1/30s, 5m, 1h",
                         text) == cli::kDone;
}
