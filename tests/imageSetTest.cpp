// SPDX-License-Identifier: MIT
//
// The image-settings applier by its traffic: register writes, GPIO requests, file rewrites and pauses, in
// order; what is copied when; reports and debug lines; and generated sequences of records.
#include "fakeBoard.h"

#include "board/debugFlags.h"
#include "isp/ispImageSet.h"
#include "isp/ispSensor.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

namespace
{

using Words = std::array<int32_t, 232>;

class Applier : public BoardTest
{
  protected:
    ImgCfgStatus wanted = {};

    Applier()
    {
        AttachLink();
        board.regs[0x0E] = 6; // the 30 fps sensor
        SensorInit();
        board.Take();
        gtImgCfgStatus = {};
        gfDebugFlag = gfImgDebugFlag = 0;
        ImgCfgDefault(&wanted);
        board.regs[0x19] = 141; // red 2.404, blue 1.0
        board.regs[0x18] = 64;
        WriteFile("DN_LS=9\n2A_WB_R=1\n2A_WB_B=2\n");
    }
    ~Applier() override { gfDebugFlag = gfImgDebugFlag = 0; }

    void WriteFile(const std::string &text) { std::ofstream(board.RealPath(IMG_CFG_SYSTEM_FILE)) << text; }

    // What the calls since the last look changed: writes, requests, rewrites, pauses beyond a transfer's.
    Lines Effects()
    {
        Lines lines = board.Take();
        std::erase_if(lines, [](const std::string &line) {
            return !(line.starts_with("w ") || line.starts_with("gio ") || line.starts_with("rename ") ||
                     line == "sleep 50000");
        });
        return lines;
    }
    // Applies the record with a change; afterwards all that the applier looks at is applied.
    Lines Apply(const std::function<void(ImgCfgStatus &)> &change)
    {
        change(wanted);
        EXPECT_EQ(ImageSet(&wanted), 0);
        Words want, have;
        memcpy(want.data(), &wanted, sizeof wanted);
        memcpy(have.data(), &gtImgCfgStatus, sizeof wanted);
        for (const size_t word : {195, 196, 197, 199, 200, 201, 202, 207, 208, 209, 210, 211, 212,
                                  213, 214, 215, 216, 217, 218, 219, 221, 222, 223, 225, 226, 231})
            EXPECT_EQ(have[word], want[word]) << word;
        return Effects();
    }
    std::string ReportsOf(const Printed &printed)
    {
        std::string out;
        std::istringstream text(Locate(printed.err));
        for (std::string line; std::getline(text, line);)
            out += line.starts_with("@ispImageSet|") ? line.substr(13) + "\n" : "";
        return out;
    }
};

const std::string rewrite = "rename /sysconf/conf.img.tmp /sysconf/conf.img";
const Lines baseCurve = {
    "w 75 3a 3f 2e 19 14 0f 0d 0c 0c 0b 0a 09 08 07 05 04 03 03 03 02 02 02 02 02 02 02 02 01 01 01"};

// A life of settings; each step starts from what the steps before it applied.
TEST_F(Applier, NamedCasesInOrder)
{
    const struct {
        const char *name;
        std::function<void(ImgCfgStatus &)> change;
        Lines effects;
    } steps[] = {
        {"defaults after the start",
         [](auto &) {},
         {baseCurve[0],
          "w 73 00",
          "w 72 20",
          "w 97 18",
          "w 98 18",
          "gio 8 35 0",
          "gio 8 0 1",
          "w 93 2c",
          "w 96 05",
          "w 53 03",
          "w 55 00 3f 00 19 00 3f ac 1c",
          "w 71 10",
          "w 30 04",
          "w 34 00",
          "w 3b 00",
          "w 3b 00",
          "w 35 43 04",
          "w 39 80",
          "w 32 c0",
          "w 33 08",
          "w 30 84",
          "w 3c 80"}},
        {"the same again", [](auto &) {}, {}},
        {"clamped levels",
         [](auto &w) {
             w.brightness = 300;
             w.contrast = -1;
             w.sharpness = 256;
             w.saturation = 999;
         },
         {baseCurve[0], "w 73 7f", "w 72 00", "w 97 30", "w 98 30", "gio 8 35 0", "gio 8 0 1", "w 93 3f",
          "w 96 0f"}},
        {"manual exposure and gain",
         [](auto &w) {
             w.aecEn = w.agcEn = 0;
             w.manGain = 3;
         },
         {"w 30 80", "w 34 00", "w 39 00", "w 3b 00", "w 3b 00", "w 35 43 04", "w 37 c0", "w 38 10",
          "w 30 00", "w 37 c0", "w 38 10"}},
        {"manual gain and shutter",
         [](auto &w) {
             w.manGain = 0;
             w.manExposure = 11;
         },
         {"w 37 40", "w 38 08", "w 3b 00", "w 35 04 00"}},
        {"manual shutter, automatic gain",
         [](auto &w) {
             w.agcEn = 1;
             w.maxGain = 5;
             w.deflicker = 50;
         },
         {"w 30 00", "w 39 00", "w 34 40", "w 3b 00", "w 31 00", "w 32 c0", "w 33 40", "w 3b 00",
          "w 35 05 00", "w 30 80", "w 32 c0", "w 33 40"}},
        {"exposure without gain control",
         [](auto &w) {
             w.aecEn = 1;
             w.agcEn = 0;
         },
         {}},
        {"slow automatic shutter",
         [](auto &w) {
             w.agcEn = 1;
             w.dnFps = 5;
         },
         {"w 30 86", "w 34 00", "w 39 00", "w 3b 1d", "w 35 bb 7f", "w 3b 9d", "w 32 c0", "w 33 40",
          "w 30 86"}},
        {"unlisted slow shutter at odd mains",
         [](auto &w) {
             w.dnFps = 6;
             w.deflicker = 55;
         },
         {"w 30 80", "w 34 00", "w 39 00", "w 3b 9d", "w 32 c0", "w 33 40", "w 30 80"}},
        {"shutter ceiling",
         [](auto &w) {
             w.dnFps = 0;
             w.deflicker = 60;
             w.maxExposure = 4;
             w.maxGain = 9;
         },
         {"w 30 84", "w 34 00", "w 3b 1d", "w 3b 00", "w 35 44 00", "w 39 80", "w 32 00", "w 33 08",
          "w 30 84"}},
        {"white balance frozen and saved",
         [](auto &w) {
             w.awbEn = 0;
             w.wbSave = 1;
         },
         {"w 3c 81", "sleep 50000", "w 3d 8c", "w 3e 40", "w 3c 80", "w 3c 00", rewrite, rewrite}},
        {"manual gains", [](auto &w) { w.wbR = 600; }, {"w 3d 4a", "w 3e 40"}},
        {"gains saved on request", [](auto &w) { w.wbSave = 1; }, {"w 3d 4a", "w 3e 40", rewrite, rewrite}},
        {"automatic again, gains read back",
         [](auto &w) {
             w.awbEn = 1;
             w.wbR = 0;
         },
         {"w 3c 80"}},
        {"dark", [](auto &w) { w.dnLs = 1; }, {rewrite, "w 97 00", "w 98 00", "gio 8 35 1", "gio 8 0 0"}},
        {"filter setting alone waits", [](auto &w) { w.dnIcr = 0; }, {}},
        {"filter setting with the next change",
         [](auto &w) { w.dnBw = 0; },
         {"w 97 30", "w 98 30", "gio 8 35 0", "gio 8 0 1"}},
        {"night by input",
         [](auto &w) {
             w.dnMode = 3;
             w.dnIcr = 1;
         },
         {"w 97 30", "w 98 30", "gio 8 35 1", "gio 8 0 0"}},
        {"day by input", [](auto &w) { w.dnDi = 1; }, {"w 97 30", "w 98 30", "gio 8 35 0", "gio 8 0 1"}},
        {"noise filter off",
         [](auto &w) {
             w.nfMode = 0;
             w.nfLevel = 9;
         },
         {"w 53 00", "w 55 00 09 00 04 00 3f 00 09", "w 55 00 09 00 04 00 3f 00 09"}},
        {"noise filter mode 2", [](auto &w) { w.nfMode = 2; }, {"w 53 03", "w 55 00 09 00 04 00 3f 00 09"}},
        {"mirror, flip, backlight, range",
         [](auto &w) {
             w.mirror = w.flip = 1;
             w.extBlc = 7;
             w.extWdr = 2;
         },
         {"w ca 04", "w ca 0c", "w 71 17", "w 5f 10", "w 5f 1a"}},
    };
    for (const auto &step : steps)
        EXPECT_EQ(Apply(step.change), step.effects) << step.name;
    EXPECT_EQ(board.ReadFile(IMG_CFG_SYSTEM_FILE), "DN_LS=1\n2A_WB_R=600\n2A_WB_B=512\n");
    EXPECT_EQ(wanted.wbR, 1230); // 2.404 x 512 = 1230.8
    EXPECT_EQ(wanted.brightness, 300);
}

TEST_F(Applier, MainsFrequencyThatHasNoTable)
{
    Apply([](auto &) {});
    const Printed printed = Capture([&] {
        EXPECT_EQ(Apply([](auto &w) {
                      w.deflicker = 55;
                      w.aecEn = w.agcEn = 0;
                  }),
                  Lines({"w 30 80", "w 34 00", "w 39 00", "w 3b 00"}));
    });
    EXPECT_EQ(ReportsOf(printed), "ImageSet: [kel_isp] ERROR: SetAE failed.\n");
    EXPECT_EQ(SetAE(&wanted), 0); // nothing differs any more, no table is needed
}

TEST_F(Applier, EveryStepIsReportedAndTheNextOneRuns)
{
    gtImgCfgStatus.mirror = gtImgCfgStatus.flip = gtImgCfgStatus.extWdr = gtImgCfgStatus.nfLevel = 1;
    gtImgCfgStatus.awbEn = 1;
    wanted.awbEn = 0;
    wanted.wbSave = 1;
    board.Fail("w ", 1, EIO, 1000);
    board.Fail("r 18", 1, EIO, 1000);
    board.Fail("r 19", 1, EIO, 1000);
    board.Fail("rename", 1, EIO, 1000);
    EXPECT_EQ(
        ReportsOf(Capture([&] { ImageSet(&wanted); })),
        "ImageSet: [kel_isp] ERROR: SetBrightness failed.\nImageSet: [kel_isp] ERROR: SetContrast failed.\n"
        "ImageSet: [kel_isp] ERROR: SetSaturation failed.\nImageSet: [kel_isp] ERROR: SetSharpness failed.\n"
        "ImageSet: [kel_isp] ERROR: SetNfAutoMode failed.\nImageSet: [kel_isp] ERROR: SetNfManualLevel "
        "failed.\n"
        "ImageSet: [kel_isp] ERROR: SetNfManualLevel failed.\nImageSet: [kel_isp] ERROR: SetMirror failed.\n"
        "ImageSet: [kel_isp] ERROR: SetFlip failed.\nImageSet: [kel_isp] ERROR: SetBlcIndex failed.\n"
        "ImageSet: [kel_isp] ERROR: SetAE failed.\nImageSet: [kel_isp] CXD3193AR_Set_WbHoldH failed.\n"
        "ImageSet: [kel_isp] InfoWbrGain failed.\nImageSet: [kel_isp] InfoWbbGain failed.\n"
        "ImageSet: [kel_isp] SetMnlWbrGain failed.\nImageSet: [kel_isp] SetMnlWbbGain failed.\n"
        "ImageSet: [kel_isp] CXD3193AR_Set_WbHoldH failed.\nImageSet: [kel_isp] CXD3193AR_Set_WbAutoH "
        "failed.\n"
        "SaveWB: [kel_isp] Save WB R Data Error!!!!!!\nImageSet: [kel_isp] SetMnlWbrGain failed.\n"
        "ImageSet: [kel_isp] SetMnlWbbGain failed.\nSaveWB: [kel_isp] Save WB R Data Error!!!!!!\n"
        "ImageSet: [kel_isp] SetWdr failed.\n");
    EXPECT_EQ(wanted.wbR, -6 * 512); // the failed readout's status
    EXPECT_EQ(wanted.wbSave, 1);
    EXPECT_EQ(gtImgCfgStatus.brightness, 128); // not tried again
    board.Take();
    board.Reset();
    AttachLink();
    wanted.wbSave = 0;
    EXPECT_EQ(Apply([](auto &) {}), Lines());
}

TEST_F(Applier, SaveStoresRedThenBlue)
{
    int32_t flag = 1;
    board.Fail("rename", 2);
    EXPECT_EQ(ReportsOf(Capture([&] { EXPECT_EQ(SaveWB(IMG_CFG_SYSTEM_FILE, 7, -8, &flag), -4); })),
              "SaveWB: [kel_isp] Save WB B Data Error!!!!!!\n");
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(board.ReadFile(IMG_CFG_SYSTEM_FILE), "DN_LS=9\n2A_WB_R=7\n2A_WB_B=2\n");
    EXPECT_EQ(SaveWB(IMG_CFG_SYSTEM_FILE, 7, -8, &flag), 0);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(board.ReadFile(IMG_CFG_SYSTEM_FILE), "DN_LS=9\n2A_WB_R=7\n2A_WB_B=-8\n");
}

TEST_F(Applier, DebugLinesFollowTheOrder)
{
    wanted.extDebug = 1;
    wanted.dnLs = wanted.wbSave = wanted.mirror = wanted.flip = wanted.nfLevel = wanted.extWdr = 1;
    std::filesystem::remove(board.RealPath(IMG_CFG_SYSTEM_FILE));
    std::string out = Capture([&] { ImageSet(&wanted); }).out;
    const std::string wb = "SAVE WB to CONF\nEnter SAVE WB Function\nsysconf_fset WB_R \n";
    std::string expected =
        "BRIGHTNESS = 128\nCONTRAST = 128\nSave LS Data Error!!!!!!\nSAVE Light Sensor Status to CONF\n"
        "ICR Type = 1\nSATURATION = 128\nDN MODE = 0\nDN BW = 1\nDN ICR = 1\nDN DI = 0\nDN LS = 1\n"
        "SHARPNESS = 100\nIMG_NF_MODE = 1\nIMG_NF_LEVEL = 1\nMIRROR = 1\nFLIP = 1\nAEC = 1\nAGC = 1\n"
        "ME = 3\nMG = 0\nMaxExp = 0\nMaxGain = 2\nDN Fps = 0\nDE-FICKER = 60\nAWB EN = 1\n" +
        wb + "Save WB = 1\n" + wb +
        "Finished SAVE WB to CONF\nSave WB = 1\nWB R = 1230\nWB B = 512\nWDR = 1\n";
    for (size_t at = 0; at < expected.size(); at = expected.find('\n', at) + 1)
        expected.insert(at, "[kel_isp] ");
    EXPECT_EQ(out, expected);
    EXPECT_EQ(gfDebugFlag, 1);
    WriteFile("2A_WB_R=1\n");
    out = Capture([&] { ImageSet(&wanted); }).out; // the save that failed is made now
    EXPECT_NE(out.find("sysconf_fset WB_B \n[kel_isp] Set WB_SAVE to 0\n[kel_isp] Finished SAVE WB to CONF\n"
                       "[kel_isp] Save WB = 0\n"),
              std::string::npos);
}

// Generated records: what is written belongs to groups that differ, in the order of the groups, none is left
// out, and the second identical call makes no call at all.
TEST_F(Applier, GeneratedSequences)
{
    const struct {
        std::vector<size_t> words;
        std::string effects; // first words of the group's effects
        bool always;         // a difference has an effect in any case
    } groups[] = {
        {{210}, "w75 w73", true},
        {{211}, "w72", true},
        {{212, 218, 219, 222, 223}, "r w97 w98 g", true},
        {{213}, "w93 w96", true},
        {{214, 215}, "w53 w55", true},
        {{216, 217}, "wca", true},
        {{225}, "w71", true},
        {{195, 196, 199, 200, 201, 202, 209, 221}, "w30 w31 w32 w33 w34 w35 w37 w38 w39 w3b", false},
        {{197, 207, 208}, "w3c w3d w3e s r", false},
        {{226}, "w5f", false},
    };
    std::mt19937 random(99);
    for (int round = 0; round < 400; ++round) {
        Words have, want;
        memcpy(have.data(), &gtImgCfgStatus, sizeof wanted);
        memcpy(want.data(), &wanted, sizeof wanted);
        for (const auto &group : groups) {
            for (const size_t word : group.words)
                want[word] = random() % 3 != 0 ? have[word]
                             : word == 209     ? 50
                                               : static_cast<int32_t>(random() % 5);
        }
        memcpy(&wanted, want.data(), sizeof wanted);
        wanted.wbSave = random() % 8 == 0;
        const bool wantsSave = wanted.wbSave == 1;
        Lines effects;
        Capture([&] { ImageSet(&wanted); });
        effects = Effects();
        size_t at = 0;
        for (const auto &group : groups) {
            bool differs = group.words[0] == 197 && wantsSave;
            for (const size_t word : group.words)
                differs = differs || have[word] != want[word];
            const size_t begin = at;
            const auto belongs = [&](const std::string &line) {
                const std::string name = line[0] == 'w' ? "w" + line.substr(2, 2) : line.substr(0, 1);
                return group.effects.find(name) != std::string::npos;
            };
            while (differs && at < effects.size() && belongs(effects[at]))
                ++at;
            EXPECT_TRUE(!differs || !group.always || at > begin) << group.effects;
        }
        EXPECT_EQ(at, effects.size()) << (at < effects.size() ? effects[at] : "");
        EXPECT_EQ(ImageSet(&wanted), 0);
        EXPECT_EQ(board.Take(), Lines());
    }
}

} // namespace
