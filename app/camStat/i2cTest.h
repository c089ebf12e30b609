// SPDX-License-Identifier: MIT
//
// The I2C stress test: reads the live readouts back to back until it is stopped or one fails, and leaves a
// result file and the kernel's I2C messages on the flash.
#ifndef CAMSTAT_APP_CAM_STAT_I2C_TEST_H
#define CAMSTAT_APP_CAM_STAT_I2C_TEST_H

#include "base/atomicWord.h"

extern "C" {

/// State of the test thread: 0 not started, 1 running, 2 finished.
extern kel::AtomicWord giI2cTestThreald;

/// Body of the test thread; takes no argument and returns null. Publishes the finished state only after its
/// last use of the camera link and the files.
void *I2cTestThread(void *);

} // extern "C"

namespace camStat
{

/// Starts the test thread, waits until it has finished (looking once a second) and prints the finish line on
/// standard error. A thread that cannot be started is reported there, and nothing is waited for.
void RunI2cTest();

} // namespace camStat

#endif
