// SPDX-License-Identifier: MIT
//
// camCtl watch: values in even intervals until a stop signal, as a table redrawn in place, as lines, CSV or JSON.
#include "app/camCtl/items.h"
#include "app/shared/process.h"

#include <errno.h>
#include <limits.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

namespace
{

using namespace camCtl;
using cli::Arguments;

volatile sig_atomic_t gWatchEnds = 0;

void EndWatch(int)
{
    gWatchEnds = 1;
}

enum class Form { Lines, Table, Csv, Json };

/// One look at everything. `image.wanted` marks what is known.
struct Sample {
    double seconds; ///< since the start
    Image image;
    double status[2 * kRegisters]; ///< by item; NaN for what is not known
    bool readouts;                 ///< live fields can be believed
};

int64_t NowUs()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

/// kFailed when something could not be read; the rest is there all the same.
int TakeSample(const Items &items, Sample &sample)
{
    sample.image = {};
    WantItems(items, &sample.image);
    int status = items.opensReadouts ? OpenReadouts() : cli::kDone;
    sample.readouts = status == cli::kDone;
    if (ReadWanted(sample.image, true) != cli::kDone)
        status = cli::kFailed;
    sample.readouts &= ShowsReadouts(sample.image);
    for (int i = 0; i < items.count; ++i)
        if (items.list[i].status != nullptr &&
            ReadStatus(*items.list[i].status, &sample.status[i]) != cli::kDone)
            status = cli::kFailed;
    return status;
}

bool IsKnown(const Item &item, const Sample &sample)
{
    if (item.IsLive() && !sample.readouts)
        return false;
    const int registers = item.field != nullptr ? item.field->registers : 1;
    for (int i = 0; i < registers; ++i)
        if (!sample.image.wanted[item.reg + i])
            return false;
    return true;
}

// ---- Output

void PrintCsvHeader(const Items &items)
{
    fputs("time_s", stdout);
    for (int i = 0; i < items.count; ++i) {
        const Item &item = items.list[i];
        if (item.field == nullptr && item.status == nullptr)
            printf(",0x%02X", item.reg);
        else
            printf(",%s", item.field != nullptr ? item.field->name : item.status->name);
    }
    putchar('\n');
}

void PrintCsvLine(const Items &items, const Sample &sample)
{
    printf("%.3f", sample.seconds);
    for (int i = 0; i < items.count; ++i) {
        const Item &item = items.list[i];
        putchar(',');
        if (item.status != nullptr && !isnan(sample.status[i]))
            printf("%.*f", item.status->decimals, sample.status[i]);
        else if (item.status == nullptr && IsKnown(item, sample))
            printf("%u", item.field != nullptr ? CodeOf(*item.field, sample.image.values)
                                               : sample.image.values[item.reg]);
    }
    putchar('\n');
}

void PrintJsonLine(const Items &items, const Sample &sample)
{
    cli::Json json;
    json.Begin();
    json.Number("time_s", sample.seconds);
    for (int i = 0; i < items.count; ++i) {
        const Item &item = items.list[i];
        if (item.status != nullptr)
            json.Number(item.status->name, sample.status[i]);
        else
            ShowItem(&json, item, sample.image, IsKnown(item, sample));
    }
    json.End();
}

/// Prints the lines of a sample, `most` of them, each behind `begin`; gives their number.
int PrintLines(const Items &items, const Sample &sample, const char *begin, int most)
{
    printf("%s# %.3f s\n", begin, sample.seconds);
    int lines = 1;
    for (int i = 0; i < items.count && lines < most; ++i, ++lines) {
        const Item &item = items.list[i];
        fputs(begin, stdout);
        if (item.status == nullptr)
            ShowItem(nullptr, item, sample.image, IsKnown(item, sample));
        else if (isnan(sample.status[i]))
            printf("%s = unknown\n", item.status->name);
        else
            printf("%s = %.*f\n", item.status->name, item.status->decimals, sample.status[i]);
    }
    return lines;
}

/// Draws over the `drawn` lines of the table before: only what the terminal has lines for, and no line goes on in
/// the next one.
int DrawTable(const Items &items, const Sample &sample, int drawn)
{
    winsize size = {};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 1;
    fputs("\033[?7l", stdout);
    if (drawn > 0)
        printf("\033[%dA", drawn);
    const int lines = PrintLines(items, sample, "\033[K", known ? size.ws_row - 1 : INT_MAX);
    fputs("\033[J\033[?7h", stdout);
    return lines;
}

// ---- The run

/// Waits until `dueUs`; false when a stop signal came.
bool AwaitBeat(int64_t dueUs, const sigset_t &waitMask)
{
    for (;;) {
        const int64_t leftUs = dueUs - NowUs();
        if (gWatchEnds != 0) // looked at last: a sanitizer gives a signal on with the next call, no earlier
            return false;
        if (leftUs <= 0)
            return true;
        timespec left = {};
        left.tv_sec = static_cast<time_t>(leftUs / 1000000);
        left.tv_nsec = static_cast<long>(leftUs % 1000000) * 1000;
        if (!camStat::AwaitSignal(left, waitMask))
            return cli::Fail("waiting") == cli::kDone;
    }
}

int WatchItems(const Items &items, Form form, int64_t everyUs, int count, const sigset_t &waitMask)
{
    static Sample sample; // not on the stack of a small board
    int status = cli::kDone;
    int drawn = 0;
    if (form == Form::Csv)
        PrintCsvHeader(items);
    const int64_t startUs = NowUs();
    int64_t dueUs = startUs;
    for (int taken = 0; taken < count && AwaitBeat(dueUs, waitMask); ++taken) {
        const int64_t elapsedMs = (NowUs() - startUs) / 1000;
        sample.seconds = static_cast<double>(elapsedMs) / 1e3;
        if (TakeSample(items, sample) != cli::kDone) {
            status = cli::kFailed;
            drawn = 0; // messages stand below the table: the next one goes below them
        }
        if (form == Form::Csv)
            PrintCsvLine(items, sample);
        else if (form == Form::Json)
            PrintJsonLine(items, sample);
        else if (form == Form::Table)
            drawn = DrawTable(items, sample, drawn);
        else
            PrintLines(items, sample, "", INT_MAX);
        if (fflush(stdout) != 0)
            break;
        dueUs += ((NowUs() - dueUs) / everyUs + 1) * everyUs; // beats that were missed are left out
    }
    return status;
}

bool IsDrawable()
{
    const char *terminal = getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && terminal != nullptr && strcmp(terminal, "dumb") != 0;
}

} // namespace

int camCtl::Watch(const Arguments &arguments)
{
    static Items items;
    double everyUs = 1e6;
    int count = INT_MAX;
    int retries = 0;
    const bool asCsv = arguments.Has(kCsv);
    if (asCsv && arguments.Has(kJson))
        return cli::Fail("--csv", "and --json are two forms, take one");
    if (!TakeItems(arguments, "watch", true, &items))
        return cli::kFailed;
    if (items.count == 0)
        AddAllStatus(&items);
    for (int i = 0; asCsv && i < items.count; ++i)
        if (items.list[i].field != nullptr && items.list[i].field->IsBlock())
            return cli::Fail(items.list[i].field->name,
                             "is a block of bytes, which no column of --csv holds");
    if ((arguments.Has(kEvery) && !TakeTime(arguments, kEvery, &everyUs)) ||
        (arguments.Has(kCount) && !TakeNumber(arguments, kCount, 1, INT_MAX, &count)) ||
        !TakeRetries(arguments, &retries))
        return cli::kFailed;
    camStat::InstallStopHandler(EndWatch);
    const sigset_t waitMask = camStat::HoldStopSignals();
    if (OpenCamera(retries) != cli::kDone)
        return cli::kFailed;
    int status = items.hasStatus ? StartSensor() : cli::kDone;
    if (status == cli::kDone)
        status = WatchItems(items,
                            asCsv                  ? Form::Csv
                            : arguments.Has(kJson) ? Form::Json
                            : IsDrawable()         ? Form::Table
                                                   : Form::Lines,
                            static_cast<int64_t>(everyUs), count, waitMask);
    CloseCamera();
    return status;
}
