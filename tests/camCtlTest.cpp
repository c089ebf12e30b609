// SPDX-License-Identifier: MIT
//
// camCtl as its users meet it: the unmodified program on the simulated board, whose registers are looked at from behind.
#include "programRun.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace
{

class CamCtl : public ::testing::Test
{
  protected:
    SimBoard board;
    std::string file = board.Path("saved");

    Outcome Run(const Words &words, const Words &options = {})
    {
        return board.Run(With({"camCtl"}, words), options);
    }
    void Expect(const Words &words, int status, const std::string &out, const std::string &err)
    {
        const Outcome outcome = Run(words);
        EXPECT_EQ(outcome.status, status) << words.back() << outcome.err;
        EXPECT_EQ(outcome.out, out) << words.back();
        EXPECT_EQ(outcome.err, err.empty() ? "" : "camCtl: " + err + "\n") << words.back();
    }
    std::string Registers() { return Run({"get", "0x00-0xFF"}).out; }
    void Write(const std::string &text) { std::ofstream(file, std::ios::binary) << text; }
    /// Transfers of a run: block reads, writes.
    std::pair<int, int> Transfers(const Words &words)
    {
        const std::string trace = Run(words, {"--trace"}).err;
        return {Count(trace, " read  "), Count(trace, " write ")};
    }
};

TEST_F(CamCtl, ValuesReadAndSetInUnits)
{
    const struct {
        Words words;
        int status;
        std::string out, err;
    } cases[] = {
        {{"set", "MnlAgn=2.0x"}, 0, "MnlAgn: 0 -> 64  # gain 2.000\n", ""},
        {{"set", "mnlagn=6dB"}, 0, "MnlAgn: 64, as it was\n", ""},
        {{"set", "MnlAgn=0x80", "MnlDgn=2.49x"},
         0,
         "MnlAgn: 64 -> 128  # gain 4.000\nMnlDgn: 8 -> 20  # gain 2.500\n",
         ""},
        {{"set", "MeExpTim=10ms"}, 0, "MeExpTim: 545 -> 328  # 10013.05 us, 1/100 s\n", ""},
        {{"expose", "shutter=1/30s", "again=1x"},
         0,
         "MeExpTim: 328 -> 1091  # 33326.94 us, 1/30 s\nMnlAgn: 128 -> 0  # gain 1.000\n",
         ""},
        {{"set", "AeEvSet=-0.5EV"}, 0, "AeEvSet: 16 -> 14  # -0.50 EV\n", ""},
        {{"set", "AeFlickMode=50Hz", "AeHoldH=on"},
         0,
         "AeFlickMode: 4 -> 6  # for 50 Hz lamps\nAeHoldH: 0 -> 1  # on\n",
         ""},
        {{"get", "AeHoldH", "0x34", "Blk9D"},
         0,
         "AeHoldH = 1  # on\n0x34 = 0x28\nBlk9D = 0x00 0x00 0x00 0x00 0x00 0x00\n",
         ""},
        {{"set", "0x34=0x40", "--dry-run"}, 1, "0x34: 0x28 -> 0x40\n", ""},
        {{"get", "0x34"}, 0, "0x34 = 0x28\n", ""},
        {{"set", "MnlAgn=193"}, 2, "", "set: MnlAgn: 193 is outside 0 to 192, 1.000x to 7.953x"},
        {{"set", "MnlAgn=0.9x"}, 2, "", "set: MnlAgn: 0.9x is outside 0 to 192, 1.000x to 7.953x"},
        {{"set", "AeTimer=32"}, 2, "", "set: AeTimer: 32 is outside 0 to 31"},
        {{"set", "AeTimer=nan"}, 2, "", "set: AeTimer: nan is no value; it takes 0 to 31"},
        {{"set", "MnlAgn=1x", "0x37=3"}, 2, "", "set: 0x37 is set twice"},
        {{"set", "MnlAgm=1"}, 2, "", "set: unknown name MnlAgm, the nearest is MnlAgn"},
        {{"set", "RawAvg=1"}, 2, "", "set: RawAvg is a live readout, which only the camera sets"},
        {{"set", "0x21=1"}, 2, "", "set: 0x21 is one of the registers that only the camera sets"},
        {{"get", "@none"},
         2,
         "",
         "@none: unknown group; there are @live @ae @exposure @awb @picture @daynight @noise @other"},
        {{"get", "MnlAgn", "--hex"},
         2,
         "",
         "--hex: not for this command\nUsage:\n  camCtl get NAME|ADDR|ADDR-ADDR|@GROUP|all..."},
        {{"led", "dim"}, 2, "", "led: dim is neither on nor off"},
        {{"--retries", "101", "dump"}, 2, "", "--retries: 101 is not a number from 0 to 100"},
    };
    for (const auto &c : cases)
        Expect(c.words, c.status, c.out, c.err);
}

TEST_F(CamCtl, EveryFieldIsSetByNameAndNothingElseChanges)
{
    std::istringstream fields(Run({"list"}).out);
    std::string line;
    int count = 0;
    while (std::getline(fields, line)) {
        std::istringstream words(line);
        std::string name, address, bits, access;
        words >> name >> address >> bits >> access;
        if (access != "rw" || name.starts_with("Blk") || name == "YGamma" || name == "PairsA4" ||
            name == "CisType")
            continue;
        ++count;
        const bool isZero = Run({"get", name}).out.starts_with(name + " = 0");
        const std::string rest = Registers();
        const Outcome outcome = Run({"set", name + (name == "AeEvSet" ? "=9" : isZero ? "=1" : "=0")});
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        const std::string after = Registers();
        int changed = 0;
        for (size_t i = 0; i < after.size(); i += after.size() / 256)
            changed += after.substr(i, 12) != rest.substr(i, 12) && after.compare(i, 3, "0x1") != 0;
        EXPECT_TRUE(changed >= 1 && changed <= 2) << name << outcome.out;
    }
    EXPECT_EQ(count, 81); // the map's fields and the exposure word, without the sensor type
}

TEST_F(CamCtl, FilesAreLoadedWholeOrNotAtAllWithFewTransfers)
{
    Expect({"save", file}, 0, "", "");
    const std::string saved = ReadFile(file);
    EXPECT_TRUE(
        saved.starts_with("# camCtl 0.0.4; sensor type 6, information output 0 (not loaded)\nReg01_0 = 0\n"));
    EXPECT_NE(saved.find("\nYGamma = 0x"), std::string::npos);
    EXPECT_EQ(saved.find("\nCisType"), std::string::npos);
    Expect({"diff", file}, 0, "", "");
    Expect({"set", "MnlAgn=9", "MnlDgn=9", "ApGan=3"}, 0,
           "MnlAgn: 0 -> 9  # gain 1.076\nMnlDgn: 8 -> 9  # gain 1.125\nApGan: 44 -> 3\n", "");
    const std::string back = "MnlAgn: 9 -> 0  # gain 1.000\nMnlDgn: 9 -> 8  # gain 1.000\nApGan: 3 -> 44\n";
    Expect({"diff", file}, 1, back, "");
    Expect({"load", file, "--dry-run"}, 1, back, "");
    const auto [reads, writes] = Transfers({"load", file});
    EXPECT_EQ(writes, 2);        // 0x37 and 0x38 are neighbours
    EXPECT_LE(reads, 8 + 2 + 2); // a poll before each write, a check of each stretch
    Expect({"load", file}, 0, "", "");
    EXPECT_LE(Transfers({"dump"}).first, 9);
    EXPECT_EQ(Transfers({"dump"}).second, 0);

    const struct {
        std::string text, err;
    } bad[] = {
        {"MnlAgn = 3\nNone = 4\n", ":2: unknown name None"},
        {"MnlAgn = 3\nMnlDgn = 400\n", ":2: MnlDgn: 400 is outside 0 to 255, 0.000x to 31.875x"},
        {"MnlAgn = 3\n\n0x37 = 4\n", ":3: 0x37 is set twice"},
        {"MnlAgn = 3", ":1: the line is cut, or longer than 254 characters"},
        {"# nothing\n", ": holds no settings"},
        {"MnlAgn\n", ":1: is not NAME = VALUE"},
        {"Blk9D = 1 2 3\n", ":1: Blk9D takes 6 bytes, this has 3"},
        {"# sensor type 7\nMnlAgn = 3\n",
         ": was saved from sensor type 7, this camera has type 6; --force loads it all the same"},
    };
    for (const auto &c : bad) {
        Write(c.text);
        Expect({"load", file}, 2, "", file + c.err);
        Expect({"get", "MnlAgn"}, 0, "MnlAgn = 0  # gain 1.000\n", "");
    }
    Expect({"load", file, "--force"}, 0, "MnlAgn: 0 -> 3  # gain 1.024\n", "");
}

TEST_F(CamCtl, FailuresNameWhatFailed)
{
    const struct {
        std::string fault;
        Words words;
        int status;
        std::string lastLine;
    } cases[] = {
        {"open:/dev/dev_i2c", {"get", "MnlAgn"}, 2, "camCtl: /dev/dev_i2c: No such file or directory\n"},
        {"i2c.read:errno=ETIMEDOUT",
         {"get", "MnlAgn"},
         2,
         "camCtl: MnlAgn (0x37): read failed after 4 attempts: Connection timed out\n"},
        {"i2c.read:reg=MnlAgn",
         {"dump", "--retries=0"},
         2,
         "camCtl: registers 0x20 to 0x3F: read failed after 1 attempt: Input/output error\n"},
        {"i2c.write",
         {"set", "MnlAgn=3"},
         2,
         "camCtl: MnlAgn (0x37): write failed after 4 attempts: Input/output error\n"},
        {"gio.set", {"led", "on"}, 2, "camCtl: /dev/gio: Input/output error\n"},
        {"i2c.read",
         {"status"},
         2,
         "camCtl: sensor: cannot be read, or is no IMX076; camCtl doctor tells more\n"},
    };
    for (const auto &c : cases) {
        const Outcome outcome = Run(c.words, {"--fault", c.fault});
        EXPECT_EQ(outcome.status, c.status) << c.fault;
        EXPECT_EQ(outcome.out, "");
        EXPECT_TRUE(outcome.err.ends_with(c.lastLine)) << outcome.err;
    }
    const Outcome ill = Run({"doctor"}, {"--fault", "flash:readonly", "--fault", "i2c.read"});
    EXPECT_EQ(ill.status, 1);
    EXPECT_TRUE(Matches(ill.out, "link +FAIL: Input/output error; .*\nreset line +skipped: link failed\n"));
    EXPECT_TRUE(Matches(ill.out, "flash +FAIL: Read-only file system; "));
    EXPECT_EQ(Run({"doctor"}).status, 0);
}

TEST_F(CamCtl, LiveFieldsAreUnknownWhileTheOutputShowsSomethingElse)
{
    Run({"set", "InfoOut=2"});
    const Outcome dump = Run({"dump"});
    EXPECT_NE(dump.out.find("RawAvg = unknown\n"), std::string::npos);
    EXPECT_NE(dump.err.find("note: the information output is switched elsewhere"), std::string::npos);
    Expect({"get", "InfoOut"}, 0, "InfoOut = 2\n", "");
    EXPECT_EQ(Run({"get", "RawAvg"}).out, "RawAvg = 1024  # 25.0 % of full scale\n");
    Expect({"get", "InfoOut"}, 0, "InfoOut = 0\n", ""); // opened, as camStat -r does
}

} // namespace
