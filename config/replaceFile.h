// SPDX-License-Identifier: MIT
//
// The one way in which files of settings are replaced: at every moment, also when the power fails, the file is wholly
// the old or wholly the new one. Internal to the configuration and its programs.
#ifndef CAMSTAT_CONFIG_REPLACE_FILE_H
#define CAMSTAT_CONFIG_REPLACE_FILE_H

#include <limits.h>
#include <stddef.h>
#include <stdio.h>

namespace kel
{

inline constexpr char kTempSuffix[] = ".tmp";

/// How far a replacement came. errno tells more; only after Done does the file hold the new content.
enum class Replaced { Done, NoSource, NoTemporary, NoContent, NotMoved };

/// What a file is to hold.
struct Content {
    /// Writes the new content; `source` is the file at its beginning, or null where there is none. False when
    /// something failed.
    bool (*write)(FILE *source, FILE *copy, const void *what);
    const void *what;
};

/// Opens the folder of `path` and waits until no other replacement is under way in it, in any thread of any process.
/// Gives its descriptor, or the negative errno; for a path of more than `longest` characters -ENAMETOOLONG.
int LockFolder(const char *path, size_t longest = PATH_MAX - 1);
void UnlockFolder(int folder);

/// Replaces the file in a folder that LockFolder gave; what this does to links, owner, mode and what stands at the
/// temporary name, sysconf_fset's description tells. `mayBeNew`: there need not be such a file yet.
Replaced ReplaceFile(int folder, const char *path, bool mayBeNew, const Content &content);

/// The file that a symbolic link at `path` names, or `path` itself; null with errno when the link leads nowhere.
const char *FollowLink(const char *path, char (&target)[PATH_MAX]);

} // namespace kel

#endif
