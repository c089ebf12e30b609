// SPDX-License-Identifier: MIT
//
// What every program sets up for itself before its work: standard streams, signals, pauses.
#ifndef CAMSTAT_APP_SHARED_PROCESS_H
#define CAMSTAT_APP_SHARED_PROCESS_H

#include <signal.h>
#include <time.h>

namespace camStat
{

/// How standard output leaves a program: line by line, in order with standard error where both go to one file; or, when
/// it is no terminal, in blocks, which takes one system call for a dozen lines. Then whoever prints on standard error
/// flushes first.
enum class Leaves { ByLine, InBlocks };

/// Comes first in a program. Standard descriptors that the caller closed are filled with "/dev/null": otherwise a
/// device would be opened in their place and printed into. Standard output gets a static buffer: nothing is
/// allocated.
void SetUpStreams(Leaves leaves = Leaves::ByLine);

/// Installs `handler` for SIGINT and SIGTERM.
void InstallStopHandler(void (*handler)(int));

/// Installs `handler` for what tells that output is lost: SIGHUP, the terminal; SIGPIPE, who reads. A program that
/// keeps something for its end ends in order then; all others are short, and die of both. SIGHUP stays ignored where
/// the caller ignores it (nohup).
void InstallLostOutputHandler(void (*handler)(int));

/// Holds SIGINT and SIGTERM back, so that none cuts work short or gets lost before a wait; gives the mask for waits,
/// which lets them through.
sigset_t HoldStopSignals();

/// Waits for `most` at the longest, or until a signal comes that `mask` lets through. False: it cannot wait, errno
/// tells why.
bool AwaitSignal(const timespec &most, const sigset_t &mask);

/// Asks the kernel to end pauses as close to their time as it can.
void AskForExactPauses();

} // namespace camStat

#endif
