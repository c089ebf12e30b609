// SPDX-License-Identifier: MIT
//
// The one shape of a failure report: a location line on standard error, then a message on the same output
// line. Internal to the library and its programs; every module binds its own name to these two functions.
#ifndef CAMSTAT_BASE_REPORT_H
#define CAMSTAT_BASE_REPORT_H

#include <stdio.h>

/// A function and its name, for what calls the one and reports the other.
#define KEL_NAMED(function) function, #function

namespace kel
{

/// Where a report comes from; by default the caller's function and line.
struct Where {
    const char *function;
    int line;

    constexpr Where(const char *caller = __builtin_FUNCTION(), int at = __builtin_LINE())
        : function(caller), line(at)
    {
    }
};

/// Prints " ERROR  (module|function|line): " and `message` as it stands (it carries its own line end).
[[gnu::cold]] inline void ReportError(const char *module, const char *message, Where where = {})
{
    fprintf(stderr, " ERROR  (%s|%s|%d): %s", module, where.function, where.line, message);
}

/// Reports that `step` failed, as "[kel_isp] <step> failed.\n" behind the location, and hands `status` on.
[[gnu::cold]] inline int ReportStep(const char *module, const char *step, int status, Where where = {})
{
    fprintf(stderr, " ERROR  (%s|%s|%d): [kel_isp] %s failed.\n", module, where.function, where.line, step);
    return status;
}

} // namespace kel

#endif
