// SPDX-License-Identifier: MIT
//
// How camCtl shows fields: the lines of get and save, the changes of set, load and diff, and both as JSON.
#include "app/camCtl/camCtl.h"

#include <string.h>

namespace
{

using namespace camCtl;

void PrintCode(FILE *file, const Field &field, const uint8_t *values)
{
    if (!field.IsBlock()) {
        fprintf(file, "%u", CodeOf(field, values));
        return;
    }
    for (int i = 0; i < field.registers; ++i)
        fprintf(file, "%s0x%02X", i == 0 ? "" : " ", values[field.reg + i] & field.masks[i]);
}

void PrintMeaning(FILE *file, const Field &field, const uint8_t *values)
{
    char text[64] = "";
    if (!field.IsBlock())
        DescribeCode(field, CodeOf(field, values), text, sizeof(text));
    fprintf(file, text[0] != '\0' ? "  # %s\n" : "%s\n", text);
}

void CodeToJson(cli::Json &json, const char *key, const Field &field, const uint8_t *values)
{
    if (values == nullptr) {
        json.Null(key);
        return;
    }
    if (!field.IsBlock()) {
        json.Number(key, int64_t{CodeOf(field, values)});
        return;
    }
    json.Open('[', key);
    for (int i = 0; i < field.registers; ++i)
        json.Number(nullptr, int64_t{values[field.reg + i] & field.masks[i]});
    json.Close(']');
}

} // namespace

void camCtl::PrintAsJson(const char *key, const char *value)
{
    cli::Json json;
    json.Begin();
    json.Text(key, value);
    json.End();
}

void camCtl::PrintField(FILE *file, const Field &field, const uint8_t *values, bool shown)
{
    fprintf(file, "%s = ", field.name);
    if (!shown) {
        fputs("unknown\n", file);
        return;
    }
    PrintCode(file, field, values);
    PrintMeaning(file, field, values);
}

void camCtl::FieldToJson(cli::Json &json, const Field &field, const uint8_t *values, bool shown)
{
    json.Open('{', field.name);
    if (!shown) {
        json.Null("code");
    } else {
        CodeToJson(json, "code", field, values);
        double value = 0.0;
        char text[64] = "";
        if (!field.IsBlock() && PhysicalOf(field.unit, CodeOf(field, values), &value))
            json.Number("value", value);
        if (!field.IsBlock())
            DescribeCode(field, CodeOf(field, values), text, sizeof(text));
        if (text[0] != '\0')
            json.Text("meaning", text);
    }
    json.Close('}');
}

bool camCtl::Differs(const Field &field, const uint8_t *before, const uint8_t *after)
{
    if (!field.IsBlock())
        return CodeOf(field, before) != CodeOf(field, after);
    for (int i = 0; i < field.registers; ++i)
        if (((before[field.reg + i] ^ after[field.reg + i]) & field.masks[i]) != 0)
            return true;
    return false;
}

void camCtl::PrintChange(const Field &field, const uint8_t *before, const uint8_t *after)
{
    printf("%s: ", field.name);
    if (before != nullptr && after != nullptr && !Differs(field, before, after)) {
        PrintCode(stdout, field, after);
        puts(", as it was");
        return;
    }
    if (before != nullptr)
        PrintCode(stdout, field, before);
    fputs(before != nullptr ? " -> " : "none -> ", stdout);
    if (after == nullptr) {
        puts("none");
        return;
    }
    PrintCode(stdout, field, after);
    PrintMeaning(stdout, field, after);
}

void camCtl::ChangeToJson(cli::Json &json, const Field &field, const uint8_t *before, const uint8_t *after)
{
    json.Open('{', field.name);
    CodeToJson(json, "before", field, before);
    CodeToJson(json, "after", field, after);
    json.Close('}');
}

void camCtl::ShowRegisterChange(cli::Json *json, unsigned reg, uint8_t before, uint8_t after)
{
    char name[8];
    snprintf(name, sizeof(name), "0x%02X", reg);
    if (json != nullptr) {
        json->Open('{', name);
        json->Number("before", int64_t{before});
        json->Number("after", int64_t{after});
        json->Close('}');
    } else if (before != after) {
        printf("%s: 0x%02X -> 0x%02X\n", name, before, after);
    } else {
        printf("%s: 0x%02X, as it was\n", name, after);
    }
}

namespace
{

bool IsKnown(const Field &field, const uint8_t *known)
{
    for (unsigned i = 0; known != nullptr && i < field.registers; ++i)
        if ((field.MaskIn(i) & ~static_cast<unsigned>(known[field.reg + i])) != 0)
            return false;
    return true;
}

} // namespace

int camCtl::ShowChanges(const Side &before, const Side &after, bool asJson)
{
    int changes = 0;
    uint8_t named[kRegisters] = {}; // bits that fields have
    cli::Json json;
    if (asJson) {
        json.Begin();
        json.Open('{', "changes");
    }
    for (size_t i = 0; i < kFieldCount; ++i) {
        const Field &field = kFields[i];
        if (field.alias)
            continue;
        for (unsigned r = 0; r < field.registers; ++r)
            named[field.reg + r] = static_cast<uint8_t>(named[field.reg + r] | field.MaskIn(r));
        const uint8_t *from = IsKnown(field, before.known) ? before.values : nullptr;
        const uint8_t *to = IsKnown(field, after.known) ? after.values : nullptr;
        if (field.live || (from == nullptr && to == nullptr) ||
            (from != nullptr && to != nullptr && !Differs(field, from, to)))
            continue;
        ++changes;
        if (asJson)
            ChangeToJson(json, field, from, to);
        else
            PrintChange(field, from, to);
    }
    for (unsigned reg = 0; reg < kRegisters; ++reg) {
        const bool known = (before.known == nullptr || before.known[reg] == 0xFF) &&
                           (after.known == nullptr || after.known[reg] == 0xFF);
        if (!known || before.values == nullptr || after.values == nullptr ||
            ((before.values[reg] ^ after.values[reg]) & ~named[reg]) == 0)
            continue;
        ++changes;
        ShowRegisterChange(asJson ? &json : nullptr, reg, before.values[reg], after.values[reg]);
    }
    if (asJson) {
        json.Close('}');
        json.End();
    }
    return changes;
}
