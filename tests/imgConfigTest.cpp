// SPDX-License-Identifier: MIT
//
// The image configuration: the vocabulary and its positions, every field's place in the record, files and
// option strings, nested loads, the printout byte for byte, and the day/night switch.
#include "fakeBoard.h"

#include "kelisp/debugFlags.h"
#include "kelisp/imgConfig.h"

#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// clang-format off
const std::string keyList =
    "SNR_TYPE;LEN_TYPE;ICR_TYPE;2A_AEC_EN;2A_AGC_EN;2A_AEL_EN;2A_AWB_EN;2A_MAX_EXPOSURE;2A_MAN_EXPOSURE;"
    "2A_MAX_GAIN;2A_MAN_GAIN;2A_LIMIT_INDEX;2A_LIMIT_UPPER;2A_LIMIT_LOWER;2A_WB_SAVE;2A_WB_R;2A_WB_B;"
    "2A_DEFLICKER;IMG_BRIGHTNESS;IMG_CONTRAST;IMG_SATURATION;IMG_SHARPNESS;IMG_NF_MODE;IMG_NF_LEVEL;IMG_FLIP;"
    "IMG_MIRROR;DN_MODE;DN_BW;DN_ICR;DN_FPS;TRIG;DN_LS;DN_LUM;EXT_BLC;EXT_WDR;EXT_NF;EXT_LSC;EXT_DPC;"
    "EXT_AEWIN;RESET;RELOAD;EXT_DEBUG;LOOPBREAK;sensor_width;sensor_height";
// clang-format on

// Word of the record that each key sets, in the order of the list; -1: none.
const int words[] = {0,   1,   2,   195, 196, 198, 197, 199, 200, 201, 202, 203, 204, 205, 206,
                     207, 208, 209, 210, 211, 212, 213, 214, 215, 216, 217, -1,  -1,  -1,  221,
                     -1,  -1,  -1,  225, 226, 227, 228, 229, -1,  -1,  -1,  231, -1,  -1,  -1};

using Words = std::array<int32_t, 232>;

class Config : public BoardTest
{
  protected:
    ImgCfgStatus record = {};
    Config()
    {
        ImgCfgDefault(&record);
        gfDebugFlag = 0;
    }
    ~Config() override { gfDebugFlag = 0; }

    Words AsWords() const
    {
        Words out;
        memcpy(out.data(), &record, sizeof(record));
        return out;
    }
    int Load(const std::string &text)
    {
        WriteFile(IMG_CFG_SYSTEM_FILE, text);
        return ImgCfgReload(&record);
    }
};

TEST_F(Config, EachKeyHasItsPositionAndSetsItsFieldAlone)
{
    size_t position = 0;
    for (const int word : words) {
        const std::string key = keyList.substr(position, keyList.find(';', position) - position);
        ImgCfgDefault(&record);
        Words expected = AsWords();
        if (word >= 0)
            expected[static_cast<size_t>(word)] = -77;
        for (const char *value : {"-77", static_cast<const char *>(nullptr)}) { // without one nothing changes
            EXPECT_EQ(ImgCfgParse(&record, key.c_str(), value), static_cast<int>(position));
            EXPECT_EQ(AsWords(), expected) << key;
        }
        position += key.size() + 1;
    }
    EXPECT_EQ(position, keyList.size() + 1);
}

// A text is known exactly when its first occurrence in the list begins a key.
TEST_F(Config, KeysAreFoundByTheirFirstOccurrence)
{
    const std::pair<const char *, int> cases[] = {
        // clang-format off
        {"2A_WB", 168}, {"2A_WB_", 168}, {"S", 0}, {"", 0}, {"sensor_", 438}, {"DN_L", 343}, {"IMG_NF_MODE;IMG", 265},
        {"TYPE", -2}, {"WB_R", -2}, {"snr_type", -2}, {"SNR_TYPE_", -2}, {";", -2}, {"R", -2}, {"sensor_heights", -2},
        // clang-format on
    };
    for (const auto &[text, position] : cases)
        EXPECT_EQ(ImgCfgParse(&record, text, nullptr), position) << text;
}

TEST_F(Config, Values)
{
    const std::pair<const char *, int32_t> cases[] = {
        // clang-format off
        {"12abc", 12}, {"abc", 0}, {"-5", -5}, {" \t\v+7", 7}, {"0x10", 0}, {"--5", 0}, {"", 0}, {"007", 7},
        {"2147483647", INT32_MAX}, {"2147483648", INT32_MAX}, {"-2147483648", INT32_MIN},
        {"-2147483649", INT32_MIN}, {"4294967297", INT32_MAX}, {"99999999999999999999999", INT32_MAX},
        // clang-format on
    };
    for (const auto &[text, value] : cases) {
        ImgCfgParse(&record, "DN_FPS", text);
        EXPECT_EQ(record.dnFps, value) << text;
    }
    std::string window(192, '1');
    window[13] = '0';
    window[191] = '\xF0';
    ImgCfgParse(&record, "EXT_AEWIN", window.substr(0, 191).c_str());
    EXPECT_EQ(record.aeWindow[1][1], 1); // one too short: as it was
    ImgCfgParse(&record, "EXT_AEWIN", (window + "5").c_str());
    EXPECT_EQ(record.aeWindow[1][0], 1);
    EXPECT_EQ(record.aeWindow[1][1], 0);
    EXPECT_EQ(record.aeWindow[15][11], 0xF0 - '0');
}

TEST_F(Config, FileLines)
{
    const std::pair<std::string, int32_t> cases[] = {
        // clang-format off
        {"2A_WB_R = 600\n", 600}, {"\t 2A_WB_R\t=\t600 700 # x\r\n", 600}, {"2A_WB_R 600", 600},
        {"2A_WB_R\t600", 600}, {"2A_WB_R=1\n2A_WB_R=2\n", 2}, {"  # 2A_WB_R=600\n", 512},
        {"#2A_WB_R=600\n", 512}, {"2A_WB_R\n", 512}, {"2A_WB_R=\"600\"\n", 0}, {"2A_WB_R=6\t00\n", 6},
        {"=== 2A_WB_R ==\r\r 600\n", 600}, {"LOOPBREAK=1\n2A_WB_R=600\n", 600},
        {std::string(300, '#') + "2A_WB_R=600\n", 512},
        {std::string(255, '#') + "2A_WB_R=600\n", 600}, // the second piece of a long line
        {"2A_WB_R=600" + std::string(300, ' ') + "2A_WB_R=700\n", 700},
        {std::string("2A_WB_R\0=600\n", 13), 512},
        // clang-format on
    };
    for (const auto &[text, wbR] : cases) {
        ImgCfgDefault(&record);
        EXPECT_EQ(Load(text), 0);
        EXPECT_EQ(record.wbR, wbR) << text;
    }
    EXPECT_EQ(ImgCfgLoadFile(&record, "/sysconf/none"), -1);
    board.Fail("open", 1, EACCES);
    EXPECT_EQ(ImgCfgReload(&record), -2);
}

TEST_F(Config, NestedLoadsApplyInPlaceAndEnd)
{
    WriteFile(IMG_CFG_DEFAULT_FILE, "2A_WB_R=1\n2A_WB_B=1\nIMG_FLIP=1\n");
    EXPECT_EQ(Load("2A_WB_R=2\nIMG_FLIP=2\nRESET=1x\nRESET=0\nRESET=2\n2A_WB_B=3\n"), 0);
    EXPECT_EQ(record.wbR, 1);
    EXPECT_EQ(record.wbB, 3);
    EXPECT_EQ(record.flip, 1);
    board.Take();
    EXPECT_EQ(Load("RELOAD=1\n"), 0);
    EXPECT_EQ(board.Take().size(), 2U * 5); // the file, and itself four levels deep
    std::string many;
    for (int i = 0; i < 1000; ++i)
        many += "RELOAD=1\nRESET=1\n";
    WriteFile(IMG_CFG_DEFAULT_FILE, many);
    EXPECT_EQ(Load(many + "IMG_FLIP=5\n"), 0);
    EXPECT_EQ(record.flip, 5);
    EXPECT_EQ(board.Take().size(), 2U * 17); // the file and 16 nested loads, each opened and closed
    // A FIFO is not waited for.
    const std::string fifo = board.RealPath(IMG_CFG_DEFAULT_FILE);
    EXPECT_TRUE(unlink(fifo.c_str()) == 0 && mkfifo(fifo.c_str(), 0600) == 0);
    EXPECT_EQ(Load("RESET=1\nIMG_FLIP=4\n"), 0);
    EXPECT_EQ(record.flip, 4);
    EXPECT_EQ(ImgCfgLoadDefault(&record), IMG_CFG_UNREADABLE);
}

TEST_F(Config, OptionStrings)
{
    const struct {
        const char *text;
        int status;
        int32_t brightness, contrast;
    } cases[] = {{"IMG_BRIGHTNESS=100,LOOPBREAK=1,IMG_CONTRAST=50", -1, 100, 128},
                 {"IMG_BRIGHTNESS=100,LOOPBREAK", -1, 100, 128},
                 {"IMG_BRIGHTNESS=100,IMG_CONTRAST", 0, 100, 128},
                 {",,IMG_BRIGHTNESS,7=IMG_CONTRAST==8,", 0, 7, 8},
                 {"NONE=1,IMG_CONTRAST=5", 0, 128, 5},
                 {"RELOAD=1,IMG_BRIGHTNESS=9", 0, 9, 33},
                 {"", 0, 128, 128}};
    WriteFile(IMG_CFG_SYSTEM_FILE, "IMG_BRIGHTNESS=44\nIMG_CONTRAST=33\n");
    for (const auto &c : cases) {
        ImgCfgDefault(&record);
        std::string text = c.text;
        EXPECT_EQ(ImgCfgParseOptions(&record, text.data()), c.status);
        EXPECT_EQ(record.brightness, c.brightness) << c.text;
        EXPECT_EQ(record.contrast, c.contrast) << c.text;
    }
}

TEST_F(Config, DebugLines)
{
    char options[] = "TYPE=1,NONE=x,RESET=0,RELOAD=0,sensor_width=9,sensor_height,LOOPBREAK=7";
    gfDebugFlag = 1;
    EXPECT_EQ(Capture([&] { ImgCfgParseOptions(&record, options); }).out,
              "[kel_isp] pcOpt = TYPE\tval = 1\n[kel_isp] PARSER!!!!!!!!!!!!!!!!!!\n[kel_isp] TYPE:4\n"
              "[kel_isp] pcOpt = NONE\tval = x\n[kel_isp] PARSER!!!!!!!!!!!!!!!!!!\n[kel_isp] NONE:-1\n"
              "[kel_isp] pcOpt = RESET\tval = 0\n[kel_isp] Reset default config \n"
              "[kel_isp] pcOpt = RELOAD\tval = 0\n[kel_isp] Reload config \n"
              "[kel_isp] pcOpt = sensor_width\tval = 9\n[kel_isp] sensor_width=9\n"
              "[kel_isp] pcOpt = sensor_height\tval = LOOPBREAK\n[kel_isp] sensor_height=LOOPBREAK\n"
              "[kel_isp] pcOpt = 7\tval = \n[kel_isp] PARSER!!!!!!!!!!!!!!!!!!\n[kel_isp] 7:-1\n");
    EXPECT_EQ(Capture([&] { ImgCfgParse(&record, "LOOPBREAK", "7"); }).out,
              "[kel_isp] Receive LOOPBREAK=7\n");
}

// Each field holds the number of its word, so that no two can be
// exchanged. In the text below ':' stands for "\t:\t".
TEST_F(Config, PrintoutByteForByte)
{
    Words numbers;
    for (size_t i = 0; i < numbers.size(); ++i)
        numbers[i] = static_cast<int32_t>(i);
    memcpy(&record, numbers.data(), sizeof(record));
    const std::string rule = "=======================================\n";
    std::string before =
        "SNR_TYPE:0\nLEN_TYPE:1\nICR_TYPE:2\n2A_AEC\t:195\n2A_AGC\t:196\n2A_AEL\t:198\n2A_AWB\t:197\n"
        "2A_MAX_EXPOSURE:199\n2A_MAN_EXPOSURE:200\n2A_MAX_GAIN:201\n2A_MAN_GAIN:202\n"
        "2A_LIMIT_INDEX:203\n2A_LIMIT_UPPER:204\n2A_LIMIT_LOWER:205\n2A_WB_SAVE:206\n2A_WB_R\t:207\n"
        "2A_WB_B\t:208\n2A_DEFLICKER:209\nIMG_BRIGHTNESS:210\nIMG_CONTRAST:211\nIMG_SATURATION:212\n"
        "IMG_SHARPNESS:213\nIMG_NF_MODE:214\nIMG_NF_LEVEL:215\nIMG_FLIP:216\nIMG_MIRROR:217\n"
        "DN_MODE\t:218\nDN_BW\t:219\nDN_ICR\t:220\nDN_FPS\t:221\nDN_DI\t:222\nDN_LS\t:223\n"
        "DN_LUM\t:224\nEXT_BLC\t:225\nEXT_WDR\t:226\nEXT_NF\t:227\nEXT_LSC\t:228\nEXT_DPC\t:229\n";
    std::string window = "EXT_AEWIN\t:\n", after = "EXT_RESET\t:230\nEXT_DEBUG\t:231\n";
    for (int cell = 3; cell < 195; ++cell)
        window += std::to_string(cell) + (cell % 12 == 2 ? "\n" : "");
    for (std::string *text : {&before, &after})
        for (size_t at = 0; (at = text->find(':', at)) != std::string::npos; at += 3)
            text->replace(at, 1, "\t:\t");
    EXPECT_EQ(Capture([&] { ImgCfgPrint(&record); }).out, rule + before + window + after + rule);
}

TEST_F(Config, Defaults)
{
    Words expected = {};
    std::fill_n(expected.begin() + 1, 197, 1); // lenType, icrType, the window, aecEn, agcEn, awbEn
    const std::pair<size_t, int32_t> others[] = {{200, 3},   {201, 2},   {207, 512}, {209, 60}, {210, 128},
                                                 {211, 128}, {212, 128}, {213, 100}, {214, 1},  {219, 1},
                                                 {220, 1},   {225, 4},   {229, 1}};
    for (const auto &[word, value] : others)
        expected[word] = value;
    EXPECT_EQ(AsWords(), expected);
}

TEST_F(Config, DayNightSwitch)
{
    // By mode, -1 to 5: '1' where it is night, for the light sensor 0 to 2 and, within, the input 0 to 2.
    const char *const nights[] = {"000000000", "000111000", "000000000", "111111111",
                                  "100100100", "000111000", "000000000"};
    for (int bits = 0; bits < 7 * 3 * 9; ++bits) {
        record.dnMode = bits % 7 - 1;
        record.dnIcr = bits / 7 % 3;
        record.dnDi = bits / 21 % 3;
        record.dnLs = bits / 63;
        const bool night = record.dnIcr == 1 && nights[bits % 7][bits / 21] == '1';
        Expect([&] { return ApplyIcrLedConfig(&record); }, 0, "",
               {"open /dev/gio", night ? "gio 11 35 1" : "gio 11 35 0", night ? "gio 11 0 0" : "gio 11 0 1",
                "gio 11 91 1", "close /dev/gio"});
    }
    const Lines calls = {"open /dev/gio", "gio 11 35 0", "gio 11 0 1", "gio 11 91 1"};
    for (size_t nth = 0; nth < calls.size(); ++nth) { // what follows a failing call is not sent
        Lines made(calls.begin(), calls.begin() + static_cast<long>(nth) + 1);
        if (nth > 0)
            made.push_back("close /dev/gio");
        board.Fail(calls[nth]);
        Expect([&] { return ApplyIcrLedConfig(&record); }, -5,
               nth == 0 ? "[kel_isp] ERROR: open device failed\n" : "[kel_isp] ERROR: ioctl failed\n", made);
    }
}

TEST_F(Config, SystemLoadSetsDebugAndSwitches)
{
    WriteFile(IMG_CFG_SYSTEM_FILE, "EXT_DEBUG=2\nDN_MODE=2\n");
    record.dnMode = 2;
    EXPECT_EQ(Capture([&] { EXPECT_EQ(ImgCfgLoadSystem(&record), 0); }).out,
              "[kel_isp] Set ICR = IR_PASS\n[kel_isp] Set IR LEDs = ON\n");
    EXPECT_EQ(gfDebugFlag, 2);
    board.Fail("gio");
    Capture([&] { EXPECT_EQ(ImgCfgLoadSystem(&record), -5); });
}

} // namespace
