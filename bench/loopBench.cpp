// SPDX-License-Identifier: MIT
//
// How much the stress tests of camStat and camCtl add to the work that they cannot do without: the rate of their loops
// beside the rate of a bare loop of the same requests and pauses, in turns within one run. Run it on the simulated
// board: camSim loopBench [ROUNDS] The exit status is 1 when one of them falls below 98 % of the bare loop.
#include "app/camStat/i2cTest.h"
#include "app/camStat/options.h"
#include "app/shared/process.h"
#include "app/shared/startup.h"
#include "kelisp/drvI2c.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
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

/// camCtl's own figure of a run; it stands beside this program.
double CamCtlRate()
{
    const std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const std::string command = "'" + (folder / "camCtl").string() + "' stress --no-files --json --time " +
                                std::to_string(kTurn.count()) + "s";
    static constexpr char kKey[] = "\"rounds_per_second\":";
    char text[1024] = "";
    FILE *output = popen(command.c_str(), "r");
    if (output == nullptr || fgets(text, sizeof(text), output) == nullptr || pclose(output) != 0)
        exit(2);
    const char *rate = strstr(text, kKey);
    return rate != nullptr ? atof(rate + sizeof(kKey) - 1) : 0.0;
}

/// Prints and judges the ratios of one contender.
bool IsFastEnough(const char *name, std::vector<double> ratios)
{
    std::sort(ratios.begin(), ratios.end());
    const double median = ratios[ratios.size() / 2];
    printf("%s: median of %zu rounds %.2f %% (wanted: %.0f %%)\n", name, ratios.size(), 100 * median,
           100 * kWantedRatio);
    return median >= kWantedRatio;
}

} // namespace

int main(int argc, char **argv)
{
    const int rounds = std::max(1, argc > 1 ? atoi(argv[1]) : 3);
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    camStat::AskForExactPauses();
    if (camStat::StartBoard("loopBench") != 0)
        return 2;
    std::vector<double> camStatRatios, camCtlRatios;
    for (int round = 0; round < rounds; ++round) {
        const double bare = BareRate();
        const double ofCamStat = TestRate();
        const double ofCamCtl = CamCtlRate();
        printf("bare loop %.2f /s, camStat -t %.2f /s: %.2f %%, camCtl stress %.2f /s: %.2f %%\n", bare,
               ofCamStat, 100 * ofCamStat / bare, ofCamCtl, 100 * ofCamCtl / bare);
        camStatRatios.push_back(ofCamStat / bare);
        camCtlRatios.push_back(ofCamCtl / bare);
    }
    camStat::StopBoard();
    const bool good = IsFastEnough("camStat -t", camStatRatios);
    return IsFastEnough("camCtl stress", camCtlRatios) && good ? 0 : 1;
}
