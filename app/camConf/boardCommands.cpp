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
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/inotify.h>
#include <unistd.h>

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

/// LoadRecord, which notes what the file gives.
int LoadGiven(const char *path, Settings *settings)
{
    if (CheckReadable(path) != kOk)
        return kFailed;
    ImgCfgDefault(&settings->values);
    settings->given = {};
    kel::Loading loading{&settings->given};
    return kel::LoadFile(&settings->values, path, &loading) == 0 ? kOk : Fail(path);
}

/// Parses an option string like ImgCfgParseOptions, but refuses what that would ignore.
int ParseStrictly(char *options, Settings *settings)
{
    char *rest;
    const char *key = strtok_r(options, kel::kOptionEnds, &rest);
    for (; key != nullptr; key = strtok_r(nullptr, kel::kOptionEnds, &rest)) {
        const char *value = strtok_r(nullptr, kel::kOptionEnds, &rest);
        if (value == nullptr)
            return Fail(key, "no value");
        const kel::ConfKey *known = kel::FindKey(key).key;
        if (known == nullptr)
            return Fail(key, "unknown key");
        const kel::KeyAction action = known->action;
        if (action == kel::KeyAction::NotStored || action == kel::KeyAction::LoopBreak ||
            action == kel::KeyAction::Echo)
            return Fail(key, "nothing is stored for this key");
        if (action == kel::KeyAction::Window && strlen(value) < kel::kWindowCells)
            return Fail(key, "fewer than 192 digits");
        kel::Loading loading{&settings->given};
        kel::ParseSetting(&settings->values, key, value, &loading);
    }
    return kOk;
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

/// kFailed after a message when steps of the applier failed since its counter stood at `errorsBefore`.
int ReportFailedSteps(int32_t errorsBefore)
{
    const int32_t failed = giImgSetErrCount - errorsBefore;
    if (failed == 0)
        return kOk;
    fprintf(stderr, "camConf: %d step%s failed, not every setting was applied\n", failed,
            failed == 1 ? "" : "s");
    return kFailed;
}

// ---- Watching a file

/// The file to watch: an inotify descriptor on its folder, since a replaced file is a new one under the same
/// name.
struct WatchedFile {
    const char *path;
    const char *name; ///< without the folder
    int fd = -1;
};

int OpenWatch(WatchedFile *file)
{
    char folder[PATH_MAX];
    if (!kel::FolderOf(file->path, folder))
        return Fail(file->path, strerror(ENAMETOOLONG));
    const char *slash = strrchr(file->path, '/');
    file->name = slash != nullptr ? slash + 1 : file->path;
    file->fd = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (file->fd < 0)
        return Fail("inotify");
    if (inotify_add_watch(file->fd, folder, IN_CLOSE_WRITE | IN_MOVED_TO | IN_ONLYDIR) < 0)
        return Fail(folder);
    return kOk;
}

enum class Event { None, Changed, Lost };

/// Takes all events that are there.
Event TakeEvents(const WatchedFile &file)
{
    alignas(inotify_event) char buffer[4096];
    Event result = Event::None;
    for (;;) {
        const ssize_t size = read(file.fd, buffer, sizeof(buffer));
        if (size <= 0)
            return result;
        for (ssize_t at = 0; at < size;) {
            const auto *event = reinterpret_cast<const inotify_event *>(buffer + at);
            at += static_cast<ssize_t>(sizeof(*event) + event->len);
            if ((event->mask & (IN_IGNORED | IN_UNMOUNT)) != 0)
                return Event::Lost;
            if ((event->mask & IN_Q_OVERFLOW) != 0 || (event->len > 0 && strcmp(event->name, file.name) == 0))
                result = Event::Changed;
        }
    }
}

/// Applies settings and remembers in `last` what the file holds; `read` was read from it, and what the applier
/// saved is in it as well by now.
void ApplyFile(const WatchedFile &file, Camera &camera, const Settings &read, const Settings &wanted,
               Settings *last)
{
    const int32_t errorsBefore = giImgSetErrCount;
    const bool saved = ApplyTo(camera, wanted);
    ReportFailedSteps(errorsBefore);
    *last = read;
    if (!saved || strcmp(file.path, IMG_CFG_SYSTEM_FILE) != 0)
        return;
    for (const kel::ConfField gain : kGains)
        if (read.given.*gain != 0)
            last->values.*gain = camera.applied.*gain;
}

/// Applies what differs between the file as it was read last and as it is now.
void ApplyChanges(const WatchedFile &file, Camera &camera, Settings *last)
{
    Settings now;
    if (LoadGiven(file.path, &now) != kOk)
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
    ApplyFile(file, camera, now, wanted, last);
}

int WatchUntilStopped(const WatchedFile &file, Camera &camera, Settings *last, const sigset_t &waitMask)
{
    pollfd events = {file.fd, POLLIN, 0};
    while (gStop == 0) {
        if (ppoll(&events, 1, nullptr, &waitMask) < 0)
            continue; // a signal
        const Event event = TakeEvents(file);
        if (event == Event::Lost)
            return Fail(file.path, "its folder is gone");
        if (event == Event::Changed)
            ApplyChanges(file, camera, last);
    }
    return kOk;
}

/// Keeps the stop signals for the waits, so that none cuts an apply short or gets lost before a wait.
sigset_t HoldStopSignals()
{
    sigset_t stopSignals;
    sigset_t before;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    sigprocmask(SIG_BLOCK, &stopSignals, &before);
    sigdelset(&before, SIGINT);
    sigdelset(&before, SIGTERM);
    return before;
}

} // namespace

int camConf::Apply(const Words &words)
{
    Settings wanted;
    int status = LoadGiven(words.count > 0 ? words.operands[0] : IMG_CFG_SYSTEM_FILE, &wanted);
    if (status == kOk && words.options != nullptr)
        status = ParseStrictly(words.options, &wanted);
    if (status != kOk)
        return status;
    camStat::InstallStopHandler(OnStopSignal);
    HoldStopSignals(); // the settings are applied whole, also when a signal comes
    if (camStat::StartBoard("camConf") != 0)
        return kFailed;
    const int32_t errorsBefore = giImgSetErrCount;
    Camera camera;
    ApplyTo(camera, wanted);
    status = ReportFailedSteps(errorsBefore);
    camStat::StopBoard();
    return status;
}

int camConf::Watch(const Words &words)
{
    WatchedFile file{words.count > 0 ? words.operands[0] : IMG_CFG_SYSTEM_FILE, nullptr};
    camStat::InstallStopHandler(OnStopSignal);
    const sigset_t waitMask = HoldStopSignals();
    Settings last;
    int status = OpenWatch(&file); // before the first look, so that no change falls between
    if (status == kOk)
        status = LoadGiven(file.path, &last);
    if (status == kOk && camStat::StartBoard("camConf") == 0) {
        Camera camera;
        const Settings first = last;
        ApplyFile(file, camera, first, first, &last);
        printf("watching %s\n", file.path);
        fflush(stdout);
        status = WatchUntilStopped(file, camera, &last, waitMask);
        camStat::StopBoard();
    } else {
        status = kFailed;
    }
    if (file.fd >= 0)
        close(file.fd);
    return status;
}
