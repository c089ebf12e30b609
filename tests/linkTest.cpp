// SPDX-License-Identifier: MIT
//
// The camera bus and the block transfer: records, retries, the reflect handshake, limits, messages and the
// error log; and the register utility, by its command lines.
#include "fakeBoard.h"

#include "kelisp/drvI2c.h"
#include "kelisp/ispCXD3193AR.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

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
    Expect([&] { return DrvI2cOpen(&handle, 0xE2); }, 0, "", {"open /dev/dev_i2c", "select e2"});
    EXPECT_EQ(board.open.at(handle.fd), "/dev/dev_i2c");
    board.Fail("close");
    EXPECT_EQ(DrvI2cClose(&handle), -1);
    board.Take();

    board.Fail("open", 1, ENOENT, 1, -4);
    Expect([&] { return DrvI2cOpen(&handle, 0xE2); }, -1, "", {"open /dev/dev_i2c"});
    EXPECT_EQ(handle.fd, -4);
    board.Fail("select", 1, EREMOTEIO, 1, -3);
    board.Fail("close", 1, EIO);
    Expect([&] { return DrvI2cOpen(&handle, 0xFF); }, -3, "",
           {"open /dev/dev_i2c", "select ff", "close /dev/dev_i2c"});
    EXPECT_EQ(errno, EREMOTEIO);
    EXPECT_LT(handle.fd, 0);
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
        const char *words;
        std::string out, line; ///< the transfer; empty when the device must stay closed
        int status = 0;
        const char *fails = nullptr;
        std::string err = "";
    } cases[] = {
        // clang-format off
        {"-r E2 30", four, "r8 30 4"},
        {"-r E2", " \n I2C: 0x00 = 0x70 \n I2C: 0x01 = 0x71 \n I2C: 0x02 = 0x72 \n I2C: 0x03 = 0x73 \n \n", "r8 00 4"},
        {"-r 0x1e2 0x130 2", two, "r8 30 2"}, {"-r E2 30 2 2", wide, "r16 30 2"},
        {"-r E2 30 2 258", wide, "r16 30 2"}, {"-r E2 30 258 7", two, "r8 30 2"},
        {"-r E2 30 2 0", two, "r8 30 2"}, {"-r E2 30 2 3", two, "r8 30 2"},
        {"-r E2 FF 2", " \n I2C: 0xff = 0x6f \n I2C: 0x00 = 0x70 \n \n", "r8 ff 2"},
        {"-r E2 30 0", " \n \n", "r8 30 0"}, {"-b E2 30 4", four, "r 30 4"},
        {"-b E2 30 4 1 more", four, "r 30 4"},
        {"-b E2 30 4 2", " I2C ERROR: Only Read 8 bits for block !!!\n", "none", -1},
        {"-w E2 30 5A", ok8, "w 30 5a"}, {"-w E2 30 15B", ok8, "w 30 5b"},
        {"-w E2 30", ok8, "w 30 00"}, // not the value of the call before
        {"-w E2 31 5A5B 2", ok16, "w16 31 5a5b"},
        {"-r E2 30", " \n I2C: Read ERROR !!!\n \n", "r8 30 4", 0, "r8"},
        {"-r E2 30 2 2", " \n I2C: Read ERROR !!!\n \n", "r16 30 2", 0, "r16"},
        {"-b E2 30", " \n I2C: Read Block ERROR !!!\n \n", "r 30 4", 0, "r"},
        {"-w E2 30 1", " \n I2C: Write ERROR !!!\n \n", "w 30 01", 0, "w"},
        {"-w E2 30 1 2", " \n I2C: Write ERROR !!!\n \n", "w16 30 0001", 0, "w"},
        {"-r E2", "", "none", -3, "select", " ERROR  (drvSrc/drvI2c|DrvI2cTestMain|): DrvI2cOpen(226)"},
        {"-r 0", invalid, "", -1}, {"-w 100 30 5A", invalid, "", -1}, {"", usage, "", -1},
        {"-r", usage, "", -1}, {"-x E2", usage, "", -1}, {"-rb E2 30", usage, "", -1},
        // clang-format on
    };
    for (const auto &c : cases) {
        Lines words = {"i2c"};
        std::istringstream in(c.words);
        for (std::string word; in >> word;)
            words.push_back(word);
        std::vector<char *> argv;
        for (std::string &word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        for (unsigned i = 0; i < 256; ++i)
            board.regs[i] = static_cast<uint8_t>(i + 0x70);
        if (c.fails != nullptr)
            board.Fail(c.fails, 1, EIO, 1, -3);
        const Printed printed = Capture([&] {
            EXPECT_EQ(DrvI2cTestMain(static_cast<int>(words.size()), argv.data()), c.status) << c.words;
        });
        EXPECT_EQ(printed.out, c.out) << c.words;
        EXPECT_EQ(printed.err, c.err) << c.words;
        Lines traffic = board.Take(), expected;
        for (const char *lock : {"lock", "unlock"})
            EXPECT_EQ(static_cast<long>(std::erase(traffic, lock)),
                      std::count(c.out.begin(), c.out.end(), '\n'))
                << c.words << ": one lock per line";
        if (!c.line.empty()) {
            expected = {"open /dev/dev_i2c", "select e2", c.line, "close /dev/dev_i2c"};
            std::erase(expected, "none");
        }
        EXPECT_EQ(traffic, expected) << c.words;
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
    int seen = 0;
    for (const Lines &group : ReadTable("registers.txt", "group"))
        for (int reg = std::stoi(group[0], nullptr, 16); reg <= std::stoi(group[1], nullptr, 16);
             ++reg, ++seen)
            EXPECT_EQ(CXD3193AR_ReflectBit(static_cast<uint8_t>(reg)), std::stoi(group[2], nullptr, 16))
                << reg;
    EXPECT_EQ(seen, 256);
}

// A failing access: its result, and what it prints without the location.
void ExpectRefused(const std::function<int()> &access, const std::string &function,
                   const std::string &message)
{
    const Printed printed = Capture([&] { EXPECT_EQ(access(), CXD3193AR_FAILED) << message; });
    EXPECT_EQ(printed.err, " ERROR  (ispCXD3193AR|" + function + "|): [kel_isp] Error: " + message + "\n");
}

TEST_F(Link, CountsAndGroupsAreCheckedBeforeAnyTraffic)
{
    for (const int count : {0, 33, -1, 256, INT32_MIN, INT32_MAX})
        ExpectRefused([&] { return CXD3193AR_Read(0x30, bytes, count); }, "CXD3193AR_Read",
                      "CXD3193AR_Read count.");
    const char *const group = "Reflect Bit1 != Bit2.", *const bad = "CXD3193AR_Write count.";
    const struct {
        uint8_t first;
        int count;
        const char *message;
    } refused[] = {
        {0x30, 0, bad},   {0x30, 257, bad}, {0x30, -1, bad},  {0x30, INT32_MIN, bad}, {0x3B, 2, group},
        {0x3E, 2, group}, {0x2F, 2, group}, {0x71, 2, group}, {0x74, 32, group},      {0x30, 256, group},
    };
    for (const auto &w : refused)
        ExpectRefused([&] { return CXD3193AR_Write(w.first, bytes, w.count); }, "CXD3193AR_Write", w.message);
    EXPECT_EQ(board.Take(), Lines());
    // The last one has its ends in two groups with the same bit.
    for (const auto &[first, count] :
         {std::pair(0x3C, 3), {0x75, 30}, {0x0E, 1}, {0x3B, 1}, {0xFF, 2}, {0x3B, 56}}) {
        EXPECT_EQ(CXD3193AR_Write(static_cast<uint8_t>(first), bytes, count), 0) << first;
        EXPECT_EQ(board.Take().size(), 4U);
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
    const std::string now = "2024/05/01 12:00:00, ", first = now + "0, 2, 17\n", second = now + "1, 5, 18\n";
    const struct {
        std::function<int()> access;
        int retries, failures, status;
        std::string err, log, transfer;
        size_t transfers;
    } cases[] = {
        // clang-format off
        {read, 2, 3, -6, readLine + "2 ms\n" + readLine + "5 ms\n" + readLine + "8 ms\n",
         first + second + now + "2, 8, 19\n", "r 35 2", 3},
        {read, 1, 1, 0, readLine + "2 ms\n", first, "r 35 2", 2},
        {read, -5, 9, -6, readLine + "2 ms\n", first, "r 35 2", 1},
        {write, 1, 2, -6, writeLine + "2 ms\n" + writeLine + "5 ms\n", first + second, "w 35 65 0a", 2},
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
        board.Fail(c.transfer, 1, EREMOTEIO, c.failures);
        const Printed printed = Capture([&] { EXPECT_EQ(c.access(), c.status); });
        EXPECT_TRUE(c.status == 0 || errno == EREMOTEIO) << "the device's errno";
        EXPECT_EQ(printed.out + printed.err, c.err);
        Lines expected;
        if (c.transfer[0] == 'w')
            expected = {"r 20 3", "sleep 1000"};
        for (size_t i = 0; i < c.transfers; ++i) {
            expected.push_back(c.transfer);
            if (i < static_cast<size_t>(c.failures))
                expected.insert(expected.end(), logged.begin(), logged.end());
            expected.push_back("sleep 1000");
        }
        EXPECT_EQ(board.Take(), expected);
        EXPECT_EQ(board.ReadFile(csv), c.log);
        EXPECT_EQ(giI2cErrCount, 16 + std::count(c.log.begin(), c.log.end(), '\n'));
        EXPECT_EQ(bytes[0] << 8 | bytes[1], c.status == 0 ? 0x1200 : 0x650A) << "untouched on failure";
        EXPECT_EQ(board.regs[0x35], 0x12);
    }
    EXPECT_EQ(giI2cReadErrCount, 0);
}

TEST_F(Link, LogEndsACutLineAndMayBeMissing)
{
    const std::string whole = "2026/11/22 22:28:28, 0, 3, 17\n",
                      line = "2024/05/01 12:00:00, 5, 5000000000, 17\n";
    const std::pair<std::string, std::string> logs[] = {
        {"", ""}, {whole, whole}, {whole + "2026/11", whole + "2026/11\n"}, {"2", "2\n"}};
    for (const auto &[before, kept] : logs) {
        WriteFile(csv, before);
        EXPECT_EQ(CXD3193AR_LogI2cErr(5, 17, 5000000000), 0);
        EXPECT_EQ(board.ReadFile(csv), kept + line);
    }
    std::filesystem::remove_all(board.RealPath("/mnt/nand"));
    EXPECT_EQ(Capture([&] { EXPECT_EQ(CXD3193AR_LogI2cErr(0, 1, 3), -1); }).err, "fopen failed!\n");
}

TEST_F(Link, WriteWaitsForTheReflectRegisters)
{
    bytes[0] = 0x5A;
    for (const unsigned reg : {0x20U, 0x21U, 0x22U}) {
        board.nowNs = FakeBoard::startNs;
        board.regs[reg] = 0x01;
        board.onCall = [&](const std::string &) { board.regs[reg] = board.ElapsedMs() < 20 ? 1 : 0; };
        EXPECT_EQ(CXD3193AR_Write(0x30, bytes, 1), 0);
        EXPECT_EQ(board.Take(), Lines({"r 20 3", "sleep 1000", "sleep 10000", "r 20 3", "sleep 1000",
                                       "sleep 10000", "r 20 3", "sleep 1000", "w 30 5a", "sleep 1000"}));
    }
    board.onCall = nullptr;
    board.Fail("r 20", 1);
    EXPECT_EQ(Capture([&] { EXPECT_EQ(CXD3193AR_Write(0x30, bytes, 1), CXD3193AR_FAILED); }).err,
              "[CXD3193AR_Read] Read Addr (0x20) failed! count = 3, 0 ms\n");
    EXPECT_EQ(board.Take(), Lines({"r 20 3", logged[0], logged[1], "sleep 1000"}));
}

TEST_F(Link, ReflectTimeoutAndItsLimits)
{
    const int64_t ms = 1000000;
    board.regs[0x22] = 1;
    const struct {
        std::function<void(const std::string &)> onCall;
        long polls;
        const char *message;
    } cases[] = {
        {nullptr, 455, "Read reflect registers timeout."}, // 11 ms for each poll: 5005 ms
        {[&](const std::string &line) {                    // 5000 ms are not too many, 5001 are
             board.nowNs = line == "sleep 10000" ? FakeBoard::startNs + 4991 * ms - 1 : board.nowNs;
             board.nowNs += line == "sleep 10000" && board.lines.size() > 10 ? 1 : 0;
         },
         4, "Read reflect registers timeout."},
        {[&](const std::string &line) { board.nowNs = line == "r 20 3" ? FakeBoard::startNs : board.nowNs; },
         501, "Read reflect registers timeout count."},
    };
    for (const auto &c : cases) {
        board.nowNs = FakeBoard::startNs;
        board.onCall = c.onCall;
        ExpectRefused([&] { return CXD3193AR_Write(0x30, bytes, 1); }, "CXD3193AR_Write", c.message);
        const Lines lines = board.Take();
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "r 20 3"), c.polls);
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "sleep 10000"), c.polls);
        EXPECT_EQ(lines.size(), 3U * static_cast<unsigned>(c.polls)) << "nothing is written";
    }
}

TEST_F(Link, ClockFailuresAreReportedAndTheTransferGoesOn)
{
    const std::string clockOnly = "clock_gettime failed.\n", out = clockOnly + "GetMsFromStart failed!\n";
    const std::string place = " ERROR  (ispCXD3193AR|CXD3193AR_Write|): [kel_isp] Error: ";
    const std::string attempt = "[CXD3193AR_Write] Write 0x30 = 0x00 failed! count = 1, ";
    // The clock is read: 1 poll start, 2 read start, 3 poll check, 4 read start, 5 write start, 6 failure, 7 never.
    const struct {
        int nth;
        std::string out, err;
    } cases[] = {
        {1, clockOnly, place + "GetMsFromStart failed.\n" + attempt},
        {2, out, attempt},
        {3, clockOnly, place + "dwEnd < 0 || dwEnd < dwStart.\n" + attempt},
        {5, out, attempt},
        {6, out, attempt},
        {7, "", attempt},
    };
    for (const auto &c : cases) {
        giI2cErrRetry = 1;
        board.regs[0x20] = 1;
        board.onCall = [&](const std::string &line) {
            board.regs[0x20] = line == "sleep 10000" ? 0 : board.regs[0x20];
        };
        board.Fail("w", 1);
        board.Fail("clock", c.nth);
        const Printed printed = Capture([&] { EXPECT_EQ(CXD3193AR_Write(0x30, bytes, 1), 0) << c.nth; });
        EXPECT_EQ(printed.out, c.out) << c.nth;
        EXPECT_EQ(printed.err.substr(0, c.err.size()), c.err) << c.nth;
        board.plans.clear();
    }
    board.regs[0x20] = 1; // a clock that runs backwards
    board.onCall = [&](const std::string &line) {
        if (line != "sleep 10000")
            return;
        board.regs[0x20] = 0;
        board.nowNs = FakeBoard::startNs / 2;
    };
    const Printed printed = Capture([&] { EXPECT_EQ(CXD3193AR_Write(0x30, bytes, 1), 0); });
    EXPECT_EQ(printed.err, place + "dwEnd < 0 || dwEnd < dwStart.\n");
}

} // namespace
