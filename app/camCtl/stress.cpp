// SPDX-License-Identifier: MIT
//
// camCtl stress: the reads of camStat -t without its report, with figures and a verdict.
#include "app/camCtl/camCtl.h"

#include "app/camCtl/status.h"
#include "app/shared/process.h"
#include "app/shared/stressFiles.h"
#include "base/atomicWord.h"
#include "kelisp/clock.h"
#include "kelisp/ispCXD3193AR.h"
#include "kelisp/sensorInfo.h"

#include <errno.h>
#include <limits.h>
#include <math.h>
#include <signal.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

namespace
{

using namespace camCtl;
using cli::Arguments;

constinit kel::AtomicWord gStop{0};

void OnStop(int)
{
    kel::StoreWord(gStop, 1);
}

constexpr int kMostRetries = 100;
constexpr int kWorst = 3;
constexpr int64_t kDrawEveryUs = 1000000;

struct Limits {
    int64_t us; ///< INT64_MAX: none
    int64_t rounds;
};

/// A run's figures.
struct Tally {
    int64_t startUs;
    int64_t nowUs; ///< when the last transfer had ended
    int64_t rounds;
    int64_t transfers;
    int32_t failures;                    ///< attempts
    int64_t recovered[kMostRetries + 1]; ///< transfers, by the retry that succeeded
    const Field *fields[kLiveCount];     ///< of the readouts
    int32_t failuresOf[kLiveCount];      ///< at the first readout of each register
    int64_t longestUs;
    int longest;
    int failed; ///< the readout that gave up; -1 for none
    int reason; ///< errno of it
    int64_t drawnUs;
};

/// Monotonic microseconds; a clock that fails stands still.
int64_t NowUs(int64_t before)
{
    timespec now = {};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0)
        return before;
    return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

double Seconds(const Tally &tally)
{
    return static_cast<double>(tally.nowUs - tally.startUs) / 1e6;
}

double RoundsPerSecond(const Tally &tally)
{
    return tally.nowUs > tally.startUs ? static_cast<double>(tally.rounds) / Seconds(tally) : 0.0;
}

// ---- Progress

// As wide as the shortest line that tells of a failed attempt: that line then covers what stands here.
constexpr int kProgressWidth = 57;

/// Draws the line and goes back to its beginning. The time left is what the nearer limit leaves.
void DrawProgress(const Tally &tally, const Limits &limits)
{
    char text[160];
    const double rate = RoundsPerSecond(tally);
    const int length =
        snprintf(text, sizeof(text), "%lld rounds, %.1f/s, %d failed attempt%s",
                 static_cast<long long>(tally.rounds), rate, tally.failures, tally.failures == 1 ? "" : "s");
    double left = limits.us < INT64_MAX ? static_cast<double>(limits.us) / 1e6 - Seconds(tally) : -1.0;
    if (limits.rounds < INT64_MAX && rate > 0.0) {
        const double ofRounds = static_cast<double>(limits.rounds - tally.rounds) / rate;
        left = left < 0.0 || ofRounds < left ? ofRounds : left;
    }
    const long seconds = lround(left);
    if (left >= 0.0)
        snprintf(text + length, sizeof(text) - static_cast<size_t>(length), ", %ld:%02ld:%02ld left",
                 seconds / 3600, seconds / 60 % 60, seconds % 60);
    fprintf(stderr, "%-*.*s\r", kProgressWidth, kProgressWidth, text);
}

void EraseProgress()
{
    fprintf(stderr, "%*s\r", kProgressWidth, "");
}

// ---- The rounds

/// Reads every readout once; false when one gave up.
bool ReadRound(Tally &tally, const Limits &limits, bool draws)
{
    for (size_t i = 0; i < kLiveCount; ++i) {
        const int32_t failuresBefore = giI2cErrCount;
        const bool gaveUp = IsFailure(kStatusRows[i].read());
        const int reason = errno;
        const int64_t endUs = NowUs(tally.nowUs);
        const int32_t failures = giI2cErrCount - failuresBefore;
        ++tally.transfers;
        if (endUs - tally.nowUs > tally.longestUs) {
            tally.longestUs = endUs - tally.nowUs;
            tally.longest = static_cast<int>(i);
        }
        tally.nowUs = endUs;
        if (failures > 0) {
            tally.failures += failures;
            size_t first = 0;
            while (tally.fields[first]->reg != tally.fields[i]->reg)
                ++first;
            tally.failuresOf[first] += failures;
            if (!gaveUp)
                ++tally.recovered[failures];
        }
        if (gaveUp) {
            tally.failed = static_cast<int>(i);
            tally.reason = reason;
            return false;
        }
        if (draws && endUs - tally.drawnUs >= kDrawEveryUs) {
            DrawProgress(tally, limits);
            tally.drawnUs = endUs;
            tally.nowUs = NowUs(endUs); // a slow terminal is no slow transfer
        }
    }
    return true;
}

/// Reads rounds, one at least, until a limit or a signal ends them, or a readout gives up.
void ReadRounds(Tally &tally, const Limits &limits)
{
    const bool draws = isatty(STDERR_FILENO) != 0;
    tally = {};
    for (size_t i = 0; i < kLiveCount; ++i)
        tally.fields[i] = FindField(kStatusRows[i].field);
    tally.failed = -1;
    tally.startUs = tally.nowUs = tally.drawnUs = NowUs(0);
    while (ReadRound(tally, limits, draws)) {
        ++tally.rounds;
        if (kel::LoadWord(gStop) != 0 || tally.rounds >= limits.rounds ||
            tally.nowUs - tally.startUs >= limits.us)
            break;
    }
    if (draws)
        EraseProgress();
}

// ---- The summary

/// Indices of the readouts with most failures, most first; gives their number.
int FindWorst(const Tally &tally, int (&worst)[kWorst])
{
    bool taken[kLiveCount] = {};
    int count = 0;
    for (; count < kWorst; ++count) {
        int most = -1;
        for (int i = 0; i < static_cast<int>(kLiveCount); ++i)
            if (!taken[i] && tally.failuresOf[i] > (most < 0 ? 0 : tally.failuresOf[most]))
                most = i;
        if (most < 0)
            break;
        taken[most] = true;
        worst[count] = most;
    }
    return count;
}

void PrintSummary(const Tally &tally)
{
    int worst[kWorst];
    const int worstCount = FindWorst(tally, worst);
    printf("rounds: %lld in %.1f s, %.1f/s\n", static_cast<long long>(tally.rounds), Seconds(tally),
           RoundsPerSecond(tally));
    printf("transfers: %lld\nfailed attempts: %d\nrecovered:", static_cast<long long>(tally.transfers),
           tally.failures);
    const char *before = " ";
    for (int retry = 1; retry <= kMostRetries; ++retry) {
        if (tally.recovered[retry] == 0)
            continue;
        printf("%s%lld by retry %d", before, static_cast<long long>(tally.recovered[retry]), retry);
        before = ", ";
    }
    printf("%s\nlongest transfer: %.1f ms, %s (0x%02X)\nmost failures:", before[0] == ' ' ? " none" : "",
           static_cast<double>(tally.longestUs) / 1e3, tally.fields[tally.longest]->name,
           tally.fields[tally.longest]->reg);
    for (int i = 0; i < worstCount; ++i)
        printf("%s %s (0x%02X) %d", i > 0 ? "," : "", tally.fields[worst[i]]->name,
               tally.fields[worst[i]]->reg, tally.failuresOf[worst[i]]);
    puts(worstCount == 0 ? " none" : "");
    if (tally.failed < 0)
        puts("PASS");
    else
        printf("FAIL: %s (0x%02X) gave up after %d attempt%s: %s\n", tally.fields[tally.failed]->name,
               tally.fields[tally.failed]->reg, giI2cErrRetry + 1, giI2cErrRetry == 0 ? "" : "s",
               strerror(tally.reason));
}

void SummaryToJson(const Tally &tally)
{
    int worst[kWorst];
    const int worstCount = FindWorst(tally, worst);
    cli::Json json;
    const auto nameField = [&](int index) {
        json.Text("field", tally.fields[index]->name);
        json.Number("address", int64_t{tally.fields[index]->reg});
    };
    json.Begin();
    json.Number("rounds", tally.rounds);
    json.Number("seconds", Seconds(tally));
    json.Number("rounds_per_second", RoundsPerSecond(tally));
    json.Number("transfers", tally.transfers);
    json.Number("failed_attempts", int64_t{tally.failures});
    json.Open('[', "recovered");
    for (int retry = 1; retry <= kMostRetries; ++retry) {
        if (tally.recovered[retry] == 0)
            continue;
        json.Open('{');
        json.Number("retry", int64_t{retry});
        json.Number("transfers", tally.recovered[retry]);
        json.Close('}');
    }
    json.Close(']');
    json.Open('{', "longest_transfer");
    nameField(tally.longest);
    json.Number("ms", static_cast<double>(tally.longestUs) / 1e3);
    json.Close('}');
    json.Open('[', "most_failures");
    for (int i = 0; i < worstCount; ++i) {
        json.Open('{');
        nameField(worst[i]);
        json.Number("failed_attempts", int64_t{tally.failuresOf[worst[i]]});
        json.Close('}');
    }
    json.Close(']');
    json.Text("verdict", tally.failed < 0 ? "PASS" : "FAIL");
    if (tally.failed >= 0) {
        json.Open('{', "failure");
        nameField(tally.failed);
        json.Number("attempts", int64_t{giI2cErrRetry} + 1);
        json.Text("error", strerror(tally.reason));
        json.Close('}');
    }
    json.End();
}

// ---- The run

bool TakeLimits(const Arguments &arguments, Limits *limits)
{
    *limits = {INT64_MAX, INT64_MAX};
    double us = 0.0;
    int rounds = 0;
    if (arguments.Has(kTime) && !TakeTime(arguments, kTime, &us))
        return false;
    if (arguments.Has(kTime))
        limits->us = static_cast<int64_t>(us);
    if (arguments.Has(kRounds) && !TakeNumber(arguments, kRounds, 1, INT_MAX, &rounds))
        return false;
    if (arguments.Has(kRounds))
        limits->rounds = rounds;
    return true;
}

/// Writes the result and the kernel's messages; kFailed after an error line.
int SaveFiles(const Tally &tally, const char *start)
{
    char summary[camStat::kSummarySize];
    char path[camStat::kResultPathSize];
    char now[KEL_STAMP_SIZE];
    GetDateTime(now);
    camStat::FormatSummary(summary, start, now,
                           static_cast<int>(tally.failed < 0 ? tally.rounds - 1 : tally.rounds));
    GetTimeStamp(now);
    const camStat::Saved saved = camStat::SaveResult(summary, now, path);
    const int status = saved == camStat::Saved::Done ? cli::kDone : cli::Fail(path);
    if (saved != camStat::Saved::NotOpened)
        camStat::CaptureKernelLog(now);
    return status;
}

} // namespace

int camCtl::Stress(const Arguments &arguments)
{
    static Tally tally; // not on the stack of a small board
    Limits limits;
    int retries = 0;
    if (!TakeLimits(arguments, &limits) || !TakeRetries(arguments, &retries))
        return cli::kFailed;
    camStat::InstallStopHandler(OnStop);
    camStat::InstallLostOutputHandler(OnStop);
    camStat::AskForExactPauses();
    if (OpenCamera(retries) != cli::kDone)
        return cli::kFailed;
    if (StartSensor() != cli::kDone || (gtSensorInfo.infoOut != 0 && OpenReadouts() != cli::kDone)) {
        CloseCamera();
        return cli::kFailed;
    }
    const bool keepsFiles = !arguments.Has(kNoFiles);
    if (keepsFiles && camStat::ClearKernelLog())
        OnStop(SIGINT);
    char start[KEL_STAMP_SIZE];
    GetDateTime(start);
    ReadRounds(tally, limits);
    CloseCamera();
    const int files = keepsFiles ? SaveFiles(tally, start) : cli::kDone;
    if (arguments.Has(kJson))
        SummaryToJson(tally);
    else
        PrintSummary(tally);
    return tally.failed >= 0 ? cli::kNo : files;
}
