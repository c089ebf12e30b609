// SPDX-License-Identifier: MIT
//
// camStat as its users meet it: the unmodified program, its texts, streams and exit statuses, on the
// simulated board.
#include "programRun.h"

#include <gtest/gtest.h>

namespace
{

const char *const kUsage = "Usage: camStat v0.0.4 [OPTION]\n"
                           "\n"
                           " -s\n --reset\n Reset Sensor.\n\n"
                           " -r\n --read\n Read AE/ AWB Parameter.\n\n"
                           " -l [LED]\n --led  ON\n Set LEDs ON or OFF.\n\n"
                           " -i [ICR]\n --icr IR_CUT\n Set ICR IR_CUT or IR_PASS.\n\n"
                           " -e [Shutter] [Sensor Again] [Sensor Dgain]\n --ae 30 2000 1000\n"
                           " Set AE gain and shutter.\n\n"
                           " -w [RGain] [BGain]\n --awb 1.2 1.5\n Set AWB gain and Bgain.\n\n"
                           " I2C test:\n --test 1 [Retry count]\n -t 1 1\n\n";

const std::string kNotSupported = "Value is not supported.\n";
const std::string kDefaultUsage = std::string("default:\n") + kUsage;

struct CommandLine {
    Words words;
    int status;
    std::string out;
    const char *complaint = ""; // of getopt_long, on standard error
};

// Without a board, everything that would start it prints an error: an empty standard error shows that nothing
// was started.
TEST(CommandLine, EndsBeforeAnythingIsStarted)
{
    const CommandLine lines[] = {
        {{}, 0, kUsage},
        {{"-h"}, 0, kUsage},
        {{"--help"}, 0, kUsage},
        {{"--led=ON"}, 0, kUsage},
        {{"-lON"}, 0, kUsage},
        {{"-i"}, 0, kDefaultUsage, "option requires an argument -- 'i'"},
        {{"-x"}, 0, kDefaultUsage, "invalid option -- 'x'"},
        {{"--icr", "IR_CUT"}, 0, kDefaultUsage, "unrecognized option '--icr'"},
        {{"--test", "1", "1"}, 0, kDefaultUsage, "unrecognized option '--test'"},
        {{"-e", "30", "2000"}, 0, kUsage},
        {{"-w", "1.2"}, 0, kUsage},
        {{"-t", "1"}, 0, kUsage},
        {{"-t", "2", "5"}, 0, kUsage},
        {{"-t", "", ""}, 0, kUsage},
        {{"-l", "maybe"}, 255, kNotSupported},
        {{"-l", ""}, 255, kNotSupported},
        {{"--ircut", "ON"}, 255, kNotSupported},
        {{"-r", "-l", "ON"}, 255, kNotSupported},
        {{"-l", "on", "-i", "IR_CUT"}, 255, "Set LEDs on\n" + kNotSupported},
    };
    for (const CommandLine &line : lines) {
        Words command = {"camStat"};
        command.insert(command.end(), line.words.begin(), line.words.end());
        const Outcome outcome = RunPlain(command);
        const std::string shown = testing::PrintToString(line.words);
        EXPECT_EQ(outcome.status, line.status) << shown;
        EXPECT_EQ(outcome.out, line.out) << shown;
        if (*line.complaint == '\0')
            EXPECT_EQ(outcome.err, "") << shown;
        else
            EXPECT_NE(outcome.err.find(line.complaint), std::string::npos) << shown << outcome.err;
    }
}

} // namespace
