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

/// Reads up to and with the next line feed, at most 255 bytes, and terminates them. Unlike fgets alone it
/// tells the length, so that zero bytes are not lost. Returns 0 at the end of the stream and on a read error.
inline size_t ReadLine(FILE *stream, char (&line)[kLineSize])
{
    // In a buffer full of line feeds the first one is the line's own when fgets put its terminator behind it,
    // and otherwise the one behind the terminator.
    memset(line, '\n', sizeof(line));
    if (fgets(line, sizeof(line), stream) == nullptr) {
        line[0] = '\0';
        return 0;
    }
    const void *feed = memchr(line, '\n', sizeof(line));
    if (feed == nullptr)
        return sizeof(line) - 1;
    const size_t at = static_cast<size_t>(static_cast<const char *>(feed) - line);
    return at + 1 < sizeof(line) && line[at + 1] == '\0' ? at + 1 : at - 1;
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
