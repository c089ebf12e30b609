// SPDX-License-Identifier: MIT
//
// What the simulated board adds to a transfer: camSim transferBench [ROUNDS] reads one register through the preloaded library and,
// in turns within one run, asks "/dev/null" for a request that the kernel refuses at once. Prints the two median
// costs in nanoseconds. Pauses are not part of either.
#include "kelisp/drvI2c.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace
{

constexpr int kCallsARound = 1000;

template <typename Call>
double NanosecondsACall(Call call)
{
    timespec start = {};
    timespec end = {};
    clock_gettime(CLOCK_MONOTONIC, &start);
    for (int i = 0; i < kCallsARound; ++i)
        call();
    clock_gettime(CLOCK_MONOTONIC, &end);
    return (static_cast<double>(end.tv_sec - start.tv_sec) * 1e9 +
            static_cast<double>(end.tv_nsec - start.tv_nsec)) /
           kCallsARound;
}

double Median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char **argv)
{
    const int rounds = argc > 1 ? std::max(1, atoi(argv[1])) : 50;
    DrvI2cHndl bus;
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (nowhere < 0 || DrvI2cOpen(&bus, 0xE2) != 0) {
        perror("transferBench");
        return 2;
    }
    std::vector<double> board;
    std::vector<double> bare;
    for (int round = 0; round < rounds; ++round) {
        board.push_back(NanosecondsACall([&] {
            uint8_t address = 0x37;
            uint8_t value;
            DrvI2cReadBlk8(&bus, &address, &value, 1);
        }));
        bare.push_back(NanosecondsACall([&] { ioctl(nowhere, DRV_I2C_READ_BLOCK, nullptr); }));
    }
    printf("%.0f %.0f\n", Median(board), Median(bare));
    DrvI2cClose(&bus);
    close(nowhere);
    return 0;
}
