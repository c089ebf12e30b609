// SPDX-License-Identifier: MIT
//
// OS abstraction: the print lock, mutexes and a few system calls.
#include "kelisp/osa.h"

#include "base/report.h"

#include <signal.h>
#include <stdio.h>
#include <sys/time.h>
#include <unistd.h>

pthread_mutex_t gOSA_printfLock = PTHREAD_MUTEX_INITIALIZER;

int OSA_init(void)
{
    const int status = OSA_mutexCreate(&gOSA_printfLock);
    if (status != 0)
        kel::ReportError("osa", "OSA_mutexCreate()\n");
    return status;
}

int OSA_mutexCreate(pthread_mutex_t *mutex)
{
    pthread_mutexattr_t attributes;
    int status = pthread_mutexattr_init(&attributes);
    status |= pthread_mutex_init(mutex, &attributes);
    if (status != 0) {
        char message[48];
        snprintf(message, sizeof(message), "OSA_mutexCreate() = %d \r\n", status);
        kel::ReportError("osa_mutex", message);
    }
    pthread_mutexattr_destroy(&attributes);
    return status;
}

int OSA_mutexDelete(pthread_mutex_t *mutex)
{
    pthread_mutex_destroy(mutex);
    return 0;
}

int OSA_mutexLock(pthread_mutex_t *mutex)
{
    return pthread_mutex_lock(mutex);
}

int OSA_mutexUnlock(pthread_mutex_t *mutex)
{
    return pthread_mutex_unlock(mutex);
}

int OSA_getHostName(char *buffer, size_t length)
{
    if (length == 0)
        return -1;
    buffer[0] = '\0';
    if (gethostname(buffer, length) != 0) {
        buffer[0] = '\0'; // the C library may have copied a cut name before it failed
        return -1;
    }
    buffer[length - 1] = '\0'; // a name that just fits comes without a terminator
    return 0;
}

uint32_t OSA_getTimeMs(void)
{
    timeval now;
    if (gettimeofday(&now, nullptr) != 0)
        return 0;
    return static_cast<uint32_t>(now.tv_sec) * 1000U + static_cast<uint32_t>(now.tv_usec) / 1000U;
}

int OSA_setSignalHandler(int signalNumber, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    sigaction(signalNumber, &action, nullptr);
    return 0;
}
