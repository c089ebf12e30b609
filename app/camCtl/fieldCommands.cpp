// SPDX-License-Identifier: MIT
//
// camCtl's commands on fields: list, get, set, dump; and what expose sets.
#include "app/camCtl/items.h"
#include "isp/exposureRules.h"
#include "kelisp/ispSensor.h"

#include <fnmatch.h>
#include <string.h>

namespace
{

using namespace camCtl;
using cli::Arguments;

/// Reads and prints items; `whole`: out of all registers, which takes fewest reads.
int ShowItems(const Items &items, const Arguments &arguments, bool whole)
{
    int retries = 0;
    if (!TakeRetries(arguments, &retries) || OpenCamera(retries) != cli::kDone)
        return cli::kFailed;
    Image image = {};
    if (whole)
        Want(image, 0, kRegisters);
    WantItems(items, &image);
    const bool ok = (!items.opensReadouts || OpenReadouts() == cli::kDone) && ReadWanted(image) == cli::kDone;
    CloseCamera();
    if (!ok)
        return cli::kFailed;
    const bool readouts = items.opensReadouts || ShowsReadouts(image);
    bool hides = false;
    cli::Json json;
    cli::Json *object = arguments.Has(kJson) ? &json : nullptr;
    if (object != nullptr)
        json.Begin();
    for (int i = 0; i < items.count; ++i) {
        const bool hidden = items.list[i].IsLive() && !readouts;
        hides |= hidden;
        ShowItem(object, items.list[i], image, !hidden);
    }
    if (object != nullptr)
        json.End();
    if (hides)
        NoteHiddenReadouts();
    return cli::kDone;
}

/// All registers as 16 columns of bytes.
int DumpBytes(const Arguments &arguments)
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
    const bool readouts = ShowsReadouts(image);
    bool hidden[kRegisters] = {};
    for (size_t i = 0; i < kFieldCount; ++i)
        if (kFields[i].live && !readouts)
            memset(hidden + kFields[i].reg, true, kFields[i].registers);
    fputs("     ", stdout);
    for (unsigned column = 0; column < 16; ++column)
        printf(" %X%s", column, column < 15 ? " " : "\n");
    for (unsigned reg = 0; reg < kRegisters; ++reg) {
        if (reg % 16 == 0)
            printf("0x%02X:", reg);
        if (hidden[reg])
            fputs(" --", stdout);
        else
            printf(" %02x", image.values[reg]);
        fputs(reg % 16 == 15 ? "\n" : "", stdout);
    }
    if (!readouts)
        NoteHiddenReadouts();
    return cli::kDone;
}

/// Whether a field is among those that a word of `list` asks for: a pattern of names, or a group.
bool IsAskedFor(const Field &field, const char *word)
{
    return word[0] == '@' ? strcmp(field.group, word + 1) == 0 : fnmatch(word, field.name, FNM_CASEFOLD) == 0;
}

} // namespace

int camCtl::List(const Arguments &arguments)
{
    const bool asJson = arguments.Has(kJson);
    bool found = false;
    int retries = 0;
    if (!TakeRetries(arguments, &retries))
        return cli::kFailed;
    for (int i = 0; i < arguments.count; ++i)
        if (IsWrongGroup(arguments.words[i]))
            return cli::kFailed;
    cli::Json json;
    if (asJson) {
        json.Begin();
        json.Open('[', "fields");
    }
    for (size_t i = 0; i < kFieldCount; ++i) {
        const Field &field = kFields[i];
        bool matches = arguments.count == 0;
        for (int w = 0; w < arguments.count; ++w)
            matches |= IsAskedFor(field, arguments.words[w]);
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
        json.End();
    }
    return found ? cli::kDone : cli::Fail(arguments.words[0], "no field has such a name");
}

int camCtl::Get(const Arguments &arguments)
{
    static Items items;
    if (!TakeItems(arguments, "get", false, &items))
        return cli::kFailed;
    return ShowItems(items, arguments, items.count >= static_cast<int>(kFieldCount / 2));
}

namespace
{

/// Prints what became, or would become, of each word, and of the field that `also` names when it changes; true when
/// something does.
bool ShowOutcome(const Arguments &arguments, const Field *also, const Image &before, const Image &after)
{
    bool changes = false;
    cli::Json json;
    const bool asJson = arguments.Has(kJson);
    const auto show = [&](const Field &field) {
        changes |= Differs(field, before.values, after.values);
        if (asJson)
            ChangeToJson(json, field, before.values, after.values);
        else
            PrintChange(field, before.values, after.values);
    };
    if (asJson)
        json.Begin();
    for (int i = 0; i < arguments.count; ++i) {
        char *name = arguments.words[i]; // cut at its '=' by now
        const char *end = nullptr;
        unsigned reg = 0;
        const Field *field = FindField(name);
        if (field != nullptr) {
            show(*field);
        } else if (ParseAddress(name, &end, &reg)) {
            changes |= before.values[reg] != after.values[reg];
            ShowRegisterChange(asJson ? &json : nullptr, reg, before.values[reg], after.values[reg]);
        }
    }
    if (also != nullptr && Differs(*also, before.values, after.values))
        show(*also);
    if (asJson)
        json.End();
    return changes;
}

/// Cuts the words at their '=' and takes them.
bool TakeWords(const Arguments &arguments, const char *where, Changes *changes)
{
    for (int i = 0; i < arguments.count; ++i) {
        char *value = strchr(arguments.words[i], '=');
        if (value == nullptr || value == arguments.words[i])
            return cli::Fail(arguments.words[i], "is not NAME=VALUE") == cli::kDone;
        *value = '\0';
        if (!PutAssignment(where, arguments.words[i], value + 1, *changes))
            return false;
    }
    return true;
}

/// Reads what the changes touch, writes them and shows what became of the words.
int MakeChanges(const Arguments &arguments, const Changes &changes, const Field *also)
{
    Image image = {};
    WantChanged(changes, image);
    int status = ReadWanted(image);
    if (status != cli::kDone)
        return status;
    const Image before = image;
    const Image target = WithChanges(image, changes);
    if (!arguments.Has(kDryRun))
        status = WriteChanges(image, target);
    if (status == cli::kFailed)
        return status;
    const bool differs = ShowOutcome(arguments, also, before, arguments.Has(kDryRun) ? target : image);
    return arguments.Has(kDryRun) && differs ? cli::kNo : status;
}

/// The exposure time that the changes hold goes into both of its fields: the frames of a long one as well.
int PutLongExposure(const Field &lines, const Field &frames, Changes *changes)
{
    double us = 0.0;
    PhysicalOf(lines.unit, CodeOf(lines, changes->values), &us);
    changes->masks[frames.reg] = static_cast<uint8_t>(frames.MaxCode() << frames.low);
    if (us <= KEL_LONG_EXPOSURE_US)
        return cli::kDone; // no further frames
    if (StartSensor() != cli::kDone)
        return cli::kFailed;
    const kel::Exposure exposure = kel::LongExposure(us);
    PutCode(lines, exposure.lines, changes->values);
    PutCode(frames, exposure.frames, changes->values);
    return cli::kDone;
}

} // namespace

int camCtl::Set(const Arguments &arguments)
{
    Changes changes = {};
    int retries = 0;
    if (!TakeWords(arguments, "set", &changes) || !TakeRetries(arguments, &retries) ||
        OpenCamera(retries) != cli::kDone)
        return cli::kFailed;
    const int status = MakeChanges(arguments, changes, nullptr);
    CloseCamera();
    return status;
}

int camCtl::SetExposure(const Arguments &arguments)
{
    const Field &lines = *FindField("MeExpTim");
    const Field &frames = *FindField("LongExp");
    Changes changes = {};
    int retries = 0;
    if (!TakeWords(arguments, "expose", &changes) || !TakeRetries(arguments, &retries) ||
        OpenCamera(retries) != cli::kDone)
        return cli::kFailed;
    int status = changes.masks[lines.reg] != 0 ? PutLongExposure(lines, frames, &changes) : cli::kDone;
    if (status == cli::kDone)
        status = MakeChanges(arguments, changes, &frames);
    CloseCamera();
    return status;
}

int camCtl::Dump(const Arguments &arguments)
{
    if (!arguments.Has(kHex)) {
        static Items items;
        char all[] = "all";
        Arguments everything = arguments;
        everything.words[everything.count++] = all;
        return TakeItems(everything, "dump", false, &items) ? ShowItems(items, arguments, true)
                                                            : cli::kFailed;
    }
    if (arguments.Has(kJson))
        return cli::Fail("--hex", "and --json are two forms, take one");
    return DumpBytes(arguments);
}
