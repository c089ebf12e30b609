// SPDX-License-Identifier: MIT
//
// camConf's commands on files: show, get, set, diff.
#include "app/camConf/camConf.h"
#include "config/confText.h"
#include "kelisp/sysconf.h"

#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

namespace
{

using namespace camConf;
using kel::ConfKey;
using kel::kConfKeys;
using kel::KeyAction;
using kel::kLineSize;

// ---- Records

void PrintWindowAsJson(const ImgCfgStatus &record)
{
    fputs("  \"EXT_AEWIN\": [", stdout);
    for (int row = 0; row < IMG_CFG_WINDOW_ROWS; ++row) {
        fputs(row == 0 ? "\n    [" : ",\n    [", stdout);
        for (int column = 0; column < IMG_CFG_WINDOW_COLUMNS; ++column)
            printf(column == 0 ? "%d" : ", %d", record.aeWindow[row][column]);
        putchar(']');
    }
    puts("\n  ]\n}");
}

void PrintAsJson(const ImgCfgStatus &record)
{
    puts("{");
    for (int round = 0; round < 2; ++round) // fields without a key come last
        for (const ConfKey &key : kConfKeys)
            if (key.field != nullptr && (key.action == KeyAction::NoKey) == (round == 1))
                printf("  \"%s\": %d,\n", key.name, record.*key.field);
    PrintWindowAsJson(record);
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

/// Looks through the file before it is changed. kOk when the change may be made.
int ReviewChange(const Words &words, FILE *file)
{
    const char *path = words.operands[0];
    const size_t valueLength = strlen(words.operands[2]);
    bool found = false;
    bool others = false;
    KeyLines lines{file, words.operands[1]};
    while (NextKeyLine(&lines)) {
        found = true;
        if (lines.lead + 1 + valueLength > kLineSize - 1)
            return Fail(path, "the line would be longer than 255 characters");
        if (!words.prefix && IsOtherKey(lines)) {
            others = true;
            fprintf(stderr, "%s:%d: ", path, lines.number);
            PrintSafely(stderr, lines.line, OwnKeyLength(lines));
            fputs(" would change too\n", stderr);
        }
    }
    if (ferror(file) != 0)
        return Fail(path);
    if (others)
        Fail(words.operands[1], "other keys begin so; nothing changed, --prefix changes them all");
    else if (!found)
        Fail(words.operands[1], "no line of the file begins so; nothing changed");
    return others || !found ? kFound : kOk;
}

} // namespace

void camConf::PrintSafely(FILE *stream, const char *text, size_t length)
{
    for (size_t i = 0; i < length; ++i)
        putc(text[i] >= 0x20 && text[i] <= 0x7E ? text[i] : '?', stream);
}

int camConf::CheckReadable(const char *path)
{
    FILE *file = fopen(path, "r");
    if (file == nullptr)
        return Fail(path);
    char line[kLineSize];
    while (kel::ReadLine(file, line) > 0) {
    }
    const int status = ferror(file) == 0 ? kOk : Fail(path);
    fclose(file);
    return status;
}

int camConf::LoadRecord(const char *path, ImgCfgStatus *record)
{
    if (CheckReadable(path) != kOk)
        return kFailed;
    ImgCfgDefault(record);
    return ImgCfgLoadFile(record, path) == 0 ? kOk : Fail(path);
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

int camConf::Show(const Words &words)
{
    ImgCfgStatus record;
    const int status = LoadRecord(words.count > 0 ? words.operands[0] : IMG_CFG_SYSTEM_FILE, &record);
    if (status != kOk)
        return status;
    if (words.json)
        PrintAsJson(record);
    else
        ImgCfgPrint(&record);
    return kOk;
}

int camConf::Diff(const Words &words)
{
    ImgCfgStatus first;
    ImgCfgStatus second;
    if (LoadRecord(words.operands[0], &first) != kOk || LoadRecord(words.operands[1], &second) != kOk)
        return kFailed;
    return PrintDifferences(first, second) ? kFound : kOk;
}

int camConf::Get(const Words &words)
{
    if (*words.operands[1] == '\0')
        return Fail("KEY", "is empty");
    FILE *file = fopen(words.operands[0], "r");
    if (file == nullptr)
        return Fail(words.operands[0]);
    KeyLines lines{file, words.operands[1]};
    const bool found = NextKeyLine(&lines);
    if (ferror(file) != 0)
        Fail(words.operands[0]);
    if (found && IsOtherKey(lines)) {
        fprintf(stderr, "camConf: %s: no line has this key alone; value of ", words.operands[1]);
        PrintSafely(stderr, lines.line, OwnKeyLength(lines));
        putc('\n', stderr);
    }
    char value[SYSCONF_LINE_SIZE] = "";
    const int status = sysconf_get(file, words.operands[1], value);
    const bool readable = ferror(file) == 0;
    fclose(file);
    if (status != 0 || !readable)
        return kFailed;
    if (!found) {
        Fail(words.operands[1], "no line of the file begins so");
        return kFound;
    }
    puts(value);
    return kOk;
}

int camConf::Set(const Words &words)
{
    const char *path = words.operands[0];
    if (*words.operands[1] == '\0')
        return Fail("KEY", "is empty");
    if (strchr(words.operands[2], '\n') != nullptr)
        return Fail(words.operands[1], "the value holds a line feed");
    FILE *file = fopen(path, "r");
    if (file == nullptr)
        return Fail(path);
    const int review = ReviewChange(words, file);
    fclose(file);
    if (review != kOk)
        return review;
    // The store replaces what stands at its path: that has to be the file, not a link to it.
    char target[PATH_MAX];
    struct stat status;
    errno = 0;
    const bool isLink = lstat(path, &status) == 0 && S_ISLNK(status.st_mode);
    const char *replaced = isLink ? realpath(path, target) : path;
    if (replaced == nullptr || sysconf_fset(replaced, words.operands[1], words.operands[2]) != 0)
        return Fail(path);
    return kOk;
}
