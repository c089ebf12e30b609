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

#include <vector>

namespace sim
{

namespace
{

constexpr char kWords[] = "which calls: nth=N, every=N, chance=SHARE (0 to 1) with seed=N, after=N, times=N, "
                          "reg=NAME|ADDRESS, pin=NUMBER, "
                          "/a/path; what happens: errno=NAME|NUMBER, missing, refused, fail, delay=TIME, for "
                          "clock back=TIME, for reflect "
                          "stuck or busy=TIME, for flash missing, full or readonly";

// Names that stand for something longer.
struct Alias {
    const char *name;
    const char *call;
};

constexpr Alias kAliases[] = {
    {"slave", "i2c.select"}, {"creat", "open"}, {"nanosleep", "sleep"}, {"usleep", "sleep"}};

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

std::string Unalias(const std::string &name)
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

bool ParseErrno(const std::string &text, uint32_t *error)
{
    constexpr int kLastErrno = 133;
    for (int candidate = 1; candidate <= kLastErrno; ++candidate) {
        const char *name = strerrorname_np(candidate);
        if (name != nullptr && text == name) {
            *error = static_cast<uint32_t>(candidate);
            return true;
        }
    }
    return ParseNumber(text, 1, kLastErrno, error);
}

bool ParseTarget(const std::string &text, uint32_t *target)
{
    if (const Field *field = FindField(text.c_str())) {
        *target = field->reg;
        return true;
    }
    return ParseNumber(text, 0, 255, target);
}

bool ParseChance(const std::string &text, uint32_t *chance)
{
    double share = 0.0;
    if (!ParseDecimal(text, 0.0, 1.0, &share) || share == 0.0)
        return false;
    *chance = share >= 1.0 ? UINT32_MAX : static_cast<uint32_t>(share * 4294967296.0);
    return true;
}

bool IsAbout(const FaultRule &rule, Call call)
{
    return (rule.calls & BitOf(call)) != 0;
}

bool SetEffect(FaultRule *rule, Call only, Effect effect, const std::string &word, std::string *problem)
{
    if (rule->calls != BitOf(only)) {
        return Refuse(problem,
                      "'" + word + "' goes with " + NameOf(only) + ", as in " + NameOf(only) + ":" + word);
    }
    rule->effect = effect;
    return true;
}

bool ApplyPlainWord(FaultRule *rule, const std::string &word, std::string *problem)
{
    if (word[0] == '/') {
        if (word.size() >= sizeof(rule->path))
            return Refuse(problem, "the path '" + word + "' is too long");
        CopyText(word, &rule->path);
        return true;
    }
    if (word == "missing") {
        rule->error = ENOENT;
        return !IsAbout(*rule, Call::Flash) ||
               SetEffect(rule, Call::Flash, Effect::MissingFlash, word, problem);
    }
    if (word == "full")
        return SetEffect(rule, Call::Flash, Effect::FullFlash, word, problem);
    if (word == "readonly")
        return SetEffect(rule, Call::Flash, Effect::ReadOnlyFlash, word, problem);
    if (word == "stuck")
        return SetEffect(rule, Call::Reflect, Effect::Stuck, word, problem);
    if (word == "fail" || word == "refused")
        return true; // with the call's own errno
    return Refuse(problem, "'" + word + "' means nothing in a rule. Words are, " + kWords);
}

bool ApplySetting(FaultRule *rule, const std::string &key, const std::string &value, std::string *problem)
{
    uint32_t seed = 0;
    bool good = false;
    if (key == "nth") {
        good = ParseNumber(value, 1, UINT32_MAX, &rule->nth);
    } else if (key == "every") {
        good = ParseNumber(value, 1, UINT32_MAX, &rule->every);
    } else if (key == "after") {
        good = ParseNumber(value, 0, UINT32_MAX, &rule->after);
    } else if (key == "times") {
        good = ParseNumber(value, 1, UINT32_MAX, &rule->times);
    } else if (key == "chance") {
        good = ParseChance(value, &rule->chance);
    } else if (key == "seed") {
        good = ParseNumber(value, 0, UINT32_MAX, &seed);
        rule->random = seed;
    } else if (key == "reg") {
        good = ParseTarget(value, &rule->target);
    } else if (key == "pin") {
        good = ParseNumber(value, 0, kPins - 1, &rule->target);
    } else if (key == "errno") {
        good = ParseErrno(value, &rule->error);
    } else if (key == "delay") {
        rule->effect = Effect::Delay;
        good = ParseTime(value, &rule->value);
    } else if (key == "busy") {
        good = ParseTime(value, &rule->value);
        return good ? SetEffect(rule, Call::Reflect, Effect::Busy, "busy=" + value, problem)
                    : Refuse(problem, "busy takes a time such as 40ms");
    } else if (key == "back") {
        good = ParseTime(value, &rule->value);
        return good ? SetEffect(rule, Call::Clock, Effect::Back, "back=" + value, problem)
                    : Refuse(problem, "back takes a time such as 2s");
    } else {
        return Refuse(problem, "'" + key + "=' means nothing in a rule. Words are, " + kWords);
    }
    return good ||
           Refuse(problem,
                  "'" + value + "' is not a value for " + key +
                      "; examples: nth=3 every=100 chance=0.01 seed=7 reg=ExpTime errno=EIO delay=5ms");
}

bool ApplyWord(FaultRule *rule, const std::string &word, std::string *problem)
{
    const size_t equals = word.find('=');
    if (word.empty())
        return Refuse(problem, "a word is empty. Words are, " + std::string(kWords));
    return equals == std::string::npos || word[0] == '/'
               ? ApplyPlainWord(rule, word, problem)
               : ApplySetting(rule, word.substr(0, equals), word.substr(equals + 1), problem);
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

bool ApplyHead(FaultRule *rule, const std::string &head, std::string *problem)
{
    const size_t equals = head.find('=');
    const std::string name = Unalias(head.substr(0, equals));
    rule->calls = FindCalls(name, &rule->error);
    if (rule->calls == 0) {
        return Refuse(problem, "there is no call '" + name + "' to fail. Calls are: " + CallNames() +
                                   "; i2c, gio, cmem and ioctl stand for all of their kind");
    }
    if (equals != std::string::npos) {
        rule->effect = Effect::Value;
        return (rule->calls == BitOf(Call::CmemVersion) &&
                ParseNumber(head.substr(equals + 1), 0, UINT32_MAX, &rule->value)) ||
               Refuse(problem, "only the driver's version takes a value, as in cmem.version=0x02200000");
    }
    if (rule->calls == BitOf(Call::Flash))
        CopyText(kFlashPath, &rule->path);
    return true;
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
    if (!ApplyHead(rule, parts[0], problem))
        return false;
    for (size_t i = 1; i < parts.size(); ++i)
        if (!ApplyWord(rule, parts[i], problem))
            return false;
    const bool isState = rule->calls == BitOf(Call::Reflect) || rule->calls == BitOf(Call::Flash);
    if (rule->calls == BitOf(Call::Reflect) && rule->effect == Effect::Fail)
        return Refuse(problem, "reflect takes stuck or busy=TIME, as in reflect:busy=40ms");
    return !(isState && rule->effect == Effect::Delay) ||
           Refuse(problem, "delay goes with a call, as in fopen:delay=5ms or i2c.read:delay=5ms");
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
        "Calls (i2c, gio, cmem and ioctl stand for all of their kind; slave for i2c.select):\n";
    for (const CallInfo &call : kCalls) {
        std::string name = call.name;
        name.resize(16, ' ');
        help += "  " + name + call.meaning + "\n";
    }
    help += "\nWhich of these calls (all, without one):\n"
            "  nth=N           the Nth only\n"
            "  every=N         each Nth\n"
            "  chance=SHARE    at random, 0 to 1; seed=N makes another, equally repeatable sequence\n"
            "  after=N         none of the first N\n"
            "  times=N         at most N of them\n"
            "  reg=NAME|ADDR   transfers that touch this register\n"
            "  pin=NUMBER      requests for this pin\n"
            "  /a/path         on this node, this file, or below this folder\n"
            "\nWhat happens (fail, without one):\n"
            "  fail, refused   fail with the call's usual errno\n"
            "  errno=NAME      fail with this errno; missing is errno=ENOENT\n"
            "  delay=TIME      the call is late, and then goes on; TIME is 5ms, 200us or 2s\n"
            "  cmem.version=X  the driver answers with this version\n"
            "  reflect:stuck   the camera never takes settings over\n"
            "  reflect:busy=T  it takes another time for it\n"
            "  clock:back=T    the clock reads earlier\n"
            "  flash:missing   nothing is below /mnt/nand, or below a path that the rule names\n"
            "  flash:full      files open there, but no byte fits\n"
            "  flash:readonly  nothing there can be changed\n";
    return help;
}

} // namespace sim
