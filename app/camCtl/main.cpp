// SPDX-License-Identifier: MIT
//
// camCtl: the camera by name, in units. Here: its commands and options; usage and help follow from the tables.
#include "app/camCtl/camCtl.h"

namespace
{

using namespace camCtl;

constexpr cli::Option kOptions[] = {
    {"--json", nullptr, "results as one JSON object"},
    {"--retries", "N", "retries of a failed transfer, 0 to 100 (3)"},
    {"--dry-run", nullptr,
     "print what would be written, write nothing; exit status 1 when that is something"},
    {"--hex", nullptr, "16 columns of bytes; -- for live ones that are not known"},
    {"--force", nullptr, "also where the file is of another sensor type"},
    {"--metrics", nullptr, "as OpenMetrics text"},
    {"--time", "T", "end after this time: 500us, 10ms, 2s, 1/30s, 5m, 1h"},
    {"--rounds", "N", "end after N rounds"},
    {"--no-files", nullptr, "leave result file and kernel log alone"},
    {"--every", "T", "the interval, with its unit (1s)"},
    {"--count", "N", "end after N times"},
    {"--csv", nullptr, "as comma-separated values, a line each time"},
};

constexpr uint32_t kCommon = Takes(kJson) | Takes(kRetries);
constexpr uint32_t kWrites = kCommon | Takes(kDryRun);

constexpr cli::Command kCommands[] = {
    {"list", "[PATTERN...]",
     "Lists the fields: name, address, bits, access, range, unit, group, meaning. Needs no board.\n"
     "A pattern is as of the shell, or @GROUP.\n",
     0, cli::kMaxWords, kCommon, List},
    {"get", "NAME|ADDR|ADDR-ADDR|@GROUP|all...",
     "Prints each field as \"NAME = CODE  # meaning\", a register as \"0x37 = 0x40\".\n", 1, cli::kMaxWords,
     kCommon, Get},
    {"set", "NAME=VALUE...",
     "Checks all, writes what differs, reads it back. A value is a code, or in the field's unit:\n"
     "2.0x, 6dB, 1/30s, 10ms, -0.5EV, on. A value between two steps takes the nearest one.\n",
     1, cli::kMaxWords, kWrites, Set},
    {"dump", "", "The whole map, decoded, or as bytes.\n", 0, 0, kCommon | Takes(kHex), Dump},
    {"save", "FILE", "Writes all settable fields as get prints them, in address order.\n", 1, 1, kCommon,
     Save},
    {"load", "FILE", "Takes a saved file whole or not at all, and writes only what differs.\n", 1, 1,
     kWrites | Takes(kForce), Load},
    {"diff", "FILE [FILE]", "Compares the camera with a file, or a file with another: \"NAME: a -> b\".\n", 1,
     2, kCommon, Diff},
    {"watch", "[NAME|ADDR|@GROUP...]",
     "Live values until Ctrl-C: what get takes, or values of status; without names all of those. On a\n"
     "terminal a table redrawn in place, else lines. --json prints an object a line.\n",
     0, cli::kMaxWords, kCommon | Takes(kEvery) | Takes(kCount) | Takes(kCsv), Watch},
    {"status", "", "What camStat -r reads, a value a line.\n", 0, 0, kCommon | Takes(kMetrics), Status},
    {"doctor", "",
     "Checks each device, the link, the sensor, the flash and the configuration: ok, FAIL with\n"
     "the reason and the next step, or skipped. Exit status 1 when something failed.\n",
     0, 0, kCommon, Doctor},
    {"led", "on|off", "Switches the IR LEDs.\n", 1, 1, kCommon, Led},
    {"ircut", "cut|pass", "Switches the IR-cut filter: cut is day, pass is night.\n", 1, 1, kCommon, IrCut},
    {"reset", "", "Pulses the sensor's reset line.\n", 0, 0, kCommon, Reset},
    {"expose", "[shutter=TIME] [again=GAIN] [dgain=GAIN]",
     "Sets the manual exposure; one of more than a frame goes into the further frames as well.\n", 1, 3,
     kWrites, Expose},
    {"stress", "",
     "Reads the live readouts as fast as the link allows, until a limit, a signal, or a readout\n"
     "that gives up. Prints figures and PASS or FAIL (exit status 1), and leaves on /mnt/nand the\n"
     "files that camStat -t leaves there.\n",
     0, 0, kCommon | Takes(kTime) | Takes(kRounds) | Takes(kNoFiles), Stress},
};

constexpr cli::Program kProgram = {"camCtl",  "the camera by name, in units",
                                   kCommands, sizeof(kCommands) / sizeof(kCommands[0]),
                                   kOptions,  sizeof(kOptions) / sizeof(kOptions[0])};

} // namespace

int main(int argc, char **argv)
{
    return cli::RunProgram(kProgram, argc, argv);
}
