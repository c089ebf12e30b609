// SPDX-License-Identifier: MIT
//
// The command line, the usage text and the signal handler. Nothing is started here.
#include "app/camStat/options.h"

#include "base/numbers.h"
#include "kelisp/debugFlags.h"
#include "kelisp/ispCXD3193AR.h"

#include <errno.h>
#include <getopt.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <strings.h>
#include <unistd.h>

int32_t giOption = kActionNone;
int32_t giArgValue1 = 0;
double gdbShutter = 0.0;
double gdbSensorAgain = 0.0;
double gdbSensorDgain = 0.0;
double gdbRgain = 1.0;
double gdbBgain = 1.0;
constinit kel::AtomicWord giCamStatTerm{0};

namespace
{

using camStat::Parsed;

constexpr char kProgram[] = "camStat";

constexpr char kUsageText[] = " -s\n"
                              " --reset\n"
                              " Reset Sensor.\n\n"
                              " -r\n"
                              " --read\n"
                              " Read AE/ AWB Parameter.\n\n"
                              " -l [LED]\n"
                              " --led  ON\n"
                              " Set LEDs ON or OFF.\n\n"
                              " -i [ICR]\n"
                              " --icr IR_CUT\n"
                              " Set ICR IR_CUT or IR_PASS.\n\n"
                              " -e [Shutter] [Sensor Again] [Sensor Dgain]\n"
                              " --ae 30 2000 1000\n"
                              " Set AE gain and shutter.\n\n"
                              " -w [RGain] [BGain]\n"
                              " --awb 1.2 1.5\n"
                              " Set AWB gain and Bgain.\n\n"
                              " I2C test:\n"
                              " --test 1 [Retry count]\n"
                              " -t 1 1\n\n";

constexpr double kUsPerSecond = 1000000.0;
constexpr double kGainUnit = 1000.0; // gains are given in thousandths

constexpr int32_t kTestModeI2c = 1;

/// A word that an option accepts, the level that it stands for, and its echo.
struct Word {
    const char *text;
    int32_t level;
    const char *echo;
};

constexpr Word kLedWords[] = {{"OFF", 1, "Set LEDs off"}, {"ON", 0, "Set LEDs on"}};
constexpr Word kIcrWords[] = {{"IR_CUT", 0, "Set ICR_IR_CUT"}, {"IR_PASS", 1, "Set ICR_IR_PASS"}};

Parsed TakeWord(const Word (&words)[2], const char *text)
{
    for (const Word &word : words) {
        if (strcasecmp(text, word.text) == 0) {
            giArgValue1 = word.level;
            puts(word.echo);
            return Parsed::Run;
        }
    }
    puts("Value is not supported.");
    return Parsed::Unsupported;
}

Parsed TakeLed(char **argv)
{
    return TakeWord(kLedWords, argv[2]);
}

Parsed TakeIcr(char **argv)
{
    return TakeWord(kIcrWords, argv[2]);
}

Parsed TakeExposure(char **argv)
{
    // 1/0 s is not rejected here: the infinite time is held at the longest exposure where it is applied.
    gdbShutter = kUsPerSecond / kel::ParseInt32(argv[2]);
    gdbSensorAgain = kel::ParseInt32(argv[3]) / kGainUnit;
    gdbSensorDgain = kel::ParseInt32(argv[4]) / kGainUnit;
    printf("Set Shutter=%.2lf usec, Sensor Again=%.3lf, Sensor Dgain=%.3lf\n", gdbShutter, gdbSensorAgain,
           gdbSensorDgain);
    return Parsed::Run;
}

Parsed TakeAwb(char **argv)
{
    gdbRgain = strtod(argv[2], nullptr);
    gdbBgain = strtod(argv[3], nullptr);
    printf("Set Rgain=%f, Bgain=%f\n", gdbRgain, gdbBgain);
    return Parsed::Run;
}

Parsed TakeInteger(char **argv)
{
    giArgValue1 = kel::ParseInt32(argv[2]);
    return Parsed::Run;
}

Parsed TakeNothing(char **)
{
    return Parsed::Run;
}

Parsed TakeTest(char **argv)
{
    giArgValue1 = kel::ParseInt32(argv[2]);
    if (giArgValue1 != kTestModeI2c)
        return Parsed::Usage;
    giI2cErrRetry = kel::ParseInt32(argv[3]);
    return Parsed::Run;
}

Parsed TakeHelp(char **)
{
    return Parsed::Usage;
}

/// One option: getopt's tables follow from these rows.
struct Option {
    char letter;
    const char *name;  // of its long form, if it has one
    int minWords;      // of the command line, the program name included; with fewer the usage text follows
    const char *label; // printed first while gfDebugFlag is nonzero
    CamStatAction action;
    Parsed (*take)(char **argv);

    /// Values stand behind the program name and the option; getopt takes the first of them with it.
    constexpr int Argument() const { return minWords > 2 ? required_argument : no_argument; }
};

constexpr Option kOptions[] = {
    // clang-format off
    {'h', "help", 1, "helper\n", kActionNone, TakeHelp},
    {'s', "reset", 2, "Reset:", kActionReset, TakeNothing},
    {'r', "read", 2, "read:\n", kActionReadInfo, TakeNothing},
    {'l', "led", 3, "LED:", kActionLed, TakeLed},
    {'g', "gamma", 3, "Gamma:", kActionGamma, TakeInteger},
    {'o', "otf", 3, "OTF:", kActionOtf, TakeInteger},
    {'i', "ircut", 3, "ICR:", kActionIcr, TakeIcr},
    {'e', "ae", 5, "AE:", kActionExposure, TakeExposure},
    {'w', "awb", 4, "AWB:", kActionAwb, TakeAwb},
    {'t', nullptr, 4, "test:", kActionStressTest, TakeTest},
    // clang-format on
};

/// What getopt_long wants to know; both ends are zero.
struct GetoptTables {
    char letters[2 * sizeof(kOptions) / sizeof(kOptions[0]) + 1];
    option names[sizeof(kOptions) / sizeof(kOptions[0]) + 1];
};

constexpr GetoptTables kGetoptTables = [] {
    GetoptTables tables = {};
    char *letter = tables.letters;
    option *name = tables.names;
    for (const Option &option : kOptions) {
        *letter++ = option.letter;
        if (option.Argument() == required_argument)
            *letter++ = ':';
        if (option.name != nullptr)
            *name++ = {option.name, option.Argument(), nullptr, option.letter};
    }
    return tables;
}();

Parsed TakeOption(int letter, int argc, char **argv)
{
    for (const Option &option : kOptions) {
        if (option.letter != letter)
            continue;
        if (gfDebugFlag != 0)
            fputs(option.label, stdout);
        giOption = option.action;
        return argc < option.minWords ? Parsed::Usage : option.take(argv);
    }
    puts("default:");
    return Parsed::Usage;
}

} // namespace

void Usage()
{
    printf("Usage: %s v%s [OPTION]\n\n", kProgram, CAMSTAT_VERSION);
    fputs(kUsageText, stdout);
}

void SigHandler(int signalNumber)
{
    if (gfDebugFlag != 0) {
        // write, not printf: the signal may have come in the middle of
        // a printf. A line that cannot be written is nobody's loss.
        static constexpr char kInt[] = "[camStat] INFO: SIGINT!\n";
        static constexpr char kTerm[] = "[camStat] INFO: SIGTERM!\n";
        const int interruptedErrno = errno;
        const ssize_t written = signalNumber == SIGINT ? write(STDOUT_FILENO, kInt, sizeof(kInt) - 1)
                                                       : write(STDOUT_FILENO, kTerm, sizeof(kTerm) - 1);
        static_cast<void>(written);
        errno = interruptedErrno;
    }
    kel::StoreWord(giCamStatTerm, 1);
}

namespace camStat
{

Parsed ParseOptions(int argc, char **argv)
{
    if (argc < 2)
        return Parsed::Usage;
    for (;;) {
        const int letter = getopt_long(argc, argv, kGetoptTables.letters, kGetoptTables.names, nullptr);
        if (letter == -1)
            return Parsed::Run;
        const Parsed parsed = TakeOption(letter, argc, argv);
        if (parsed != Parsed::Run)
            return parsed;
    }
}

} // namespace camStat
