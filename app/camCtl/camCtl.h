// SPDX-License-Identifier: MIT
//
// The commands of camCtl and what they share. Every word is checked before the first device call.
#ifndef CAMSTAT_APP_CAM_CTL_CAM_CTL_H
#define CAMSTAT_APP_CAM_CTL_CAM_CTL_H

#include "app/camCtl/registers.h"
#include "app/shared/commandLine.h"
#include "app/shared/json.h"

namespace camCtl
{

/// Options by their index in the program's table (main.cpp).
enum OptionIndex { kJson, kRetries, kDryRun, kHex, kForce, kMetrics };

constexpr uint32_t Takes(OptionIndex option)
{
    return 1U << option;
}

// Fields (fieldCommands.cpp)
int List(const cli::Arguments &arguments);
int Get(const cli::Arguments &arguments);
int Set(const cli::Arguments &arguments);
int Dump(const cli::Arguments &arguments);
// Files (fileCommands.cpp)
int Save(const cli::Arguments &arguments);
int Load(const cli::Arguments &arguments);
int Diff(const cli::Arguments &arguments);
// The board (boardCommands.cpp)
int Led(const cli::Arguments &arguments);
int IrCut(const cli::Arguments &arguments);
int Reset(const cli::Arguments &arguments);
int Expose(const cli::Arguments &arguments);
int Status(const cli::Arguments &arguments); // status.cpp
int Doctor(const cli::Arguments &arguments); // doctor.cpp

/// The value of --retries, 3 without it. False after its error line.
bool TakeRetries(const cli::Arguments &arguments, int *retries);

// ---- Assignments (assignments.cpp)

/// The bits that assignments set, and what they set them to.
struct Changes {
    uint8_t values[kRegisters];
    uint8_t masks[kRegisters];
};

/// "0x37" at the beginning of a text; `*end` points behind it.
bool ParseAddress(const char *text, const char **end, unsigned *reg);

/// Takes one NAME=VALUE or 0xADDR=CODE. False after its error line, which begins with `where`.
bool PutAssignment(const char *where, const char *name, const char *text, Changes &changes);

/// Prints that no field has this name, and the nearest one; gives false.
bool FailUnknownName(const char *where, const char *name);

/// Marks the registers that the changes touch.
void WantChanged(const Changes &changes, Image &image);
Image WithChanges(const Image &image, const Changes &changes);

// ---- How fields are shown (show.cpp)

/// "NAME = CODE  # meaning"; "unknown" in place of a code that is not `shown`.
void PrintField(FILE *file, const Field &field, const uint8_t *values, bool shown);
void FieldToJson(cli::Json &json, const Field &field, const uint8_t *values, bool shown);
bool Differs(const Field &field, const uint8_t *before, const uint8_t *after);
/// "NAME: OLD -> NEW  # meaning", or "NAME: CODE, as it was".
void PrintChange(const Field &field, const uint8_t *before, const uint8_t *after);
void ChangeToJson(cli::Json &json, const Field &field, const uint8_t *before, const uint8_t *after);
/// Shows every field that differs, among the registers marked in `after`; gives their number.
int ShowChanges(const Image &before, const Image &after, bool asJson);

} // namespace camCtl

#endif
