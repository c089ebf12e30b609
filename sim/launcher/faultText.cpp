// SPDX-License-Identifier: MIT
//
// Fault rules as text: CALL[=VALUE][:WORD,...]. A word is
// a path, a condition (which of the calls), or an effect.
#include "sim/launcher/faultText.h"

#include "sim/board/board.h"
#include "sim/board/host.h"
#include "sim/board/registers.h"
#include "sim/calls/calls.h"
#include "sim/calls/faults.h"
#include "sim/launcher/parse.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <span>
#include <vector>

namespace sim
{

namespace
{

// Names that stand for something longer.
struct Alias {
    const char *name;
    const char *call;
};

constexpr Alias kAliases[] = {{"slave", "i2c.select"}, {"nanosleep", "sleep"}, {"usleep", "sleep"}};

bool Refuse(std::string *problem, const std::string &text)
{
    *problem = text;
    return false;
}

// Into a field of the rule that is known to be long enough.
template <size_t size>
void CopyText(const std::string &text, char (*field)[size])
{
    memcpy(*field, text.c_str(), text.size() + 1);
}

std::string CallNames()
{
    std::string names;
    for (const CallInfo &call : kCalls) {
        names += names.empty() ? "" : ", ";
        names += call.name;
    }
    return names;
}

std::string LongName(const std::string &name)
{
    for (const Alias &alias : kAliases)
        if (name == alias.name)
            return alias.call;
    return name;
}

// The calls behind a name: one, a family, or with "ioctl" every request. The errno is that of the first.
uint64_t FindCalls(const std::string &name, uint32_t *error)
{
    uint64_t calls = 0;
    for (unsigned i = 0; i < static_cast<unsigned>(Call::Count); ++i) {
        const std::string candidate = kCalls[i].name;
        const bool isRequest = candidate.find('.') != std::string::npos;
        const bool isFamily = candidate.compare(0, name.size() + 1, name + ".") == 0;
        if (candidate == name || isFamily || (name == "ioctl" && isRequest)) {
            *error = calls == 0 ? static_cast<uint32_t>(kCalls[i].error) : *error;
            calls |= uint64_t{1} << i;
        }
    }
    if (name == "ioctl")
        *error = EIO;
    return calls;
}

// ---- The words of a rule: one table for the parser, its complaints, and the help

template <uint32_t FaultRule::*member, uint32_t least>
bool TakeNumber(const std::string &value, FaultRule *rule)
{
    return ParseNumber(value, least, UINT32_MAX, &(rule->*member));
}

bool TakeChance(const std::string &value, FaultRule *rule)
{
    double share = 0.0;
    if (!ParseFraction(value, 0.0, 1.0, &share) || share == 0.0)
        return false;
    rule->chance = share >= 1.0 ? UINT32_MAX : static_cast<uint32_t>(share * 4294967296.0);
    return true;
}

bool TakeSeed(const std::string &value, FaultRule *rule)
{
    uint32_t seed = 0;
    const bool good = ParseNumber(value, 0, UINT32_MAX, &seed);
    rule->random = seed;
    return good;
}

bool TakeRegister(const std::string &value, FaultRule *rule)
{
    if (const Field *field = FindField(value.c_str())) {
        rule->target = field->reg;
        return true;
    }
    return ParseNumber(value, 0, kRegisters - 1, &rule->target);
}

bool TakePin(const std::string &value, FaultRule *rule)
{
    return ParseNumber(value, 0, kPins - 1, &rule->target);
}

bool TakePath(const std::string &value, FaultRule *rule)
{
    const bool fits = value.size() < sizeof(rule->path);
    if (fits)
        CopyText(value, &rule->path);
    return fits;
}

bool TakeErrno(const std::string &value, FaultRule *rule)
{
    constexpr int kLastErrno = 133;
    for (int candidate = 1; candidate <= kLastErrno; ++candidate) {
        const char *name = strerrorname_np(candidate);
        if (name != nullptr && value == name) {
            rule->error = static_cast<uint32_t>(candidate);
            return true;
        }
    }
    return ParseNumber(value, 1, kLastErrno, &rule->error);
}

bool TakeTime(const std::string &value, FaultRule *rule)
{
    return ParseTime(value, &rule->value);
}

bool TakeMissing(const std::string &, FaultRule *rule)
{
    rule->error = ENOENT;
    return true;
}

bool TakeNothing(const std::string &, FaultRule *)
{
    return true;
}

struct FaultWord {
    const char *name;
    const char *value; // what stands behind '=', empty for none
    const char *meaning;
    bool (*take)(const std::string &value, FaultRule *rule);
    Effect effect = Effect::Fail; // Fail leaves the rule's as it is
    Call only = Call::Count;      // the one call that the word goes with; Count for any
};

constexpr char kPathWord[] = "/a/path";

constexpr FaultWord kChoices[] = {
    {"nth", "N", "the Nth only", TakeNumber<&FaultRule::nth, 1>},
    {"every", "N", "each Nth", TakeNumber<&FaultRule::every, 1>},
    {"chance", "SHARE", "at random, with this share of 0 to 1", TakeChance},
    {"seed", "N", "for chance: another sequence, which repeats as well", TakeSeed},
    {"after", "N", "none of the first N", TakeNumber<&FaultRule::after, 0>},
    {"times", "N", "at most N of them", TakeNumber<&FaultRule::times, 1>},
    {"reg", "NAME|ADDRESS", "transfers that touch this register", TakeRegister},
    {"pin", "NUMBER", "requests for this pin", TakePin},
    {kPathWord, "", "on this node, this file, or below this folder", TakePath},
};

constexpr FaultWord kEffects[] = {
    {"fail", "", "fail with the call's usual errno", TakeNothing},
    {"refused", "", "the same", TakeNothing},
    {"errno", "NAME|NUMBER", "fail with this errno", TakeErrno},
    {"missing", "", "fail with ENOENT", TakeMissing},
    {"kill", "", "the program dies before it, as when the power goes", TakeNothing, Effect::Kill},
    {"delay", "TIME", "the call is late, then goes on; as in 5ms, 200us, 2s", TakeTime, Effect::Delay},
    {"cmem.version", "VERSION", "the driver answers with this version", TakeNumber<&FaultRule::value, 0>,
     Effect::Value, Call::CmemVersion},
    {"stuck", "", "the camera never takes settings over", TakeNothing, Effect::Stuck, Call::Reflect},
    {"busy", "TIME", "it takes another time for it", TakeTime, Effect::Busy, Call::Reflect},
    {"back", "TIME", "the clock reads earlier", TakeTime, Effect::Back, Call::Clock},
    {"missing", "", "nothing is below /mnt/nand, or a path of the rule", TakeMissing, Effect::MissingFlash,
     Call::Flash},
    {"full", "", "files open there, but no byte fits", TakeNothing, Effect::FullFlash, Call::Flash},
    {"readonly", "", "nothing there can be changed", TakeNothing, Effect::ReadOnlyFlash, Call::Flash},
};

// The word as it is written, with the call that it goes with.
std::string Written(const FaultWord &word)
{
    const std::string text = std::string(word.name) + (word.value[0] != '\0' ? "=" : "") + word.value;
    const bool namesCall = word.only == Call::Count || strcmp(word.name, NameOf(word.only)) == 0;
    return namesCall ? text : NameOf(word.only) + (":" + text);
}

using FaultWords = std::span<const FaultWord>;

std::string List(FaultWords words)
{
    std::string list;
    for (const FaultWord &word : words)
        list += (list.empty() ? "" : ", ") + Written(word);
    return list;
}

// A line of the help: what to write, and what it means.
std::string Explain(const std::string &written, const char *meaning)
{
    std::string left = "  " + written;
    left.resize(std::max<size_t>(left.size() + 1, 26), ' ');
    return left + meaning + "\n";
}

std::string Explain(FaultWords words)
{
    std::string lines;
    for (const FaultWord &word : words)
        lines += Explain(Written(word), word.meaning);
    return lines;
}

// The row that fits a word best: one that goes with these calls, then one that goes with any, then one that
// goes with others; null when there is none.
const FaultWord *FindWord(const std::string &name, bool hasValue, uint64_t calls)
{
    const FaultWord *best = nullptr;
    int bestFit = 0;
    for (const FaultWords words : {FaultWords(kChoices), FaultWords(kEffects)}) {
        for (const FaultWord &word : words) {
            const int fit = word.only == Call::Count ? 2 : calls == BitOf(word.only) ? 3 : 1;
            if (name == word.name && hasValue == (word.value[0] != '\0') && fit > bestFit) {
                best = &word;
                bestFit = fit;
            }
        }
    }
    return best;
}

bool TakeWord(const std::string &text, FaultRule *rule, std::string *problem)
{
    const bool isPath = text[0] == '/';
    const size_t equals = isPath ? std::string::npos : text.find('=');
    const bool hasValue = equals != std::string::npos;
    const std::string value = isPath ? text : hasValue ? text.substr(equals + 1) : "";
    const FaultWord *word = FindWord(isPath ? kPathWord : text.substr(0, equals), hasValue, rule->calls);
    if (word == nullptr)
        return Refuse(problem, "'" + text + "' means nothing in a rule. Words are, which calls: " +
                                   List(kChoices) + "; what happens: " + List(kEffects));
    if (word->only != Call::Count && rule->calls != BitOf(word->only))
        return Refuse(problem,
                      "'" + text + "' goes with " + NameOf(word->only) + ", as in " + Written(*word));
    if (!word->take(value, rule))
        return Refuse(problem,
                      "'" + value + "' is not a value for " + Written(*word) +
                          "; examples: nth=3 every=100 chance=0.01 seed=7 reg=ExpTime errno=EIO delay=5ms");
    rule->effect = word->effect != Effect::Fail ? word->effect : rule->effect;
    return true;
}

// Cuts at any of the characters.
std::vector<std::string> Split(const std::string &text, const char *at)
{
    std::vector<std::string> parts;
    size_t begin = 0;
    for (size_t end = text.find_first_of(at); end != std::string::npos; end = text.find_first_of(at, begin)) {
        parts.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    parts.push_back(text.substr(begin));
    return parts;
}

// CALL, or CALL=VALUE where a word of that name goes with this call alone.
bool TakeCall(const std::string &head, FaultRule *rule, std::string *problem)
{
    const size_t equals = head.find('=');
    const std::string name = LongName(head.substr(0, equals));
    rule->calls = FindCalls(name, &rule->error);
    if (rule->calls == 0)
        return Refuse(problem, "there is no call '" + name + "' to fail. Calls are: " + CallNames() +
                                   "; i2c, gio, cmem and ioctl stand for all of their kind");
    if (equals != std::string::npos && FindWord(name, true, rule->calls) == nullptr)
        return Refuse(problem, "only the driver's version takes a value, as in cmem.version=0x02200000");
    if (rule->calls == BitOf(Call::Flash))
        CopyText(kFlashPath, &rule->path);
    return equals == std::string::npos || TakeWord(head, rule, problem);
}

} // namespace

bool ParseFault(const std::string &text, FaultRule *rule, std::string *problem)
{
    *rule = {};
    rule->used = 1;
    rule->target = kAnyTarget;
    if (text.size() >= sizeof(rule->text))
        return Refuse(problem, "the rule is too long");
    CopyText(text, &rule->text);
    const std::vector<std::string> parts = Split(text, ":,");
    if (!TakeCall(parts[0], rule, problem))
        return false;
    for (size_t i = 1; i < parts.size(); ++i)
        if (!TakeWord(parts[i], rule, problem))
            return false;
    const bool isState = rule->calls == BitOf(Call::Reflect) || rule->calls == BitOf(Call::Flash);
    if (rule->calls == BitOf(Call::Reflect) && rule->effect == Effect::Fail)
        return Refuse(problem, "reflect takes stuck or busy=TIME, as in reflect:busy=40ms");
    return !(isState && (rule->effect == Effect::Delay || rule->effect == Effect::Kill)) ||
           Refuse(problem, "delay and kill: each goes with a call, as in fopen:delay=5ms or i2c.read:kill");
}

bool AddFault(const FaultRule &rule, std::string *problem)
{
    const BoardLock lock;
    BoardState &state = *gBoard.state;
    for (uint32_t i = 0; i < kFaultRules; ++i) {
        if (i >= state.faultCount || state.faults[i].used == 0) {
            state.faults[i] = rule;
            state.faultCount = i >= state.faultCount ? i + 1 : state.faultCount;
            return true;
        }
    }
    return Refuse(problem, "the board holds no more rules than " + std::to_string(kFaultRules) +
                               "; `camSim fault clear` removes them");
}

void DropEndedRuns()
{
    const BoardLock lock;
    BoardState &state = *gBoard.state;
    for (uint32_t i = 0; i < state.faultCount; ++i)
        if (state.faults[i].run != 0 && !host::IsAlive(state.faults[i].runPid))
            state.faults[i].used = 0;
    while (state.faultCount > 0 && state.faults[state.faultCount - 1].used == 0)
        --state.faultCount;
}

bool ClearFaults(unsigned number)
{
    const BoardLock lock;
    BoardState &state = *gBoard.state;
    if (number == 0) {
        memset(state.faults, 0, sizeof(state.faults));
        state.faultCount = 0;
        return true;
    }
    if (number > state.faultCount || state.faults[number - 1].used == 0)
        return false;
    state.faults[number - 1].used = 0;
    return true;
}

std::string FaultHelp()
{
    std::string help =
        "A rule is CALL[:WORD,WORD...]: which device call, which of these calls, and what happens.\n\n"
        "Calls (i2c, gio, cmem and ioctl stand for all of their kind):\n";
    for (const CallInfo &call : kCalls)
        help += Explain(call.name, call.meaning);
    for (const Alias &alias : kAliases)
        help += Explain(alias.name, (std::string("the same as ") + alias.call).c_str());
    return help + "\nWhich of these calls (all, without one):\n" + Explain(kChoices) +
           "\nWhat happens (fail, without one):\n" + Explain(kEffects);
}

} // namespace sim
