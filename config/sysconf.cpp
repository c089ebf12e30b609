// SPDX-License-Identifier: MIT
//
// The key=value store. It knows lines and keys; what the keys mean is the image configuration's business.
#include "kelisp/sysconf.h"

#include "config/confText.h"
#include "config/replaceFile.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <syslog.h>

namespace
{

constexpr char kCannotOpen[] = "can not open sysconf file %s.\n";

static_assert(SYSCONF_LINE_SIZE == kel::kLineSize);
static_assert(SYSCONF_PATH_MAX + sizeof(kel::kTempSuffix) == 128);

/// Logs one message and hands -1 on. `format` may hold one %s for `path`.
[[gnu::cold]] int Fail(const char *format, const char *path = "")
{
    const int savedErrno = errno;
    openlog("camStat", LOG_PID | LOG_PERROR, LOG_USER);
    syslog(LOG_ERR, format, path);
    closelog();
    errno = savedErrno;
    return -1;
}

/// The first '=' of a line that belongs to the key; null for comments, other lines and lines without '='.
const char *FindAssignment(const char *line, size_t length, const char *key, size_t keyLength)
{
    if (line[0] == '#' || length < keyLength || memcmp(line, key, keyLength) != 0)
        return nullptr;
    return static_cast<const char *>(memchr(line, '=', length));
}

bool IsPrintable(char c)
{
    return c >= 0x20 && c <= 0x7E;
}

/// Copies the value that begins at `text`; the terminator behind every line is not printable and so ends it.
void CopyValue(const char *text, char *value)
{
    while (*text == ' ')
        ++text;
    const bool quoted = *text == '"';
    if (quoted)
        ++text;
    while (IsPrintable(*text) && !(quoted && *text == '"'))
        *value++ = *text++;
    *value = '\0';
}

struct Setting {
    const char *key;
    const char *value;
};

/// Writes the source line by line with the key's lines replaced; false when a read or a write failed.
bool CopyReplaced(FILE *source, FILE *temp, const void *what)
{
    const auto [key, value] = *static_cast<const Setting *>(what);
    const size_t keyLength = strlen(key);
    char line[kel::kLineSize];
    rewind(source);
    while (const size_t length = kel::ReadLine(source, line)) {
        const char *assignment = FindAssignment(line, length, key, keyLength);
        const size_t kept = assignment == nullptr ? length : static_cast<size_t>(assignment - line);
        if (fwrite(line, 1, kept, temp) != kept)
            return false;
        if (assignment != nullptr && fprintf(temp, "=%s\n", value) < 0)
            return false;
    }
    return ferror(source) == 0;
}

} // namespace

int sysconf_get(FILE *stream, const char *key, char *value)
{
    if (stream == nullptr || key == nullptr || value == nullptr)
        return Fail("invalid args.\n");
    const size_t keyLength = strlen(key);
    char line[kel::kLineSize];
    rewind(stream);
    while (const size_t length = kel::ReadLine(stream, line)) {
        const char *assignment = FindAssignment(line, length, key, keyLength);
        if (assignment != nullptr) {
            CopyValue(assignment + 1, value);
            break;
        }
    }
    return 0;
}

int sysconf_fget(const char *path, const char *key, char *value)
{
    if (path == nullptr || key == nullptr || value == nullptr)
        return Fail("invalid args.\n");
    FILE *stream = kel::OpenToRead(path);
    if (stream == nullptr)
        return Fail(kCannotOpen, path);
    const int status = sysconf_get(stream, key, value);
    fclose(stream);
    return status;
}

int sysconf_fset(const char *path, const char *key, const char *value)
{
    if (path == nullptr || key == nullptr || value == nullptr)
        return Fail("sysconf_fset invalid args");
    const Setting setting = {key, value};
    const int folder = kel::LockFolder(path, SYSCONF_PATH_MAX);
    const kel::Replaced replaced = kel::ReplaceFile(folder, path, false, {CopyReplaced, &setting});
    if (replaced == kel::Replaced::NoSource)
        Fail(kCannotOpen, path);
    else if (replaced == kel::Replaced::NoTemporary)
        Fail("Can not create a temp file for write.");
    else if (replaced == kel::Replaced::NotMoved)
        Fail("moving file error.");
    kel::UnlockFolder(folder);
    return replaced == kel::Replaced::Done ? 0 : -1;
}
