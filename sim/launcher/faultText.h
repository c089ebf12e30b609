// SPDX-License-Identifier: MIT
//
// The language of fault rules, and the list of them on a board; for the launcher.
#ifndef SIM_LAUNCHER_FAULT_TEXT_H
#define SIM_LAUNCHER_FAULT_TEXT_H

#include "sim/board/boardState.h"

#include <string>

namespace sim
{

/// Reads a rule. On failure the result is false and `problem` says what is wrong and what is accepted.
bool ParseFault(const std::string &text, FaultRule *rule, std::string *problem);

/// Adds a rule to the attached board; false when it holds no more.
bool AddFault(const FaultRule &rule, std::string *problem);
/// Rules of runs that have ended make room for those of a new run.
void DropEndedRuns();

/// Removes rule `number` (from 1), or all with number 0; false when there is none.
bool ClearFaults(unsigned number);

/// The language, for the help.
std::string FaultHelp();

} // namespace sim

#endif
