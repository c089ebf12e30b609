// SPDX-License-Identifier: MIT
//
// camConf looks at, changes and applies image configuration files. Here: the command line and the help.
#include "app/camConf/camConf.h"

#include "app/shared/process.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

namespace
{

using camConf::Words;

constexpr unsigned kTakesJson = 1;
constexpr unsigned kTakesPrefix = 2;
constexpr unsigned kTakesOptions = 4;

struct Command {
    const char *name;
    int (*run)(const Words &);
    int minOperands;
    int maxOperands;
    unsigned takes;
    const char *synopsis;
    const char *help;
};

constexpr Command kCommands[] = {
    {"show", camConf::Show, 0, 1, kTakesJson, "show [--json] [FILE]",
     "Prints the settings: the defaults, overwritten by FILE (/sysconf/conf.img).\n"
     "  --json  as one JSON object with the keys of the file\n"},
    {"check", camConf::Check, 1, 1, 0, "check FILE",
     "Prints a line \"FILE:LINE: KEY: why\" for everything in FILE that is ignored or that\n"
     "lies outside the range that has an effect. Exit status 1 when there is any.\n"},
    {"get", camConf::Get, 2, 2, 0, "get FILE KEY",
     "Prints the value of the first line that begins with KEY. Exit status 1 without one.\n"},
    {"set", camConf::Set, 3, 3, kTakesPrefix, "set [--prefix] FILE KEY VALUE",
     "Replaces the value in every line that begins with KEY; the file is wholly the old or\n"
     "wholly the new one at every moment. Lines are not added. Where lines of other keys\n"
     "begin with KEY too, it names them and changes nothing (exit status 1), unless\n"
     "  --prefix  is given: change those lines as well\n"},
    {"diff", camConf::Diff, 2, 2, 0, "diff FILE FILE",
     "Prints the settings that differ between two files, each over the defaults. Exit\n"
     "status 1 when there are any.\n"},
    {"apply", camConf::Apply, 0, 1, kTakesOptions, "apply [FILE] [-o KEY=VALUE,...]",
     "Brings the camera in line with the defaults, FILE (/sysconf/conf.img) and\n"
     "  -o KEY=VALUE,...  settings that overwrite those of FILE\n"
     "whatever state the camera was in.\n"},
    {"watch", camConf::Watch, 0, 1, 0, "watch [FILE]",
     "Applies FILE (/sysconf/conf.img) and then, whenever it changes, what is different,\n"
     "until SIGINT or SIGTERM.\n"},
};

void PrintHelp(FILE *stream)
{
    fputs("Usage: camConf COMMAND [WORDS]\n\n", stream);
    for (const Command &command : kCommands)
        fprintf(stream, "  camConf %s\n", command.synopsis);
    fputs("\ncamConf COMMAND --help tells more about one of them.\n"
          "Exit status: 0 fine, 1 differences or findings, 2 wrong usage or failure.\n",
          stream);
}

int PrintCommandHelp(const Command &command)
{
    printf("Usage: camConf %s\n%s", command.synopsis, command.help);
    return camConf::kOk;
}

int FailUsage(const Command &command, const char *why, const char *word)
{
    fprintf(stderr, "camConf %s: %s%s\nUsage: camConf %s\n", command.name, why, word, command.synopsis);
    return camConf::kFailed;
}

/// A word that looks like an option; "-", "-5" and "-x" as a value behind "--" do not.
bool IsOption(const char *word)
{
    return word[0] == '-' && word[1] != '\0' && !(word[1] >= '0' && word[1] <= '9');
}

int RunCommand(const Command &command, int count, char **texts)
{
    Words words;
    bool optionsEnded = false;
    for (int i = 0; i < count; ++i) {
        char *text = texts[i];
        if (optionsEnded || !IsOption(text)) {
            if (words.count == command.maxOperands)
                return FailUsage(command, "too many words: ", text);
            words.operands[words.count++] = text;
        } else if (strcmp(text, "--") == 0) {
            optionsEnded = true;
        } else if (strcmp(text, "--help") == 0 || strcmp(text, "-h") == 0) {
            return PrintCommandHelp(command);
        } else if (strcmp(text, "--json") == 0 && (command.takes & kTakesJson) != 0) {
            words.json = true;
        } else if (strcmp(text, "--prefix") == 0 && (command.takes & kTakesPrefix) != 0) {
            words.prefix = true;
        } else if (strncmp(text, "-o", 2) == 0 && (command.takes & kTakesOptions) != 0) {
            const bool attached = text[2] != '\0';
            if (words.options != nullptr || (!attached && i + 1 == count))
                return FailUsage(command, "-o takes one word and is given once", "");
            words.options = attached ? text + 2 : texts[++i];
        } else {
            return FailUsage(command, "unknown option ", text);
        }
    }
    if (words.count < command.minOperands)
        return FailUsage(command, "too few words", "");
    return command.run(words);
}

int Run(int argc, char **argv)
{
    if (argc < 2) {
        PrintHelp(stderr);
        return camConf::kFailed;
    }
    if (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0) {
        PrintHelp(stdout);
        return camConf::kOk;
    }
    if (strcmp(argv[1], "--version") == 0) {
        puts("camConf " CAMSTAT_VERSION);
        return camConf::kOk;
    }
    for (const Command &command : kCommands)
        if (strcmp(argv[1], command.name) == 0)
            return RunCommand(command, argc - 2, argv + 2);
    fprintf(stderr, "camConf: unknown command %s\n", argv[1]);
    PrintHelp(stderr);
    return camConf::kFailed;
}

} // namespace

int camConf::Fail(const char *what, const char *why)
{
    fprintf(stderr, "camConf: %s: %s\n", what, why != nullptr ? why : strerror(errno));
    return kFailed;
}

int main(int argc, char **argv)
{
    camStat::SetUpStreams();
    const int status = Run(argc, argv);
    if (fflush(stdout) != 0 || ferror(stdout) != 0)
        return camConf::Fail("standard output");
    return status;
}
