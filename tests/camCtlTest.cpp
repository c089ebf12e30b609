// SPDX-License-Identifier: MIT
//
// What camCtl does over time and to every row of the register map; what it prints stands in transcripts.
#include "programRun.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

namespace
{

class CamCtl : public ::testing::Test
{
  protected:
    SimBoard board;

    Outcome Run(const Words &words, const Words &options = {})
    {
        return board.Run(With({"camCtl"}, words), options);
    }
    std::vector<unsigned> Registers()
    {
        std::istringstream dump(
            Run({"dump", "--hex"}, {"--speed", "1000"}).out.substr(52)); // below the columns' heads
        std::vector<unsigned> registers;
        for (std::string word; dump >> word;)
            if (word.back() != ':')
                registers.push_back(word == "--" ? 0 : static_cast<unsigned>(std::stoul(word, nullptr, 16)));
        return registers;
    }
};

TEST_F(CamCtl, AValueThatDoesNotReadBackIsTold)
{
    // Another program changes the register in the pause behind the write.
    Started first(board.Command({"camCtl", "set", "Reg94=5"}, {"--fault", "sleep:nth=3,delay=3s"}));
    for (int i = 0; i < 100 && Run({"get", "Reg94"}).out != "Reg94 = 5\n"; ++i)
        usleep(1000);
    EXPECT_EQ(Run({"set", "Reg94=7"}).status, 0);
    const Outcome outcome = first.Wait();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "camCtl: Reg94 (0x94): wrote 0x05, reads back as 0x07\n");
    EXPECT_EQ(outcome.out, "Reg94: 0 -> 7\n");
}

struct MapRow {
    std::string name;
    unsigned reg, registers, high, low;
    bool live;

    bool IsBlock() const { return registers > 2; }
    unsigned Mask(unsigned at) const // its bits in register `at`
    {
        if (at < reg || at >= reg + registers)
            return 0;
        return IsBlock() ? 0xFF : ((2U << high) - (1U << low)) >> 8 * (at - reg) & 0xFF;
    }
};

#define KEL_FIELD(reg, high, low, name, ...) {#name, reg, 1, high, low, false},
#define KEL_WORD(reg, name, ...) {#name, reg, 2, 15, 0, false},
#define KEL_BLOCK(reg, length, name, ...) {#name, reg, length, 7, 0, false},
#define KEL_STRETCH(...) KEL_BLOCK(__VA_ARGS__)
#define KEL_READOUT(reg, high, low, name, ...) {#name, reg, 1, high, low, true},
#define KEL_READOUT_WORD(reg, bits, name, ...) {#name, reg, 2, bits - 1, 0, true},
const MapRow kMap[] = {
#include "kelisp/registerMap.def"
};

TEST_F(CamCtl, EveryRowIsReadAndWrittenByNameInItsBitsAlone)
{
    const std::vector<unsigned> initial = Registers();
    std::vector<unsigned> before = initial;
    ASSERT_EQ(before.size(), 256U);
    const std::string list = "\n" + RunPlain({"camCtl", "list"}).out, all = "\n" + Run({"get", "all"}).out;
    for (const MapRow &row : kMap) {
        unsigned least = 0, most = 0;
        char access[3] = "";
        if (!row.IsBlock())
            sscanf(list.c_str() + list.find("\n" + row.name + " "), " %*s %*s %*s %2s %u to %u", access,
                   &least, &most);
        const auto codeIn = [&row](const std::vector<unsigned> &registers) {
            const unsigned high = row.registers == 2 ? registers[row.reg + 1] << 8 : 0;
            return ((registers[row.reg] | high) & ((2U << row.high) - 1)) >> row.low;
        };
        const std::string line = "\n" + row.name + " = " + std::to_string(codeIn(initial));
        EXPECT_TRUE(row.IsBlock() || all.find(line + "\n") != std::string::npos ||
                    all.find(line + "  #") != std::string::npos)
            << line;
        if (row.live || row.name == "CisType") // not settable, or not to another type without consequences
            continue;
        EXPECT_TRUE(row.IsBlock() || (most > least && std::string(access) == "rw")) << row.name;
        const unsigned value = codeIn(before) == most ? least : most;
        std::string text = std::to_string(value);
        for (unsigned i = 0; row.IsBlock() && i < row.registers; ++i)
            text = (i == 0 ? "" : text + ",") + std::to_string(1 + i);
        EXPECT_EQ(Run({"set", row.name + "=" + text}, {"--speed", "1000"}).status, 0) << row.name << text;
        const std::vector<unsigned> after = Registers();
        for (unsigned at = 0x23; at < 256; ++at) {
            const unsigned mask = row.Mask(at); // nonzero in the row's own registers alone
            const unsigned wanted = mask == 0       ? 0
                                    : row.IsBlock() ? 1 + at - row.reg
                                                    : value << row.low >> 8 * (at - row.reg) & 0xFF;
            EXPECT_EQ(after[at], (before[at] & ~mask) | wanted) << row.name << at;
        }
        before = after;
    }
}

TEST_F(CamCtl, WatchGivesALineEachTimeAndEmptyCellsForWhatFailed)
{
    const Outcome csv = Run({"watch", "--csv", "--count=3", "--every=20ms", "@live", "MwbB", "0x37",
                             "analog_gain", "manual_wbb", "MwbB"},
                            {"--fault", "i2c.read:reg=MwbB,after=1"});
    EXPECT_EQ(csv.status, 2);
    const std::string live = ",0,0,0,545,3781,32,108,92,1024,";
    EXPECT_TRUE(Matches(
        csv.out, "^time_s,DnStatus,MirisStatus,LngExpFrm,ExpTime,AnlGain,DgtlGain,WbbGain,WbrGain,RawAvg,"
                 "MwbB,0x37,analog_gain,manual_wbb\n0.000" +
                     live + "108,0,1.083,\n0.0[0-9]{2}" + live + ",0,1.083,\n0.[01][0-9]{2}" + live +
                     ",0,1.083,\n$"))
        << csv.out;
    EXPECT_NE(csv.err.find("camCtl: MwbB (0x3E): read failed after 4 attempts: Input/output error\n"),
              std::string::npos);
    Started lines(board.Command({"camCtl", "watch", "--every=1h", "InfoOut"}));
    ASSERT_TRUE(lines.AwaitOut("InfoOut = 0\n"));
    kill(lines.Pid(), SIGINT);
    EXPECT_EQ(lines.Wait().status, 0);
}

// ---- The stress test

TEST_F(CamCtl, StressReadsWhatCamStatReadsAndLeavesTheSameFiles)
{
    const Words fault = {"--trace", "--speed", "1000", "--fault",
                         "i2c.read:reg=RawAvg,after=1,errno=ETIMEDOUT"};
    const auto shell = [](const std::string &script, const Words &words) {
        return Started(With({"/bin/sh", "-c", script, "sh"}, words)).Wait().out;
    };
    const auto files = [&] { return shell("ls \"$1\" | cut -c 1-7", {board.Path("mnt/nand")}); };
    const auto reads = [&](const Words &program) {
        return shell("\"$@\" 2>&1 | grep -o 'read  0x[^ ]*'", board.Command(program, fault));
    };
    const Outcome mine = Run({"stress", "--retries=1", "--no-files"}, fault);
    EXPECT_EQ(files(), "I2cErr.\n");
    EXPECT_EQ(mine.status, 1);
    EXPECT_TRUE(Matches(mine.out, "^rounds: 1 in [0-9.]+ s, [0-9.]+/s\ntransfers: 18\nfailed attempts: 2\n"
                                  "recovered: none\nlongest transfer: .*\nmost failures: RawAvg .0x1E. 2\n"
                                  "FAIL: RawAvg .0x1E. gave up after 2 attempts: Connection timed out\n$"))
        << mine.out;
    const std::string mineReads = reads({"camCtl", "stress", "--retries=1", "--no-files"});
    EXPECT_GT(Count(mineReads, "\n"), 18);
    EXPECT_EQ(mineReads, reads({"camStat", "-t", "1", "1"}));
    const std::string all = "I2cErr.\nI2cTest\ndmesg_2\n";
    EXPECT_EQ(files(), all);
    EXPECT_EQ(board.Sim({"reset"}).status, 0);
    EXPECT_EQ(Run({"stress", "--retries=1"}, fault).status, 1);
    EXPECT_EQ(files(), all);
}

TEST_F(CamCtl, StressEndsWithAVerdictAndCountsWhatTheBoardInjected)
{
    Run({"list"});
    ASSERT_EQ(board.Sim({"fault", "i2c.read:chance=0.01,seed=7"}).status, 0);
    Outcome outcome = Run({"stress", "--rounds", "300", "--json"}, {"--speed", "1000"});
    const std::string list = board.Sim({"fault", "list"}).out;
    const int injected = atoi(list.c_str() + list.find_last_of(' ', list.find("  i2c.read:chance") - 1));
    EXPECT_NE(outcome.out.find("\"transfers\":2700,\"failed_attempts\":" + std::to_string(injected) + ","),
              std::string::npos)
        << outcome.out;
    ASSERT_EQ(board.Sim({"fault", "clear"}).status, 0);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, 0}) {
        const std::string trace = board.Path("trace");
        Started stress(board.Command({"camCtl", "stress", signal != 0 ? "--time=1h" : "--time=200ms"},
                                     {"--trace=" + trace}));
        while (Count(ReadFile(trace), "RawAvg") < 3)
            usleep(1000);
        if (signal != 0)
            kill(stress.Pid(), signal);
        outcome = stress.Wait();
        EXPECT_EQ(outcome.status, 0) << signal;
        EXPECT_TRUE(outcome.out.ends_with("most failures: none\nPASS\n")) << outcome.out;
        std::filesystem::remove(trace);
    }
}

} // namespace
