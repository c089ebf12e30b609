// SPDX-License-Identifier: MIT
//
// The image configuration record: defaults, parser, loaders, printout and the day/night switch. What the
// settings do to the camera is ispImageSet's.
#include "kelisp/imgConfig.h"

#include "base/numbers.h"
#include "board/gpioDevice.h"
#include "config/confText.h"
#include "config/imgConfigKeys.h"
#include "kelisp/debugFlags.h"

#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

ImgCfgStatus gtImgCfgStatus;

namespace
{

using kel::ConfKey;
using kel::kConfKeyCount;
using kel::kConfKeys;
using kel::KeyAction;

constexpr size_t Length(const char *text)
{
    return __builtin_strlen(text);
}

// ---- The key list and the ways into it

constexpr size_t ListSize()
{
    size_t size = 0;
    for (const ConfKey &key : kConfKeys)
        size += Length(key.name) + 1;
    return size;
}

struct KeyList {
    char text[ListSize()] = {};           ///< the keys joined by ';'
    int16_t position[kConfKeyCount] = {}; ///< where each key begins
    uint8_t length[kConfKeyCount] = {};
};

constexpr KeyList MakeKeyList()
{
    KeyList list;
    size_t end = 0;
    for (size_t row = 0; row < kConfKeyCount; ++row) {
        list.position[row] = static_cast<int16_t>(end);
        list.length[row] = static_cast<uint8_t>(Length(kConfKeys[row].name));
        for (const char *c = kConfKeys[row].name; *c != '\0'; ++c)
            list.text[end++] = *c;
        list.text[end++] = row + 1 < kConfKeyCount ? ';' : '\0';
    }
    return list;
}

constexpr KeyList kKeyList = MakeKeyList();
constexpr int kLoopBreakPosition = 428;

static_assert(kConfKeyCount == 45);
static_assert(kKeyList.position[kConfKeyCount - 1] == 451);
static_assert(kKeyList.position[kConfKeyCount - 3] == kLoopBreakPosition);

// Whole keys, which is what files hold, are found through a hash without collisions; everything else by the
// search that defines what a key is. The search alone takes most of the time that loading a file takes
// (confBench), because it passes over half of the list for every line.
constexpr uint8_t Hash(const char *key, size_t length)
{
    unsigned hash = 0;
    for (size_t i = 0; i < length; ++i)
        hash = hash * 3 + static_cast<unsigned char>(key[i]);
    return static_cast<uint8_t>(hash);
}

struct HashIndex {
    uint8_t row[256] = {}; ///< row + 1; 0 where there is no key
    bool collides = false;
};

constexpr HashIndex MakeHashIndex()
{
    HashIndex index;
    for (size_t row = 0; row < kConfKeyCount; ++row) {
        uint8_t &slot = index.row[Hash(kConfKeys[row].name, kKeyList.length[row])];
        index.collides = index.collides || slot != 0;
        slot = static_cast<uint8_t>(row + 1);
    }
    return index;
}

constexpr HashIndex kHashIndex = MakeHashIndex();
static_assert(!kHashIndex.collides);

/// Row of a whole key, or -1.
int FindWholeKey(const char *key)
{
    const size_t length = strlen(key);
    const int row = kHashIndex.row[Hash(key, length)] - 1;
    if (row < 0 || kKeyList.length[row] != length || memcmp(kConfKeys[row].name, key, length) != 0)
        return -1;
    return row;
}

struct Found {
    int row;      ///< -1: unknown
    int position; ///< of the text's first occurrence in the list; -1: nowhere
};

Found FindKey(const char *key)
{
    const int whole = FindWholeKey(key);
    if (whole >= 0)
        return {whole, kKeyList.position[whole]};
    const char *occurrence = strstr(kKeyList.text, key);
    if (occurrence == nullptr)
        return {-1, -1};
    const int position = static_cast<int>(occurrence - kKeyList.text);
    for (size_t row = 0; row < kConfKeyCount; ++row)
        if (kKeyList.position[row] == position)
            return {static_cast<int>(row), position};
    return {-1, position};
}

// ---- Values

bool IsOne(const char *value)
{
    return value != nullptr && kel::ParseDecimal(value) == 1;
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

/// What is left for the loads that RESET and RELOAD start within one outermost call.
struct LoadBudget {
    int depth = 4;
    int files = 16;
};

int LoadFile(ImgCfgStatus *record, const char *path, LoadBudget *budget);

void LoadNested(ImgCfgStatus *record, const char *path, LoadBudget *budget)
{
    if (budget->depth == 0 || budget->files == 0)
        return;
    --budget->files;
    --budget->depth;
    LoadFile(record, path, budget);
    ++budget->depth;
}

/// Debug lines of the keys that print their value.
[[gnu::cold]] void Echo(const ConfKey &key, const char *value)
{
    if (strcmp(key.name, "LOOPBREAK") == 0)
        printf("[kel_isp] Receive LOOPBREAK=%s\n", value);
    else
        printf("[kel_isp] %s=%s\n", key.name, value);
}

void Act(ImgCfgStatus *record, const ConfKey &key, const char *value, LoadBudget *budget)
{
    switch (key.action) {
    case KeyAction::Number:
    case KeyAction::EitherNumber:
        if (value != nullptr)
            record->*key.field = kel::ParseDecimal(value);
        break;
    case KeyAction::NotStored:
        break;
    case KeyAction::Window:
        if (value != nullptr)
            ParseWindow(record, value);
        break;
    case KeyAction::LoadDefault:
        if (gfDebugFlag != 0)
            puts("[kel_isp] Reset default config ");
        if (IsOne(value))
            LoadNested(record, IMG_CFG_DEFAULT_FILE, budget);
        break;
    case KeyAction::LoadSystem:
        if (gfDebugFlag != 0)
            puts("[kel_isp] Reload config ");
        if (IsOne(value))
            LoadNested(record, IMG_CFG_SYSTEM_FILE, budget);
        break;
    case KeyAction::Echo:
        if (gfDebugFlag != 0)
            Echo(key, value != nullptr ? value : "");
        break;
    }
}

int Parse(ImgCfgStatus *record, const char *key, const char *value, LoadBudget *budget)
{
    const Found found = FindKey(key);
    if (found.row < 0) {
        if (gfDebugFlag != 0)
            printf("[kel_isp] PARSER!!!!!!!!!!!!!!!!!!\n[kel_isp] %s:%d\n", key, found.position);
        return IMG_CFG_UNKNOWN_KEY;
    }
    Act(record, kConfKeys[found.row], value, budget);
    return found.position;
}

// ---- Sources of settings

int LoadFile(ImgCfgStatus *record, const char *path, LoadBudget *budget)
{
    struct stat info;
    if (stat(path, &info) != 0)
        return IMG_CFG_NO_FILE;
    FILE *file = fopen(path, "r");
    if (file == nullptr)
        return IMG_CFG_UNREADABLE;
    char buffer[4096];
    setvbuf(file, buffer, _IOFBF, sizeof(buffer));
    char line[kel::kLineSize];
    while (kel::ReadLine(file, line) > 0) {
        char *rest = line;
        const char *key = kel::NextWord(&rest, kel::EndsKey);
        if (key != nullptr && *key != '#')
            Parse(record, key, kel::NextWord(&rest, kel::EndsValue), budget);
    }
    fclose(file);
    return 0;
}

} // namespace

int ImgCfgParse(ImgCfgStatus *record, const char *key, const char *value)
{
    LoadBudget budget;
    return Parse(record, key, value, &budget);
}

int ImgCfgLoadFile(ImgCfgStatus *record, const char *path)
{
    LoadBudget budget;
    return LoadFile(record, path, &budget);
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
    while (const char *key = kel::NextWord(&rest, kel::EndsOptionWord)) {
        const char *value = kel::NextWord(&rest, kel::EndsOptionWord);
        if (gfDebugFlag != 0)
            printf("[kel_isp] pcOpt = %s\tval = %s\n", key, value != nullptr ? value : "");
        if (ImgCfgParse(record, key, value) == kLoopBreakPosition)
            return -1;
    }
    return 0;
}

// ---- Defaults and printout

void ImgCfgDefault(ImgCfgStatus *record)
{
    *record = {};
    record->lenType = 1;
    record->icrType = 1;
    for (auto &row : record->aeWindow)
        for (int32_t &cell : row)
            cell = 1;
    record->aecEn = 1;
    record->agcEn = 1;
    record->awbEn = 1;
    record->manExposure = 3;
    record->maxGain = 2;
    record->wbR = 512;
    record->deflicker = 60;
    record->brightness = 128;
    record->contrast = 128;
    record->saturation = 128;
    record->sharpness = 100;
    record->nfMode = 1;
    record->dnBw = 1;
    record->dnIcr = 1;
    record->extBlc = 4;
    record->extDpc = 1;
}

namespace
{

struct PrintRow {
    const char *label;
    kel::ConfField field;
};

constexpr PrintRow kRowsBeforeWindow[] = {
    {"SNR_TYPE\t", &ImgCfgStatus::snrType},
    {"LEN_TYPE\t", &ImgCfgStatus::lenType},
    {"ICR_TYPE\t", &ImgCfgStatus::icrType},
    {"2A_AEC\t\t", &ImgCfgStatus::aecEn},
    {"2A_AGC\t\t", &ImgCfgStatus::agcEn},
    {"2A_AEL\t\t", &ImgCfgStatus::aelEn},
    {"2A_AWB\t\t", &ImgCfgStatus::awbEn},
    {"2A_MAX_EXPOSURE\t", &ImgCfgStatus::maxExposure},
    {"2A_MAN_EXPOSURE\t", &ImgCfgStatus::manExposure},
    {"2A_MAX_GAIN\t", &ImgCfgStatus::maxGain},
    {"2A_MAN_GAIN\t", &ImgCfgStatus::manGain},
    {"2A_LIMIT_INDEX\t", &ImgCfgStatus::limitIndex},
    {"2A_LIMIT_UPPER\t", &ImgCfgStatus::limitUpper},
    {"2A_LIMIT_LOWER\t", &ImgCfgStatus::limitLower},
    {"2A_WB_SAVE\t", &ImgCfgStatus::wbSave},
    {"2A_WB_R\t\t", &ImgCfgStatus::wbR},
    {"2A_WB_B\t\t", &ImgCfgStatus::wbB},
    {"2A_DEFLICKER\t", &ImgCfgStatus::deflicker},
    {"IMG_BRIGHTNESS\t", &ImgCfgStatus::brightness},
    {"IMG_CONTRAST\t", &ImgCfgStatus::contrast},
    {"IMG_SATURATION\t", &ImgCfgStatus::saturation},
    {"IMG_SHARPNESS\t", &ImgCfgStatus::sharpness},
    {"IMG_NF_MODE\t", &ImgCfgStatus::nfMode},
    {"IMG_NF_LEVEL\t", &ImgCfgStatus::nfLevel},
    {"IMG_FLIP\t", &ImgCfgStatus::flip},
    {"IMG_MIRROR\t", &ImgCfgStatus::mirror},
    {"DN_MODE\t\t", &ImgCfgStatus::dnMode},
    {"DN_BW\t\t", &ImgCfgStatus::dnBw},
    {"DN_ICR\t\t", &ImgCfgStatus::dnIcr},
    {"DN_FPS\t\t", &ImgCfgStatus::dnFps},
    {"DN_DI\t\t", &ImgCfgStatus::dnDi},
    {"DN_LS\t\t", &ImgCfgStatus::dnLs},
    {"DN_LUM\t\t", &ImgCfgStatus::dnLum},
    {"EXT_BLC\t\t", &ImgCfgStatus::extBlc},
    {"EXT_WDR\t\t", &ImgCfgStatus::extWdr},
    {"EXT_NF\t\t", &ImgCfgStatus::extNf},
    {"EXT_LSC\t\t", &ImgCfgStatus::extLsc},
    {"EXT_DPC\t\t", &ImgCfgStatus::extDpc},
};

constexpr PrintRow kRowsAfterWindow[] = {
    {"EXT_RESET\t\t", &ImgCfgStatus::extReset},
    {"EXT_DEBUG\t\t", &ImgCfgStatus::extDebug},
};

constexpr char kRule[] = "=======================================";

template <size_t N>
void PrintRows(const ImgCfgStatus *record, const PrintRow (&rows)[N])
{
    for (const PrintRow &row : rows)
        printf("%s:\t%d\n", row.label, record->*row.field);
}

} // namespace

void ImgCfgPrint(const ImgCfgStatus *record)
{
    puts(kRule);
    PrintRows(record, kRowsBeforeWindow);
    puts("EXT_AEWIN\t:");
    for (const auto &row : record->aeWindow) {
        for (const int32_t cell : row)
            printf("%d", cell);
        putchar('\n');
    }
    PrintRows(record, kRowsAfterWindow);
    puts(kRule);
}

// ---- The day/night switch

namespace
{

int SendDayNight(int fd, bool night)
{
    if (gfDebugFlag != 0)
        puts(night ? "[kel_isp] Set ICR = IR_PASS" : "[kel_isp] Set ICR = IR_CUT");
    int status = kel::RequestGpio(fd, GIO_CONFIG, KEL_PIN_ICR, night ? 1 : 0);
    if (status != 0)
        return status;
    if (gfDebugFlag != 0)
        puts(night ? "[kel_isp] Set IR LEDs = ON" : "[kel_isp] Set IR LEDs = OFF");
    status = kel::RequestGpio(fd, GIO_CONFIG, KEL_PIN_IR_LED, night ? 0 : 1);
    if (status != 0)
        return status;
    return kel::RequestGpio(fd, GIO_CONFIG, KEL_PIN_SENSOR_RESET, 1);
}

} // namespace

int ApplyIcrLedConfig(const ImgCfgStatus *record)
{
    const int fd = kel::OpenGpio();
    if (fd < 0)
        return KEL_GPIO_FAILED;
    const int status = SendDayNight(fd, kel::IsNight(*record) && record->dnIcr == 1);
    close(fd);
    return status;
}
