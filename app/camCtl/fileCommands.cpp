// SPDX-License-Identifier: MIT
//
// camCtl's commands on files of settings: save, load, diff. A file holds lines as `get` prints them; '#' begins a
// comment; "-" is standard input or output.
#include "app/camCtl/camCtl.h"

#include "config/confText.h"
#include "config/replaceFile.h"

#include <stdlib.h>
#include <string.h>

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

bool TakeLine(const char *where, char *line, Settings &settings)
{
    char *comment = strchr(line, '#');
    if (comment != nullptr) {
        const char *type = strstr(comment, kSensorTypeMark);
        if (type != nullptr && settings.sensorType < 0 && settings.count == 0)
            settings.sensorType = atoi(type + sizeof(kSensorTypeMark) - 1);
        *comment = '\0';
    }
    char *name = cli::Trim(line);
    if (*name == '\0')
        return true;
    char *value = strchr(name, '=');
    if (value == nullptr || value == name)
        return cli::Fail(where, "is not NAME = VALUE") == cli::kDone;
    *value = '\0';
    ++settings.count;
    return PutAssignment(where, cli::Trim(name), cli::Trim(value + 1), settings.changes);
}

/// Reads a file whole; false after its error line.
bool ReadSettings(const char *path, Settings *settings)
{
    *settings = {};
    settings->sensorType = -1;
    const bool isStandard = strcmp(path, "-") == 0;
    FILE *file = isStandard ? stdin : cli::OpenToRead(path);
    const char *name = isStandard ? "standard input" : path;
    if (file == nullptr)
        return false;
    bool ok = true;
    char line[kel::kLineSize];
    char where[320];
    for (int number = 1; ok; ++number) {
        const size_t length = kel::ReadLine(file, line);
        if (length == 0)
            break;
        snprintf(where, sizeof(where), "%.300s:%d", name, number);
        if (line[length - 1] != '\n')
            ok = cli::Fail(where, "the line is cut, or longer than 254 characters") == cli::kDone;
        else if (strlen(line) != length)
            ok = cli::Fail(where, "holds a zero byte") == cli::kDone;
        else
            ok = TakeLine(where, line, *settings);
    }
    if (ok && ferror(file) != 0)
        ok = cli::Fail(name) == cli::kDone;
    if (!isStandard)
        fclose(file);
    return ok && (settings->count > 0 || cli::Fail(name, "holds no settings") == cli::kDone);
}

// ---- Writing a file

/// Writes the settings of an Image.
bool WriteSettings(FILE *, FILE *file, const void *what)
{
    const Image &image = *static_cast<const Image *>(what);
    fprintf(file, "# camCtl %s; sensor type %u, information output %u (not loaded)\n", CAMSTAT_VERSION,
            image.values[kSensorTypeReg] & 0x0FU, image.values[0xCC] & 0x07U);
    for (size_t i = 0; i < kFieldCount; ++i)
        if (kFields[i].fixed && !kFields[i].alias)
            PrintField(file, kFields[i], image.values, true);
    return ferror(file) == 0;
}

/// Replaces or makes a file; of a link, the file that it names.
int SaveFile(const char *path, const Image &image)
{
    char target[PATH_MAX];
    const char *file = kel::FollowLink(path, target);
    if (file == nullptr)
        return cli::Fail(path);
    const int folder = kel::LockFolder(file);
    const kel::Replaced replaced = kel::ReplaceFile(folder, file, true, {WriteSettings, &image});
    kel::UnlockFolder(folder);
    return replaced == kel::Replaced::Done ? cli::kDone : cli::Fail(path);
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
    if (strcmp(path, "-") == 0 && arguments.Has(kJson))
        return cli::Fail("--json", "and the settings cannot both go to standard output");
    if (!TakeRetries(arguments, &retries) || OpenCamera(retries) != cli::kDone)
        return cli::kFailed;
    Image image = {};
    Want(image, 0, kRegisters);
    int status = ReadWanted(image);
    CloseCamera();
    if (status != cli::kDone)
        return status;
    if (strcmp(path, "-") == 0) {
        WriteSettings(nullptr, stdout, &image);
        return cli::kDone;
    }
    status = SaveFile(path, image);
    if (status == cli::kDone && arguments.Has(kJson))
        PrintAsJson("saved", path);
    return status;
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
    if (settings.sensorType >= 0 && settings.sensorType != type && !arguments.Has(kForce))
        status = cli::FailWith(
            arguments.words[0],
            "was saved from sensor type %d, this camera has type %d; --force loads it all the same",
            settings.sensorType, type);
    else if (!arguments.Has(kDryRun))
        status = WriteChanges(image, target);
    CloseCamera();
    if (status == cli::kFailed)
        return status;
    const Image &after = arguments.Has(kDryRun) ? target : image;
    const int changes = ShowChanges({before.values, nullptr}, {after.values, nullptr}, arguments.Has(kJson));
    return arguments.Has(kDryRun) && changes > 0 ? cli::kNo : status;
}

int camCtl::Diff(const Arguments &arguments)
{
    static Settings first;
    static Settings second;
    if (!ReadSettings(arguments.words[0], &first))
        return cli::kFailed;
    int changes = 0;
    if (arguments.count > 1) {
        if (!ReadSettings(arguments.words[1], &second))
            return cli::kFailed;
        changes = ShowChanges({first.changes.values, first.changes.masks},
                              {second.changes.values, second.changes.masks}, arguments.Has(kJson));
    } else {
        Image camera = {};
        const int status = ReadForSettings(arguments, first, camera);
        if (status != cli::kDone)
            return status;
        CloseCamera();
        const Image file = WithChanges(camera, first.changes);
        changes = ShowChanges({camera.values, nullptr}, {file.values, nullptr}, arguments.Has(kJson));
    }
    return changes > 0 ? cli::kNo : cli::kDone;
}
