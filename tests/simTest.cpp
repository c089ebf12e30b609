// SPDX-License-Identifier: MIT
//
// The simulated board: what its drivers answer, how the camera behaves, faults and trace. The tests named
// OnBoard run inside the simulation, where Board.ServesPrograms starts this program again; the test of faults
// uses them as programs, too. Expected values come from the chip's and the drivers' description.
#include "programRun.h"

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <fnmatch.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <signal.h>
#include <sstream>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

extern "C" { // what hardened programs call
int __open_2(const char *path, int flags), __open64_2(const char *path, int flags);
int __openat_2(int folder, const char *path, int flags),
    __openat64_2(int folder, const char *path, int flags);
ssize_t __read_chk(int fd, void *dest, size_t count, size_t room);
char *__realpath_chk(const char *path, char *resolved, size_t room);
}

namespace
{

using Bytes = std::vector<uint8_t>;

// ---- Inside the simulation: registers

class OnBoard : public testing::Test
{
  protected:
    void SetUp() override
    {
        if (getenv("CAMSIM_RUN") == nullptr)
            GTEST_SKIP() << "runs inside the simulation only";
        bus_ = open("/dev/dev_i2c", O_RDWR);
        EXPECT_EQ(ioctl(bus_, 0x2C01, 0xE2), 0);
    }

    // One request on the bus, with the bytes of its values; the errno, 0 for success.
    int RequestOnBus(unsigned long request, unsigned long size, Bytes regs, Bytes &values) const
    {
        struct {
            uint8_t dataSize, count;
            uint8_t *regs, *values;
        } transfer = {static_cast<uint8_t>(size), static_cast<uint8_t>(regs.size()), regs.data(),
                      values.data()};
        return ioctl(bus_, request, &transfer) == 0 ? 0 : errno;
    }

    int Write(uint8_t reg, uint8_t value) const
    {
        Bytes values = {value};
        return RequestOnBus(kWrite, 1, {reg}, values);
    }

    Bytes Read(const Bytes &regs) const
    {
        Bytes values(regs.size());
        EXPECT_EQ(RequestOnBus(kRead, 1, regs, values), 0);
        return values;
    }

    static constexpr unsigned long kRead = 0x2C02, kWrite = 0x2C03, kReadBlock = 0x2C04;
    int bus_ = -1;
};

TEST_F(OnBoard, BusMovesRegisters)
{
    const struct {
        unsigned long request, size;
        Bytes regs, values; // written, or wanted of a read
        int error = 0;
    } rows[] = {
        {kWrite, 1, {0x40, 0x43, 0x0F, 0x23}, {0x11, 0x22, 0x33, 0x44}},
        {kReadBlock, 1, {0x40, 0, 0, 0}, {0x11, 0, 0, 0x22}},
        {kRead, 1, {0x43, 0x40, 0x0E, 0x0F, 0x23}, {0x22, 0x11, 6, 0x33, 0x44}},
        {kWrite, 1, {0x10, 0x1A, 0x1D}, {0x7F, 0x55, 0x55}}, // the camera's own
        {kRead, 1, {0x10, 0x1A, 0x1D}, {0, 0, 0}},
        {kWrite, 2, {0x47, 0x49}, {0x66, 0x55, 0x88, 0x77}}, // low byte first
        {kRead, 1, {0x47, 0x48, 0x49, 0x4A}, {0x66, 0x55, 0x88, 0x77}},
        {kRead, 2, {0x48}, {0x55, 0x88}},
        {kRead, 1, {}, {}},
        {kReadBlock, 2, {0x48}, {0, 0}, EINVAL},
        {kRead, 0, {0x48}, {0}, EINVAL},
        {kWrite, 3, {0x48}, {1, 2, 3}, EINVAL},
        {0x2C05, 1, {0x48}, {0}, ENOTTY},
    };
    for (const auto &row : rows) {
        Bytes values = row.request == kWrite ? row.values : Bytes(row.values.size());
        EXPECT_EQ(RequestOnBus(row.request, row.size, row.regs, values), row.error) << &row - rows;
        EXPECT_EQ(values, row.values) << &row - rows;
    }
    const int original = bus_;
    bus_ = dup(original);
    EXPECT_EQ(Read({0x0E}), Bytes{6}) << "a copy keeps its slave";
    EXPECT_EQ(ioctl(original, 0x2C01, 0x40) | close(bus_), 0);
    bus_ = original;
    EXPECT_EQ(Write(0x40, 1), EREMOTEIO) << "only the camera answers";
    EXPECT_EQ(close(bus_), 0);
    EXPECT_NE(Write(0x40, 1), 0);
}

// With a camera that stays busy: each register sets its group's bit, and no other.
TEST_F(OnBoard, BusyGroupsAddUp)
{
    const struct {
        int first, last;
        unsigned bit;
    } groups[] = {{0x30, 0x3B, 0x04},    {0x3C, 0x3E, 0x08},   {0x3F, 0x52, 0x10},     {0x53, 0x5E, 0x20},
                  {0x5F, 0x61, 0x40},    {0x62, 0x63, 0x80},   {0x64, 0x70, 0x0100},   {0x71, 0x71, 0x0200},
                  {0x72, 0x92, 0x0400},  {0x93, 0x96, 0x0800}, {0x97, 0xA3, 0x1000},   {0xA4, 0xA7, 0x2000},
                  {0xA8, 0xAB, 0x4000},  {0xAC, 0xC9, 0x8000}, {0xCA, 0xCC, 0x010000}, {0xCD, 0xF0, 0x020000},
                  {0xF1, 0xFD, 0x040000}};
    unsigned wanted = 0;
    for (int reg = 0; reg < 256; ++reg) {
        for (const auto &group : groups)
            wanted |= reg >= group.first && reg <= group.last ? group.bit : 0;
        ASSERT_EQ(Write(static_cast<uint8_t>(reg), 0), 0);
        const Bytes busy = Read({0x20, 0x21, 0x22});
        ASSERT_EQ(busy[0] | busy[1] << 8 | busy[2] << 16, wanted) << std::hex << reg;
    }
}

TEST_F(OnBoard, AResetBringsPowerOnValuesBack)
{
    const Bytes powerOn[] = {
        // clang-format off
        {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 6, 0}, {/* live */}, {/* 0x20 */},
        {0x84, 0, 192, 32, 8, 0x21, 2, 0, 8, 0, 0, 0, 0x80, 92, 108, 0}, {/* 0x40 */},
        {0, 0, 0, 3, 0, 0, 0x3F, 0, 0x19, 0, 0x3F, 0xAC, 0x1C, 112, 64, 0}, {/* 0x60 */},
        {0, 16, 32, 0, 64, 58, 63, 46, 25, 20, 15, 13, 12, 12, 11, 10},
        {9, 8, 7, 5, 4, 3, 3, 3, 2, 2, 2, 2, 2, 2, 2, 2}, {1, 1, 1, 44, 0, 0, 5, 24, 24},
        // clang-format on
    };
    for (int reg = 0; reg < 256; ++reg)
        EXPECT_EQ(Write(static_cast<uint8_t>(reg), 0xA8), 0);
    uint32_t line[] = {91, 0};
    const int gio = open("/dev/gio", O_RDWR);
    EXPECT_EQ(ioctl(gio, 0xC0086708U, line), 0);
    EXPECT_EQ(Write(0x40, 1), EREMOTEIO) << "held in reset";
    line[1] = 1;
    EXPECT_EQ(ioctl(gio, 0xC0086708U, line), 0);
    for (size_t row = 0; row < 16; ++row) {
        Bytes values(16), wanted = row < std::size(powerOn) ? powerOn[row] : Bytes{};
        wanted.resize(16);
        EXPECT_EQ(RequestOnBus(kReadBlock, 1, Bytes(16, static_cast<uint8_t>(row * 16)), values), 0);
        EXPECT_TRUE(row == 1 || values == wanted) << row << testing::PrintToString(values);
    }
}

// ---- Inside the simulation: the other drivers

TEST_F(OnBoard, DriversAnswerEachRequest)
{
    const struct {
        const char *node;
        uint32_t request, in[3];
        int error;
        uint32_t out[2];
    } rows[] = {
        // clang-format off
        // heap: aligned, in either block, a page too much, nonsense
        {"cmem", 2, {5000, 0, 0}, 0, {0x85800000, 0}}, {"cmem", 2, {4097, 0, 0}, 0, {0x85802000, 0}},
        {"cmem", 2, {5000, 0x100000, 0}, 0, {0x85900000, 0x100000}}, {"cmem", 0x202, {1, 0, 1}, 0, {0x86400000, 0}},
        {"cmem", 2, {0x400000, 0, 1}, ENOMEM, {}}, {"cmem", 2, {0x3FF000, 0, 1}, 0, {0x86401000, 0}},
        {"cmem", 2, {0, 0, 0}, EINVAL, {}}, {"cmem", 2, {1, 0x1800, 0}, EINVAL, {}}, {"cmem", 2, {1, 0, 2}, EINVAL, {}},
        // two users, freed by both, then by none; free again
        {"cmem", 10, {0x85800000}, 0, {8192, 0}}, {"cmem", 0x1003, {0x85800000}, 0, {0x85800000, 8192}},
        {"cmem", 0x1003, {0x85800000}, 0, {0x85800000, 8192}}, {"cmem", 0x1003, {0x85800000}, EINVAL, {}},
        {"cmem", 10, {0x85800000}, EINVAL, {}}, {"cmem", 2, {1, 0, 0}, 0, {0x85800000, 0}},
        // pools: their buffers, the only one of its pool, the smallest that fits
        {"cmem", 1, {0, 0}, 0, {0x85000000, 0x10000}}, {"cmem", 0x201, {0, 0}, 0, {0x85010000, 0x10000}},
        {"cmem", 1, {0, 1}, 0, {0x86000000, 0x100000}}, {"cmem", 1, {2, 0}, 0, {0x85400000, 0x400000}},
        {"cmem", 1, {2, 0}, ENOMEM, {}}, {"cmem", 1, {3, 0}, EINVAL, {}}, {"cmem", 6, {0x10000, 0}, 0, {0, 0}},
        {"cmem", 6, {0x10001, 0}, 0, {1, 0}}, {"cmem", 6, {0x100001, 0}, 0, {2, 0}}, {"cmem", 6, {1, 1}, 0, {0, 1}},
        {"cmem", 6, {0x400001, 0}, EINVAL, {}},
        // blocks, version; what is not mapped
        {"cmem", 9, {0}, 0, {0x85000000, 0x86000000}}, {"cmem", 9, {1}, 0, {0x86000000, 0x86800000}},
        {"cmem", 9, {2}, EINVAL, {}}, {"cmem", 8, {}, 0, {0x02300105, 0}}, {"cmem", 11, {}, ENOTTY, {}},
        {"cmem", 3, {16, 0}, EINVAL, {}}, {"cmem", 4, {16}, EINVAL, {}}, {"cmem", 0x107, {16, 16}, EFAULT, {}},
        {"cmem", 0x207, {16, 16}, EFAULT, {}}, {"cmem", 0x307, {16, 16}, EFAULT, {}},
        {"csl1", 0xCC14, {7}, 0, {7, 0}}, {"csl2", 0xCC11, {7}, 0, {7, 0}}, {"csl9", 0xCC12, {}, ENOTTY, {}},
        // no alarm, and one; pins and levels that are none
        {"gio", 0xC0086709, {86, 0}, EAGAIN, {}}, {"gio", 0xC008670B, {86, 1}, 0, {86, 1}},
        {"gio", 0xC0086709, {86, 0}, 0, {86, 0}}, {"gio", 0xC008670A, {86, 0}, 0, {86, 0}},
        {"gio", 0xC008670A, {128, 0}, EINVAL, {}}, {"gio", 0xC008670B, {35, 2}, EINVAL, {}},
        {"gio", 0xC0086708, {127, 0}, 0, {127, 0}}, {"gio", 0xC0086708, {128, 0}, EINVAL, {}},
        {"gio", 0xC0086777, {}, ENOTTY, {}},
        // clang-format on
    };
    const int memory = open("/dev/cmem", O_RDWR);
    for (const auto &row : rows) {
        const bool isMemory = row.node == std::string("cmem"); // kept open: closing gives its buffers back
        const int fd = isMemory ? memory : open((std::string("/dev/") + row.node).c_str(), O_RDWR);
        uint32_t words[3];
        memcpy(words, row.in, sizeof(words));
        EXPECT_EQ(ioctl(fd, row.request, words) == 0 ? 0 : errno, row.error) << &row - rows;
        EXPECT_TRUE(row.error != 0 || memcmp(words, row.out, sizeof(row.out)) == 0)
            << &row - rows << std::hex << ' ' << words[0] << ' ' << words[1];
        EXPECT_TRUE(isMemory || close(fd) == 0);
    }
    for (const auto &[node, request] :
         {std::pair{"/dev/cmem", 8UL}, {"/dev/gio", 0xC0086708UL}, {"/dev/dev_i2c", kRead}})
        EXPECT_TRUE(ioctl(open(node, O_RDWR), request, nullptr) == -1 && errno == EFAULT) << node;
}

TEST_F(OnBoard, MemoryIsSharedLowAndBounded)
{
    const auto map = [](const char *node, size_t size, uint32_t phys) {
        void *at = mmap64(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, open(node, O_RDWR),
                          static_cast<off64_t>(phys));
        return at == MAP_FAILED ? nullptr : static_cast<char *>(at);
    };
    const int fd = open("/dev/cmem", O_RDWR);
    uint32_t words[] = {1, 0, 0};
    ASSERT_EQ(ioctl(fd, 1, words), 0);
    const uint32_t phys = words[0], size = words[1];
    char *memory = map("/dev/cmem", size, phys), *again = map("/dev/cmem", size, phys);
    ASSERT_NE(memory, nullptr);
    memory[5] = 'x';
    EXPECT_EQ(again[5], 'x');
    EXPECT_LT(reinterpret_cast<uintptr_t>(memory), 0x80000000U) << "addresses travel in 32 bits";
    const auto address = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(memory));
    words[0] = address + 5;
    EXPECT_EQ(ioctl(fd, 4, words), 0);
    EXPECT_EQ(words[0], phys + 5);
    words[0] = address;
    EXPECT_EQ(ioctl(fd, 0x307, words), 0);
    EXPECT_EQ(ioctl(fd, 3, words), 0);
    EXPECT_EQ(words[1], size);
    EXPECT_EQ(munmap(memory, size), 0);
    EXPECT_TRUE(ioctl(fd, 4, words) == -1 && errno == EINVAL) << "unmapped";

    const struct {
        const char *node;
        size_t size;
        uint32_t phys;
        int error;
    } maps[] = {{"/dev/csl1", 0x10000, 0x01C70000, 0},      {"/dev/csl1", 0x10001, 0x01C70000, EINVAL},
                {"/dev/csl1", 0x1000, 0x01C7F000, 0},       {"/dev/csl1", 0x1000, 0x01C80000, EINVAL},
                {"/dev/csl2", 0x10000, 0x01C70000, EINVAL}, {"/dev/cmem", 4096, 0, EINVAL},
                {"/dev/cmem", 0x1000, 0x867FF000, 0},       {"/dev/cmem", 0x2000, 0x867FF000, EINVAL},
                {"/dev/cmem", 0x1000, 0x84FFF000, EINVAL}};
    for (const auto &row : maps) {
        errno = 0;
        EXPECT_EQ(map(row.node, row.size, row.phys) != nullptr, row.error == 0)
            << row.node << std::hex << row.phys;
        EXPECT_EQ(errno, row.error);
    }
}

TEST_F(OnBoard, BuffersBelongToLiveOwners)
{
    const auto take = [] {
        uint32_t words[] = {2, 0}; // the pool of a single buffer
        return ioctl(open("/dev/cmem", O_RDWR), 1, words) == 0 ? 0 : errno;
    };
    const auto giveAllBack = [] { close(open("/dev/cmem", O_RDWR)); };
    int status = 0;
    giveAllBack();
    const pid_t owner = fork();
    if (owner == 0) {
        take();
        raise(SIGSTOP);
    }
    waitpid(owner, &status, WUNTRACED);
    giveAllBack();
    EXPECT_EQ(take(), ENOMEM) << "another's";
    kill(owner, SIGKILL);
    waitpid(owner, &status, 0);
    EXPECT_EQ(take(), 0) << "a dead owner's";
    EXPECT_EQ(take(), ENOMEM) << "one's own";
    giveAllBack();
    EXPECT_EQ(take(), 0);
}

// ---- Inside the simulation: paths and clocks

TEST_F(OnBoard, PathsAndCommandsLeadIntoTheFolder)
{
    struct stat status = {};
    for (const char *path : {"/dev/csl0", "/dev/csl10", "/dev/i2c-0", "/dev/mem", "/dev/nullx"})
        EXPECT_TRUE(open(path, O_RDWR) == -1 && errno == ENOENT) << path;
    EXPECT_EQ(access("/dev/csl9", F_OK) | access("/dev/null", F_OK), 0);
    EXPECT_TRUE(stat("/mnt/nandx", &status) == -1 && errno == ENOENT);
    std::ofstream("/mnt/nand/a") << "i2c";
    EXPECT_EQ(rename("/mnt/nand/a", "/sysconf/b") | stat("/sysconf/b", &status), 0);
    EXPECT_EQ(status.st_size, 3);
    EXPECT_EQ(ReadFile("/proc/driver/rtc").substr(0, 8), "rtc_time");
    char resolved[PATH_MAX];
    EXPECT_STREQ(realpath("/mnt/nand/../nand", resolved), "/mnt/nand");
    EXPECT_STREQ(__realpath_chk("/mnt/nand/../nand", resolved, sizeof(resolved)), "/mnt/nand");
    FILE *stream = fopen("/mnt/nand/c", "w");
    EXPECT_TRUE(stream != nullptr && fputs("abc", stream) >= 0 && fprintf(stream, "%d", 4) == 1);
    EXPECT_TRUE(stream != nullptr && fclose(stream) == 0);
    char bytes[8];
    struct stat64 wide = {};
    EXPECT_EQ(stat64("/mnt/nand/c", &wide) | lstat("/sysconf/b", &status) | lstat64("/sysconf/b", &wide), 0);
    stream = fopen64("/mnt/nand/c", "r");
    EXPECT_TRUE(stream != nullptr && getc_unlocked(stream) == 'a' && fflush(stream) == 0 &&
                fclose(stream) == 0);
    const char *const c = "/mnt/nand/c";
    for (const int fd : {open64(c, O_RDONLY), openat(AT_FDCWD, c, O_RDONLY), openat64(AT_FDCWD, c, O_RDONLY),
                         __open_2(c, O_RDONLY), __open64_2(c, O_RDONLY), __openat_2(AT_FDCWD, c, O_RDONLY),
                         __openat64_2(AT_FDCWD, c, O_RDONLY)})
        EXPECT_EQ((read(fd, bytes, sizeof(bytes)) - 4) | fsync(fd) | close(fd), 0) << fd;
    EXPECT_EQ(unlink(c), 0);
    EXPECT_TRUE(access("/mnt/nand/c", F_OK) == -1 && errno == ENOENT);
    EXPECT_TRUE(read(bus_, bytes, 1) == -1 && errno == EINVAL);
    EXPECT_EQ(__read_chk(bus_, bytes, 1, sizeof(bytes)), -1);
    openlog("me", 0, LOG_USER);
    syslog(LOG_INFO, "a line of %d", 7);
    const std::string log = ReadFile(Env("CAMSIM_BOARD") + "/system.log");
    EXPECT_TRUE(Matches(log, "^me\\[[0-9]+\\]: a line of 7\n$")) << log;
    EXPECT_EQ(system(nullptr), 1);
    EXPECT_EQ(system("dmesg | grep i2c_davinci > /mnt/nand/log"), 0);
    EXPECT_EQ(WEXITSTATUS(system("dmesg | grep i2c_davinci > /mnt/nand/none/log")), 2);
    EXPECT_EQ(system("dmesg -c > /dev/null"), 0);
    EXPECT_EQ(WEXITSTATUS(system("dmesg | grep i2c_davinci > /mnt/nand/empty")), 1) << "nothing left";
    EXPECT_EQ(ReadFile("/mnt/nand/empty"), "");
    EXPECT_EQ(WEXITSTATUS(system("touch /mnt/nand/x")), 127);
}

// A board whose flash is full: files open, and no descriptor of them takes a byte.
TEST_F(OnBoard, FullFlashTakesNoByteThroughAnyDescriptor)
{
    const int fd = open("/mnt/nand/full", O_WRONLY | O_CREAT, 0644);
    ASSERT_GE(fd, 0);
    for (const int copy :
         {fd, dup(fd), dup2(fd, 90), dup3(fd, 91, 0), fcntl(fd, F_DUPFD, 92), fcntl64(fd, F_DUPFD, 93)})
        EXPECT_TRUE(write(copy, "x", 1) == -1 && errno == ENOSPC) << copy << strerror(errno);
    struct stat status = {};
    EXPECT_EQ(stat("/mnt/nand/full", &status) | static_cast<int>(status.st_size), 0);
    EXPECT_EQ(WEXITSTATUS(system("dmesg | grep i2c_davinci > /mnt/nand/log")), 2);
}

double Now(clockid_t clock = CLOCK_MONOTONIC)
{
    timespec now = {};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// On a board that is many times as fast: pauses last as long as its clocks say.
TEST_F(OnBoard, ClocksAndPausesAgree)
{
    const timespec pause = {100, 100000000};
    timeval day = {}, dayAfter = {};
    const double before = Now(), wall = Now(CLOCK_REALTIME), busy = Now(CLOCK_PROCESS_CPUTIME_ID);
    const time_t second = time(nullptr);
    gettimeofday(&day, nullptr);
    EXPECT_EQ(usleep(900000) | clock_nanosleep(CLOCK_MONOTONIC, 0, &pause, nullptr), 0);
    EXPECT_EQ(nanosleep(&pause, nullptr) | static_cast<int>(sleep(100)), 0);
    const timespec point = {static_cast<time_t>(wall) + 400, 0}, past = {1, 0}, wrong = {0, 1000000000};
    EXPECT_EQ(clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &point, nullptr), 0);
    EXPECT_EQ(clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &past, nullptr), 0);
    EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, 0, &wrong, nullptr), EINVAL);
    gettimeofday(&dayAfter, nullptr);
    EXPECT_GE(Now(), before + 398);
    EXPECT_GE(Now(CLOCK_REALTIME), static_cast<double>(point.tv_sec));
    EXPECT_GE(time(nullptr) - second, 299) << "the pauses that began later";
    EXPECT_GE(dayAfter.tv_sec - day.tv_sec, 299);
    EXPECT_LT(Now(CLOCK_PROCESS_CPUTIME_ID) - busy, 100) << "work takes the time that it takes";
    const double written = Now();
    Write(0x40, 0);
    while (Read({0x20})[0] != 0)
        ASSERT_LT(Now(), written + 100000);
    EXPECT_GE(Now() - written, 5) << "the scene's busy time";
}

// No test, but a program for fault rules: tells what its calls give, reads as a dot or an x each.
TEST_F(OnBoard, DISABLED_Tells)
{
    std::string reads;
    Bytes value(1);
    for (int i = 0; i < 20; ++i)
        reads += RequestOnBus(kRead, 1, {0x0E}, value) == 0 ? '.' : 'x';
    const timespec pause = {0, 3000000};
    timespec rest = {};
    const unsigned left = sleep(2);
    const int error = clock_nanosleep(CLOCK_MONOTONIC, 0, &pause, &rest);
    timeval day = {};
    gettimeofday(&day, nullptr);
    printf("reads %s slept %u, %d %ld clock %.0f \n", reads.c_str(), left, error, rest.tv_nsec,
           Now(CLOCK_REALTIME) - static_cast<double>(day.tv_sec));
}

// ---- From outside

/// The words that run tests of the kind OnBoard as a program.
Words Inside(const std::string &tests)
{
    char self[PATH_MAX] = "";
    EXPECT_GT(readlink("/proc/self/exe", self, sizeof(self) - 1), 0);
    return {self, "--gtest_also_run_disabled_tests", "--gtest_filter=OnBoard." + tests};
}

/// Where it does not stand beside the program.
Words WithLibrary(const Words &options)
{
    return With(options, {"--library", Env("PROGRAMS") + "/libcamsim.so"});
}

TEST(Board, ServesPrograms)
{
    const struct {
        std::string tests;
        Words options, scene;
    } runs[] = {{"*-*Full*:*Clocks*:*Busy*:*DISABLED*", {}, {"reflect=12ms"}},
                {"*Busy*", {"--fault", "clock:nth=99999"}, {"reflect=59s"}},
                {"*Clocks*", {"--speed", "5000"}, {"reflect=5s"}},
                {"*Full*", {"--fault", "flash:full"}, {}}};
    for (const auto &run : runs) {
        const SimBoard board;
        board.Sim(With({"scene"}, run.scene));
        const auto start = std::chrono::steady_clock::now();
        const Outcome outcome = board.Run(Inside(run.tests), WithLibrary(run.options));
        EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
        EXPECT_GE(Count(outcome.out, "[       OK ]"), 1) << outcome.out;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60)) << run.tests;
    }
}

/// The words of a line.
Words Split(const std::string &line)
{
    std::istringstream text(line);
    return {std::istream_iterator<std::string>(text), {}};
}

TEST(Camera, FollowsTheScene)
{
    const SimBoard board;
    const struct {
        const char *command; // of camSim; "write" is a register, over the bus
        const char *seen; // lines, frames, analog and digital readout, raw level, night, blue and red codes
    } rows[] = {
        // clang-format off
        // light; without any, and with little: night
        {"scene light=400", "545 0 3781 32 1024 0 108 92"},
        {"scene light=4000", "59 0 4075 32 1024 0 108 92"},
        {"scene light=200000", "1 0 2429 32 1023 0 108 92"}, {"scene light=0", "1091 0 515 128 0 1 108 92"},
        {"scene light=1", "1091 0 515 128 150 1 108 92"},
        // ceilings of the gains: day
        {"write 32 40", "1091 0 2048 128 37 1 108 92"}, {"write 33 10", "1091 0 2048 64 18 0 108 92"},
        // an exposure taken over, and given back
        {"write 36 11", "4385 0 2048 64 76 0 108 92"}, {"write 30 84", "1091 0 2048 64 18 0 108 92"},
        // slow shutter, up to those 4 frames; manual exposure as ceiling
        {"write 3B 80", "4363 3 2048 64 75 0 108 92"}, {"scene light=400", "545 0 3781 32 1024 0 108 92"},
        {"write 3B 00", "545 0 3781 32 1024 0 108 92"}, {"write 39 80", "545 0 3781 32 1024 0 108 92"},
        {"scene light=20", "4363 3 2048 43 1024 0 108 92"}, {"write 36 08", "1909 0 2048 64 662 0 108 92"},
        {"write 36 11", "4363 3 2048 43 1024 0 108 92"}, {"write 39 00", "1091 0 2048 64 378 0 108 92"},
        // shutter fixed, then held
        {"scene light=400", "545 0 3781 32 1024 0 108 92"}, {"write 34 48", "4385 0 4096 32 4095 0 108 92"},
        {"write 34 28", "1091 0 2048 32 3804 0 108 92"}, {"scene light=4000", "1091 0 2048 32 4095 0 108 92"},
        {"write 34 08", "59 0 4075 32 1024 0 108 92"}, {"scene light=400", "545 0 3781 32 1024 0 108 92"},
        // 50 Hz lamps, no lamps, all by hand
        {"write 30 86", "327 0 2268 32 1024 0 108 92"}, {"write 30 80", "590 0 4094 32 1024 0 108 92"},
        {"write 30 04", "4385 0 4096 32 4095 0 108 92"}, {"write 3B 02", "4385 2 4096 32 4095 0 108 92"},
        {"write 30 84", "545 0 3781 32 1024 0 108 92"},
        // least gain, twice as bright
        {"write 31 40", "545 0 2048 32 1890 0 108 92"}, {"write 31 00", "545 0 3781 32 1024 0 108 92"},
        {"write 74 80", "1091 0 3786 32 2048 0 108 92"}, {"write 74 40", "545 0 3781 32 1024 0 108 92"},
        // EV 0.2, -0.25, 2 (limited), -2.5 and no less; a bit that is not the EV's
        {"write 71 11", "545 0 3292 32 1176 0 108 92"}, {"write 71 0F", "273 0 2251 32 861 0 108 92"},
        {"write 71 1A", "1091 0 2048 33 3900 0 108 92"}, {"write 71 06", "104 0 4072 32 181 0 108 92"},
        {"write 71 05", "104 0 4072 32 181 0 108 92"}, {"write 71 50", "545 0 3781 32 1024 0 108 92"},
        // the readouts are switched away
        {"write CC 04", "65535 255 65535 65535 65535 1 255 255"},
        {"write CC 08", "545 0 3781 32 1024 0 108 92"},
        // white balance: colours of light, by hand, held
        {"scene temperature=1000", "545 0 3781 32 1024 0 166 38"},
        {"scene temperature=3400", "545 0 3781 32 1024 0 135 72"},
        {"scene temperature=20000", "545 0 3781 32 1024 0 71 124"},
        {"write 3C 00", "545 0 3781 32 1024 0 108 92"}, {"write 3E 10", "545 0 3781 32 1024 0 16 92"},
        {"write 3C 81", "545 0 3781 32 1024 0 71 124"},
        {"scene temperature=5000", "545 0 3781 32 1024 0 71 124"},
        {"write 3C 80", "545 0 3781 32 1024 0 108 92"},
        // gains by hand; gain 12 is night, gain 4 day again; no switching
        {"write 37 40", "545 0 2048 32 1890 0 108 92"}, {"write 37 C0", "1091 0 515 32 4095 0 108 92"},
        {"write 37 00", "545 0 4096 35 1024 0 108 92"}, {"write 38 5F", "1091 0 4096 380 4095 0 108 92"},
        {"write 38 60", "1091 0 4096 384 4095 1 108 92"}, {"write 38 21", "1091 0 4096 132 4095 1 108 92"},
        {"write 38 20", "1091 0 4096 128 4095 0 108 92"}, {"write 38 FF", "1091 0 4096 1020 4095 1 108 92"},
        {"write 53 01", "1091 0 4096 1020 4095 0 108 92"}, {"write 30 84", "545 0 3781 32 1024 0 108 92"},
        // the board's own light; half the frame; everything as after power-on
        {"scene light=1", "1091 0 2048 64 18 0 108 92"}, {"pins led=on", "1091 0 2048 64 18 0 108 92"},
        {"pins ircut=IR_PASS", "1091 0 2048 64 246 0 108 92"}, {"pins led=off", "1091 0 2048 64 18 0 108 92"},
        {"scene sensor=7", "545 0 2048 64 9 0 108 92"}, {"pins reset=0 reset=1", "545 0 515 128 75 1 108 92"},
        // clang-format on
    };
    for (const auto &row : rows) {
        const Words words = Split(row.command);
        const bool writes = words[0] == "write";
        EXPECT_EQ(
            (writes ? board.Run({"drvI2cTest", "-w", "E2", words[1], words[2]}) : board.Sim(words)).status,
            0);
        // In compressed time: everything has settled when the program gets to its read.
        const std::vector<int> r = board.Registers(0x10, 16, {"--speed", "10000"});
        char seen[100];
        snprintf(seen, sizeof(seen), "%d %d %d %d %d %d %d %d", r[2] | r[3] << 8, r[1], r[4] | r[5] << 8,
                 r[6] | r[7] << 8, r[14] | r[15] << 8, r[0] >> 7, r[8], r[9]);
        EXPECT_STREQ(seen, row.seen) << row.command;
    }
}

TEST(Faults, AreCountedOnceForAllPrograms)
{
    const SimBoard board;
    ASSERT_EQ(board.Sim({"fault", "i2c.read:every=7", "gio.set:pin=0,nth=2"}).status, 0);
    // None of them resets the camera, which would make the others' reads fail without a fault.
    Started programs[] = {Started(board.Command({"drvI2cTest", "-r", "E2", "30", "2"})),
                          Started(board.Command({"camStat", "-r"})),
                          Started(board.Command({"camStat", "-l", "on"}))};
    int failed = 0;
    for (Started &program : programs) {
        const Outcome outcome = program.Wait();
        failed += Count(outcome.err, "Read Addr") + Count(outcome.out, "Read ERROR");
    }
    const std::string list = board.Sim({"fault", "list"}).out;
    int calls = 0, hits = 0;
    ASSERT_EQ(sscanf(list.c_str(), "%*[^\n] 1 board %d %d i2c.read:every=7", &calls, &hits), 2) << list;
    EXPECT_TRUE(hits == failed && failed == calls / 7) << list << failed;
}

// What rules do to a program: what it prints or the trace tells of it, and how many of its calls they change.
TEST(Faults, EachRuleDoesWhatItSays)
{
    const Words read = {"camStat", "-r"}, led = {"camStat", "-l", "on"},
                set = {"camStat", "-e", "30", "1", "1"}, apply = {"camConf", "apply"},
                put = {"camConf", "set", "/sysconf/conf.img", "IMG_FLIP", "1"},
                get = {"camConf", "get", "/sysconf/conf.img", "IMG_FLIP"}, tell = Inside("*Tells"),
                paths = Inside("Paths*"), memory = Inside("MemoryIs*"), drivers = Inside("Drivers*"),
                bus = Inside("BusMoves*");
    const struct {
        const char *rules;
        const Words &program;
        const char *seen; ///< an extended regular expression
        int hits;         ///< -1: some
    } rows[] = {
        // clang-format off
        // which of the calls
        {"i2c.read:nth=3", tell, "reads ..x................. ", 1},
        {"i2c.read:every=6", tell, "reads .....x.....x.....x.. ", 3},
        {"i2c.read:after=17", tell, "reads .................xxx ", 3},
        {"i2c.read:times=2", tell, "reads xx.................. ", 2},
        {"i2c.read:after=2,every=3,times=4", tell, "reads ....x..x..x..x...... ", 4},
        {"i2c.read:nth=2,after=5", tell, "reads ......x............. ", 1},
        {"i2c.read:chance=0.3,seed=7", tell, "reads \\.x\\.\\.\\.x\\.\\.x\\.x\\.{9} ", -1},
        {"i2c.read:seed=8,chance=0.3", tell, "reads \\.{4}x\\.{3}x\\.{4}x\\.\\.xx\\.\\. ", -1},
        {"i2c.read:chance=1", tell, "reads x{20} ", 20},
        {"i2c.read:nth=3 i2c:every=3", tell, "reads .xx.x..x..x..x..x..x ", 8},
        {"i2c.read:nth=1,errno=EBUSY i2c.read", tell, "EBUSY\",\"fault\":1}", 20}, // the first that fires decides
        {"i2c.read:reg=0x3B,times=1", read, "\"first\":59.*EIO", 1},
        {"i2c.read:reg=mnlagn", read, "GetMnlAgn failed", 1},
        {"gio.set:pin=0", led, "set level.*\"pin\":0.*EIO", 1},
        {"gio:pin=35", led, "\"pin\":0,.*\"result\":0", 0},
        {"open:/dev/csl3,errno=EBUSY", read, "/dev/csl3\".*EBUSY", 1},
        {"open:/dev/csl", read, "/dev/csl9\".*\"result\":1?[0-9]", 0}, {"open:/dev", tell, "reads x{20} ", 1},
        // what happens
        {"open:fail,/dev/dev_i2c", read, "\"open\",\"path\":\"/dev/dev_i2c\".*ENOENT", 1},
        {"mmap:missing", read, "\"mmap\".*ENOENT", 1}, {"i2c.write:errno=5", set, "i2c.write.*EIO", 3},
        {"slave:refused,nth=2", bus, "Write.0x40, 1.\n    Which is: 0\n", 1}, // it stays with the camera
        {"i2c.read:nth=3,delay=80ms", read, "\"took\":(0.0[89]|0.[1-9]|[1-9]).*i2c.read.*\"fault\":1", 1},
        {"i2c.read:kill", tell, "\"i2c.select\"[^\n]*\n$", 0},
        {"sleep:nth=1 sleep:nth=3,delay=1ms", tell, "slept 1, 0 0 ", 1},
        {"sleep", led, "\"sleep\".*EINTR", 120}, // an interruption comes half-way, so that nothing spins
        {"nanosleep:nth=2", tell, "slept 0, 4 1500000 ", 1}, {"usleep:errno=EINVAL", tell, "slept 2, 22 0 ", 2},
        {"clock:times=3", read, "\"clock\".*EINVAL", 3},
        {"clock:back=3000s", tell, "clock -(29[0-9][0-9]|3000) ", -1},
        {"time:times=1", tell, "clock [0-9]{9,} ", 1},
        {"cmem.version=0x01000000", read, "\"words\":\\[16777216\\]", 1},
        {"reflect:stuck,times=4", set, "\"address\":34,\"value\":1", 4},
        {"reflect:busy=1ms", set, "i2c.write.*\"result\":0", 4},
        {"flash:missing,/sysconf", put, "\"path\":\"/sysconf.*ENOENT", -1},
        {"flash:readonly,/sysconf", put, "EROFS", -1}, {"flash:readonly,/sysconf", get, "^0\n", 0},
        {"flash:full,/sysconf", get, "^0\n", 0}, {"flash:full,/sysconf", put, "\"fault\":1", -1},
        {"flash:missing", paths, "/mnt/nand/log\".*\"result\":512,\"fault\":1", -1},
        {"flash:/sysconf", apply, "EIO", -1},
        // every call
        {"close:/dev/gio", led, "\"close\",\"path\":\"/dev/gio\".*EIO", 1}, {"read", paths, "\"read\".*EIO", -1},
        {"write", Inside("Full*"), "\"write\".*EIO", -1}, {"munmap", read, "\"munmap\".*EINVAL", 1},
        {"fcntl:nth=2", read, "set descriptor flags.*EBADF", 1},
        {"i2c:nth=2", read, "i2c.read.*\"first\":14.*ENXIO", 1}, {"i2c.select", read, "i2c.select.*ENXIO", 1},
        {"fopen:/mnt/nand", paths, "\"fopen\".*EACCES", -1}, {"fwrite", put, "\"fwrite\".*EIO", -1},
        {"fflush", put, "\"fflush\".*EIO", -1}, {"getc", put, "\"getc\".*EIO", -1},
        {"fclose", put, "\"fclose\".*EIO", -1}, {"fsync", put, "\"fsync\".*EIO", -1},
        {"rename", put, "\"rename\".*EIO", 1}, {"unlink", paths, "\"unlink\".*EIO", 1},
        {"stat:/sysconf", paths, "\"stat\".*EACCES", -1}, {"access", paths, "\"access\".*EACCES", -1},
        {"system:nth=1", paths, "\"system\".*EAGAIN", 1}, {"ioctl:after=3,times=2", read, "EIO.*\"fault\":1", 1},
        {"ioctl:nth=8", bus, "unknown request.*EIO", 1},
        {"gio.alarm", drivers, "wait for alarm.*\"errno\":\"EAGAIN\",\"fault\"", 2},
        {"gio.control", drivers, "alarm control.*EIO", 2}, {"gio.config", drivers, "configure level.*EIO", 2},
        {"cmem.version:refused", read, "get version.*EIO", 1},
        {"cmem.alloc", drivers, "allocate from pool.*ENOMEM", -1},
        {"cmem.heap:nth=1", drivers, "allocate from heap.*ENOMEM", 1},
        {"cmem.free", drivers, "free physical.*EINVAL", -1},
        {"cmem.phys", memory, "get physical address.*EINVAL", 2}, {"cmem.pool", drivers, "get pool.*EINVAL", -1},
        {"cmem.block", drivers, "get block.*EINVAL", 3},
        {"cmem.cache", memory, "write back and invalidate cache.*EINVAL", 1},
        {"cmem.register", drivers, "register user.*EINVAL", 2},
        // clang-format on
    };
    std::string written;
    for (const auto &row : rows) {
        const SimBoard board;
        const std::string file = board.Path("trace.json");
        Words options = {"--trace-json=" + file};
        for (const std::string &rule : Split(row.rules))
            options = With(options, {"--fault", rule});
        options = With(options, {"--speed", &row.program == &tell ? "100" : "1"});
        const Outcome outcome = board.Run(row.program, WithLibrary(options));
        const std::string json = ReadFile(file), seen = outcome.out + json;
        EXPECT_TRUE(Matches(seen, row.seen)) << row.rules << "\n" << seen << outcome.err;
        int hits = 0;
        sscanf(json.c_str() + std::min(json.size(), json.find("\"faults\":")), "\"faults\":%d", &hits);
        EXPECT_TRUE(row.hits < 0 ? hits > 0 : hits == row.hits) << row.rules << hits << json;
        written += std::string(" ") + row.rules;
    }
    // Every call and word of the language is in some row.
    std::istringstream help(SimBoard().Sim({"fault", "--help"}).out);
    for (std::string line; std::getline(help, line);) {
        const std::string word = line.substr(0, 2) == "  " ? Split(line)[0] : "/";
        EXPECT_TRUE(word[0] == '/' ||
                    Matches(written, "[ :,]" + word.substr(0, word.find('=')) + "([ :,=]|$)"))
            << word;
    }
}

// The capture is what grep finds, however the lines lie in the log; the log begins anew when it is full.
TEST(KernelLog, IsCapturedWholeAndBounded)
{
    const SimBoard board;
    std::string log, wanted;
    for (int i = 0; i < 700; ++i) {
        const std::string line =
            std::string(static_cast<size_t>(i % 97), '-') + (i % 3 == 0 ? "i2c_davinci\n" : "other\n");
        log += line;
        wanted += i % 3 == 0 ? line : "";
    }
    board.Sim({"reset"});
    std::ofstream(board.Path("kernel.log")) << log;
    board.Run(Inside("Paths*"), WithLibrary({}));
    EXPECT_EQ(ReadFile(board.Path("mnt/nand/log")), wanted);

    truncate(board.Path("kernel.log").c_str(), (64 << 20) + 1);
    board.Run({"drvI2cTest", "-w", "40", "31", "2"});
    EXPECT_TRUE(Matches(ReadFile(board.Path("kernel.log")),
                        "^\\[ *[0-9]+\\.[0-9]{6}\\] i2c_davinci i2c_davinci.1: "
                        "write of slave 0x40 register 0x31: no acknowledge\n$"));
}

TEST(Trace, TellsTheStory)
{
    const struct {
        Words program, options;
        const char *person, *record; // what the two kinds of trace have
    } rows[] = {
        // clang-format off
        {{"camStat", "-e", "30", "2000", "1000"}, {"--speed", "10"},
         "read  0x0E       CisType 6 \\(IMX076, 30 fps\\)\n.*the camera takes over 0x30-0x3B: ready after .*write 0x35-0x36  MeExpTim 545 -> 1091 \\(33326.94 us, 1/30 s\\)\n.*MnlAgn 0 -> 64 \\(gain 2.000\\)\n",
         "\"address\":55,\"before\":0,\"value\":64.*\"MnlAgn\",\"before\":0,\"value\":64,\"meaning\":\"gain 2.000\""},
        {{"camStat", "-l", "on"}, {}, "set level, pin 0 \\(IR LEDs\\): off -> on\n", ""},
        {{"camStat", "-i", "IR_PASS"}, {}, "set level, pin 35 \\(IR-cut filter\\): IR_CUT \\(day\\) -> IR_PASS \\(night\\)", ""},
        {{"camStat", "-s"}, {}, "pin 91 \\(sensor reset line\\): running -> held in reset", ""},
        {{"camStat", "-l", "on"}, {"--fault", "i2c.read:reg=0x3B"}, "read  1 register of slave 0xE2 from 0x3B  failed: EIO,.* .fault 1.\n.*; 1 fault\n$",
         "\"result\":-1,\"errno\":\"EIO\",\"fault\":1}\n.*\"faults\":1,\"open\":\\[\\]}\n$"},
        {{"drvI2cTest", "-r", "40", "30", "2"}, {}, "read  2 registers of slave 0x40 from 0x30  failed: EREMOTEIO", ""},
        {{"drvI2cTest", "-w", "E2", "22", "5A"}, {}, "", "\"address\":34,\"before\":0,\"value\":0"}, // read-only
        {{"camConf", "set", "/sysconf/a\"\\\x01z", "K", "1", "--force"}, {}, "file    f?open /sysconf/a", "\"/sysconf/a\\\\\"\\\\\\\\\\\\u0001z\""},
        // clang-format on
    };
    for (const auto &row : rows) {
        const Words slow = {"reflect=3s"}; // longer than the program may be kept waiting on a busy machine
        const SimBoard board(slow), another(slow);
        const std::string file = board.Path("trace");
        const std::string told = another.Run(row.program, With(row.options, {"--trace"})).err;
        EXPECT_TRUE(Matches(told, row.person)) << row.person << told;
        board.Run(row.program, With(row.options, {"--trace-json=" + file}));
        EXPECT_TRUE(Matches(ReadFile(file), row.record)) << row.record << ReadFile(file);
    }
}

} // namespace
