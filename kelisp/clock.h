/* SPDX-License-Identifier: MIT
 *
 * Clocks and stamps: the monotonic millisecond count for intervals and time-outs, two local-time stamps, the
 * check of the real-time clock's driver, and a hex dump for diagnostics.
 */
#ifndef KELISP_CLOCK_H
#define KELISP_CLOCK_H

#include "kelisp/decls.h"

#include <stdint.h>

KEL_DECLS_BEGIN

/** Bytes that a stamp function clears and may fill: the caller's buffer holds at least so many. */
#define KEL_STAMP_SIZE 21

/**
 * Milliseconds of the monotonic clock (CLOCK_MONOTONIC); only differences between two counts mean something.
 *
 * @param out  receives seconds x 1000 + nanoseconds / 1000000 (truncated); untouched on failure
 * @return 0, or the clock call's negative result after printing "clock_gettime failed." on standard output
 */
int GetMsFromStart(int64_t *out);

/**
 * Local time as 14 digits for file names, for example 20240131235959. Uses localtime's shared result: one
 * thread at a time.
 *
 * @param buf  at least KEL_STAMP_SIZE bytes
 * @return always 0
 */
int GetTimeStamp(char *buf);

/**
 * Local date and time for log lines, for example 2024/01/31 23:59:59 (19 characters). Uses localtime's shared
 * result: one thread at a time.
 *
 * @param buf  at least KEL_STAMP_SIZE bytes
 * @return always 0
 */
int GetDateTime(char *buf);

/**
 * Tells whether the real-time clock's driver answers: /proc/driver/rtc begins with "rtc_time".
 *
 * @return 0 if so; otherwise -1, and when the file cannot be opened or read, "Open %s failed" or
 *         "Read %s failed" in the system log and on standard error
 */
int CheckRtc(void);

/**
 * Prints `count` bytes on standard output: "(count): ", then rows of 16 as two upper-case digits and a blank,
 * each row on a line of its own, then a line end. A count of 0 or less prints the header and the line end.
 */
void HexDump(const uint8_t *bytes, int count);

KEL_DECLS_END

#endif
