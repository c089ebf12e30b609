// SPDX-License-Identifier: MIT
//
// Millisecond count and local-time stamps. The check of the real-time clock is in rtc.cpp, so that
// a program without it does not carry syslog.
#include "kelisp/clock.h"

#include <stdio.h>
#include <string.h>
#include <time.h>

namespace
{

// 19 characters and the terminator; a year beyond 9999 is cut rather than written past the stamp.
constexpr size_t kStampLimit = 20;

int FormatNow(char *buf, const char *format)
{
    const time_t now = time(nullptr);
    tm local = {};
    // null only for a year that does not fit: the stamp is then all zero
    if (const tm *shared = localtime(&now))
        local = *shared;
    memset(buf, 0, KEL_STAMP_SIZE);
    snprintf(buf, kStampLimit, format, local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
             local.tm_min, local.tm_sec);
    return 0;
}

} // namespace

int GetMsFromStart(int64_t *out)
{
    timespec now;
    const int status = clock_gettime(CLOCK_MONOTONIC, &now);
    if (status < 0) {
        puts("clock_gettime failed.");
        return status;
    }
    // Unsigned, as all divisions of camStat: the target divides by a routine of 550 bytes for either kind.
    *out = static_cast<int64_t>(now.tv_sec) * 1000 + static_cast<uint32_t>(now.tv_nsec) / 1000000;
    return 0;
}

int GetTimeStamp(char *buf)
{
    return FormatNow(buf, "%04d%02d%02d%02d%02d%02d");
}

int GetDateTime(char *buf)
{
    return FormatNow(buf, "%04d/%02d/%02d %02d:%02d:%02d");
}
