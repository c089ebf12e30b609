// SPDX-License-Identifier: MIT
//
// The parts of the program camConf: its command line (main.cpp), the commands that work on files
// (fileCommands.cpp), the check of a file (check.cpp) and the commands that work on the camera
// (boardCommands.cpp). It is built with the configuration itself, since it uses more of it than its public face.
#ifndef CAMSTAT_APP_CAM_CONF_CAM_CONF_H
#define CAMSTAT_APP_CAM_CONF_CAM_CONF_H

#include "config/confKeys.h"

#include <stdio.h>

namespace camConf
{

/// Exit status, as diff gives it.
enum Status {
    kOk = 0,
    kFound = 1, ///< differences, findings, a key that is not there, a change that was not made
    kFailed = 2 ///< wrong usage, an unusable file, a board that did not start
};

/// A command's words.
struct Words {
    const char *operands[3] = {};
    int count = 0;
    bool json = false;       ///< --json
    bool prefix = false;     ///< --prefix
    char *options = nullptr; ///< of -o; cut into words in place
};

int Show(const Words &words);
int Check(const Words &words);
int Get(const Words &words);
int Set(const Words &words);
int Diff(const Words &words);
int Apply(const Words &words);
int Watch(const Words &words);

/// Prints "camConf: <what>: <why>" on standard error; gives kFailed. `why` null stands for errno's text.
int Fail(const char *what, const char *why = nullptr);

/// kOk when the file can be read to its end, else kFailed after its message. The loaders take a file that
/// ends in a read error for a short one; nothing of such a file may reach the camera.
int CheckReadable(const char *path);

/// Fills the record with the defaults, then from the file. kOk, or kFailed after its message.
int LoadRecord(const char *path, ImgCfgStatus *record);

/// Prints each setting that differs as "KEY: before -> after"; tells whether there was one.
bool PrintDifferences(const ImgCfgStatus &before, const ImgCfgStatus &after);

/// Prints a text from a file with '?' for what a terminal should not get.
void PrintSafely(FILE *stream, const char *text, size_t length);

} // namespace camConf

#endif
