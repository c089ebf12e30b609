// SPDX-License-Identifier: MIT
//
// camStat as its users meet it: the unmodified program, its texts, streams and exit statuses, on the
// simulated board.
#include "programRun.h"

#include <cstring>
#include <gtest/gtest.h>

namespace
{

// clang-format off
const char *const kUsage =
    "Usage: camStat v0.0.4 [OPTION]\n\n -s\n --reset\n Reset Sensor.\n\n -r\n --read\n Read AE/ AWB Parameter.\n\n"
    " -l [LED]\n --led  ON\n Set LEDs ON or OFF.\n\n -i [ICR]\n --icr IR_CUT\n Set ICR IR_CUT or IR_PASS.\n\n"
    " -e [Shutter] [Sensor Again] [Sensor Dgain]\n --ae 30 2000 1000\n Set AE gain and shutter.\n\n"
    " -w [RGain] [BGain]\n --awb 1.2 1.5\n Set AWB gain and Bgain.\n\n I2C test:\n --test 1 [Retry count]\n -t 1 1\n\n";
// clang-format on

const std::string kNotSupported = "Value is not supported.\n";
const std::string kDefaultUsage = std::string("default:\n") + kUsage;

Words CamStat(const Words &words)
{
    return With({"camStat"}, words);
}

/// Options of camSim, at which no pause takes long.
Words Fast(const Words &options = {})
{
    return With({"--speed", "100"}, options);
}

struct CommandLine {
    Words words;
    int status;
    std::string out;
    const char *complaint = ""; // of getopt_long, on standard error
};

// Without a board, everything that would start it prints an error: an
// empty standard error shows that nothing was started.
TEST(CommandLine, EndsBeforeAnythingIsStarted)
{
    const CommandLine lines[] = {
        // clang-format off
        {{}, 0, kUsage}, {{"-h"}, 0, kUsage}, {{"--help"}, 0, kUsage}, {{"--led=ON"}, 0, kUsage},
        {{"-lON"}, 0, kUsage}, {{"-i"}, 0, kDefaultUsage, "option requires an argument -- 'i'"},
        {{"-t"}, 0, kDefaultUsage, "option requires an argument -- 't'"},
        {{"-w"}, 0, kDefaultUsage, "option requires an argument -- 'w'"},
        {{"-x"}, 0, kDefaultUsage, "invalid option -- 'x'"},
        {{"--icr", "IR_CUT"}, 0, kDefaultUsage, "unrecognized option '--icr'"},
        {{"--test", "1", "1"}, 0, kDefaultUsage, "unrecognized option '--test'"},
        {{"-e", "30", "2000"}, 0, kUsage}, {{"-w", "1.2"}, 0, kUsage}, {{"-t", "1"}, 0, kUsage},
        {{"-t", "2", "5"}, 0, kUsage}, {{"-t", "", ""}, 0, kUsage}, {{"-l", "maybe"}, 255, kNotSupported},
        {{"-l", ""}, 255, kNotSupported}, {{"--ircut", "ON"}, 255, kNotSupported},
        {{"-r", "-l", "ON"}, 255, kNotSupported},
        {{"-l", "on", "-i", "IR_CUT"}, 255, "Set LEDs on\n" + kNotSupported},
        // clang-format on
    };
    for (const CommandLine &line : lines) {
        const Outcome outcome = RunPlain(CamStat(line.words));
        const std::string shown = testing::PrintToString(line.words);
        EXPECT_EQ(outcome.status, line.status) << shown;
        EXPECT_EQ(outcome.out, line.out) << shown;
        if (*line.complaint == '\0')
            EXPECT_EQ(outcome.err, "") << shown;
        else
            EXPECT_NE(outcome.err.find(line.complaint), std::string::npos) << shown << outcome.err;
    }
}

std::string FirstLines(const std::string &text, int count)
{
    size_t end = 0;
    for (int i = 0; i < count && end != std::string::npos; ++i)
        end = text.find('\n', end) + 1;
    return text.substr(0, end);
}

// Register values poked from the chip's description; the report must show exactly these.
TEST(Report, ShowsEveryValueByteForByte)
{
    const SimBoard board;
    ASSERT_EQ(board.Run({"camStat", "-e", "7", "1333", "2500"}, Fast()).out,
              "Set Shutter=142857.14 usec, Sensor Again=1.333, Sensor Dgain=2.500\n");
    const Words pokes[] = {
        // clang-format off
        {"0x30", "0x86"}, {"0x31", "5"}, {"0x32", "192"}, {"0x33", "255"}, {"0x34", "0x69"}, {"0x39", "0xE0"},
        {"0x5F", "0x1F"}, {"0x71", "21"}, {"0x74", "200"}, {"0x53", "1"}, {"0x3C", "0x00"}, {"0x3D", "141"},
        {"0x3E", "255"},
        // clang-format on
    };
    for (const Words &poke : pokes)
        ASSERT_EQ(board.Sim({"poke", poke[0], poke[1]}).status, 0);
    // The exposure was forced before the automatic exposure's field was poked on; force it again.
    board.Run({"camStat", "-e", "7", "1333", "2500"}, Fast());
    const Outcome report = board.Run({"camStat", "-r"}, Fast());
    EXPECT_EQ(report.status, 0);
    EXPECT_EQ(report.err, "");
    // clang-format off
    EXPECT_EQ(FirstLines(report.out, 8),
              "ReadInfo...\n===================== InfoOut ======================\nMiris Status\t:\t0\n"
              "D/N Status\t:\t0\nLong Exp Time\t:\t133182.50 us, 1/8 sec\n"
              "Exposure Time\t:\t133182.50 us, 1/8 sec\nAnalog Gain\t:\t1.333\nDigital Gain\t:\t2.500\n");
    const size_t ae = report.out.find("===================== Ae Status");
    ASSERT_NE(ae, std::string::npos);
    EXPECT_EQ(report.out.substr(ae),
              "===================== Ae Status ====================\nAe Switch\t:\t1\n"
              "Ae flick mode\t:\t6\nAe ref level\t:\t200\nAe Ev set\t:\t21\nAe timer\t:\t9\n"
              "Ae hold\t\t:\t1\nAe fix shutter\t:\t1\nAe option\t:\t2\nAe Miris\t:\t1\n"
              "Ae Max Exp\t:\t1\nAe Long Exp\t:\t0\nAe ACC\t\t:\t1\nNr Mode\t\t:\t1\nDn Mode\t\t:\t0\n"
              "Me Exp Time\t:\t133182.50 us, 1/8 sec.\nMe Again\t:\t1.333\nMe Dgain\t:\t2.500\n"
              "Ae Min Again\t:\t1.041\nAe Max Again\t:\t7.953\nAe Max Dgain\t:\t31.875\n"
              "==================== Awb Status ====================\nAwb Auto\t:\t0\n"
              "Manual Wbr\t:\t2.404\nManual Wbb\t:\t7.938\n"
              "====================================================\n");
    // clang-format on
}

// A failing readout ends the live block; a failing value line is replaced and its block goes on.
TEST(Report, FailuresEndTheLiveBlockAndReplaceTheOtherLines)
{
    const struct {
        const char *fault;
        const char *failure;
        int lines; // of the whole report
    } cases[] = {
        // clang-format off
        {"i2c.read:reg=0x1E", "InfoRawAvg failed.\n", 37},
        {"i2c.read:reg=0x16", "InfoDgtlGain failed.\n", 34}, {"i2c.read:reg=0x37", "GetMnlAgn failed.\n", 37},
        {"i2c.read:reg=0x71", "CXD3193AR_Get_AeEvSet failed.\n", 37},
        {"i2c.read:reg=0x3E", "GetMnlWbbGain failed.\n", 37},
        {"i2c.read:reg=0x53,after=2", "GetNrDnMode failed.\n", 36},
        // clang-format on
    };
    for (const auto &line : cases) {
        const SimBoard board;
        EXPECT_EQ(Count(board.Run({"camStat", "-r"}, Fast()).out, "Long Exp Time\t:\t0\n"), 1);
        const Outcome report = board.Run({"camStat", "-r"}, Fast({"--fault", line.fault}));
        EXPECT_EQ(report.status, 0) << line.fault;
        EXPECT_EQ(Count(report.out, " failed.\n"), 1) << line.fault << report.out;
        EXPECT_EQ(Count(report.out, line.failure), 1) << line.fault << report.out;
        EXPECT_EQ(Count(report.out, "\n"), line.lines) << line.fault << report.out;
    }
}

TEST(Report, BothStreamsIntoOneFileStayInOrder)
{
    const SimBoard board;
    const Words words = board.Command({"camStat", "-r"}, Fast({"--fault", "i2c.read:reg=0x37"}));
    const std::string out = Started(With({"/bin/sh", "-c", "exec \"$@\" 2>&1", "sh"}, words)).Wait().out;
    EXPECT_TRUE(Matches(out, "Me Exp Time[^\n]*\n\\[CXD3193AR_Read\\][^\n]*\n ERROR[^\n]*\nGetMnlAgn failed"))
        << out;
}

TEST(Exposure, IsEchoedClampedAndWritten)
{
    const struct {
        Words values;
        const char *echo;
        const char *codes; // frames, lines, analog and digital gain
    } cases[] = {
        // clang-format off
        {{"30", "2000", "1000"}, "Set Shutter=33333.33 usec, Sensor Again=2.000, Sensor Dgain=1.000\n",
         "0\n1091\n64\n8\n"},
        {{"100", "1000", "2990"}, "Set Shutter=10000.00 usec, Sensor Again=1.000, Sensor Dgain=2.990\n",
         "0\n327\n0\n23\n"},
        {{"1", "8000", "31875"}, "Set Shutter=1000000.00 usec, Sensor Again=8.000, Sensor Dgain=31.875\n",
         "29\n32699\n192\n255\n"},
        {{"30", "500", "40000"}, "Set Shutter=33333.33 usec, Sensor Again=0.500, Sensor Dgain=40.000\n",
         "0\n1091\n0\n255\n"},
        {{"25 fps", "2000x", " 1000"}, "Set Shutter=40000.00 usec, Sensor Again=2.000, Sensor Dgain=1.000\n",
         "0\n1089\n64\n8\n"},
        // 1/0 s is the longest exposure that the registers hold; negative ones are none.
        {{"0", "", "x"}, "Set Shutter=inf usec, Sensor Again=0.000, Sensor Dgain=0.000\n",
         "59\n65399\n0\n8\n"},
        {{"-1", "0", "0"}, "Set Shutter=-1000000.00 usec, Sensor Again=0.000, Sensor Dgain=0.000\n",
         "0\n0\n0\n8\n"},
        {{"99999999999999999999", "99999999999999999999", "99999999999999999999"},
         "Set Shutter=0.00 usec, Sensor Again=2147483.647, Sensor Dgain=2147483.647\n", "0\n0\n192\n255\n"},
        // clang-format on
    };
    for (const auto &line : cases) {
        const SimBoard board;
        const Outcome outcome = board.Run(With({"camStat", "-e"}, line.values), Fast());
        EXPECT_EQ(outcome.out, line.echo);
        EXPECT_EQ(outcome.err, "") << line.echo;
        EXPECT_EQ(outcome.status, 0) << line.echo;
        EXPECT_EQ(board.Sim({"peek", "LongExp", "MeExpTim", "MnlAgn", "MnlDgn"}).out, line.codes)
            << line.echo;
    }
}

// The exposure, LED, filter and reset actions, each watched at the pins and in the trace.
TEST(Pins, FollowTheirActions)
{
    const struct {
        Words words;
        const char *out;
        const char *pin;
    } cases[] = {
        // clang-format off
        {{"-l", "on"}, "Set LEDs on\n", "led       0      0"},
        {{"--led", "Off"}, "Set LEDs off\n", "led       0      1"},
        {{"-i", "ir_pass"}, "Set ICR_IR_PASS\n", "ircut    35      1"},
        {{"--ircut", "IR_CUT"}, "Set ICR_IR_CUT\n", "ircut    35      0"}, {{"-s"}, "", "reset    91      1"},
        {{"-w", "1.2", "1.5"}, "Set Rgain=1.200000, Bgain=1.500000\n", "led       0"},
        {{"-g", "5"}, "", "led       0"},
        {{"-l", "on", "-o", "7"}, "Set LEDs on\n", "led       0      1"}, // the last option decides
        {{"word"}, "", "led       0      1"},
        // clang-format on
    };
    const SimBoard board;
    for (const auto &line : cases) {
        const Outcome outcome = board.Run(CamStat(line.words), Fast());
        EXPECT_EQ(outcome.out, line.out);
        EXPECT_EQ(outcome.err, "") << line.pin;
        EXPECT_EQ(outcome.status, 0) << line.pin;
        const std::string pins = board.Sim({"pins"}).out;
        EXPECT_NE(pins.find(line.pin), std::string::npos) << pins;
    }
}

TEST(Pins, AFailingRequestIsSaidAndTheRunEndsNormally)
{
    const SimBoard board;
    const Words options = Fast({"--fault", "gio.set"});
    EXPECT_EQ(board.Run({"camStat", "-l", "on"}, options).out, "Set LEDs on\nsetIRL failed.\n");
    EXPECT_EQ(board.Run({"camStat", "-i", "IR_CUT"}, options).out, "Set ICR_IR_CUT\nSetICR failed.\n");
    const Outcome reset = board.Run({"camStat", "-s"}, options);
    EXPECT_EQ(reset.out, "");
    EXPECT_EQ(reset.err, "[kel_isp] ERROR: ioctl failed\n[kel_isp] ERROR: ioctl failed\n");
}

TEST(Pins, ResetHoldsTheLineLowFor2MsAndWaits20Ms)
{
    const SimBoard board;
    const std::string trace = board.Path("trace");
    board.Run({"camStat", "-s"}, {"--trace-json=" + trace});
    const std::string text = ReadFile(trace);
    const size_t low = text.find("gio.set");
    const size_t shortPause = text.find("\"us\":2000.000,", low);
    const size_t high = text.find("gio.set", shortPause);
    const size_t longPause = text.find("\"us\":20000.000,", high);
    EXPECT_NE(longPause, std::string::npos) << text;
}

TEST(StartUp, OpensTheDevicesAndClosesThemInReverse)
{
    const SimBoard board;
    const std::string trace = board.Path("trace");
    board.Run({"camStat", "-g", "1"}, Fast({"--trace-json=" + trace}));
    const std::string text = ReadFile(trace);
    std::string calls;
    const std::string mark = "\",\"path\":\"/dev/";
    for (size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1)) {
        const size_t name = text.rfind('"', at - 1) + 1, device = at + mark.size();
        const std::string call = text.substr(name, at - name);
        if (call == "open" || call == "close" || call == "mmap" || call == "munmap")
            calls += call + " " + text.substr(device, text.find('"', device) - device) + ", ";
    }
    EXPECT_EQ(calls,
              "open csl1, mmap csl1, open csl2, open csl3, open csl4, open csl5, open csl6, open csl7, "
              "open csl8, open csl9, open cmem, open dev_i2c, close dev_i2c, close cmem, close csl9, "
              "close csl8, close csl7, close csl6, close csl5, close csl4, close csl3, close csl2, "
              "munmap csl1, close csl1, ");
}

// What a failing start-up step says, and that nothing stays open behind it. (Chip-support nodes that could be
// opened stay with the process when a neighbour is missing; the kernel takes them back.)
TEST(StartUp, SaysWhichStepFailedAndUndoesTheOnesBefore)
{
    const std::pair<const char *, std::string> steps[] = {
        // clang-format off
        {"open:/dev/csl1:missing", "CSL_sysInit()"}, {"open:/dev/csl9:missing", "CSL_sysInit()"},
        {"mmap", "CSL_sysInit()"}, {"open:/dev/cmem:missing", "CMEM_init()"},
        {"cmem.version=0x02200000", "CMEM_init()"}, {"open:/dev/dev_i2c:missing", "DrvI2cOpen()"},
        {"slave:refused", "DrvI2cOpen()"}, {"i2c.read:nth=1", "InitSensor()"},
        {"i2c.read:nth=5", "InitSensor()"},
        // clang-format on
    };
    for (const auto &[fault, message] : steps) {
        const SimBoard board;
        const std::string trace = board.Path("trace");
        const Outcome outcome =
            board.Run({"camStat", "-l", "on"}, Fast({"--fault", fault, "--trace-json=" + trace}));
        EXPECT_EQ(outcome.status, 0) << fault;
        EXPECT_EQ(outcome.out, "Set LEDs on\n") << fault;
        const std::string line = "[kel_isp] " + message + " failed.\n";
        EXPECT_EQ(Count(outcome.err, line), 1) << fault << outcome.err;
        EXPECT_EQ(Count(outcome.err, "(camStat|main|"), 1) << fault << outcome.err;
        EXPECT_TRUE(message == "CSL_sysInit()" || ReadFile(trace).find("\"open\":[]") != std::string::npos)
            << fault << ReadFile(trace);
    }
}

// Every device call of a run fails once: whatever the call, the tool
// ends with status 0 and leaves nothing open.
TEST(Robustness, AnyOneFailingCallLeavesNothingOpen)
{
    for (const char *call :
         {"i2c", "gio", "cmem", "fcntl", "open:after=9", "close", "munmap", "clock", "sleep"}) {
        for (const Words &action : {Words{"-e", "30", "2000", "1000"}, Words{"-s"}}) {
            bool injected = true;
            for (int nth = 1; injected && nth < 60; ++nth) {
                const SimBoard board;
                const std::string trace = board.Path("trace");
                const std::string rule =
                    call + std::string(strchr(call, ':') ? "," : ":") + "nth=" + std::to_string(nth);
                const Outcome outcome =
                    board.Run(CamStat(action), Fast({"--fault", rule, "--trace-json=" + trace}));
                const std::string text = ReadFile(trace);
                injected = text.find("\"faults\":0") == std::string::npos;
                EXPECT_EQ(outcome.status, 0) << rule;
                EXPECT_NE(text.find("\"open\":[]"), std::string::npos) << rule << text;
            }
        }
    }
}

// Otherwise what is printed would go into the device that took the place.
TEST(Robustness, AClosedStandardDescriptorIsTakenByNoDevice)
{
    for (const Words &program : {Words{"camStat", "-s"}, Words{"drvI2cTest", "-r", "E2", "30", "2"}}) {
        for (const char *closing : {" <&-", " >&-", " 2>&-", " <&- >&- 2>&-"}) {
            const SimBoard board;
            const std::string trace = board.Path("trace");
            const Words command = board.Command(program, Fast({"--trace-json=" + trace}));
            const Words shell = {"/bin/sh", "-c", "exec \"$@\"" + std::string(closing), "sh"};
            EXPECT_EQ(Started(With(shell, command)).Wait().status, 0) << program[0] << closing;
            const std::string calls = ReadFile(trace);
            EXPECT_TRUE(Matches(calls, "\"call\":\"open\"[^}]*\"result\":[3-9]")) << calls;
            EXPECT_FALSE(Matches(calls, "\"call\":\"open\"[^}]*\"result\":[0-2][^0-9]")) << calls;
        }
    }
}

} // namespace
