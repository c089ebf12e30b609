// SPDX-License-Identifier: MIT
//
// Start-up and teardown of the board around a program's work: chip
// support, contiguous memory, camera link, sensor.
#ifndef CAMSTAT_APP_SHARED_STARTUP_H
#define CAMSTAT_APP_SHARED_STARTUP_H

#include <stdint.h>

namespace camStat
{

/// The camera processor's address on the camera bus, as the driver takes it.
inline constexpr uint8_t kCameraSlave = 0xE2;

/// Starts the platform and the camera link. A step that fails is reported on standard
/// error, as `module`'s function "main", and what had been started before it is stopped
/// again; a chip-support start that failed half-way is left to the ending process.
///
/// @param module  the program's name in the report
/// @return 0, or -1 with nothing left to stop
int StartBoard(const char *module);

/// Stops what StartBoard started, in reverse order.
void StopBoard();

} // namespace camStat

#endif
