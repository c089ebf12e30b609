// SPDX-License-Identifier: MIT
//
// The image configuration record: defaults, parser and loaders. The printout is confPrint's, the day/night switch
// dayNight's; what the settings do to the camera is imageSet's.
#include "config/confParser.h"

#include "base/numbers.h"
#include "config/confText.h"
#include "kelisp/debugFlags.h"

#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

ImgCfgStatus gtImgCfgStatus;

namespace
{

using kel::ConfKey;
using kel::kConfKeys;
using kel::KeyAction;
using kel::KeyMatch;
using kel::Loading;

// ---- The key list

constexpr size_t kRowCount = sizeof(kConfKeys) / sizeof(kConfKeys[0]);

/// Length and last character of a text: few keys have both in common. 0 for what is longer than any key.
constexpr uint16_t MarkOf(const char *text, size_t length)
{
    const bool fits = length > 0 && length <= UINT8_MAX;
    return static_cast<uint16_t>(fits ? length << 8 | static_cast<unsigned char>(text[length - 1]) : 0);
}

struct KeyList {
    char text[512] = {};              ///< the keys joined by ';'
    int16_t position[kRowCount] = {}; ///< where each key begins; -1: it is not there
    uint16_t mark[kRowCount] = {};    ///< of the whole key; 0: not in the list
    size_t size = 0;
};

constexpr KeyList MakeKeyList()
{
    KeyList list;
    for (size_t row = 0; row < kRowCount; ++row) {
        if (kConfKeys[row].action == KeyAction::NoKey) {
            list.position[row] = -1;
            continue;
        }
        if (list.size > 0)
            list.text[list.size++] = ';';
        list.position[row] = static_cast<int16_t>(list.size);
        for (const char *c = kConfKeys[row].name; *c != '\0'; ++c)
            list.text[list.size++] = *c;
        list.mark[row] = MarkOf(kConfKeys[row].name, list.size - static_cast<size_t>(list.position[row]));
    }
    return list;
}

constexpr KeyList kKeyList = MakeKeyList();
static_assert(kKeyList.size == 464);

} // namespace

// Whole keys, which is what files hold, are compared first: the search that defines what a key is would pass over
// half of the list for every line.
KeyMatch kel::FindKey(const char *text)
{
    const size_t length = strlen(text);
    const uint16_t mark = MarkOf(text, length);
    for (size_t row = 0; row < kRowCount; ++row)
        if (kKeyList.mark[row] == mark && mark != 0 && memcmp(text, kConfKeys[row].name, length) == 0)
            return {&kConfKeys[row], kKeyList.position[row]};
    const char *occurrence = strstr(kKeyList.text, text);
    if (occurrence == nullptr)
        return {nullptr, -1};
    const int position = static_cast<int>(occurrence - kKeyList.text);
    for (size_t row = 0; row < kRowCount; ++row)
        if (kKeyList.position[row] == position)
            return {&kConfKeys[row], position};
    return {nullptr, position};
}

namespace
{

// ---- Values

bool IsOne(const char *value)
{
    return value != nullptr && kel::ParseInt32(value) == 1;
}

void ParseWindow(ImgCfgStatus *record, const char *value)
{
    if (strnlen(value, kel::kWindowCells) < kel::kWindowCells)
        return;
    int32_t *cell = &record->aeWindow[0][0];
    for (size_t i = 0; i < kel::kWindowCells; ++i)
        cell[i] = static_cast<unsigned char>(value[i]) - '0';
}

// ---- The parser

void SetNumber(ImgCfgStatus *record, kel::ConfField field, int32_t number, Loading *loading)
{
    record->*field = number;
    if (loading->given != nullptr)
        loading->given->*field = 1;
}

void LoadNested(ImgCfgStatus *record, const char *path, Loading *loading)
{
    if (loading->depth == 0 || loading->files == 0)
        return;
    --loading->files;
    --loading->depth;
    LoadFile(record, path, loading);
    ++loading->depth;
}

void Perform(ImgCfgStatus *record, const ConfKey &key, const char *value, Loading *loading)
{
    switch (key.action) {
    case KeyAction::Number:
    case KeyAction::EitherNumber:
        if (value != nullptr)
            SetNumber(record, key.field, kel::ParseInt32(value), loading);
        break;
    case KeyAction::NotStored:
    case KeyAction::NoKey:
        break;
    case KeyAction::Window:
        if (value != nullptr)
            ParseWindow(record, value);
        break;
    case KeyAction::LoadDefault:
        if (gfDebugFlag != 0)
            puts("[kel_isp] Reset default config ");
        if (IsOne(value))
            LoadNested(record, IMG_CFG_DEFAULT_FILE, loading);
        break;
    case KeyAction::LoadSystem:
        if (gfDebugFlag != 0)
            puts("[kel_isp] Reload config ");
        if (IsOne(value))
            LoadNested(record, IMG_CFG_SYSTEM_FILE, loading);
        break;
    case KeyAction::LoopBreak:
    case KeyAction::Echo:
        if (gfDebugFlag != 0)
            printf("[kel_isp] %s%s=%s\n", key.action == KeyAction::LoopBreak ? "Receive " : "", key.name,
                   value != nullptr ? value : "");
        break;
    }
}

} // namespace

KeyMatch kel::ParseSetting(ImgCfgStatus *record, const char *key, const char *value, Loading *loading)
{
    const KeyMatch match = FindKey(key);
    if (match.key != nullptr)
        Perform(record, *match.key, value, loading);
    else if (gfDebugFlag != 0)
        printf("[kel_isp] PARSER!!!!!!!!!!!!!!!!!!\n[kel_isp] %s:%d\n", key, match.position);
    return match;
}

// ---- Sources of settings

void kel::LoadStream(ImgCfgStatus *record, FILE *file, Loading *loading)
{
    char line[kel::kLineSize];
    while (kel::ReadLine(file, line) > 0) {
        char *rest = line;
        const char *key = kel::NextWord(&rest, kel::kKeyEnds);
        if (key != nullptr && *key != '#')
            ParseSetting(record, key, kel::NextWord(&rest, kel::kValueEnds), loading);
    }
}

int kel::LoadFile(ImgCfgStatus *record, const char *path, Loading *loading)
{
    FILE *file = kel::OpenToRead(path);
    struct stat info;
    if (file == nullptr) // what can be opened exists
        return stat(path, &info) != 0 ? IMG_CFG_NO_FILE : IMG_CFG_UNREADABLE;
    char buffer[4096];
    setvbuf(file, buffer, _IOFBF, sizeof(buffer));
    LoadStream(record, file, loading);
    fclose(file);
    return 0;
}

int ImgCfgParse(ImgCfgStatus *record, const char *key, const char *value)
{
    Loading loading;
    const KeyMatch match = kel::ParseSetting(record, key, value, &loading);
    return match.key != nullptr ? match.position : IMG_CFG_UNKNOWN_KEY;
}

int ImgCfgLoadFile(ImgCfgStatus *record, const char *path)
{
    Loading loading;
    return kel::LoadFile(record, path, &loading);
}

int ImgCfgLoadDefault(ImgCfgStatus *record)
{
    return ImgCfgLoadFile(record, IMG_CFG_DEFAULT_FILE);
}

int ImgCfgReload(ImgCfgStatus *record)
{
    return ImgCfgLoadFile(record, IMG_CFG_SYSTEM_FILE);
}

int ImgCfgLoadSystem(ImgCfgStatus *record)
{
    ImgCfgReload(record);
    gfDebugFlag = record->extDebug;
    return ApplyIcrLedConfig(record);
}

int ImgCfgParseOptions(ImgCfgStatus *record, char *options)
{
    char *rest = options;
    const char *key = kel::NextWord(&rest, kel::kOptionEnds);
    while (key != nullptr) {
        const char *value = kel::NextWord(&rest, kel::kOptionEnds);
        if (gfDebugFlag != 0)
            printf("[kel_isp] pcOpt = %s\tval = %s\n", key, value != nullptr ? value : "");
        Loading loading;
        const KeyMatch match = kel::ParseSetting(record, key, value, &loading);
        if (match.key != nullptr && match.key->action == KeyAction::LoopBreak)
            return -1;
        key = kel::NextWord(&rest, kel::kOptionEnds);
    }
    return 0;
}

void ImgCfgDefault(ImgCfgStatus *record)
{
    *record = {};
    for (const ConfKey &key : kConfKeys)
        if (key.field != nullptr)
            record->*key.field = key.defaultValue;
        else if (key.action == KeyAction::Window)
            for (auto &row : record->aeWindow)
                for (int32_t &cell : row)
                    cell = key.defaultValue;
}
