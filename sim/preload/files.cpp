// SPDX-License-Identifier: MIT
//
// Stand-ins for the calls on paths and streams, which lead /mnt/nand, /sysconf, /defconf and /proc/driver/rtc
// into the board's folder; for the two kernel-log commands; and for the system log.
#include "sim/preload/preload.h"

#include "sim/board/host.h"

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <syslog.h>

namespace sim
{

namespace
{

bool ModeWrites(const char *mode)
{
    return mode[0] != 'r' || strchr(mode, '+') != nullptr;
}

template <class Real>
FILE *OpenStream(const char *path, const char *mode, Real real)
{
    Place place;
    FindPlace(path, &place);
    if (place.where == Place::Where::Pc)
        return real(path);
    Event event(Call::Fopen, path);
    event.text = mode;
    FILE *stream = nullptr;
    if (!IsBarred(event, place, ModeWrites(mode)) && (stream = real(place.path)) == nullptr)
        Fail(event, errno);
    if (stream != nullptr && !KeepOpened(event, fileno(stream), place, ModeWrites(mode))) {
        fclose(stream);
        stream = nullptr;
    }
    Finish(event);
    return stream;
}

Node *NodeOfStream(FILE *stream)
{
    return stream == nullptr ? nullptr : NodeOf(fileno(stream));
}

// A call on a stream that may be made to fail: the stream
// then carries the error mark, as it would on the board.
template <class Result, class Real>
Result OnStream(Call call, FILE *stream, Result failure, Real real)
{
    constexpr int kErrorMark = 0x20; // the C library's own mark, which ferror shows
    if (!HasRules())
        return real();
    const Node *node = NodeOfStream(stream);
    if (node == nullptr)
        return real();
    Event event(call, node->path, fileno(stream));
    if (!InjectFault(event))
        return CallOnFull(*node, real);
    stream->_flags |= kErrorMark;
    Finish(event);
    return failure;
}

// ---- Kernel log

constexpr char kClearLog[] = "dmesg -c > /dev/null";
constexpr char kCaptureLog[] = "dmesg | grep i2c_davinci > ";
constexpr char kWantedWord[] = "i2c_davinci";

// Exit statuses in the form in which system returns them.
constexpr int kNothingFound = 1 << 8;
constexpr int kCannotCreate = 2 << 8;
constexpr int kNotFound = 127 << 8;

int OpenKernelLog(int flags)
{
    char path[4200];
    return BoardPath(kKernelLogFile, path, sizeof(path)) ? host::Open(path, flags) : -1;
}

int ClearKernelLog()
{
    const int log = OpenKernelLog(O_RDWR);
    if (log >= 0) {
        host::Truncate(log);
        host::Close(log);
    }
    return 0;
}

// Copies the lines of `log` that hold the wanted word; true if there was one.
bool CopyWantedLines(int log, int target)
{
    char text[8192];
    size_t kept = 0;
    bool any = false;
    for (long got = 1; got > 0;) {
        got = host::Read(log, text + kept, sizeof(text) - 1 - kept);
        size_t held = kept + static_cast<size_t>(got > 0 ? got : 0);
        text[held] = '\0';
        char *line = text;
        for (char *end = strchr(line, '\n'); end != nullptr; end = strchr(line, '\n')) {
            *end = '\0';
            if (strstr(line, kWantedWord) != nullptr) {
                *end = '\n';
                any = host::WriteAll(target, line, static_cast<size_t>(end + 1 - line));
            }
            line = end + 1;
        }
        kept = held - static_cast<size_t>(line - text);
        kept = kept < sizeof(text) - 1 ? kept : 0; // a line without an end cannot be one of ours
        memmove(text, line, kept);
    }
    return any;
}

int CaptureKernelLog(Event &event, const char *path)
{
    Place place;
    FindPlace(path, &place);
    const bool isFile = place.where != Place::Where::Pc && place.device == nullptr;
    Event redirection(Call::Flash, path); // the shell's own failure to open: seen only in its status
    if (place.where == Place::Where::Nowhere || (isFile && InjectFlashFault(redirection, true))) {
        event.fault = redirection.fault;
        return kCannotCreate;
    }
    const bool full = isFile && IsFlashFull(redirection);
    const int target = host::Open(place.where == Place::Where::Board ? place.path : path,
                                  O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (target < 0)
        return kCannotCreate;
    const int log = OpenKernelLog(O_RDONLY);
    const bool any = !full && log >= 0 && CopyWantedLines(log, target);
    host::Close(log);
    host::Close(target);
    event.fault = redirection.fault;
    return full ? kCannotCreate : any ? 0 : kNothingFound;
}

int RunCommand(Event &event, const char *command)
{
    if (strcmp(command, kClearLog) == 0) {
        event.request = "clear the kernel log:";
        return ClearKernelLog();
    }
    if (strncmp(command, kCaptureLog, sizeof(kCaptureLog) - 1) == 0) {
        event.request = "capture the kernel log:";
        return CaptureKernelLog(event, command + sizeof(kCaptureLog) - 1);
    }
    event.request = "not on this board:";
    return kNotFound;
}

volatile sig_atomic_t gCommandDied = 0;

void KillCommand(int)
{
    gCommandDied = 1;
}

// ---- System log

char gLogName[64] = "";
int gLogOptions = 0;

[[gnu::format(printf, 1, 0)]] void LogToSystem(const char *format, va_list arguments)
{
    char text[512];
    char line[640];
    char path[4200];
    vsnprintf(text, sizeof(text), format, arguments);
    const size_t length = strlen(text);
    const char *end = length > 0 && text[length - 1] == '\n' ? "" : "\n";
    snprintf(line, sizeof(line), "%s[%u]: %s%s", gLogName, host::ProcessId(), text, end);
    if ((gLogOptions & LOG_PERROR) != 0)
        host::WriteAll(2, line, strlen(line));
    if (BoardPath(kSystemLogFile, path, sizeof(path))) {
        const int log = host::Open(path, O_WRONLY | O_CREAT | O_APPEND, 0644);
        host::WriteAll(log, line, strlen(line));
        host::Close(log);
    }
}

} // namespace

// ---- Streams

SIM_WRAP(FILE *, fopen, (const char *path, const char *mode))
{
    return OpenStream(
        path, mode, [=](const char *onPc) { return SIM_NEXT(fopen)(onPc, mode); });
}

SIM_WRAP(FILE *, fopen64, (const char *path, const char *mode))
{
    return OpenStream(
        path, mode, [=](const char *onPc) { return SIM_NEXT(fopen64)(onPc, mode); });
}

SIM_WRAP(FILE *, fdopen, (int fd, const char *mode))
{
    return CallWritable(
        fd, [=] { return SIM_NEXT(fdopen)(fd, mode); });
}

SIM_WRAP(int, fclose, (FILE * stream))
{
    const Node *node = NodeOfStream(stream);
    if (node == nullptr)
        return SIM_NEXT(fclose)(stream);
    const Node closed = *node;
    const int fd = fileno(stream);
    Event event(Call::Fclose, closed.path, fd);
    ForgetNode(fd);
    const int result = CallOnFull(closed, [=] { return SIM_NEXT(fclose)(stream); });
    const int error = errno;
    if (!InjectFault(event)) {
        event.result = result;
        event.error = error;
    }
    return static_cast<int>(Finish(event));
}

SIM_WRAP(int, fflush, (FILE * stream))
{
    return OnStream(
        Call::Fflush, stream, EOF, [=] { return SIM_NEXT(fflush)(stream); });
}

// Reading a stream anew, when its buffer is used up: what getc_unlocked calls then, and the call itself where
// the compiler leaves it one.
SIM_WRAP(int, __uflow, (FILE * stream))
{
    return OnStream(
        Call::Getc, stream, EOF, [=] { return SIM_NEXT(__uflow)(stream); });
}

SIM_WRAP(int, getc_unlocked, (FILE * stream))
{
    return stream->_IO_read_ptr < stream->_IO_read_end ? SIM_NEXT(getc_unlocked)(stream)
                                                       : wrap___uflow(stream);
}

SIM_WRAP(size_t, fwrite, (const void *source, size_t size, size_t count, FILE *stream))
{
    return OnStream(
        Call::Fwrite, stream, size_t{0}, [=] { return SIM_NEXT(fwrite)(source, size, count, stream); });
}

SIM_WRAP(int, fputs, (const char *text, FILE *stream))
{
    return OnStream(
        Call::Fwrite, stream, EOF, [=] { return SIM_NEXT(fputs)(text, stream); });
}

SIM_WRAP(int, vfprintf, (FILE * stream, const char *format, va_list arguments))
{
    return OnStream(
        Call::Fwrite, stream, -1, [&] { return SIM_NEXT(vfprintf)(stream, format, arguments); });
}

SIM_WRAP(int, __vfprintf_chk, (FILE * stream, int flag, const char *format, va_list arguments))
{
    return OnStream(
        Call::Fwrite, stream, -1, [&] { return SIM_NEXT(__vfprintf_chk)(stream, flag, format, arguments); });
}

SIM_WRAP(int, fprintf, (FILE * stream, const char *format, ...))
{
    va_list arguments;
    va_start(arguments, format);
    const int result = wrap_vfprintf(stream, format, arguments);
    va_end(arguments);
    return result;
}

SIM_WRAP(int, __fprintf_chk, (FILE * stream, int flag, const char *format, ...))
{
    va_list arguments;
    va_start(arguments, format);
    const int result = wrap___vfprintf_chk(stream, flag, format, arguments);
    va_end(arguments);
    return result;
}

// ---- Paths

// SIM_WRAP_PATH(symbol, call, changes, further parameters, further arguments)
#define SIM_WRAP_PATH(symbol, call, changes, parameters, arguments)                                          \
    SIM_WRAP(int, symbol, parameters)                                                                        \
    {                                                                                                        \
        return static_cast<int>(                                                                             \
            CallOnPath(call, path, changes, [=](const char *onPc) { return SIM_NEXT(symbol) arguments; }));  \
    }

SIM_WRAP_PATH(unlink, Call::Unlink, true, (const char *path), (onPc))
SIM_WRAP_PATH(access, Call::Access, false, (const char *path, int mode), (onPc, mode))
SIM_WRAP_PATH(stat, Call::Stat, false, (const char *path, void *status), (onPc, status))
SIM_WRAP_PATH(stat64, Call::Stat, false, (const char *path, void *status), (onPc, status))
SIM_WRAP_PATH(lstat, Call::Stat, false, (const char *path, void *status), (onPc, status))
SIM_WRAP_PATH(lstat64, Call::Stat, false, (const char *path, void *status), (onPc, status))
#if __TIMESIZE == 32
SIM_WRAP_PATH(__stat64_time64, Call::Stat, false, (const char *path, void *status), (onPc, status))
SIM_WRAP_PATH(__lstat64_time64, Call::Stat, false, (const char *path, void *status), (onPc, status))
#endif

SIM_WRAP(int, rename, (const char *from, const char *to))
{
    Place target;
    FindPlace(to, &target);
    const char *toOnPc = target.where == Place::Where::Pc ? to : target.path;
    return static_cast<int>(CallOnPath(
        Call::Rename, from, true, [toOnPc](const char *onPc) { return SIM_NEXT(rename)(onPc, toOnPc); }));
}

// Links that lead from the board into the board keep the board's name.
template <class Real>
char *ResolvePath(const char *path, char *resolved, Real real)
{
    Place place;
    FindPlace(path, &place);
    char folder[PATH_MAX];
    char *found = real(place.where == Place::Where::Pc ? path : place.path, resolved);
    if (found == nullptr || place.where == Place::Where::Pc || real(gBoard.folder, folder) == nullptr ||
        !IsBelow(found, folder))
        return found;
    const char *inside = found + strlen(folder);
    memmove(found, inside, strlen(inside) + 1);
    return found;
}

SIM_WRAP(char *, realpath, (const char *path, char *resolved))
{
    return ResolvePath(path, resolved, SIM_NEXT(realpath));
}

SIM_WRAP(char *, __realpath_chk, (const char *path, char *resolved, size_t room))
{
    return ResolvePath(
        path, resolved,
        [room](const char *onPc, char *dest) { return SIM_NEXT(__realpath_chk)(onPc, dest, room); });
}

// ---- Command, system log

SIM_WRAP(int, system, (const char *command))
{
    if (gBoard.state == nullptr)
        return SIM_NEXT(system)(command);
    if (command == nullptr)
        return 1; // a command processor is there
    Event event(Call::System);
    event.text = command;
    // SIGINT is the command's, which dies of it; the caller does not see it.
    struct sigaction commands = {};
    struct sigaction callers;
    commands.sa_handler = KillCommand;
    gCommandDied = 0;
    sigaction(SIGINT, &commands, &callers);
    if (!InjectFault(event))
        event.result = gCommandDied != 0 ? SIGINT : RunCommand(event, command);
    sigaction(SIGINT, &callers, nullptr);
    return static_cast<int>(Finish(event));
}

SIM_WRAP(void, openlog, (const char *name, int options, int))
{
    snprintf(gLogName, sizeof(gLogName), "%s", name != nullptr ? name : "");
    gLogOptions = options;
}

SIM_WRAP(void, closelog, (void)) {}

SIM_WRAP(void, syslog, (int, const char *format, ...))
{
    va_list arguments;
    va_start(arguments, format);
    LogToSystem(format, arguments);
    va_end(arguments);
}

SIM_WRAP(void, __syslog_chk, (int, int, const char *format, ...))
{
    va_list arguments;
    va_start(arguments, format);
    LogToSystem(format, arguments);
    va_end(arguments);
}

} // namespace sim
