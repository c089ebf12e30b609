// SPDX-License-Identifier: MIT
//
// Applying the fault rules of the board to a device call. Everything a rule needs is in the board's state, so
// a rule that is added while a program runs counts from that program's next call on.
#ifndef SIM_CALLS_FAULTS_H
#define SIM_CALLS_FAULTS_H

#include "sim/board/boardState.h"
#include "sim/calls/event.h"

namespace sim
{

inline constexpr char kFlashPath[] = "/mnt/nand";

/// The path is the folder itself, or something below it.
bool IsBelow(const char *path, const char *folder);

/// Applies the failing and delaying rules to a call that is about to be made. True: the call fails, and the
/// event says how; it must not be made.
bool InjectFault(Event &event);

/// The rule with this effect that picks the call now, counted as a hit; null when there is none. The board's
/// lock must be held.
const FaultRule *PickRule(Event &event, Effect effect);

/// The flash faults, for a path of the board: true when the path seems missing, or cannot be changed although
/// `changes` says that the call would do so; the event says how it fails.
bool InjectFlashFault(Event &event, bool changes);

/// The flash is full: writing must fail.
bool IsFlashFull(Event &event);

/// Any rule is on this board: what a call is about is worth finding out.
bool HasRules();

} // namespace sim

#endif
