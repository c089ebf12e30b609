// SPDX-License-Identifier: MIT
//
// What one run of a program costs: cost RUNS PROGRAM [ARGUMENTS...]
// Runs it RUNS times, its output thrown away, and prints one line: the medians of wall time in microseconds, page
// faults and peak memory in KiB; the memory of its own in KiB, exact, when one more run ends; and the last run's
// status. A process of its own, small, because the peak that the kernel tells of a child begins with that of the
// process that started it.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <string>
#include <sys/personality.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace
{

constexpr int kRunsMax = 1000;

long Median(long *values, int count)
{
    std::sort(values, values + count);
    return values[count / 2];
}

long NowUs()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000L + now.tv_nsec / 1000;
}

/// Not fork, because a copy of this process would count as the program's memory.
pid_t Start(char **words)
{
    posix_spawn_file_actions_t nowhere;
    posix_spawn_file_actions_init(&nowhere);
    posix_spawn_file_actions_addopen(&nowhere, 0, "/dev/null", O_RDWR, 0);
    for (int fd = 1; fd <= 2; ++fd)
        posix_spawn_file_actions_adddup2(&nowhere, 0, fd);
    pid_t child = -1;
    errno = posix_spawnp(&child, words[0], &nowhere, nullptr, words, environ);
    posix_spawn_file_actions_destroy(&nowhere);
    return errno == 0 ? child : -1;
}

/// What no other process could share: pages that were written, which are no longer a file's. The peak counts the pages
/// of libraries, too, as many as the kernel happens to map around those that are used. -1 when it cannot be told.
long OwnKiB(char **words)
{
    const pid_t child = fork();
    if (child == 0) {
        const int nowhere = open("/dev/null", O_RDWR);
        for (int fd = 0; fd <= 2; ++fd)
            dup2(nowhere, fd);
        personality(ADDR_NO_RANDOMIZE);
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        execvp(words[0], words);
        _exit(127);
    }
    long sum = -1;
    int status = 0;
    if (child > 0 && waitpid(child, &status, 0) == child && WIFSTOPPED(status) &&
        ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACEEXIT | PTRACE_O_EXITKILL) == 0 &&
        ptrace(PTRACE_CONT, child, nullptr, nullptr) == 0 && waitpid(child, &status, 0) == child &&
        status >> 8 == (SIGTRAP | PTRACE_EVENT_EXIT << 8)) {
        FILE *map = fopen(("/proc/" + std::to_string(child) + "/smaps_rollup").c_str(), "r");
        char line[256];
        while (map != nullptr && fgets(line, sizeof(line), map) != nullptr)
            sscanf(line, "Anonymous: %ld", &sum);
        if (map != nullptr)
            fclose(map);
    }
    // Who stands at its end goes on by itself when this process lets go of it.
    if (child > 0 && (ptrace(PTRACE_DETACH, child, nullptr, nullptr) == 0 || kill(child, SIGKILL) == 0))
        waitpid(child, &status, 0);
    return sum;
}

} // namespace

int main(int argc, char **argv)
{
    const int runs = argc > 2 ? std::clamp(atoi(argv[1]), 1, kRunsMax) : 0;
    if (runs == 0) {
        fprintf(stderr, "usage: cost RUNS PROGRAM [ARGUMENTS...]\n");
        return 2;
    }
    static long wallUs[kRunsMax];
    static long faults[kRunsMax];
    static long peakKiB[kRunsMax];
    int status = 0;
    for (int run = 0; run < runs; ++run) {
        const long start = NowUs();
        const pid_t child = Start(argv + 2);
        rusage usage = {};
        if (child < 0 || wait4(child, &status, 0, &usage) != child) {
            perror("cost");
            return 2;
        }
        wallUs[run] = NowUs() - start;
        faults[run] = usage.ru_minflt + usage.ru_majflt;
        peakKiB[run] = usage.ru_maxrss;
    }
    printf("%ld %ld %ld %ld %d\n", Median(wallUs, runs), Median(faults, runs), Median(peakKiB, runs),
           OwnKiB(argv + 2), WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
    return 0;
}
