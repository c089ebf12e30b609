// SPDX-License-Identifier: MIT
//
// Programs whose standard descriptors are closed; what camStat prints stands in transcripts.
#include "programRun.h"

#include <gtest/gtest.h>

namespace
{

// Otherwise what is printed would go into the device that took the place.
TEST(Robustness, AClosedStandardDescriptorIsTakenByNoDevice)
{
    for (const Words &program : {Words{"camStat", "-s"}, Words{"drvI2cTest", "-r", "E2", "30", "2"}}) {
        for (const char *closing : {" <&-", " >&-", " 2>&-", " <&- >&- 2>&-"}) {
            const SimBoard board;
            const std::string trace = board.Path("trace");
            const Words command = board.Command(program, {"--speed", "100", "--trace-json=" + trace});
            const Words shell = {"/bin/sh", "-c", "exec \"$@\"" + std::string(closing), "sh"};
            EXPECT_EQ(Started(With(shell, command)).Wait().status, 0) << program[0] << closing;
            const std::string calls = ReadFile(trace);
            EXPECT_TRUE(Matches(calls, "\"call\":\"open\"[^}]*\"result\":[3-9]")) << calls;
            EXPECT_FALSE(Matches(calls, "\"call\":\"open\"[^}]*\"result\":[0-2][^0-9]")) << calls;
        }
    }
}

} // namespace
