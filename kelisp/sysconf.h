/* SPDX-License-Identifier: MIT
 *
 * The key=value store behind "/sysconf/conf.img": read one key of a text file, or replace one key so that the
 * file is wholly the old or wholly the new one at every moment.
 *
 * One setting per line: key, '=', value. A line that begins with '#' is a comment. A line belongs to a key
 * when it begins with exactly the key's characters, whatever follows them: the key 2A_WB also matches the
 * lines of 2A_WB_R. Its value is what follows the line's first '='. Lines are taken in pieces of at most 255
 * characters, each a line of its own. All bytes count, a zero byte too.
 *
 * Messages go to the system log (identity "camStat", LOG_PID and LOG_PERROR, LOG_USER, LOG_ERR), each between
 * its own openlog and closelog.
 *
 * Any number of readers and writers, in threads and processes, may use a file at the same time: replacements in
 * one folder wait for each other. A stream is one thread's at a time.
 */
#ifndef KELISP_SYSCONF_H
#define KELISP_SYSCONF_H

#include "kelisp/decls.h"

#include <stdio.h>

KEL_DECLS_BEGIN

/** Bytes of a value buffer, and of the buffer that a line is read into (one of them for the terminator). */
#define SYSCONF_LINE_SIZE 256

/** Longest path, in characters, that sysconf_fset takes. */
#define SYSCONF_PATH_MAX 123

/**
 * Reads a key from an open stream: rewinds it, searches, and leaves it where the search stopped.
 *
 * Blanks after '=' are skipped. A value in double quotes ends before the closing one, if there is one; every
 * value ends before its first character outside 0x20 to 0x7E, so at the line's end at the latest.
 *
 * @param stream  open for reading; stays open
 * @param key     case-sensitive; the first matching line with '=' counts
 * @param value   at least SYSCONF_LINE_SIZE bytes; untouched when no line has the key, so preset it to tell
 * @return 0, found or not; -1 after the message "invalid args.\n" when an argument is null
 */
int sysconf_get(FILE *stream, const char *key, char *value);

/**
 * sysconf_get of the file at `path`. A FIFO or a device there cannot be opened, and is not waited for.
 *
 * @return as sysconf_get; -1 also after "can not open sysconf file %s.\n"
 */
int sysconf_fget(const char *path, const char *key, char *value);

/**
 * Replaces the value in every line of the key, and adds none: without such a line the content stays the same.
 *
 * A matching line keeps its text up to the first '=', then come '=', the value and a line feed; all other
 * lines are copied byte for byte. The copy goes to `path` + ".tmp", takes over owner, access-control list and
 * mode of the file, is flushed, synced and closed, and is then renamed over the file; at last the folder is
 * synced. All the while an advisory lock (flock) is held on the folder; it is waited for at most 10 s.
 *
 * Of a symbolic link at `path` the content is read, and the link is replaced, not the file that it names. What
 * stands at the temporary name is used only when it is a plain file with that one name, such as a killed
 * replacement leaves behind; everything else there counts as a temporary file that cannot be created, and stays.
 *
 * @param path   at most SYSCONF_PATH_MAX characters; a longer one
 *               counts as a temporary file that cannot be created
 * @param key    case-sensitive
 * @param value  written as it is: nothing is quoted or escaped
 * @return 0 when the file holds the new content. -1 when it holds the old content: after the messages
 * "sysconf_fset invalid args" (a null argument), "can not open sysconf file %s.\n", "Can not create a temp
 * file for write." (also when the folder cannot be opened for reading, or locked) or "moving file error." (which
 * leaves the temporary file behind); and without a message, the temporary file removed, when reading, writing,
 * flushing, syncing or closing failed, when the path is not a plain file's, or when the copy cannot have the
 * file's owner, access-control list and mode. errno tells more. A folder that cannot be synced after the rename
 * does not count as a failure: the result tells which content the file holds.
 */
int sysconf_fset(const char *path, const char *key, const char *value);

KEL_DECLS_END

#endif
