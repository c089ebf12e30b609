// SPDX-License-Identifier: MIT
//
// Does the real-time clock's driver answer?
#include "kelisp/clock.h"

#include <fcntl.h>
#include <string.h>
#include <syslog.h>
#include <unistd.h>

namespace
{

constexpr char kRtcPath[] = "/proc/driver/rtc";

// The word that the driver's first line begins with.
constexpr char kRtcWord[] = "rtc_time";

void LogRtcFailure(const char *format)
{
    openlog("camStat", LOG_PID | LOG_PERROR, LOG_USER);
    syslog(LOG_ERR, format, kRtcPath);
    closelog();
}

} // namespace

int CheckRtc(void)
{
    const int fd = open(kRtcPath, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        LogRtcFailure("Open %s failed");
        return -1;
    }
    char text[256] = {};
    const ssize_t got = read(fd, text, sizeof(text));
    if (got < 1)
        LogRtcFailure("Read %s failed");
    close(fd);
    text[sizeof(text) - 1] = '\0';
    return got >= 1 && strncmp(text, kRtcWord, sizeof(kRtcWord) - 1) == 0 ? 0 : -1;
}
