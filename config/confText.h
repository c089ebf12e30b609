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

// What ends a value and a key on a line, and a word of an option string.
constexpr bool EndsValue(char c)
{
    return c == ' ' || c == '=' || c == '\r' || c == '\n';
}

constexpr bool EndsKey(char c)
{
    return EndsValue(c) || c == '\t';
}

constexpr bool EndsOptionWord(char c)
{
    return c == '=' || c == ',';
}

/// Cuts the next word out of `*rest` in the manner of strtok_r: null when there is none.
template <typename IsSeparator>
char *NextWord(char **rest, IsSeparator isSeparator)
{
    char *word = *rest;
    while (*word != '\0' && isSeparator(*word))
        ++word;
    char *end = word;
    while (*end != '\0' && !isSeparator(*end))
        ++end;
    *rest = end;
    if (*end != '\0') {
        *end = '\0';
        *rest = end + 1;
    }
    return end == word ? nullptr : word;
}

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
