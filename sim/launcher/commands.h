// SPDX-License-Identifier: MIT
//
// The launcher's commands on an attached board. Each takes its
// words after the command's name and returns an exit status.
#ifndef SIM_LAUNCHER_COMMANDS_H
#define SIM_LAUNCHER_COMMANDS_H

#include <string>
#include <vector>

namespace sim
{

using Words = std::vector<std::string>;

/// Exit status for a command line that cannot be understood.
inline constexpr int kUsageStatus = 2;

struct Command {
    const char *name;
    const char *arguments;
    const char *summary;
    const char *help;               ///< what `camSim COMMAND --help` adds
    int (*run)(const Words &words); ///< null for serve, which takes the options of a program
};

/// The command with this name; null when there is none.
const Command *FindCommand(const std::string &name);
const Command *CommandsBegin();
const Command *CommandsEnd();

/// Prints "camSim: " and what is wrong on standard error, and returns `status`.
[[gnu::format(printf, 2, 3)]] int Complain(int status, const char *format, ...);

/// The candidate that `word` was probably meant to be, or an empty text. One that begins with `word` comes
/// before those that are a slip of the fingers away.
std::string NearestWord(const std::string &word, const Words &candidates);

} // namespace sim

#endif
