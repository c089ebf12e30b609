// SPDX-License-Identifier: MIT
//
// The camera bus and the block transfer: records, retries, the reflect handshake, limits, messages and the
// error log; and the register utility, by its command lines.
#include "fakeBoard.h"

#include "kelisp/drvI2c.h"
#include "kelisp/ispCXD3193AR.h"

#include <algorithm>
#include <filesystem>

namespace
{
const std::string csv = "/mnt/nand/I2cErr.csv";
const Lines logged = {"fopen " + csv + " a+", "fclose " + csv};

class Bus : public BoardTest
{
};

TEST_F(Bus, OpenSelectsTheSlaveOrLeavesNothingOpen)
{
    DrvI2cHndl handle = {};
    EXPECT_EQ(DrvI2cOpen(&handle, 0xE2), 0);
    EXPECT_EQ(board.Take(), Lines({"open /dev/dev_i2c", "select e2"}));
    EXPECT_EQ(board.open.at(handle.fd), "/dev/dev_i2c");
    board.Fail("close", 1, EIO);
    EXPECT_EQ(DrvI2cClose(&handle), -1);

    board.Fail("open", 1, ENOENT, 1, -4);
    EXPECT_EQ(DrvI2cOpen(&handle, 0xE2), -1);
    EXPECT_EQ(handle.fd, -4);
    board.Take();
    board.Fail("select", 1, EREMOTEIO, 1, -3);
    EXPECT_EQ(DrvI2cOpen(&handle, 0xFF), -3);
    EXPECT_EQ(errno, EREMOTEIO);
    EXPECT_LT(handle.fd, 0);
    EXPECT_EQ(board.Take(), Lines({"open /dev/dev_i2c", "select ff", "close /dev/dev_i2c"}));
}

TEST(Hex, AnyTextIsRead)
{
    const struct {
        const char *text;
        uint32_t value;
    } cases[] = {
        // clang-format off
        {"0x1F", 0x1F}, {"1f", 0x1F}, {"1G", 0x10}, {"", 0}, {"g", 0}, {"aBcDeF09", 0xABCDEF09},
        {"123456789", 0x23456789}, {"/0:9@A", 0x90A}, {"`aF{", 0xAF0}, {"-1", 1}, {" 7 ", 0x70}, {"\xFF" "1", 1},
        // clang-format on
    };
    for (const auto &c : cases)
        EXPECT_EQ(HexStrToUint(c.text), c.value) << c.text;
}

TEST_F(Bus, UtilityDoesWhatItsWordsSay)
{
    const std::string usage = " \n I2C Test Utility, \r\n Usage: i2c -r|-w|-b <devAddrInHex> <regAddrInHex> "
                              "<regValueInHex or numRegsToReadInDec> <regSizeInBytes>\r\n \n";
    const std::string four =
        " \n I2C: 0x30 = 0xa0 \n I2C: 0x31 = 0xa1 \n I2C: 0x32 = 0xa2 \n I2C: 0x33 = 0xa3 \n \n";
    const std::string two = " \n I2C: 0x30 = 0xa0 \n I2C: 0x31 = 0xa1 \n \n";
    const std::string wide = " \n I2C: 0x30 = 0x30a0 \n I2C: 0x31 = 0x31a1 \n \n";
    const std::string ok8 = " \n I2C: DrvI2cWrite8 OK !!!\n \n", ok16 = " \n I2C: DrvI2cWrite16 OK !!!\n \n";
    const std::string invalid = " I2C: Invalid device address\n" + usage;
    const struct {
        std::vector<const char *> words;
        std::string out, line; ///< the transfer; empty when the device must stay closed
        int status = 0;
        const char *fails = nullptr;
        std::string err = "";
    } cases[] = {
        // clang-format off
        {{"-r", "E2", "30"}, four, "r8 30 4"},
        {{"-r", "E2"}, " \n I2C: 0x00 = 0x70 \n I2C: 0x01 = 0x71 \n I2C: 0x02 = 0x72 \n I2C: 0x03 = 0x73 \n \n",
         "r8 00 4"},
        {{"-r", "0x1e2", "0x130", "2"}, two, "r8 30 2"}, {{"-r", "E2", "30", "2", "2"}, wide, "r16 30 2"},
        {{"-r", "E2", "30", "2", "258"}, wide, "r16 30 2"}, {{"-r", "E2", "30", "258", "7"}, two, "r8 30 2"},
        {{"-r", "E2", "30", "2", "0"}, two, "r8 30 2"}, {{"-r", "E2", "30", "2", "3"}, two, "r8 30 2"},
        {{"-r", "E2", "FF", "2"}, " \n I2C: 0xff = 0x6f \n I2C: 0x00 = 0x70 \n \n", "r8 ff 2"},
        {{"-r", "E2", "30", "0"}, " \n \n", "r8 30 0"}, {{"-b", "E2", "30", "4"}, four, "r 30 4"},
        {{"-b", "E2", "30", "4", "1", "more"}, four, "r 30 4"},
        {{"-b", "E2", "30", "4", "2"}, " I2C ERROR: Only Read 8 bits for block !!!\n", "none", -1},
        {{"-w", "E2", "30", "5A"}, ok8, "w 30 5a"}, {{"-w", "E2", "30", "15B"}, ok8, "w 30 5b"},
        {{"-w", "E2", "30"}, ok8, "w 30 00"}, // not the value of the call before
        {{"-w", "E2", "31", "5A5B", "2"}, ok16, "w16 31 5a5b"},
        {{"-r", "E2", "30"}, " \n I2C: Read ERROR !!!\n \n", "r8 30 4", 0, "r8"},
        {{"-r", "E2", "30", "2", "2"}, " \n I2C: Read ERROR !!!\n \n", "r16 30 2", 0, "r16"},
        {{"-b", "E2", "30"}, " \n I2C: Read Block ERROR !!!\n \n", "r 30 4", 0, "r"},
        {{"-w", "E2", "30", "1"}, " \n I2C: Write ERROR !!!\n \n", "w 30 01", 0, "w"},
        {{"-w", "E2", "30", "1", "2"}, " \n I2C: Write ERROR !!!\n \n", "w16 30 0001", 0, "w"},
        {{"-r", "E2"}, "", "none", -3, "select", "@drvSrc/drvI2c|DrvI2cTestMain: DrvI2cOpen(226)"},
        {{"-r", "0"}, invalid, "", -1}, {{"-w", "100", "30", "5A"}, invalid, "", -1}, {{}, usage, "", -1},
        {{"-r"}, usage, "", -1}, {{"-x", "E2"}, usage, "", -1}, {{"-rb", "E2", "30"}, usage, "", -1},
        // clang-format on
    };
    for (const auto &c : cases) {
        std::string name = "i2c", shown;
        std::vector<std::string> words(c.words.begin(), c.words.end());
        std::vector<char *> argv = {name.data()};
        for (std::string &word : words) {
            argv.push_back(word.data());
            shown += " " + word;
        }
        argv.push_back(nullptr);
        for (unsigned i = 0; i < 256; ++i)
            board.regs[i] = static_cast<uint8_t>(i + 0x70);
        if (c.fails != nullptr)
            board.Fail(c.fails, 1, EIO, 1, -3);
        const Printed printed = Capture([&] {
            EXPECT_EQ(DrvI2cTestMain(static_cast<int>(argv.size()) - 1, argv.data()), c.status) << shown;
        });
        EXPECT_EQ(printed.out, c.out) << shown;
        EXPECT_EQ(Locate(printed.err), c.err) << shown;
        Lines traffic = board.Take(), expected;
        EXPECT_EQ(std::count(traffic.begin(), traffic.end(), "lock"),
                  std::count(c.out.begin(), c.out.end(), '\n'))
            << shown << ": one lock per line";
        EXPECT_EQ(std::count(traffic.begin(), traffic.end(), "lock"),
                  std::count(traffic.begin(), traffic.end(), "unlock"));
        std::erase(traffic, "lock");
        std::erase(traffic, "unlock");
        if (!c.line.empty()) {
            expected = {"open /dev/dev_i2c", "select e2", c.line, "close /dev/dev_i2c"};
            std::erase(expected, "none");
        }
        EXPECT_EQ(traffic, expected) << shown;
    }
}

class Link : public BoardTest
{
  protected:
    uint8_t bytes[300] = {};
    void SetUp() override { AttachLink(); }
};

TEST_F(Link, ReflectGroupOfEveryRegister)
{
    const struct {
        int first, last;
        uint8_t bit;
    } groups[] = {
        {0x00, 0x2F, 0},    {0x30, 0x3B, 0x04}, {0x3C, 0x3E, 0x08}, {0x3F, 0x52, 0x10}, {0x53, 0x5E, 0x20},
        {0x5F, 0x61, 0x40}, {0x62, 0x63, 0x80}, {0x64, 0x70, 0x01}, {0x71, 0x71, 0x02}, {0x72, 0x92, 0x04},
        {0x93, 0x96, 0x08}, {0x97, 0xA3, 0x10}, {0xA4, 0xA7, 0x20}, {0xA8, 0xAB, 0x40}, {0xAC, 0xC9, 0x80},
        {0xCA, 0xCC, 0x01}, {0xCD, 0xF0, 0x02}, {0xF1, 0xFD, 0x04}, {0xFE, 0xFF, 0},
    };
    int seen = 0;
    for (const auto &group : groups)
        for (int reg = group.first; reg <= group.last; ++reg, ++seen)
            EXPECT_EQ(CXD3193AR_ReflectBit(static_cast<uint8_t>(reg)), group.bit) << reg;
    EXPECT_EQ(seen, 256);
}

TEST_F(Link, CountsAndGroupsAreCheckedBeforeAnyTraffic)
{
    for (int count : {0, 33, -1, 256, INT32_MIN, INT32_MAX}) {
        const Printed printed =
            Capture([&] { EXPECT_EQ(CXD3193AR_Read(0x30, bytes, count), CXD3193AR_FAILED); });
        EXPECT_EQ(Locate(printed.err),
                  "@ispCXD3193AR|CXD3193AR_Read: [kel_isp] Error: CXD3193AR_Read count.\n");
    }
    const std::string group = "Error: Reflect Bit1 != Bit2.\n", bad = "Error: CXD3193AR_Write count.\n";
    const struct {
        uint8_t first;
        int count;
        std::string refused;
    } writes[] = {
        {0x30, 0, bad},   {0x30, 257, bad}, {0x30, -1, bad},  {0x30, INT32_MIN, bad}, {0x3B, 2, group},
        {0x3E, 2, group}, {0x2F, 2, group}, {0x71, 2, group}, {0x74, 32, group},      {0x30, 256, group},
        {0x3C, 3, ""},    {0x75, 30, ""},   {0x0E, 1, ""},    {0x3B, 1, ""},          {0xFF, 2, ""},
        {0x3B, 56, ""}, // both ends in groups with the same bit
    };
    for (const auto &w : writes) {
        const Printed printed = Capture([&] {
            EXPECT_EQ(CXD3193AR_Write(w.first, bytes, w.count), w.refused.empty() ? 0 : CXD3193AR_FAILED)
                << +w.first;
        });
        EXPECT_EQ(Locate(printed.err),
                  w.refused.empty() ? "" : "@ispCXD3193AR|CXD3193AR_Write: [kel_isp] " + w.refused)
            << +w.first << ' ' << w.count;
        EXPECT_EQ(board.Take().size(), w.refused.empty() ? 4U : 0U);
    }
    EXPECT_EQ(CXD3193AR_Write(0x31, bytes, 256), 0); // what the record's count cannot carry writes nothing
    EXPECT_EQ(board.Take(), Lines({"r 20 3", "sleep 1000", "w 31", "sleep 1000"}));
    EXPECT_EQ(CXD3193AR_Read(0xF0, bytes, 32), 0);
    EXPECT_EQ(board.Take(), Lines({"r f0 32", "sleep 1000"}));
    EXPECT_EQ(gbRegAddr[31], 0x0F);
    EXPECT_EQ(gbRegAddr[32], 0);
}

TEST_F(Link, FailuresAreRetriedPrintedCountedAndLogged)
{
    const auto read = [&] { return CXD3193AR_Read(0x35, bytes, 2); };
    const auto write = [&] { return CXD3193AR_Write(0x35, bytes, 2); };
    const std::string readLine = "[CXD3193AR_Read] Read Addr (0x35) failed! count = 2, ";
    const std::string writeLine = "[CXD3193AR_Write] Write 0x35 = 0x65 failed! count = 2, ";
    const Lines read2 = {"r 35 2", logged[0], logged[1], "sleep 1000"};
    const Lines write2 = {"w 35 65 0a", logged[0], logged[1], "sleep 1000"};
    const struct {
        std::function<int()> access;
        int retries, failures, status;
        std::string err, log;
        std::vector<Lines> lines;
    } cases[] = {
        // clang-format off
        {read, 2, 3, -6, readLine + "2 ms\n" + readLine + "5 ms\n" + readLine + "8 ms\n",
         "0, 2, 17\n1, 5, 18\n2, 8, 19\n", {read2, read2, read2}},
        {read, 1, 1, 0, readLine + "2 ms\n", "0, 2, 17\n", {read2, {"r 35 2", "sleep 1000"}}},
        {read, -5, 9, -6, readLine + "2 ms\n", "0, 2, 17\n", {read2}},
        {write, 1, 2, -6, writeLine + "2 ms\n" + writeLine + "5 ms\n", "0, 2, 17\n1, 5, 18\n",
         {{"r 20 3", "sleep 1000"}, write2, write2}},
        // clang-format on
    };
    for (const auto &c : cases) {
        board.Reset();
        AttachLink();
        board.transferNs = 2000000;
        board.regs[0x35] = 0x12;
        giI2cErrRetry = c.retries;
        giI2cErrCount = 16;
        bytes[0] = 0x65;
        bytes[1] = 0x0A;
        board.Fail(c.lines.back()[0], 1, EIO, c.failures);
        const Printed printed = Capture([&] { EXPECT_EQ(c.access(), c.status); });
        EXPECT_EQ(printed.out + printed.err, c.err);
        Lines expected;
        for (const Lines &lines : c.lines)
            expected.insert(expected.end(), lines.begin(), lines.end());
        EXPECT_EQ(board.Take(), expected);
        std::string log = board.ReadFile(csv);
        const std::string stamp = "2024/05/01 12:00:00, ";
        for (size_t at = 0; (at = log.find(stamp, at)) != std::string::npos;)
            log.erase(at, stamp.size());
        EXPECT_EQ(log, c.log);
        EXPECT_EQ(giI2cErrCount, 16 + std::count(log.begin(), log.end(), '\n'));
        EXPECT_EQ(bytes[0] << 8 | bytes[1], c.status == 0 ? 0x1200 : 0x650A) << "untouched on failure";
        EXPECT_EQ(board.regs[0x35], 0x12);
    }
    EXPECT_EQ(giI2cReadErrCount, 0);
}

TEST_F(Link, LogWithoutItsFolder)
{
    EXPECT_EQ(CXD3193AR_LogI2cErr(5, 17, 5000000000), 0);
    EXPECT_EQ(board.ReadFile(csv), "2024/05/01 12:00:00, 5, 5000000000, 17\n");
    std::filesystem::remove_all(board.RealPath("/mnt/nand"));
    EXPECT_EQ(Capture([&] { EXPECT_EQ(CXD3193AR_LogI2cErr(0, 1, 3), -1); }).err, "fopen failed!\n");
}

TEST_F(Link, WriteWaitsForTheReflectRegisters)
{
    bytes[0] = 0x5A;
    for (unsigned reg : {0x20U, 0x21U, 0x22U}) {
        board.nowNs = FakeBoard::startNs;
        board.regs[reg] = 0x01;
        board.onCall = [&](const std::string &) { board.regs[reg] = board.ElapsedMs() < 20 ? 1 : 0; };
        EXPECT_EQ(CXD3193AR_Write(0x30, bytes, 1), 0);
        EXPECT_EQ(board.Take(), Lines({"r 20 3", "sleep 1000", "sleep 10000", "r 20 3", "sleep 1000",
                                       "sleep 10000", "r 20 3", "sleep 1000", "w 30 5a", "sleep 1000"}));
    }
}

TEST_F(Link, ReflectTimeoutAndItsLimits)
{
    const std::string place = "@ispCXD3193AR|CXD3193AR_Write: [kel_isp] Error: ";
    board.regs[0x22] = 1;
    const struct {
        std::function<void(const std::string &)> onCall;
        int polls;
        std::string message;
    } cases[] = {
        {nullptr, 455, "Read reflect registers timeout.\n"}, // 11 ms for each poll: 5005 ms
        {[&](const std::string &line) {                      // 5000 ms are not too many, 5001 are
             board.nowNs =
                 line == "sleep 10000" ? FakeBoard::startNs + 4990 * 1000000LL + 999999 : board.nowNs;
             board.nowNs += line == "sleep 10000" && board.lines.size() > 10 ? 1 : 0;
         },
         4, "Read reflect registers timeout.\n"},
        {[&](const std::string &line) { board.nowNs = line == "r 20 3" ? FakeBoard::startNs : board.nowNs; },
         501, "Read reflect registers timeout count.\n"},
    };
    for (const auto &c : cases) {
        board.nowNs = FakeBoard::startNs;
        board.onCall = c.onCall;
        const Printed printed =
            Capture([&] { EXPECT_EQ(CXD3193AR_Write(0x30, bytes, 1), CXD3193AR_FAILED); });
        EXPECT_EQ(Locate(printed.err), place + c.message);
        const Lines lines = board.Take();
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "r 20 3"), c.polls);
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "sleep 10000"), c.polls);
        EXPECT_EQ(lines.size(), 3U * static_cast<unsigned>(c.polls)) << "nothing is written";
    }
}

TEST_F(Link, FailingPollReadEndsTheWrite)
{
    board.Fail("r 20", 1);
    const Printed printed = Capture([&] { EXPECT_EQ(CXD3193AR_Write(0x30, bytes, 1), CXD3193AR_FAILED); });
    EXPECT_EQ(printed.err, "[CXD3193AR_Read] Read Addr (0x20) failed! count = 3, 0 ms\n");
    EXPECT_EQ(board.Take(), Lines({"r 20 3", logged[0], logged[1], "sleep 1000"}));
}

TEST_F(Link, ClockFailuresAreReportedAndTheTransferGoesOn)
{
    const std::string out = "clock_gettime failed.\nGetMsFromStart failed!\n",
                      clockOnly = "clock_gettime failed.\n";
    const std::string place = "@ispCXD3193AR|CXD3193AR_Write: [kel_isp] Error: ";
    const std::string attempt = "[CXD3193AR_Write] Write 0x30 = 0x00 failed! count = 1, ";
    board.traceClock = true;
    EXPECT_EQ(CXD3193AR_Write(0x30, bytes, 1), 0);
    EXPECT_EQ(board.Take(),
              Lines({"clock 1", "clock 1", "r 20 3", "sleep 1000", "clock 1", "w 30 00", "sleep 1000"}));

    // The clock is read: 1 poll start, 2 read start, 3 poll check, 4 read start, 5 write start, 6 failure.
    const struct {
        int nth;
        std::string out, err;
    } cases[] = {
        {1, clockOnly, place + "GetMsFromStart failed.\n" + attempt},
        {2, out, attempt},
        {3, clockOnly, place + "dwEnd < 0 || dwEnd < dwStart.\n" + attempt},
        {5, out, attempt},
        {6, out, attempt},
    };
    for (const auto &c : cases) {
        giI2cErrRetry = 1;
        board.regs[0x20] = 1;
        board.onCall = [&](const std::string &line) {
            board.regs[0x20] = line == "sleep 10000" ? 0 : board.regs[0x20];
        };
        board.Fail("w", 1);
        board.Fail("clock 1", c.nth);
        const Printed printed = Capture([&] { EXPECT_EQ(CXD3193AR_Write(0x30, bytes, 1), 0) << c.nth; });
        EXPECT_EQ(printed.out, c.out) << c.nth;
        EXPECT_EQ(Locate(printed.err).substr(0, c.err.size()), c.err) << c.nth;
    }
    board.regs[0x20] = 1; // a clock that runs backwards
    board.onCall = [&](const std::string &line) {
        if (line != "sleep 10000")
            return;
        board.regs[0x20] = 0;
        board.nowNs = FakeBoard::startNs / 2;
    };
    const Printed printed = Capture([&] { EXPECT_EQ(CXD3193AR_Write(0x30, bytes, 1), 0); });
    EXPECT_EQ(Locate(printed.err), place + "dwEnd < 0 || dwEnd < dwStart.\n");
}

} // namespace
