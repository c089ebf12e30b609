// SPDX-License-Identifier: MIT
//
// The launcher becomes the program that it runs: same process, same terminal, and the program's end, by
// status or by signal, is the launcher's own.
#include "sim/launcher/launch.h"

#include "sim/board/board.h"
#include "sim/board/host.h"
#include "sim/launcher/faultText.h"
#include "sim/serve/serve.h"
#include "sim/trace/trace.h"

#include <elf.h>
#include <errno.h>
#include <glob.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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

// What a program or library file is for, as far as its head tells.
struct Binary {
    bool isElf = false; // else a script, or nothing that can be run
    bool isStatic = false;
    unsigned bits = 0;
    unsigned machine = 0;

    bool RunsWith(const Binary &other) const
    {
        return !isElf || !other.isElf || (bits == other.bits && machine == other.machine);
    }
};

// The parts of the head that differ in width, by Elf32_ or Elf64_.
template <class Head, class Segment>
void ReadHead(const std::string &bytes, Binary *binary)
{
    Head head = {};
    memcpy(&head, bytes.data(), std::min(bytes.size(), sizeof(head)));
    binary->machine = head.e_machine;
    binary->isStatic = true;
    for (size_t i = 0; i < head.e_phnum; ++i) {
        Segment segment = {};
        const size_t at = static_cast<size_t>(head.e_phoff) + i * sizeof(segment);
        if (at > bytes.size() || bytes.size() - at < sizeof(segment))
            break;
        memcpy(&segment, bytes.data() + at, sizeof(segment));
        if (segment.p_type == PT_INTERP)
            binary->isStatic = false;
    }
}

Binary Inspect(const fs::path &path)
{
    constexpr size_t kHead = 4096; // the list of segments follows the head of the file
    std::string bytes(kHead, '\0');
    std::ifstream file(path, std::ios::binary);
    file.read(bytes.data(), kHead);
    bytes.resize(static_cast<size_t>(file.gcount()));
    Binary binary;
    binary.isElf = bytes.size() > EI_NIDENT && bytes.compare(0, SELFMAG, ELFMAG) == 0;
    if (!binary.isElf)
        return binary;
    binary.bits = bytes[EI_CLASS] == ELFCLASS64 ? 64 : 32;
    if (binary.bits == 64)
        ReadHead<Elf64_Ehdr, Elf64_Phdr>(bytes, &binary);
    else
        ReadHead<Elf32_Ehdr, Elf32_Phdr>(bytes, &binary);
    return binary;
}

std::string Name(const Binary &binary)
{
    constexpr std::pair<unsigned, const char *> kMachines[] = {
        {EM_386, "x86"},   {EM_X86_64, "x86"},  {EM_ARM, "ARM"},     {EM_AARCH64, "ARM"},
        {EM_MIPS, "MIPS"}, {EM_PPC64, "POWER"}, {EM_RISCV, "RISC-V"}};
    for (const auto &[machine, name] : kMachines)
        if (binary.machine == machine)
            return std::to_string(binary.bits) + "-bit " + name;
    return std::to_string(binary.bits) + "-bit machine number " + std::to_string(binary.machine);
}

// The library must be able to get into the program.
int CheckFit(const fs::path &program, const fs::path &library, bool isEmulated)
{
    const Binary binary = Inspect(program);
    const Binary loaded = Inspect(library);
    if (!binary.RunsWith(loaded))
        return Complain(kNotRunStatus,
                        "%s is for %s, and %s for %s: %s--library FILE names the library of its build",
                        program.c_str(), Name(binary).c_str(), library.c_str(), Name(loaded).c_str(),
                        isEmulated ? "" : "--emulator COMMAND runs a foreign program, ");
    return binary.isElf && binary.isStatic
               ? Complain(kNotRunStatus,
                          "%s is a static program, which loads no library, so nothing would stand in for the "
                          "board: link it dynamically, or offer it device nodes (camSim serve)",
                          program.c_str())
               : 0;
}

// Removes the folder of a link when the process that becomes the program ends, whatever ends it. The remover is
// nobody's child that the program could wait for, and holds none of its streams.
void RemoveAtEnd(const std::string &folder)
{
    const int program = static_cast<int>(syscall(SYS_pidfd_open, getpid(), 0));
    if (program < 0)
        return; // an old kernel: the link stays
    const pid_t child = fork();
    if (child != 0) {
        waitpid(child, nullptr, 0);
        close(program);
        return;
    }
    if (fork() != 0)
        _exit(0);
    setsid();
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
        close(stream);
    pollfd end = {program, POLLIN, 0};
    while (poll(&end, 1, -1) < 0 && errno == EINTR) {
    }
    std::error_code error;
    fs::remove_all(folder, error);
    _exit(0);
}

// Lists of libraries are cut at some characters: a path that holds one is
// hidden behind a symbolic link, which lasts as long as the program.
fs::path WithoutCuts(const fs::path &library)
{
    if (library.string().find_first_of(" :,;$") == std::string::npos)
        return library;
    char folder[] = "/tmp/camSim.XXXXXX";
    if (mkdtemp(folder) == nullptr)
        throw fs::filesystem_error("cannot create", folder, std::error_code(errno, std::generic_category()));
    fs::path link = fs::path(folder) / kLibrary;
    fs::create_symlink(library, link);
    RemoveAtEnd(folder);
    return link;
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

// The number of a new run, never 0; rules that apply to every run are easily forgotten, and told.
uint32_t CountRun()
{
    uint32_t run = 0;
    int lasting = 0;
    {
        const BoardLock lock;
        BoardState &state = *gBoard.state;
        state.runs += state.runs == UINT32_MAX ? 2 : 1;
        run = state.runs;
        for (uint32_t i = 0; i < state.faultCount; ++i)
            lasting += state.faults[i].used != 0 && state.faults[i].run == 0;
    }
    if (lasting > 0)
        Complain(
            0,
            "the board has %d lasting fault rule%s; `camSim fault list` shows them, `camSim fault clear` "
            "removes them",
            lasting, lasting == 1 ? "" : "s");
    return run;
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

bool IsServed(const FaultRule &rule)
{
    for (unsigned call = 0; call < static_cast<unsigned>(Call::Count); ++call)
        if ((rule.calls >> call & 1) != 0 && IsServed(static_cast<Call>(call), rule.path))
            return true;
    return false;
}

// Rules about calls that never reach a served node.
void TellRulesNotServed()
{
    const BoardLock lock;
    for (uint32_t i = 0; i < gBoard.state->faultCount; ++i) {
        const FaultRule &rule = gBoard.state->faults[i];
        if (rule.used != 0 && (rule.run == 0 || rule.run == gBoard.run) && !IsServed(rule))
            Complain(0, "fault rule '%s' is about calls that do not reach served nodes", rule.text);
    }
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

int ServeBoard(const RunOptions &options)
{
    const fs::path folder =
        options.devices.empty() ? "/dev" : fs::absolute(options.devices).lexically_normal();
    std::string problem;
    if (options.speed != "1")
        return Complain(kUsageStatus, "--speed does not go with serve: the clocks are this machine's");
    gBoard.run = CountRun();
    int status = AddRunFaults(options.faults, gBoard.run);
    status = status != 0 || options.trace.empty() ? status : BeginTraceFile(options, {"serve"});
    if (status != 0)
        return status;
    SetTrace(options);
    TellRulesNotServed();
    const auto ready = [&] {
        Complain(0, "serving the board in %s as nodes in %s until SIGTERM or SIGINT; %s",
                 options.board.c_str(), folder.c_str(), kNotServed);
    };
    return ServeNodes(folder.string(), ready, &problem) ? 0 : Complain(1, "%s", problem.c_str());
}

int RunProgram(const RunOptions &options, const Words &words)
{
    const bool isEmulated = !options.emulator.empty();
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
    const fs::path beside = isEmulated ? fs::absolute(program).parent_path() : OwnFolder();
    fs::path library = options.library.empty() ? FindLibrary(beside) : fs::absolute(options.library);
    if (!IsFile(library)) {
        return Complain(1, "%s is not %s; --library FILE names it", kLibrary,
                        options.library.empty() ? ("beside " + beside.string()).c_str()
                                                : options.library.c_str());
    }
    int status = CheckFit(program, library, isEmulated);
    if (status != 0)
        return status;
    const uint32_t run = CountRun();
    status = options.faults.empty() ? 0 : AddRunFaults(options.faults, run);
    status = status != 0 || options.trace.empty() ? status : BeginTraceFile(options, words);
    if (status != 0)
        return status;
    setenv("CAMSIM_BOARD", options.board.c_str(), 1);
    setenv("CAMSIM_RUN", std::to_string(run).c_str(), 1);
    setenv("CAMSIM_SPEED", options.speed.c_str(), 1);
    SetTrace(options);
    library = WithoutCuts(library);
    if (isEmulated)
        return BecomeEmulated(options, program, library, words);
    setenv("LD_PRELOAD", PreloadList(program, library).c_str(), 1);
    Words command = words;
    command[0] = program.string();
    return Become(command);
}

} // namespace sim
