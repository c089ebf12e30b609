// SPDX-License-Identifier: MIT
//
// Replacing a file whole: a copy beside it, synced, renamed over it, in a folder that is locked meanwhile.
#include "config/replaceFile.h"

#include "base/pause.h"
#include "config/confText.h"

#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace
{

constexpr char kAclName[] = "system.posix_acl_access";
constexpr size_t kAclSize = 1024; // more than a hundred entries
constexpr uint32_t kLockPauseUs = 10000;
constexpr int kLockTries = 1000;

/// Opens a stream without waiting for the other end of a pipe.
FILE *OpenStream(const char *path, int flags, const char *mode, mode_t access = 0600)
{
    const int fd = open(path, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, access);
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

/// Closes what is open, and keeps errno.
void CloseBoth(FILE *source, FILE *temp)
{
    const int firstErrno = errno;
    if (source != nullptr)
        fclose(source);
    if (temp != nullptr)
        fclose(temp);
    errno = firstErrno;
}

/// Makes the copy whole and durable, and closes both files whatever happens.
bool WriteCopy(FILE *source, FILE *temp, const kel::Content &content)
{
    bool ok = (source == nullptr || CopyAccess(fileno(source), fileno(temp))) &&
              content.write(source, temp, content.what) && fflush(temp) == 0 && fsync(fileno(temp)) == 0;
    int firstErrno = errno;
    const auto finish = [&](FILE *file) {
        if (fclose(file) != 0 && ok) {
            ok = false;
            firstErrno = errno;
        }
    };
    if (source != nullptr)
        finish(source);
    finish(temp);
    errno = firstErrno;
    return ok;
}

/// The mark of those who wait for a folder, a lock of another kind: set, taken away, or (F_OFD_GETLK) looked for at all
/// others. Kernels before 3.15 know none. Gives the type of the lock that was found.
short MarkWaiting(int folder, short type, int command)
{
    struct flock mark = {};
    mark.l_type = type;
    mark.l_whence = SEEK_SET;
    mark.l_len = 1;
    return fcntl(folder, command, &mark) == 0 ? mark.l_type : short{F_UNLCK};
}

/// errno as if the lock was taken when somebody does.
bool OthersWait(int folder)
{
    errno = EWOULDBLOCK;
    return MarkWaiting(folder, F_WRLCK, F_OFD_GETLK) == F_RDLCK;
}

} // namespace

int kel::LockFolder(const char *path, size_t longest)
{
    char name[PATH_MAX];
    if (strlen(path) > longest || !FolderOf(path, name))
        return -ENAMETOOLONG;
    const int folder = open(name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return -errno;
    // Who comes back at once would win against those who look every 10 ms: it lets them go first.
    bool locked = !OthersWait(folder) && flock(folder, LOCK_EX | LOCK_NB) == 0;
    for (int tries = 1; !locked; ++tries) {
        if ((errno != EWOULDBLOCK && errno != EINTR) || tries == kLockTries) {
            const int lockErrno = errno;
            close(folder);
            return -lockErrno;
        }
        MarkWaiting(folder, F_RDLCK, F_OFD_SETLK);
        PauseUs(kLockPauseUs);
        locked = flock(folder, LOCK_EX | LOCK_NB) == 0;
    }
    MarkWaiting(folder, F_UNLCK, F_OFD_SETLK);
    return folder;
}

void kel::UnlockFolder(int folder)
{
    const int firstErrno = errno;
    if (folder >= 0) {
        flock(folder, LOCK_UN); // a child that another thread has forked shares the descriptor
        close(folder);
    }
    errno = firstErrno;
}

kel::Replaced kel::ReplaceFile(int folder, const char *path, bool mayBeNew, const Content &content)
{
    FILE *source = OpenStream(path, O_RDONLY, "r");
    if (source == nullptr && !(mayBeNew && errno == ENOENT))
        return Replaced::NoSource;

    char tempName[PATH_MAX + sizeof(kTempSuffix)];
    FILE *temp = nullptr;
    if (folder < 0)
        errno = -folder;
    else if (snprintf(tempName, sizeof(tempName), "%s%s", path, kTempSuffix) >=
             static_cast<int>(sizeof(tempName)))
        errno = ENAMETOOLONG;
    else
        temp = OpenStream(tempName, O_WRONLY | O_CREAT | O_NOFOLLOW, "w", source != nullptr ? 0600 : 0666);
    if (temp == nullptr || !EmptyTemp(fileno(temp))) {
        CloseBoth(source, temp);
        return Replaced::NoTemporary;
    }

    if (!WriteCopy(source, temp, content)) {
        const int firstErrno = errno;
        unlink(tempName);
        errno = firstErrno;
        return Replaced::NoContent;
    }
    if (rename(tempName, path) != 0)
        return Replaced::NotMoved;
    // Where the folder cannot be synced, the file system decides when the new name is on the medium; the content
    // behind either name is whole.
    (void)fsync(folder);
    return Replaced::Done;
}

const char *kel::FollowLink(const char *path, char (&target)[PATH_MAX])
{
    struct stat status;
    return lstat(path, &status) == 0 && S_ISLNK(status.st_mode) ? realpath(path, target) : path;
}
