// SPDX-License-Identifier: MIT
//
// camConf looks at, changes and applies image configuration files. Here: its commands and options; usage and help follow
// from the tables.
#include "app/camConf/camConf.h"

namespace
{

using namespace camConf;

constexpr cli::Option kOptions[] = {
    {"--json", nullptr, "as one JSON object with the keys of the file"},
    {"--conf", nullptr, "as a file that can be loaded"},
    {"--prefix", nullptr, "change the lines of all keys that begin with KEY"},
    {"--force", nullptr, "set also what the key does not take"},
    {"--add", nullptr, "add a line where the file has none of the key"},
    {"-o", "KEY=VALUE,...", "settings that overwrite those of FILE"},
    {"--dry-run", nullptr, "check all, print what would be applied, and apply nothing"},
};

constexpr uint32_t Takes(OptionIndex option)
{
    return 1U << option;
}

constexpr cli::Command kCommands[] = {
    {"show", "[FILE]", "Prints the settings: the defaults, overwritten by FILE (/sysconf/conf.img).\n", 0, 1,
     Takes(kJson) | Takes(kConf), Show},
    {"check", "FILE",
     "Prints a line \"FILE:LINE: KEY: why\" for everything in FILE that is ignored or that\n"
     "lies outside the range that has an effect. Exit status 1 when there is any.\n",
     1, 1, 0, Check},
    {"get", "FILE KEY",
     "Prints the value of KEY that is in force: the file's last one, as the camera takes it, or the\n"
     "default. Of other keys, the text behind the first line that begins so; exit status 1\n"
     "without one.\n",
     2, 2, 0, Get},
    {"set", "FILE KEY VALUE",
     "Checks key and value, and replaces the value in every line that begins with KEY; the file is\n"
     "wholly the old or wholly the new one at every moment. Where there is no such line, or lines\n"
     "of other keys begin with KEY too, it says so and changes nothing (exit status 1).\n",
     3, 3, Takes(kPrefix) | Takes(kForce) | Takes(kAdd), Set},
    {"diff", "FILE FILE",
     "Prints the settings that differ between two files, each over the defaults. Exit\n"
     "status 1 when there are any.\n",
     2, 2, 0, Diff},
    {"apply", "[FILE]",
     "Brings the camera in line with the defaults, FILE (/sysconf/conf.img) and -o, whatever state\n"
     "the camera was in.\n",
     0, 1, Takes(kSettings) | Takes(kDryRun), Apply},
    {"watch", "[FILE]",
     "Applies FILE (/sysconf/conf.img) and then, whenever it changes, what is different,\n"
     "until SIGINT or SIGTERM.\n",
     0, 1, 0, Watch},
};

constexpr cli::Program kProgram = {"camConf", "the camera's image configuration",
                                   kCommands, sizeof(kCommands) / sizeof(kCommands[0]),
                                   kOptions,  sizeof(kOptions) / sizeof(kOptions[0])};

} // namespace

int main(int argc, char **argv)
{
    return cli::RunProgram(kProgram, argc, argv);
}
