// SPDX-License-Identifier: MIT
//
// Running a program on the attached board.
#ifndef SIM_LAUNCHER_LAUNCH_H
#define SIM_LAUNCHER_LAUNCH_H

#include "sim/launcher/commands.h"

namespace sim
{

/// How the command line asks for a run.
struct RunOptions {
    std::string board;
    Words faults;
    std::string trace;     ///< "human", "json" or empty
    std::string traceFile; ///< empty for standard error, which "json" never has
    std::string emulator;  ///< words before the program, empty to run it directly
    std::string library;   ///< the library to preload; empty to look for it
    std::string speed;
    std::string devices; ///< folder of served nodes; empty for /dev
};

/// Becomes the program; returns only when that fails, with an exit status. Tells of fault rules
/// that stay on the board, and refuses programs into which its library cannot be loaded.
int RunProgram(const RunOptions &options, const Words &program);

/// Offers the board as device nodes until a signal ends it; an exit status.
int ServeBoard(const RunOptions &options);

} // namespace sim

#endif
