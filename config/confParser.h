// SPDX-License-Identifier: MIT
//
// The parser as its programs see it: what ImgCfgParse and ImgCfgLoadFile do, and which settings they met.
// Internal to the configuration and its programs.
#ifndef CAMSTAT_CONFIG_CONF_PARSER_H
#define CAMSTAT_CONFIG_CONF_PARSER_H

#include "config/confKeys.h"

#include <stdio.h>

namespace kel
{

/// One outermost call of the parser: what is left for the loads that RESET and RELOAD start within it.
struct Loading {
    ImgCfgStatus *given = nullptr; ///< gets 1 for each field that a key sets; the window's cells excepted
    int depth = 4;
    int files = 16;
};

/// ImgCfgParse; gives what the key was found to be.
KeyMatch ParseSetting(ImgCfgStatus *record, const char *key, const char *value, Loading *loading);

/// Applies the lines of a stream, up to its end or a read error.
void LoadStream(ImgCfgStatus *record, FILE *file, Loading *loading);

/// ImgCfgLoadFile.
int LoadFile(ImgCfgStatus *record, const char *path, Loading *loading);

} // namespace kel

#endif
