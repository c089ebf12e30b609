// SPDX-License-Identifier: MIT
//
// What signals and changing files do to camConf; what it prints stands in transcripts.
#include "programRun.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>

namespace
{

const std::string system_ = "/sysconf/conf.img";

class CamConf : public ::testing::Test
{
  protected:
    SimBoard board;

    CamConf() { EXPECT_EQ(board.Sim({"reset"}).status, 0); }

    void Write(const std::string &path, const std::string &text)
    {
        std::ofstream(path, std::ios::binary) << text;
    }
    Outcome Run(const Words &words) { return RunPlain(With({"camConf"}, words)); }
    std::string Get(const Words &fields) { return board.Run(With({"camCtl", "get"}, fields)).out; }
};

TEST_F(CamConf, ApplyIsFinishedWhenASignalComes)
{
    Write(board.Path(system_), "IMG_FLIP=1\n");
    const std::string trace = board.Path("trace");
    Started apply(
        board.Command({"camConf", "apply"}, {"--trace=" + trace, "--fault", "i2c.write:nth=2,delay=1s"}));
    while (Count(ReadFile(trace), "write 0x") == 0)
        usleep(1000);
    const std::string status = ReadFile("/proc/" + std::to_string(apply.Pid()) + "/status");
    EXPECT_TRUE(*getenv("EMULATOR") != '\0' || Matches(status, "SigBlk:\t0*4002\n")) << status; // held back
    kill(apply.Pid(), SIGTERM);
    EXPECT_EQ(apply.Wait().status, 0);
    EXPECT_EQ(Get({"RegCA_3"}), "RegCA_3 = 1  # on\n");
}

TEST_F(CamConf, WatchAppliesDifferencesOnceAndIgnoresItsOwnRewriting)
{
    const std::string path = board.Path(system_), trace = board.Path("trace");
    Write(path, "IMG_CONTRAST=140\n2A_WB_SAVE=1\n2A_WB_R=512\n2A_WB_B=512\nIMG_FLIP=0\n");
    Started watch(board.Command({"camConf", "watch"}, {"--trace=" + trace}));
    ASSERT_TRUE(watch.AwaitOut("watching"));
    EXPECT_EQ(ReadFile(path).find("2A_WB_R=512"), std::string::npos); // the gains were saved
    const int writes = Count(ReadFile(trace), "write 0x");
    EXPECT_EQ(Run({"set", path, "IMG_FLIP", "1"}).status, 0);
    ASSERT_TRUE(watch.AwaitOut("IMG_FLIP: 0 -> 1"));
    EXPECT_EQ(Run({"set", path, "IMG_CONTRAST", "150"}).status, 0);
    ASSERT_TRUE(watch.AwaitOut("IMG_CONTRAST: 140 -> 150"));
    kill(watch.Pid(), SIGTERM);
    const Outcome end = watch.Wait();
    EXPECT_EQ(end.status, 0) << end.err;
    EXPECT_EQ(end.out, "watching /sysconf/conf.img\nIMG_FLIP: 0 -> 1\nIMG_CONTRAST: 140 -> 150\n");
    EXPECT_EQ(Count(ReadFile(trace), "write 0x"), writes + 2);
    EXPECT_EQ(Count(ReadFile(trace), "rename "), 2);
    EXPECT_EQ(Get({"Ygain", "RegCA_3"}), "Ygain = 54\nRegCA_3 = 1  # on\n");
}

// However the content behind the path changes, and whatever stands there in between, also at the end.
TEST_F(CamConf, WatchNoticesEveryChangeAndAlwaysEnds)
{
    const std::string path = board.Path(system_), folder = path.substr(0, path.rfind('/'));
    const auto shell = [&](const std::string &text) {
        EXPECT_EQ(system(("cd " + folder + ";" + text).c_str()), 0);
    };
    for (const char *end : {"mkfifo conf.img", "mkdir conf.img", "ln -s /dev/zero conf.img", ":"}) {
        shell("rm -rf conf.img; echo IMG_FLIP=0 >conf.img");
        Started watch(board.Command({"camConf", "watch"}));
        ASSERT_TRUE(watch.AwaitOut("watching")) << watch.Err();
        int times = 0;
        for (const char *change :
             {"echo IMG_FLIP=1 >new; mv new conf.img", "rm conf.img; mkfifo conf.img",
              "rm conf.img; echo IMG_FLIP=0 >target; ln -s target conf.img", "echo IMG_FLIP=1 >target",
              "truncate -s 0 target", "echo IMG_FLIP=1 >t2; ln -sf t2 conf.img",
              "cp -r . ../away; cd ..; mv sysconf old; echo IMG_FLIP=0 >away/t2; mv away sysconf; rm -r "
              "old"}) {
            shell(change);
            if (strstr(change, "mkfifo") != nullptr)
                usleep(900 * 1000);
            else
                ASSERT_TRUE(watch.AwaitOut("IMG_FLIP: ", ++times)) << change << watch.Err();
        }
        shell(std::string("rm conf.img; ") + end);
        usleep(900 * 1000);
        kill(watch.Pid(), SIGTERM);
        usleep(2000 * 1000);
        EXPECT_EQ(kill(watch.Pid(), SIGKILL), 0);
        EXPECT_EQ(watch.Wait().status, 0) << end; // it had ended already
    }
}

// A content counts when it has stayed for two looks: what is being written is not read.
TEST_F(CamConf, WatchLeavesAFileAloneThatIsBeingWritten)
{
    Write(board.Path(system_), "IMG_CONTRAST=100\n");
    Started watch(board.Command({"camConf", "watch"}));
    ASSERT_TRUE(watch.AwaitOut("watching")) << watch.Err();
    for (int contrast = 101; contrast <= 150; ++contrast) {
        Write(board.Path(system_), "IMG_CONTRAST=" + std::to_string(contrast) + "\n");
        usleep(40 * 1000);
    }
    EXPECT_TRUE(watch.AwaitOut("-> 150\n")) << watch.Err();
    EXPECT_LT(Count(watch.Out(), "IMG_CONTRAST: "), 4)
        << watch.Out(); // one, where nothing holds the writer up
}

TEST_F(CamConf, WatchNoticesAMountOverTheFolder)
{
    if (system("unshare -Urm true 2>/dev/null") != 0)
        GTEST_SKIP() << "no user namespaces here";
    const std::string script =
        "cd $0; mkdir other; echo IMG_FLIP=1 >other/conf.img; \"$@\" & until [ -e go ]; do sleep 0.1; "
        "done; mount --bind other sysconf; until [ -e stop ]; do sleep 0.1; done; kill $!; wait $!";
    Started watch(
        With({"unshare", "-Urm", "sh", "-c", script, board.Folder()}, board.Command({"camConf", "watch"})));
    ASSERT_TRUE(watch.AwaitOut("watching")) << watch.Err();
    Write(board.Path("go"), "");
    EXPECT_TRUE(watch.AwaitOut("IMG_FLIP: 0 -> 1")) << watch.Err();
    Write(board.Path("stop"), "");
    EXPECT_EQ(watch.Wait().status, 0);
}

TEST_F(CamConf, WatchEndsWhenItCannotWait)
{
    if (*getenv("EMULATOR") != '\0')
        GTEST_SKIP() << "the emulator waits by the same call";
    const Outcome outcome =
        Started(With({"strace", "-fqqo", "/dev/null", "-e", "inject=pselect6:error=ENOMEM:when=3"},
                     board.Command({"camConf", "watch"})))
            .Wait();
    EXPECT_EQ(outcome.status, 2);
    EXPECT_TRUE(outcome.err.ends_with("camConf: waiting: Cannot allocate memory\n")) << outcome.err;
}

} // namespace
