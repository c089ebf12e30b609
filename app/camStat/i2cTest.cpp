// SPDX-License-Identifier: MIT
//
// The stress test. Its thread does all camera work and all printing; the main thread only waits for the
// finished state.
#include "app/camStat/i2cTest.h"

#include "app/camStat/options.h"
#include "app/camStat/reports.h"
#include "app/shared/stressFiles.h"
#include "base/pause.h"
#include "base/report.h"
#include "kelisp/clock.h"

#include <pthread.h>
#include <signal.h>
#include <stdio.h>

constinit kel::AtomicWord giI2cTestThreald{0};

namespace
{

enum ThreadState : int32_t { kNotStarted = 0, kRunning = 1, kFinished = 2 };

constexpr uint32_t kWaitUs = 1000000;

// While the test runs, the exposure values switch between these two whenever more than this time has passed.
// Nothing applies them to the camera during the test.
constexpr int64_t kSwitchAfterMs = 3000;

struct ExposureValues {
    double shutterUs;
    double again;
};
constexpr ExposureValues kSwitched[] = {{1000000.0 / 30, 2.0}, {1000000.0 / 120, 1.0}};

/// What one run of the test keeps.
struct TestRun {
    char start[KEL_STAMP_SIZE];
    char now[KEL_STAMP_SIZE];
    int64_t startMs; // of the run, then of the last exposure switch
    int64_t nowMs;
    int iteration;
    int nextValues;                      // of kSwitched, at the next switch
    char summary[camStat::kSummarySize]; // of the last iteration; empty before the first
};

/// An interrupt that came while the shell ran is taken as if it had come before.
void StopAfter(bool interrupted)
{
    if (interrupted)
        SigHandler(SIGINT);
}

void TakeMs(int64_t *ms)
{
    if (GetMsFromStart(ms) < 0)
        puts("GetMsFromStart failed!");
}

bool StopRequested()
{
    if (kel::LoadWord(giCamStatTerm) != 1)
        return false;
    puts("camStat received SIGTERM!"); // the same line for SIGINT
    return true;
}

void SwitchExposureValues(TestRun &run)
{
    if (run.nowMs - run.startMs <= kSwitchAfterMs)
        return;
    const ExposureValues &values = kSwitched[run.nextValues];
    gdbShutter = values.shutterUs;
    gdbSensorAgain = values.again;
    run.nextValues ^= 1;
    run.startMs = run.nowMs;
}

void PrintSummary(TestRun &run)
{
    camStat::FormatSummary(run.summary, run.start, run.now, run.iteration);
    fputs(run.summary, stdout);
}

/// Reads until a stop is requested or a readout fails.
void ReadUntilStopped(TestRun &run)
{
    for (;; ++run.iteration) {
        GetDateTime(run.now);
        if (InfoOut() < 0) {
            puts("InfoOut failed!");
            PrintSummary(run);
            return;
        }
        TakeMs(&run.nowMs);
        SwitchExposureValues(run);
        PrintSummary(run);
        if (StopRequested())
            return;
    }
}

/// Writes the last summary; false when the file cannot be created. A flash that takes the file but not its
/// text is reported as well: the technician must not go home with an empty result.
bool SaveResult(const TestRun &run, const char *stamp)
{
    char path[camStat::kResultPathSize];
    const camStat::Saved saved = camStat::SaveResult(run.summary, stamp, path);
    if (saved != camStat::Saved::Done)
        fprintf(stderr, "%s %s failed!\n", saved == camStat::Saved::NotOpened ? "fopen" : "write", path);
    return saved != camStat::Saved::NotOpened;
}

} // namespace

void *I2cTestThread(void *)
{
    kel::StoreWord(giI2cTestThreald, kRunning);
    gdbSensorDgain = 1.0;
    TestRun run = {};
    StopAfter(camStat::ClearKernelLog());
    GetDateTime(run.start);
    TakeMs(&run.startMs);
    if (!StopRequested())
        ReadUntilStopped(run);
    GetTimeStamp(run.now); // the form for file names
    if (SaveResult(run, run.now))
        StopAfter(camStat::CaptureKernelLog(run.now));
    kel::StoreWord(giI2cTestThreald, kFinished);
    return nullptr;
}

namespace camStat
{

void RunI2cTest()
{
    pthread_t thread;
    if (pthread_create(&thread, nullptr, I2cTestThread, nullptr) != 0) {
        kel::ReportStep("camStat", "pthread_create", -1, "main");
        return;
    }
    pthread_detach(thread); // its end is told by the state, not by a join
    while (kel::LoadWord(giI2cTestThreald) != kFinished)
        kel::PauseUs(kWaitUs);
    fputs("=================  Finish I2C test. ================ \n", stderr);
}

} // namespace camStat
