// SPDX-License-Identifier: MIT
//
// The trace: each device call of the program as a line for
// a person, or as one JSON object for another program.
#ifndef SIM_TRACE_TRACE_H
#define SIM_TRACE_TRACE_H

namespace sim
{

/// What the launcher asks for, in the environment.
inline constexpr char kTraceVariable[] = "CAMSIM_TRACE"; ///< "human", "colour" or "json"
inline constexpr char kTraceFileVariable[] =
    "CAMSIM_TRACE_FILE"; ///< file to append to; standard error without it

/// Begins the trace as the environment asks: from now on it hears of every call.
void StartTrace();

/// Ends the trace with a summary, and the board's descriptors that the program leaves open.
void EndTrace();

} // namespace sim

#endif
