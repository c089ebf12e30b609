// SPDX-License-Identifier: MIT
//
// camSim: runs a program on a simulated board, and looks at that board. The command line and its help; the
// work is done elsewhere (launch.cpp, commands.cpp).
#include "sim/board/board.h"
#include "sim/launcher/boardFolder.h"
#include "sim/launcher/commands.h"
#include "sim/launcher/faultText.h"
#include "sim/launcher/launch.h"
#include "sim/launcher/parse.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <filesystem>

namespace
{

using namespace sim;

struct Option {
    const char *name;
    const char *value; ///< what it takes: empty for nothing; in brackets what may follow after '='
    const char *help;
    bool isForProgram = false; ///< a command of camSim cannot honour it
};

constexpr Option kOptions[] = {
    {"--board", "DIR", "the board's folder; also $CAMSIM_BOARD"},
    {"--new", "", "make a board also in a folder that holds other files"},
    {"--fault", "RULE", "a fault for this run only, see `camSim fault --help`; may be repeated", true},
    {"--trace", "[=FILE]", "tell what the program does to the board, on standard error or in FILE", true},
    {"--trace-json", "FILE", "--trace for programs, in FILE: one JSON object a line", true},
    {"--speed", "N", "the board and its clocks run N times as fast, 0.01 to 10000", true},
    {"--sensor", "6|7", "change the board's sensor first"},
    {"--emulator", "COMMAND",
     "run a foreign program by an emulator, as in 'qemu-arm -L /usr/arm-linux-gnueabi'"},
    {"--library", "FILE", "the library that stands in for the board, if not found by itself"},
    {"--dev", "DIR", "serve: the folder of the nodes, /dev without it", true},
    {"--help", "", "this text; after a command, that command's"},
    {"--version", "", "the version"},
};

void PrintHelp(const std::string &board)
{
    printf("Usage: camSim [OPTIONS] PROGRAM [ARGUMENTS...]\n"
           "       camSim [OPTIONS] COMMAND [WORDS...]\n\n"
           "Runs a program as if it ran on the camera board: device nodes, camera processor, flash and "
           "clocks are\n"
           "simulated. The board keeps what programs do to it in its folder, %s\n\nOptions:\n",
           board.empty() ? "which --board DIR names" : board.c_str());
    for (const Option &option : kOptions) {
        const std::string left =
            std::string(option.name) + (option.value[0] == '[' ? "" : " ") + option.value;
        printf("  %-20s %s\n", left.c_str(), option.help);
    }
    printf("\nCommands:\n");
    for (const Command *command = CommandsBegin(); command != CommandsEnd(); ++command)
        printf("  %-6s %-27s %s\n", command->name, command->arguments, command->summary);
    printf("\nExamples:\n"
           "  camSim camStat -r                                what the camera is doing\n"
           "  camSim --trace camStat -e 30 2000 1000           what the tool does to set an exposure\n"
           "  camSim scene light=5 temperature=2800            dim the light\n"
           "  camSim --fault i2c.read:every=10 camStat -r      with each tenth read failing\n"
           "  camSim --speed 100 camStat -t 1 3                a long test in a short time\n");
}

void PrintCommandHelp(const Command &command)
{
    printf("Usage: camSim [--board DIR] %s %s\n\n", command.name, command.arguments);
    if (std::string(command.name) == "fault") {
        printf("Adds rules to the board, for every program that runs on it from now on, also those that run "
               "already.\n"
               "list shows the rules with the calls they matched and those they changed; clear removes "
               "them.\n\n%s",
               FaultHelp().c_str());
    } else {
        printf("%s", command.help);
    }
}

// The command line up to the program or command.
struct CommandLine {
    RunOptions options;
    std::string sensor;
    bool wantsHelp = false;
    bool wantsVersion = false;
    bool wantsNewBoard = false;
    bool isProgram = false;          ///< "--" came before it
    std::string lastOptionOfProgram; ///< empty when a command could honour all options
    Words rest;
};

const Option *FindOption(const std::string &name)
{
    for (const Option &option : kOptions)
        if (name == option.name)
            return &option;
    return nullptr;
}

int RefuseOption(const std::string &name)
{
    Words names;
    for (const Option &option : kOptions)
        names.push_back(option.name);
    const std::string nearest = NearestWord(name, names);
    return Complain(kUsageStatus, "there is no option %s%s%s", name.c_str(),
                    nearest.empty() ? "; `camSim --help` lists them" : ("; did you mean " + nearest).c_str(),
                    nearest.empty() ? "" : "?");
}

bool IsSpeed(const std::string &text)
{
    double speed = 0.0;
    return ParseFraction(text, 0.01, 10000.0, &speed);
}

// Takes the value of an option over; false when it is none for it.
bool TakeOption(const Option &option, const std::string &value, CommandLine *line)
{
    const std::string name = option.name;
    RunOptions &options = line->options;
    if (option.isForProgram)
        line->lastOptionOfProgram = name;
    if (name == "--board") {
        options.board = value;
        return !value.empty();
    }
    if (name == "--fault") {
        options.faults.push_back(value);
    } else if (name == "--trace" || name == "--trace-json") {
        options.trace = name == "--trace" ? "human" : "json";
        options.traceFile = value;
        return name == "--trace" || !value.empty();
    } else if (name == "--speed") {
        options.speed = value;
        return IsSpeed(value);
    } else if (name == "--sensor") {
        line->sensor = value;
        return value == "6" || value == "7";
    } else if (name == "--emulator") {
        options.emulator = value;
    } else if (name == "--library") {
        options.library = value;
    } else if (name == "--dev") {
        options.devices = value;
        return !value.empty();
    } else {
        line->wantsHelp = line->wantsHelp || name == "--help";
        line->wantsVersion = line->wantsVersion || name == "--version";
        line->wantsNewBoard = line->wantsNewBoard || name == "--new";
    }
    return true;
}

int ParseOptions(const Words &words, CommandLine *line)
{
    size_t i = 0;
    for (; i < words.size() && words[i][0] == '-'; ++i) {
        const size_t equals = words[i].find('=');
        std::string name = words[i].substr(0, equals);
        name = name == "-h" ? "--help" : name;
        if (name == "--") {
            line->isProgram = true;
            ++i;
            break;
        }
        const Option *option = FindOption(name);
        if (option == nullptr)
            return RefuseOption(name);
        const bool needsValue = option->value[0] != '\0' && option->value[0] != '[';
        std::string value = equals != std::string::npos ? words[i].substr(equals + 1) : "";
        if (needsValue && equals == std::string::npos) {
            if (i + 1 == words.size())
                return Complain(kUsageStatus, "%s takes %s", option->name, option->value);
            value = words[++i];
        } else if (option->value[0] == '\0' && equals != std::string::npos) {
            return Complain(kUsageStatus, "%s takes no value", option->name);
        }
        if (!TakeOption(*option, value, line)) {
            return Complain(kUsageStatus, "%s takes %s, not '%s' (%s)", option->name, option->value,
                            value.c_str(), option->help);
        }
    }
    line->rest.assign(words.begin() + static_cast<long>(i), words.end());
    return 0;
}

bool AsksForHelp(const Words &words)
{
    return words.size() == 2 && (words[1] == "--help" || words[1] == "-h");
}

// Empty when nothing tells where it is.
std::string ChooseBoard(const std::string &asked)
{
    const char *fromEnvironment = getenv("CAMSIM_BOARD");
    std::string folder = asked;
    if (folder.empty()) {
        folder =
            fromEnvironment != nullptr && fromEnvironment[0] != '\0' ? fromEnvironment : DefaultBoardFolder();
    }
    return folder.empty() ? "" : std::filesystem::absolute(folder).lexically_normal().string();
}

// `camSim help [COMMAND]`; trace is explained where --trace is.
int Help(const CommandLine &line)
{
    const Words words(line.rest.begin() + (line.rest.empty() ? 0 : 1), line.rest.end());
    const Command *command = line.wantsHelp || words.empty() ? nullptr : FindCommand(words[0]);
    if (command != nullptr) {
        PrintCommandHelp(*command);
    } else if (line.wantsHelp || words.empty() || words[0] == "trace" || words[0] == "help") {
        PrintHelp(ChooseBoard(line.options.board));
    } else {
        return Complain(kUsageStatus, "there is no command '%s'; `camSim --help` lists them",
                        words[0].c_str());
    }
    return 0;
}

int RefuseForCommand(const std::string &option, const Command &command)
{
    return option == "--fault"
               ? Complain(kUsageStatus, "--fault goes with a program; `camSim fault RULE` changes the board")
               : Complain(kUsageStatus, "%s goes with a program, and %s is a command of camSim",
                          option.c_str(), command.name);
}

int Perform(CommandLine line)
{
    const Command *command = line.isProgram ? nullptr : FindCommand(line.rest[0]);
    const Words words(line.rest.begin() + 1, line.rest.end());
    std::string problem;
    if (command != nullptr && AsksForHelp(line.rest)) {
        PrintCommandHelp(*command);
        return 0;
    }
    const bool isServe = command != nullptr && command->run == nullptr;
    if (isServe && !words.empty())
        return Complain(kUsageStatus, "serve takes no words; `camSim serve --help` tells more");
    if (!isServe && !line.options.devices.empty())
        return Complain(kUsageStatus, "--dev goes with serve");
    if (command != nullptr && !isServe && !line.lastOptionOfProgram.empty())
        return RefuseForCommand(line.lastOptionOfProgram, *command);
    line.options.board = ChooseBoard(line.options.board);
    if (line.options.board.empty())
        return Complain(kUsageStatus, "without HOME, name the board's folder: --board DIR, or CAMSIM_BOARD");
    const bool isReset =
        command != nullptr && command->run != nullptr && std::string(command->name) == "reset";
    if (isReset && !words.empty())
        return command->run(words);
    if (!(isReset ? ResetBoard : UseBoard)(line.options.board, line.wantsNewBoard, &problem))
        return Complain(1, "%s", problem.c_str());
    if (!line.sensor.empty())
        FindCommand("scene")->run({"sensor=" + line.sensor});
    return isServe              ? ServeBoard(line.options)
           : command != nullptr ? command->run(words)
                                : RunProgram(line.options, line.rest);
}

// `camSim trace PROGRAM` is what --trace is for those who expect a command; serve takes options behind it, too.
int TakeOptionsBehind(CommandLine *line)
{
    const std::string word = line->rest.empty() || line->isProgram ? "" : line->rest[0];
    if ((word != "trace" && word != "serve") || AsksForHelp(line->rest))
        return 0;
    Words words(line->rest.begin() + 1, line->rest.end());
    if (word == "trace")
        words.insert(words.begin(), "--trace");
    const int status = ParseOptions(words, line);
    if (word == "serve")
        line->rest.insert(line->rest.begin(), word);
    return status;
}

int Run(const Words &words)
{
    CommandLine line;
    line.options.speed = "1";
    int status = ParseOptions(words, &line);
    status = status != 0 ? status : TakeOptionsBehind(&line);
    if (status != 0)
        return status;
    if (line.wantsVersion) {
        printf("camSim %s\n", CAMSIM_VERSION);
        return 0;
    }
    if (line.wantsHelp || (!line.rest.empty() && !line.isProgram && line.rest[0] == "help"))
        return Help(line);
    if (line.rest.empty())
        return Complain(kUsageStatus, "name a program to run or a command; `camSim --help` tells more");
    return Perform(line);
}

} // namespace

int main(int argc, char **argv)
{
    int status = 0;
    try {
        status = Run(Words(argv + 1, argv + argc));
    } catch (const std::filesystem::filesystem_error &error) {
        status = Complain(1, "%s: %s", error.path1().c_str(), error.code().message().c_str());
    }
    // What is not written by now never will be: a full disk must not pass for a result.
    errno = 0;
    if (fflush(stdout) == 0 && ferror(stdout) == 0)
        return status;
    const int failure = Complain(1, "standard output: %s", strerror(errno != 0 ? errno : EIO));
    return status != 0 ? status : failure;
}
