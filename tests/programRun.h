// SPDX-License-Identifier: MIT
//
// Runs the unmodified programs, plain or on a simulated board of their own, and collects what they print. The
// environment tells where they are: PROGRAMS (their folder), CAMSIM (the simulated board's launcher), and
// EMULATOR (the command that runs a program of the target; empty for programs of this machine).
#ifndef CAMSTAT_TESTS_PROGRAM_RUN_H
#define CAMSTAT_TESTS_PROGRAM_RUN_H

#include <string>
#include <sys/types.h>
#include <vector>

using Words = std::vector<std::string>;

/// The words of both.
Words With(Words words, const Words &more);

/// How a program ended: its exit status, or 128 + the signal that killed it.
struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

/// A program under way.
class Started
{
  public:
    /// Who may be sent signals goes without the leak check at exit, which can wait for ever when a signal comes then.
    explicit Started(const Words &command, bool checksLeaks = false);
    Started(const Started &) = delete;
    ~Started();

    pid_t Pid() const { return pid_; }
    std::string Out() const; ///< what it has printed so far
    std::string Err() const;
    Outcome Wait();

    /// Waits until `text` stands in standard output `times` times; false when the program ended or 30 s
    /// passed before.
    bool AwaitOut(const std::string &text, int times = 1) const;

    /// Memory that the program holds.
    long ResidentKiB() const;
    long Descriptors() const; ///< that it has open

  private:
    pid_t pid_ = -1;
    std::string outPath_;
    std::string errPath_;
};

/// A scene in which settings are taken over at once: no wait depends on how busy the machine is.
inline const Words kCalm = {"reflect=0"};

/// A fresh simulated board in a folder of its own, removed at the end.
class SimBoard
{
  public:
    explicit SimBoard(const Words &scene = {});
    SimBoard(const SimBoard &) = delete;
    ~SimBoard();

    const std::string &Folder() const { return folder_; }
    std::string Path(const std::string &inside) const { return folder_ + "/" + inside; }

    /// The words that run `program` on this board; `options` are camSim's.
    Words Command(const Words &program, const Words &options = {}) const;

    Outcome Run(const Words &program, const Words &options = {}) const;

    /// A command of camSim itself, such as {"pins"}.
    Outcome Sim(const Words &command) const;

    /// Registers of the camera, read over the bus.
    std::vector<int> Registers(int first, int count, const Words &options = {}) const;

  private:
    std::string folder_;
};

/// Runs a program without a board.
Outcome RunPlain(const Words &program);

std::string ReadFile(const std::string &path);

/// The value of an environment variable; empty without it.
std::string Env(const char *variable);

/// Whether the extended regular expression is found in `text`.
bool Matches(const std::string &text, const std::string &expression);

/// How often `part` stands in `text`.
int Count(const std::string &text, const std::string &part);

#endif
