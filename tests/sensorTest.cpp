// SPDX-License-Identifier: MIT
//
// Conversions and sensor control: codes, gains and times against written-out values (sensor.txt), the order of the
// steps, and what is written, returned and printed when any one transfer fails.
#include "fakeBoard.h"

#include "kelisp/debugFlags.h"
#include "kelisp/ispCXD3193AR.h"
#include "kelisp/ispSensor.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <sstream>

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

std::vector<Lines> Rows(const char *kind)
{
    return ReadTable("sensor.txt", kind);
}

// ---- Conversions

// A gain table: telling rows, and over all rows the sum of (code + 1) x gain in thousandths.
template <size_t rows>
void ExpectTable(const GainTableEntry (&table)[rows], const char *kind, int64_t sum,
                 double (*toGain)(uint8_t), int (*toCode)(double))
{
    for (const Lines &row : Rows(kind))
        EXPECT_EQ(table[std::stoi(row[0])].gain, std::stod(row[1])) << row[0];
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

TEST(Conversions, Gains)
{
    ExpectTable(gtWbTable, "white", 129746548, CXD3193AR_WbTable_RegValue2Gain,
                CXD3193AR_WbTable_Gain2RegValue);
    ExpectTable(gtAgainTable, "analog", 80321384, CXD3193AR_AgainTable_RegValue2Again,
                CXD3193AR_AgainTable_Again2RegValue);
    EXPECT_EQ(CXD3193AR_AgainTable_RegValue2Again(193) + CXD3193AR_AgainTable_RegValue2Again(255), 0.0);
    for (const Lines &row : Rows("gain")) {
        EXPECT_EQ(CXD3193AR_WbTable_Gain2RegValue(std::stod(row[0])), std::stoi(row[1])) << row[0];
        EXPECT_EQ(CXD3193AR_AgainTable_Again2RegValue(std::stod(row[0])), std::stoi(row[2])) << row[0];
    }
    for (const Lines &row : Rows("digital"))
        EXPECT_EQ(CXD3193AR_Dgain2RegValue(std::stod(row[0])), std::stoi(row[1])) << row[0];
    CXD3193AR_Dgain2RegValue(1e300); // no value is promised, but no undefined behaviour either
    CXD3193AR_Dgain2RegValue(INFINITY);
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
    for (const Lines &row : Rows("ev")) {
        const double ev = CXD3193AR_RegValue2Ev(static_cast<unsigned>(std::stoi(row[0])));
        EXPECT_DOUBLE_EQ(ev, std::stod(row[1])) << row[0];
        EXPECT_EQ(CXD3193AR_Ev2RegValue(ev), std::stoi(row[0]));
    }
    for (const unsigned code : {0U, 5U, 27U, 255U, UINT32_MAX})
        EXPECT_EQ(CXD3193AR_RegValue2Ev(code), -99.0) << code;
    for (const Lines &row : Rows("code"))
        EXPECT_EQ(CXD3193AR_Ev2RegValue(std::stod(row[0])), std::stoi(row[1])) << row[0];
}

// ---- Sensor control

#define GETTER(name)                                                                                         \
    {                                                                                                        \
#name, [](double) { return 1.0 * name(); }                                                           \
    }
#define SETTER(name)                                                                                         \
    {                                                                                                        \
#name, [](double value) { return 1.0 * name(value); }                                                \
    }
#define LEVEL(name)                                                                                          \
    {                                                                                                        \
#name, [](double level) { return 1.0 * name(static_cast<int>(level)); }                              \
    }
#define NOISE(mode)                                                                                          \
    {                                                                                                        \
        "SetNfManualLevel" #mode,                                                                            \
            [](double level) { return 1.0 * SetNfManualLevel(mode, static_cast<int>(level)); }               \
    }

const std::map<std::string, double (*)(double)> functions = {
    // clang-format off
    GETTER(SensorInit), GETTER(InfoExpTime), GETTER(InfoLongExpTime), GETTER(InfoAnlgGain), GETTER(InfoDgtlGain),
    GETTER(InfoWbrGain), GETTER(InfoWbbGain), GETTER(InfoRawAvg), GETTER(InfoDnStatus), GETTER(InfoMirisStatus),
    GETTER(GetMeExpTime), GETTER(GetMnlAgn), GETTER(GetMnlDgn), GETTER(GetMinAgn), GETTER(GetMaxAgn),
    GETTER(GetMaxDgn), GETTER(GetMnlWbrGain), GETTER(GetMnlWbbGain), GETTER(GetBlc), SETTER(SetMeExpTime),
    SETTER(SetMnlAgn), SETTER(SetMnlDgn), SETTER(SetMaxAgn), SETTER(SetMaxDgn), SETTER(SetMinAgn),
    SETTER(SetMinAgain), SETTER(SetManGain), SETTER(SetMaxGain), SETTER(SetMnlWbrGain), SETTER(SetMnlWbbGain),
    SETTER(SetBlc), LEVEL(SetContrast), LEVEL(SetSaturation), LEVEL(SetSharpness), LEVEL(SetBrightness),
    LEVEL(SetYGamma), LEVEL(SetWdr), LEVEL(SetBlcIndex), LEVEL(SetFlip), LEVEL(SetMirror), LEVEL(SetNight2Day),
    LEVEL(SetDay2Night), LEVEL(SetMaxGainIndex), LEVEL(SetManGainIndex), NOISE(0), NOISE(1), NOISE(-1),
    {"SetNfAutoMode", [](double bits) { return 1.0 * SetNfAutoMode(static_cast<int>(bits) & 4, static_cast<int>(bits) & 8); }},
    // clang-format on
};

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
        return board.Take([](const std::string &line) { return line[0] == 'w'; });
    }
};

std::string Message(const std::string &function, const std::string &text)
{
    return " ERROR  (ispSensor|" + function + "|): [kel_isp] " + text + "\n";
}

// The words behind the first `from`.
std::string Rest(const Lines &row, size_t from)
{
    std::string text;
    for (; from < row.size(); ++from)
        text += (text.empty() ? "" : " ") + row[from];
    return text;
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
        EXPECT_EQ(BytesOf(gtSensorInfo), BytesOf(expected[debug]));
        EXPECT_EQ(board.Take(),
                  Lines({"r 0e 1", "sleep 1000", "r 0c 1", "sleep 1000", "r cc 1", "sleep 1000", "r 3b 1",
                         "sleep 1000", "r 53 1", "sleep 1000", "r 53 1", "sleep 1000"}));
    }
    for (const uint8_t type : std::initializer_list<uint8_t>{0, 5, 8, 15}) {
        board.regs[0x0E] = type;
        gfDebugFlag = 1;
        const Printed printed = Capture([] { EXPECT_EQ(SensorInit(), KEL_SENSOR_REJECTED); });
        gfDebugFlag = 0;
        EXPECT_EQ(printed.err, Message("SensorInit", "Sensor is not IMX076."));
        static SensorInfo rejected;
        rejected.cisType = type;
        EXPECT_EQ(BytesOf(gtSensorInfo), BytesOf(rejected));
    }
}

TEST_F(Sensor, ResetPulseIsMadeWhole)
{
    const Lines pulse = {"open /dev/gio", "gio 8 91 0", "close /dev/gio", "sleep 2000",
                         "open /dev/gio", "gio 8 91 1", "close /dev/gio", "sleep 20000"};
    Expect(ResetSensor, 0, "", pulse);
    for (const char *request : {"gio 8 91 0", "gio 8 91 1"}) {
        board.Fail(request);
        Expect(ResetSensor, -5, "[kel_isp] ERROR: ioctl failed\n", pulse);
    }
}

TEST_F(Sensor, ExposureTimes)
{
    for (const Lines &row : Rows("exposure")) {
        const int frames = std::stoi(row[2]), lines = std::stoi(row[3]);
        Initialise(static_cast<uint8_t>(std::stoi(row[0])));
        board.regs[0x3B] = 0xD5;
        EXPECT_EQ(SetMeExpTime(std::stod(row[1])), 0) << row[1];
        EXPECT_EQ(Written(), Lines({Format("w 3b %02x", 0x80 | frames),
                                    Format("w 35 %02x %02x", lines & 0xFF, lines >> 8)}))
            << row[1];
    }
}

TEST_F(Sensor, GettersConvertTheCode)
{
    for (const Lines &row : Rows("get")) {
        for (size_t i = 2; i + 1 < row.size(); ++i)
            board.regs[std::stoul(row[1], nullptr, 16) + i - 2] =
                static_cast<uint8_t>(std::stoi(row[i], nullptr, 16));
        const Printed printed = Capture(
            [&] { EXPECT_DOUBLE_EQ(functions.at(row[0])(0), std::stod(row.back())) << Rest(row, 0); });
        EXPECT_EQ(printed.err, "") << row[0];
    }
    Initialise(7);
    board.regs[0x11] = 29;
    EXPECT_DOUBLE_EQ(InfoLongExpTime(), 505960.2744444445);
    for (const uint8_t code : std::initializer_list<uint8_t>{5, 27, 0}) {
        board.regs[0x71] = code;
        const Printed printed = Capture([] { EXPECT_EQ(GetBlc(), -99.0); });
        EXPECT_EQ(printed.err, Message("GetBlc", "CXD3193AR_RegValue2Ev failed."));
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
    EXPECT_EQ(printed.err, Message("InfoExpTime", "CXD3193AR_Info_ExpTime failed."));
}

TEST_F(Sensor, SettersWriteTheCode)
{
    for (const Lines &row : Rows("set")) {
        board.regs.fill(0xFF);
        board.regs[0x20] = board.regs[0x21] = board.regs[0x22] = 0;
        const Printed printed =
            Capture([&] { EXPECT_EQ(functions.at(row[0])(std::stod(row[1])), 0) << Rest(row, 0); });
        EXPECT_EQ(printed.err, "") << Rest(row, 0);
        EXPECT_EQ(Rest(Written(), 0), Rest(row, 2)) << Rest(row, 0);
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

TEST_F(Sensor, RefusedSettingsAreNotWritten)
{
    const std::string analog = "CXD3193AR_AgainTable_Again2RegValue failed.",
                      range = "Gain < Min ||  Gain > Max.", ev = "CXD3193AR_Ev2RegValue failed.",
                      white = "CXD3193AR_WbTable_Gain2RegValue failed.", wdr = "Wdr Index failed.";
    const struct {
        const char *function;
        double value;
        int status;
        std::string message = ""; ///< empty: none is printed
    } cases[] = {
        // clang-format off
        {"SetMinAgn", 0.5, -6, analog}, {"SetMinAgn", 8.001, -6, analog}, {"SetManGain", 253.6, -9, range},
        {"SetManGain", 0.5, -9, range}, {"SetManGain", NAN, -9, range}, {"SetMnlWbrGain", 0.25, -6, white},
        {"SetMnlWbbGain", 8.1, -6, white}, {"SetBlc", 2.01, -99, ev}, {"SetBlc", NAN, -99, ev},
        {"SetWdr", 4, -9, wdr}, {"SetWdr", -1, -9, wdr}, {"SetNight2Day", 256, -9}, {"SetNight2Day", -1, -9},
        {"SetDay2Night", 256, -9}, {"SetDay2Night", -1, -9},
        // clang-format on
    };
    for (const auto &c : cases) {
        const Printed printed =
            Capture([&] { EXPECT_EQ(functions.at(c.function)(c.value), c.status) << c.function << c.value; });
        EXPECT_EQ(printed.err, c.message.empty() ? "" : Message(c.function, c.message)) << c.function;
        EXPECT_EQ(board.Take(), Lines()) << c.function << c.value;
    }
    Capture([] { EXPECT_EQ(SetManGainIndex(7), -9); });
}

// The reports that a row of the table announces.
std::string Reports(const std::string &row, const std::string &announced)
{
    std::string text, function, step;
    for (std::istringstream in(announced); announced != "-" && std::getline(in, step, ',');) {
        const size_t colon = step.find(':');
        function = colon == std::string::npos ? row : step.substr(0, colon);
        step.erase(0, colon + 1);
        text +=
            Message(function, (step.find('_') != std::string::npos ? "CXD3193AR_" : "") + step + " failed.");
    }
    return text;
}

TEST_F(Sensor, EveryFailingTransferEndsTheFunction)
{
    const auto transfers = [&] { return board.Take([](const std::string &line) { return line[1] == ' '; }); };
    board.regs[0x71] = 16;
    const auto regs = board.regs;
    for (const Lines &row : Rows("fail")) {
        const auto call = [&] { return functions.at(row[0])(std::stod(row[1])); };
        gtSensorInfo.infoOut = 2;
        Capture([&] { EXPECT_NE(call(), -6.0); });
        const Lines whole = transfers();
        size_t nth = 0;
        for (size_t step = 2; step < row.size(); step += 2) {
            for (int i = 0; i < std::stoi(row[step]) && nth < whole.size(); ++i, ++nth) {
                const auto end = whole.begin() + static_cast<std::ptrdiff_t>(nth);
                board.Fail(whole[nth], static_cast<int>(std::count(whole.begin(), end, whole[nth])) + 1);
                gtSensorInfo.infoOut = 2;
                board.regs = regs;
                const Printed printed = Capture([&] { EXPECT_EQ(call(), -6.0) << row[0] << whole[nth]; });
                EXPECT_EQ(printed.err.substr(printed.err.find('\n') + 1), Reports(row[0], row[step + 1]))
                    << row[0] << whole[nth];
                EXPECT_EQ(transfers(), Lines(whole.begin(), end + 1)) << "nothing follows a failure";
            }
        }
        EXPECT_EQ(nth, whole.size()) << row[0];
    }
}

} // namespace
