// SPDX-License-Identifier: MIT
//
// The power goes at every call of the stress test and of `camConf apply`: what is on the flash then is whole,
// and the next run works with it.
#include "campaign.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>

namespace
{

const std::string kSummary = "^I2C Error Counts = [0-9]+\nI2C Read Error Counts = 0\n(\\[[0-9/: ]{19}\\]){2}"
                             "\\[[0-9]+\\]:\n$";

/// Checks and removes the files of the stress test; counts its results that are not empty.
int TakeResults(const SimBoard &board, const std::string &story)
{
    int whole = 0;
    for (const auto &entry : std::filesystem::directory_iterator(board.Path("mnt/nand"))) {
        const std::string text = ReadFile(entry.path());
        if (entry.path().filename().string().starts_with("I2cTestResult_")) {
            EXPECT_TRUE(text.empty() || Matches(text, kSummary)) << story << text;
            whole += text.empty() ? 0 : 1;
        } else if (entry.path().filename() == "I2cErr.csv") {
            EXPECT_TRUE(Matches(text, "^([0-9/: ]{19}(, [0-9]+){3}\n)*$")) << story << text;
        }
        std::filesystem::remove(entry.path());
    }
    return whole;
}

TEST(DeathCampaign, WhateverIsLeftCanBeUsed)
{
    Campaign campaign;
    const SimBoard board(kCalm);
    const std::string trace = board.Path("trace");
    const std::string conf = board.Path("sysconf/conf.img");
    const int lines = Count(ReadFile(conf), "\n");
    const std::string remarks = RunPlain({"camConf", "check", conf}).err;
    const struct {
        Words program, faults;
        int results; // that a good run leaves
    } actions[] = {{{"camStat", "-t", "1", "1"}, {"--fault", "i2c.read:after=20"}, 1},
                   {{"camConf", "apply"}, {"--fault", "i2c.read:nth=20"}, 0},
                   {{"camConf", "apply", "-o", "2A_WB_SAVE=1"}, {}, 0}};
    std::vector<std::pair<size_t, std::string>> cases;
    std::vector<Outcome> good;
    for (size_t a = 0; a < std::size(actions); ++a) {
        const Words options = With(actions[a].faults, {"--speed", "1000", "--trace-json=" + trace});
        good.push_back(board.Run(actions[a].program, options));
        const std::string calls = ReadFile(trace);
        for (const char *name : {"open", "close", "mmap", "munmap", "fcntl", "fopen", "fclose", "fflush",
                                 "fwrite", "fsync", "rename", "system", "sleep", "i2c.select", "i2c.read",
                                 "i2c.write", "gio.set", "cmem.version"}) {
            const bool isTraced = *name != 'f' || name[1] == 'c';
            const int count = isTraced ? Count(calls, "\"call\":\"" + std::string(name) + "\"") : 6;
            for (int nth = 1; nth <= count; ++nth)
                cases.emplace_back(a, name + std::string(":kill,nth=") + std::to_string(nth));
        }
        TakeResults(board, "");
    }
    std::shuffle(cases.begin(), cases.end(), campaign.Random());
    int deaths = 0;
    for (const auto &[a, rule] : cases) {
        if (!campaign.Goes())
            break;
        // The rule that kills comes first: the first one that fires decides.
        const Words options = With({"--speed", "1000"}, actions[a].faults);
        const Outcome killed = board.Run(actions[a].program, With({"--fault", rule}, options));
        deaths += killed.status == 128 + SIGKILL ? 1 : 0;
        const std::string story = rule + "\n" + killed.out + killed.err;
        TakeResults(board, story);
        const Outcome next = board.Run(actions[a].program, options);
        EXPECT_EQ(next.err.find("() failed."), std::string::npos) << story << next.err;
        EXPECT_EQ(next.status, good[a].status) << story << next.err;
        EXPECT_EQ(Count(next.err, "\n"), Count(good[a].err, "\n")) << story << next.err;
        EXPECT_EQ(TakeResults(board, story), actions[a].results) << story << next.err;
        EXPECT_EQ(Count(ReadFile(conf), "\n"), lines) << story;
        EXPECT_EQ(RunPlain({"camConf", "check", conf}).err, remarks) << story;
    }
    EXPECT_GT(deaths, 5);
}

} // namespace
