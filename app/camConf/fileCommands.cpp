// SPDX-License-Identifier: MIT
//
// camConf's commands on files: show, get, set, diff.
#include "app/camConf/camConf.h"
#include "app/shared/json.h"
#include "config/confParser.h"
#include "config/confText.h"
#include "config/replaceFile.h"
#include "kelisp/sysconf.h"

#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>

namespace
{

using namespace camConf;
using kel::ConfKey;
using kel::kConfKeys;
using kel::KeyAction;
using kel::kLineSize;

// ---- Records

void PrintAsJson(const ImgCfgStatus &record)
{
    cli::Json json;
    json.Begin();
    for (const ConfKey &key : kConfKeys)
        if (key.field != nullptr)
            json.Number(key.name, int64_t{record.*key.field});
    json.Open('[', "EXT_AEWIN");
    for (const auto &row : record.aeWindow) {
        json.Open('[');
        for (const int32_t cell : row)
            json.Number(nullptr, int64_t{cell});
        json.Close(']');
    }
    json.Close(']');
    json.End();
}

void PrintWindow(const ImgCfgStatus &record)
{
    for (const auto &row : record.aeWindow)
        for (const int32_t cell : row)
            putchar('0' + cell);
    putchar('\n');
}

// ---- Lines of a key, as the store sees them

/// The file's lines that begin with a key and have a '='; the current one is in `line`.
struct KeyLines {
    FILE *file;
    const char *key;
    char line[kLineSize] = {};
    size_t lead = 0; ///< characters before the '='
    int number = 0;  ///< of the line
    bool lineEnded = true;
};

/// Goes to the next line of the key; false at the end of the file.
bool NextKeyLine(KeyLines *lines)
{
    const size_t keyLength = strlen(lines->key);
    while (const size_t length = kel::ReadLine(lines->file, lines->line)) {
        lines->number += lines->lineEnded;
        lines->lineEnded = lines->line[length - 1] == '\n';
        const void *assignment = memchr(lines->line, '=', length);
        if (lines->line[0] != '#' && length >= keyLength && memcmp(lines->line, lines->key, keyLength) == 0 &&
            assignment != nullptr) {
            lines->lead = static_cast<size_t>(static_cast<const char *>(assignment) - lines->line);
            return true;
        }
    }
    return false;
}

/// Length of the current line's own key, without the blanks before its '='.
size_t OwnKeyLength(const KeyLines &lines)
{
    size_t length = lines.lead;
    while (length > 0 && (lines.line[length - 1] == ' ' || lines.line[length - 1] == '\t'))
        --length;
    return length;
}

bool IsOtherKey(const KeyLines &lines)
{
    return OwnKeyLength(lines) != strlen(lines.key);
}

// ---- Changes

struct Change {
    const char *path;
    const char *key;
    const char *value;
    bool prefix, force, add;
};

/// Looks through the file before it is changed: `*adds` when a line is to be added. cli::kDone when the change may be
/// made.
int ReviewChange(const Change &change, FILE *file, bool *adds)
{
    const size_t valueLength = strlen(change.value);
    bool found = false;
    bool others = false;
    KeyLines lines{file, change.key};
    const auto isTooLong = [&](size_t lead) { return lead + 1 + valueLength > kLineSize - 1; };
    while (NextKeyLine(&lines)) {
        found = true;
        if (isTooLong(lines.lead))
            return cli::Fail(change.path, "the line would be longer than 255 characters");
        if (!change.prefix && IsOtherKey(lines)) {
            others = true;
            fprintf(stderr, "%s:%d: ", change.path, lines.number);
            PrintSafely(stderr, lines.line, OwnKeyLength(lines));
            fputs(" would change too\n", stderr);
        }
    }
    if (ferror(file) != 0)
        return cli::Fail(change.path);
    *adds = !found && change.add;
    if (*adds && isTooLong(strlen(change.key)))
        return cli::Fail(change.path, "the line would be longer than 255 characters");
    if (others)
        cli::Fail(change.key, "other keys begin so; nothing changed, --prefix changes them all");
    else if (!found && !change.add)
        cli::Fail(change.key, "no line of the file begins so; nothing changed, --add adds one");
    return others || !(found || change.add) ? cli::kNo : cli::kDone;
}

/// Whether a key of the table takes the value; with --prefix, each that begins so. Tells what is wrong.
bool IsFine(const Change &change)
{
    constexpr char kAdvice[] = "; --force sets it all the same";
    bool any = false;
    bool fine = true;
    for (const ConfKey &key : kConfKeys) {
        const bool isMeant = strcmp(key.name, change.key) == 0 ||
                             (change.prefix && strncmp(key.name, change.key, strlen(change.key)) == 0);
        if (!isMeant || key.action == KeyAction::NoKey)
            continue;
        any = true;
        fine &= !RefuseSetting(key.name, change.value, kAdvice);
    }
    return any ? fine : !RefuseSetting(change.key, change.value, kAdvice);
}

/// Copies the file and adds the Change's line, behind the end of a last line that has none.
bool CopyAndAdd(FILE *source, FILE *copy, const void *what)
{
    const Change &change = *static_cast<const Change *>(what);
    int last = '\n';
    for (int c = getc(source); c != EOF; c = getc(source)) {
        putc(c, copy);
        last = c;
    }
    if (last != '\n')
        putc('\n', copy);
    fprintf(copy, "%s=%s\n", change.key, change.value);
    return ferror(source) == 0 && ferror(copy) == 0;
}

bool AddLine(const char *path, const Change &change)
{
    const int folder = kel::LockFolder(path);
    const kel::Replaced replaced = kel::ReplaceFile(folder, path, false, {CopyAndAdd, &change});
    kel::UnlockFolder(folder);
    return replaced == kel::Replaced::Done;
}

} // namespace

void camConf::PrintSafely(FILE *stream, const char *text, size_t length)
{
    for (size_t i = 0; i < length; ++i)
        putc(Safe(text[i]), stream);
}

int camConf::LoadRecord(const char *path, ImgCfgStatus *record, ImgCfgStatus *given)
{
    FILE *file = cli::OpenToRead(path);
    if (file == nullptr)
        return cli::kFailed;
    ImgCfgDefault(record);
    kel::Loading loading{given};
    kel::LoadStream(record, file, &loading);
    const int status = ferror(file) == 0 ? cli::kDone : cli::Fail(path);
    fclose(file);
    return status;
}

void camConf::PrintAsFile(const ImgCfgStatus &record, const ImgCfgStatus *given)
{
    for (const ConfKey &key : kConfKeys) {
        const bool isGain = key.field == &ImgCfgStatus::wbR || key.field == &ImgCfgStatus::wbB;
        if (key.action == KeyAction::Window) {
            printf("%s=", key.name);
            PrintWindow(record);
        } else if (key.IsStored() && !(isGain && given != nullptr && given->*key.field == 0)) {
            printf("%s=%d\n", key.name, record.*key.field);
        }
    }
}

bool camConf::PrintDifferences(const ImgCfgStatus &before, const ImgCfgStatus &after)
{
    bool any = false;
    for (const ConfKey &key : kConfKeys) {
        if (key.field == nullptr || before.*key.field == after.*key.field)
            continue;
        any = true;
        printf("%s: %d -> %d\n", key.name, before.*key.field, after.*key.field);
    }
    for (int row = 0; row < IMG_CFG_WINDOW_ROWS; ++row) {
        for (int column = 0; column < IMG_CFG_WINDOW_COLUMNS; ++column) {
            const int32_t oldCell = before.aeWindow[row][column];
            const int32_t newCell = after.aeWindow[row][column];
            if (oldCell == newCell)
                continue;
            any = true;
            printf("EXT_AEWIN[%d][%d]: %d -> %d\n", row, column, oldCell, newCell);
        }
    }
    return any;
}

int camConf::Show(const cli::Arguments &arguments)
{
    const char *path = arguments.count > 0 ? arguments.words[0] : IMG_CFG_SYSTEM_FILE;
    ImgCfgStatus record;
    if (arguments.Has(kJson) && arguments.Has(kConf))
        return cli::Fail("--conf", "and --json are two forms, take one");
    const int status = LoadRecord(path, &record);
    if (status != cli::kDone)
        return status;
    if (arguments.Has(kJson))
        PrintAsJson(record);
    else if (arguments.Has(kConf))
        PrintAsFile(record);
    else
        ImgCfgPrint(&record);
    return cli::kDone;
}

int camConf::Diff(const cli::Arguments &arguments)
{
    ImgCfgStatus first;
    ImgCfgStatus second;
    if (LoadRecord(arguments.words[0], &first) != cli::kDone ||
        LoadRecord(arguments.words[1], &second) != cli::kDone)
        return cli::kFailed;
    return PrintDifferences(first, second) ? cli::kNo : cli::kDone;
}

namespace
{

/// The value of a stored key that is in force.
int GetInForce(const char *path, const ConfKey &key)
{
    ImgCfgStatus record;
    ImgCfgStatus given = {};
    if (LoadRecord(path, &record, &given) != cli::kDone)
        return cli::kFailed;
    if (key.action == KeyAction::Window) {
        PrintWindow(record);
        return cli::kDone;
    }
    printf("%d\n", record.*key.field);
    fflush(stdout); // in order where both go to one file
    if (given.*key.field == 0)
        fprintf(stderr, "camConf: note: %s: not in the file, this is the default\n", key.name);
    return cli::kDone;
}

/// The text behind the first line of a key, as the store finds it.
int GetText(const char *path, const char *key)
{
    FILE *file = cli::OpenToRead(path);
    if (file == nullptr)
        return cli::kFailed;
    KeyLines lines{file, key};
    const bool found = NextKeyLine(&lines);
    if (ferror(file) != 0)
        cli::Fail(path);
    if (found && IsOtherKey(lines)) {
        fprintf(stderr, "camConf: %s: no line has this key alone; value of ", key);
        PrintSafely(stderr, lines.line, OwnKeyLength(lines));
        putc('\n', stderr);
    }
    char value[SYSCONF_LINE_SIZE] = "";
    const int status = sysconf_get(file, key, value);
    const bool readable = ferror(file) == 0;
    fclose(file);
    if (status != 0 || !readable)
        return cli::kFailed;
    if (!found) {
        cli::Fail(key, "no line of the file begins so");
        return cli::kNo;
    }
    puts(value);
    return cli::kDone;
}

} // namespace

int camConf::Get(const cli::Arguments &arguments)
{
    const char *name = arguments.words[1];
    if (*name == '\0')
        return cli::Fail("KEY", "is empty");
    const ConfKey *key = FindExactKey(name);
    return key != nullptr && key->IsStored() ? GetInForce(arguments.words[0], *key)
                                             : GetText(arguments.words[0], name);
}

int camConf::Set(const cli::Arguments &arguments)
{
    const Change change = {arguments.words[0],     arguments.words[1],    arguments.words[2],
                           arguments.Has(kPrefix), arguments.Has(kForce), arguments.Has(kAdd)};
    if (*change.key == '\0')
        return cli::Fail("KEY", "is empty");
    if (strchr(change.value, '\n') != nullptr)
        return cli::Fail(change.key, "the value holds a line feed");
    if (change.add && (*change.key == '#' || strpbrk(change.key, "=\n") != nullptr))
        return cli::Fail(change.key, "such a line would not be the key's");
    if (!change.force && !IsFine(change))
        return cli::kFailed;
    FILE *file = cli::OpenToRead(change.path);
    if (file == nullptr)
        return cli::kFailed;
    bool adds = false;
    const int review = ReviewChange(change, file, &adds);
    fclose(file);
    if (review != cli::kDone)
        return review;
    // What stands at the path is replaced: that has to be the file, not a link to it.
    char target[PATH_MAX];
    errno = 0;
    const char *path = kel::FollowLink(change.path, target);
    const bool done =
        path != nullptr && (adds ? AddLine(path, change) : sysconf_fset(path, change.key, change.value) == 0);
    return done ? cli::kDone : cli::Fail(change.path);
}
