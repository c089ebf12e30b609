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
    if (!Differs(field, before, after)) {
        PrintCode(stdout, field, after);
        puts(", as it was");
        return;
    }
    PrintCode(stdout, field, before);
    fputs(" -> ", stdout);
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

int camCtl::ShowChanges(const Image &before, const Image &after, bool asJson)
{
    int changes = 0;
    cli::Json json;
    if (asJson) {
        json.Open('{');
        json.Open('{', "changes");
    }
    for (size_t i = 0; i < kFieldCount; ++i) {
        const Field &field = kFields[i];
        if (field.alias || field.live || !after.wanted[field.reg] ||
            !Differs(field, before.values, after.values))
            continue;
        ++changes;
        if (asJson)
            ChangeToJson(json, field, before.values, after.values);
        else
            PrintChange(field, before.values, after.values);
    }
    if (asJson) {
        json.Close('}');
        json.Close('}');
        putchar('\n');
    }
    return changes;
}
