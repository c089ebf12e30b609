// SPDX-License-Identifier: MIT
//
// Words that name fields, registers and values of status.
#include "app/camCtl/items.h"

#include <string.h>

namespace
{

using namespace camCtl;

constexpr uint8_t kInfoOutReg = 0xCC;
constexpr uint8_t kInfoOutMask = 0x07;

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

/// What is named twice is shown once.
void AddItem(Items *items, const Item &added)
{
    for (int i = 0; i < items->count; ++i) {
        const Item &item = items->list[i];
        if (item.field == added.field && item.status == added.status && item.reg == added.reg)
            return;
    }
    items->list[items->count++] = added;
    items->hasStatus |= added.status != nullptr;
    items->opensReadouts |= added.status != nullptr;
}

void AddFields(Items *items, const char *group)
{
    for (size_t i = 0; i < kFieldCount; ++i) {
        const Field &field = kFields[i];
        if (field.alias || (group != nullptr && strcmp(field.group, group) != 0))
            continue;
        items->opensReadouts |= group != nullptr && field.live;
        AddItem(items, {&field, nullptr, field.reg});
    }
}

bool AddWord(Items *items, const char *where, const char *word, bool takesStatus)
{
    unsigned first = 0;
    unsigned last = 0;
    if (ParseRange(word, &first, &last)) {
        for (unsigned reg = first; reg <= last; ++reg)
            AddItem(items, {nullptr, nullptr, static_cast<uint8_t>(reg)});
        return true;
    }
    if (IsWrongGroup(word))
        return false;
    const StatusRow *status = takesStatus ? FindStatus(word) : nullptr;
    const Field *field = FindField(word);
    if (word[0] == '@' || strcmp(word, "all") == 0) {
        AddFields(items, word[0] == '@' ? word + 1 : nullptr);
    } else if (status != nullptr) {
        AddItem(items, {nullptr, status, 0});
    } else if (field == nullptr) {
        return FailUnknownName(where, word);
    } else {
        items->opensReadouts |= field->live;
        AddItem(items, {field, nullptr, field->reg});
    }
    return true;
}

} // namespace

bool camCtl::TakeItems(const cli::Arguments &arguments, const char *where, bool takesStatus, Items *items)
{
    *items = {};
    for (int i = 0; i < arguments.count; ++i)
        if (!AddWord(items, where, arguments.words[i], takesStatus))
            return false;
    return true;
}

void camCtl::AddAllStatus(Items *items)
{
    for (size_t i = 0; i < kStatusCount; ++i)
        AddItem(items, {nullptr, &kStatusRows[i], 0});
}

bool camCtl::IsWrongGroup(const char *word)
{
    if (word[0] != '@')
        return false;
    for (size_t i = 0; i < kFieldCount; ++i)
        if (strcmp(kFields[i].group, word + 1) == 0)
            return false;
    cli::FailWith(word, "unknown group; there are %s", kGroupNames);
    return true;
}

void camCtl::WantItems(const Items &items, Image *image)
{
    bool live = false;
    for (int i = 0; i < items.count; ++i) {
        const Item &item = items.list[i];
        if (item.status == nullptr)
            Want(*image, item.reg, item.field != nullptr ? item.field->registers : 1U);
        live |= item.IsLive();
    }
    if (live && !items.opensReadouts)
        Want(*image, kInfoOutReg, 1);
}

bool camCtl::ShowsReadouts(const Image &image)
{
    return !image.wanted[kInfoOutReg] || (image.values[kInfoOutReg] & kInfoOutMask) == 0;
}

void camCtl::NoteHiddenReadouts()
{
    fflush(stdout); // in order where both go to one file
    fputs("camCtl: note: the information output is switched elsewhere (InfoOut), live fields are not known\n",
          stderr);
}

void camCtl::ShowItem(cli::Json *json, const Item &item, const Image &image, bool shown)
{
    char address[8];
    if (item.field != nullptr && json != nullptr) {
        FieldToJson(*json, *item.field, image.values, shown);
    } else if (item.field != nullptr) {
        PrintField(stdout, *item.field, image.values, shown);
    } else if (json != nullptr) {
        snprintf(address, sizeof(address), "0x%02X", item.reg);
        json->Open('{', address);
        if (shown)
            json->Number("code", int64_t{image.values[item.reg]});
        else
            json->Null("code");
        json->Close('}');
    } else if (shown) {
        printf("0x%02X = 0x%02X\n", item.reg, image.values[item.reg]);
    } else {
        printf("0x%02X = unknown\n", item.reg);
    }
}
