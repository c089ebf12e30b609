// SPDX-License-Identifier: MIT
//
// The key=value store. It knows lines and keys; what the keys mean is the image configuration's business.
#include "kelisp/sysconf.h"

#include "config/confText.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace
{

constexpr char kCannotOpen[] = "can not open sysconf file %s.\n";
constexpr char kTempSuffix[] = ".tmp";
constexpr size_t kTempNameSize = SYSCONF_PATH_MAX + sizeof(kTempSuffix);

static_assert(SYSCONF_LINE_SIZE == kel::kLineSize);
static_assert(kTempNameSize == 128);

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

/// Gives the copy the file's owner and mode. What already fits is not asked for again: a file system without
/// owners refuses even that.
bool CopyOwnerAndMode(int from, int to)
{
    if (from < 0 || to < 0)
        return true; // a stream without a descriptor has neither
    struct stat wanted;
    struct stat have;
    if (fstat(from, &wanted) != 0 || fstat(to, &have) != 0)
        return false;
    if (!S_ISREG(have.st_mode)) {
        errno = EEXIST; // somebody put a device or a pipe under the temporary name
        return false;
    }
    const bool otherOwner = wanted.st_uid != have.st_uid || wanted.st_gid != have.st_gid;
    if (otherOwner && fchown(to, wanted.st_uid, wanted.st_gid) != 0)
        return false;
    const bool otherMode = ((wanted.st_mode ^ have.st_mode) & 07777) != 0;
    return !(otherOwner || otherMode) || fchmod(to, wanted.st_mode & 07777) == 0;
}

/// Writes the source line by line with the key's lines replaced; false when a read or a write failed.
bool CopyReplaced(FILE *source, FILE *temp, const char *key, const char *value)
{
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

/// Makes the copy whole and durable, and closes both files whatever happens.
bool WriteCopy(FILE *source, FILE *temp, const char *key, const char *value)
{
    bool ok = CopyOwnerAndMode(fileno(source), fileno(temp)) && CopyReplaced(source, temp, key, value) &&
              fflush(temp) == 0 && fsync(fileno(temp)) == 0;
    int firstErrno = errno;
    if (fclose(source) != 0 && ok) {
        ok = false;
        firstErrno = errno;
    }
    if (fclose(temp) != 0 && ok) {
        ok = false;
        firstErrno = errno;
    }
    errno = firstErrno;
    return ok;
}

/// Syncs the folder of `path`, so that the rename outlives a power cut. Where the folder cannot be synced,
/// the file system decides when the new name is on the medium; the content behind either name is whole.
void SyncFolder(const char *path)
{
    char folder[SYSCONF_PATH_MAX + 1];
    if (!kel::FolderOf(path, folder))
        return;
    const int fd = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return;
    (void)fsync(fd);
    close(fd);
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
    FILE *stream = fopen(path, "r");
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
    FILE *source = fopen(path, "r");
    if (source == nullptr)
        return Fail(kCannotOpen, path);

    char tempName[kTempNameSize];
    const bool nameFits = strlen(path) <= SYSCONF_PATH_MAX;
    if (nameFits)
        snprintf(tempName, sizeof(tempName), "%s%s", path, kTempSuffix);
    else
        errno = ENAMETOOLONG;
    FILE *temp = nameFits ? fopen(tempName, "w") : nullptr;
    if (temp == nullptr) {
        Fail("Can not create a temp file for write.");
        fclose(source);
        return -1;
    }

    if (!WriteCopy(source, temp, key, value)) {
        const int writeErrno = errno;
        unlink(tempName);
        errno = writeErrno;
        return -1;
    }
    if (rename(tempName, path) != 0)
        return Fail("moving file error.");
    SyncFolder(path);
    return 0;
}
