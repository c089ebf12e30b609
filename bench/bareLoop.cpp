// SPDX-License-Identifier: MIT
//
// The floor under a program's work on the camera: bareLoop FILE repeats the bus requests and pauses that FILE lists
// and does nothing else. A line is "o PATH" (a device that is opened, and closed in the end), "r ADDRESS COUNT",
// "w ADDRESS BYTE..." or "p NANOSECONDS". bench/run writes the list from a trace of the program that it measures.
#include "kelisp/drvI2c.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/prctl.h>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace
{

struct Step {
    char kind;
    long number; ///< of a pause: nanoseconds
    uint8_t count;
    uint8_t address[256];
    uint8_t value[256];
    char path[64];
};

std::vector<Step> ReadSteps(FILE *list)
{
    std::vector<Step> steps;
    char line[2048];
    while (fgets(line, sizeof(line), list) != nullptr) {
        Step step = {};
        char *rest = line + 1;
        step.kind = line[0];
        if (step.kind == 'o')
            sscanf(rest, "%63s", step.path);
        step.number = strtol(rest, &rest, 0);
        if (step.kind == 'r')
            step.count = static_cast<uint8_t>(strtol(rest, &rest, 0));
        while (step.kind == 'w' && *(rest += strspn(rest, " \n")) != '\0')
            step.value[step.count++] = static_cast<uint8_t>(strtol(rest, &rest, 0));
        for (int i = 0; i < step.count; ++i)
            step.address[i] = static_cast<uint8_t>(step.number + i);
        steps.push_back(step);
    }
    return steps;
}

} // namespace

int main(int argc, char **argv)
{
    FILE *list = argc == 2 ? fopen(argv[1], "re") : nullptr;
    if (list == nullptr) {
        fprintf(stderr, "usage: bareLoop FILE\n");
        return 2;
    }
    std::vector<Step> steps = ReadSteps(list);
    fclose(list);
    prctl(PR_SET_TIMERSLACK, 1);
    DrvI2cHndl bus;
    if (DrvI2cOpen(&bus, 0xE2) != 0)
        return 1;
    for (Step &step : steps) {
        const timespec pause = {step.number / 1000000000, step.number % 1000000000};
        if (step.kind == 'o')
            step.number = open(step.path, O_RDWR | O_CLOEXEC);
        else if (step.kind == 'p')
            clock_nanosleep(CLOCK_MONOTONIC, 0, &pause, nullptr);
        else if ((step.kind == 'w' ? DrvI2cWrite8 : DrvI2cReadBlk8)(&bus, step.address, step.value,
                                                                    step.count) != 0)
            return 1;
    }
    DrvI2cClose(&bus);
    for (const Step &step : steps)
        if (step.kind == 'o')
            close(static_cast<int>(step.number));
    return 0;
}
