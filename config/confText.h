// SPDX-License-Identifier: MIT
//
// Configuration files as text: their lines, the words of lines and option strings, and the folder that a file
// is in. Internal to the library and its programs.
#ifndef CAMSTAT_CONFIG_CONF_TEXT_H
#define CAMSTAT_CONFIG_CONF_TEXT_H

#include <stddef.h>
#include <stdio.h>
#include <string.h>

namespace kel
{

constexpr size_t kLineSize = 256;

/// Reads up to and with the next line feed, at most 255 bytes, and terminates them. Zero bytes are bytes like
/// all others. Returns their number, 0 at the end of the stream and on a read error.
inline size_t ReadLine(FILE *stream, char (&line)[kLineSize])
{
    size_t length = 0;
    for (int c = 0; c != '\n' && length + 1 < sizeof(line) && (c = getc_unlocked(stream)) != EOF;)
        line[length++] = static_cast<char>(c);
    if (ferror(stream) != 0)
        length = 0;
    line[length] = '\0';
    return length;
}

// What ends a key and a value on a line, and a word of an option string, for strtok_r.
inline constexpr char kKeyEnds[] = " =\r\n\t";
inline constexpr char kValueEnds[] = " =\r\n";
inline constexpr char kOptionEnds[] = "=,";

/// The folder of a path; false when its name does not fit.
template <size_t Size>
bool FolderOf(const char *path, char (&folder)[Size])
{
    const char *slash = strrchr(path, '/');
    const size_t length = slash == nullptr || slash == path ? 1 : static_cast<size_t>(slash - path);
    if (length >= Size)
        return false;
    memcpy(folder, slash != nullptr ? path : ".", length);
    folder[length] = '\0';
    return true;
}

} // namespace kel

#endif
