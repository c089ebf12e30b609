// SPDX-License-Identifier: MIT
//
// camConf's commands on the camera: apply and watch. What differs and how it is written is the applier's
// business; here is what the applier is told to have been applied before.
#include "app/camConf/camConf.h"

#include "app/shared/process.h"
#include "app/shared/startup.h"
#include "config/confParser.h"
#include "config/confText.h"
#include "config/imageSet.h"
#include "kelisp/ispImageSet.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

namespace
{

using namespace camConf;

volatile sig_atomic_t gStop = 0;

void OnStopSignal(int)
{
    gStop = 1;
}

// ---- Records to apply

/// A record, and 1 in each field that the file or the command line gives. White-balance gains that are not given
/// stay as the camera has them.
struct Settings {
    ImgCfgStatus values;
    ImgCfgStatus given;
};

constexpr kel::ConfField kGains[] = {&ImgCfgStatus::wbR, &ImgCfgStatus::wbB};

int Load(const char *path, Settings *settings)
{
    settings->given = {};
    return LoadRecord(path, &settings->values, &settings->given);
}

/// Parses an option string like ImgCfgParseOptions, but refuses what `check` would object to, and takes blanks.
int ParseStrictly(char *options, Settings *settings)
{
    bool taken[sizeof(kel::kConfKeys) / sizeof(kel::kConfKeys[0])] = {};
    char *rest = options;
    for (char *word = kel::NextWord(&rest, kel::EndsOf(",")); word != nullptr;
         word = kel::NextWord(&rest, kel::EndsOf(","))) {
        const char *key = cli::Trim(word);
        if (*key == '\0')
            continue;
        char *value = strchr(word, '=');
        if (value == nullptr)
            return cli::Fail(key, "no value");
        *value = '\0';
        value = cli::Trim(value + 1);
        key = cli::Trim(word);
        if (*value == '\0')
            return cli::Fail(key, "no value");
        if (RefuseSetting(key, value))
            return cli::kFailed;
        const kel::ConfKey *known = FindExactKey(key);
        if (known->action == kel::KeyAction::NotStored)
            return cli::Fail(key, "nothing is stored for this key");
        bool &before = taken[known - kel::kConfKeys];
        if (before)
            return cli::Fail(key, "given twice");
        before = true;
        kel::Loading loading{&settings->given};
        kel::ParseSetting(&settings->values, key, value, &loading);
    }
    return cli::kDone;
}

/// What the camera has: nothing is known of it to a program that has just started.
struct Camera {
    ImgCfgStatus applied = {};
    bool known = false;
};

/// Applies the settings; tells whether the applier saved the gains.
bool ApplyTo(Camera &camera, const Settings &settings)
{
    ImgCfgStatus wanted = settings.values;
    kel::ApplySettings(wanted, camera.applied, camera.known, &settings.given);
    camera.known = true;
    fflush(stdout);
    return settings.values.wbSave == 1 && wanted.wbSave == 0;
}

/// cli::kFailed after a message when steps of the applier failed since its counter stood at `errorsBefore`.
int ReportFailedSteps(int32_t errorsBefore)
{
    const int32_t failed = giImgSetErrCount - errorsBefore;
    if (failed == 0)
        return cli::kDone;
    fprintf(stderr, "camConf: %d step%s failed, not every setting was applied\n", failed,
            failed == 1 ? "" : "s");
    return cli::kFailed;
}

// ---- Watching a file

/// What tells one content behind a path from another; zero for none. Looked at instead of listened for: so it
/// does not matter how the content changes, by a rename, a link's target, another folder or a mount.
struct Mark {
    dev_t device = 0;
    ino_t file = 0;
    off_t size = 0;
    timespec modified = {};
    timespec changed = {};
};

Mark MarkOf(const char *path)
{
    struct stat info;
    if (stat(path, &info) != 0)
        return {};
    return {info.st_dev, info.st_ino, info.st_size, info.st_mtim, info.st_ctim};
}

bool IsSame(const Mark &a, const Mark &b)
{
    const auto sameTime = [](const timespec &x, const timespec &y) {
        return x.tv_sec == y.tv_sec && x.tv_nsec == y.tv_nsec;
    };
    return a.device == b.device && a.file == b.file && a.size == b.size && sameTime(a.modified, b.modified) &&
           sameTime(a.changed, b.changed);
}

constexpr timespec kLookInterval = {0, 200000000};

/// Applies settings and remembers in `last` what the file holds; `read` was read from it, and what the applier
/// saved is in it as well by now.
void ApplyFile(const char *path, Camera &camera, const Settings &read, const Settings &wanted, Settings *last)
{
    const int32_t errorsBefore = giImgSetErrCount;
    const bool saved = ApplyTo(camera, wanted);
    ReportFailedSteps(errorsBefore);
    *last = read;
    if (!saved || strcmp(path, IMG_CFG_SYSTEM_FILE) != 0)
        return;
    for (const kel::ConfField gain : kGains)
        if (read.given.*gain != 0)
            last->values.*gain = camera.applied.*gain;
}

/// Applies what differs between the file as it was read last and as it is now.
void ApplyChanges(const char *path, Camera &camera, Settings *last)
{
    Settings now;
    if (Load(path, &now) != cli::kDone)
        return; // what was applied stays, until the file can be read again
    if (memcmp(&now, last, sizeof(now)) == 0)
        return;
    // The gains and the wish to save them count when they change in the file: 2A_WB_SAVE=1 stays there after
    // the save, which would otherwise be answered by the next one.
    Settings wanted = now;
    ImgCfgStatus before = last->values;
    for (const kel::ConfField gain : kGains) {
        const bool added = last->given.*gain == 0;
        if (!added && now.values.*gain == before.*gain)
            wanted.given.*gain = 0;
        if (added || now.given.*gain == 0)
            before.*gain = now.values.*gain; // no change of the file that could be told
    }
    if (now.values.wbSave == before.wbSave)
        wanted.values.wbSave = 0;
    PrintDifferences(before, now.values);
    ApplyFile(path, camera, now, wanted, last);
}

/// A new content counts once two looks in a row found it, so that a file is not read while it is written.
int WatchUntilStopped(const char *path, Mark applied, Camera &camera, Settings *last,
                      const sigset_t &waitMask)
{
    Mark before = applied;
    while (gStop == 0) {
        if (!camStat::AwaitSignal(kLookInterval, waitMask))
            return cli::Fail("waiting");
        const Mark now = MarkOf(path);
        if (!IsSame(now, applied) && IsSame(now, before)) {
            applied = now;
            ApplyChanges(path, camera, last);
        }
        before = now;
    }
    return cli::kDone;
}

} // namespace

int camConf::Apply(const cli::Arguments &arguments)
{
    Settings wanted;
    int status = Load(arguments.count > 0 ? arguments.words[0] : IMG_CFG_SYSTEM_FILE, &wanted);
    if (status == cli::kDone && arguments.Has(kSettings))
        status = ParseStrictly(arguments.options[kSettings], &wanted);
    if (status != cli::kDone)
        return status;
    if (arguments.Has(kDryRun)) {
        PrintAsFile(wanted.values, &wanted.given);
        return cli::kDone;
    }
    camStat::InstallStopHandler(OnStopSignal);
    camStat::HoldStopSignals(); // the settings are applied whole, also when a signal comes
    if (camStat::StartBoard("camConf") != 0)
        return cli::kFailed;
    const int32_t errorsBefore = giImgSetErrCount;
    Camera camera;
    ApplyTo(camera, wanted);
    status = ReportFailedSteps(errorsBefore);
    camStat::StopBoard();
    return status;
}

int camConf::Watch(const cli::Arguments &arguments)
{
    const char *path = arguments.count > 0 ? arguments.words[0] : IMG_CFG_SYSTEM_FILE;
    camStat::InstallStopHandler(OnStopSignal);
    const sigset_t waitMask = camStat::HoldStopSignals();
    const Mark first = MarkOf(path); // before the first look inside, so that no change falls between
    Settings read;
    if (Load(path, &read) != cli::kDone || camStat::StartBoard("camConf") != 0)
        return cli::kFailed;
    Camera camera;
    Settings last;
    ApplyFile(path, camera, read, read, &last);
    printf("watching %s\n", path);
    fflush(stdout);
    const int status = WatchUntilStopped(path, first, camera, &last, waitMask);
    camStat::StopBoard();
    return status;
}
