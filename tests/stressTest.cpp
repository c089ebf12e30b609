// SPDX-License-Identifier: MIT
//
// The I2C stress test as a program: how it ends, what it leaves on the flash, and that its counters agree
// exactly with the faults that the board injected. Nothing here waits for a time; everything waits for what
// it observes.
#include "programRun.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

namespace
{

const std::string kFinish = "=================  Finish I2C test. ================ \n";
const std::string kStopped = "camStat received SIGTERM!\n";
const Words kFast = {"--speed", "1000"};

/// Files of the board's flash whose names begin with `prefix`.
Words FlashFiles(const SimBoard &board, const std::string &prefix)
{
    Words found;
    for (const auto &entry : std::filesystem::directory_iterator(board.Path("mnt/nand")))
        if (entry.path().filename().string().starts_with(prefix))
            found.push_back(entry.path());
    return found;
}

std::string OnlyFile(const SimBoard &board, const std::string &prefix)
{
    const Words files = FlashFiles(board, prefix);
    EXPECT_EQ(files.size(), 1U) << prefix;
    return files.empty() ? "" : ReadFile(files[0]);
}

/// The last summary in the output: three lines.
std::string LastSummary(const std::string &out)
{
    const size_t at = out.rfind("I2C Error Counts");
    return at == std::string::npos ? "" : out.substr(at, out.find("]:\n", at) + 3 - at);
}

TEST(Stress, FinishesTheIterationAndKeepsItsSummary)
{
    const std::string stamp = "\\[[0-9]{4}(/[0-9]{2}){2} [0-9]{2}(:[0-9]{2}){2}\\]";
    const std::string summary =
        "^I2C Error Counts = 0\nI2C Read Error Counts = 0\n" + stamp + stamp + "\\[[0-9]+\\]:\n$";
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
        const SimBoard board;
        Started test(board.Command({"camStat", "-t", "1", "3"}, kFast));
        ASSERT_TRUE(test.AwaitOut("]:\n", 3)) << test.Out() << test.Err();
        kill(test.Pid(), number);
        const Outcome outcome = test.Wait();
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.err, kFinish);
        EXPECT_EQ(Count(outcome.out, "=== InfoOut ==="), Count(outcome.out, "]:\n"));
        EXPECT_TRUE(outcome.out.ends_with("]:\n" + kStopped)) << outcome.out;
        const std::string result = OnlyFile(board, "I2cTestResult_");
        EXPECT_EQ(result, LastSummary(outcome.out));
        EXPECT_TRUE(Matches(result, summary)) << result;
        EXPECT_EQ(FlashFiles(board, "dmesg_").size(), 1U);
    }
}

/// The command through the shell: `script` has it as "$@".
Words Shell(const std::string &script, const Words &command)
{
    return With({"/bin/sh", "-c", script, "sh"}, command);
}

TEST(Stress, AReaderThatIsGoneDoesNotCostTheResult)
{
    const SimBoard board;
    const Outcome outcome =
        Started(Shell("\"$@\" | head -n 40", board.Command({"camStat", "-t", "1", "3"}, kFast))).Wait();
    EXPECT_EQ(outcome.err, kFinish);
    EXPECT_TRUE(OnlyFile(board, "I2cTestResult_").ends_with("]:\n"));
    EXPECT_EQ(FlashFiles(board, "dmesg_").size(), 1U);
}

TEST(Stress, OutlivesItsTerminalUnderNohup)
{
    const SimBoard board;
    Started test(Shell("trap '' HUP; exec \"$@\"", board.Command({"camStat", "-t", "1", "3"}, kFast)));
    ASSERT_TRUE(test.AwaitOut("]:\n"));
    kill(test.Pid(), SIGHUP);
    EXPECT_TRUE(test.AwaitOut("]:\n", 30)) << test.Err();
    kill(test.Pid(), SIGTERM);
    EXPECT_EQ(test.Wait().status, 0);
}

TEST(Stress, AnInterruptOfTheShellIsForTheTest)
{
    const SimBoard board;
    ASSERT_EQ(board.Sim({"fault", "system:nth=1,delay=5s"}).status, 0);
    Started test(board.Command({"camStat", "-t", "1", "3"}));
    while (!Matches(board.Sim({"fault", "list"}).out, " 1  system"))
        ASSERT_TRUE(test.Out().empty()) << test.Out();
    kill(test.Pid(), SIGINT);
    ASSERT_FALSE(test.AwaitOut("]:\n")) << test.Out();
    EXPECT_EQ(test.Wait().out, kStopped);
    EXPECT_EQ(OnlyFile(board, "I2cTestResult_"), "");
    EXPECT_EQ(FlashFiles(board, "dmesg_").size(), 1U);
}

TEST(Stress, AFailureInTheFirstIterationWritesIterationZero)
{
    for (const int retries : {0, 3}) {
        const SimBoard board;
        const std::string times = std::to_string(retries + 1);
        const Outcome outcome = board.Run({"camStat", "-t", "1", std::to_string(retries)},
                                          With(kFast, {"--fault", "i2c.read:reg=0x1E"}));
        EXPECT_EQ(outcome.status, 0);
        EXPECT_NE(outcome.out.find("InfoRawAvg failed.\nInfoOut failed!\nI2C Error Counts = " + times + "\n"),
                  std::string::npos);
        EXPECT_TRUE(outcome.out.ends_with("][0]:\n")) << outcome.out;
        EXPECT_TRUE(outcome.err.ends_with(kFinish)) << outcome.err;
        EXPECT_EQ(OnlyFile(board, "I2cTestResult_"), LastSummary(outcome.out));
        const std::string log = ReadFile(board.Path("mnt/nand/I2cErr.csv"));
        EXPECT_EQ(Count(log, "\n"), retries + 1) << log;
        EXPECT_TRUE(Matches(log, " [0-9:]{8}, " + std::to_string(retries) + ", [0-9]+, " + times + "\n$"))
            << log;
        // The capture holds this run's controller messages, and no others.
        const std::string capture = OnlyFile(board, "dmesg_");
        EXPECT_EQ(Count(capture, "\n"), retries + 1) << capture;
        EXPECT_EQ(Count(capture, "read of slave 0xe2"), retries + 1) << capture;
    }
}

TEST(Stress, AMissingOrFullFlashIsSaidAndTheToolStillEnds)
{
    const std::string result = "/mnt/nand/I2cTestResult_[0-9]{14} failed!\n" + kFinish + "$";
    const struct {
        const char *fault;
        std::string err;
        size_t captures;
    } cases[] = {{"flash:missing", "fopen failed!\n(.*\n)*fopen " + result, 0},
                 {"fopen:/mnt/nand", "fopen failed!\n(.*\n)*fopen " + result, 0}, // and the shell could write
                 {"flash:full", "write " + result, 1}};
    for (const auto &c : cases) {
        const SimBoard board;
        const Outcome outcome = board.Run({"camStat", "-t", "1", "0"},
                                          With(kFast, {"--fault", c.fault, "--fault", "i2c.read:reg=0x18"}));
        EXPECT_EQ(outcome.status, 0);
        EXPECT_TRUE(Matches(outcome.err, c.err)) << outcome.err;
        EXPECT_EQ(FlashFiles(board, "dmesg_").size(), c.captures);
    }
}

TEST(Stress, AStopBeforeTheFirstIterationLeavesAnEmptyResult)
{
    const SimBoard board; // the failing call says that the signal handler stands
    Started test(
        board.Command({"camStat", "-t", "1", "0"}, {"--fault", "fcntl", "--fault", "slave:delay=2s"}));
    while (test.Err().empty())
        usleep(1000);
    kill(test.Pid(), SIGTERM);
    EXPECT_EQ(test.Wait().out, kStopped);
    EXPECT_EQ(OnlyFile(board, "I2cTestResult_"), "");
}

// One transfer in a hundred fails at random, over CAMSTAT_STRESS_ITERATIONS iterations.
TEST(Stress, CountsExactlyWhatTheBoardInjected)
{
    const char *wanted = getenv("CAMSTAT_STRESS_ITERATIONS");
    const int iterations = wanted != nullptr ? atoi(wanted) : 300;
    const SimBoard board;
    ASSERT_EQ(board.Sim({"fault", "i2c.read:chance=0.01,seed=7"}).status, 0);
    Started test(board.Command({"camStat", "-t", "1", "5"}, kFast));
    ASSERT_TRUE(test.AwaitOut("][" + std::to_string(iterations / 10) + "]:\n")) << test.Err();
    const long residentEarly = test.ResidentKiB();
    const long openEarly = test.Descriptors();
    ASSERT_TRUE(test.AwaitOut("][" + std::to_string(iterations - 1) + "]:\n")) << test.Err();
    const long residentLate = test.ResidentKiB();
    // Memory is looked at in a long run, without what sanitizers hold back.
    EXPECT_TRUE(wanted == nullptr || residentLate <= residentEarly + 64)
        << residentEarly << " KiB, later " << residentLate;
    EXPECT_LE(labs(test.Descriptors() - openEarly), 1); // the log of errors comes and goes
    printf("%d iterations, %ld KiB, later %ld KiB\n", iterations, residentEarly, residentLate);
    kill(test.Pid(), SIGTERM);
    const Outcome outcome = test.Wait();

    const std::string list = board.Sim({"fault", "list"}).out;
    // " 1  board   9000   90  i2c.read:..." : calls, then hits, before the rule.
    const int injected = atoi(list.c_str() + list.find_last_of(' ', list.find("  i2c.read:chance") - 1));
    EXPECT_GT(injected, iterations / 20);
    printf("%d transfers failed\n", injected);
    EXPECT_EQ(Count(outcome.err, " failed! count = "), injected);
    EXPECT_EQ(Count(ReadFile(board.Path("mnt/nand/I2cErr.csv")), "\n"), injected);
    EXPECT_EQ(LastSummary(outcome.out).find("I2C Error Counts = " + std::to_string(injected) + "\n"), 0U)
        << LastSummary(outcome.out);
    EXPECT_EQ(Count(OnlyFile(board, "dmesg_"), "\n"), injected);
}

} // namespace
