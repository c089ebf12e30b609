// SPDX-License-Identifier: MIT
//
// The image-settings applier by its traffic: register writes, GPIO requests, file rewrites and pauses, in
// order; what is copied when; reports and debug lines.
#include "fakeBoard.h"

#include "kelisp/debugFlags.h"
#include "kelisp/ispImageSet.h"
#include "kelisp/ispSensor.h"

#include <cstring>
#include <filesystem>
#include <sstream>

static double shutterUs; // of the last call
extern "C" int __real_SetMeExpTime(double timeUs);
extern "C" int __wrap_SetMeExpTime(double timeUs)
{
    shutterUs = timeUs;
    return __real_SetMeExpTime(timeUs);
}

namespace
{

using Words = std::array<int32_t, 232>;

Words AsWords(const ImgCfgStatus &record)
{
    Words words;
    memcpy(words.data(), &record, sizeof(record));
    return words;
}

class Applier : public BoardTest
{
  protected:
    ImgCfgStatus wanted = {};

    Applier()
    {
        AttachLink();
        board.regs[0x0E] = 6;   // the 30 fps sensor
        board.regs[0x19] = 141; // red 2.404, blue 1.0
        board.regs[0x18] = 64;
        SensorInit();
        board.Take();
        gtImgCfgStatus = {};
        gfDebugFlag = gfImgDebugFlag = 0;
        ImgCfgDefault(&wanted);
        WriteFile(IMG_CFG_SYSTEM_FILE, "DN_LS=9\n2A_WB_R=1\n2A_WB_B=2\n");
    }
    ~Applier() override { gfDebugFlag = gfImgDebugFlag = 0; }

    // KEY=VALUE,...; the day/night fields, which have no key that is stored, by their names.
    void Change(const std::string &text)
    {
        const std::map<std::string, int32_t *> fields = {
            // clang-format off
            {"dnMode", &wanted.dnMode}, {"dnBw", &wanted.dnBw}, {"dnIcr", &wanted.dnIcr},
            {"dnDi", &wanted.dnDi}, {"dnLs", &wanted.dnLs},
            // clang-format on
        };
        std::istringstream in(text);
        for (std::string key, value; std::getline(in, key, '=') && std::getline(in, value, ',');)
            if (fields.count(key) != 0)
                *fields.at(key) = std::stoi(value);
            else
                EXPECT_GE(ImgCfgParse(&wanted, key.c_str(), value.c_str()), 0) << key;
    }
    // What the calls since the last look changed: writes, requests, rewrites, and pauses beyond a transfer's.
    std::string Effects()
    {
        std::string out;
        for (const std::string &line : board.Take())
            if (line.starts_with("rename "))
                out += ", rewrite";
            else if (line.starts_with("w ") || line.starts_with("gio ") || line == "sleep 50000")
                out += ", " + line;
        return out.empty() ? out : out.substr(2);
    }
    // Applies the record; afterwards all that the applier looks at is applied.
    std::string Apply()
    {
        EXPECT_EQ(ImageSet(&wanted), 0);
        const Words want = AsWords(wanted), have = AsWords(gtImgCfgStatus);
        for (const unsigned word :
             {195U, 196U, 197U, 199U, 200U, 201U, 202U, 207U, 208U, 209U, 210U, 211U, 212U,
              213U, 214U, 215U, 216U, 217U, 218U, 219U, 221U, 222U, 223U, 225U, 226U, 231U})
            EXPECT_EQ(have[word], want[word]) << word;
        return Effects();
    }
    // The applier's own reports among what is printed on standard error.
    std::string Reports(const std::function<void()> &action)
    {
        const std::string mark = " ERROR  (ispImageSet|";
        std::string out;
        std::istringstream text(Capture(action).err);
        for (std::string line; std::getline(text, line);)
            out += line.starts_with(mark) ? line.substr(mark.size()) + "\n" : "";
        return out;
    }
};

TEST_F(Applier, StepsInOrder)
{
    for (const Lines &row : ReadTable("applier.txt", "step")) {
        std::string effects;
        for (size_t i = 1; i < row.size(); ++i)
            effects += (i > 1 ? " " : "") + row[i];
        Change(row[0]);
        EXPECT_EQ(Apply(), effects) << row[0];
        EXPECT_EQ(ImageSet(&wanted), 0);
        EXPECT_EQ(board.Take(), Lines()) << row[0] << " again";
    }
    EXPECT_EQ(board.ReadFile(IMG_CFG_SYSTEM_FILE), "DN_LS=1\n2A_WB_R=600\n2A_WB_B=512\n");
    EXPECT_EQ(wanted.wbR, 1230); // 2.404 x 512 = 1230.8
    EXPECT_EQ(wanted.brightness, 300);
}

TEST_F(Applier, EveryShutterTimeIsTheExactQuotient)
{
    using Times = std::vector<double>;
    const struct {
        int32_t mainsHz, aecEn, ImgCfgStatus::*index, first;
        Times timesUs; // from index `first` on, which has no time of its own
    } tables[] = {
        // clang-format off
        {50, 0, &ImgCfgStatus::manExposure, -1,
         {4e4, 1e6 / 3, 1e6 / 6, 1e6 / 12, 4e4, 2e4, 1e4, 5e3, 2500, 1250, 625, 312.5, 156.25, 4e4}},
        {60, 0, &ImgCfgStatus::manExposure, -1,
         {1e5 / 3, 25e4, 125e3, 2e5 / 3, 1e5 / 3, 5e4 / 3, 25e3 / 3, 4e3, 2e3, 1e3, 500, 250, 125, 1e5 / 3}},
        {50, 1, &ImgCfgStatus::dnFps, 1, {1e6 / 12, 1e6 / 6, 1e6 / 3, 2e6 / 3, 1e6, -1}},
        {60, 1, &ImgCfgStatus::dnFps, 1, {2e5 / 3, 125e3, 25e4, 5e5, 1e6, -1}},
        {50, 1, &ImgCfgStatus::maxExposure, 0, {4e4, 2e4, 1e4, 5e3, 2500, 4e4}},
        {60, 1, &ImgCfgStatus::maxExposure, 0, {1e5 / 3, 5e4 / 3, 25e3 / 3, 12500.0 / 3, 6250.0 / 3, 1e5 / 3}},
        // clang-format on
    };
    for (const auto &table : tables) {
        ImgCfgDefault(&wanted);
        wanted.deflicker = table.mainsHz;
        wanted.aecEn = wanted.agcEn = table.aecEn;
        gtImgCfgStatus.manExposure = -5;
        Times times;
        for (wanted.*table.index = table.first; times.size() < table.timesUs.size();
             ++(wanted.*table.index)) {
            shutterUs = -1;
            EXPECT_EQ(SetAE(&wanted), 0);
            times.push_back(shutterUs);
        }
        EXPECT_EQ(times, table.timesUs) << table.mainsHz;
    }
}

TEST_F(Applier, MainsFrequencyWithoutTables)
{
    Apply();
    Change("2A_DEFLICKER=55,2A_AEC_EN=0,2A_AGC_EN=0,2A_MAN_GAIN=3,2A_MAN_EXPOSURE=5");
    EXPECT_EQ(Reports([&] { EXPECT_EQ(Apply(), "w 30 80, w 34 00, w 39 00, w 3b 00"); }),
              "ImageSet|): [kel_isp] ERROR: SetAE failed.\n");
    EXPECT_EQ(SetAE(&wanted), 0); // nothing differs any more, no table is needed
    Change("2A_DEFLICKER=60,2A_MAN_GAIN=7,2A_MAN_EXPOSURE=1");
    Capture([&] { EXPECT_EQ(SetAE(&wanted), -9); }); // for the gain
    EXPECT_EQ(Effects(), "") << "no shutter behind a failing gain";
}

TEST_F(Applier, EveryStepIsReportedAndTheNextOneRuns)
{
    gtImgCfgStatus.mirror = gtImgCfgStatus.flip = gtImgCfgStatus.extWdr = gtImgCfgStatus.nfLevel = 1;
    gtImgCfgStatus.awbEn = 1;
    giImgSetErrCount = 100;
    Change("2A_AWB_EN=0,2A_WB_SAVE=1,dnLs=1");
    for (const char *calls : {"w ", "r 18", "r 19", "rename", "gio"})
        board.Fail(calls, 1, EIO, 1000);
    std::string expected;
    for (const char *step :
         // clang-format off
         {"ERROR: SetBrightness", "ERROR: SetContrast", "ERROR: SetSaturation", "ERROR: SetSharpness",
          "ERROR: SetNfAutoMode", "ERROR: SetNfManualLevel", "ERROR: SetNfManualLevel", "ERROR: SetMirror",
          "ERROR: SetFlip", "ERROR: SetBlcIndex", "ERROR: SetAE", "CXD3193AR_Set_WbHoldH", "InfoWbrGain",
          "InfoWbbGain", "SetMnlWbrGain", "SetMnlWbbGain", "CXD3193AR_Set_WbHoldH", "CXD3193AR_Set_WbAutoH",
          "", "SetMnlWbrGain", "SetMnlWbbGain", "", "SetWdr"}) // "": the gains cannot be saved
        // clang-format on
        expected += *step != '\0' ? std::string("ImageSet|): [kel_isp] ") + step + " failed.\n"
                                  : "SaveWB|): [kel_isp] Save WB R Data Error!!!!!!\n";
    EXPECT_EQ(Reports([&] { ImageSet(&wanted); }), expected);
    EXPECT_EQ(giImgSetErrCount, 100 + 23 + 3) << "the light sensor's state, filter and LEDs without a report";
    EXPECT_EQ(wanted.wbR, -6 * 512); // the failed readout's status
    EXPECT_EQ(wanted.wbSave, 1);
    board.Reset();
    AttachLink();
    wanted.wbSave = 0;
    EXPECT_EQ(Apply(), ""); // not tried again
}

TEST_F(Applier, SaveStoresRedThenBlue)
{
    int32_t flag = 1;
    board.Fail("rename", 2);
    EXPECT_EQ(Reports([&] { EXPECT_EQ(SaveWB(IMG_CFG_SYSTEM_FILE, 7, -8, &flag), -4); }),
              "SaveWB|): [kel_isp] Save WB B Data Error!!!!!!\n");
    EXPECT_EQ(board.ReadFile(IMG_CFG_SYSTEM_FILE) + std::to_string(flag), "DN_LS=9\n2A_WB_R=7\n2A_WB_B=2\n1");
    EXPECT_EQ(SaveWB(IMG_CFG_SYSTEM_FILE, 7, -8, &flag), 0);
    EXPECT_EQ(board.ReadFile(IMG_CFG_SYSTEM_FILE) + std::to_string(flag),
              "DN_LS=9\n2A_WB_R=7\n2A_WB_B=-8\n0");
}

TEST_F(Applier, DebugLinesFollowTheOrder)
{
    Change("EXT_DEBUG=1,dnLs=1,2A_WB_SAVE=1,IMG_MIRROR=1,IMG_FLIP=1,IMG_NF_LEVEL=1,EXT_WDR=1");
    std::filesystem::remove(board.RealPath(IMG_CFG_SYSTEM_FILE));
    const std::string wb = "SAVE WB to CONF|Enter SAVE WB Function|sysconf_fset WB_R |";
    std::string expected =
        "|BRIGHTNESS = 128|CONTRAST = 128|Save LS Data Error!!!!!!|SAVE Light Sensor Status to CONF|"
        "ICR Type = 1|SATURATION = 128|DN MODE = 0|DN BW = 1|DN ICR = 1|DN DI = 0|DN LS = 1|"
        "SHARPNESS = 100|IMG_NF_MODE = 1|IMG_NF_LEVEL = 1|MIRROR = 1|FLIP = 1|AEC = 1|AGC = 1|ME = 3|"
        "MG = 0|MaxExp = 0|MaxGain = 2|DN Fps = 0|DE-FICKER = 60|AWB EN = 1|" +
        wb + "Save WB = 1|" + wb + "Finished SAVE WB to CONF|Save WB = 1|WB R = 1230|WB B = 512|WDR = 1|";
    for (size_t at = 0; (at = expected.find('|', at)) != std::string::npos;)
        expected.replace(at, 1, "\n[kel_isp] ");
    EXPECT_EQ("\n" + Capture([&] { ImageSet(&wanted); }).out + "[kel_isp] ", expected);
    EXPECT_EQ(gfDebugFlag, 1);
    WriteFile(IMG_CFG_SYSTEM_FILE, "2A_WB_R=1\n"); // the save that failed is made now
    EXPECT_NE(
        Capture([&] { ImageSet(&wanted); })
            .out.find("sysconf_fset WB_B \n[kel_isp] Set WB_SAVE to 0\n[kel_isp] Finished SAVE WB to CONF\n"
                      "[kel_isp] Save WB = 0\n"),
        std::string::npos);
}

} // namespace
