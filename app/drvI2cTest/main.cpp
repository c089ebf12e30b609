// SPDX-License-Identifier: MIT
//
// The register utility as a program of its own.
#include "app/shared/process.h"
#include "kelisp/drvI2c.h"

int main(int argc, char **argv)
{
    camStat::SetUpStreams();
    return DrvI2cTestMain(argc, argv);
}
