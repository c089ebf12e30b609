// SPDX-License-Identifier: MIT
//
// Every device call of every action fails: once, or from then on, each with every errno. The calls are those
// of a good run's trace; afterwards a run may leave calls out, and makes none that a good run does not make.
#include "campaign.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sstream>

namespace
{

struct Call {
    std::string name, what; // what: with path and register
    bool failed;
    bool operator==(const Call &other) const { return what == other.what; }
};

/// The value of a member of a trace line, without quotes.
std::string Member(const std::string &line, const std::string &name)
{
    const size_t at = line.find("\"" + name + "\":");
    if (at == std::string::npos)
        return "";
    const size_t begin = at + name.size() + 3;
    return line[begin] == '"' ? line.substr(begin + 1, line.find('"', begin + 1) - begin - 1)
                              : line.substr(begin, line.find_first_of(",}", begin) - begin);
}

struct Trace {
    std::vector<Call> calls;
    std::string open; // at the end

    explicit Trace(const std::string &path)
    {
        std::istringstream text(ReadFile(path));
        for (std::string line; std::getline(text, line);) {
            const std::string name = Member(line, "call");
            if (name == "exit") {
                open = line.substr(line.find("\"open\""));
                continue;
            }
            const std::string file = Member(line, "path"); // result files have their time behind the '_'
            calls.push_back({name, name + file.substr(0, file.find('_', 12)) + " " + Member(line, "first"),
                             Member(line, "result")[0] == '-'});
        }
    }

    /// What must be the same: no pauses, no polls (their number is a matter of time), and not the log that
    /// every failed transfer appends to.
    std::vector<Call> Essence() const
    {
        std::vector<Call> essence;
        for (const Call &call : calls)
            if (call.name != "sleep" && call.what.find("block 32") == std::string::npos &&
                call.what != "i2c.read/dev/dev_i2c 32" && call.what.find("I2cErr") == std::string::npos)
                essence.push_back(call);
        return essence;
    }

    /// Whatever was opened last is closed first; what is open at the end was named by `open`.
    void ExpectOrder(const std::string &story) const
    {
        std::vector<std::string> stack;
        for (const Call &call : calls) {
            const std::string thing = call.what.substr(call.name.size());
            const bool closes = call.name == "close" || call.name == "fclose" || call.name == "munmap";
            if (closes) {
                ASSERT_FALSE(stack.empty()) << story;
                ASSERT_EQ(stack.back(), call.name == "munmap" ? "map" + thing : thing) << story;
                stack.pop_back();
            } else if (!call.failed && (call.name == "open" || call.name == "fopen")) {
                stack.push_back(thing);
            } else if (!call.failed && call.name == "mmap") {
                stack.push_back("map" + thing);
            }
        }
    }
};

// What the programs say of a failing call; of all others (closing, pauses, log files) nothing. The second
// fcntl is as silent as the first is not.
const struct {
    const char *call, *says;
} kTexts[] = {{"open/sysconf", "camConf: /sysconf/conf.img: "},
              {"open/dev/csl", "CSL_sysInit() failed."},
              {"mmap/dev/csl", "CSL_sysInit() failed."},
              {"open/dev/cmem", "CMEM Error: init: Failed to open"},
              {"cmem.version", "CMEM Error: getVersion: "},
              {"fcntl/dev/cmem", ""},
              {"open/dev/dev_i2c", "DrvI2cOpen"},
              {"i2c.select", "DrvI2cOpen"},
              {"i2c.read", " Read "},
              {"i2c.write", " Write "},
              {"open/dev/gio", "ERROR: open device failed"},
              {"gio", "ERROR: ioctl failed"}};

/// Each failing call is named, transfers with their register.
void ExpectTexts(const Trace &trace, const Outcome &outcome, const std::string &story)
{
    bool silent = true;
    for (const Call &call : trace.calls) {
        for (const auto &text : kTexts) {
            if (!call.failed || !call.what.starts_with(text.call))
                continue;
            silent = false;
            EXPECT_NE((outcome.out + outcome.err).find(text.says), std::string::npos) << call.what << story;
            char reg[8];
            snprintf(reg, sizeof(reg), "0x%02x", atoi(call.what.c_str() + call.what.rfind(' ')));
            EXPECT_TRUE(*text.says != ' ' ||
                        Matches(outcome.err, std::string("Read Addr .") + reg + "|Write " + reg) ||
                        outcome.out.find("ERROR !!!") != std::string::npos)
                << call.what << story;
        }
    }
    EXPECT_TRUE(!silent || outcome.err.empty()) << story;
}

struct Action {
    Words program;
    Words faults; // of the good run as well
    int failed;   // status that a failure may give besides 0
    Trace good;
    size_t start = 0, started = 0; // the start-up's calls: from, and the first one behind
};

struct Case {
    size_t action, call;
    std::string rule;
};

const Words kErrnos = {"EIO", "EINTR", "EAGAIN", "ETIMEDOUT", "ENODEV", "EREMOTEIO", "EBUSY"};

class Devices
{
  public:
    Devices()
    {
        for (const Words &words : std::vector<Words>{{"-w", "1", "1"},
                                                     {"-r"},
                                                     {"-l", "on"},
                                                     {"-i", "IR_PASS"},
                                                     {"-e", "30", "2000", "1000"},
                                                     {"-s"}})
            actions_.push_back({With({"camStat"}, words), {}, 0, Trace("")});
        actions_.push_back({{"camStat", "-t", "1", "0"}, {"--fault", "i2c.read:nth=40"}, 0, Trace("")});
        actions_.push_back({{"camConf", "apply"}, {}, 2, Trace("")});
        for (const Words &words :
             std::vector<Words>{{"-r", "E2", "30", "2"}, {"-b", "E2", "30"}, {"-w", "E2", "30", "86"}})
            actions_.push_back({With({"drvI2cTest"}, words), {}, 255, Trace("")});
        for (Action &action : actions_) {
            const Outcome outcome = Run(action, {}, &action.good);
            EXPECT_GT(action.good.calls.size(), 3U) << outcome.err;
            if (action.program[0] == "drvI2cTest")
                continue; // has no start-up
            while (action.good.calls[action.start].what.find("/dev/csl1") == std::string::npos)
                ++action.start;
            // It ends where the action without work goes back.
            action.started = action.start;
            for (const Call &call : actions_[0].good.calls)
                action.started += call.name == "close" || call.name == "munmap" ? 0U : 1U;
        }
    }

    /// Every call once in every round, with another errno and another number of failures each time.
    std::vector<Case> Round(Campaign &campaign)
    {
        std::vector<Case> cases;
        for (size_t a = 0; a < actions_.size(); ++a) {
            std::map<std::string, int> number;
            for (size_t i = 0; i < actions_[a].good.calls.size(); ++i) {
                const std::string &name = actions_[a].good.calls[i].name;
                const int nth = ++number[name];
                const std::string &error = kErrnos[campaign.Below(kErrnos.size())];
                // A pause that a signal always cuts never ends.
                const bool once = name == "sleep" || campaign.Below(2) == 0;
                std::string rule = name + (once ? ":nth=" : ":after=");
                rule += std::to_string(once ? nth : nth - 1) + ",errno=" + error;
                cases.push_back({a, i, rule});
            }
        }
        std::shuffle(cases.begin(), cases.end(), campaign.Random());
        return cases;
    }

    void Check(const Case &c)
    {
        const Action &action = actions_[c.action];
        Trace trace("");
        const Outcome outcome = Run(action, {"--fault", c.rule}, &trace);
        std::string story = c.rule + " in";
        for (const std::string &word : action.program)
            story += " " + word;
        story += "\n" + outcome.out + outcome.err;
        EXPECT_TRUE(outcome.status == 0 || outcome.status == action.failed) << outcome.status << story;
        const Call &failing = action.good.calls[c.call];
        const bool inStart = c.call >= action.start && c.call < action.started;
        const bool csl = failing.what.find("/dev/csl") != std::string::npos && inStart;
        EXPECT_TRUE(csl || trace.open == "\"open\":[]}") << trace.open << story; // csl: see camStatTest
        trace.ExpectOrder(story);
        ExpectTexts(trace, outcome, story);
        std::istringstream err(outcome.err);
        std::set<std::string> lines;
        for (std::string line; std::getline(err, line) && c.rule.find(":nth=") != std::string::npos;)
            EXPECT_TRUE(lines.insert(line).second) << "twice: " << line << story;

        const std::vector<Call> good = action.good.Essence();
        const std::vector<Call> made = trace.Essence();
        auto next = good.begin();
        for (const Call &call : made) {
            next = std::find(next, good.end(), call);
            ASSERT_NE(next, good.end()) << call.what << " is not to be made: " << story;
            ++next;
        }
        const bool stops = inStart && failing.name != "sleep" && failing.name != "fcntl";
        EXPECT_EQ(Count(outcome.err, "() failed.\n"), stops ? 1 : 0) << story;
        EXPECT_TRUE(!stops || outcome.status == action.failed) << story;
    }

  private:
    Outcome Run(const Action &action, const Words &faults, Trace *trace)
    {
        const std::string path = board_.Path("trace");
        const Words options = With(With({"--speed", "10000", "--trace-json=" + path}, action.faults), faults);
        Outcome outcome = board_.Run(action.program, options);
        *trace = Trace(path);
        if (action.program.back() == "-s")
            board_.Sim({"pins", "reset=1"}); // the line may have stayed low
        return outcome;
    }

    SimBoard board_{kCalm};
    std::vector<Action> actions_;
};

TEST(DevicesCampaign, EveryCallFails)
{
    Campaign campaign;
    Devices devices;
    while (!testing::Test::HasFailure())
        for (const Case &c : devices.Round(campaign)) {
            if (!campaign.Goes())
                return;
            devices.Check(c);
        }
}

} // namespace
