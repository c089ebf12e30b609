// SPDX-License-Identifier: MIT
//
// The fake board: the calls that the linker redirects here, and what the devices behind them answer.
#include "fakeBoard.h"

#include "kelisp/csl.h"
#include "kelisp/drvI2c.h"
#include "kelisp/ispCXD3193AR.h"
#include "kelisp/osa.h"
#include "kelisp/sensorInfo.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

extern "C" {
int __real_close(int);
int __real_fclose(FILE *);
size_t __real_fwrite(const void *, size_t, size_t, FILE *);
FILE *__real_fopen(const char *, const char *);
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

const char *const boardFolders[] = {"/mnt/nand", "/sysconf", "/defconf", "/proc/driver"};

bool IsBoardFile(const std::string &path)
{
    return std::any_of(
        std::begin(boardFolders), std::end(boardFolders),
        [&](const char *folder) { return path.starts_with(folder); });
}

bool IsDevice(const std::string &path)
{
    return path.starts_with("/dev/") && path != "/dev/null";
}

/// Empty when the descriptor does not lead to the board.
std::string PathOf(int fd)
{
    const auto found = Board().open.find(fd);
    return found == Board().open.end() ? "" : found->second;
}

// The transfer's line, and what it does to the registers unless it fails.
int Transfer(unsigned long request, const DrvI2cXfer &xfer)
{
    FakeBoard &board = Board();
    const bool write = request == DRV_I2C_WRITE, wide = xfer.dataSize == 2;
    const char *width = wide ? "16" : write || request == DRV_I2C_READ_BLOCK ? "" : "8";
    std::string line = Format("%s%s %02x", write ? "w" : "r", width, xfer.regAddr[0]);
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
    board.nowNs += board.transferNs;
    if (const auto failed = board.Call(line))
        return *failed;
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
    std::string line = Format("cmem %lx", request);
    for (int i = 0; (request & 0xFF) <= 10 && i < wordsIn[request & 0xFF]; ++i)
        line += Format(" %x", words[i]);
    if (const auto failed = Board().Call(line))
        return *failed;
    const std::vector<uint32_t> &out = Board().cmemOut[static_cast<uint32_t>(request)];
    std::copy(out.begin(), out.end(), words);
    return 0;
}

int DeviceRequest(const std::string &path, unsigned long request, void *arg)
{
    if (path == "/dev/dev_i2c" && request != DRV_I2C_SELECT)
        return Transfer(request, *static_cast<DrvI2cXfer *>(arg));
    if (path == "/dev/cmem")
        return CmemRequest(request, static_cast<uint32_t *>(arg));
    std::string line;
    if (path == "/dev/dev_i2c") {
        line = Format("select %lx", reinterpret_cast<unsigned long>(arg));
    } else if (path == "/dev/gio" && (request & ~0xFFUL) == 0xC0086700UL) {
        const auto *pin = static_cast<const uint32_t *>(arg);
        line = Format("gio %lu %u %u", request & 0xFF, pin[0], pin[1]);
    } else {
        const auto *record = static_cast<const CSL_Request20 *>(arg);
        line = Format("%s %lx %x %p", path.c_str() + 5, request, record->value, record->data);
        if (request == 0xCC11)
            line += Format(" %x", static_cast<const CSL_Request17 *>(arg)->count);
    }
    return Board().Call(line).value_or(0);
}

} // namespace

// Never destroyed: what runs behind main may still call.
FakeBoard &Board()
{
    static auto *const board = new FakeBoard;
    return *board;
}

void FakeBoard::Reset()
{
    const std::string folder = root;
    *this = {};
    root = folder;
    std::filesystem::remove_all(root);
    for (const char *inside : boardFolders)
        std::filesystem::create_directories(root + inside);
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

Lines FakeBoard::Take(const std::function<bool(const std::string &)> &wanted)
{
    Lines taken = std::exchange(lines, {});
    if (wanted)
        std::erase_if(taken, [&](const std::string &line) { return !wanted(line); });
    return taken;
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

std::optional<int> FakeBoard::Call(const std::string &line)
{
    if (line.empty())
        return {};
    if (line != "clock") {
        lines.push_back(line);
        if (onCall)
            onCall(line);
    }
    std::optional<int> result;
    for (Plan &plan : plans) {
        if (!line.starts_with(plan.prefix) || --plan.nth > 0)
            continue;
        --plan.times;
        if (!result) {
            result = plan.result;
            errno = plan.error;
        }
    }
    std::erase_if(plans, [](const Plan &plan) { return plan.times == 0; });
    return result;
}

BoardTest::BoardTest()
{
    setenv("TZ", "UTC", 1);
    char folder[] = "/tmp/fakeBoardXXXXXX";
    board.root = mkdtemp(folder);
    board.Reset();
}

BoardTest::~BoardTest()
{
    std::filesystem::remove_all(board.root);
}

void BoardTest::AttachLink()
{
    gtI2cHndl.fd = board.Attach("/dev/dev_i2c");
    giI2cErrCount = giI2cErrRetry = 0;
    gtSensorInfo = {};
}

void BoardTest::WriteFile(const std::string &path, const std::string &text)
{
    std::ofstream(board.RealPath(path), std::ios::binary) << text;
}

void BoardTest::Expect(const std::function<long()> &call, long result, const std::string &printed,
                       const Lines &lines)
{
    const Printed seen = Capture([&] { EXPECT_EQ(call(), result) << printed; });
    EXPECT_EQ(seen.out + seen.err, printed);
    EXPECT_EQ(board.Take(), lines) << printed;
}

void BoardTest::TearDown()
{
    for (const auto &[fd, path] : board.open)
        EXPECT_EQ(fd, gtI2cHndl.fd) << path << " was left open";
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
    for (size_t bar = 0; (bar = printed.err.find('|', bar)) != std::string::npos;) {
        ++bar;
        printed.err.erase(bar, printed.err.find_first_not_of("0123456789", bar) - bar);
    }
    return printed;
}

std::string Format(const char *format, ...)
{
    char text[600];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    return text;
}

std::vector<Lines> ReadTable(const std::string &table, const std::string &kind)
{
    std::vector<Lines> rows;
    std::ifstream file(TABLES + table);
    for (std::string line, word; std::getline(file, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        if (!(words >> word) || word != kind)
            continue;
        rows.emplace_back();
        while (words >> word)
            rows.back().push_back(word);
    }
    EXPECT_FALSE(rows.empty()) << table << ": no row " << kind;
    return rows;
}

// ---- The calls. The second names are those that a 32-bit C library gives to the same calls with 64-bit times and
// offsets. All code of a test program is compiled alike, so whichever name is used goes with the types seen here.

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
    const char *suffix = access == O_RDWR ? "" : access == O_RDONLY ? " ro" : " wo";
    // /dev/cmem is made close-on-exec behind its opening.
    const bool inherited = (flags & O_CLOEXEC) == 0 && strcmp(path, "/dev/cmem") != 0;
    if (const auto failed = board.Call(Format("open %s%s%s", path, suffix, inherited ? " inherited" : "")))
        return *failed;
    if (IsDevice(path))
        return board.Attach(path);
    const int fd = openat(AT_FDCWD, board.RealPath(path).c_str(), flags, mode);
    if (fd >= 0)
        board.open[fd] = path;
    return fd;
}
[[gnu::alias("__wrap_open")]] int __wrap_open64(const char *, int, ...);

int __wrap_close(int fd)
{
    const std::string path = PathOf(fd);
    if (fd >= 0 && path.empty())
        return __real_close(fd);
    const auto failed = Board().Call(path.empty() ? Format("close %d", fd) : "close " + path);
    Board().open.erase(fd); // a descriptor is gone after a failing close, too
    const int closed = IsDevice(path) ? 0 : __real_close(fd);
    return failed.value_or(closed);
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
    return Board()
        .Call(command == F_GETFD ? "fcntl getfd" : Format("fcntl %d %ld", command, arg))
        .value_or(0);
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
    const auto from = static_cast<unsigned long long>(offset);
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
    const auto map = board.maps.find(address);
    if (map == board.maps.end() && address != nullptr)
        return __real_munmap(address, length);
    if (const auto failed = board.Call(Format("munmap %zx", length)))
        return *failed;
    if (map == board.maps.end() || map->second != length) {
        errno = EINVAL;
        return -1;
    }
    board.maps.erase(map);
    return __real_munmap(address, length);
}

FILE *__wrap_fopen(const char *path, const char *mode)
{
    if (!IsBoardFile(path))
        return __real_fopen(path, mode);
    if (Board().Call(Format("fopen %s %s", path, mode)))
        return nullptr;
    FILE *file = __real_fopen(Board().RealPath(path).c_str(), mode);
    if (file != nullptr)
        Board().open[fileno(file)] = path;
    return file;
}
[[gnu::alias("__wrap_fopen")]] FILE *__wrap_fopen64(const char *, const char *);

int __wrap_fclose(FILE *file)
{
    const std::string path = PathOf(fileno(file));
    const auto failed = Board().Call(path.empty() ? "" : "fclose " + path);
    Board().open.erase(fileno(file));
    const int closed = __real_fclose(file);
    return failed.value_or(closed);
}

size_t __wrap_fwrite(const void *data, size_t size, size_t count, FILE *file)
{
    const std::string path = PathOf(fileno(file));
    return Board().Call(path.empty() ? "" : "fwrite " + path) ? 0 : __real_fwrite(data, size, count, file);
}

int __wrap_stat(const char *path, struct stat *out)
{
    return fstatat(AT_FDCWD, Board().RealPath(path).c_str(), out, 0);
}
[[gnu::alias("__wrap_stat")]] int __wrap_stat64(const char *, struct stat *);
[[gnu::alias("__wrap_stat")]] int __wrap___stat64_time64(const char *, struct stat *);

// Calls that are recorded, and otherwise carried out as the last argument says.
#define RECORDED(name, parameters, line, otherwise)                                                          \
    int name parameters                                                                                      \
    {                                                                                                        \
        const auto failed = Board().Call(line);                                                              \
        return failed ? *failed : otherwise;                                                                 \
    }
RECORDED(__wrap_rename, (const char *from, const char *to), Format("rename %s %s", from, to),
         __real_rename(Board().RealPath(from).c_str(), Board().RealPath(to).c_str()))
RECORDED(__wrap_unlink, (const char *path), Format("unlink %s", path),
         __real_unlink(Board().RealPath(path).c_str()))
RECORDED(__wrap_fsync, (int fd), "fsync " + PathOf(fd), __real_fsync(fd))
RECORDED(__wrap_pthread_mutex_init, (pthread_mutex_t * mutex, const pthread_mutexattr_t *attributes),
         "mutex_init", __real_pthread_mutex_init(mutex, attributes))
RECORDED(__wrap_pthread_mutex_lock, (pthread_mutex_t * mutex), mutex == &gOSA_printfLock ? "lock" : "",
         __real_pthread_mutex_lock(mutex))
RECORDED(__wrap_pthread_mutex_unlock, (pthread_mutex_t * mutex), mutex == &gOSA_printfLock ? "unlock" : "",
         __real_pthread_mutex_unlock(mutex))

int __wrap_gethostname(char *buffer, size_t length)
{
    const auto failed = Board().Call("gethostname");
    if (!failed)
        return __real_gethostname(buffer, length);
    memset(buffer, 'h', length); // and no terminator
    return *failed;
}

int __wrap_clock_gettime(clockid_t clock, struct timespec *out)
{
    FakeBoard &board = Board();
    if (const auto failed = board.Call("clock"))
        return *failed;
    const int64_t base = clock == CLOCK_REALTIME ? board.wallSec * 1000000000LL - FakeBoard::startNs : 0;
    out->tv_sec = static_cast<time_t>((board.nowNs + base) / 1000000000LL);
    out->tv_nsec = static_cast<long>((board.nowNs + base) % 1000000000LL);
    return 0;
}
[[gnu::alias("__wrap_clock_gettime")]] int __wrap___clock_gettime64(clockid_t, struct timespec *);

time_t __wrap_time(time_t *)
{
    return static_cast<time_t>(Board().wallSec + (Board().nowNs - FakeBoard::startNs) / 1000000000LL);
}
[[gnu::alias("__wrap_time")]] time_t __wrap___time64(time_t *);

int __wrap_gettimeofday(struct timeval *out, void *)
{
    if (const auto failed = Board().Call("gettimeofday"))
        return *failed;
    struct timespec now = {};
    __wrap_clock_gettime(CLOCK_REALTIME, &now);
    out->tv_sec = now.tv_sec;
    out->tv_usec = static_cast<suseconds_t>(now.tv_nsec / 1000);
    return 0;
}
[[gnu::alias("__wrap_gettimeofday")]] int __wrap___gettimeofday64(struct timeval *, void *);

int __wrap_clock_nanosleep(clockid_t, int flags, const struct timespec *span, struct timespec *left)
{
    const int64_t us = span->tv_sec * 1000000LL + span->tv_nsec / 1000;
    EXPECT_EQ(flags, 0) << "an absolute sleep";
    if (Board().Call(Format("sleep %lld", static_cast<long long>(us)))) {
        *left = {0, 7000};
        return errno;
    }
    Board().nowNs += us * 1000;
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
} // extern "C"
