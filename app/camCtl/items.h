// SPDX-License-Identifier: MIT
//
// What the words of get, list and watch name: fields, groups, registers by address, and the values of status.
#ifndef CAMSTAT_APP_CAM_CTL_ITEMS_H
#define CAMSTAT_APP_CAM_CTL_ITEMS_H

#include "app/camCtl/camCtl.h"
#include "app/camCtl/status.h"

namespace camCtl
{

/// A field, a value of status, or else the register at an address.
struct Item {
    const Field *field;
    const StatusRow *status;
    uint8_t reg;

    bool IsLive() const { return field != nullptr && field->live; }
};

struct Items {
    Item list[2 * kRegisters]; ///< each thing once: more than all of them together
    int count;
    bool opensReadouts; ///< a live field by name or group, or a value of status
    bool hasStatus;
};

/// Adds what the words name. False after its error line, which begins with `where`.
bool TakeItems(const cli::Arguments &arguments, const char *where, bool takesStatus, Items *items);
void AddAllStatus(Items *items);

/// Whether a word is "@" and a group that is none; prints the error line then.
bool IsWrongGroup(const char *word);

/// Marks the registers that the items lie in, and the information output where it tells whether they can be believed.
void WantItems(const Items &items, Image *image);

/// Whether live fields in the image say something: the information output is not switched elsewhere, as far as known.
bool ShowsReadouts(const Image &image);
/// Tells on standard error that they do not.
void NoteHiddenReadouts();

/// Prints a field or register, a line as `get` has it, or adds it to an object; `shown` false: it is not known.
void ShowItem(cli::Json *json, const Item &item, const Image &image, bool shown);

} // namespace camCtl

#endif
