// SPDX-License-Identifier: MIT
//
// Rule matching. Every rule that matches a call counts it, in the order of the rules; the first that fires
// decides, and only it counts a hit, so the hits of all rules add up to the calls that were changed.
#include "sim/calls/faults.h"

#include "sim/board/board.h"
#include "sim/board/host.h"

#include <string.h>

namespace sim
{

namespace
{

// A look without the lock: whether any rule may be about this call.
bool IsInRules(Call call)
{
    const BoardState *state = gBoard.state;
    uint64_t calls = 0;
    for (uint32_t i = 0; state != nullptr && i < state->faultCount && i < kFaultRules; ++i)
        calls |= state->faults[i].used != 0 ? state->faults[i].calls : 0;
    return (calls & BitOf(call)) != 0;
}

bool HasTarget(const FaultRule &rule, const Event &event)
{
    for (uint32_t i = 0; i < event.targetCount; ++i)
        if (event.targets[i] == rule.target)
            return true;
    return rule.target == kAnyTarget;
}

// To every program on the board, or to this run.
bool AppliesHere(const FaultRule &rule)
{
    return rule.run == 0 || rule.run == gBoard.run;
}

bool Matches(const FaultRule &rule, const Event &event)
{
    return rule.used != 0 && (rule.calls & BitOf(event.call)) != 0 && AppliesHere(rule) &&
           (rule.path[0] == '\0' || IsBelow(event.path, rule.path)) && HasTarget(rule, event);
}

// splitmix64: a good spread from any seed, the same on every machine.
uint32_t NextRandom(uint64_t *state)
{
    uint64_t mixed = (*state += 0x9E3779B97F4A7C15U);
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9U;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBU;
    return static_cast<uint32_t>((mixed ^ (mixed >> 31)) >> 32);
}

// Counts a matching call and tells whether the rule fires on it.
bool Fires(FaultRule &rule)
{
    ++rule.seen;
    if (rule.chance != 0 && NextRandom(&rule.random) >= rule.chance)
        return false;
    if (rule.times != 0 && rule.hits >= rule.times)
        return false;
    if (rule.seen <= rule.after)
        return false;
    const uint64_t number = rule.seen - rule.after;
    return (rule.nth == 0 || number == rule.nth) && (rule.every == 0 || number % rule.every == 0);
}

// The rule that decides about the call, among those whose effect `wanted` accepts.
template <class Wanted>
FaultRule *Decide(Event &event, Wanted wanted)
{
    FaultRule *decisive = nullptr;
    for (uint32_t i = 0; i < gBoard.state->faultCount && i < kFaultRules; ++i) {
        FaultRule &rule = gBoard.state->faults[i];
        if (wanted(rule.effect) && Matches(rule, event) && Fires(rule) && decisive == nullptr) {
            decisive = &rule;
            event.fault = i + 1;
            ++rule.hits;
        }
    }
    return decisive;
}

} // namespace

bool IsBelow(const char *path, const char *folder)
{
    const size_t length = strlen(folder);
    return strncmp(path, folder, length) == 0 && (path[length] == '\0' || path[length] == '/');
}

bool HasRules()
{
    return gBoard.state != nullptr && gBoard.state->faultCount > 0;
}

const FaultRule *PickRule(Event &event, Effect effect)
{
    return IsInRules(event.call) ? Decide(
                                       event, [effect](Effect other) { return other == effect; })
                                 : nullptr;
}

bool InjectFault(Event &event)
{
    if (!IsInRules(event.call))
        return false;
    uint32_t delayUs = 0;
    bool fails = false;
    {
        const BoardLock lock;
        const FaultRule *rule = Decide(event, [](Effect effect) {
            return effect == Effect::Fail || effect == Effect::Delay || effect == Effect::Kill;
        });
        if (rule != nullptr && rule->effect == Effect::Kill)
            host::Kill(event.process != 0 ? event.process : host::ProcessId());
        if (rule != nullptr && rule->effect == Effect::Delay) {
            delayUs = rule->value;
        } else if (rule != nullptr) {
            fails = true;
            Fail(event, static_cast<int>(rule->error));
        }
    }
    if (delayUs > 0)
        host::SleepNs(static_cast<uint64_t>(delayUs * 1000.0 / gBoard.speed));
    return fails;
}

bool InjectFlashFault(Event &event, bool changes)
{
    if (!IsInRules(Call::Flash))
        return false;
    const BoardLock lock;
    const Call call = event.call;
    event.call = Call::Flash;
    if (PickRule(event, Effect::MissingFlash) != nullptr)
        Fail(event, ENOENT);
    else if (changes && PickRule(event, Effect::ReadOnlyFlash) != nullptr)
        Fail(event, EROFS);
    else if (const FaultRule *rule = PickRule(event, Effect::Fail))
        Fail(event, static_cast<int>(rule->error));
    event.call = call;
    return event.result < 0;
}

bool IsFlashFull(Event &event)
{
    if (!IsInRules(Call::Flash))
        return false;
    const BoardLock lock;
    const Call call = event.call;
    event.call = Call::Flash;
    const bool full = PickRule(event, Effect::FullFlash) != nullptr;
    event.call = call;
    return full;
}

} // namespace sim
