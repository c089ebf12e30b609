// SPDX-License-Identifier: MIT
//
// Conversions and sensor control: codes, gains and times against written-out values, the order of the steps,
// and what is written, returned and printed when any one transfer fails.
#include "fakeBoard.h"

#include "kelisp/debugFlags.h"
#include "kelisp/ispCXD3193AR.h"
#include "kelisp/ispSensor.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

// The gate of the live readouts cannot be made to stay open from
// outside, so one accessor is replaced to say so.
static bool gateStaysOpen = false;
extern "C" int __real_CXD3193AR_Info_ExpTime(uint16_t *);
extern "C" int __wrap_CXD3193AR_Info_ExpTime(uint16_t *value)
{
    return gateStaysOpen ? CXD3193AR_GATE_OPEN : __real_CXD3193AR_Info_ExpTime(value);
}

namespace
{
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double infinite = std::numeric_limits<double>::infinity();

// A gain table: telling rows, and over all rows the sum of (code + 1) x gain in thousandths.
template <size_t rows>
void ExpectTable(const GainTableEntry (&table)[rows], const std::map<int, double> &telling, int64_t sum,
                 double (*toGain)(uint8_t), int (*toCode)(double))
{
    for (const auto &[code, gain] : telling)
        EXPECT_EQ(table[code].gain, gain) << code;
    for (int code = 0; code < static_cast<int>(rows); ++code) {
        const double gain = table[code].gain;
        EXPECT_EQ(table[code].regValue, code);
        EXPECT_EQ(gain, std::round(gain * 1000.0) / 1000.0) << code;
        sum -= (code + 1) * std::llround(gain * 1000.0);
        EXPECT_EQ(toGain(static_cast<uint8_t>(code)), gain) << code;
        EXPECT_EQ(toCode(gain), code);
        EXPECT_EQ(toCode(std::nextafter(gain, 0.0)), code == 0 ? -6 : code - 1);
    }
    EXPECT_EQ(sum, 0);
}

TEST(Conversions, GainTablesWhole)
{
    // clang-format off
    ExpectTable(gtWbTable, {{0, 0.5}, {1, 0.508}, {3, 0.523}, {8, 0.563}, {63, 0.992}, {64, 1.0}, {65, 1.016},
        {127, 1.984}, {128, 2.0}, {129, 2.031}, {141, 2.404}, {191, 3.969}, {192, 4.0}, {193, 4.063}, {255, 7.938}},
        129746548, CXD3193AR_WbTable_RegValue2Gain, CXD3193AR_WbTable_Gain2RegValue);
    ExpectTable(gtAgainTable, {{0, 1.0}, {1, 1.008}, {5, 1.041}, {32, 1.333}, {63, 1.969}, {64, 2.0}, {65, 2.016},
        {96, 2.667}, {127, 3.938}, {128, 4.0}, {129, 4.031}, {141, 4.452}, {160, 5.333}, {191, 7.877}, {192, 7.953}},
        80321384, CXD3193AR_AgainTable_RegValue2Again, CXD3193AR_AgainTable_Again2RegValue);
    // clang-format on
    EXPECT_EQ(CXD3193AR_AgainTable_RegValue2Again(193) + CXD3193AR_AgainTable_RegValue2Again(255), 0.0);
}

TEST(Conversions, WrittenOutValues)
{
    const struct {
        double gain;
        int wb, again;
    } gains[] = {
        {0.4999, -6, -6},   {0.5, 0, -6},       {0.507, 0, -6},   {0.508, 1, -6},  {0.99, 62, -6},
        {1.0, 64, 0},       {2.405, 141, 85},   {4.0, 192, 128},  {4.5, 200, 142}, {7.938, 255, 191},
        {7.953, 255, 192},  {8.0, 255, 192},    {8.0001, -6, -6}, {-1.0, -6, -6},  {1e300, -6, -6},
        {infinite, -6, -6}, {notANumber, 0, 0},
    };
    for (const auto &row : gains) {
        EXPECT_EQ(CXD3193AR_WbTable_Gain2RegValue(row.gain), row.wb) << row.gain;
        EXPECT_EQ(CXD3193AR_AgainTable_Again2RegValue(row.gain), row.again) << row.gain;
    }
    const struct {
        double gain;
        int code;
    } digital[] = {{31.875, 255}, {1.0, 8},   {2.99, 23}, {0.124, 0}, {0.0, 0},       {31.99, 255},
                   {32.0, 0},     {40.0, 64}, {-1.0, 0},  {-0.1, 0},  {notANumber, 0}};
    for (const auto &row : digital)
        EXPECT_EQ(CXD3193AR_Dgain2RegValue(row.gain), row.code) << row.gain;
    CXD3193AR_Dgain2RegValue(1e300); // no value is promised, but no undefined behaviour either
    CXD3193AR_Dgain2RegValue(infinite);
    EXPECT_EQ(CXD3193AR_RegValue2Dgain(255), 31.875);
    EXPECT_EQ(CXD3193AR_RegValue2Dgain(1), 0.125);
    EXPECT_EQ(CXD3193AR_RegValue2Dgain(4000000000U), 500000000.0);
    EXPECT_NEAR(CXD3193AR_Db2Gain(-6.0), 0.5011872336272722, 1e-15);
    EXPECT_NEAR(CXD3193AR_Gain2Db(2.0), 6.020599913279624, 1e-14);
    EXPECT_EQ(CXD3193AR_Db2Gain(20.0), 10.0);
    EXPECT_EQ(CXD3193AR_Gain2Db(1.0), 0.0);
}

TEST(Conversions, ExposureCompensation)
{
    const double steps[] = {-2.5, -2.25, -2.0, -1.75, -1.5, -1.25, -1.0, -0.75, -0.5, -0.25, 0.0,
                            0.2,  0.4,   0.6,  0.8,   1.0,  1.2,   1.4,  1.6,   1.8,  2.0};
    for (unsigned code = 0; code < 300; ++code) {
        const double ev = CXD3193AR_RegValue2Ev(code);
        if (code < 6 || code > 26) {
            EXPECT_EQ(ev, -99.0) << code;
        } else {
            EXPECT_DOUBLE_EQ(ev, steps[code - 6]) << code;
            EXPECT_EQ(CXD3193AR_Ev2RegValue(ev), static_cast<int>(code));
        }
    }
    EXPECT_EQ(CXD3193AR_RegValue2Ev(UINT32_MAX), -99.0);
    const struct {
        double ev;
        int code;
    } cases[] = {{-2.6, -99}, {-2.5001, -99}, {-2.5, 6},    {-2.49, 6},       {-2.0, 8}, {-1.5, 10},
                 {-1.0, 12},  {-0.5, 14},     {-0.01, 15},  {-0.0, 16},       {0.0, 16}, {0.1999, 16},
                 {0.2, 17},   {0.5, 18},      {1.0, 21},    {1.4, 22},        {1.5, 23}, {1.99, 25},
                 {2.0, 26},   {2.01, -99},    {1e300, -99}, {notANumber, -99}};
    for (const auto &row : cases)
        EXPECT_EQ(CXD3193AR_Ev2RegValue(row.ev), row.code) << row.ev;
}

class Sensor : public BoardTest
{
  protected:
    void SetUp() override
    {
        AttachLink();
        Initialise(6);
    }

    void Initialise(uint8_t type)
    {
        board.regs[0x0E] = type;
        ASSERT_EQ(SensorInit(), 0);
        board.Take();
    }

    // What was sent to registers since the last call, without polls, reads and pauses.
    Lines Written()
    {
        Lines lines = board.Take();
        std::erase_if(lines, [](const std::string &line) { return line[0] != 'w'; });
        return lines;
    }
};

std::string Message(const std::string &function, const std::string &text)
{
    return "@ispSensor|" + function + ": [kel_isp] " + text + "\n";
}

TEST_F(Sensor, InitialisationStoresThePresetOfTheType)
{
    static const SensorInfo expected[] = {
        {1650, 1090, 1280, 1024, 78, 43, 30.025020850708923, 1, 5, 29, 6, 1, 0, 54000000, 30.555555555555557,
         9.17},
        {825, 552, 640, 512, 44, 25, 59.28853754940712, 1, 5, 40, 7, 1, 0, 27000000, 30.555555555555557,
         9.17},
    };
    const std::string text =
        "Full Width\t:\t825\nFull Height\t:\t552\nValid Width\t:\t640\nValid Height\t:\t512\n"
        "Valid Start X\t:\t44\nValid Start Y\t:\t25\nFps\t\t:\t59.288538\nPixel Clock\t:\t27000000 Hz\n"
        "1H Time\t\t:\t30.555556 us\nOffset Time\t:\t9.170000 us\nExt GIO enable\t:\t1\nOutput info\t:\t5\n"
        "Cis Type\t:\t7\n";
    board.regs[0x0C] = board.regs[0x53] = 0xFD;
    board.regs[0xCC] = 0xFD;
    board.regs[0x3B] = 0xA8;
    for (const int debug : {0, 1}) { // with it for the second type
        board.regs[0x0E] = static_cast<uint8_t>(0xF0 | expected[debug].cisType);
        memset(&gtSensorInfo, 0xEE, sizeof(gtSensorInfo));
        gfDebugFlag = debug;
        const Printed printed = Capture([] { EXPECT_EQ(SensorInit(), 0); });
        gfDebugFlag = 0;
        EXPECT_EQ(printed.out + printed.err, debug != 0 ? text : "");
        EXPECT_EQ(memcmp(&gtSensorInfo, &expected[debug], sizeof(gtSensorInfo)), 0);
        EXPECT_EQ(board.Take(),
                  Lines({"r 0e 1", "sleep 1000", "r 0c 1", "sleep 1000", "r cc 1", "sleep 1000", "r 3b 1",
                         "sleep 1000", "r 53 1", "sleep 1000", "r 53 1", "sleep 1000"}));
    }
    for (const uint8_t type : std::initializer_list<uint8_t>{0, 5, 8, 15}) {
        board.regs[0x0E] = type;
        gfDebugFlag = 1;
        const Printed printed = Capture([] { EXPECT_EQ(SensorInit(), KEL_SENSOR_REJECTED); });
        gfDebugFlag = 0;
        EXPECT_EQ(Locate(printed.err), Message("SensorInit", "Sensor is not IMX076."));
        static SensorInfo rejected;
        rejected.cisType = type;
        EXPECT_EQ(memcmp(&gtSensorInfo, &rejected, sizeof(rejected)), 0);
    }
}

TEST_F(Sensor, ResetPulseIsMadeWhole)
{
    const Lines pulse = {"open /dev/gio", "gio 8 91 0", "close /dev/gio", "sleep 2000",
                         "open /dev/gio", "gio 8 91 1", "close /dev/gio", "sleep 20000"};
    EXPECT_EQ(ResetSensor(), 0);
    EXPECT_EQ(board.Take(), pulse);
    for (const char *request : {"gio 8 91 0", "gio 8 91 1"}) {
        board.Fail(request, 1);
        const Printed printed = Capture([] { EXPECT_EQ(ResetSensor(), -5); });
        EXPECT_EQ(printed.err, "[kel_isp] ERROR: ioctl failed\n");
        EXPECT_EQ(board.Take(), pulse);
    }
}

TEST_F(Sensor, ExposureTimes)
{
    const struct {
        uint8_t type;
        double timeUs;
        int frames;
        unsigned lines;
    } cases[] = {
        {6, 10000.0, 0, 327},     {6, 33335.0, 0, 1091},  {6, 33335.01, 0, 1089},  {6, 40000.0, 0, 1089},
        {6, 50000.0, 1, 2179},    {6, 1e5, 2, 3269},      {6, 1e6, 29, 32699},     {6, 1.9e6, 56, 62129},
        {6, 83224.16, 1, 2179},   {6, 83224.17, 2, 3269}, // half a frame on
        {6, 2e6, 59, 65399},      {6, 3e6, 59, 65399},    {6, 1e9, 59, 65399},     {6, 1e300, 59, 65399},
        {6, infinite, 59, 65399}, {6, 0.0, 0, 0},         {6, 21.38, 0, 0},        {6, 21.39, 0, 1},
        {6, -1.0, 0, 0},          {6, -1e300, 0, 0},      {6, notANumber, 0, 0},   {7, 33335.0, 0, 1091},
        {7, 40000.0, 1, 1103},    {7, 1e6, 58, 32567},    {7, 1.99e6, 117, 65135}, {7, 1e7, 117, 65135},
    };
    for (const auto &c : cases) {
        Initialise(c.type);
        board.regs[0x3B] = 0xD5;
        EXPECT_EQ(SetMeExpTime(c.timeUs), 0) << c.timeUs;
        EXPECT_EQ(board.regs[0x3B], 0x80 | c.frames) << c.timeUs;
        EXPECT_EQ(board.regs[0x35] + 0x100U * board.regs[0x36], c.lines) << c.timeUs;
        EXPECT_EQ(gtSensorInfo.longExpFrames, std::min(c.frames, c.type == 6 ? 29 : 59));
        EXPECT_EQ(Written().size(), 2U);
    }
}

TEST_F(Sensor, GettersConvertTheCode)
{
    const struct {
        double (*get)();
        uint8_t reg;
        unsigned content; ///< low byte in reg
        double value;
    } cases[] = {
        // clang-format off
        {GetMeExpTime, 0x35, 32699, 999126.9411111111}, {GetMeExpTime, 0x35, 0, -9.17},
        {GetMeExpTime, 0x35, 65535, 2002449.1633333336}, {GetMnlAgn, 0x37, 141, 4.452}, {GetMnlAgn, 0x37, 193, 0.0},
        {GetMnlDgn, 0x38, 255, 31.875}, {GetMinAgn, 0x31, 64, 2.0}, {GetMaxAgn, 0x32, 192, 7.953},
        {GetMaxDgn, 0x33, 9, 1.125}, {GetMnlWbrGain, 0x3D, 141, 2.404}, {GetMnlWbbGain, 0x3E, 255, 7.938},
        {GetBlc, 0x71, 0xC0 | 6, -2.5}, {GetBlc, 0x71, 26, 2.0}, {InfoExpTime, 0x12, 327, 9982.496666666668},
        {InfoLongExpTime, 0x11, 0, 33265.83}, {InfoLongExpTime, 0x11, 255, 8526182.496666668},
        {InfoAnlgGain, 0x14, 0x1000, 1.0}, {InfoAnlgGain, 0x14, 0xE200, 8.0},
        {InfoAnlgGain, 0x14, 3, 1365.3333333333333}, {InfoAnlgGain, 0x14, 0xE000, infinite},
        {InfoDgtlGain, 0x16, 32, 1.0}, {InfoDgtlGain, 0x16, 0xFFFF, 31.96875}, {InfoWbrGain, 0x19, 64, 1.0},
        {InfoWbbGain, 0x18, 0, 0.5}, {[] { return 1.0 * InfoRawAvg(); }, 0x1E, 0xFABC, 0xABC},
        {[] { return 1.0 * InfoDnStatus(); }, 0x10, 0x80, 1}, {[] { return 1.0 * InfoDnStatus(); }, 0x10, 0x7F, 0},
        {[] { return 1.0 * InfoMirisStatus(); }, 0x10, 0xFC, 12},
        // clang-format on
    };
    for (const auto &c : cases) {
        board.regs[c.reg] = static_cast<uint8_t>(c.content & 0xFF);
        board.regs[c.reg + 1U] = static_cast<uint8_t>(c.content >> 8);
        const Printed printed = Capture([&] { EXPECT_DOUBLE_EQ(c.get(), c.value) << +c.reg; });
        EXPECT_EQ(printed.err, "") << +c.reg;
    }
    Initialise(7);
    board.regs[0x11] = 29;
    EXPECT_DOUBLE_EQ(InfoLongExpTime(), 505960.2744444445);
    for (const uint8_t code : std::initializer_list<uint8_t>{5, 27, 0}) {
        board.regs[0x71] = code;
        const Printed printed = Capture([] { EXPECT_EQ(GetBlc(), -99.0); });
        EXPECT_EQ(Locate(printed.err), Message("GetBlc", "CXD3193AR_RegValue2Ev failed."));
    }
    board.regs[0x53] = 0xFE;
    unsigned nr = 9, dayNight = 9;
    EXPECT_EQ(GetNrDnMode(&nr, &dayNight), 0);
    EXPECT_EQ(nr * 10 + dayNight, 1U);
    board.Fail("r 53", 1);
    nr = dayNight = 9;
    Capture([&] { EXPECT_EQ(GetNrDnMode(&nr, &dayNight), CXD3193AR_FAILED); });
    EXPECT_EQ(nr * 10 + dayNight, 99U);
    gateStaysOpen = true;
    const Printed printed = Capture([] { EXPECT_EQ(InfoExpTime(), -7.0); });
    gateStaysOpen = false;
    EXPECT_EQ(Locate(printed.err), Message("InfoExpTime", "CXD3193AR_Info_ExpTime failed."));
}

TEST_F(Sensor, SettersOfGainsAndCompensation)
{
    const Lines none;
    const std::string analog = "CXD3193AR_AgainTable_Again2RegValue failed.",
                      range = "Gain < Min ||  Gain > Max.";
    const std::string wb = "CXD3193AR_WbTable_Gain2RegValue failed.", ev = "CXD3193AR_Ev2RegValue failed.";
    const struct {
        const char *name;
        int (*set)(double);
        double value;
        Lines written;
        int status = 0;
        std::string message = "";
    } cases[] = {
        // clang-format off
        {"SetMnlAgn", SetMnlAgn, 0.2, {"w 37 00"}}, {"SetMnlAgn", SetMnlAgn, 1.0079, {"w 37 00"}},
        {"SetMnlAgn", SetMnlAgn, 1.008, {"w 37 01"}}, {"SetMnlAgn", SetMnlAgn, 7.9529, {"w 37 bf"}},
        {"SetMnlAgn", SetMnlAgn, 7.953, {"w 37 c0"}}, {"SetMnlAgn", SetMnlAgn, 1e300, {"w 37 c0"}},
        {"SetMnlAgn", SetMnlAgn, notANumber, {"w 37 00"}}, {"SetMnlDgn", SetMnlDgn, 0.2, {"w 38 08"}},
        {"SetMnlDgn", SetMnlDgn, 31.874, {"w 38 fe"}}, {"SetMnlDgn", SetMnlDgn, 40.0, {"w 38 ff"}},
        {"SetMaxAgn", SetMaxAgn, 4.5, {"w 32 8e"}}, {"SetMaxAgn", SetMaxAgn, 9.0, {"w 32 c0"}},
        {"SetMaxAgn", SetMaxAgn, -1.0, {"w 32 00"}}, {"SetMaxDgn", SetMaxDgn, 1.125, {"w 33 09"}},
        {"SetMaxDgn", SetMaxDgn, 1e300, {"w 33 ff"}}, {"SetMaxDgn", SetMaxDgn, 0.0, {"w 33 08"}},
        {"SetMinAgn", SetMinAgn, 8.0, {"w 31 c0"}}, {"SetMinAgn", SetMinAgn, 0.5, none, -6, analog},
        {"SetMinAgn", SetMinAgn, 8.001, none, -6, analog}, {"", SetMinAgain, 0.5, {"w 31 00"}},
        {"", SetMinAgain, 9.0, {"w 31 c0"}}, {"", SetMinAgain, 2.0, {"w 31 40"}},
        {"", SetManGain, 1.0, {"w 37 00", "w 38 08"}}, {"", SetManGain, 7.953, {"w 37 c0", "w 38 08"}},
        {"", SetManGain, 7.9, {"w 37 bf", "w 38 08"}}, {"", SetManGain, 20.0, {"w 37 c0", "w 38 14"}},
        {"", SetManGain, 253.501875, {"w 37 c0", "w 38 ff"}},
        {"SetManGain", SetManGain, 253.6, none, -9, range}, {"SetManGain", SetManGain, 0.5, none, -9, range},
        {"SetManGain", SetManGain, notANumber, none, -9, range},
        {"", SetMaxGain, 0.5, {"w 32 00", "w 33 08"}}, {"", SetMaxGain, 1000.0, {"w 32 c0", "w 33 ff"}},
        {"", SetMaxGain, 8.0, {"w 32 c0", "w 33 08"}}, {"", SetMaxGain, notANumber, {"w 32 00", "w 33 08"}},
        {"", SetMnlWbrGain, 8.0, {"w 3d ff"}}, {"", SetMnlWbrGain, 0.5, {"w 3d 00"}},
        {"SetMnlWbrGain", SetMnlWbrGain, 0.25, none, -6, wb}, {"", SetMnlWbbGain, 2.405, {"w 3e 8d"}},
        {"SetMnlWbbGain", SetMnlWbbGain, 8.1, none, -6, wb}, {"", SetBlc, -2.5, {"w 71 06"}},
        {"", SetBlc, 0.0, {"w 71 10"}}, {"SetBlc", SetBlc, 2.01, none, -99, ev},
        {"SetBlc", SetBlc, notANumber, none, -99, ev},
        // clang-format on
    };
    for (const auto &c : cases) {
        const Printed printed = Capture([&] { EXPECT_EQ(c.set(c.value), c.status) << c.name << c.value; });
        EXPECT_EQ(Locate(printed.err), c.status == 0 ? "" : Message(c.name, c.message)) << c.name << c.value;
        EXPECT_EQ(Written(), c.written) << c.name << c.value;
    }
}

// The write of the gamma curve whose first `zeros` entries are 0 and whose next one is `entry`.
std::string GammaLine(unsigned zeros, const char *entry)
{
    std::string line =
        "w 75 3a 3f 2e 19 14 0f 0d 0c 0c 0b 0a 09 08 07 05 04 03 03 03 02 02 02 02 02 02 02 02 01 01 01";
    for (unsigned i = 0; i < zeros; ++i)
        line.replace(5 + 3 * i, 2, "00");
    return line.replace(5 + 3 * zeros, 2, entry);
}

TEST_F(Sensor, SettersOfLevels)
{
    const auto nf0 = [](int level) { return SetNfManualLevel(0, level); };
    const auto nf1 = [](int level) { return SetNfManualLevel(1, level); };
    const auto nfm = [](int level) { return SetNfManualLevel(-1, level); };
    const auto nrAuto = [](int bits) { return SetNfAutoMode(bits & 4, bits & 8); };
    const struct {
        int (*set)(int);
        int value;
        Lines written;
        int status = 0;
    } cases[] = {
        // clang-format off
        {SetContrast, 128, {"w 72 a0"}}, {SetContrast, 300, {"w 72 c0"}}, {SetContrast, 161, {"w 72 c0"}},
        {SetContrast, 159, {"w 72 bf"}}, {SetContrast, 97, {"w 72 81"}}, {SetContrast, 50, {"w 72 80"}},
        {SetContrast, INT32_MIN, {"w 72 80"}}, {SetSaturation, 128, {"w 97 98", "w 98 98"}},
        {SetSaturation, 151, {"w 97 af", "w 98 af"}}, {SetSaturation, 153, {"w 97 b0", "w 98 b0"}},
        {SetSaturation, -1, {"w 97 80", "w 98 80"}}, {SetSharpness, 100, {"w 93 2c", "w 96 05"}},
        {SetSharpness, 99, {"w 93 2b", "w 96 04"}}, {SetSharpness, 0, {"w 93 00", "w 96 00"}},
        {SetSharpness, INT32_MAX, {"w 93 3f", "w 96 0f"}},
        {SetBrightness, 128, {GammaLine(0, "3a"), "w 73 00"}},
        {SetBrightness, 200, {GammaLine(0, "3a"), "w 73 48"}},
        {SetBrightness, 999, {GammaLine(0, "3a"), "w 73 7f"}},
        {SetBrightness, 127, {GammaLine(0, "38"), "w 73 00"}}, {SetYGamma, 99, {GammaLine(0, "00")}},
        {SetYGamma, 98, {GammaLine(1, "3d")}}, {SetYGamma, 68, {GammaLine(1, "01")}},
        {SetYGamma, 67, {GammaLine(2, "2c")}}, {SetYGamma, 45, {GammaLine(2, "00")}},
        {SetYGamma, 44, {GammaLine(3, "17")}}, {SetYGamma, 33, {GammaLine(3, "01")}},
        {SetYGamma, 32, {GammaLine(4, "13")}}, {SetYGamma, 13, {GammaLine(4, "00")}},
        {SetYGamma, 12, {GammaLine(5, "0e")}}, {SetYGamma, 0, {GammaLine(5, "02")}},
        {SetYGamma, INT32_MIN, {GammaLine(5, "02")}}, {SetYGamma, INT32_MAX, {GammaLine(0, "3a")}},
        {SetWdr, 2, {"w 5f ff", "w 5f fa"}}, {SetWdr, 3, {"w 5f ff", "w 5f ff"}},
        {SetWdr, 0, {"w 5f ef", "w 5f e0"}}, {SetWdr, 4, {}, -9}, {SetWdr, -1, {}, -9},
        {SetBlcIndex, 0, {"w 71 08"}}, {SetBlcIndex, 1, {"w 71 0a"}}, {SetBlcIndex, 2, {"w 71 0c"}},
        {SetBlcIndex, 3, {"w 71 0e"}}, {SetBlcIndex, 4, {"w 71 10"}}, {SetBlcIndex, 5, {"w 71 12"}},
        {SetBlcIndex, 6, {"w 71 15"}}, {SetBlcIndex, 7, {"w 71 17"}}, {SetBlcIndex, 8, {"w 71 1a"}},
        {SetBlcIndex, 12, {"w 71 10"}}, {SetBlcIndex, -1, {"w 71 10"}}, {nrAuto, 0, {"w 53 00"}},
        {nrAuto, 4, {"w 53 01"}}, {nrAuto, 8, {"w 53 02"}}, {nrAuto, 12, {"w 53 03"}},
        {nf0, 30, {"w 55 00 1e 00 0f 00 3f 00 1e"}}, {nf0, 100, {"w 55 00 2c 00 16 00 3f 00 2c"}},
        {nf0, 300, {"w 55 00 2c 00 16 00 3f 00 2c"}}, {nf0, -3, {"w 55 00 00 00 00 00 3f 00 00"}},
        {nfm, 43, {"w 55 00 2b 00 15 00 3f 00 2b"}}, {nf1, 30, {"w 55 00 3f 00 19 00 3f ac 1c"}},
        {SetFlip, -7, {"w ca ff"}}, {SetFlip, 0, {"w ca f7"}}, {SetMirror, 256, {"w ca ff"}},
        {SetMirror, 0, {"w ca fb"}}, {SetNight2Day, 255, {"w 5e ff"}}, {SetNight2Day, 256, {}, -9},
        {SetNight2Day, -1, {}, -9}, {SetDay2Night, 0, {"w 5d 00"}}, {SetDay2Night, 256, {}, -9},
        {SetDay2Night, -1, {}, -9}, {SetMaxGainIndex, 0, {"w 32 40", "w 33 08"}},
        {SetMaxGainIndex, 2, {"w 32 c0", "w 33 08"}}, {SetMaxGainIndex, 7, {"w 32 c0", "w 33 ff"}},
        {SetMaxGainIndex, 9, {"w 32 00", "w 33 08"}}, {SetManGainIndex, 1, {"w 37 80", "w 38 08"}},
        {SetManGainIndex, 3, {"w 37 c0", "w 38 10"}}, {SetManGainIndex, 6, {"w 37 c0", "w 38 80"}},
        {SetManGainIndex, 7, {}, -9}, {SetManGainIndex, -1, {"w 37 00", "w 38 08"}},
        // clang-format on
    };
    for (const auto &c : cases) {
        board.regs.fill(0xFF);
        board.regs[0x20] = board.regs[0x21] = board.regs[0x22] = 0;
        const Printed printed = Capture([&] { EXPECT_EQ(c.set(c.value), c.status) << "row " << &c - cases; });
        EXPECT_EQ(Locate(printed.err), c.set == SetWdr && c.status != 0
                                           ? Message("SetWdr", "Wdr Index failed.")
                                       : c.set == SetManGainIndex && c.status != 0
                                           ? Message("SetManGain", "Gain < Min ||  Gain > Max.")
                                           : "");
        EXPECT_EQ(Written(), c.written) << "row " << &c - cases << " value " << c.value;
    }
    const int firstGain[] = {0,  9,  18, 27, 36, 44, 46, 48,
                             50, 52, 54, 56, 58, 60, 62, 63}; // of each positive gain
    for (int gain = 0; gain < 64; ++gain) {
        EXPECT_EQ(SetSharpness(gain + 56), 0);
        EXPECT_EQ(board.regs[0x93], gain);
        EXPECT_EQ(board.regs[0x96], std::upper_bound(firstGain, std::end(firstGain), gain) - firstGain - 1)
            << gain;
    }
}

// One step: how many transfers it makes, and the reports of its failure, innermost first, as "function:step".
struct Step {
    int transfers;
    std::vector<const char *> reports;
};

TEST_F(Sensor, EveryFailingTransferEndsTheFunction)
{
    // clang-format off
#define CALL(call) [] { return 1.0 * call; }
#define READOUT(name, accessor) {CALL(name()), {{3, {#name ":CXD3193AR_Info_" #accessor}}}}
#define GETTER(name, accessor) {CALL(name()), {{1, {#name ":CXD3193AR_Get_" #accessor}}}}
#define SETTER(name, value, transfers, accessor) \
    {CALL(name(value)), {{transfers, {#name ":CXD3193AR_Set_" #accessor}}}}
#define PAIR(name, value, transfers, first, second) \
    {CALL(name(value)), {{transfers, {#name ":" first}}, {transfers, {#name ":" second}}}}
    // clang-format on
    const struct {
        double (*call)();
        std::vector<Step> steps;
    } cases[] = {
        // clang-format off
        READOUT(InfoExpTime, ExpTime), READOUT(InfoLongExpTime, LngExpFrm), READOUT(InfoAnlgGain, AnlGain),
        READOUT(InfoDgtlGain, DgtlGain), READOUT(InfoWbrGain, WbrGain), READOUT(InfoWbbGain, WbbGain),
        READOUT(InfoRawAvg, RawAvg), READOUT(InfoDnStatus, DnStatus), READOUT(InfoMirisStatus, MirisStatus),
        GETTER(GetMeExpTime, MeExpTim), GETTER(GetMnlAgn, MnlAgn), GETTER(GetMnlDgn, MnlDgn),
        GETTER(GetMinAgn, AeMinAgc), GETTER(GetMaxAgn, AeMaxAgc), GETTER(GetMaxDgn, AeMaxDgn),
        GETTER(GetMnlWbrGain, MwbR), GETTER(GetMnlWbbGain, MwbB), GETTER(GetBlc, AeEvSet),
        SETTER(SetMnlAgn, 2.0, 2, MnlAgn), SETTER(SetMnlDgn, 2.0, 2, MnlDgn),
        SETTER(SetMaxAgn, 2.0, 2, AeMaxAgc), SETTER(SetMaxDgn, 2.0, 2, AeMaxDgn),
        SETTER(SetMinAgn, 2.0, 2, AeMinAgc), SETTER(SetMnlWbrGain, 2.0, 2, MwbR),
        SETTER(SetMnlWbbGain, 2.0, 2, MwbB), SETTER(SetContrast, 100, 3, Ygain),
        SETTER(SetBlc, 1.0, 2, AeEvSet), {CALL(SetBlcIndex(1)), {{2, {"SetBlc:CXD3193AR_Set_AeEvSet"}}}},
        {CALL(SetMinAgain(2.0)), {{2, {"SetMinAgn:CXD3193AR_Set_AeMinAgc", "SetMinAgain:SetMinAgn"}}}},
        {CALL(SetMeExpTime(1e4)), {{3, {"SetMeExpTime:CXD3193AR_Set_LongExp"}}, {2,
         {"SetMeExpTime:CXD3193AR_Set_MeExpTim"}}}},
        {CALL(SetMeExpTime(1e6)), {{3, {"SetMeExpTime:CXD3193AR_Set_LongExp"}}, {2,
         {"SetMeExpTime:CXD3193AR_Set_MeExpTim"}}}},
        {CALL(SetManGainIndex(5)), {{2, {"SetMnlAgn:CXD3193AR_Set_MnlAgn", "SetManGain:SetMnlAgn"}}, {2,
         {"SetMnlDgn:CXD3193AR_Set_MnlDgn", "SetManGain:SetMnlDgn"}}}},
        {CALL(SetMaxGainIndex(0)), {{2, {"SetMaxAgn:CXD3193AR_Set_AeMaxAgc", "SetMaxGain:SetMaxAgn"}}, {2,
         {"SetMaxDgn:CXD3193AR_Set_AeMaxDgn", "SetMaxGain:SetMaxDgn"}}}},
        PAIR(SetBrightness, 200, 2, "SetYGamma", "CXD3193AR_Set_Yofst"),
        PAIR(SetSaturation, 120, 3, "CXD3193AR_Set_RYG", "CXD3193AR_Set_BYG"),
        PAIR(SetSharpness, 120, 2, "CXD3193AR_Set_ApGan", "CXD3193AR_Set_ApPosGn"),
        PAIR(SetWdr, 2, 3, "CXD3193AR_Set_AccAutoH", "CXD3193AR_Set_AccPwr"), {CALL(SetYGamma(9)), {{2, {}}}},
        {CALL(SetNfAutoMode(1, 1)), {{2, {}}}}, {CALL(SetNfManualLevel(0, 9)), {{2, {}}}},
        {CALL(SetFlip(1)), {{3, {}}}}, {CALL(SetMirror(1)), {{3, {}}}}, SETTER(SetNight2Day, 9, 2, DyNtRecv),
        SETTER(SetDay2Night, 9, 2, DyNtSupr),
        {CALL(SensorInit()), {{1, {"SensorInit:CXD3193AR_Get_CisType"}}, {1,
         {"SensorInit:CXD3193AR_Get_ExtPrstH"}}, {1, {"SensorInit:CXD3193AR_Get_InfoOut"}}, {1,
         {"SensorInit:CXD3193AR_Get_LongExp"}}, {1, {"SensorInit:CXD3193AR_Get_NrAutoH"}}, {1,
         {"SensorInit:CXD3193AR_Get_DyNgtOnH"}}}},
        // clang-format on
    };
    const auto transfers = [&] {
        Lines lines = board.Take();
        std::erase_if(lines, [](const std::string &line) { return line[1] != ' '; });
        return lines;
    };
    board.regs[0x71] = 16;
    const auto regs = board.regs;
    for (const auto &c : cases) {
        gtSensorInfo.infoOut = 2;
        Capture([&] { EXPECT_NE(c.call(), -6.0); });
        const Lines whole = transfers();
        size_t nth = 0;
        for (const Step &step : c.steps) {
            std::string expected;
            for (const std::string report : step.reports) {
                const size_t colon = report.find(':');
                expected += Message(report.substr(0, colon), report.substr(colon + 1) + " failed.");
            }
            for (int i = 0; i < step.transfers && nth < whole.size(); ++i, ++nth) {
                const auto end = whole.begin() + static_cast<std::ptrdiff_t>(nth);
                board.Fail(whole[nth], static_cast<int>(std::count(whole.begin(), end, whole[nth])) + 1);
                gtSensorInfo.infoOut = 2;
                board.regs = regs;
                const Printed printed = Capture([&] { EXPECT_EQ(c.call(), -6.0) << whole[nth]; });
                const std::string text = Locate(printed.err);
                EXPECT_EQ(text.substr(std::min(text.size(), text.find('\n') + 1)), expected) << whole[nth];
                EXPECT_EQ(transfers(), Lines(whole.begin(), end + 1)) << "nothing follows a failure";
            }
        }
        EXPECT_EQ(nth, whole.size()) << whole[0];
    }
}

} // namespace
