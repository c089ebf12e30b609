// SPDX-License-Identifier: MIT
//
// Standard streams, signals and pauses of a program.
#include "app/shared/process.h"

#include "kelisp/osa.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/prctl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

namespace camStat
{

void SetUpStreams(Leaves leaves)
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        struct stat info;
        if (fstat(fd, &info) != 0 && errno == EBADF && open("/dev/null", O_RDWR) < 0)
            break;
    }
    static char buffer[1024];
    const bool inBlocks = leaves == Leaves::InBlocks && isatty(STDOUT_FILENO) == 0;
    setvbuf(stdout, buffer, inBlocks ? _IOFBF : _IOLBF, sizeof(buffer));
}

void InstallStopHandler(void (*handler)(int))
{
    OSA_setSignalHandler(SIGINT, handler);
    OSA_setSignalHandler(SIGTERM, handler);
}

void InstallLostOutputHandler(void (*handler)(int))
{
    struct sigaction before;
    if (sigaction(SIGHUP, nullptr, &before) == 0 && before.sa_handler != SIG_IGN)
        OSA_setSignalHandler(SIGHUP, handler);
    OSA_setSignalHandler(SIGPIPE, handler);
}

sigset_t HoldStopSignals()
{
    sigset_t stopSignals;
    sigset_t before;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    sigprocmask(SIG_BLOCK, &stopSignals, &before);
    sigdelset(&before, SIGINT);
    sigdelset(&before, SIGTERM);
    return before;
}

// Not ppoll: hardened, with times of 64 bits on a machine of 32, the target's C library takes the halves of the seconds
// for seconds and nanoseconds, and does not wait.
bool AwaitSignal(const timespec &most, const sigset_t &mask)
{
    return pselect(0, nullptr, nullptr, nullptr, &most, &mask) == 0 || errno == EINTR;
}

void AskForExactPauses()
{
    // The default slack of 50 us would lengthen every 1 ms pause by a
    // twentieth. A kernel without it changes nothing.
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
}

} // namespace camStat
