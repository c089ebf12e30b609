// SPDX-License-Identifier: MIT
//
// camConf's commands on the camera: apply and watch. What differs and how it is written is the applier's
// business; here is what the applier is told to have been applied before.
#include "app/camConf/camConf.h"

#include "app/shared/startup.h"
#include "config/confText.h"
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

/// In wbR and wbB: neither the file nor the command line has this gain, so that whatever the camera has
/// stays.
constexpr int32_t kNotGiven = INT32_MIN;

/// LoadRecord, with white-balance gains only where the file has them.
int LoadGiven(const char *path, ImgCfgStatus *record)
{
    if (CheckReadable(path) != kOk)
        return kFailed;
    ImgCfgDefault(record);
    record->wbR = kNotGiven;
    record->wbB = kNotGiven;
    return ImgCfgLoadFile(record, path) == 0 ? kOk : Fail(path);
}

/// Parses an option string like ImgCfgParseOptions, but refuses what that would ignore.
int ParseStrictly(char *options, ImgCfgStatus *record)
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
        ImgCfgParse(record, key, value);
    }
    return kOk;
}

/// Tells the applier that every setting of the record was applied with another value: what the camera holds
/// is not known to a program that has just started. The light sensor's state stays out of it, since applying
/// it would write it to the file, and the gains, which follow from the white balance's mode.
void ForgetApplied(const ImgCfgStatus &wanted)
{
    for (const kel::ConfKey &key : kel::kConfKeys)
        if (key.field != nullptr)
            gtImgCfgStatus.*key.field = ~(wanted.*key.field);
    gtImgCfgStatus.dnLs = wanted.dnLs;
    gtImgCfgStatus.wbR = 0;
    gtImgCfgStatus.wbB = 0;
}

/// The record with the applied gains for those that are not given.
ImgCfgStatus WithAppliedGains(ImgCfgStatus record)
{
    if (record.wbR == kNotGiven)
        record.wbR = gtImgCfgStatus.wbR;
    if (record.wbB == kNotGiven)
        record.wbB = gtImgCfgStatus.wbB;
    return record;
}

/// The record without gains that one of both does not give: no change of the file that could be told.
ImgCfgStatus WithoutGainsNotGiven(ImgCfgStatus record, const ImgCfgStatus &other)
{
    if (record.wbR == kNotGiven || other.wbR == kNotGiven)
        record.wbR = 0;
    if (record.wbB == kNotGiven || other.wbB == kNotGiven)
        record.wbB = 0;
    return record;
}

/// Applies the record. A change of the white balance's mode comes first and alone: it freezes the camera's
/// own gains when it goes to manual, and saves gains before it reads them when it goes to automatic. Given
/// gains, and the save, follow in a second round. Tells whether the applier saved the gains; `applied` then
/// holds what it saved.
bool ApplyRecord(const ImgCfgStatus &given, ImgCfgStatus *applied)
{
    const bool hasGains = given.wbR != kNotGiven || given.wbB != kNotGiven;
    if (given.awbEn != gtImgCfgStatus.awbEn && (hasGains || given.wbSave == 1)) {
        ImgCfgStatus modeOnly = given;
        modeOnly.wbR = gtImgCfgStatus.wbR;
        modeOnly.wbB = gtImgCfgStatus.wbB;
        modeOnly.wbSave = 0;
        ImageSet(&modeOnly);
    }
    *applied = WithAppliedGains(given);
    ImageSet(applied);
    fflush(stdout);
    return given.wbSave == 1 && applied->wbSave == 0;
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

/// Applies the record, which was read from the file, and remembers it as what the file holds; what the
/// applier saved is in the file as well by now.
void ApplyFile(const WatchedFile &file, const ImgCfgStatus &read, const ImgCfgStatus &wanted,
               ImgCfgStatus *last)
{
    ImgCfgStatus applied;
    const int32_t errorsBefore = giImgSetErrCount;
    const bool saved = ApplyRecord(wanted, &applied);
    ReportFailedSteps(errorsBefore);
    *last = read;
    if (!saved || strcmp(file.path, IMG_CFG_SYSTEM_FILE) != 0)
        return;
    if (read.wbR != kNotGiven)
        last->wbR = applied.wbR;
    if (read.wbB != kNotGiven)
        last->wbB = applied.wbB;
}

/// Applies what differs between the file as it was read last and as it is now.
void ApplyChanges(const WatchedFile &file, ImgCfgStatus *last)
{
    ImgCfgStatus now;
    if (LoadGiven(file.path, &now) != kOk)
        return; // what was applied stays, until the file can be read again
    if (memcmp(&now, last, sizeof(now)) == 0)
        return;
    PrintDifferences(WithoutGainsNotGiven(*last, now), WithoutGainsNotGiven(now, *last));
    // The gains and the wish to save them count when they change in the file: 2A_WB_SAVE=1 stays there after
    // the save, which would otherwise be answered by the next one.
    ImgCfgStatus wanted = now;
    if (now.wbR == last->wbR)
        wanted.wbR = kNotGiven;
    if (now.wbB == last->wbB)
        wanted.wbB = kNotGiven;
    if (now.wbSave == last->wbSave)
        wanted.wbSave = 0;
    ApplyFile(file, now, wanted, last);
}

int WatchUntilStopped(const WatchedFile &file, ImgCfgStatus *last, const sigset_t &waitMask)
{
    pollfd events = {file.fd, POLLIN, 0};
    while (gStop == 0) {
        if (ppoll(&events, 1, nullptr, &waitMask) < 0)
            continue; // a signal
        const Event event = TakeEvents(file);
        if (event == Event::Lost)
            return Fail(file.path, "its folder is gone");
        if (event == Event::Changed)
            ApplyChanges(file, last);
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
    ImgCfgStatus wanted;
    int status = LoadGiven(words.count > 0 ? words.operands[0] : IMG_CFG_SYSTEM_FILE, &wanted);
    if (status == kOk && words.options != nullptr)
        status = ParseStrictly(words.options, &wanted);
    if (status != kOk)
        return status;
    camStat::InstallStopHandler(OnStopSignal); // the settings are applied whole, also when a signal comes
    if (camStat::StartBoard("camConf") != 0)
        return kFailed;
    const int32_t errorsBefore = giImgSetErrCount;
    ForgetApplied(wanted);
    ImgCfgStatus applied;
    ApplyRecord(wanted, &applied);
    status = ReportFailedSteps(errorsBefore);
    camStat::StopBoard();
    return status;
}

int camConf::Watch(const Words &words)
{
    WatchedFile file{words.count > 0 ? words.operands[0] : IMG_CFG_SYSTEM_FILE, nullptr};
    camStat::InstallStopHandler(OnStopSignal);
    const sigset_t waitMask = HoldStopSignals();
    ImgCfgStatus last;
    int status = OpenWatch(&file); // before the first look, so that no change falls between
    if (status == kOk)
        status = LoadGiven(file.path, &last);
    if (status == kOk && camStat::StartBoard("camConf") == 0) {
        ForgetApplied(last);
        const ImgCfgStatus first = last;
        ApplyFile(file, first, first, &last);
        printf("watching %s\n", file.path);
        fflush(stdout);
        status = WatchUntilStopped(file, &last, waitMask);
        camStat::StopBoard();
    } else {
        status = kFailed;
    }
    if (file.fd >= 0)
        close(file.fd);
    return status;
}
