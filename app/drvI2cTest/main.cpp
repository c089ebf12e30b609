// SPDX-License-Identifier: MIT
//
// The register utility as a program of its own.
#include "kelisp/drvI2c.h"

int main(int argc, char **argv)
{
    return DrvI2cTestMain(argc, argv);
}
