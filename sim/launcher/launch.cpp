// SPDX-License-Identifier: MIT
//
// The launcher becomes the program that it runs: same process, same terminal, and the program's end, by
// status or by signal, is the launcher's own.
#include "sim/launcher/launch.h"

#include "sim/board/board.h"
#include "sim/board/host.h"
#include "sim/launcher/faultText.h"
#include "sim/trace/trace.h"

#include <errno.h>
#include <glob.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace sim
{

namespace
{

namespace fs = std::filesystem;

constexpr char kLibrary[] = "libcamsim.so";
constexpr int kNotFoundStatus = 127;
constexpr int kNotRunStatus = 126;

fs::path OwnFolder()
{
    std::error_code error;
    return fs::read_symlink("/proc/self/exe", error).parent_path();
}

bool IsFile(const fs::path &path)
{
    std::error_code error;
    return fs::is_regular_file(path, error);
}

// A bare name: beside camSim first, then along PATH. Empty when it is nowhere.
fs::path FindProgram(const std::string &name)
{
    if (name.find('/') != std::string::npos)
        return IsFile(name) ? fs::path(name) : fs::path();
    if (IsFile(OwnFolder() / name))
        return OwnFolder() / name;
    const char *path = getenv("PATH");
    std::istringstream folders(path != nullptr ? path : "");
    for (std::string folder; std::getline(folders, folder, ':');) {
        fs::path candidate = fs::path(folder.empty() ? "." : folder) / name;
        if (IsFile(candidate) && access(candidate.c_str(), X_OK) == 0)
            return candidate;
    }
    return {};
}

// In the build folder the library lies beside the launcher; installed, in a folder of its own under lib*.
fs::path FindLibrary(const fs::path &folder)
{
    if (IsFile(folder / kLibrary))
        return fs::absolute(folder / kLibrary);
    glob_t found = {};
    fs::path library;
    for (const char *pattern : {"/../lib*/camSim/", "/../lib/*/camSim/"}) {
        const std::string wanted = folder.string() + pattern + kLibrary;
        if (library.empty() && glob(wanted.c_str(), 0, nullptr, &found) == 0 && found.gl_pathc > 0)
            library = fs::canonical(found.gl_pathv[0]);
        globfree(&found);
    }
    return library;
}

// A sanitizer's run-time library must come before every other one. Its name is in the program.
std::string SanitizerOf(const fs::path &program)
{
    std::ifstream file(program, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    for (const char *name : {"libasan.so.", "libtsan.so."}) {
        const size_t at = bytes.find(name);
        if (at != std::string::npos)
            return bytes.substr(at, bytes.find('\0', at) - at);
    }
    return {};
}

// What the user preloads comes first, then a sanitizer, then the board.
std::string PreloadList(const fs::path &program, const fs::path &library)
{
    const char *existing = getenv("LD_PRELOAD");
    const std::string first = existing != nullptr ? existing : "";
    const std::string sanitizer = SanitizerOf(program);
    std::string list = first;
    if (!sanitizer.empty() && first.find(sanitizer) == std::string::npos)
        list += (list.empty() ? "" : ":") + sanitizer;
    return list + (list.empty() ? "" : ":") + library.string();
}

int AddRunFaults(const Words &texts, uint32_t run)
{
    std::string problem;
    DropEndedRuns();
    for (const std::string &text : texts) {
        FaultRule rule;
        if (!ParseFault(text, &rule, &problem))
            return Complain(kUsageStatus, "--fault %s: %s", text.c_str(), problem.c_str());
        rule.run = run;
        rule.runPid = host::ProcessId();
        if (!AddFault(rule, &problem))
            return Complain(1, "--fault %s: %s", text.c_str(), problem.c_str());
    }
    return 0;
}

uint32_t CountRun()
{
    const BoardLock lock;
    return ++gBoard.state->runs;
}

// The head of a person's trace: what runs where. A file begins anew.
int BeginTraceFile(const RunOptions &options, const Words &program)
{
    std::string head = "camSim: ";
    for (const std::string &word : program)
        head += word + " ";
    head += "on the board in " + options.board + "\n";
    head += "  time/ms paused/ms took/us  device  what\n";
    if (options.traceFile.empty()) {
        if (options.trace == "human")
            fputs(head.c_str(), stderr);
        return 0;
    }
    std::ofstream file(options.traceFile, std::ios::trunc);
    if (options.trace == "human")
        file << head;
    file.close();
    return file ? 0
                : Complain(1, "cannot write the trace to %s: %s", options.traceFile.c_str(), strerror(errno));
}

void SetTrace(const RunOptions &options)
{
    unsetenv(kTraceVariable);
    unsetenv(kTraceFileVariable);
    if (options.trace.empty())
        return;
    const bool colour = options.trace == "human" && options.traceFile.empty() && isatty(STDERR_FILENO) &&
                        getenv("NO_COLOR") == nullptr;
    setenv(kTraceVariable, colour ? "colour" : options.trace.c_str(), 1);
    if (!options.traceFile.empty())
        setenv(kTraceFileVariable, fs::absolute(options.traceFile).c_str(), 1);
}

int Become(const Words &words)
{
    std::vector<char *> arguments;
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    return Complain(errno == ENOENT ? kNotFoundStatus : kNotRunStatus, "cannot run %s: %s", words[0].c_str(),
                    strerror(errno));
}

// EMULATOR... -E LD_PRELOAD=library PROGRAM...: the emulator itself stays outside the board.
int BecomeEmulated(const RunOptions &options, const fs::path &program, const fs::path &library,
                   const Words &words)
{
    std::istringstream emulator(options.emulator);
    Words command((std::istream_iterator<std::string>(emulator)), std::istream_iterator<std::string>());
    command.insert(command.end(), {"-E", "LD_PRELOAD=" + library.string(), program.string()});
    command.insert(command.end(), words.begin() + 1, words.end());
    return Become(command);
}

} // namespace

int RunProgram(const RunOptions &options, const Words &words)
{
    const fs::path program = FindProgram(words[0]);
    if (program.empty()) {
        Words names;
        for (const Command *command = CommandsBegin(); command != CommandsEnd(); ++command)
            names.push_back(command->name);
        const std::string nearest = NearestWord(words[0], names);
        return Complain(
            kNotFoundStatus,
            "there is no command '%s', and no program of that name beside camSim or in PATH%s%s%s",
            words[0].c_str(), nearest.empty() ? "; `camSim --help` tells what there is" : "; did you mean ",
            nearest.c_str(), nearest.empty() ? "" : "?");
    }
    const fs::path beside = options.emulator.empty() ? OwnFolder() : fs::absolute(program).parent_path();
    const fs::path library = options.library.empty() ? FindLibrary(beside) : fs::absolute(options.library);
    if (!IsFile(library)) {
        return Complain(1, "%s is not %s; --library FILE names it", kLibrary,
                        options.library.empty() ? ("beside " + beside.string()).c_str()
                                                : options.library.c_str());
    }
    const uint32_t run = CountRun();
    int status = options.faults.empty() ? 0 : AddRunFaults(options.faults, run);
    status = status != 0 || options.trace.empty() ? status : BeginTraceFile(options, words);
    if (status != 0)
        return status;
    setenv("CAMSIM_BOARD", options.board.c_str(), 1);
    setenv("CAMSIM_RUN", std::to_string(run).c_str(), 1);
    setenv("CAMSIM_SPEED", options.speed.c_str(), 1);
    SetTrace(options);
    if (!options.emulator.empty())
        return BecomeEmulated(options, program, library, words);
    setenv("LD_PRELOAD", PreloadList(program, library).c_str(), 1);
    Words command = words;
    command[0] = program.string();
    return Become(command);
}

} // namespace sim
