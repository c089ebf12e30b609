// SPDX-License-Identifier: MIT
//
// Board and platform: GPIO requests, clocks and stamps, the contiguous-memory client, the chip-support
// handles and the OS abstraction; each with the failures of its calls.
#include "fakeBoard.h"

#include "base/numbers.h"
#include "kelisp/clock.h"
#include "kelisp/cmem.h"
#include "kelisp/csl.h"
#include "kelisp/debugFlags.h"
#include "kelisp/gpio.h"
#include "kelisp/osa.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstring>

namespace
{
class BoardIo : public BoardTest
{
  protected:
    // Maps that a failing release left.
    void DropMaps()
    {
        while (!board.maps.empty())
            munmap(board.maps.begin()->first, board.maps.begin()->second);
        board.Take();
    }
};

TEST_F(BoardIo, PinOperations)
{
    const struct {
        std::function<int()> call;
        std::string request; ///< empty: refused without access
    } cases[] = {
        // clang-format off
        {[] { return SetResetPin(0); }, "gio 8 91 0"}, {[] { return SetResetPin(1); }, "gio 8 91 1"},
        {[] { return setIRL(0); }, "gio 8 0 0"}, {[] { return setIRL(1); }, "gio 8 0 1"},
        {[] { return SetICR(0); }, "gio 8 35 0"}, {[] { return SetICR(1); }, "gio 8 35 1"},
        {AlarmInCtl, "gio 10 86 0"}, {[] { return SetResetPin(2); }, ""}, {[] { return setIRL(2); }, ""},
        {[] { return SetICR(UINT32_MAX); }, ""},
        // clang-format on
    };
    const std::string openFailed = "[kel_isp] ERROR: open device failed\n";
    const std::string requestFailed = "[kel_isp] ERROR: ioctl failed\n";
    for (const auto &c : cases) {
        const Lines lines = {"open /dev/gio", c.request, "close /dev/gio"};
        if (c.request.empty()) {
            Expect(c.call, KEL_GPIO_FAILED, "", {});
            continue;
        }
        board.Fail("gio", 1, 0, 1, 7); // no failure: the request may give any number from 0 on
        Expect(c.call, 0, "", lines);
        board.Fail("open", 1, ENOENT);
        Expect(c.call, KEL_GPIO_FAILED, openFailed, {"open /dev/gio"});
        board.Fail("gio", 1);
        Expect(c.call, KEL_GPIO_FAILED, requestFailed, lines);
    }
}

TEST_F(BoardIo, AlarmIsAwaitedOnceASecond)
{
    for (const int debug : {0, 1}) {
        board.Fail("gio", 1, EAGAIN, 2);
        board.Fail("gio", 3, 0, 1, 3); // the alarm
        board.Fail("sleep", 1, EINTR); // a signal: what is left of the pause follows
        gfDebugFlag = debug;
        Expect(WaitAlarmIn, 3, debug != 0 ? "listening alarm in... (press CTRL-C to stop)\n" : "",
               {"open /dev/gio", "gio 9 86 0", "sleep 1000000", "sleep 7", "gio 9 86 0", "sleep 1000000",
                "gio 9 86 0", "close /dev/gio"});
        gfDebugFlag = 0;
    }
    board.Fail("open", 1, ENOENT);
    Expect(WaitAlarmIn, KEL_GPIO_FAILED, "[kel_isp] ERROR: open device failed\n", {"open /dev/gio"});
}

TEST_F(BoardIo, Clocks)
{
    int64_t ms = -7;
    board.nowNs = 5000000LL * 1000000000LL + 1999999; // past 32 bits of milliseconds
    EXPECT_EQ(GetMsFromStart(&ms), 0);
    EXPECT_EQ(ms, 5000000001LL);
    board.Fail("clock", 1);
    EXPECT_EQ(Capture([&] { EXPECT_EQ(GetMsFromStart(&ms), -1); }).out, "clock_gettime failed.\n");
    EXPECT_EQ(ms, 5000000001LL);

    board.nowNs = FakeBoard::startNs;
    board.wallSec = 1741338303; // 7 March 2025, 09:05:03
    char stamp[KEL_STAMP_SIZE + 1];
    const struct {
        int (*call)(char *);
        std::string text;
    } stamps[] = {{GetTimeStamp, "20250307090503"}, {GetDateTime, "2025/03/07 09:05:03"}};
    for (const auto &s : stamps) {
        memset(stamp, 'x', sizeof(stamp));
        EXPECT_EQ(s.call(stamp), 0);
        EXPECT_EQ(stamp, s.text);
        EXPECT_EQ(std::string(stamp + s.text.size(), stamp + sizeof(stamp)),
                  std::string(KEL_STAMP_SIZE - s.text.size(), '\0') + "x");
    }
    setenv("TZ", "XYZ-2:30", 1); // local time, not UTC
    EXPECT_EQ(GetTimeStamp(stamp), 0);
    EXPECT_STREQ(stamp, "20250307113503");
    setenv("TZ", "UTC", 1);
    if (sizeof(time_t) == 8) {
        board.wallSec = 253402300805; // the year 10000
        EXPECT_EQ(GetDateTime(stamp), 0);
        EXPECT_STREQ(stamp, "10000/01/01 00:00:0");
    }
}

TEST_F(BoardIo, RealTimeClockDriver)
{
    const std::string rtc = "/proc/driver/rtc";
    const struct {
        const char *content; ///< null: there is no such file
        int status;
        const char *logged = nullptr;
    } cases[] = {
        {nullptr, -1, "Open"}, {"", -1, "Read"}, {"rtc_time\t: 09:05:03\n", 0},
        {"rtc_time", 0},       {"rtc_tim", -1},  {" rtc_time", -1},
        {"RTC_TIME", -1},
    };
    for (const auto &c : cases) {
        if (c.content != nullptr)
            WriteFile(rtc, c.content + std::string(c.status == 0 ? 300 : 0, '.'));
        EXPECT_EQ(CheckRtc(), c.status) << c.content;
        Lines expected;
        if (c.logged != nullptr)
            expected = {"openlog camStat 33 8", Format("syslog 3 %s %s failed", c.logged, rtc.c_str()),
                        "closelog"};
        EXPECT_EQ(board.Take([](const std::string &line) { return line.find("log") != std::string::npos; }),
                  expected);
    }
}

TEST(Numbers, AreHeldAtTheLimits)
{
    const struct {
        double value;
        int32_t asSigned;
        uint32_t asUnsigned;
    } cases[] = {
        // clang-format off
        {2147483647.9, INT32_MAX, 2147483647}, {2147483648.0, INT32_MAX, 2147483648U},
        {4294967295.9, INT32_MAX, UINT32_MAX}, {4294967296.0, INT32_MAX, UINT32_MAX}, {1e300, INT32_MAX, UINT32_MAX},
        {-2147483648.9, INT32_MIN, 0}, {-2147483649.0, INT32_MIN, 0}, {-1e300, INT32_MIN, 0}, {-1.9, -1, 0},
        {NAN, 0, 0},
        // clang-format on
    };
    for (const auto &c : cases) {
        EXPECT_EQ(kel::TruncateToInt32(c.value), c.asSigned) << c.value;
        EXPECT_EQ(kel::TruncateToUint32(c.value), c.asUnsigned) << c.value;
    }
}

TEST_F(BoardIo, HexDumps)
{
    uint8_t bytes[17];
    for (unsigned i = 0; i < sizeof(bytes); ++i)
        bytes[i] = static_cast<uint8_t>(i * 15 + 0xA);
    const std::string row = "\n0A 19 28 37 46 55 64 73 82 91 A0 AF BE CD DC EB ";
    const std::pair<int, std::string> cases[] = {
        {17, row + "\nFA \n"}, {16, row + "\n"}, {1, "\n0A \n"}, {0, "\n"}, {-2, "\n"}};
    for (const auto &[count, text] : cases) {
        const Printed printed = Capture([&, bytesShown = count] { HexDump(bytes, bytesShown); });
        EXPECT_EQ(printed.out, "(" + std::to_string(count) + "): " + text);
    }
}

// ---- Contiguous memory

const std::string cmemError = "CMEM Error: ";

std::string LowWord(const void *address)
{
    return Format("%x", static_cast<uint32_t>(reinterpret_cast<uintptr_t>(address)));
}

TEST_F(BoardIo, ContiguousMemoryStates)
{
    [[maybe_unused]] const std::string notInitialised =
        cmemError + "CMEM_init() not called, you must initialize CMEM before making API calls.\n";
    const std::string openFailed = cmemError +
                                   "CMEM file descriptor -1 (failed 'open()'), ensure CMEMK kernel "
                                   "module cmemk.ko has been installed with 'insmod'";
    const std::string closed = cmemError + "CMEM_exit() already called, check stderr output for earlier CMEM "
                                           "failure messages (possibly version mismatch).\n";
    const auto everything = [&](const std::string &err) { // fails without access to the driver
        static unsigned long first, second;
        static const CmemAllocParams heap = {0x400, 0, 0};
        first = second = 7;
        const std::pair<std::function<long()>, long> calls[] = {
            // clang-format off
            {CMEM_exit, -1}, {CMEM_getVersion, -1}, {[] { return CMEM_getBlock(0, &first, &second); }, -1},
            {[] { return CMEM_getPool(0, 4096); }, -1}, {[] { return CMEM_getPoolBlock0(4096); }, -1},
            {[] { return CMEM_alloc(0, 4096, &heap) != nullptr; }, 0}, {[] { return CMEM_getPhys(&first); }, 0},
            {[] { return CMEM_cacheWb(&first, 1); }, -1}, {[] { return CMEM_cacheInv(&first, 1); }, -1},
            {[] { return CMEM_cacheWbInv(&first, 1); }, -1}, {[] { return CMEM_free(&first, nullptr); }, -1},
            // clang-format on
        };
        for (const auto &[call, result] : calls)
            Expect(call, result, err, {});
        EXPECT_EQ(first * 10 + second, 77U);
    };
#ifndef __arm__ // an emulated program cannot start itself
    // In a process of its own: no test has touched the client there.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT((everything(notInitialised), _exit(HasFailure())), testing::ExitedWithCode(0), "");
#endif
    const Lines opening = {"open /dev/cmem", "cmem 8", "fcntl getfd", "fcntl 2 1"},
                closing = {"close /dev/cmem"};
    Expect(CMEM_init, 0, "", opening);
    Expect(CMEM_init, 0, "", {});
    Expect(CMEM_exit, 0, "", {});
    Expect(CMEM_exit, 0, "", closing);
    everything(closed);

    board.Fail("open", 1, ENOENT);
    Expect(CMEM_init, -1, cmemError + "init: Failed to open /dev/cmem: 'No such file or directory'\n",
           {"open /dev/cmem"});
    everything(openFailed);

    const std::string mismatch = cmemError + "init: major version mismatch between interface and driver.\n" +
                                 cmemError + "    needs driver version 0x2300000, got ";
    const Lines refused = {"open /dev/cmem", "cmem 8", "close /dev/cmem"};
    board.cmemOut[8] = {0x02200000};
    Expect(CMEM_init, -1, mismatch + "0x2200000\n", refused);
    everything(closed);
    board.cmemOut[8] = {0x0230FFFF};
    board.Fail("cmem 8", 1, EINVAL, 1, -2);
    Expect(CMEM_init, -1,
           cmemError + "getVersion: Failed to retrieve version from driver: -2.\n" + mismatch +
               "0xffffffff\n",
           refused);
    board.Fail("fcntl getfd", 1, 0, 1, 4); // whatever flags there are stay
    Expect(CMEM_init, 0, "", {"open /dev/cmem", "cmem 8", "fcntl getfd", "fcntl 2 5"});
    Expect(CMEM_exit, 0, "", closing);
    board.Fail("fcntl getfd", 1, EBADF);
    Expect(CMEM_init, 0, cmemError + "init: fcntl(F_GETFD) failed: 'Bad file descriptor'\n",
           {"open /dev/cmem", "cmem 8", "fcntl getfd"});
    board.Fail("close", 1, EIO);
    Expect(CMEM_exit, -1, "", closing);
    Expect(CMEM_exit, -1, closed, {});
    Expect(CMEM_init, 0, "", opening);
    Expect(CMEM_exit, 0, "", closing);
}

TEST_F(BoardIo, ContiguousMemoryRequests)
{
    ASSERT_EQ(CMEM_init(), 0);
    board.Take();
    board.cmemOut[1] = board.cmemOut[0x201] = {0x86000000, 0x2000};
    board.cmemOut[2] = board.cmemOut[0x202] = {0x87000000};
    board.cmemOut[4] = {0x86001230};
    board.cmemOut[6] = {3};
    board.cmemOut[9] = {0x85000000, 0x86FFFFFF};
    board.cmemOut[10] = {0x3000};
    const CmemAllocParams cached = {0, 0x200, 0}, heap = {0x400, 0, 0}, heapCached = {0x400, 0x200, 64};
    static unsigned long bounds[2];
    void *const address = bounds; // of which the driver gets 32 bits
    const std::string low = LowWord(address), bytes = low + " 20";
    const auto gives = [](void *pointer) { return pointer != nullptr ? 1L : 0L; };
    const std::string noMap = "Failed to mmap buffer at physical address 0x8";
    // Each call succeeds with these lines; each of its lines with a message fails in turn.
    const struct {
        std::function<long()> call;
        long good, bad; ///< results
        std::vector<std::pair<std::string, std::string>> lines;
        Lines undo = {}; ///< what follows the last line when it fails, and the message of that
    } cases[] = {
        // clang-format off
        {CMEM_getVersion, 0x02300105, -1, {{"cmem 8", "getVersion: Failed to retrieve version from driver: -2.\n"}}},
        {[] { return CMEM_getBlock(1, &bounds[0], &bounds[1]); }, 0, -1, {{"cmem 9 1",
         "getBlock: Failed to retrieve memory block bounds for block 1 from driver: -2.\n"}}},
        {[] { return CMEM_getPool(2, 0x1000); }, 3, -1, {{"cmem 6 1000 2", ""}}},
        {[] { return CMEM_getPoolBlock0(5); }, 3, -1, {{"cmem 6 5 0", "getPool: Failed to get a pool fitting a size 5\n"}}},
        {[&] { return gives(CMEM_allocPool(1, 4, nullptr)); }, 1, 0, {{"cmem 1 4 1",
         "allocPool: ioctl CMEM_IOCALLOC failed from pool 4: -2\n"}, {"mmap /dev/cmem 2000 86000000",
         "allocPool: " + noMap + "6000000\n"}}, {"cmem 1003 86000000", "    Freeing phys buffer 0x86000000\n"}},
        {[&] { return gives(CMEM_allocPool(1, 4, &cached)); }, 1, 0, {{"cmem 201 4 1",
         "allocPool: ioctl CMEM_IOCALLOCCACHED failed from pool 4: -2\n"}, {"mmap /dev/cmem 2000 86000000", ""}}},
        {[&] { return gives(CMEM_alloc(1, 0x1800, nullptr)); }, 1, 0, {{"cmem 6 1800 1",
         "getPool: Failed to get a pool fitting a size 6144\n"}, {"cmem 1 3 1", ""}, {"mmap /dev/cmem 2000 86000000", ""}}},
        {[&] { return gives(CMEM_alloc(0, 0x1800, &heap)); }, 1, 0, {{"cmem 2 1800 1 0",
         "allocHeap: ioctl CMEM_IOCALLOCHEAP failed: -2\n"}, {"mmap /dev/cmem 1800 87000000",
         "allocHeap: " + noMap + "7000000\n"}}, {"cmem 1403 87000000", "    Freeing phys buffer 0x87000000\n"}},
        {[&] { return gives(CMEM_alloc(1, 0x1800, &heapCached)); }, 1, 0, {{"cmem 202 1800 40 1",
         "allocHeap: ioctl CMEM_IOCALLOCHEAPCACHED failed: -2\n"}, {"mmap /dev/cmem 1800 87000000", ""}}},
        {[&] { return gives(CMEM_registerAlloc(0x86002000)); }, 1, 0, {{"cmem a 86002000",
         "registerAlloc: ioctl CMEM_IOCREGUSER failed for phys addr 0x86002000: -2\n"},
         {"mmap /dev/cmem 3000 86002000", "registerAlloc: " + noMap + "6002000\n"}},
         {"cmem 1003 86002000", "    Unregistering use of phys buffer 0x86002000\n"}},
        {[&] { return static_cast<long>(CMEM_getPhys(address)); }, static_cast<long>(0x86001230UL), 0,
         {{"cmem 4 " + low, "getPhys: Failed to get physical address of 0x" + low + "\n"}}},
        {[&] { return CMEM_cacheWb(address, 0x20); }, 0, -1, {{"cmem 107 " + bytes,
         "cacheWb: Failed to writeback 0x" + low + "\n"}}},
        {[&] { return CMEM_cacheInv(address, 0x20); }, 0, -1, {{"cmem 207 " + bytes,
         "cacheInv: Failed to invalidate 0x" + low + "\n"}}},
        {[&] { return CMEM_cacheWbInv(address, 0x20); }, 0, -1, {{"cmem 307 " + bytes,
         "cacheWbInv: Failed to writeback & invalidate 0x" + low + "\n"}}},
        // clang-format on
    };
    for (const auto &c : cases) {
        Lines lines;
        for (const auto &[line, message] : c.lines) {
            lines.push_back(line);
            if (message.empty())
                continue;
            // The two kinds of check in the driver's interface: any status but 0, and -1 alone.
            board.Fail(line, 1, EINVAL, 1, message.find("-2") != std::string::npos ? -2 : -1);
            Lines failing = lines;
            std::string printed = cmemError + message;
            if (line.starts_with("mmap")) {
                failing.push_back(c.undo[0]);
                printed += cmemError + c.undo[1];
            }
            Expect(c.call, c.bad, printed, failing);
        }
        Expect(c.call, c.good, "", lines);
        DropMaps();
    }
    EXPECT_EQ(bounds[0], 0x85000000UL);
    EXPECT_EQ(bounds[1], 0x86FFFFFFUL);

    for (const auto &[params, code] :
         {std::pair(static_cast<const CmemAllocParams *>(nullptr), 3U), {&heap, 0x403U}}) {
        void *const buffer = CMEM_allocPool(0, 0, nullptr);
        const auto release = [&, used = params] { return CMEM_free(buffer, used); };
        const std::string hex = LowWord(buffer);
        board.cmemOut[code] = {0, 0x2000};
        board.Take();
        const auto error = [&](const char *what) {
            return Format("CMEM Error: %s 0x%s\n", what, hex.c_str());
        };
        const Lines steps = {"cmem 207 " + hex + " 8", Format("cmem %x %s", code, hex.c_str()),
                             "munmap 2000"};
        board.Fail("munmap");
        Expect(release, -1, error("free: failed to munmap"), steps);
        board.Fail(steps[1]);
        Expect(release, -1, error("free: failed to free"), {steps[0], steps[1]});
        board.Fail(steps[0]); // that alone does not keep the buffer
        Expect(release, 0,
               error("cacheInv: Failed to invalidate") +
                   error("free: failed to cache-invalidate buffer header @"),
               steps);
    }
    EXPECT_EQ(CMEM_exit(), 0);
}

// ---- Chip support and the system

TEST_F(BoardIo, ChipSupportHandles)
{
    int32_t *const descriptors[] = {// of /dev/csl1 to csl9
                                    &gCSL_vpssHndl.fd, &gCSL_rszHndl.fd,        &gCSL_ipipeHndl.fd,
                                    &gCSL_ccdcHndl.fd, &gCSL_ipipeifHndl.fd,    &gCSL_h3aHndl.fd,
                                    &gCSL_ldcHndl.fd,  &gCSL_faceDetectHndl.fd, &gCSL_gpioHndl.fd};
    Lines opening = {"open /dev/csl1", "mmap /dev/csl1 10000 1c70000"},
          closing = {"munmap 10000", "close /dev/csl1"};
    for (int module = 2; module <= 9; ++module) {
        opening.push_back(Format("open /dev/csl%d", module));
        closing.insert(closing.begin(), Format("close /dev/csl%d", module));
    }
    memset(&gCSL_vpssHndl, 0xEE, sizeof(gCSL_vpssHndl));
    Expect(CSL_sysInit, 0, "", opening);
    for (int i = 0; i < 9; ++i)
        EXPECT_EQ(board.open.at(*descriptors[i]), Format("/dev/csl%d", i + 1));
    EXPECT_EQ(gCSL_vpssHndl.length, 0x10000U);
    EXPECT_EQ(gCSL_vpssHndl.physBase, 0x01C70000U);
    EXPECT_EQ(board.maps.count(gCSL_vpssHndl.base), 1U);
    const unsigned offsets[] = {0x200, 0, 0x1000, 0x800, 0x1200, 0x400, 0x1400, 0x1600, 0x1800};
    const auto at = [](unsigned offset) {
        return reinterpret_cast<volatile uint32_t *>(gCSL_vpssHndl.base + offset);
    };
    for (int i = 0; i < 9; ++i)
        EXPECT_EQ(gCSL_vpssHndl.regs[i], at(offsets[i]));
    EXPECT_EQ(gCSL_rszHndl.regs, at(0x400));
    EXPECT_EQ(gCSL_ipipeifHndl.regs, at(0x1200));
    EXPECT_EQ(csl_h3aRegs, at(0x1400));
    Expect(CSL_sysExit, 0, "", closing);
    EXPECT_NE(gCSL_gpioHndl.fd, -1) << "the handles keep their values";

    for (const std::string &line : opening) { // all others are opened all the same
        board.Fail(line, 1, ENOENT);
        EXPECT_EQ(CSL_sysInit(), -1);
        const bool noMap = line.starts_with("mmap");
        EXPECT_EQ(board.open.size(), noMap ? 9U : 8U);
        EXPECT_EQ(std::count_if(std::begin(descriptors), std::end(descriptors),
                                [](const int32_t *fd) { return *fd == -1; }),
                  noMap ? 0 : 1);
        EXPECT_EQ(gCSL_vpssHndl.regs[8] == nullptr, noMap || line == opening[0]);
        EXPECT_EQ(csl_h3aRegs == nullptr, noMap || line == opening[0]);
        EXPECT_EQ(CSL_sysExit(), noMap ? 0 : -1);
    }
    for (const std::string &line : closing) { // each close is attempted
        ASSERT_EQ(CSL_sysInit(), 0);
        board.Take();
        board.Fail(line);
        Expect(CSL_sysExit, -1, "", closing);
        DropMaps();
    }
}

TEST_F(BoardIo, ChipSupportRequests)
{
    EXPECT_EQ(CSL_devOpen(10), -1);
    EXPECT_EQ(CSL_devOpen(UINT32_MAX), -1);
    EXPECT_TRUE(board.lines.empty());
    const int fd = CSL_devOpen(0);
    EXPECT_EQ(board.open.at(fd), "/dev/csl0");
    close(fd);

    const CSL_RegsHndl handle = {nullptr, board.Attach("/dev/csl2")};
    int data = 0;
    const std::string pointer = Format("%p", static_cast<void *>(&data));
    board.Take();
    board.Fail("csl2", 3, EINVAL, 1, -5);
    EXPECT_EQ(CSL_devRequest20(&handle, 0xABCD, &data), 0);
    EXPECT_EQ(CSL_devRequest17(&handle, 7, &data, 3), 0);
    EXPECT_EQ(CSL_devRequest20(&handle, 1, &data), -5);
    EXPECT_EQ(board.Take(), Lines({"csl2 cc14 abcd " + pointer, "csl2 cc11 7 " + pointer + " 3",
                                   "csl2 cc14 1 " + pointer}));
    EXPECT_EQ(CSL_devRequest20(&handle, 1, nullptr), -1);
    EXPECT_EQ(CSL_devRequest17(&handle, 1, nullptr, 3), -1);
    EXPECT_EQ(CSL_devRequest17(&handle, 1, &data, 0), -1);
    EXPECT_TRUE(board.lines.empty());
    close(handle.fd);
}

int lastSignal = 0;

TEST_F(BoardIo, OsAbstraction)
{
    EXPECT_EQ(OSA_init(), 0);
    EXPECT_EQ(OSA_mutexLock(&gOSA_printfLock), 0);
    EXPECT_EQ(pthread_mutex_trylock(&gOSA_printfLock), EBUSY);
    EXPECT_EQ(OSA_mutexUnlock(&gOSA_printfLock), 0);
    board.Fail("mutex_init", 1, 0, 1, ENOMEM);
    EXPECT_EQ(Capture([] { EXPECT_EQ(OSA_init(), ENOMEM); }).err,
              " ERROR  (osa_mutex|OSA_mutexCreate|): OSA_mutexCreate() = 12 \r\n ERROR  (osa|OSA_init|): "
              "OSA_mutexCreate()\n");
    pthread_mutex_t mutex;
    EXPECT_EQ(OSA_mutexCreate(&mutex), 0);
    EXPECT_EQ(OSA_mutexDelete(&mutex), 0);

    char name[256] = "x", real[256] = "";
    gethostname(real, sizeof(real));
    EXPECT_EQ(OSA_getHostName(name, sizeof(name)), 0);
    EXPECT_STREQ(name, real);
    board.Fail("gethostname", 1);
    EXPECT_EQ(OSA_getHostName(name, sizeof(name)), -1);
    EXPECT_STREQ(name, "");
    board.Fail("gethostname", 1, 0, 1, 0); // a name that fills the buffer
    EXPECT_EQ(OSA_getHostName(name, 4), 0);
    EXPECT_STREQ(name, "hhh");
    strcpy(name, "untouched");
    EXPECT_EQ(OSA_getHostName(name, 0), -1);
    EXPECT_STREQ(name, "untouched");

    board.wallSec = 4294967; // 2^32 ms and a little
    board.nowNs = FakeBoard::startNs + 999 * 1000000LL + 999999;
    EXPECT_EQ(OSA_getTimeMs(), 4294967999U - 4294967296U);
    board.Fail("gettimeofday", 1);
    EXPECT_EQ(OSA_getTimeMs(), 0U);

    EXPECT_EQ(OSA_setSignalHandler(SIGUSR1, [](int number) { lastSignal = number; }), 0);
    struct sigaction action = {};
    sigaction(SIGUSR1, nullptr, &action);
    EXPECT_EQ(action.sa_flags & ~0x04000000, 0); // the C library's own restorer flag aside
    EXPECT_EQ(sigismember(&action.sa_mask, SIGTERM), 0);
    raise(SIGUSR1);
    EXPECT_EQ(lastSignal, SIGUSR1);
    signal(SIGUSR1, SIG_DFL);
}

} // namespace
