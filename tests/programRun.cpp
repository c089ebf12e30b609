// SPDX-License-Identifier: MIT
#include "programRun.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <regex.h>
#include <signal.h>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{

std::string TempName(const char *kind)
{
    std::string name =
        std::filesystem::temp_directory_path() / (std::string("camStatTest.") + kind + ".XXXXXX");
    const int fd = mkstemp(name.data());
    if (fd < 0)
        abort();
    close(fd);
    return name;
}

/// Programs are named without a folder; they stand in PROGRAMS.
Words Located(Words program)
{
    if (program[0].find('/') == std::string::npos)
        program[0] = Env("PROGRAMS") + "/" + program[0];
    return program;
}

} // namespace

Words With(Words words, const Words &more)
{
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

std::string Env(const char *variable)
{
    const char *value = getenv(variable);
    return value != nullptr ? value : "";
}

std::string ReadFile(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

bool Matches(const std::string &text, const std::string &expression)
{
    regex_t compiled;
    if (regcomp(&compiled, expression.c_str(), REG_EXTENDED | REG_NOSUB) != 0)
        abort();
    const bool found = regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
    regfree(&compiled);
    return found;
}

int Count(const std::string &text, const std::string &part)
{
    int count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        ++count;
    return count;
}

Started::Started(const Words &command, bool checksLeaks)
    : outPath_(TempName("out")), errPath_(TempName("err"))
{
    std::vector<char *> argv;
    for (const std::string &word : command)
        argv.push_back(const_cast<char *>(word.c_str()));
    argv.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        signal(SIGINT, SIG_DFL); // a shell's background job ignores it
        dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
        dup2(open(outPath_.c_str(), O_WRONLY), STDOUT_FILENO);
        dup2(open(errPath_.c_str(), O_WRONLY), STDERR_FILENO);
        alarm(getenv("CAMSTAT_STRESS_ITERATIONS") != nullptr ? 50000 : 500); // what hangs dies of it
        if (!checksLeaks)
            setenv("LSAN_OPTIONS", "detect_leaks=0", 1);
        execvp(argv[0], argv.data());
        perror(argv[0]);
        _exit(127);
    }
}

Started::~Started()
{
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    unlink(outPath_.c_str());
    unlink(errPath_.c_str());
}

std::string Started::Out() const
{
    return ReadFile(outPath_);
}

std::string Started::Err() const
{
    return ReadFile(errPath_);
}

Outcome Started::Wait()
{
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), Out(), Err()};
}

bool Started::AwaitOut(const std::string &text, int times) const
{
    using namespace std::chrono_literals;
    using Clock = std::chrono::steady_clock;
    std::ifstream output(outPath_, std::ios::binary);
    std::string
        unseen; // what came last, and before it the end of what was counted, as long as a cut `text` may be
    Clock::time_point lastProgress = Clock::now();
    for (int seen = 0; seen < times;) {
        siginfo_t ended = {};
        waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOHANG | WNOWAIT);
        char chunk[65536];
        output.clear();
        output.read(chunk, sizeof(chunk));
        if (output.gcount() > 0) {
            unseen.append(chunk, static_cast<size_t>(output.gcount()));
            seen += Count(unseen, text);
            unseen.erase(0, unseen.size() - std::min(unseen.size(), text.size() - 1));
            lastProgress = Clock::now();
        } else if (ended.si_pid != 0 || Clock::now() - lastProgress > std::chrono::seconds(30)) {
            return seen >= times;
        } else {
            std::this_thread::sleep_for(1ms);
        }
    }
    return true;
}

long Started::ResidentKiB() const
{
    const std::string status = ReadFile("/proc/" + std::to_string(pid_) + "/status");
    const size_t at = status.find("VmRSS:");
    return at == std::string::npos ? -1 : atol(status.c_str() + at + 6);
}

long Started::Descriptors() const
{
    const std::filesystem::directory_iterator all("/proc/" + std::to_string(pid_) + "/fd");
    return std::distance(begin(all), end(all));
}

SimBoard::SimBoard(const Words &scene)
    : folder_(std::filesystem::temp_directory_path() / "camStatTest.board.XXXXXX")
{
    if (mkdtemp(folder_.data()) == nullptr)
        abort();
    if (!scene.empty())
        Sim(With({"scene"}, scene));
}

SimBoard::~SimBoard()
{
    std::filesystem::remove_all(folder_);
}

Words SimBoard::Command(const Words &program, const Words &options) const
{
    const Words emulator = Env("EMULATOR").empty() ? Words{} : Words{"--emulator", Env("EMULATOR")};
    return With(With(With({Env("CAMSIM"), "--board", folder_}, options), emulator), Located(program));
}

Outcome SimBoard::Run(const Words &program, const Words &options) const
{
    return Started(Command(program, options), true).Wait();
}

Outcome SimBoard::Sim(const Words &command) const
{
    return Started(With({Env("CAMSIM"), "--board", folder_}, command), true).Wait();
}

std::vector<int> SimBoard::Registers(int first, int count, const Words &options) const
{
    char address[8];
    snprintf(address, sizeof(address), "%02X", first);
    std::istringstream text(Run({"drvI2cTest", "-b", "E2", address, std::to_string(count)}, options).out);
    std::vector<int> values; // of lines " I2C: 0x30 = 0x84 "
    for (std::string word; text >> word;)
        if (word == "=" && text >> word)
            values.push_back(std::stoi(word, nullptr, 16));
    values.resize(static_cast<size_t>(count));
    return values;
}

Outcome RunPlain(const Words &program)
{
    Words words;
    std::istringstream emulator(Env("EMULATOR"));
    for (std::string word; emulator >> word;)
        words.push_back(word);
    return Started(With(words, Located(program))).Wait();
}
