// SPDX-License-Identifier: MIT
//
// The simulated board itself: what its drivers answer, how the camera behaves, faults, trace and commands.
// The tests named OnBoard run inside the simulation: Board.ServesPrograms starts this program again on a
// board. Expected values come from the chip's and the drivers' description.
#include "programRun.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fnmatch.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

namespace
{

using Bytes = std::vector<uint8_t>;

// ---- Inside the simulation

class OnBoard : public testing::Test
{
  protected:
    void SetUp() override
    {
        if (getenv("CAMSIM_RUN") == nullptr)
            GTEST_SKIP() << "runs inside the simulation only";
        bus_ = open("/dev/dev_i2c", O_RDWR);
        ASSERT_EQ(ioctl(bus_, 0x2C01, 0xE2), 0);
    }

    // One request; the errno, 0 for success.
    int Move(unsigned long request, uint8_t size, Bytes regs, void *values) const
    {
        struct {
            uint8_t dataSize, count;
            uint8_t *regs;
            void *values;
        } transfer = {size, static_cast<uint8_t>(regs.size()), regs.data(), values};
        return ioctl(bus_, request, &transfer) == 0 ? 0 : errno;
    }

    Bytes ReadBytes(const Bytes &regs, unsigned long request = kRead) const
    {
        Bytes values(regs.size());
        EXPECT_EQ(Move(request, 1, regs, values.data()), 0);
        return values;
    }

    static constexpr unsigned long kRead = 0x2C02, kWrite = 0x2C03, kReadBlock = 0x2C04;
    int bus_ = -1;
};

TEST_F(OnBoard, BusReadsAndWritesRegisters)
{
    uint8_t bytes[] = {0x11, 0x22, 0x33, 0x44};
    uint16_t words[] = {0x5566, 0x7788};
    EXPECT_EQ(Move(kWrite, 1, {0x40, 0x43, 0x12, 0x21}, bytes), 0);
    EXPECT_EQ(ReadBytes({0x40, 0x41, 0x42, 0x43}, kReadBlock), (Bytes{0x11, 0, 0, 0x22}));
    EXPECT_EQ(ReadBytes({0x43, 0x40, 0x12, 0x0E}), (Bytes{0x22, 0x11, 0x21, 6})) << "0x12 cannot be written";
    EXPECT_EQ(Move(kWrite, 2, {0x47, 0x49}, words), 0);
    EXPECT_EQ(ReadBytes({0x47, 0x48, 0x49, 0x4A}), (Bytes{0x66, 0x55, 0x88, 0x77})) << "low byte first";
    EXPECT_EQ(Move(kRead, 2, {0x48}, words), 0);
    EXPECT_EQ(words[0], 0x8855);
    EXPECT_EQ(Move(kReadBlock, 2, {0x48}, words), EINVAL);
    EXPECT_EQ(Move(0x2C05, 1, {0x48}, words), ENOTTY);
    EXPECT_EQ(ioctl(bus_, 0x2C01, 0x40), 0);
    EXPECT_EQ(Move(kRead, 1, {0x0E}, bytes), EREMOTEIO) << "only the camera answers";
    EXPECT_EQ(close(bus_), 0);
    EXPECT_NE(Move(kRead, 1, {0x0E}, bytes), 0);
}

TEST_F(OnBoard, WrittenGroupsStayBusyForATime)
{
    const Bytes reflect = {0x20, 0x21, 0x22}, clear = {0, 0, 0};
    const std::pair<uint8_t, Bytes> groups[] = {
        {0x3B, {0x04, 0, 0}}, {0x3C, {0x08, 0, 0}}, {0x63, {0x80, 0, 0}}, {0x64, {0, 0x01, 0}},
        {0x92, {0, 0x04, 0}}, {0xC9, {0, 0x80, 0}}, {0xCA, {0, 0, 0x01}}, {0xF1, {0, 0, 0x04}},
        {0x01, clear},        {0xFE, clear}};
    for (const auto &[reg, busy] : groups) {
        while (ReadBytes(reflect) != clear) {
        }
        uint8_t value = 0;
        ASSERT_EQ(Move(kWrite, 1, {reg}, &value), 0);
        EXPECT_EQ(ReadBytes(reflect), busy) << "register " << int{reg};
    }
}

TEST_F(OnBoard, OnlyTheBoardsDevicesAreThere)
{
    for (const char *path : {"/dev/csl0", "/dev/csl10", "/dev/i2c-0", "/dev/mem"})
        EXPECT_TRUE(open(path, O_RDWR) == -1 && errno == ENOENT) << path;
    EXPECT_EQ(access("/dev/csl9", F_OK) | access("/dev/null", F_OK), 0);
    uint32_t pin[] = {86, 0};
    const int gio = open("/dev/gio", O_RDWR);
    EXPECT_EQ(ioctl(gio, 0xC0086709U, pin), -1) << "no alarm";
    EXPECT_EQ(ioctl(gio, 0xC008670AU, pin), 0);
    EXPECT_TRUE(ioctl(gio, 0xC0086777U, pin) == -1 && errno == ENOTTY);
}

TEST_F(OnBoard, MemoryDriverHandsOutSharedLowMemory)
{
    const int fd = open("/dev/cmem", O_RDWR), csl1 = open("/dev/csl1", O_RDWR),
              csl2 = open("/dev/csl2", O_RDWR);
    const auto map = [](int node, uint32_t size, uint32_t phys) {
        void *at = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, node, static_cast<off_t>(phys));
        return at == MAP_FAILED ? nullptr : static_cast<char *>(at);
    };
    uint32_t words[] = {100000, 0, 0};
    ASSERT_EQ(ioctl(fd, 6, words), 0) << "pool for 100000 bytes";
    ASSERT_EQ(ioctl(fd, 1, words), 0);
    const uint32_t phys = words[0], size = words[1];
    ASSERT_GE(size, 100000U);
    char *memory = map(fd, size, phys), *again = map(fd, size, phys);
    ASSERT_NE(memory, nullptr);
    memory[5] = 'x';
    EXPECT_EQ(again[5], 'x');
    EXPECT_LT(reinterpret_cast<uintptr_t>(memory), 0x80000000U) << "addresses travel in 32 bits";
    words[0] = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(memory)) + 5;
    EXPECT_EQ(ioctl(fd, 4, words), 0);
    EXPECT_EQ(words[0], phys + 5);
    words[0] = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(memory));
    EXPECT_EQ(ioctl(fd, 3, words), 0);
    EXPECT_EQ(words[1], size);
    EXPECT_EQ(munmap(memory, size), 0);
    words[0] = phys;
    EXPECT_EQ(ioctl(fd, 10, words), -1) << "freed";
    EXPECT_EQ(ioctl(fd, 8, words), 0);
    EXPECT_EQ(words[0] & 0xFFFF0000, 0x02300000U);
    EXPECT_EQ(map(fd, 4096, 0), nullptr);
    EXPECT_NE(map(csl1, 0x10000, 0x01C70000), nullptr);
    EXPECT_EQ(map(csl2, 0x10000, 0x01C70000), nullptr);
}

TEST_F(OnBoard, DriversAnswerEachRequest)
{
    const struct {
        const char *node;
        uint32_t request, in[3];
        int error;
        uint32_t out[2];
    } rows[] = {
        {"cmem", 2, {5000, 0, 0}, 0, {0x85800000, 0}},
        {"cmem", 2, {5000, 0x100000, 0}, 0, {0x85900000, 0x100000}},
        {"cmem", 0x202, {1, 0, 1}, 0, {0x86400000, 0}},
        {"cmem", 2, {0, 0, 0}, EINVAL, {}},
        {"cmem", 2, {1, 0x1800, 0}, EINVAL, {}},
        {"cmem", 2, {1, 0, 2}, EINVAL, {}},
        {"cmem", 2, {0x00800001, 0, 0}, ENOMEM, {}},
        {"cmem", 10, {0x85800000}, 0, {8192, 0}},
        {"cmem", 0x1003, {0x85800000}, 0, {0x85800000, 8192}},
        {"cmem", 0x1003, {0x85800000}, 0, {0x85800000, 8192}}, // its second user
        {"cmem", 0x1003, {0x85800000}, EINVAL, {}},
        {"cmem", 9, {0}, 0, {0x85000000, 0x86000000}},
        {"cmem", 9, {1}, 0, {0x86000000, 0x86800000}},
        {"cmem", 9, {2}, EINVAL, {}},
        {"cmem", 1, {2, 0}, 0, {0x85400000, 0x400000}}, // the only one of its pool
        {"cmem", 1, {2, 0}, ENOMEM, {}},
        {"cmem", 1, {3, 0}, EINVAL, {}},
        {"cmem", 6, {0x400001, 0}, EINVAL, {}},
        {"cmem", 4, {16}, EINVAL, {}},
        {"cmem", 0x207, {16, 16}, EFAULT, {}},
        {"cmem", 11, {}, ENOTTY, {}},
        {"csl1", 0xCC14, {7}, 0, {7, 0}},
        {"csl9", 0xCC12, {}, ENOTTY, {}},
        {"gio", 0xC008670B, {35, 1}, 0, {35, 1}},
        {"gio", 0xC008670B, {35, 2}, EINVAL, {}},
        {"gio", 0xC0086708, {128, 0}, EINVAL, {}},
    };
    const int memory = open("/dev/cmem", O_RDWR);
    for (const auto &row : rows) {
        const bool isMemory = row.node == std::string("cmem"); // kept open: closing gives its buffers back
        const int fd = isMemory ? memory : open((std::string("/dev/") + row.node).c_str(), O_RDWR);
        uint32_t words[3];
        memcpy(words, row.in, sizeof(words));
        EXPECT_EQ(ioctl(fd, row.request, words) == 0 ? 0 : errno, row.error) << row.node << row.request;
        EXPECT_TRUE(row.error != 0 || memcmp(words, row.out, sizeof(row.out)) == 0)
            << row.node << row.request << ' ' << std::hex << words[0] << ' ' << words[1];
        EXPECT_TRUE(isMemory || close(fd) == 0);
    }
    for (const auto &[node, request] :
         {std::pair{"/dev/cmem", 8UL}, {"/dev/gio", 0xC0086708UL}, {"/dev/dev_i2c", kRead}})
        EXPECT_TRUE(ioctl(open(node, O_RDWR), request, nullptr) == -1 && errno == EFAULT) << node;
}

TEST_F(OnBoard, PathsAndCommandsLeadIntoTheFolder)
{
    struct stat status = {};
    std::ofstream("/mnt/nand/a") << "i2c";
    EXPECT_EQ(rename("/mnt/nand/a", "/sysconf/b") | stat("/sysconf/b", &status), 0);
    EXPECT_EQ(status.st_size, 3);
    EXPECT_EQ(ReadFile("/proc/driver/rtc").substr(0, 8), "rtc_time");
    FILE *stream = fopen("/mnt/nand/c", "w");
    EXPECT_TRUE(fputs("abc", stream) >= 0 && fprintf(stream, "%d", 4) == 1 && fclose(stream) == 0);
    char bytes[8];
    const int fd = openat(AT_FDCWD, "/mnt/nand/c", O_RDONLY);
    EXPECT_EQ(read(fd, bytes, sizeof(bytes)), 4);
    EXPECT_EQ(fsync(fd) | close(fd) | unlink("/mnt/nand/c"), 0);
    EXPECT_TRUE(access("/mnt/nand/c", F_OK) == -1 && errno == ENOENT);
    syslog(LOG_INFO, "a line of %d", 7);
    EXPECT_EQ(Count(ReadFile(std::string(getenv("CAMSIM_BOARD")) + "/system.log"), "a line of 7\n"), 1);
    EXPECT_EQ(system(nullptr), 1);
    EXPECT_EQ(system("dmesg | grep i2c_davinci > /mnt/nand/log"), 0);
    EXPECT_EQ(Count(ReadFile("/mnt/nand/log"), "\n"), Count(ReadFile("/mnt/nand/log"), "i2c_davinci i2c"));
    EXPECT_EQ(system("dmesg -c > /dev/null"), 0);
    EXPECT_EQ(WEXITSTATUS(system("dmesg | grep i2c_davinci > /mnt/nand/log")), 1) << "nothing left";
    EXPECT_EQ(ReadFile("/mnt/nand/log"), "");
    EXPECT_EQ(WEXITSTATUS(system("touch /mnt/nand/x")), 127);
}

// A board whose flash is full: files open, and no descriptor of them takes a byte.
TEST_F(OnBoard, FullFlashTakesNoByteThroughAnyDescriptor)
{
    const int fd = open("/mnt/nand/full", O_WRONLY | O_CREAT, 0644);
    ASSERT_GE(fd, 0);
    for (const int copy : {fd, dup(fd), dup2(fd, 90), dup3(fd, 91, 0), fcntl(fd, F_DUPFD, 92)})
        EXPECT_TRUE(write(copy, "x", 1) == -1 && errno == ENOSPC) << copy << strerror(errno);
    struct stat status = {};
    EXPECT_EQ(stat("/mnt/nand/full", &status) | static_cast<int>(status.st_size), 0);
}

TEST_F(OnBoard, PausesAreNeverShorterThanAsked)
{
    timespec before = {}, after = {};
    const timespec pause = {1, 100000000};
    timeval day = {}, dayAfter = {};
    gettimeofday(&day, nullptr);
    const time_t wall = time(nullptr);
    clock_gettime(CLOCK_MONOTONIC, &before);
    EXPECT_EQ(usleep(900000) | clock_nanosleep(CLOCK_MONOTONIC, 0, &pause, nullptr), 0);
    EXPECT_EQ(nanosleep(&pause, nullptr) | static_cast<int>(sleep(1)), 0);
    gettimeofday(&dayAfter, nullptr);
    EXPECT_GE(dayAfter.tv_sec - day.tv_sec, 3);
    clock_gettime(CLOCK_MONOTONIC, &after);
    EXPECT_GE(static_cast<double>(after.tv_sec - before.tv_sec) +
                  static_cast<double>(after.tv_nsec - before.tv_nsec) / 1e9,
              4);
    EXPECT_GE(time(nullptr) - wall, 4);
}

// ---- From outside

TEST(Board, ServesPrograms)
{
    const SimBoard board;
    const auto start = std::chrono::steady_clock::now();
    for (const Words &run :
         {Words{"OnBoard.*-OnBoard.Pause*:OnBoard.Full*", "1", "clock:nth=99999"},
          Words{"OnBoard.Pause*", "20", "clock:nth=99999"}, Words{"OnBoard.Full*", "1", "flash:full"}}) {
        const Outcome outcome =
            board.Run({std::filesystem::read_symlink("/proc/self/exe"), "--gtest_filter=" + run[0]},
                      {"--speed", run[1], "--fault", run[2], "--library",
                       std::string(getenv("PROGRAMS")) + "/libcamsim.so"});
        EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4))
        << "pauses at 20 times the speed";
    EXPECT_TRUE(std::filesystem::exists(board.Path("mnt/nand/log")));
}

TEST(Camera, FollowsTheScene)
{
    const SimBoard board;
    const std::pair<Words, const char *> rows[] = {
        {{"scene", "light=400"}, "545 0 3781 32 1024 0 "},       // 1/60 s, the rest gain
        {{"scene", "light=4000"}, "5? 0 40?? 32 102? 0 "},       // short, no gain
        {{"scene", "light=1"}, "1091 0 515 128 1?? 1 "},         // all that a frame and the gains give: night
        {{"poke", "AeMaxAgc", "64"}, "1091 0 2048 128 *"},       // analog ceiling 2.0
        {{"poke", "MeExpTim", "4359"}, "4359 *"},                // taken over
        {{"poke", "AeSwitch", "1"}, "1091 0 2048 128 *"},        // and given back
        {{"poke", "AutoLgExpH", "1"}, "4??? [23] 2048 128 *"},   // slow shutter, up to those 4 frames
        {{"scene", "light=400"}, "545 0 3??? 32 102? 0 "},       // and back to day
        {{"poke", "AeFlickMode", "6"}, "327 0 2??? 32 102? 0 "}, // 1/100 s under 50 Hz lamps
        {{"poke", "InfoOut", "1"}, "65535 255 8191 1023 4095 1 "}, // the readouts are switched away
        {{"pins", "reset=0"}, "*"},
        {{"pins", "reset=1"}, "545 0 3781 32 1024 0 "}, // everything as after power-on
    };
    for (const auto &[command, wanted] : rows) {
        ASSERT_EQ(board.Sim(command).status, 0);
        std::string seen;
        for (int look = 0; look < 5000 && fnmatch(wanted, seen.c_str(), 0) != 0; ++look) {
            seen =
                board.Sim({"peek", "ExpTime", "LngExpFrm", "AnlGain", "DgtlGain", "RawAvg", "DnStatus"}).out;
            std::replace(seen.begin(), seen.end(), '\n', ' ');
        }
        EXPECT_EQ(fnmatch(wanted, seen.c_str(), 0), 0) << command[1] << ": " << seen;
    }
}

TEST(Faults, AreCountedExactlyAndRepeatThemselves)
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
    EXPECT_EQ(board.Sim({"fault", "clear"}).status, 0);
    std::string last;
    for (const char *seed : {"7", "7", "8"}) {
        const Outcome outcome = board.Run(
            {"camStat", "-r"}, {"--fault", std::string("i2c.read:after=6,chance=0.3,seed=") + seed});
        EXPECT_EQ(outcome.out == last, last != "" && *seed == '7') << seed;
        last = outcome.out;
    }
}

// What a rule does to a program: what the trace tells of it, and how often the rule hit.
TEST(Faults, EachRuleDoesWhatItSays)
{
    const Words read = {"camStat", "-r"}, led = {"camStat", "-l", "on"},
                set = {"camStat", "-e", "30", "1", "1"}, apply = {"camConf", "apply"},
                put = {"camConf", "set", "/sysconf/conf.img", "IMG_FLIP", "1"};
    const struct {
        const char *rule;
        const Words &program;
        const char *seen; ///< an extended regular expression that some line of the trace matches
        int hits;
    } rows[] = {
        // clang-format off
        {"open:/dev/dev_i2c", read, "\"open\",\"path\":\"/dev/dev_i2c\".*ENOENT", 1},
        {"open:/dev/csl3,errno=EBUSY", read, "/dev/csl3\".*EBUSY", 1},
        {"close:/dev/gio", led, "\"close\",\"path\":\"/dev/gio\".*EIO", 1},
        {"mmap", read, "\"mmap\".*ENOMEM", 1},
        {"munmap", read, "\"munmap\".*EINVAL", 1},
        {"fcntl:nth=2", read, "set descriptor flags.*EBADF", 1},
        {"slave", read, "i2c.select.*ENXIO", 1},
        {"i2c:nth=2", read, "i2c.read.*\"first\":14.*ENXIO", 1},
        {"i2c.read:reg=0x3B,times=1", read, "\"first\":59.*EIO", 1},
        {"i2c.write:errno=5", set, "i2c.write.*EIO", 3},
        {"i2c.read:nth=3,delay=80ms", read, "\"took\":0.0[89].*i2c.read.*\"fault\":1", 1},
        {"gio.set:pin=0", led, "set level.*\"pin\":0.*EIO", 1},
        {"gio:pin=35", led, "\"pin\":0,.*\"result\":0", 0},
        {"ioctl:after=3,times=2", read, "EIO.*\"fault\":1", 1},
        {"cmem.version=0x01000000", read, "\"words\":\\[16777216\\]", 1},
        {"cmem.version:refused", read, "get version.*EIO", 1},
        {"reflect:stuck,times=4", set, "\"address\":34,\"value\":1", 4},
        {"reflect:busy=1ms", set, "i2c.write.*\"result\":0", 4},
        {"clock:times=3", set, "\"clock\".*EINVAL", 3},
        {"clock:back=1s,times=2", set, "\"clock\".*\"fault\":1", 2},
        {"sleep:times=3", read, "\"sleep\".*EINTR", 3},
        {"sleep:errno=EINVAL,times=1", read, "\"sleep\".*EINVAL", 1},
        {"fopen:/sysconf", put, "\"fopen\".*EACCES", 1},
        {"fwrite", put, "\"fwrite\".*EIO", -1},
        {"fflush", put, "\"fflush\".*EIO", -1},
        {"getc", put, "\"getc\".*EIO", -1},
        {"fclose", put, "\"fclose\".*EIO", -1},
        {"fsync", put, "\"fsync\".*EIO", -1},
        {"rename", put, "\"rename\".*EIO", 1},
        {"flash:missing,/sysconf", put, "\"path\":\"/sysconf.*ENOENT", -1},
        {"flash:readonly,/sysconf", put, "EROFS", -1},
        {"flash:full,/sysconf", put, "\"fault\":1", -1},
        {"flash:/sysconf", apply, "EIO", -1},
        // clang-format on
    };
    const SimBoard board;
    std::ofstream(board.Path("sysconf/conf.img")) << "IMG_FLIP=0\n";
    for (const auto &row : rows) {
        const std::string file = board.Path("trace.json");
        board.Sim({"fault", row.rule});
        const Outcome outcome = board.Run(row.program, {"--trace-json=" + file});
        const std::string list = board.Sim({"fault", "list"}).out, json = ReadFile(file);
        EXPECT_TRUE(Matches(json, row.seen)) << row.rule << "\n" << json << outcome.err;
        int hits = -1;
        EXPECT_EQ(sscanf(list.c_str(), "%*[^\n] 1 board %*d %d", &hits), 1) << list;
        EXPECT_TRUE(row.hits < 0 ? hits > 0 : hits == row.hits) << list;
        board.Sim({"fault", "clear"});
    }
}

// The pause that is always interrupted comes to an end, and so does the program, after no more work than it is worth.
TEST(Faults, InterruptedPausesDoNotSpin)
{
    const SimBoard board;
    const std::string file = board.Path("trace.json");
    EXPECT_EQ(board.Run({"camStat", "-l", "on"}, {"--trace-json=" + file, "--fault", "sleep"}).status, 0);
    const std::string json = ReadFile(file);
    EXPECT_TRUE(Matches(json, "\"sleep\".*EINTR"));
    EXPECT_LT(Count(json, "\"sleep\""), 30 * Count(json, "\"i2c.read\"")) << json;
}

TEST(Commands, TellWhatToTypeInstead)
{
    const SimBoard board;
    const struct {
        Words words;
        int status;
        const char *hint;
    } rows[] = {
        // clang-format off
        {{"dmp"}, 127, "did you mean dump?"}, {{"peek", "MnlAg"}, 2, "did you mean MnlAgn"},
        {{"peek", "0x100"}, 2, "0x00 to 0xFF"}, {{"poke", "AeSwitch", "2"}, 2, "it takes 0 to 1"},
        {{"poke", "ExpTime", "1"}, 2, "camSim scene"}, {{"scene", "ligth=3"}, 2, "light=LUX"},
        {{"pins", "led=2"}, 2, "and 0 or 1"}, {{"fault", "i2c.red"}, 2, "Calls are: open"},
        {{"fault", "i2c.read:nth=0"}, 2, "nth=3"}, {{"fault", "open:full"}, 2, "flash:full"},
        {{"fault", "clear", "9"}, 1, "fault list"}, {{"--sped", "3", "dump"}, 2, "did you mean --speed?"},
        {{"--speed", "0", "dump"}, 2, "0.01 to 10000"}, {{"--vers"}, 2, "did you mean --version?"},
        {{"--board", "", "dump"}, 2, "'' is no value for --board: it takes DIR"},
        {{"--trace", "pins"}, 2, "--trace goes with a program"}, {{"--speed", "2", "dump"}, 2, "--speed goes"},
        {{"--fault", "open", "scene"}, 2, "camSim fault RULE"}, {{"help", "dmp"}, 2, "no command 'dmp'"},
        // clang-format on
    };
    for (const auto &row : rows) {
        const Outcome outcome = board.Sim(row.words);
        EXPECT_EQ(outcome.status, row.status) << row.words[0] << ": " << outcome.err;
        EXPECT_NE(outcome.err.find(row.hint), std::string::npos) << outcome.err;
    }
    const std::string camSim = std::string(getenv("CAMSIM")) + " --board " + board.Folder();
    const Outcome full = Started({"/bin/sh", "-c", camSim + " dump >/dev/full"}).Wait();
    EXPECT_TRUE(full.status == 1 && full.err == "camSim: standard output: No space left on device\n")
        << full.err;
    std::ofstream(board.Path("board.state")) << "not a board";
    EXPECT_EQ(board.Run({"camStat", "-r"}).status, 1);
    EXPECT_NE(board.Sim({"dump"}).err.find("reset` makes a new board"), std::string::npos);
    EXPECT_EQ(board.Sim({"reset"}).status | board.Sim({"dump"}).status, 0);
}

TEST(Trace, TellsTheStory)
{
    const SimBoard board;
    const std::string human = board.Run({"camStat", "-e", "30", "2000", "1000"}, {"--trace"}).err;
    for (const char *line :
         {"i2c     select slave 0xE2, the camera processor", "read  0x0E       CisType 6 (IMX076, 30 fps)",
          "write 0x35-0x36  MeExpTim 545 -> 1091 (33326.94 us, 1/30 s)", "MnlAgn 0 -> 64 (gain 2.000)"})
        EXPECT_EQ(Count(human, line), 1) << human;
    EXPECT_EQ(Count(human, "the camera takes over 0x30-0x3B: ready after"), 3) << human;

    const std::pair<Words, const char *> stories[] = {
        {{"camStat", "-l", "on"}, "set level, pin 0 (IR LEDs): off -> on"},
        {{"camStat", "-i", "IR_PASS"}, "set level, pin 35 (IR-cut filter): IR_CUT (day) -> IR_PASS (night)"},
        {{"camStat", "-s"}, "pin 91 (sensor reset line): running -> held in reset"},
        {{"drvI2cTest", "-r", "40", "30", "2"},
         "read  2 registers of slave 0x40 from 0x30  failed: EREMOTEIO"},
        {{"camConf", "set", "/sysconf/a", "K", "1"}, "file    fopen /sysconf/a"},
    };
    for (const auto &[program, part] : stories)
        EXPECT_NE(board.Run(program, {"--trace"}).err.find(part), std::string::npos)
            << board.Run(program, {"--trace"}).err;

    const std::string file = board.Path("trace.json");
    board.Run({"camStat", "-l", "on"}, {"--trace-json=" + file, "--fault", "i2c.read:reg=0x3B"});
    const std::string json = ReadFile(file);
    EXPECT_EQ(Count(json, "\"call\":\"open\""), 11) << "nodes alone, nothing of the simulator's own\n"
                                                    << json;
    EXPECT_EQ(Count(json, "\"result\":-1,\"errno\":\"EIO\",\"fault\":1}"), 1) << json;
    EXPECT_EQ(Count(json, "\"faults\":1,\"open\":[]}"), 1) << json;
}

TEST(Launcher, PassesTheEndOn)
{
    const SimBoard board;
    EXPECT_EQ(board.Sim({"/bin/sh", "-c", "exit 7"}).status, 7);
    EXPECT_EQ(board.Sim({"/bin/sh", "-c", "kill -9 $$"}).status, 128 + 9);
}

} // namespace
