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
enum OptionIndex {
    kJson,
    kRetries,
    kDryRun,
    kHex,
    kForce,
    kMetrics,
    kTime,
    kRounds,
    kNoFiles,
    kEvery,
    kCount,
    kCsv
};

constexpr uint32_t Takes(OptionIndex option)
{
    return 1U << option;
}

// Fields (fieldCommands.cpp)
int List(const cli::Arguments &arguments);
int Get(const cli::Arguments &arguments);
int Set(const cli::Arguments &arguments);
/// Set of words that name the manual exposure's fields: a long time goes into the further frames as well.
int SetExposure(const cli::Arguments &arguments);
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
int Stress(const cli::Arguments &arguments); // stress.cpp
int Watch(const cli::Arguments &arguments);  // watch.cpp

// ---- Options (options.cpp). All give false after their error line.

/// The value of --retries, 3 without it.
bool TakeRetries(const cli::Arguments &arguments, int *retries);

/// The whole number that stands behind an option.
bool TakeNumber(const cli::Arguments &arguments, OptionIndex option, int least, int most, int *number);

/// The time that stands behind an option, above 0, in microseconds.
bool TakeTime(const cli::Arguments &arguments, OptionIndex option, double *us);

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

/// A result of one word: {"KEY":"VALUE"}.
void PrintAsJson(const char *key, const char *value);

/// "NAME = CODE  # meaning"; "unknown" in place of a code that is not `shown`.
void PrintField(FILE *file, const Field &field, const uint8_t *values, bool shown);
void FieldToJson(cli::Json &json, const Field &field, const uint8_t *values, bool shown);
bool Differs(const Field &field, const uint8_t *before, const uint8_t *after);
/// "NAME: OLD -> NEW  # meaning", or "NAME: CODE, as it was". Null: a side that does not tell, "none".
void PrintChange(const Field &field, const uint8_t *before, const uint8_t *after);
void ChangeToJson(cli::Json &json, const Field &field, const uint8_t *before, const uint8_t *after);
/// The same of a whole register, or as a member of an object.
void ShowRegisterChange(cli::Json *json, unsigned reg, uint8_t before, uint8_t after);

/// All registers, and of each the bits that are known; null: all are.
struct Side {
    const uint8_t *values;
    const uint8_t *known;
};
/// Shows every field in which the sides differ, what one of them alone tells, and registers that differ in bits which
/// no field has; gives their number.
int ShowChanges(const Side &before, const Side &after, bool asJson);

} // namespace camCtl

#endif
