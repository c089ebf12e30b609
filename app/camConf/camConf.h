// SPDX-License-Identifier: MIT
//
// The parts of the program camConf: its tables of commands and options (main.cpp), the commands that work on files
// (fileCommands.cpp), what is wrong with a file or a value (check.cpp) and the commands that work on the camera
// (boardCommands.cpp). It uses more of the configuration than its public face.
#ifndef CAMSTAT_APP_CAM_CONF_CAM_CONF_H
#define CAMSTAT_APP_CAM_CONF_CAM_CONF_H

#include "app/shared/commandLine.h"
#include "config/confKeys.h"

#include <stdio.h>

namespace camConf
{

/// Options by their index in the program's table (main.cpp).
enum OptionIndex { kJson, kConf, kPrefix, kForce, kAdd, kSettings, kDryRun };

int Show(const cli::Arguments &arguments);
int Check(const cli::Arguments &arguments);
int Get(const cli::Arguments &arguments);
int Set(const cli::Arguments &arguments);
int Diff(const cli::Arguments &arguments);
int Apply(const cli::Arguments &arguments);
int Watch(const cli::Arguments &arguments);

/// Fills the record with the defaults, then from the file; `given` gets 1 for each field that it gives, but for the
/// window's cells. cli::kDone, or cli::kFailed after its message, also where the file cannot be read to its end: nothing
/// of such a file may reach the camera.
int LoadRecord(const char *path, ImgCfgStatus *record, ImgCfgStatus *given = nullptr);

/// Prints each setting that differs as "KEY: before -> after"; tells whether there was one.
bool PrintDifferences(const ImgCfgStatus &before, const ImgCfgStatus &after);

/// Prints the settings as lines of a file. With `given`, white-balance gains that are not given are left out.
void PrintAsFile(const ImgCfgStatus &record, const ImgCfgStatus *given = nullptr);

/// A character of a text for people: '?' for what a terminal should not get.
constexpr char Safe(char c)
{
    return c >= 0x20 && c <= 0x7E ? c : '?';
}

/// Prints a text from a file in safe characters.
void PrintSafely(FILE *stream, const char *text, size_t length);

// ---- What is wrong with a value (check.cpp)

constexpr int kMostObjections = 2;

/// What `check` objects to in a key's value: each names value and range. Gives their number.
struct Objections {
    char text[kMostObjections][160];
    int count;
};
Objections ObjectTo(const kel::ConfKey &key, const char *value);

/// The key with exactly this name; null when there is none, or no file gives it.
const kel::ConfKey *FindExactKey(const char *name);

/// Prints what is wrong with a setting's key or value, and `advice` behind it; true when something is.
bool RefuseSetting(const char *key, const char *value, const char *advice = "");

} // namespace camConf

#endif
