// SPDX-License-Identifier: MIT
//
// The one shape of a failure report: a location line on standard error, then a message on the same output
// line. Internal to the library and its programs; every module binds its own name to these two functions.
#ifndef CAMSTAT_BASE_REPORT_H
#define CAMSTAT_BASE_REPORT_H

#include <stdio.h>

namespace kel
{

/// Prints " ERROR  (module|function|line): " and `message` as it stands (it carries its own line end).
[[gnu::cold]] inline void ReportError(const char *module, const char *message,
                                      const char *function = __builtin_FUNCTION(),
                                      int line = __builtin_LINE())
{
    fprintf(stderr, " ERROR  (%s|%s|%d): %s", module, function, line, message);
}

/// Reports that `step` failed, as "[kel_isp] <step> failed.\n" behind the location, and hands `status` on.
[[gnu::cold]] inline int ReportStep(const char *module, const char *step, int status,
                                    const char *function = __builtin_FUNCTION(), int line = __builtin_LINE())
{
    fprintf(stderr, " ERROR  (%s|%s|%d): [kel_isp] %s failed.\n", module, function, line, step);
    return status;
}

} // namespace kel

#endif
