// SPDX-License-Identifier: MIT
//
// NAME=VALUE as the command line and files give it: checked whole, before any device call.
#include "app/camCtl/camCtl.h"

#include <ctype.h>
#include <stdlib.h>
#include <string.h>

namespace
{

using namespace camCtl;

/// Prints the error line and gives false.
template <class... Values>
bool Refuse(const char *where, const char *format, Values... values)
{
    return cli::FailWith(where, format, values...) == cli::kDone;
}

/// The bytes of a block, "0x3A 0x3F ...", separated by blanks or commas.
bool PutBytes(const char *where, const Field &field, const char *text, Changes &changes)
{
    for (int i = 0; i < field.registers; ++i) {
        text += strspn(text, " ,\t");
        char *end = nullptr;
        unsigned long byte = 0;
        if (!ParseCode(text, &end, &byte) || (*end != '\0' && strchr(" ,\t", *end) == nullptr))
            return Refuse(where, "%s takes %d bytes, this has %d", field.name, int{field.registers}, i);
        if ((byte & ~static_cast<unsigned long>(field.masks[i])) != 0)
            return Refuse(where, "byte %d of %s is outside 0 to 0x%02X", i + 1, field.name,
                          unsigned{field.masks[i]});
        changes.values[field.reg + i] = static_cast<uint8_t>(byte);
        text = end;
    }
    return text[strspn(text, " ,\t")] == '\0' ||
           Refuse(where, "%s takes %d bytes, this has more", field.name, int{field.registers});
}

/// Claims the bits that an assignment sets; false after its error line when another one has them already.
bool Claim(const char *where, const char *name, unsigned reg, unsigned mask, Changes &changes)
{
    if ((changes.masks[reg] & mask) != 0)
        return Refuse(where, "%s is set twice", name);
    changes.masks[reg] = static_cast<uint8_t>(changes.masks[reg] | mask);
    return true;
}

bool PutField(const char *where, const Field &field, const char *text, Changes &changes)
{
    if (field.live)
        return Refuse(where, "%s is a live readout, which only the camera sets", field.name);
    for (unsigned i = 0; i < field.registers; ++i)
        if (!Claim(where, field.name, field.reg + i, field.MaskIn(i), changes))
            return false;
    if (field.IsBlock())
        return PutBytes(where, field, text, changes);
    uint32_t code = 0;
    char why[192];
    if (!ParseValue(field, text, &code, why, sizeof(why)))
        return Refuse(where, "%s: %s", field.name, why);
    PutCode(field, code, changes.values);
    return true;
}

} // namespace

bool camCtl::ParseAddress(const char *text, const char **end, unsigned *reg)
{
    if (text[0] != '0' || tolower(static_cast<unsigned char>(text[1])) != 'x' ||
        !isxdigit(static_cast<unsigned char>(text[2])))
        return false;
    char *behind = nullptr;
    const unsigned long value = strtoul(text, &behind, 16);
    *end = behind;
    *reg = static_cast<unsigned>(value);
    return value < kRegisters;
}

bool camCtl::FailUnknownName(const char *where, const char *name)
{
    if (strncmp(name, "0x", 2) == 0)
        return Refuse(where, "%.40s names no registers from 0x00 to 0xFF", name);
    const char *nearest = NearestName(name);
    return nearest != nullptr ? Refuse(where, "unknown name %.40s, the nearest is %s", name, nearest)
                              : Refuse(where, "unknown name %.40s", name);
}

bool camCtl::PutAssignment(const char *where, const char *name, const char *text, Changes &changes)
{
    const char *end = nullptr;
    unsigned reg = 0;
    if (!ParseAddress(name, &end, &reg) || *end != '\0') {
        const Field *field = FindField(name);
        return field != nullptr ? PutField(where, *field, text, changes) : FailUnknownName(where, name);
    }
    char *behind = nullptr;
    unsigned long code = 0;
    if (!ParseCode(text, &behind, &code) || *behind != '\0' || code > 0xFF)
        return Refuse(where, "%s: %.40s is outside 0 to 255", name, text);
    if (IsCamerasOwn(reg))
        return Refuse(where, "%s is one of the registers that only the camera sets", name);
    changes.values[reg] = static_cast<uint8_t>(code);
    return Claim(where, name, reg, 0xFF, changes);
}

void camCtl::WantChanged(const Changes &changes, Image &image)
{
    for (unsigned reg = 0; reg < kRegisters; ++reg)
        image.wanted[reg] |= changes.masks[reg] != 0;
}

camCtl::Image camCtl::WithChanges(const Image &image, const Changes &changes)
{
    Image target = image;
    for (unsigned reg = 0; reg < kRegisters; ++reg)
        target.values[reg] = static_cast<uint8_t>((image.values[reg] & ~changes.masks[reg]) |
                                                  (changes.values[reg] & changes.masks[reg]));
    return target;
}
