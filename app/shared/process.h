// SPDX-License-Identifier: MIT
//
// What every program sets up for itself before its work: standard streams, signals, pauses.
#ifndef CAMSTAT_APP_SHARED_PROCESS_H
#define CAMSTAT_APP_SHARED_PROCESS_H

namespace camStat
{

/// Comes first in a program. Standard descriptors that the caller closed are filled with "/dev/null": otherwise a
/// device would be opened in their place and printed into. Standard output leaves line by line, in order with
/// standard error where both go to one file, out of a static buffer: nothing is allocated.
void SetUpStreams();

/// Installs `handler` for SIGINT and SIGTERM.
void InstallStopHandler(void (*handler)(int));

/// Asks the kernel to end pauses as close to their time as it can.
void AskForExactPauses();

} // namespace camStat

#endif
