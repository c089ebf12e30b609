// SPDX-License-Identifier: MIT
//
// The simulated board itself: what its drivers answer, how the camera behaves, faults, trace and commands.
// The tests named OnBoard run inside the simulation: the test Board.ServesPrograms starts this program again
// on a board. Expected values come from the chip's and the drivers' description.
#include "programRun.h"

#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

std::string Env(const char *name)
{
    return getenv(name) != nullptr ? getenv(name) : "";
}

// This program, as a program of the board.
Outcome RunSelf(const SimBoard &board, const std::string &tests, Words options = {})
{
    options.insert(options.end(), {"--library", Env("PROGRAMS") + "/libcamsim.so"});
    return board.Run({std::filesystem::read_symlink("/proc/self/exe"), "--gtest_filter=" + tests}, options);
}

// ------------------------------------------------------------------------------------------ inside the
// simulation

class OnBoard : public testing::Test
{
  protected:
    void SetUp() override
    {
        if (Env("CAMSIM_RUN").empty())
            GTEST_SKIP() << "runs inside the simulation only";
    }
};

struct Transfer {
    uint8_t dataSize;
    uint8_t count;
    uint8_t *regs;
    void *values;
};

constexpr unsigned long kSelect = 0x2C01, kRead = 0x2C02, kWrite = 0x2C03, kReadBlock = 0x2C04;

int OpenBus(unsigned long slave = 0xE2)
{
    const int fd = open("/dev/dev_i2c", O_RDWR);
    return fd >= 0 && ioctl(fd, kSelect, slave) == 0 ? fd : -1;
}

// One request; the errno, 0 for success.
int Request(int fd, unsigned long request, uint8_t size, std::vector<uint8_t> regs, void *values)
{
    Transfer transfer = {size, static_cast<uint8_t>(regs.size()), regs.data(), values};
    return ioctl(fd, request, &transfer) == 0 ? 0 : errno;
}

TEST_F(OnBoard, BusReadsAndWritesRegisters)
{
    const int fd = OpenBus();
    uint8_t bytes[4] = {0x11, 0x22, 0x33, 0x44};
    uint16_t words[2] = {0x5566, 0x7788};
    EXPECT_EQ(Request(fd, kWrite, 1, {0x40, 0x43, 0x12, 0x21}, bytes), 0);
    uint8_t back[4] = {};
    EXPECT_EQ(Request(fd, kReadBlock, 1, {0x40, 0x41, 0x42, 0x43}, back), 0);
    EXPECT_EQ(std::vector<uint8_t>(back, back + 4), (std::vector<uint8_t>{0x11, 0, 0, 0x22}));
    EXPECT_EQ(Request(fd, kRead, 1, {0x43, 0x40, 0x12, 0x0E}, back), 0);
    EXPECT_EQ(std::vector<uint8_t>(back, back + 4), (std::vector<uint8_t>{0x22, 0x11, 0x21, 6}))
        << "0x12 is read-only";
    EXPECT_EQ(Request(fd, kWrite, 2, {0x47, 0x49}, words), 0);
    EXPECT_EQ(Request(fd, kReadBlock, 1, {0x47, 0x48, 0x49, 0x4A}, back), 0);
    EXPECT_EQ(std::vector<uint8_t>(back, back + 4), (std::vector<uint8_t>{0x66, 0x55, 0x88, 0x77}));
    EXPECT_EQ(Request(fd, kRead, 2, {0x48}, words), 0);
    EXPECT_EQ(words[0], 0x8855);
    EXPECT_EQ(Request(fd, kReadBlock, 2, {0x48}, words), EINVAL);
    EXPECT_EQ(Request(fd, 0x2C05, 1, {0x48}, words), ENOTTY);
    EXPECT_EQ(Request(OpenBus(0x40), kRead, 1, {0x0E}, back), EREMOTEIO);
    EXPECT_EQ(close(fd), 0);
    EXPECT_EQ(Request(fd, kRead, 1, {0x0E}, back), EBADF);
}

TEST_F(OnBoard, WrittenGroupsStayBusyForATime)
{
    const int fd = OpenBus();
    const struct {
        uint8_t reg;
        uint8_t busy[3];
    } groups[] = {{0x3B, {0x04, 0, 0}}, {0x3C, {0x08, 0, 0}}, {0x63, {0x80, 0, 0}},
                  {0x64, {0, 0x01, 0}}, {0x92, {0, 0x04, 0}}, {0xC9, {0, 0x80, 0}},
                  {0xCA, {0, 0, 0x01}}, {0xF1, {0, 0, 0x04}}, {0x01, {}}};
    for (const auto &group : groups) {
        uint8_t value = 0, busy[3] = {}, clear = 1;
        ASSERT_EQ(Request(fd, kWrite, 1, {group.reg}, &value), 0);
        ASSERT_EQ(Request(fd, kReadBlock, 1, {0x20, 0x21, 0x22}, busy), 0);
        EXPECT_EQ(memcmp(busy, group.busy, 3), 0) << "register " << int{group.reg};
        for (clear = 1; clear != 0;) {
            ASSERT_EQ(Request(fd, kReadBlock, 1, {0x20, 0x21, 0x22}, busy), 0);
            clear = busy[0] | busy[1] | busy[2];
        }
    }
}

TEST_F(OnBoard, OnlyTheBoardsDevicesAreThere)
{
    for (const char *path : {"/dev/csl0", "/dev/csl10", "/dev/i2c-0", "/dev/mem", "/dev/sda"}) {
        errno = 0;
        EXPECT_EQ(open(path, O_RDWR), -1) << path;
        EXPECT_EQ(errno, ENOENT) << path;
    }
    const int null = open("/dev/null", O_RDWR);
    EXPECT_GE(null, 0);
    EXPECT_EQ(access("/dev/csl9", F_OK), 0);
    uint32_t pin[2] = {86, 0};
    const int gio = open("/dev/gio", O_RDWR);
    EXPECT_EQ(ioctl(gio, 0xC0086709U, pin), -1) << "no alarm";
    EXPECT_EQ(ioctl(gio, 0xC008670AU, pin), 0);
    EXPECT_EQ(ioctl(gio, 0xC0086777U, pin), -1);
    EXPECT_EQ(errno, ENOTTY);
}

TEST_F(OnBoard, MemoryDriverHandsOutSharedLowMemory)
{
    const int fd = open("/dev/cmem", O_RDWR);
    uint32_t words[3] = {100000, 0, 0};
    ASSERT_EQ(ioctl(fd, 6, words), 0); // pool for 100000 bytes
    ASSERT_EQ(ioctl(fd, 1, (words[1] = 0, words)), 0);
    const uint32_t phys = words[0], size = words[1];
    ASSERT_GE(size, 100000U);
    auto *memory = static_cast<char *>(
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, static_cast<off_t>(phys)));
    auto *again = static_cast<char *>(
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, static_cast<off_t>(phys)));
    ASSERT_NE(memory, MAP_FAILED);
    memory[5] = 'x';
    EXPECT_EQ(again[5], 'x');
    const auto address = reinterpret_cast<uintptr_t>(memory);
    EXPECT_LT(address, 0x80000000U) << "addresses travel in 32 bits";
    EXPECT_EQ(ioctl(fd, 4, (words[0] = static_cast<uint32_t>(address + 5), words)), 0);
    EXPECT_EQ(words[0], phys + 5);
    EXPECT_EQ(ioctl(fd, 3, (words[0] = static_cast<uint32_t>(address), words)), 0);
    EXPECT_EQ(words[1], size);
    EXPECT_EQ(munmap(memory, size), 0);
    EXPECT_EQ(ioctl(fd, 10, (words[0] = phys, words)), -1) << "freed";
    EXPECT_EQ(ioctl(fd, 8, words), 0);
    EXPECT_EQ(words[0] & 0xFFFF0000, 0x02300000U);
    EXPECT_EQ(mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fd, 0), MAP_FAILED);
    const int csl[] = {open("/dev/csl1", O_RDWR), open("/dev/csl2", O_RDWR)};
    EXPECT_NE(mmap(nullptr, 0x10000, PROT_READ | PROT_WRITE, MAP_SHARED, csl[0], 0x01C70000), MAP_FAILED);
    EXPECT_EQ(mmap(nullptr, 0x10000, PROT_READ | PROT_WRITE, MAP_SHARED, csl[1], 0x01C70000), MAP_FAILED);
}

TEST_F(OnBoard, PathsLeadIntoTheFolder)
{
    std::ofstream("/mnt/nand/a") << "i2c";
    struct stat status = {};
    EXPECT_EQ(rename("/mnt/nand/a", "/sysconf/b"), 0);
    EXPECT_EQ(stat("/sysconf/b", &status), 0);
    EXPECT_EQ(status.st_size, 3);
    EXPECT_EQ(ReadFile("/proc/driver/rtc").substr(0, 8), "rtc_time");
    DIR *folder = opendir("/sysconf");
    EXPECT_NE(folder, nullptr);
    closedir(folder);
    EXPECT_EQ(unlink("/sysconf/b"), 0);
    EXPECT_EQ(system("dmesg | grep i2c_davinci > /mnt/nand/log"), 0);
    EXPECT_EQ(Count(ReadFile("/mnt/nand/log"), "\n"), Count(ReadFile("/mnt/nand/log"), "i2c_davinci i2c"));
    EXPECT_EQ(system("dmesg -c > /dev/null"), 0);
    EXPECT_EQ(WEXITSTATUS(system("dmesg | grep i2c_davinci > /mnt/nand/log")), 1) << "nothing left";
    EXPECT_EQ(ReadFile("/mnt/nand/log"), "");
    EXPECT_EQ(WEXITSTATUS(system("touch /mnt/nand/x")), 127);
}

TEST_F(OnBoard, FastClocksAgree)
{
    timespec before = {}, after = {}, host[2] = {};
    const time_t wall = time(nullptr);
    clock_gettime(CLOCK_MONOTONIC, &before);
    usleep(900000);
    const timespec pause = {3, 100000000};
    EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, 0, &pause, nullptr), 0);
    clock_gettime(CLOCK_MONOTONIC, &after);
    EXPECT_GE(after.tv_sec - before.tv_sec, 3) << "never shorter than asked";
    EXPECT_LE(after.tv_sec - before.tv_sec, 30) << "but not much longer on a busy machine";
    EXPECT_GE(time(nullptr) - wall, 3);
    (void)host;
}

// ----------------------------------------------------------------------------------------------- from
// outside

TEST(Board, ServesPrograms)
{
    const SimBoard board;
    const Outcome outcome = RunSelf(board, "OnBoard.*-OnBoard.FastClocksAgree");
    EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
    EXPECT_FALSE(std::filesystem::exists(board.Path("mnt/nand/a")));
    EXPECT_TRUE(std::filesystem::exists(board.Path("mnt/nand/log")));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(RunSelf(board, "OnBoard.FastClocksAgree", {"--speed", "20"}).status, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3))
        << "4 s at 20 times the speed";
}

std::string Peek(const SimBoard &board, const Words &names)
{
    Words command = {"peek"};
    command.insert(command.end(), names.begin(), names.end());
    return std::regex_replace(board.Sim(command).out, std::regex("\n"), " ");
}

// Looks again until the camera has got there.
std::string PeekUntil(const SimBoard &board, const Words &names, const std::string &wanted)
{
    std::string seen;
    for (int look = 0; look < 200 && !std::regex_match(seen, std::regex(wanted)); ++look) {
        seen = Peek(board, names);
        usleep(10000);
    }
    return seen;
}

TEST(Camera, FollowsTheScene)
{
    const SimBoard board;
    const Words names = {"ExpTime", "LngExpFrm", "AnlGain", "DgtlGain", "RawAvg", "DnStatus"};
    EXPECT_EQ(Peek(board, names), "545 0 3781 32 1024 0 ") << "1/60 s, the rest gain";
    const struct {
        Words set;
        const char *wanted;
    } rows[] = {
        {{"scene", "light=4000"}, "5\\d 0 40\\d\\d 32 102\\d 0 "}, // short, no gain
        {{"scene", "light=1"}, "1091 0 515 128 1\\d\\d 1 "}, // all that a frame and the gains give; night
        {{"poke", "AeMaxAgc", "64"}, "1091 0 2048 128 \\d\\d 1 "},       // analog ceiling 2.0
        {{"poke", "MeExpTim", "4359"}, "4359 .*"},                    // taken over
        {{"poke", "AeSwitch", "1"}, "1091 0 2048 128 .*"},        // and given back
        {{"poke", "AutoLgExpH", "1"}, "4\\d\\d\\d [23] 2048 128 .*"}, // slow shutter, up to those 4 frames
        {{"scene", "light=400"}, "545 0 3\\d\\d\\d 32 102\\d 0 "},       // and back to day
        {{"poke", "AeFlickMode", "6"}, "327 0 2\\d\\d\\d 32 102\\d 0 "}, // 1/100 s under 50 Hz lamps
        {{"poke", "InfoOut", "1"}, "65535 255 8191 1023 4095 1 "},       // the readouts are switched away
    };
    for (const auto &row : rows) {
        ASSERT_EQ(board.Sim(row.set).status, 0);
        const std::string seen = PeekUntil(board, names, row.wanted);
        EXPECT_TRUE(std::regex_match(seen, std::regex(row.wanted))) << row.set[1] << ": " << seen;
    }
    board.Sim({"pins", "reset=0"});
    EXPECT_EQ(Count(board.Run({"camStat", "-r"}).err, "Read Addr (0x0e) failed!"), 1) << "held in reset";
    board.Sim({"pins", "reset=1"});
    EXPECT_EQ(Peek(board, {"AutoLgExpH", "AeFlickMode", "InfoOut"}), "0 4 0 ");
}

TEST(Faults, AreCountedExactly)
{
    const SimBoard board;
    const Words rules = {"i2c.read:every=7", "gio.set:pin=91,nth=2,errno=EBUSY", "i2c.write:after=1,times=2",
                         "open:/dev/gio:delay=1ms"};
    Words command = {"fault"};
    command.insert(command.end(), rules.begin(), rules.end());
    ASSERT_EQ(board.Sim(command).status, 0);
    // Four programs at once: 30 reads each, and one set of pin 91 twice.
    Started reports[] = {Started(board.Command({"drvI2cTest", "-r", "E2", "30", "2"})),
                         Started(board.Command({"camStat", "-r"})), Started(board.Command({"camStat", "-s"})),
                         Started(board.Command({"camStat", "-r"}))};
    int failed = 0;
    for (Started &report : reports) {
        const Outcome outcome = report.Wait();
        failed += Count(outcome.err, "Read Addr") + Count(outcome.out, "Read ERROR");
    }
    const std::string list = board.Sim({"fault", "list"}).out;
    std::smatch counts;
    ASSERT_TRUE(std::regex_search(list, counts, std::regex("board +(\\d+) +(\\d+)  i2c.read:every=7")))
        << list;
    EXPECT_EQ(std::stoi(counts[2]), failed);
    EXPECT_EQ(std::stoi(counts[2]), std::stoi(counts[1]) / 7);
    EXPECT_EQ(board.Sim({"fault", "clear", "1"}).status, 0);
    EXPECT_EQ(board.Sim({"fault", "clear", "1"}).status, 1);
    EXPECT_EQ(board.Sim({"fault", "clear"}).status, 0);
    EXPECT_EQ(Count(board.Sim({"fault", "list"}).out, "No fault rules"), 1);
}

TEST(Faults, AtRandomRepeatThemselves)
{
    const SimBoard board;
    std::string first;
    for (const char *seed : {"7", "7", "8"}) {
        const Outcome outcome =
            board.Run({"camStat", "-r"}, {"--fault", std::string("i2c.read:chance=0.3,seed=") + seed});
        EXPECT_EQ(outcome.err + outcome.out == first, std::string(seed) == "7" && !first.empty()) << seed;
        first = outcome.err + outcome.out;
    }
}

TEST(Commands, TellWhatToTypeInstead)
{
    const SimBoard board;
    const struct {
        Words words;
        int status;
        const char *hint;
    } rows[] = {
        {{"dmp"}, 127, "did you mean dump?"},           {{"peek", "MnlAg"}, 2, "did you mean MnlAgn"},
        {{"peek", "0x100"}, 2, "0x00 to 0xFF"},         {{"poke", "AeSwitch", "2"}, 2, "it takes 0 to 1"},
        {{"poke", "ExpTime", "1"}, 2, "camSim scene"},  {{"scene", "ligth=3"}, 2, "light=LUX"},
        {{"pins", "led=2"}, 2, "and 0 or 1"},           {{"fault", "i2c.red"}, 2, "Calls are: open"},
        {{"fault", "i2c.read:nth=0"}, 2, "nth=3"},      {{"fault", "open:full"}, 2, "flash:full"},
        {{"fault", "i2c.read:chance=2"}, 2, "chance"},  {{"--sped", "3", "dump"}, 2, "did you mean --speed?"},
        {{"--speed", "0", "dump"}, 2, "0.01 to 10000"}, {{"fault", "clear", "9"}, 1, "fault list"},
    };
    for (const auto &row : rows) {
        const Outcome outcome = board.Sim(row.words);
        EXPECT_EQ(outcome.status, row.status) << row.words[0] << ": " << outcome.err;
        EXPECT_NE(outcome.err.find(row.hint), std::string::npos) << outcome.err;
        EXPECT_EQ(outcome.out, "");
    }
}

TEST(Commands, ADamagedBoardIsRefusedUntilReset)
{
    const SimBoard board;
    EXPECT_EQ(board.Sim({"poke", "MnlAgn", "64"}).status, 0);
    std::ofstream(board.Path("board.state")) << "not a board";
    EXPECT_EQ(board.Run({"camStat", "-r"}).status, 1);
    EXPECT_NE(board.Sim({"peek", "MnlAgn"}).err.find("reset` makes a new board"), std::string::npos);
    EXPECT_EQ(board.Sim({"reset"}).status, 0);
    EXPECT_EQ(Peek(board, {"MnlAgn"}), "0 ");
}

TEST(Trace, TellsTheStory)
{
    const SimBoard board;
    const std::string human = board.Run({"camStat", "-e", "30", "2000", "1000"}, {"--trace"}).err;
    for (const char *line : {"i2c     select slave 0xE2, the camera processor",
                             "i2c     read  0x0E       CisType 6 (IMX076, 30 fps)",
                             "i2c     write 0x35-0x36  MeExpTim 545 -> 1091 (33326.94 us, 1/30 s)",
                             "the camera takes over 0x30-0x3B: ready after", "MnlAgn 0 -> 64 (gain 2.000)"})
        EXPECT_EQ(Count(human, line), Count(line, "ready") ? 3 : 1) << human;
    EXPECT_EQ(human.find("left open"), std::string::npos);

    const std::string file = board.Path("trace.json");
    board.Run({"camStat", "-l", "on"}, {"--trace-json=" + file, "--fault", "i2c.read:reg=0x3B"});
    const std::string json = ReadFile(file);
    EXPECT_EQ(Count(json, "\"call\":\"open\""), 11) << "nothing of the simulator's own doing\n" << json;
    EXPECT_EQ(Count(json, "\"result\":-1,\"errno\":\"EIO\",\"fault\":1}"), 1) << json;
    EXPECT_EQ(Count(json, "\"faults\":1,\"open\":[]}"), 1) << json;
}

TEST(Launcher, PassesTheEndOn)
{
    const SimBoard board;
    EXPECT_EQ(board.Sim({"/bin/sh", "-c", "exit 7"}).status, 7);
    EXPECT_EQ(board.Sim({"/bin/sh", "-c", "kill -9 $$"}).status, 128 + 9);
    EXPECT_EQ(board.Sim({"nosuchprogram"}).status, 127);
}

} // namespace
