// SPDX-License-Identifier: MIT
//
// Storms of signals at random times: programs end in time, and what they print and store is whole.
#include "campaign.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <signal.h>
#include <thread>

namespace
{

struct Target {
    Words program;
    const char *speed;
    std::string started;   // printed when its handlers are there
    std::string ended;     // how a whole output ends
    std::vector<int> held; // stop signals that do not kill it
    bool endless;
};

TEST(SignalsCampaign, StormsEndInTimeWithEverythingWhole)
{
    using namespace std::chrono_literals;
    const Target targets[] = {
        {{"camStat", "-t", "1", "3"},
         "20",
         "InfoOut",
         "SIGTERM!\n",
         {SIGINT, SIGTERM, SIGHUP, SIGPIPE},
         true},
        {{"camStat", "-r"}, "1", "InfoOut", "=\n", {SIGINT, SIGTERM}, false},
        {{"camConf", "apply"}, "4", "", "", {SIGINT, SIGTERM}, false},
        {{"camConf", "watch"}, "100", "watching", "conf.img\n", {SIGINT, SIGTERM}, true}};
    Campaign campaign;
    const SimBoard board(kCalm);
    const std::string conf = board.Path("sysconf/conf.img");
    const std::string before = ReadFile(conf);
    while (campaign.Goes() && !HasFailure()) {
        const Target &target = targets[campaign.Below(std::size(targets))];
        std::filesystem::remove_all(board.Path("mnt/nand"));
        std::filesystem::create_directory(board.Path("mnt/nand"));
        Started program(board.Command(target.program, {"--speed", target.speed}));
        const bool late = !target.started.empty() && campaign.Below(2) == 0;
        ASSERT_TRUE(!late || program.AwaitOut(target.started)) << program.Err();
        std::this_thread::sleep_for(campaign.Below(60000) * 1us);
        std::string story = target.program[0] + target.program[1] + ":";
        const auto send = [&](int number) {
            story += " " + std::to_string(number);
            kill(program.Pid(), number);
        };
        std::vector<int> storm = {SIGCHLD, SIGSTOP, SIGCONT, SIGWINCH};
        storm.insert(storm.end(), target.held.begin(), target.held.end());
        for (unsigned left = campaign.Below(40); left > 0; --left) {
            send(storm[campaign.Below(storm.size())]);
            std::this_thread::sleep_for(campaign.Below(300) * 1us);
        }
        const int last = target.held[campaign.Below(target.held.size())];
        send(SIGCONT);
        if (target.endless || campaign.Below(2) == 0)
            send(last);
        const auto sent = std::chrono::steady_clock::now();
        const Outcome outcome = program.Wait();
        story += "\n" + outcome.out + outcome.err;
        EXPECT_LT(std::chrono::steady_clock::now() - sent, 10s) << story;
        EXPECT_EQ(ReadFile(conf), before) << story;
        if (outcome.status >= 128 && !late)
            continue; // before its handlers were there
        EXPECT_EQ(outcome.status, 0) << story;
        EXPECT_TRUE(outcome.out.ends_with(target.ended)) << story;
        int files = 0;
        for (const auto &entry : std::filesystem::directory_iterator(board.Path("mnt/nand"))) {
            ++files;
            const std::string text = ReadFile(entry.path());
            EXPECT_NE(outcome.out.find(text), std::string::npos) << story << text;
        }
        EXPECT_EQ(files, target.program[1] == "-t" ? 2 : 0) << story;
    }
}

} // namespace
