// SPDX-License-Identifier: MIT
//
// One run of camStat: parse, start the board, perform the one action, stop the board.
#include "app/camStat/i2cTest.h"
#include "app/camStat/options.h"
#include "app/camStat/reports.h"
#include "app/shared/process.h"
#include "app/shared/startup.h"
#include "base/numbers.h"
#include "kelisp/gpio.h"
#include "kelisp/ispSensor.h"

#include <stdio.h>

namespace
{

// Exit statuses: a value that an option does not support, and everything else.
constexpr int kExitUnsupported = -1;
constexpr int kExitDone = 0;

constexpr double kMinGain = 1.0;
constexpr double kMaxAgain = 8.0;
constexpr double kMaxDgain = 31.875;

/// Applies all three values, each whatever became of the one before. The texts carry no line end.
void ApplyExposure()
{
    gdbSensorAgain = kel::Clamp(gdbSensorAgain, kMinGain, kMaxAgain);
    gdbSensorDgain = kel::Clamp(gdbSensorDgain, kMinGain, kMaxDgain);
    if (SetMeExpTime(gdbShutter) < 0)
        fputs("SetMeExpTime failed", stdout);
    if (SetMnlAgn(gdbSensorAgain) < 0)
        fputs("SetMnlAgn failed", stdout);
    if (SetMnlDgn(gdbSensorDgain) < 0)
        fputs("SetMnlDgn failed", stdout);
}

/// Hours of counting are not lost with the terminal: the test ends as after SIGTERM.
void OnLostOutput(int)
{
    kel::StoreWord(giCamStatTerm, 1);
}

void PerformAction()
{
    switch (giOption) {
    case kActionReadInfo:
        ReadInfo();
        break;
    case kActionLed:
        if (setIRL(static_cast<unsigned>(giArgValue1)) < 0)
            puts("setIRL failed.");
        break;
    case kActionIcr:
        if (SetICR(static_cast<unsigned>(giArgValue1)) < 0)
            puts("SetICR failed.");
        break;
    case kActionExposure:
        ApplyExposure();
        break;
    case kActionReset:
        ResetSensor(); // the GPIO layer has reported what failed
        break;
    case kActionStressTest:
        camStat::RunI2cTest();
        break;
    default:
        break;
    }
}

} // namespace

int main(int argc, char **argv)
{
    camStat::SetUpStreams();
    switch (camStat::ParseOptions(argc, argv)) {
    case camStat::Parsed::Usage:
        Usage();
        return kExitDone;
    case camStat::Parsed::Unsupported:
        return kExitUnsupported;
    case camStat::Parsed::Run:
        break;
    }
    camStat::AskForExactPauses();
    camStat::InstallStopHandler(SigHandler);
    if (giOption == kActionStressTest)
        camStat::InstallLostOutputHandler(OnLostOutput);
    if (camStat::StartBoard("camStat") != 0)
        return kExitDone;
    PerformAction();
    camStat::StopBoard();
    return kExitDone;
}
