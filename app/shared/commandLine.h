// SPDX-License-Identifier: MIT
//
// The command line of the programs that take a command and its words: one table of commands and one of options,
// from which usage, help and the check of every word follow. Errors are one line, "PROGRAM: WHAT: WHY".
#ifndef CAMSTAT_APP_SHARED_COMMAND_LINE_H
#define CAMSTAT_APP_SHARED_COMMAND_LINE_H

#include <stdint.h>
#include <stdio.h>

namespace cli
{

/// Exit status, as diff gives it.
enum Status {
    kDone = 0,  ///< done, or the answer is yes
    kNo = 1,    ///< the answer is no: differences, findings, a test that failed
    kFailed = 2 ///< wrong usage or a failure
};

constexpr int kMaxWords = 256;

/// What the command line gives to a command: its words, and the options of the program's table by index.
struct Arguments {
    char *words[kMaxWords];
    int count;
    char *options[16]; ///< null: not given; the option itself where it takes no value
    char *Word(int index) const { return index < count ? words[index] : nullptr; }
    bool Has(int option) const { return options[option] != nullptr; }
    const char *Name(int option) const; ///< of an option, with its dashes
};

struct Option {
    const char *name;  ///< with its dashes; a single letter's value may stand right behind it
    const char *value; ///< what stands behind it, for the help; null when it takes none
    const char *help;
};

struct Command {
    const char *name;
    const char *words; ///< for the usage line
    const char *help;  ///< lines behind it
    int minWords;
    int maxWords;
    uint32_t takes; ///< bit per option of the program's table
    int (*run)(const Arguments &arguments);
};

struct Program {
    const char *name;
    const char *about; ///< one line
    const Command *commands;
    int commandCount;
    const Option *options;
    int optionCount;
};

/// Runs the command that argv names. Options may stand anywhere behind the program's name; "--" ends them, and "-" and
/// "-5" are none. --help and --version are every program's own. Standard output leaves in blocks where no terminal reads
/// it; when not all of it can be written the status is kFailed.
int RunProgram(const Program &program, int argc, char **argv);

/// Prints "PROGRAM: WHAT: WHY" on standard error; gives kFailed. `why` null stands for errno's text.
int Fail(const char *what, const char *why = nullptr);

/// The same with a composed reason.
[[gnu::format(printf, 2, 3)]] int FailWith(const char *what, const char *format, ...);

/// Opens a file to read it. What would hold the program up in a file's place, a FIFO or a device, is refused. Null after
/// its message.
FILE *OpenToRead(const char *path);

/// A text without the blanks and line ends around it: its first other character, behind whose last it ends now.
char *Trim(char *text);

} // namespace cli

#endif
