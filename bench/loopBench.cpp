// SPDX-License-Identifier: MIT
//
// How much the stress test adds to the work that it cannot do without: the rate of its loop beside the rate
// of a bare loop of the same requests and pauses, in turns within one run. Run it on the simulated board:
// camSim loopBench [ROUNDS] The exit status is 1 when the test's loop falls below 98 % of the bare loop.
#include "app/camStat/i2cTest.h"
#include "app/camStat/options.h"
#include "app/shared/process.h"
#include "app/shared/startup.h"
#include "kelisp/drvI2c.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace
{

constexpr double kWantedRatio = 0.98;
constexpr auto kTurn = std::chrono::seconds(2);

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// The nine requests of one iteration, each followed by its pause of 1 ms, and nothing else.
double BareRate()
{
    static constexpr struct {
        uint8_t reg;
        uint8_t count;
    } kReads[] = {{0x10, 1}, {0x10, 1}, {0x11, 1}, {0x12, 2}, {0x14, 2},
                  {0x16, 2}, {0x19, 1}, {0x18, 1}, {0x1E, 2}};
    const Clock::time_point start = Clock::now();
    long iterations = 0;
    for (; Clock::now() - start < kTurn; ++iterations) {
        for (const auto &read : kReads) {
            uint8_t address[2] = {read.reg, static_cast<uint8_t>(read.reg + 1)};
            uint8_t value[2];
            DrvI2cReadBlk8(&gtI2cHndl, address, value, read.count);
            const timespec pause = {0, 1000000};
            clock_nanosleep(CLOCK_MONOTONIC, 0, &pause, nullptr);
        }
    }
    return static_cast<double>(iterations) / SecondsSince(start);
}

/// The number of the last iteration in the test's output, plus one.
long CountIterations(FILE *output)
{
    long iterations = 0;
    char line[256];
    rewind(output);
    while (fgets(line, sizeof(line), output) != nullptr)
        if (line[0] == '[')
            ++iterations;
    return iterations;
}

/// The test itself, on its thread, until it is told to stop; its output goes to a file.
double TestRate()
{
    FILE *output = tmpfile();
    if (output == nullptr)
        exit(2);
    fflush(stdout);
    const int terminal = dup(STDOUT_FILENO);
    dup2(fileno(output), STDOUT_FILENO);

    kel::StoreWord(giCamStatTerm, 0);
    const Clock::time_point start = Clock::now();
    std::thread test(I2cTestThread, nullptr);
    std::this_thread::sleep_for(kTurn);
    kel::StoreWord(giCamStatTerm, 1);
    test.join();
    const double seconds = SecondsSince(start);

    fflush(stdout);
    dup2(terminal, STDOUT_FILENO);
    close(terminal);
    const double rate = static_cast<double>(CountIterations(output)) / seconds;
    fclose(output);
    return rate;
}

} // namespace

int main(int argc, char **argv)
{
    const int rounds = std::max(1, argc > 1 ? atoi(argv[1]) : 3);
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    camStat::AskForExactPauses();
    if (camStat::StartBoard("loopBench") != 0)
        return 2;
    std::vector<double> ratios;
    for (int round = 0; round < rounds; ++round) {
        const double bare = BareRate();
        const double test = TestRate();
        printf("bare loop %.2f /s, stress test %.2f /s: %.2f %%\n", bare, test, 100 * test / bare);
        ratios.push_back(test / bare);
    }
    camStat::StopBoard();
    std::sort(ratios.begin(), ratios.end());
    const double median = ratios[ratios.size() / 2];
    printf("median of %d rounds: %.2f %% (wanted: %.0f %%)\n", rounds, 100 * median, 100 * kWantedRatio);
    return median >= kWantedRatio ? 0 : 1;
}
