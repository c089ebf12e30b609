// SPDX-License-Identifier: MIT
//
// The fake board: the calls that the linker redirects here, and what the devices behind them answer.
#include "fakeBoard.h"

#include "kelisp/drvI2c.h"
#include "kelisp/ispCXD3193AR.h"
#include "kelisp/osa.h"
#include "kelisp/sensorInfo.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <type_traits>
#include <utility>

// The second names are those that a 32-bit C library gives to the same calls
// with 64-bit times and offsets. All code of a test program is compiled
// alike, so whichever name is used goes with the types that are seen here.

extern "C" {
int __real_close(int);
int __real_fclose(FILE *);
FILE *__real_fopen(const char *, const char *);
FILE *__real_fdopen(int, const char *);
int __real_fcntl(int, int, long);
int __real_ioctl(int, unsigned long, void *);
void *__real_mmap(void *, size_t, int, int, int, long);
int __real_munmap(void *, size_t);
int __real_rename(const char *, const char *);
int __real_unlink(const char *);
int __real_fsync(int);
int __real_gethostname(char *, size_t);
int __real_pthread_mutex_init(pthread_mutex_t *, const pthread_mutexattr_t *);
int __real_pthread_mutex_lock(pthread_mutex_t *);
int __real_pthread_mutex_unlock(pthread_mutex_t *);
}

namespace
{
[[gnu::format(printf, 1, 2)]] std::string Format(const char *format, ...)
{
    char text[600];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    return text;
}

const char *const boardFolders[] = {"/mnt/nand", "/sysconf", "/defconf", "/proc/driver"};

bool IsBoardFile(const std::string &path)
{
    return std::any_of(
        std::begin(boardFolders), std::end(boardFolders),
        [&](const char *folder) { return path.starts_with(folder); });
}

bool IsDevice(const std::string &path)
{
    return path.rfind("/dev/", 0) == 0 && path != "/dev/null";
}

std::string PathOf(int fd)
{
    const auto found = Board().open.find(fd);
    return found == Board().open.end() ? "" : found->second;
}

// The transfer's line, and what it does to the registers unless it fails.
int Transfer(unsigned request, DrvI2cXfer &xfer)
{
    FakeBoard &board = Board();
    const bool write = request == DRV_I2C_WRITE, wide = xfer.dataSize == 2;
    const char *width = wide ? "16" : write || request == DRV_I2C_READ_BLOCK ? "" : "8";
    std::string line = (write ? "w" : "r") + std::string(width);
    line += Format(" %02x", xfer.regAddr[0]);
    if (!write)
        line += Format(" %d", xfer.count);
    auto *bytes = static_cast<uint8_t *>(xfer.regValue);
    auto *words = static_cast<uint16_t *>(xfer.regValue);
    for (unsigned i = 0; i < xfer.count; ++i) {
        if (write)
            line += wide ? Format(" %04x", words[i]) : Format(" %02x", bytes[i]);
        if (xfer.regAddr[i] != ((xfer.regAddr[0] + i) & 0xFF))
            line += Format(" jump-to-%02x", xfer.regAddr[i]);
    }
    if (xfer.dataSize != 1 && (!wide || request == DRV_I2C_READ_BLOCK))
        line += Format(" bad-size-%d", xfer.dataSize);
    int result = 0;
    board.nowNs += board.transferNs;
    if (board.Call(line, &result))
        return result;
    for (unsigned i = 0; i < xfer.count; ++i) {
        uint8_t &reg = board.regs[xfer.regAddr[i]];
        if (write)
            reg = static_cast<uint8_t>(wide ? words[i] : bytes[i]);
        else if (wide)
            words[i] = static_cast<uint16_t>(0x100U * xfer.regAddr[i] + reg);
        else
            bytes[i] = reg;
    }
    return 0;
}

int CmemRequest(unsigned long request, uint32_t *words)
{
    constexpr int wordsIn[] = {0, 2, 3, 1, 1, 0, 2, 2, 0, 1, 1};
    FakeBoard &board = Board();
    std::string line = Format("cmem %lx", request);
    for (int i = 0; (request & 0xFF) <= 10 && i < wordsIn[request & 0xFF]; ++i)
        line += Format(" %x", words[i]);
    int result = 0;
    if (!board.Call(line, &result)) {
        const std::vector<uint32_t> &out = board.cmemOut[static_cast<uint32_t>(request)];
        std::copy(out.begin(), out.end(), words);
    }
    return result;
}

int DeviceRequest(const std::string &path, unsigned long request, void *arg)
{
    FakeBoard &board = Board();
    int result = 0;
    if (path == "/dev/dev_i2c") {
        if (request == DRV_I2C_SELECT) {
            board.Call(Format("select %lx", reinterpret_cast<unsigned long>(arg)), &result);
            return result;
        }
        return Transfer(static_cast<unsigned>(request), *static_cast<DrvI2cXfer *>(arg));
    }
    if (path == "/dev/cmem")
        return CmemRequest(request, static_cast<uint32_t *>(arg));
    if (path == "/dev/gio" && (request & ~0xFFUL) == 0xC0086700UL) {
        const auto *pin = static_cast<const uint32_t *>(arg);
        if (!board.Call(Format("gio %lu %u %u", request & 0xFF, pin[0], pin[1]), &result))
            result = (request & 0xFF) == 9 ? static_cast<int>(board.alarmResult) : 0;
        return result;
    }
    struct {
        uint32_t value;
        void *data;
        uint32_t count;
    } record = {};
    const bool threeWords = request == 0xCC11;
    memcpy(static_cast<void *>(&record), arg, threeWords ? sizeof(record) : 2 * sizeof(void *));
    std::string line = Format("%s %lx %x %p", path.substr(5).c_str(), request, record.value, record.data);
    board.Call(threeWords ? line + Format(" %x", record.count) : line, &result);
    return result;
}

} // namespace

FakeBoard &Board()
{
    static FakeBoard board;
    return board;
}

FakeBoard::FakeBoard()
{
    setenv("TZ", "UTC", 1);
    char name[] = "/tmp/fakeBoardXXXXXX";
    root = mkdtemp(name);
    Reset();
}

FakeBoard::~FakeBoard()
{
    std::filesystem::remove_all(root);
}

void FakeBoard::Reset()
{
    static_cast<BoardState &>(*this) = {};
    std::filesystem::remove_all(root);
    for (const char *folder : boardFolders)
        std::filesystem::create_directories(root + folder);
}

void FakeBoard::Fail(const std::string &prefix, int nth, int error, int times, int result)
{
    plans.push_back({prefix, nth, error, times, result});
}

int FakeBoard::Attach(const std::string &path)
{
    int fd = 1000;
    while (open.count(fd) != 0)
        ++fd;
    open[fd] = path;
    return fd;
}

Lines FakeBoard::Take()
{
    return std::exchange(lines, {});
}

std::string FakeBoard::RealPath(const std::string &path) const
{
    return IsBoardFile(path) ? root + path : path;
}

std::string FakeBoard::ReadFile(const std::string &path) const
{
    std::ifstream file(RealPath(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool FakeBoard::Call(const std::string &line, int *result, bool record)
{
    if (record) {
        lines.push_back(line);
        if (onCall)
            onCall(line);
    }
    bool fails = false;
    std::erase_if(plans, [](const Plan &plan) { return plan.nth <= 1 - plan.times; });
    for (Plan &plan : plans) {
        if ((record || !plan.prefix.empty()) && line.rfind(plan.prefix, 0) == 0 && --plan.nth <= 0 &&
            plan.nth > -plan.times && !fails) {
            fails = true;
            if (result != nullptr)
                *result = plan.result;
            errno = plan.error;
        }
    }
    return fails;
}

void BoardTest::AttachLink()
{
    gtI2cHndl.fd = board.Attach("/dev/dev_i2c");
    giI2cErrCount = giI2cErrRetry = 0;
    gtSensorInfo = {};
}

void BoardTest::TearDown()
{
    for (const auto &[fd, path] : board.open)
        EXPECT_EQ(fd, gtI2cHndl.fd) << path << " was left open";
    EXPECT_TRUE(board.openFiles.empty()) << "a stream was left open";
    EXPECT_TRUE(board.maps.empty()) << "a map was left";
}

Printed Capture(const std::function<void()> &action)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    action();
    fflush(stdout);
    Printed printed = {testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
    if (printed.out.find(": Failure\n") != std::string::npos)
        fputs(printed.out.c_str(), stdout); // an expectation inside the action
    return printed;
}

std::string Locate(const std::string &text)
{
    const std::string mark = " ERROR  (";
    std::string located;
    size_t from = 0;
    for (size_t at; (at = text.find(mark, from)) != std::string::npos;) {
        char module[100], function[100];
        int length = 0;
        const char *place = text.c_str() + at + mark.size();
        sscanf(place, "%99[^|]|%99[^|]|%*u):%n", module, function, &length);
        if (length == 0)
            break;
        located += text.substr(from, at - from) + "@" + module + "|" + function + ": ";
        from = at + mark.size() + static_cast<size_t>(length) + 1; // with the blank
    }
    return located + text.substr(from);
}

extern "C" {
int __wrap_open(const char *path, int flags, ...)
{
    FakeBoard &board = Board();
    va_list args;
    va_start(args, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? static_cast<mode_t>(va_arg(args, int)) : 0;
    va_end(args);
    if (!IsDevice(path) && !IsBoardFile(path))
        return openat(AT_FDCWD, path, flags, mode);
    const int access = flags & O_ACCMODE;
    int result = -1;
    const char *suffix = access == O_RDWR ? "" : access == O_RDONLY ? " ro" : " wo";
    // /dev/cmem is made close-on-exec behind its opening.
    const bool inherited = IsDevice(path) && (flags & O_CLOEXEC) == 0 && strcmp(path, "/dev/cmem") != 0;
    if (board.Call(Format("open %s%s%s", path, suffix, inherited ? " inherited" : ""), &result))
        return result;
    if (IsDevice(path))
        return board.Attach(path);
    result = openat(AT_FDCWD, board.RealPath(path).c_str(), flags, mode);
    if (result >= 0)
        board.open[result] = path;
    return result;
}
[[gnu::alias("__wrap_open")]] int __wrap_open64(const char *, int, ...);

int __wrap_close(int fd)
{
    const std::string path = PathOf(fd);
    if (fd >= 0 && path.empty())
        return __real_close(fd);
    int result = fd < 0 ? -1 : 0;
    const bool failed = Board().Call(path.empty() ? Format("close %d", fd) : "close " + path, &result);
    Board().open.erase(fd); // a descriptor is gone after a failing close, too
    if (fd < 0)
        errno = EBADF;
    return fd >= 0 && fd < 1000 && !failed ? __real_close(fd) : result;
}

int __wrap_ioctl(int fd, unsigned long request, ...)
{
    va_list args;
    va_start(args, request);
    void *arg = va_arg(args, void *);
    va_end(args);
    const std::string path = PathOf(fd);
    request &= 0xFFFFFFFFUL;
    return IsDevice(path) ? DeviceRequest(path, request, arg) : __real_ioctl(fd, request, arg);
}
[[gnu::alias("__wrap_ioctl")]] int __wrap___ioctl_time64(int, unsigned long, ...);

int __wrap_fcntl(int fd, int command, ...)
{
    va_list args;
    va_start(args, command);
    const long arg = va_arg(args, long);
    va_end(args);
    if (!IsDevice(PathOf(fd)))
        return __real_fcntl(fd, command, arg);
    int result = 0;
    Board().Call(command == F_GETFD ? "fcntl getfd" : Format("fcntl %d %ld", command, arg), &result);
    return result;
}
[[gnu::alias("__wrap_fcntl")]] int __wrap_fcntl64(int, int, ...);
[[gnu::alias("__wrap_fcntl")]] int __wrap___fcntl_time64(int, int, ...);

void *__wrap_mmap(void *address, size_t length, int protection, int flags, int fd, off_t offset)
{
    FakeBoard &board = Board();
    const std::string path = PathOf(fd);
    if (!IsDevice(path))
        return __real_mmap(address, length, protection, flags, fd, static_cast<long>(offset));
    const bool plain = protection == (PROT_READ | PROT_WRITE) && flags == MAP_SHARED;
    const auto from = static_cast<unsigned long long>(static_cast<std::make_unsigned_t<off_t>>(offset));
    if (board.Call(Format("mmap %s %zx %llx%s", path.c_str(), length, from, plain ? "" : " bad-flags")))
        return MAP_FAILED;
    int low = MAP_PRIVATE | MAP_ANONYMOUS;
#ifdef MAP_32BIT
    low |= MAP_32BIT; // the driver's argument words are 32 bits wide
#endif
    void *map = __real_mmap(nullptr, length, protection, low, -1, 0);
    board.maps[map] = length;
    return map;
}
[[gnu::alias("__wrap_mmap")]] void *__wrap_mmap64(void *, size_t, int, int, int, off_t);

int __wrap_munmap(void *address, size_t length)
{
    FakeBoard &board = Board();
    int result = 0;
    const auto map = board.maps.find(address);
    if (map == board.maps.end() && address != nullptr)
        return __real_munmap(address, length);
    if (board.Call(Format("munmap %zx", length), &result))
        return result;
    if (map == board.maps.end() || map->second != length) {
        errno = EINVAL;
        return -1;
    }
    board.maps.erase(map);
    return __real_munmap(address, length);
}

FILE *__wrap_fopen(const char *path, const char *mode)
{
    FakeBoard &board = Board();
    if (!IsBoardFile(path))
        return __real_fopen(path, mode);
    if (board.Call(Format("fopen %s %s", path, mode)))
        return nullptr;
    FILE *file = __real_fopen(board.RealPath(path).c_str(), mode);
    if (file != nullptr)
        board.openFiles[file] = path;
    return file;
}
[[gnu::alias("__wrap_fopen")]] FILE *__wrap_fopen64(const char *, const char *);

FILE *__wrap_fdopen(int fd, const char *mode)
{
    FakeBoard &board = Board();
    const std::string path = PathOf(fd);
    if (!path.empty() && board.Call(Format("fdopen %s %s", path.c_str(), mode)))
        return nullptr;
    FILE *file = __real_fdopen(fd, mode);
    if (file != nullptr && board.open.erase(fd) != 0)
        board.openFiles[file] = path;
    return file;
}

int __wrap_fclose(FILE *file)
{
    FakeBoard &board = Board();
    const auto known = board.openFiles.find(file);
    int result = 0;
    bool failed = false;
    if (known != board.openFiles.end()) {
        failed = board.Call("fclose " + known->second, &result);
        board.openFiles.erase(known);
    }
    const int closed = __real_fclose(file);
    return failed ? result : closed;
}

int __wrap_stat(const char *path, struct stat *out)
{
    return fstatat(AT_FDCWD, Board().RealPath(path).c_str(), out, 0);
}
[[gnu::alias("__wrap_stat")]] int __wrap_stat64(const char *, struct stat *);
[[gnu::alias("__wrap_stat")]] int __wrap___stat64_time64(const char *, struct stat *);

// Calls that are recorded and otherwise carried out as the last argument says.
#define RECORDED(type, name, parameters, line, otherwise)                                                    \
    type name parameters                                                                                     \
    {                                                                                                        \
        int result = 0;                                                                                      \
        return Board().Call(line, &result) ? result : otherwise;                                             \
    }
RECORDED(int, __wrap_rename, (const char *from, const char *to), Format("rename %s %s", from, to),
         __real_rename(Board().RealPath(from).c_str(), Board().RealPath(to).c_str()))
RECORDED(int, __wrap_unlink, (const char *path), Format("unlink %s", path),
         __real_unlink(Board().RealPath(path).c_str()))
RECORDED(int, __wrap_fsync, (int fd), "fsync", __real_fsync(fd))
RECORDED(int, __wrap_system, (const char *command), Format("system %s", command), 0)
RECORDED(int, __wrap_pthread_mutex_init, (pthread_mutex_t * mutex, const pthread_mutexattr_t *attributes),
         "mutex_init", __real_pthread_mutex_init(mutex, attributes))

int __wrap_gethostname(char *buffer, size_t length)
{
    int result = 0;
    if (!Board().Call("gethostname", &result))
        return __real_gethostname(buffer, length);
    memset(buffer, 'h', length); // and no terminator
    return result;
}

int __wrap_clock_gettime(clockid_t clock, struct timespec *out)
{
    FakeBoard &board = Board();
    int result = 0;
    if (!board.Call(Format("clock %d", static_cast<int>(clock)), &result, board.traceClock)) {
        const int64_t base = clock == CLOCK_REALTIME ? board.wallSec * 1000000000LL - FakeBoard::startNs : 0;
        out->tv_sec = static_cast<time_t>((board.nowNs + base) / 1000000000LL);
        out->tv_nsec = static_cast<long>((board.nowNs + base) % 1000000000LL);
    }
    return result;
}
[[gnu::alias("__wrap_clock_gettime")]] int __wrap___clock_gettime64(clockid_t, struct timespec *);

time_t __wrap_time(time_t *out)
{
    const auto now =
        static_cast<time_t>(Board().wallSec + (Board().nowNs - FakeBoard::startNs) / 1000000000LL);
    if (out != nullptr)
        *out = now;
    return now;
}
[[gnu::alias("__wrap_time")]] time_t __wrap___time64(time_t *);

int __wrap_gettimeofday(struct timeval *out, void *)
{
    int result = 0;
    struct timespec now = {};
    if (!Board().Call("gettimeofday", &result, false)) {
        __wrap_clock_gettime(CLOCK_REALTIME, &now);
        out->tv_sec = now.tv_sec;
        out->tv_usec = static_cast<suseconds_t>(now.tv_nsec / 1000);
    }
    return result;
}
[[gnu::alias("__wrap_gettimeofday")]] int __wrap___gettimeofday64(struct timeval *, void *);

int __wrap_clock_nanosleep(clockid_t, int flags, const struct timespec *span, struct timespec *left)
{
    FakeBoard &board = Board();
    const int64_t us = span->tv_sec * 1000000LL + span->tv_nsec / 1000;
    int result = 0;
    EXPECT_EQ(flags, 0) << "an absolute sleep";
    if (board.Call(Format("sleep %lld", static_cast<long long>(us)), &result)) {
        if (left != nullptr)
            *left = {0, 7000};
        return errno;
    }
    board.nowNs += us * 1000;
    return 0;
}
[[gnu::alias("__wrap_clock_nanosleep")]] int
__wrap___clock_nanosleep_time64(clockid_t, int, const struct timespec *, struct timespec *);

void __wrap_openlog(const char *identity, int options, int facility)
{
    Board().Call(Format("openlog %s %d %d", identity, options, facility));
}

void __wrap_syslog(int priority, const char *format, ...)
{
    char text[512];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    Board().Call(Format("syslog %d %s", priority, text));
}

void __wrap_closelog()
{
    Board().Call("closelog");
}

#define PRINT_LOCK(name, step)                                                                               \
    int name(pthread_mutex_t *mutex)                                                                         \
    {                                                                                                        \
        if (mutex == &gOSA_printfLock)                                                                       \
            Board().Call(#step);                                                                             \
        return __real_pthread_mutex_##step(mutex);                                                           \
    }
PRINT_LOCK(__wrap_pthread_mutex_lock, lock)
PRINT_LOCK(__wrap_pthread_mutex_unlock, unlock)
} // extern "C"
