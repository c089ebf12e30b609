// SPDX-License-Identifier: MIT
//
// The key=value store. It knows lines and keys; what the keys mean is the image configuration's business.
#include "kelisp/sysconf.h"

#include "base/pause.h"
#include "config/confText.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <syslog.h>
#include <unistd.h>

namespace
{

constexpr char kCannotOpen[] = "can not open sysconf file %s.\n";
constexpr char kTempSuffix[] = ".tmp";
constexpr size_t kTempNameSize = SYSCONF_PATH_MAX + sizeof(kTempSuffix);
constexpr char kAclName[] = "system.posix_acl_access";
constexpr size_t kAclSize = 1024; // more than a hundred entries
constexpr uint32_t kLockPauseUs = 10000;
constexpr int kLockTries = 1000;

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

/// Opens a stream without waiting for the other end of a pipe.
FILE *OpenStream(const char *path, int flags, const char *mode)
{
    const int fd = open(path, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0600);
    FILE *stream = fd < 0 ? nullptr : fdopen(fd, mode);
    if (stream == nullptr && fd >= 0) {
        const int firstErrno = errno;
        close(fd);
        errno = firstErrno;
    }
    return stream;
}

/// Empties the temporary file, unless something else stands at its name or the file has other names, too.
bool EmptyTemp(int temp)
{
    struct stat have;
    if (fstat(temp, &have) != 0)
        return false;
    errno = EEXIST;
    return S_ISREG(have.st_mode) && have.st_nlink == 1 && ftruncate(temp, 0) == 0;
}

/// Gives the copy the file's access-control list, or takes away one that the folder gave it.
bool CopyAcl(int from, int to)
{
    char acl[kAclSize];
    const ssize_t size = fgetxattr(from, kAclName, acl, sizeof(acl));
    if (size >= 0)
        return fsetxattr(to, kAclName, acl, static_cast<size_t>(size), 0) == 0;
    const bool none = errno == ENODATA && (fremovexattr(to, kAclName) == 0 || errno == ENODATA);
    return none || errno == EOPNOTSUPP || errno == ENOSYS;
}

/// Gives the copy the file's owner, access-control list and mode; nobody can open it on the way who could not
/// open the file. What already fits is not asked for again: a file system without owners refuses even that.
bool CopyAccess(int from, int to)
{
    struct stat wanted;
    struct stat have;
    if (fstat(from, &wanted) != 0 || fstat(to, &have) != 0)
        return false;
    if (!S_ISREG(wanted.st_mode)) {
        errno = S_ISDIR(wanted.st_mode) ? EISDIR : EINVAL;
        return false;
    }
    const bool otherOwner = wanted.st_uid != have.st_uid || wanted.st_gid != have.st_gid;
    if (otherOwner && (have.st_mode & 077) != 0 && fchmod(to, 0600) != 0)
        return false; // left behind by a writer that was killed
    if (otherOwner && fchown(to, wanted.st_uid, wanted.st_gid) != 0)
        return false;
    const bool otherMode = ((wanted.st_mode ^ have.st_mode) & 07777) != 0;
    return CopyAcl(from, to) && (!(otherOwner || otherMode) || fchmod(to, wanted.st_mode & 07777) == 0);
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
    bool ok = CopyAccess(fileno(source), fileno(temp)) && CopyReplaced(source, temp, key, value) &&
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

/// Opens the folder of `path` and waits until no other replacement is under way in it, in any thread of any
/// process. Returns its descriptor, or the negative errno.
int LockFolder(const char *path)
{
    char name[SYSCONF_PATH_MAX + 1];
    if (!kel::FolderOf(path, name))
        return -ENAMETOOLONG;
    const int folder = open(name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return -errno;
    for (int tries = 1; flock(folder, LOCK_EX | LOCK_NB) != 0; ++tries) {
        if ((errno != EWOULDBLOCK && errno != EINTR) || tries == kLockTries) {
            const int lockErrno = errno;
            close(folder);
            return -lockErrno;
        }
        kel::PauseUs(kLockPauseUs);
    }
    return folder;
}

/// sysconf_fset in a folder that LockFolder returned.
int Replace(int folder, const char *path, const char *key, const char *value)
{
    FILE *source = OpenStream(path, O_RDONLY, "r");
    if (source == nullptr)
        return Fail(kCannotOpen, path);

    char tempName[kTempNameSize];
    FILE *temp = nullptr;
    if (folder < 0)
        errno = -folder;
    else if (snprintf(tempName, sizeof(tempName), "%s%s", path, kTempSuffix) >=
             static_cast<int>(kTempNameSize))
        errno = ENAMETOOLONG;
    else
        temp = OpenStream(tempName, O_WRONLY | O_CREAT | O_NOFOLLOW, "w");
    if (temp == nullptr || !EmptyTemp(fileno(temp))) {
        Fail("Can not create a temp file for write.");
        const int firstErrno = errno;
        fclose(source);
        if (temp != nullptr)
            fclose(temp);
        errno = firstErrno;
        return -1;
    }

    if (!WriteCopy(source, temp, key, value)) {
        const int firstErrno = errno;
        unlink(tempName);
        errno = firstErrno;
        return -1;
    }
    if (rename(tempName, path) != 0)
        return Fail("moving file error.");
    // Where the folder cannot be synced, the file system decides when the new name is on the medium; the content
    // behind either name is whole.
    (void)fsync(folder);
    return 0;
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
    const int folder = LockFolder(path);
    const int status = Replace(folder, path, key, value);
    if (folder >= 0) {
        const int firstErrno = errno;
        flock(folder, LOCK_UN); // a child that another thread has forked shares the descriptor
        close(folder);
        errno = firstErrno;
    }
    return status;
}
