// SPDX-License-Identifier: MIT
//
// camCtl's commands on fields: list, get, set, dump; and how fields, changes and assignments read.
#include "app/camCtl/camCtl.h"

#include "base/fieldText.h"

#include <ctype.h>
#include <fnmatch.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

namespace
{

using namespace camCtl;
using cli::Arguments;

constexpr uint8_t kInfoOutReg = 0xCC;
constexpr uint8_t kInfoOutMask = 0x07;

// ---- What the words name

/// A field, or the registers of an address range.
struct Item {
    const Field *field; ///< null for addresses
    uint8_t reg;
    uint8_t last;
};

struct Items {
    Item list[512];
    int count;
    bool opensReadouts; ///< a live field by name or group
};

/// "0x37" or "0x30-0x3F".
bool ParseRange(const char *text, unsigned *first, unsigned *last)
{
    const char *end = nullptr;
    if (!ParseAddress(text, &end, first))
        return false;
    *last = *first;
    if (*end == '-' && !ParseAddress(end + 1, &end, last))
        return false;
    return *end == '\0' && *first <= *last;
}

bool IsGroup(const char *name)
{
    for (const char *group : kGroups)
        if (strcmp(group, name) == 0)
            return true;
    return false;
}

bool AddItem(Items &items, const Field *field, unsigned reg, unsigned last)
{
    if (items.count == static_cast<int>(sizeof(items.list) / sizeof(items.list[0])))
        return cli::Fail("too many fields", "name fewer at once") == cli::kDone;
    items.list[items.count++] = {field, static_cast<uint8_t>(reg), static_cast<uint8_t>(last)};
    return true;
}

/// Adds what a word of `get` names; false after its error line.
bool AddWord(Items &items, const char *word)
{
    unsigned first = 0;
    unsigned last = 0;
    if (ParseRange(word, &first, &last)) {
        bool ok = true;
        for (unsigned reg = first; ok && reg <= last; ++reg)
            ok = AddItem(items, nullptr, reg, reg);
        return ok;
    }
    const bool isGroup = word[0] == '@';
    if (isGroup && !IsGroup(word + 1))
        return cli::FailWith(word, "unknown group; there are %s", kGroupNames) == cli::kDone;
    if (isGroup || strcmp(word, "all") == 0) {
        for (size_t i = 0; i < kFieldCount; ++i) {
            const Field &field = kFields[i];
            if (field.alias || (isGroup && strcmp(field.group, word + 1) != 0))
                continue;
            items.opensReadouts |= isGroup && field.live;
            if (!AddItem(items, &field, field.reg, field.Last()))
                return false;
        }
        return true;
    }
    const Field *field = FindField(word);
    if (field == nullptr)
        return FailUnknownName("get", word);
    items.opensReadouts |= field->live;
    return AddItem(items, field, field->reg, field->Last());
}

void RegisterToJson(cli::Json &json, uint8_t reg, uint8_t content)
{
    char key[8];
    snprintf(key, sizeof(key), "0x%02X", reg);
    json.Open('{', key);
    json.Number("code", int64_t{content});
    json.Close('}');
}

/// Live fields say nothing while the information output shows something else.
bool ReadoutsShown(const Image &image)
{
    return !image.wanted[kInfoOutReg] || (image.values[kInfoOutReg] & kInfoOutMask) == 0;
}

void NoteHiddenReadouts()
{
    fputs("camCtl: note: the information output is switched elsewhere (InfoOut), live fields are not known\n",
          stderr);
}

} // namespace

bool camCtl::TakeRetries(const Arguments &arguments, int *retries)
{
    *retries = 3;
    if (!arguments.Has(kRetries))
        return true;
    char *end = nullptr;
    const char *text = arguments.options[kRetries];
    const unsigned long value = strtoul(text, &end, 10);
    *retries = static_cast<int>(value);
    if (isdigit(static_cast<unsigned char>(text[0])) && *end == '\0' && value <= 100)
        return true;
    return cli::FailWith("--retries", "%s is not a number from 0 to 100", text) == cli::kDone;
}

int camCtl::List(const Arguments &arguments)
{
    const bool asJson = arguments.Has(kJson);
    bool found = false;
    cli::Json json;
    if (asJson) {
        json.Open('{');
        json.Open('[', "fields");
    }
    for (size_t i = 0; i < kFieldCount; ++i) {
        const Field &field = kFields[i];
        bool matches = arguments.count == 0;
        for (int w = 0; w < arguments.count; ++w)
            matches |= fnmatch(arguments.words[w], field.name, FNM_CASEFOLD) == 0;
        if (!matches)
            continue;
        found = true;
        char range[80];
        DescribeRange(field, range, sizeof(range));
        const char *access = field.live ? "ro" : "rw";
        if (asJson) {
            json.Open('{');
            json.Text("name", field.name);
            json.Number("address", int64_t{field.reg});
            json.Number("registers", int64_t{field.registers});
            json.Number("high_bit", int64_t{field.high});
            json.Number("low_bit", int64_t{field.low});
            json.Text("access", access);
            json.Text("range", range);
            json.Text("unit", UnitName(field.unit));
            json.Text("group", field.group);
            json.Text("meaning", field.meaning);
            json.Close('}');
        } else {
            char address[16];
            snprintf(address, sizeof(address), field.registers > 1 ? "0x%02X-0x%02X" : "0x%02X", field.reg,
                     field.Last());
            printf("%-12s %-9s %2u:%-2u %s %-38s %-12s %-9s %s\n", field.name, address, field.high, field.low,
                   access, range, UnitName(field.unit), field.group, field.meaning);
        }
    }
    if (asJson) {
        json.Close(']');
        json.Close('}');
        putchar('\n');
    }
    return found ? cli::kDone : cli::Fail(arguments.words[0], "no field has such a name");
}

int camCtl::Get(const Arguments &arguments)
{
    static Items items;
    int retries = 0;
    for (int i = 0; i < arguments.count; ++i)
        if (!AddWord(items, arguments.words[i]))
            return cli::kFailed;
    if (!TakeRetries(arguments, &retries) || OpenCamera(retries) != cli::kDone)
        return cli::kFailed;
    Image image = {};
    bool live = false;
    for (int i = 0; i < items.count; ++i) {
        Want(image, items.list[i].reg, items.list[i].last - items.list[i].reg + 1U);
        live |= items.list[i].field != nullptr && items.list[i].field->live;
    }
    if (live && !items.opensReadouts)
        Want(image, kInfoOutReg, 1);
    const bool ok = (!items.opensReadouts || OpenReadouts() == cli::kDone) && ReadWanted(image) == cli::kDone;
    CloseCamera();
    if (!ok)
        return cli::kFailed;
    const bool readouts = items.opensReadouts || ReadoutsShown(image);
    if (live && !readouts)
        NoteHiddenReadouts();
    cli::Json json;
    if (arguments.Has(kJson))
        json.Open('{');
    for (int i = 0; i < items.count; ++i) {
        const Item &item = items.list[i];
        const bool shown = item.field == nullptr || !item.field->live || readouts;
        if (arguments.Has(kJson) && item.field != nullptr)
            FieldToJson(json, *item.field, image.values, shown);
        else if (arguments.Has(kJson))
            RegisterToJson(json, item.reg, image.values[item.reg]);
        else if (item.field != nullptr)
            PrintField(stdout, *item.field, image.values, shown);
        else
            printf("0x%02X = 0x%02X\n", item.reg, image.values[item.reg]);
    }
    if (arguments.Has(kJson)) {
        json.Close('}');
        putchar('\n');
    }
    return cli::kDone;
}

namespace
{

/// Prints what became, or would become, of each word; 1 when a word changes something.
bool ShowOutcome(const Arguments &arguments, const Image &before, const Image &after)
{
    bool changes = false;
    cli::Json json;
    const bool asJson = arguments.Has(kJson);
    if (asJson)
        json.Open('{');
    for (int i = 0; i < arguments.count; ++i) {
        char *name = arguments.words[i]; // cut at its '=' by now
        const char *end = nullptr;
        unsigned reg = 0;
        const Field *field = FindField(name);
        if (field != nullptr) {
            changes |= Differs(*field, before.values, after.values);
            if (asJson)
                ChangeToJson(json, *field, before.values, after.values);
            else
                PrintChange(*field, before.values, after.values);
        } else if (ParseAddress(name, &end, &reg)) {
            const bool differs = before.values[reg] != after.values[reg];
            changes |= differs;
            if (asJson) {
                json.Open('{', name);
                json.Number("before", int64_t{before.values[reg]});
                json.Number("after", int64_t{after.values[reg]});
                json.Close('}');
            } else if (differs) {
                printf("0x%02X: 0x%02X -> 0x%02X\n", reg, before.values[reg], after.values[reg]);
            } else {
                printf("0x%02X: 0x%02X, as it was\n", reg, after.values[reg]);
            }
        }
    }
    if (asJson) {
        json.Close('}');
        putchar('\n');
    }
    return changes;
}

} // namespace

int camCtl::Set(const Arguments &arguments)
{
    Changes changes = {};
    int retries = 0;
    for (int i = 0; i < arguments.count; ++i) {
        char *value = strchr(arguments.words[i], '=');
        if (value == nullptr || value == arguments.words[i])
            return cli::Fail(arguments.words[i], "is not NAME=VALUE");
        *value = '\0';
        if (!PutAssignment("set", arguments.words[i], value + 1, changes))
            return cli::kFailed;
    }
    if (!TakeRetries(arguments, &retries) || OpenCamera(retries) != cli::kDone)
        return cli::kFailed;
    Image image = {};
    int written = 0;
    WantChanged(changes, image);
    int status = ReadWanted(image);
    const Image before = image;
    const Image target = WithChanges(image, changes);
    if (status == cli::kDone && !arguments.Has(kDryRun))
        status = WriteChanges(image, target, &written);
    CloseCamera();
    if (status == cli::kFailed)
        return status;
    const bool differs = ShowOutcome(arguments, before, arguments.Has(kDryRun) ? target : image);
    return arguments.Has(kDryRun) && differs ? cli::kNo : status;
}

int camCtl::Dump(const Arguments &arguments)
{
    int retries = 0;
    if (!TakeRetries(arguments, &retries) || OpenCamera(retries) != cli::kDone)
        return cli::kFailed;
    Image image = {};
    Want(image, 0, kRegisters);
    const int status = ReadWanted(image);
    CloseCamera();
    if (status != cli::kDone)
        return status;
    const bool readouts = ReadoutsShown(image);
    if (!readouts)
        NoteHiddenReadouts();
    if (arguments.Has(kHex)) {
        fputs("     ", stdout);
        for (unsigned column = 0; column < 16; ++column)
            printf(" %X%s", column, column < 15 ? " " : "\n");
        for (unsigned reg = 0; reg < kRegisters; ++reg) {
            if (reg % 16 == 0)
                printf("0x%02X:", reg);
            printf(" %02x%s", image.values[reg], reg % 16 == 15 ? "\n" : "");
        }
        return cli::kDone;
    }
    cli::Json json;
    if (arguments.Has(kJson))
        json.Open('{');
    for (size_t i = 0; i < kFieldCount; ++i) {
        const Field &field = kFields[i];
        if (field.alias)
            continue;
        if (arguments.Has(kJson))
            FieldToJson(json, field, image.values, !field.live || readouts);
        else
            PrintField(stdout, field, image.values, !field.live || readouts);
    }
    if (arguments.Has(kJson)) {
        json.Close('}');
        putchar('\n');
    }
    return cli::kDone;
}
