// SPDX-License-Identifier: MIT
//
// camCtl doctor: is everything there that the camera needs, from the device nodes to the configuration? A check that
// rests on one that failed is skipped.
#include "app/camCtl/camCtl.h"

#include "app/shared/startup.h"
#include "kelisp/drvI2c.h"
#include "kelisp/imgConfig.h"
#include "kelisp/ispCXD3193AR.h"
#include "kelisp/sensorInfo.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

namespace
{

using namespace camCtl;
using cli::Arguments;

/// 0, or the errno of what failed.
int TryOpen(const char *path)
{
    const int fd = open(path, O_RDWR | O_CLOEXEC);
    if (fd < 0)
        return errno;
    return close(fd) == 0 ? 0 : errno;
}

int TryLink(const char *)
{
    uint8_t type = 0;
    if (DrvI2cOpen(&gtI2cHndl, camStat::kCameraSlave) != 0)
        return errno;
    const int failure = CXD3193AR_Get_CisType(&type) == 0 ? 0 : errno;
    DrvI2cClose(&gtI2cHndl);
    return failure;
}

/// Behind the link: the processor answers, so its reset line is up, and its record knows the type.
int TryReset(const char *)
{
    return 0;
}

int TrySensor(const char *)
{
    return gtSensorInfo.cisType == 6 || gtSensorInfo.cisType == 7 ? 0 : ENODEV;
}

/// Writes a file of its own and removes it.
int TryFlash(const char *folder)
{
    char path[64];
    snprintf(path, sizeof(path), "%s/camCtl.doctor", folder);
    const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (fd < 0)
        return errno;
    int failure = write(fd, "camCtl\n", 7) == 7 ? 0 : errno;
    if (fsync(fd) != 0 && failure == 0)
        failure = errno;
    if (close(fd) != 0 && failure == 0)
        failure = errno;
    if (unlink(path) != 0 && failure == 0)
        failure = errno;
    return failure;
}

int TryFile(const char *path)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    char byte = 0;
    if (fd < 0)
        return errno;
    const int failure = read(fd, &byte, 1) >= 0 ? 0 : errno;
    close(fd);
    return failure;
}

struct Check {
    const char *name;
    int (*test)(const char *);
    const char *path;
    int needs; ///< index of the check that this one rests on; -1 for none
    const char *nextStep;
};

constexpr char kLoadDriver[] = "is the driver's module loaded? see lsmod and dmesg";
constexpr int kBusCheck = 0;
constexpr int kLinkCheck = 12;

constexpr Check kChecks[] = {
    {"/dev/dev_i2c", TryOpen, "/dev/dev_i2c", -1, kLoadDriver},
    {"/dev/gio", TryOpen, "/dev/gio", -1, kLoadDriver},
    {"/dev/cmem", TryOpen, "/dev/cmem", -1, kLoadDriver},
    {"/dev/csl1", TryOpen, "/dev/csl1", -1, kLoadDriver},
    {"/dev/csl2", TryOpen, "/dev/csl2", -1, kLoadDriver},
    {"/dev/csl3", TryOpen, "/dev/csl3", -1, kLoadDriver},
    {"/dev/csl4", TryOpen, "/dev/csl4", -1, kLoadDriver},
    {"/dev/csl5", TryOpen, "/dev/csl5", -1, kLoadDriver},
    {"/dev/csl6", TryOpen, "/dev/csl6", -1, kLoadDriver},
    {"/dev/csl7", TryOpen, "/dev/csl7", -1, kLoadDriver},
    {"/dev/csl8", TryOpen, "/dev/csl8", -1, kLoadDriver},
    {"/dev/csl9", TryOpen, "/dev/csl9", -1, kLoadDriver},
    {"link", TryLink, "", kBusCheck, "try camCtl reset; then cable and power of the camera"},
    {"reset line", TryReset, "", kLinkCheck, ""},
    {"sensor type", TrySensor, "", kLinkCheck, "the camera is no IMX076: camCtl get CisType"},
    {"flash", TryFlash, "/mnt/nand", -1, "is /mnt/nand mounted, writable, with room? see mount and df"},
    {"configuration", TryFile, IMG_CFG_SYSTEM_FILE, -1, "restore it from " IMG_CFG_DEFAULT_FILE},
};

} // namespace

int camCtl::Doctor(const Arguments &arguments)
{
    int retries = 0;
    if (!TakeRetries(arguments, &retries))
        return cli::kFailed;
    giI2cErrRetry = retries;
    int status = cli::kDone;
    bool passed[sizeof(kChecks) / sizeof(kChecks[0])] = {};
    cli::Json json;
    if (arguments.Has(kJson)) {
        json.Begin();
        json.Open('[', "checks");
    }
    for (size_t i = 0; i < sizeof(kChecks) / sizeof(kChecks[0]); ++i) {
        const Check &check = kChecks[i];
        const bool skipped = check.needs >= 0 && !passed[check.needs];
        const int failure = skipped ? 0 : check.test(check.path);
        passed[i] = !skipped && failure == 0;
        const char *verdict = skipped ? "skipped" : failure == 0 ? "ok" : "FAIL";
        const char *reason = failure != 0 ? strerror(failure) : skipped ? kChecks[check.needs].name : "";
        if (failure != 0)
            status = cli::kNo;
        if (arguments.Has(kJson)) {
            json.Open('{');
            json.Text("check", check.name);
            json.Text("verdict", verdict);
            if (failure != 0) {
                json.Text("error", reason);
                json.Text("next_step", check.nextStep);
            }
            json.Close('}');
        } else if (failure != 0) {
            printf("%-14s %s: %s; %s\n", check.name, verdict, reason, check.nextStep);
        } else if (skipped) {
            printf("%-14s %s: %s failed\n", check.name, verdict, reason);
        } else {
            printf("%-14s %s\n", check.name, verdict);
        }
    }
    if (arguments.Has(kJson)) {
        json.Close(']');
        json.End();
    }
    return status;
}
