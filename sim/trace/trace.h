// SPDX-License-Identifier: MIT
//
// The trace: each device call of the program as a line for
// a person, or as one JSON object for another program.
#ifndef SIM_TRACE_TRACE_H
#define SIM_TRACE_TRACE_H

#include "sim/calls/event.h"

namespace sim
{

enum class TraceMode { Off, Human, Json };

/// What the launcher asks for, in the environment.
inline constexpr char kTraceVariable[] = "CAMSIM_TRACE"; ///< "human", "colour" or "json"
inline constexpr char kTraceFileVariable[] =
    "CAMSIM_TRACE_FILE"; ///< file to append to; standard error without it

/// Begins the trace as the environment asks.
void StartTrace();

bool IsTracing();

/// Writes the call down; called at its end.
void TraceEvent(const Event &event, uint64_t endNs);

/// Ends the trace with a summary, and the board's descriptors that the program leaves open.
void EndTrace();

} // namespace sim

#endif
