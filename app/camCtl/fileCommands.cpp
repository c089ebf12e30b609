// SPDX-License-Identifier: MIT
//
// camCtl's commands on files of settings: save, load, diff. A file holds lines as `get` prints them; '#' begins a
// comment; "-" is standard input or output.
#include "app/camCtl/camCtl.h"

#include "config/confText.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

using namespace camCtl;
using cli::Arguments;

constexpr uint8_t kSensorTypeReg = 0x0E;
constexpr char kSensorTypeMark[] = "sensor type ";

// ---- Reading a file

struct Settings {
    Changes changes;
    int count;
    int sensorType; ///< -1 where the file does not tell
};

char *Trim(char *text)
{
    text += strspn(text, " \t\r\n");
    size_t length = strlen(text);
    while (length > 0 && strchr(" \t\r\n", text[length - 1]) != nullptr)
        text[--length] = '\0';
    return text;
}

bool TakeLine(const char *where, char *line, Settings &settings)
{
    char *comment = strchr(line, '#');
    if (comment != nullptr) {
        const char *type = strstr(comment, kSensorTypeMark);
        if (type != nullptr && settings.sensorType < 0 && settings.count == 0)
            settings.sensorType = atoi(type + sizeof(kSensorTypeMark) - 1);
        *comment = '\0';
    }
    char *name = Trim(line);
    if (*name == '\0')
        return true;
    char *value = strchr(name, '=');
    if (value == nullptr || value == name)
        return cli::Fail(where, "is not NAME = VALUE") == cli::kDone;
    *value = '\0';
    ++settings.count;
    return PutAssignment(where, Trim(name), Trim(value + 1), settings.changes);
}

/// Reads a file whole; false after its error line.
bool ReadSettings(const char *path, Settings *settings)
{
    *settings = {};
    settings->sensorType = -1;
    const bool isStandard = strcmp(path, "-") == 0;
    FILE *file = isStandard ? stdin : fopen(path, "re");
    if (file == nullptr)
        return cli::Fail(path) == cli::kDone;
    bool ok = true;
    char line[kel::kLineSize];
    char where[320];
    for (int number = 1; ok; ++number) {
        const size_t length = kel::ReadLine(file, line);
        if (length == 0)
            break;
        snprintf(where, sizeof(where), "%.300s:%d", isStandard ? "standard input" : path, number);
        if (line[length - 1] != '\n')
            ok = cli::Fail(where, "the line is cut, or longer than 254 characters") == cli::kDone;
        else if (strlen(line) != length)
            ok = cli::Fail(where, "holds a zero byte") == cli::kDone;
        else
            ok = TakeLine(where, line, *settings);
    }
    if (ok && ferror(file) != 0)
        ok = cli::Fail(path) == cli::kDone;
    if (!isStandard)
        fclose(file);
    return ok && (settings->count > 0 || cli::Fail(path, "holds no settings") == cli::kDone);
}

// ---- Writing a file

void WriteSettings(FILE *file, const Image &image)
{
    fprintf(file, "# camCtl %s; sensor type %u, information output %u (not loaded)\n", CAMSTAT_VERSION,
            image.values[kSensorTypeReg] & 0x0FU, image.values[0xCC] & 0x07U);
    for (size_t i = 0; i < kFieldCount; ++i)
        if (kFields[i].fixed && !kFields[i].alias)
            PrintField(file, kFields[i], image.values, true);
}

/// Replaces a file whole: written beside it, synced, renamed.
int ReplaceFile(const char *path, const Image &image)
{
    char temporary[4096];
    char folder[4096];
    if (snprintf(temporary, sizeof(temporary), "%s.tmp", path) >= static_cast<int>(sizeof(temporary)) ||
        !kel::FolderOf(path, folder))
        return cli::Fail(path, strerror(ENAMETOOLONG));
    struct stat info;
    const bool exists = stat(path, &info) == 0;
    if (exists && !S_ISREG(info.st_mode))
        return cli::Fail(path, "is no regular file");
    unlink(temporary); // left behind by a run that was killed, or a trap; never written through
    const int fd =
        open(temporary, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, exists ? info.st_mode & 0777 : 0644);
    if (fd < 0)
        return cli::Fail(temporary);
    FILE *file = fdopen(fd, "w");
    if (file == nullptr) {
        cli::Fail(temporary);
        close(fd);
        unlink(temporary);
        return cli::kFailed;
    }
    WriteSettings(file, image);
    const bool written = fflush(file) == 0 && ferror(file) == 0 && fsync(fd) == 0;
    const bool closed = fclose(file) == 0;
    if (!written || !closed || rename(temporary, path) != 0) {
        cli::Fail(path);
        unlink(temporary);
        return cli::kFailed;
    }
    const int folderFd = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folderFd >= 0) {
        fsync(folderFd); // where a folder cannot be synced, either name holds a whole file
        close(folderFd);
    }
    return cli::kDone;
}

/// Marks what the settings touch, in whole stretches of 32, so that eight reads get it all.
void WantSettings(const Settings &settings, Image &image)
{
    WantChanged(settings.changes, image);
    image.wanted[kSensorTypeReg] |= settings.sensorType >= 0;
    for (unsigned block = 0; block < kRegisters; block += kMostRead) {
        bool any = false;
        for (unsigned at = 0; at < kMostRead; ++at)
            any |= image.wanted[block + at];
        if (any)
            Want(image, block, kMostRead);
    }
}

/// Opens the camera and reads what the settings touch; on failure it is closed again.
int ReadForSettings(const Arguments &arguments, const Settings &settings, Image &image)
{
    int retries = 0;
    if (!TakeRetries(arguments, &retries) || OpenCamera(retries) != cli::kDone)
        return cli::kFailed;
    WantSettings(settings, image);
    const int status = ReadWanted(image);
    if (status != cli::kDone)
        CloseCamera();
    return status;
}

} // namespace

int camCtl::Save(const Arguments &arguments)
{
    const char *path = arguments.words[0];
    int retries = 0;
    if (!TakeRetries(arguments, &retries) || OpenCamera(retries) != cli::kDone)
        return cli::kFailed;
    Image image = {};
    Want(image, 0, kRegisters);
    const int status = ReadWanted(image);
    CloseCamera();
    if (status != cli::kDone)
        return status;
    if (strcmp(path, "-") != 0)
        return ReplaceFile(path, image);
    WriteSettings(stdout, image);
    return cli::kDone;
}

int camCtl::Load(const Arguments &arguments)
{
    static Settings settings;
    if (!ReadSettings(arguments.words[0], &settings))
        return cli::kFailed;
    Image image = {};
    int status = ReadForSettings(arguments, settings, image);
    if (status != cli::kDone)
        return status;
    const int type = image.values[kSensorTypeReg] & 0x0F;
    const Image before = image;
    const Image target = WithChanges(image, settings.changes);
    int written = 0;
    if (settings.sensorType >= 0 && settings.sensorType != type && !arguments.Has(kForce))
        status = cli::FailWith(
            arguments.words[0],
            "was saved from sensor type %d, this camera has type %d; --force loads it all the same",
            settings.sensorType, type);
    else if (!arguments.Has(kDryRun))
        status = WriteChanges(image, target, &written);
    CloseCamera();
    if (status == cli::kFailed)
        return status;
    const int changes = ShowChanges(before, arguments.Has(kDryRun) ? target : image, arguments.Has(kJson));
    return arguments.Has(kDryRun) && changes > 0 ? cli::kNo : status;
}

int camCtl::Diff(const Arguments &arguments)
{
    static Settings first;
    static Settings second;
    Image before = {};
    Image after = {};
    if (!ReadSettings(arguments.words[0], &first))
        return cli::kFailed;
    if (arguments.count > 1) {
        if (!ReadSettings(arguments.words[1], &second))
            return cli::kFailed;
        before = WithChanges(before, first.changes);
        after = WithChanges(after, second.changes);
        for (unsigned reg = 0; reg < kRegisters; ++reg) {
            // Only what both files tell can differ.
            const auto both = static_cast<uint8_t>(first.changes.masks[reg] & second.changes.masks[reg]);
            before.values[reg] &= both;
            after.values[reg] &= both;
            after.wanted[reg] = both != 0;
        }
    } else {
        const int status = ReadForSettings(arguments, first, before);
        if (status != cli::kDone)
            return status;
        CloseCamera();
        after = WithChanges(before, first.changes);
    }
    return ShowChanges(before, after, arguments.Has(kJson)) > 0 ? cli::kNo : cli::kDone;
}
