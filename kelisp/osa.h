/* SPDX-License-Identifier: MIT
 *
 * OS abstraction: the print lock, mutexes and a few system calls.
 */
#ifndef KELISP_OSA_H
#define KELISP_OSA_H

#include "kelisp/decls.h"

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

KEL_DECLS_BEGIN

/**
 * Taken around single console lines where threads may print at the same time. Usable from the start (it is
 * initialised statically as well); OSA_init creates it anew.
 */
extern pthread_mutex_t gOSA_printfLock;

/**
 * Creates the print lock. A second call creates it anew; no thread may hold it or wait for it then.
 *
 * @return 0, or OSA_mutexCreate's nonzero status after
 *         "OSA_mutexCreate()\n" behind the location line on stderr
 */
int OSA_init(void);

/**
 * Initialises `mutex` with default attributes.
 *
 * @return 0, or the bitwise or of the two POSIX results, printed as "OSA_mutexCreate() = %d \r\n" behind the
 *         location line on standard error
 */
int OSA_mutexCreate(pthread_mutex_t *mutex);

/** Destroys `mutex`; always 0. */
int OSA_mutexDelete(pthread_mutex_t *mutex);

/** Locks `mutex`; the POSIX call's result. */
int OSA_mutexLock(pthread_mutex_t *mutex);

/** Unlocks `mutex`; the POSIX call's result. */
int OSA_mutexUnlock(pthread_mutex_t *mutex);

/**
 * Reads the host name.
 *
 * @param buffer  receives the terminated name, cut to fit; an empty text on failure
 * @param length  size of `buffer` in bytes; 0 gives -1
 * @return 0, or -1 when the name cannot be read
 */
int OSA_getHostName(char *buffer, size_t length);

/** Wall-clock time in milliseconds, wrapping at 32 bits; 0 if the clock cannot be read. */
uint32_t OSA_getTimeMs(void);

/** Installs `handler` for `signalNumber` with an empty mask and no flags; always 0. */
int OSA_setSignalHandler(int signalNumber, void (*handler)(int));

KEL_DECLS_END

#endif
