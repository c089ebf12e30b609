// SPDX-License-Identifier: MIT
//
// Reads and writes of whole stretches of registers through the library's block transfer.
#include "app/camCtl/registers.h"

#include "app/shared/commandLine.h"
#include "app/shared/startup.h"
#include "kelisp/drvI2c.h"
#include "kelisp/ispCXD3193AR.h"
#include "kelisp/sensorInfo.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

namespace
{

using namespace camCtl;

/// "NAME (0xNN)" where one field is all that moves, else "registers 0xNN to 0xNN".
void NameStretch(unsigned reg, unsigned count, char *text, size_t size)
{
    const unsigned last = reg + count - 1;
    const Field *only = nullptr;
    for (size_t i = 0; i < kFieldCount; ++i)
        if (!kFields[i].alias && kFields[i].reg == reg && kFields[i].Last() == last)
            only = only == nullptr ? &kFields[i] : nullptr;
    if (only != nullptr)
        snprintf(text, size, "%s (0x%02X)", only->name, reg);
    else if (count == 1)
        snprintf(text, size, "register 0x%02X", reg);
    else
        snprintf(text, size, "registers 0x%02X to 0x%02X", reg, last);
}

int FailTransfer(unsigned reg, unsigned count, const char *what)
{
    const int reason = errno;
    char name[64];
    NameStretch(reg, count, name, sizeof(name));
    errno = reason;
    return camCtl::FailAttempts(name, what);
}

/// Length of the stretch of marked registers at `reg`, at most `most`.
template <class IsMarked>
unsigned StretchAt(unsigned reg, unsigned most, IsMarked isMarked)
{
    unsigned count = 0;
    while (count < most && reg + count < kRegisters && isMarked(reg + count))
        ++count;
    return count;
}

} // namespace

int camCtl::FailAttempts(const char *name, const char *what)
{
    if (errno == ETIME) // of the one wait for the camera, whose readiness is no matter of attempts
        return cli::FailWith(name, "%s failed: %s", what, strerror(errno));
    return cli::FailWith(name, "%s failed after %d attempt%s: %s", what, giI2cErrRetry + 1,
                         giI2cErrRetry == 0 ? "" : "s", strerror(errno));
}

int camCtl::OpenCamera(int retries)
{
    giI2cErrRetry = retries;
    return DrvI2cOpen(&gtI2cHndl, camStat::kCameraSlave) == 0 ? cli::kDone : cli::Fail("/dev/dev_i2c");
}

void camCtl::CloseCamera()
{
    DrvI2cClose(&gtI2cHndl);
}

void camCtl::Want(Image &image, unsigned reg, unsigned count)
{
    memset(image.wanted + reg, true, count);
}

void camCtl::Want(Image &image, const Field &field)
{
    Want(image, field.reg, field.registers);
}

int camCtl::ReadWanted(Image &image, bool goesOn)
{
    int status = cli::kDone;
    for (unsigned reg = 0; reg < kRegisters && (goesOn || status == cli::kDone);) {
        const unsigned count = StretchAt(reg, kMostRead, [&](unsigned at) { return image.wanted[at]; });
        if (count > 0 &&
            CXD3193AR_Read(static_cast<uint8_t>(reg), image.values + reg, static_cast<int>(count)) < 0) {
            status = FailTransfer(reg, count, "read");
            memset(image.wanted + reg, false, count);
        }
        reg += count > 0 ? count : 1;
    }
    return status;
}

namespace
{

/// Writes what is marked in `changed`, neighbours of one reflect group together.
int WriteMarked(const Image &target, const bool (&changed)[kRegisters], int *written)
{
    for (unsigned reg = 0; reg < kRegisters;) {
        const uint8_t group = CXD3193AR_ReflectBit(static_cast<uint8_t>(reg));
        const unsigned count = StretchAt(reg, kMostWrite, [&](unsigned at) {
            return changed[at] && CXD3193AR_ReflectBit(static_cast<uint8_t>(at)) == group;
        });
        if (count > 0 &&
            CXD3193AR_Write(static_cast<uint8_t>(reg), target.values + reg, static_cast<int>(count)) < 0) {
            FailTransfer(reg, count, "write");
            return *written == 0 ? cli::kFailed
                                 : cli::FailWith("registers",
                                                 "%d written before this, none behind; the same again "
                                                 "completes it",
                                                 *written);
        }
        *written += static_cast<int>(count);
        reg += count > 0 ? count : 1;
    }
    return cli::kDone;
}

/// What the first read got of the image in one transfer and now has changes.
Image ToCheck(const Image &image, const bool (&changed)[kRegisters])
{
    Image check = {};
    for (unsigned reg = 0; reg < kRegisters;) {
        const unsigned count = StretchAt(reg, kMostRead, [&](unsigned at) { return image.wanted[at]; });
        if (count > 0 && memchr(changed + reg, 1, count) != nullptr)
            camCtl::Want(check, reg, count);
        reg += count > 0 ? count : 1;
    }
    return check;
}

} // namespace

int camCtl::WriteChanges(Image &image, const Image &target)
{
    int written = 0;
    bool changed[kRegisters];
    for (unsigned reg = 0; reg < kRegisters; ++reg)
        changed[reg] = image.values[reg] != target.values[reg];
    if (WriteMarked(target, changed, &written) != cli::kDone)
        return cli::kFailed;
    Image check = ToCheck(image, changed);
    if (ReadWanted(check) != cli::kDone)
        return cli::FailWith("registers", "%d written, but not checked", written);
    int status = cli::kDone;
    for (unsigned reg = 0; reg < kRegisters; ++reg) {
        if (!changed[reg])
            continue;
        image.values[reg] = check.values[reg];
        if (check.values[reg] == target.values[reg])
            continue;
        char name[64];
        NameStretch(reg, 1, name, sizeof(name));
        cli::FailWith(name, "wrote 0x%02X, reads back as 0x%02X", target.values[reg], check.values[reg]);
        status = cli::kNo;
    }
    return status;
}

int camCtl::OpenReadouts()
{
    uint8_t selected = 0; // the accessors keep the mirror that the readouts' gate goes by
    if (CXD3193AR_Get_InfoOut(&selected) < 0)
        return FailTransfer(0xCC, 1, "read");
    const uint8_t readouts = 0;
    if (selected != 0 && CXD3193AR_Set_InfoOut(&readouts) < 0)
        return FailTransfer(0xCC, 1, "write");
    return cli::kDone;
}
