// SPDX-License-Identifier: MIT
//
// The stress test's result file and kernel log.
#include "app/shared/stressFiles.h"

#include "kelisp/ispCXD3193AR.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>

namespace
{

constexpr char kResultPrefix[] = "/mnt/nand/I2cTestResult_";
constexpr char kClearKernelLog[] = "dmesg -c > /dev/null";
constexpr char kCaptureKernelLog[] = "dmesg | grep i2c_davinci > /mnt/nand/dmesg_";

constexpr size_t kStampDigits = 14;
constexpr size_t kCommandSize = 64;
static_assert(sizeof(kCaptureKernelLog) + kStampDigits <= kCommandSize);
static_assert(sizeof(kResultPrefix) + kStampDigits <= camStat::kResultPathSize);

/// Runs a shell command; what it returns tells nothing about the camera. But while it runs, the caller of
/// system() ignores SIGINT: a command that died of it, or a shell whose command did, took it in our place.
bool RunShell(const char *command)
{
    const int status = system(command);
    return WTERMSIG(status) == SIGINT || (WIFEXITED(status) && WEXITSTATUS(status) == 128 + SIGINT);
}

} // namespace

bool camStat::ClearKernelLog()
{
    return RunShell(kClearKernelLog);
}

void camStat::FormatSummary(char (&summary)[kSummarySize], const char *start, const char *now, int iteration)
{
    snprintf(summary, sizeof(summary) - 1,
             "I2C Error Counts = %d\nI2C Read Error Counts = %d\n[%s][%s][%d]:\n", giI2cErrCount,
             giI2cReadErrCount, start, now, iteration);
}

camStat::Saved camStat::SaveResult(const char *summary, const char *stamp, char (&path)[kResultPathSize])
{
    snprintf(path, sizeof(path), "%s%s", kResultPrefix, stamp);
    FILE *result = fopen(path, "w+");
    if (result == nullptr)
        return Saved::NotOpened;
    const bool written = fputs(summary, result) >= 0;
    const int reason = errno;
    const bool closed = fclose(result) == 0;
    if (!written)
        errno = reason;
    return closed && written ? Saved::Done : Saved::NotWritten;
}

bool camStat::CaptureKernelLog(const char *stamp)
{
    char command[kCommandSize];
    snprintf(command, sizeof(command), "%s%s", kCaptureKernelLog, stamp);
    return RunShell(command);
}
