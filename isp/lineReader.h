// SPDX-License-Identifier: MIT
//
// The one way to read the lines of a configuration file. Internal to the library and its programs.
#ifndef KELISP_ISP_LINE_READER_H
#define KELISP_ISP_LINE_READER_H

#include <stddef.h>
#include <stdio.h>

namespace kel
{

constexpr size_t kLineSize = 256;

/// Reads up to and with the next line feed, at most 255 bytes, and terminates them. Unlike fgets it tells the
/// length, so that zero bytes are not lost. Returns 0 at the end of the stream and on a read error.
inline size_t ReadLine(FILE *stream, char (&line)[kLineSize])
{
    size_t length = 0;
    while (length < kLineSize - 1) {
        const int byte = getc_unlocked(stream);
        if (byte == EOF)
            break;
        line[length++] = static_cast<char>(byte);
        if (byte == '\n')
            break;
    }
    line[length] = '\0';
    return length;
}

} // namespace kel

#endif
