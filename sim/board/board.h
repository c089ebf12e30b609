// SPDX-License-Identifier: MIT
//
// A board in use: its folder, its mapped state and lock, and its kernel log. The launcher makes boards
// (boardFolder.h); here they are only used.
#ifndef SIM_BOARD_BOARD_H
#define SIM_BOARD_BOARD_H

#include "sim/board/boardState.h"

namespace sim
{

inline constexpr char kStateFile[] = "board.state";
inline constexpr char kKernelLogFile[] = "kernel.log";
inline constexpr char kSystemLogFile[] = "system.log";
inline constexpr char kVpssFile[] = "vpss.bin";
inline constexpr char kCmemFile[] = "cmem.bin";
inline constexpr uint32_t kVpssBytes = 0x10000;

/// The board of this process. `state` is null while there is none.
struct Board {
    BoardState *state = nullptr;
    char folder[4000] = {};
    uint64_t startNs = 0; ///< host's monotonic clock when this process began to use the board
    double speed = 1.0;   ///< board seconds in a second of the host
    int kernelLog =
        -1; ///< descriptor of this machine's kernel log, which gets the board's lines, too; -1: it does not
    uint32_t run = 0; ///< number of this run, for the rules that belong to it alone
};

extern Board gBoard;

enum class AttachResult { Ok, NoFile, Damaged, OtherLayout };

/// Maps the state of the board in `folder` into gBoard. A state with any
/// member out of its bounds is damaged: whoever has a board can rely on it.
AttachResult AttachBoard(const char *folder);

/// "folder/name" of this board. `name` may begin with a slash,
/// as the re-rooted paths do. False when it does not fit.
bool BoardPath(const char *name, char *path, size_t size);

/// Nanoseconds of the board since this process began to use it.
uint64_t BoardNs();

/// Appends a line to the board's kernel log, stamped with the board's time; `text` carries no line end.
void LogToKernel(const char *text);

/// A lock that is a word in memory: the number of the thread that holds it, 0 when it is free. It works
/// between threads and between processes and survives a fork. A holder that is not (or no more) a thread of
/// this process, or for the board's lock of a process that has the board mapped, loses it to the next one.
/// It is not a mutex of the threads library because a thread checker's run-time library calls into this one
/// when its own part in such a mutex is over already.
class WordLock
{
  public:
    explicit WordLock(uint32_t *word);
    ~WordLock();
    WordLock(const WordLock &) = delete;
    WordLock &operator=(const WordLock &) = delete;

  private:
    uint32_t *word_;
};

/// The board, held by one thread of one process.
class BoardLock : public WordLock
{
  public:
    BoardLock();
};

} // namespace sim

#endif
