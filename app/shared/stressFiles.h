// SPDX-License-Identifier: MIT
//
// What a stress test leaves on the flash, whichever program runs it: the result file and the kernel's I2C messages of
// its time. camPlot reads them.
#ifndef CAMSTAT_APP_SHARED_STRESS_FILES_H
#define CAMSTAT_APP_SHARED_STRESS_FILES_H

#include <stddef.h>

namespace camStat
{

constexpr size_t kSummarySize = 256;
constexpr size_t kResultPathSize = 64;

/// Clears the kernel's log, so that the capture at the end holds this run's messages only. True when an interrupt
/// came for the program while its shell ran: it is to be taken as if it had come before.
bool ClearKernelLog();

/// Writes the counters of the link, the stamps of start and last round, and the number of rounds less one.
void FormatSummary(char (&summary)[kSummarySize], const char *start, const char *now, int iteration);

enum class Saved { Done, NotOpened, NotWritten };

/// Writes the result file of a run that ends at `stamp` (14 digits); `path` receives its name. errno tells why not.
Saved SaveResult(const char *summary, const char *stamp, char (&path)[kResultPathSize]);

/// Copies the kernel's I2C messages to a file of the same stamp; true as for ClearKernelLog.
bool CaptureKernelLog(const char *stamp);

} // namespace camStat

#endif
