// SPDX-License-Identifier: MIT
//
// camStat's command line: one option, its values by position, and the globals that carry them to the run.
#ifndef CAMSTAT_APP_CAM_STAT_OPTIONS_H
#define CAMSTAT_APP_CAM_STAT_OPTIONS_H

#include "base/atomicWord.h"

#include <stdint.h>

/// Action codes held in giOption.
enum CamStatAction : int32_t {
    kActionNone = 0,       // only words that are no options
    kActionReadInfo = 1,   // -r
    kActionLed = 2,        // -l, level in giArgValue1
    kActionIcr = 3,        // -i, level in giArgValue1
    kActionExposure = 4,   // -e, gdbShutter, gdbSensorAgain, gdbSensorDgain
    kActionAwb = 5,        // -w: gdbRgain and gdbBgain are stored and echoed, nothing uses them
    kActionGamma = 6,      // -g: giArgValue1 is stored, nothing uses it
    kActionOtf = 7,        // -o: giArgValue1 is stored, nothing uses it
    kActionReset = 8,      // -s
    kActionStressTest = 9, // -t, retries in giI2cErrRetry
};

extern "C" {

extern int32_t giOption;      // the selected action
extern int32_t giArgValue1;   // LED level, ICR level, gamma, OTF or test mode
extern double gdbShutter;     // manual exposure time in microseconds
extern double gdbSensorAgain; // manual analog gain as a factor
extern double gdbSensorDgain; // manual digital gain as a factor
extern double gdbRgain;       // white-balance gains as factors; 1.0 at start
extern double gdbBgain;
extern kel::AtomicWord giCamStatTerm; // set to 1 by SigHandler; ends the stress test

/// Prints the usage text on standard output.
void Usage();

/// Handler of SIGINT and SIGTERM: sets giCamStatTerm, and says so while gfDebugFlag is nonzero.
void SigHandler(int signalNumber);

} // extern "C"

namespace camStat
{

enum class Parsed { Run, Usage, Unsupported };

/// Reads the command line into the globals. With several options the last
/// one decides the action, while all of them read their values from argv[2]
/// onwards. Prints the echo of the values, or "Value is not supported.".
///
/// @return Run: go on with giOption; Usage: print the usage text and exit 0; Unsupported: exit 255
Parsed ParseOptions(int argc, char **argv);

} // namespace camStat

#endif
