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
#include <sys/stat.h>
#include <unistd.h>

namespace camStat
{

void SetUpStreams()
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        struct stat info;
        if (fstat(fd, &info) != 0 && errno == EBADF && open("/dev/null", O_RDWR) < 0)
            break;
    }
    static char buffer[1024];
    setvbuf(stdout, buffer, _IOLBF, sizeof(buffer));
}

void InstallStopHandler(void (*handler)(int))
{
    OSA_setSignalHandler(SIGINT, handler);
    OSA_setSignalHandler(SIGTERM, handler);
}

void AskForExactPauses()
{
    // The default slack of 50 us would lengthen every 1 ms pause by a
    // twentieth. A kernel without it changes nothing.
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
}

} // namespace camStat
