// SPDX-License-Identifier: MIT
//
// camConf as its users meet it: the unmodified program, on files alone and on the simulated board.
#include "programRun.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

namespace
{

const std::string system_ = "/sysconf/conf.img";

class CamConf : public ::testing::Test
{
  protected:
    SimBoard board;
    std::string file = board.Path("a.img");

    CamConf() { EXPECT_EQ(board.Sim({"reset"}).status, 0); }

    void Write(const std::string &path, const std::string &text)
    {
        std::ofstream(path, std::ios::binary) << text;
    }
    Outcome Run(const Words &words) { return RunPlain(With({"camConf"}, words)); }
    void Expect(const Words &words, int status, const std::string &out, const std::string &partOfErr)
    {
        const Outcome outcome = Run(words);
        EXPECT_EQ(outcome.status, status) << words[0] << outcome.err;
        EXPECT_EQ(outcome.out, out);
        EXPECT_NE(outcome.err.find(partOfErr), std::string::npos) << outcome.err;
        EXPECT_EQ(outcome.err.empty(), partOfErr.empty()) << outcome.err;
    }
    std::string Peek(const std::string &field) { return board.Sim({"peek", field}).out; }
};

TEST_F(CamConf, FileCommands)
{
    const std::string text = "2A_WB_R = 600\n2A_WB_B=\"7 8\" # x\nIMG_FLIP=1\n";
    const std::string other = board.Path("b.img"), noFile = board.Path("none");
    Write(file, text);
    Write(other, "IMG_FLIP=1\n2A_WB_R=600\nEXT_AEWIN=" + std::string(191, '1') + "0\n");
    Expect({"get", file, "2A_WB_B"}, 0, "7 8\n", "");
    Expect({"get", file, "2A_WB"}, 0, "600\n", "2A_WB: no line has this key alone; value of 2A_WB_R\n");
    Expect({"get", file, "DN_LS"}, 1, "", "DN_LS: no line");
    Expect({"get", noFile, "DN_LS"}, 2, "", "No such file");
    Expect({"set", file, "2A_WB", "5"}, 1, "", ":1: 2A_WB_R would change too\n" + file + ":2: 2A_WB_B would");
    Expect({"set", file, "DN_LS", "5"}, 1, "", "nothing changed");
    Expect({"set", file, "IMG_FLIP", "5\n6"}, 2, "", "line feed");
    Expect({"set", file, "IMG_FLIP", std::string(247, '5')}, 2, "", "longer than 255");
    Expect({"diff", file, other}, 1, "EXT_AEWIN[15][11]: 1 -> 0\n", "");
    EXPECT_EQ(ReadFile(file), text);
    Expect({"set", file, "IMG_FLIP", "-5"}, 0, "", "");
    Expect({"set", file, "2A_WB", "5", "--prefix"}, 0, "", "");
    EXPECT_EQ(ReadFile(file), "2A_WB_R =5\n2A_WB_B=5\nIMG_FLIP=-5\n");
    Expect({"diff", file, file}, 0, "", "");
    Write(other, "#" + std::string(300, '-') + "\n2A_WB_R=1\n");
    Expect({"set", other, "2A_WB", "5"}, 1, "", ":2: 2A_WB_R would change too\n");
    for (const auto &[target, status] : {std::pair(">/dev/full", 2), std::pair(">&-", 0)}) {
        const std::string command = std::string("exec \"$@\" ") + target;
        EXPECT_EQ(
            Started(With({"/bin/sh", "-c", command, "sh"}, board.Command({"camConf", "show"}))).Wait().status,
            status)
            << target;
    }
    Expect({"apply", "-o", "IMG_FLIP=1,NONE=2", file}, 2, "", "NONE: unknown key");
    Expect({"diff", file, board.Folder()}, 2, "", "Is a directory");
    const Outcome shown = Run({"show", file}), json = Run({"show", "--json", file});
    EXPECT_NE(shown.out.find("IMG_FLIP\t:\t-5\n"), std::string::npos);
    EXPECT_NE(json.out.find("\"IMG_FLIP\": -5,\n"), std::string::npos);
    EXPECT_EQ(Count(json.out, ":"), 41); // every field, the window as one
}

TEST_F(CamConf, CheckNamesEveryLineThatIsIgnoredOrWithoutEffect)
{
    Write(file,
          "# fine\nIMG_FLIP=1\nIMG_CONTRAST=161 # rest\n2A_DEFLICKER=55\nNO\x1bK\x7FY=1\n2A_WB=1\nDN_MODE=2\n"
          "IMG_MIRROR\nDN_FPS=x\nDN_FPS=3x\nEXT_AEWIN=11\nRESET=3\nLOOPBREAK=1\n#" +
              std::string(254, '-') + "IMG_FLIP=9\n2A_MAN_GAIN=7");
    std::string expected;
    for (const char *finding :
         {"3: IMG_CONTRAST: 161 is outside 96 to 160", "4: 2A_DEFLICKER: 55 is neither 50 nor 60",
          "5: NO?K?Y: unknown key, ignored", "6: 2A_WB: acts as 2A_WB_SAVE",
          "7: DN_MODE: accepted, but nothing is stored", "8: IMG_MIRROR: no value, ignored",
          "9: DN_FPS: x is no decimal number, taken as 0", "10: DN_FPS: 3x is no decimal number, taken as 3",
          "11: EXT_AEWIN: fewer than 192 digits, ignored", "12: RESET: neither 0 nor 1",
          "13: LOOPBREAK: accepted, but nothing is stored",
          "14: longer than 255 characters, what follows them is taken for a line of its own",
          "14: IMG_FLIP: 9 is outside 0 to 1", "15: 2A_MAN_GAIN: 7 is outside 0 to 6"})
        expected += file + ":" + finding + "\n";
    Expect({"check", file}, 1, expected, "");
    Write(file, "# fine\n\nIMG_FLIP=+1 # rest\r\nRESET=0\nEXT_AEWIN=" + std::string(192, '0'));
    Expect({"check", file}, 0, "", "");
    Write(file, std::string("IMG_FLIP=1\0\n", 12));
    Expect({"check", file}, 1, file + ":1: holds a zero byte, what follows it is ignored\n", "");
}

TEST_F(CamConf, UsageAndHelp)
{
    const Words wrong[] = {
        {}, {"nonsense"}, {"get", file}, {"get", file, "A", "B"}, {"show", "--prefix"}, {"apply", "-o"}};
    for (const Words &words : wrong)
        EXPECT_EQ(Run(words).status, 2) << testing::PrintToString(words);
    for (const char *command : {"show", "check", "get", "set", "diff", "apply", "watch"}) {
        const Outcome help = Run({command, "--help"});
        EXPECT_EQ(help.status, 0);
        EXPECT_NE(Run({"--help"}).out.find("camConf " + help.out.substr(15, help.out.find('\n') - 15)),
                  std::string::npos);
    }
}

TEST_F(CamConf, SetFollowsLinksAndReplacesTheFileBesideWhichTheCopyLies)
{
    const std::string real = board.Path("/mnt/nand/real.img"), link = board.Path(system_);
    Write(real, "IMG_FLIP=0\n");
    EXPECT_EQ(unlink(link.c_str()) | symlink("second", link.c_str()), 0);
    EXPECT_EQ(symlink("../mnt/nand/real.img", board.Path("/sysconf/second").c_str()), 0);
    Expect({"set", link, "IMG_FLIP", "1"}, 0, "", "");
    EXPECT_EQ(ReadFile(real), "IMG_FLIP=1\n");
    EXPECT_EQ(board.Run({"camConf", "set", system_, "IMG_FLIP", "2"}, {"--fault", "rename"}).status, 2);
    EXPECT_EQ(ReadFile(real + ".tmp"), "IMG_FLIP=2\n");
    EXPECT_EQ(board.Run({"camConf", "set", system_, "IMG_FLIP", "2"}).status, 0);
    EXPECT_EQ(ReadFile(link), "IMG_FLIP=2\n");
    EXPECT_EQ(unlink(real.c_str()), 0);
    Expect({"set", link, "IMG_FLIP", "1"}, 2, "", "No such file");
}

TEST_F(CamConf, ApplyDoesNotDependOnWhatTheCameraHad)
{
    Write(board.Path(system_),
          "IMG_CONTRAST=140\nIMG_FLIP=1\nIMG_MIRROR=1\n2A_AWB_EN=0\n2A_WB_R=1024\nDN_LS=1\n");
    EXPECT_EQ(board.Run({"camConf", "apply"}).status, 0);
    EXPECT_EQ(Peek("Ygain") + Peek("RegCA_3") + Peek("RegCA_2") + Peek("MwbR") + Peek("WbAutoH"),
              "44\n1\n1\n128\n0\n");
    EXPECT_EQ(board.Run({"camConf", "apply", "-o", "IMG_FLIP=0,2A_AEC_EN=0,2A_AGC_EN=0"}).status, 0);
    EXPECT_EQ(Peek("RegCA_3") + Peek("RegCA_2") + Peek("AeSwitch"), "0\n1\n0\n");
    EXPECT_NE(board.Run({"camStat", "-r"}).out.find("Ae Switch\t:\t0\n"), std::string::npos);
    EXPECT_EQ(Count(ReadFile(board.Path(system_)), "DN_LS=1\n"), 1);
}

TEST_F(CamConf, ApplyFailuresShow)
{
    Write(board.Path(system_), "IMG_FLIP=1\n");
    const Outcome noSensor = board.Run({"camConf", "apply"}, {"--fault", "i2c.read"});
    EXPECT_EQ(noSensor.status, 2);
    EXPECT_NE(noSensor.err.find("(camConf|main|"), std::string::npos);
    const struct {
        Words words, options;
        const char *message;
    } cases[] = {
        {{}, {"--fault", "i2c.write:nth=3"}, "camConf: 1 step failed"},
        {{}, {"--fault", "gio.set"}, "camConf: 2 steps failed"},
        {{"-o", "EXT_WDR=9"}, {}, "camConf: 1 step failed"},
        {{"-o", "DN_MODE=2"}, {}, "camConf: DN_MODE: nothing is stored"},
    };
    for (const auto &line : cases) {
        const Outcome outcome = board.Run(With({"camConf", "apply"}, line.words), line.options);
        EXPECT_EQ(outcome.status, 2) << line.message;
        EXPECT_NE(outcome.err.find(line.message), std::string::npos) << outcome.err;
    }
    EXPECT_EQ(Peek("RegCA_3"), "1\n");
    EXPECT_EQ(board.Run({"camConf", "apply"}, {"--fault", "getc"}).status, 2);
    // Gains that were not read are not saved, whichever it is and whatever the white balance does.
    for (const char *mode : {"0", "1"}) {
        for (const char *gain : {"WbrGain", "WbbGain"}) {
            const std::string text = std::string("2A_AWB_EN=") + mode + "\n2A_WB_R=600\n";
            Write(board.Path(system_), text);
            EXPECT_EQ(board
                          .Run({"camConf", "apply", "-o", "2A_WB_SAVE=1"},
                               {"--fault", std::string("i2c.read:reg=") + gain})
                          .status,
                      2);
            EXPECT_EQ(ReadFile(board.Path(system_)), text) << gain;
        }
    }
}

TEST_F(CamConf, ApplyIsFinishedWhenASignalComes)
{
    Write(board.Path(system_), "IMG_FLIP=1\n");
    const std::string trace = board.Path("trace");
    Started apply(
        board.Command({"camConf", "apply"}, {"--trace=" + trace, "--fault", "i2c.write:nth=2,delay=1s"}));
    while (Count(ReadFile(trace), "write 0x") == 0)
        usleep(1000);
    kill(apply.Pid(), SIGTERM);
    EXPECT_EQ(apply.Wait().status, 0);
    EXPECT_EQ(Peek("RegCA_3"), "1\n");
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
    EXPECT_EQ(Peek("Ygain") + Peek("RegCA_3"), "54\n1\n");
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

} // namespace
