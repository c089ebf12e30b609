// SPDX-License-Identifier: MIT
//
// Configuration files as text: their opening and lines, the words of lines and option strings, and the folder that a file
// is in. Internal to the library and its programs.
#ifndef CAMSTAT_CONFIG_CONF_TEXT_H
#define CAMSTAT_CONFIG_CONF_TEXT_H

#include <errno.h>
#include <fcntl.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace kel
{

constexpr size_t kLineSize = 256;

/// Opens a file to read it, and waits for nothing: a FIFO that was left behind or a device without an end cannot be
/// opened (EINVAL). /dev/null is an empty file. Null with errno.
inline FILE *OpenToRead(const char *path)
{
    const int fd = open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        return nullptr;
    struct stat info;
    int reason = fstat(fd, &info) != 0 ? errno : 0;
    if (reason == 0 && !S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode) && info.st_rdev != makedev(1, 3))
        reason = EINVAL;
    FILE *stream = reason == 0 ? fdopen(fd, "r") : nullptr;
    if (stream != nullptr)
        return stream;
    reason = reason != 0 ? reason : errno;
    close(fd);
    errno = reason;
    return nullptr;
}

/// Reads up to and with the next line feed, at most 255 bytes, and terminates them. Zero bytes are bytes like
/// all others. Returns their number, 0 at the end of the stream and on a read error.
inline size_t ReadLine(FILE *stream, char (&line)[kLineSize])
{
    char *end = line;
    for (int c = 0; c != '\n' && end != line + sizeof(line) - 1 && (c = getc_unlocked(stream)) != EOF;)
        *end++ = static_cast<char>(c);
    if (ferror_unlocked(stream) != 0)
        end = line;
    *end = '\0';
    return static_cast<size_t>(end - line);
}

/// Characters that end a word, as the bits of a word: all of them are below 64.
constexpr uint64_t EndsOf(const char *characters)
{
    uint64_t ends = 0;
    for (; *characters != '\0'; ++characters)
        ends |= uint64_t{1} << *characters;
    return ends;
}

// What ends a key and a value on a line, and a word of an option string.
inline constexpr uint64_t kKeyEnds = EndsOf(" =\r\n\t");
inline constexpr uint64_t kValueEnds = EndsOf(" =\r\n");
inline constexpr uint64_t kOptionEnds = EndsOf("=,");

/// What strtok_r does, without the table of 256 characters that the C library makes for every word: that was half
/// of the time that a file took to load. `rest` moves behind the word. Null: there is no word left.
inline char *NextWord(char **rest, uint64_t ends)
{
    const auto isIn = [](char c, uint64_t set) {
        return static_cast<unsigned char>(c) < 64 && (set >> c & 1) != 0;
    };
    char *word = *rest;
    while (isIn(*word, ends))
        ++word;
    char *end = word;
    while (!isIn(*end, ends | 1))
        ++end;
    *rest = *end != '\0' ? end + 1 : end;
    *end = '\0';
    return end != word ? word : nullptr;
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
