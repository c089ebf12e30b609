// SPDX-License-Identifier: MIT
//
// The command line of programs with commands: parsing, usage and help, all from the program's tables.
#include "app/shared/commandLine.h"

#include "app/shared/process.h"
#include "config/confText.h"

#include <ctype.h>
#include <errno.h>
#include <limits.h>
#include <stdarg.h>
#include <string.h>

namespace
{

using namespace cli;

const Program *gProgram = nullptr;

void PrintUsageLine(FILE *stream, const Command &command)
{
    fprintf(stream, "  %s %s%s%s\n", gProgram->name, command.name, command.words[0] != '\0' ? " " : "",
            command.words);
}

void PrintOptions(uint32_t taken)
{
    for (int i = 0; i < gProgram->optionCount; ++i) {
        const Option &option = gProgram->options[i];
        if ((taken >> i & 1) == 0)
            continue;
        char head[40];
        snprintf(head, sizeof(head), "%s%s%s", option.name, option.value != nullptr ? " " : "",
                 option.value != nullptr ? option.value : "");
        printf("  %-18s %s\n", head, option.help);
    }
}

void PrintHelp(FILE *stream)
{
    fprintf(stream, "%s: %s\nUsage:\n", gProgram->name, gProgram->about);
    for (int i = 0; i < gProgram->commandCount; ++i)
        PrintUsageLine(stream, gProgram->commands[i]);
    fprintf(stream,
            "%s COMMAND --help tells more about one of them; --version prints the version.\n"
            "Exit status: 0 done, 1 the answer is no, 2 wrong usage or a failure.\n",
            gProgram->name);
}

int PrintCommandHelp(const Command &command)
{
    puts("Usage:");
    PrintUsageLine(stdout, command);
    fputs(command.help, stdout);
    PrintOptions(command.takes);
    return kDone;
}

int FailUsage(const Command &command, const char *what, const char *why)
{
    Fail(what, why);
    fputs("Usage:\n", stderr);
    PrintUsageLine(stderr, command);
    return kFailed;
}

/// A word that looks like an option; "-" and a number do not.
bool LooksLikeOption(const char *word)
{
    return word[0] == '-' && word[1] != '\0' && !isdigit(static_cast<unsigned char>(word[1]));
}

/// The option that a word names, and where its value begins in the word; null where it does not.
const Option *FindOption(char *word, char **attached)
{
    const size_t length = word[1] == '-' ? strcspn(word, "=") : 2;
    for (int i = 0; i < gProgram->optionCount; ++i) {
        const Option &option = gProgram->options[i];
        if (strncmp(option.name, word, length) != 0 || option.name[length] != '\0')
            continue;
        *attached = word[length] == '\0' ? nullptr : word + length + (word[length] == '=' ? 1 : 0);
        return &option;
    }
    return nullptr;
}

const Command *FindCommand(const char *name)
{
    for (int i = 0; i < gProgram->commandCount; ++i)
        if (strcmp(gProgram->commands[i].name, name) == 0)
            return &gProgram->commands[i];
    return nullptr;
}

/// Takes one option, and its value from behind '=' or from the next word. `at` moves on to the last word used.
int TakeOption(Arguments &arguments, int argc, char **argv, int &at)
{
    char *attached = nullptr;
    const Option *option = FindOption(argv[at], &attached);
    if (option == nullptr)
        return Fail(argv[at], "unknown option");
    char *&given = arguments.options[option - gProgram->options];
    if (given != nullptr)
        return Fail(option->name, "given twice");
    if (option->value == nullptr && attached != nullptr)
        return Fail(option->name, "takes no value");
    if (option->value != nullptr && attached == nullptr && ++at == argc)
        return FailWith(option->name, "%s is missing", option->value);
    given = attached != nullptr ? attached : argv[at];
    return kDone;
}

int Run(int argc, char **argv)
{
    static Arguments arguments; // not on the stack of a small board
    arguments = {};
    const Command *command = nullptr;
    bool wantsHelp = false;
    bool optionsEnded = false;
    if (argc < 2) {
        PrintHelp(stderr);
        return kFailed;
    }
    for (int i = 1; i < argc; ++i) {
        char *word = argv[i];
        if (!optionsEnded && LooksLikeOption(word)) {
            if (strcmp(word, "--") == 0)
                optionsEnded = true;
            else if (strcmp(word, "--help") == 0 || strcmp(word, "-h") == 0)
                wantsHelp = true;
            else if (strcmp(word, "--version") == 0)
                return printf("%s %s\n", gProgram->name, CAMSTAT_VERSION) < 0 ? kFailed : kDone;
            else if (TakeOption(arguments, argc, argv, i) != kDone)
                return kFailed;
        } else if (command == nullptr) {
            command = FindCommand(word);
            if (command == nullptr)
                return FailWith(word, "unknown command; %s --help lists them", gProgram->name);
        } else if (arguments.count == command->maxWords || arguments.count == kMaxWords) {
            return FailUsage(*command, word, "one word too many");
        } else {
            arguments.words[arguments.count++] = word;
        }
    }
    if (wantsHelp && command == nullptr) {
        PrintHelp(stdout);
        PrintOptions(UINT32_MAX);
        return kDone;
    }
    if (command == nullptr)
        return Fail("COMMAND", "is missing");
    if (wantsHelp)
        return PrintCommandHelp(*command);
    for (int i = 0; i < gProgram->optionCount; ++i)
        if (arguments.Has(i) && (command->takes >> i & 1) == 0)
            return FailUsage(*command, gProgram->options[i].name, "not for this command");
    if (arguments.count < command->minWords)
        return FailUsage(*command, command->name, "a word is missing");
    return command->run(arguments);
}

} // namespace

const char *cli::Arguments::Name(int option) const
{
    return gProgram->options[option].name;
}

int cli::Fail(const char *what, const char *why)
{
    const char *reason = why != nullptr ? why : strerror(errno);
    fflush(stdout); // what was printed before stands before the error, also where both go to one file
    char line[PATH_MAX + 512];
    snprintf(line, sizeof(line), "%s: %s: %s", gProgram->name, what, reason);
    for (char *at = line; *at != '\0'; ++at)
        if (static_cast<unsigned char>(*at) < 0x20 || *at == 0x7F)
            *at = '?'; // words and files hold what they like; a terminal does not get it
    fprintf(stderr, "%s\n", line);
    return kFailed;
}

FILE *cli::OpenToRead(const char *path)
{
    FILE *file = kel::OpenToRead(path);
    if (file == nullptr)
        Fail(path, errno == EINVAL ? "is no regular file" : nullptr);
    return file;
}

char *cli::Trim(char *text)
{
    static constexpr char kBlanks[] = " \t\r\n";
    text += strspn(text, kBlanks);
    size_t length = strlen(text);
    while (length > 0 && strchr(kBlanks, text[length - 1]) != nullptr)
        text[--length] = '\0';
    return text;
}

int cli::FailWith(const char *what, const char *format, ...)
{
    char why[256];
    va_list values;
    va_start(values, format);
    vsnprintf(why, sizeof(why), format, values);
    va_end(values);
    return Fail(what, why);
}

int cli::RunProgram(const Program &program, int argc, char **argv)
{
    gProgram = &program;
    camStat::SetUpStreams(camStat::Leaves::InBlocks);
    const int status = Run(argc, argv);
    if (fflush(stdout) != 0 || ferror(stdout) != 0)
        return Fail("standard output");
    return status;
}
