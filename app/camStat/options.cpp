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

constexpr char kShortOptions[] = "hsrl:g:o:i:e:w:t:";

constexpr option kLongOptions[] = {
    {"help", no_argument, nullptr, 'h'},        {"reset", no_argument, nullptr, 's'},
    {"read", no_argument, nullptr, 'r'},        {"led", required_argument, nullptr, 'l'},
    {"gamma", required_argument, nullptr, 'g'}, {"otf", required_argument, nullptr, 'o'},
    {"ircut", required_argument, nullptr, 'i'}, {"ae", required_argument, nullptr, 'e'},
    {"awb", required_argument, nullptr, 'w'},   {nullptr, 0, nullptr, 0},
};

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

Parsed TakeWord(const Word (&words)[2], const char *text, CamStatAction action)
{
    for (const Word &word : words) {
        if (strcasecmp(text, word.text) == 0) {
            giArgValue1 = word.level;
            puts(word.echo);
            giOption = action;
            return Parsed::run;
        }
    }
    puts("Value is not supported.");
    return Parsed::unsupported;
}

Parsed TakeLed(char **argv)
{
    return TakeWord(kLedWords, argv[2], kActionLed);
}

Parsed TakeIcr(char **argv)
{
    return TakeWord(kIcrWords, argv[2], kActionIcr);
}

Parsed TakeExposure(char **argv)
{
    // 1/0 s is not rejected here: the infinite time is held at the longest exposure where it is applied.
    gdbShutter = kUsPerSecond / kel::ParseDecimal(argv[2]);
    gdbSensorAgain = kel::ParseDecimal(argv[3]) / kGainUnit;
    gdbSensorDgain = kel::ParseDecimal(argv[4]) / kGainUnit;
    printf("Set Shutter=%.2lf usec, Sensor Again=%.3lf, Sensor Dgain=%.3lf\n", gdbShutter, gdbSensorAgain,
           gdbSensorDgain);
    giOption = kActionExposure;
    return Parsed::run;
}

Parsed TakeAwb(char **argv)
{
    gdbRgain = strtod(argv[2], nullptr);
    gdbBgain = strtod(argv[3], nullptr);
    printf("Set Rgain=%f, Bgain=%f\n", gdbRgain, gdbBgain);
    giOption = kActionAwb;
    return Parsed::run;
}

Parsed TakeGamma(char **argv)
{
    giArgValue1 = kel::ParseDecimal(argv[2]);
    giOption = kActionGamma;
    return Parsed::run;
}

Parsed TakeOtf(char **argv)
{
    giArgValue1 = kel::ParseDecimal(argv[2]);
    giOption = kActionOtf;
    return Parsed::run;
}

Parsed TakeReset(char **)
{
    giOption = kActionReset;
    return Parsed::run;
}

Parsed TakeReadInfo(char **)
{
    giOption = kActionReadInfo;
    return Parsed::run;
}

Parsed TakeTest(char **argv)
{
    giArgValue1 = kel::ParseDecimal(argv[2]);
    if (giArgValue1 != kTestModeI2c)
        return Parsed::usage;
    giOption = kActionStressTest;
    giI2cErrRetry = kel::ParseDecimal(argv[3]);
    return Parsed::run;
}

Parsed TakeHelp(char **)
{
    return Parsed::usage;
}

/// How one option letter is handled.
struct Option {
    int letter;
    int minWords;      // of the command line, the program name included; with fewer the usage text follows
    const char *label; // printed first while gfDebugFlag is nonzero
    Parsed (*take)(char **argv);
};

constexpr Option kOptions[] = {
    {'l', 3, "LED:", TakeLed},      {'i', 3, "ICR:", TakeIcr},         {'e', 5, "AE:", TakeExposure},
    {'w', 4, "AWB:", TakeAwb},      {'g', 3, "Gamma:", TakeGamma},     {'o', 3, "OTF:", TakeOtf},
    {'s', 2, "Reset:", TakeReset},  {'r', 2, "read:\n", TakeReadInfo}, {'t', 4, "test:", TakeTest},
    {'h', 1, "helper\n", TakeHelp},
};

Parsed TakeOption(int letter, int argc, char **argv)
{
    for (const Option &option : kOptions) {
        if (option.letter != letter)
            continue;
        if (gfDebugFlag != 0)
            fputs(option.label, stdout);
        return argc < option.minWords ? Parsed::usage : option.take(argv);
    }
    puts("default:");
    return Parsed::usage;
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
    for (;;) {
        const int letter = getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr);
        if (letter == -1)
            return argc < 2 ? Parsed::usage : Parsed::run;
        const Parsed parsed = TakeOption(letter, argc, argv);
        if (parsed != Parsed::run)
            return parsed;
    }
}

} // namespace camStat
