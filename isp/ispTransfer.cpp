// SPDX-License-Identifier: MIT
//
// Block transfer: what the camera bus does not give by itself. Limits on the block, retries with a pause
// after every attempt, the error counter, line and log, and the reflect handshake before every write. One
// thread at a time.
#include "kelisp/ispCXD3193AR.h"

#include "base/pause.h"
#include "base/report.h"
#include "kelisp/clock.h"
#include "kelisp/drvI2c.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

uint8_t gbRegAddr[256];
uint8_t gbRegValue[256];
int32_t giI2cErrCount = 0;
int32_t giI2cErrRetry = 0;
int32_t giI2cReadErrCount = 0;

namespace
{

constexpr char kModule[] = "ispCXD3193AR";
constexpr char kErrLogPath[] = "/mnt/nand/I2cErr.csv";

constexpr int kMaxReadCount = 32;
constexpr int kMaxWriteCount = 256;

constexpr uint32_t kAttemptPauseUs = 1000;

// The processor shows here which register groups it is still taking over; all zero: ready for the next write.
constexpr uint8_t kReflectFirstReg = 0x20;
constexpr int kReflectRegs = 3;
constexpr uint32_t kReflectPollUs = 10000;
constexpr int64_t kReflectLimitMs = 5000;
constexpr int kReflectMaxPolls = 501;

/// Registers up to `last` (from the row before) are reflected together with all others of the same bit.
struct ReflectRange {
    uint8_t last;
    uint8_t bit;
};

constexpr ReflectRange kReflectRanges[] = {
    {0x2F, 0x00}, {0x3B, 0x04}, {0x3E, 0x08}, {0x52, 0x10}, {0x5E, 0x20}, {0x61, 0x40}, {0x63, 0x80},
    {0x70, 0x01}, {0x71, 0x02}, {0x92, 0x04}, {0x96, 0x08}, {0xA3, 0x10}, {0xA7, 0x20}, {0xAB, 0x40},
    {0xC9, 0x80}, {0xCC, 0x01}, {0xF0, 0x02}, {0xFD, 0x04}, {0xFF, 0x00},
};

constexpr bool RangesAscendToLastRegister()
{
    int before = -1;
    for (const ReflectRange &range : kReflectRanges) {
        if (range.last <= before)
            return false;
        before = range.last;
    }
    return before == 0xFF;
}
static_assert(RangesAscendToLastRegister());

/// Milliseconds since a start, through a clock that may fail. A reading that fails counts as no time passed
/// since the reading before; when the start itself could not be read, the first reading that succeeds takes
/// its place. So a broken clock can neither end a wait early nor put nonsense into the log.
struct Stopwatch {
    int64_t startMs;
    int64_t elapsedMs;
    bool started;
};

bool StartWatch(Stopwatch *watch)
{
    *watch = {};
    watch->started = GetMsFromStart(&watch->startMs) >= 0;
    return watch->started;
}

/// Takes the time; false when the clock could not be read.
bool TakeTime(Stopwatch *watch)
{
    int64_t nowMs = 0;
    if (GetMsFromStart(&nowMs) < 0)
        return false;
    if (!watch->started) {
        watch->startMs = nowMs;
        watch->started = true;
    }
    watch->elapsedMs = nowMs - watch->startMs;
    return true;
}

/// One transfer under way: what is repeated, and how its failure reads.
struct ScratchTransfer {
    int (*transfer)(DrvI2cHndl *, uint8_t *, uint8_t *, uint8_t);
    const char *function; // as the failure line names it
    uint8_t firstReg;
    int count;
    bool write;
};

int Refuse(const char *message, kel::Where where = {})
{
    kel::ReportError(kModule, message, where);
    return CXD3193AR_FAILED;
}

void FillScratch(uint8_t firstReg, int count)
{
    memset(gbRegAddr, 0, sizeof(gbRegAddr));
    memset(gbRegValue, 0, sizeof(gbRegValue));
    for (int i = 0; i < count; ++i)
        gbRegAddr[i] = static_cast<uint8_t>(firstReg + i);
}

void PrintClockFailure()
{
    puts("GetMsFromStart failed!");
}

void PrintAttemptFailure(const ScratchTransfer &what, int64_t elapsedMs)
{
    const auto ms = static_cast<long long>(elapsedMs);
    if (what.write)
        fprintf(stderr, "[%s] Write 0x%02x = 0x%02x failed! count = %d, %lld ms\n", what.function,
                what.firstReg, gbRegValue[0], what.count, ms);
    else
        fprintf(stderr, "[%s] Read Addr (0x%02x) failed! count = %d, %lld ms\n", what.function, what.firstReg,
                what.count, ms);
}

/// Attempts the transfer of the scratch lists until it succeeds or the retries are used up. Every attempt,
/// good or bad, is followed by the pause.
int TransferScratch(const ScratchTransfer &what)
{
    Stopwatch watch;
    if (!StartWatch(&watch))
        PrintClockFailure();
    for (int attempt = 0;; ++attempt) {
        const int status = what.transfer(&gtI2cHndl, gbRegAddr, gbRegValue, static_cast<uint8_t>(what.count));
        if (status >= 0) {
            kel::PauseUs(kAttemptPauseUs);
            return 0;
        }
        const int reason = errno;
        if (!TakeTime(&watch))
            PrintClockFailure();
        PrintAttemptFailure(what, watch.elapsedMs);
        ++giI2cErrCount;
        CXD3193AR_LogI2cErr(attempt, giI2cErrCount, watch.elapsedMs);
        kel::PauseUs(kAttemptPauseUs);
        errno = reason; // of the device, not of the log
        if (attempt >= giI2cErrRetry)
            return CXD3193AR_FAILED;
    }
}

/// Whether the file's last line was cut, by a full flash or the end of power. Leaves the file at its end.
bool EndsInsideLine(FILE *file)
{
    if (fseek(file, -1, SEEK_END) != 0)
        return false; // empty
    const int last = fgetc(file);
    fseek(file, 0, SEEK_END);
    return last != '\n' && last != EOF;
}

bool ReflectPending(const uint8_t *reflect)
{
    return (reflect[0] | reflect[1] | reflect[2]) != 0;
}

/// Ends a wait for the processor: it answers, so that no errno of the device tells what is wrong.
int GiveUp(const char *message, const char *function)
{
    const int status = Refuse(message, function);
    errno = ETIME;
    return status;
}

/// Waits until the processor has taken over what was written before; reports as `function`.
int AwaitReflect(const char *function)
{
    Stopwatch watch;
    if (!StartWatch(&watch))
        Refuse("[kel_isp] Error: GetMsFromStart failed.\n", function);
    for (int polls = 0; polls < kReflectMaxPolls; ++polls) {
        uint8_t reflect[kReflectRegs] = {};
        const int status = CXD3193AR_Read(kReflectFirstReg, reflect, kReflectRegs);
        if (status < 0)
            return status;
        if (!ReflectPending(reflect))
            return 0;
        kel::PauseUs(kReflectPollUs);
        if (!TakeTime(&watch) || watch.elapsedMs < 0)
            Refuse("[kel_isp] Error: dwEnd < 0 || dwEnd < dwStart.\n", function);
        if (watch.elapsedMs > kReflectLimitMs)
            return GiveUp("[kel_isp] Error: Read reflect registers timeout.\n", function);
    }
    return GiveUp("[kel_isp] Error: Read reflect registers timeout count.\n", function);
}

} // namespace

uint8_t CXD3193AR_ReflectBit(uint8_t reg)
{
    const ReflectRange *range = kReflectRanges;
    while (reg > range->last)
        ++range;
    return range->bit;
}

int CXD3193AR_LogI2cErr(int attempt, int errCount, int64_t elapsedMs)
{
    char now[KEL_STAMP_SIZE];
    GetDateTime(now);
    FILE *log = fopen(kErrLogPath, "a+");
    if (log == nullptr) {
        fputs("fopen failed!\n", stderr);
        return -1;
    }
    const char *before = EndsInsideLine(log) ? "\n" : "";
    // A full flash loses the line; the transfer that is being logged matters more than its record.
    fprintf(log, "%s%s, %d, %lld, %d\n", before, now, attempt, static_cast<long long>(elapsedMs), errCount);
    fclose(log);
    return 0;
}

int CXD3193AR_Read(uint8_t firstReg, uint8_t *dest, int count)
{
    if (count < 1 || count > kMaxReadCount)
        return Refuse("[kel_isp] Error: CXD3193AR_Read count.\n");
    FillScratch(firstReg, count);
    const int status = TransferScratch({DrvI2cReadBlk8, __func__, firstReg, count, false});
    if (status == 0)
        memcpy(dest, gbRegValue, static_cast<size_t>(count));
    return status;
}

int CXD3193AR_Write(uint8_t firstReg, const uint8_t *src, int count)
{
    if (count < 1 || count > kMaxWriteCount)
        return Refuse("[kel_isp] Error: CXD3193AR_Write count.\n");
    const auto lastReg = static_cast<uint8_t>(firstReg + count - 1);
    if (CXD3193AR_ReflectBit(firstReg) != CXD3193AR_ReflectBit(lastReg))
        return Refuse("[kel_isp] Error: Reflect Bit1 != Bit2.\n");
    const int status = AwaitReflect(__func__);
    if (status < 0)
        return status;
    FillScratch(firstReg, count); // only now: the poll's reads use the scratch lists as well
    memcpy(gbRegValue, src, static_cast<size_t>(count));
    return TransferScratch({DrvI2cWrite8, __func__, firstReg, count, true});
}
