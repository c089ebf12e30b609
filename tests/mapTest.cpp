// SPDX-License-Identifier: MIT
//
// Every accessor of the register map against the camera processor's registers (registers.txt): register, bits,
// kind of setter, mirror, the exact traffic, and what stays as it was when a transfer fails.
#include "fakeBoard.h"

#include "kelisp/ispCXD3193AR.h"
#include "kelisp/sensorInfo.h"

#include <cstddef>
#include <cstring>

namespace
{

using Get = int (*)(uint8_t *);
using Set = int (*)(const uint8_t *);
using Values = std::vector<uint8_t>;

// ---- The names of the table

const std::map<std::string, std::pair<Get, Set>> accessors = {
#define KEL_FIELD(reg, high, low, name, ...) {#name, {CXD3193AR_Get_##name, CXD3193AR_Set_##name}},
#include "kelisp/registerMap.def"
};

template <typename Value, int (*Access)(Value *)>
int ReadInfo(uint16_t *out)
{
    Value value = 0;
    const int status = Access(&value);
    *out = status == 0 ? value : *out;
    return status;
}

const std::map<std::string, int (*)(uint16_t *)> readouts = {
#define KEL_READOUT(reg, high, low, name, ...) {#name, ReadInfo<uint8_t, CXD3193AR_Info_##name>},
#define KEL_READOUT_WORD(reg, bits, name, ...) {#name, ReadInfo<uint16_t, CXD3193AR_Info_##name>},
#include "kelisp/registerMap.def"
};

const std::map<std::string, size_t> mirrors = {
    {"extGioEnable", offsetof(SensorInfo, extGioEnable)},
    {"infoOut", offsetof(SensorInfo, infoOut)},
    {"longExpFrames", offsetof(SensorInfo, longExpFrames)},
    {"cisType", offsetof(SensorInfo, cisType)},
    {"nrAuto", offsetof(SensorInfo, nrAuto)},
    {"dayNightOn", offsetof(SensorInfo, dayNightOn)},
};

struct Field {
    uint8_t reg;
    int low;
    unsigned mask;
    std::string name, mirror;

    explicit Field(const Lines &row)
        : reg(static_cast<uint8_t>(std::stoi(row[0], nullptr, 16))), low(std::stoi(row[2])),
          mask((2U << std::stoi(row[1])) - (1U << low)), name(row[3]), mirror(row.size() > 4 ? row[4] : "")
    {
    }
};

// ---- Traffic

std::string ReadLine(unsigned reg, size_t count)
{
    return Format("r %02x %zu", reg, count);
}

std::string WriteLine(unsigned reg, const Values &values)
{
    std::string line = Format("w %02x", reg);
    for (const unsigned value : values)
        line += Format(" %02x", value);
    return line;
}

// Each transfer is followed by its pause.
Lines Paused(const Lines &transfers)
{
    Lines lines;
    for (const std::string &line : transfers)
        lines.insert(lines.end(), {line, "sleep 1000"});
    return lines;
}

class Map : public BoardTest
{
  protected:
    std::array<uint8_t, 256> before{};
    SensorInfo infoBefore{};

    void SetUp() override
    {
        AttachLink();
        // a sensor type without a clamp, marks in the mirrors
        memset(&gtSensorInfo, 0x11, sizeof(gtSensorInfo));
        gtSensorInfo.infoOut = 0;
        memcpy(&infoBefore, &gtSensorInfo, sizeof(infoBefore));
        for (unsigned i = 0; i < 256; ++i)
            SetRegister(i, i >= 0x20 && i <= 0x22 ? 0 : i * 37 + 5);
    }

    void SetRegister(unsigned reg, unsigned content)
    {
        board.regs[reg] = before[reg] = static_cast<uint8_t>(content);
    }

    void FollowMirror(const Field &field, unsigned value)
    {
        if (!field.mirror.empty())
            reinterpret_cast<uint8_t *>(&infoBefore)[mirrors.at(field.mirror)] = static_cast<uint8_t>(value);
    }

    // The registers and the record are as in SetUp but for what the callers changed in `before` and
    // `infoBefore`.
    void ExpectRest(const std::string &what)
    {
        EXPECT_EQ(board.regs, before) << what;
        EXPECT_EQ(BytesOf(gtSensorInfo), BytesOf(infoBefore)) << what << ": record";
    }

    // `access` fails at each of its transfers with -6, changes no output, and then succeeds with this traffic.
    template <typename Out>
    void ExpectTransfers(const std::string &what, const Lines &transfers, Out &out,
                         const std::function<int()> &access)
    {
        const Out untouched = out;
        for (size_t nth = 0; nth < transfers.size(); ++nth) {
            board.Fail(transfers[nth]);
            Capture([&] { EXPECT_EQ(access(), CXD3193AR_FAILED) << what << " transfer " << nth; });
            EXPECT_EQ(out, untouched) << what << ": output after a failure";
            ExpectRest(what + " after a failure");
        }
        board.Take();
        EXPECT_EQ(access(), 0) << what;
        EXPECT_EQ(board.Take(), Paused(transfers)) << what;
    }
};

// ---- Fields and readouts

TEST_F(Map, FieldsAreTheirBits)
{
    size_t fields = 0;
    for (const char *kind : {"plain", "rmw"}) {
        for (const Lines &row : ReadTable("registers.txt", kind)) {
            const Field field(row);
            const auto [get, set] = accessors.at(field.name);
            ++fields;
            for (const unsigned content : {0x00U, 0xFFU, 0xA5U, 0x5AU}) {
                SetRegister(field.reg, content);
                uint8_t value = 0xEE;
                ExpectTransfers(field.name, {ReadLine(field.reg, 1)}, value,
                                [&, access = get] { return access(&value); });
                EXPECT_EQ(value, (content & field.mask) >> field.low) << field.name << " of " << content;
                FollowMirror(field, value);
                ExpectRest(field.name);
                for (const unsigned input : {0x00U, 0x01U, 0xFFU, 0x25U}) {
                    SetRegister(field.reg, content);
                    const bool keeps = kind[0] == 'r';
                    const auto written = static_cast<uint8_t>((input << field.low & field.mask) |
                                                              (keeps ? content & ~field.mask : 0));
                    Lines transfers = {"r 20 3", WriteLine(field.reg, {written})};
                    if (keeps)
                        transfers.insert(transfers.begin(), ReadLine(field.reg, 1));
                    value = static_cast<uint8_t>(input);
                    ExpectTransfers(field.name, transfers, value,
                                    [&, access = set] { return access(&value); });
                    before[field.reg] = written;
                    FollowMirror(field, input);
                    ExpectRest(field.name);
                }
            }
        }
    }
    EXPECT_EQ(fields, accessors.size()) << "a row of the map has none in the table";
}

TEST_F(Map, ReadoutsCloseTheGateFirst)
{
    const std::vector<Lines> rows = ReadTable("registers.txt", "live");
    EXPECT_EQ(rows.size(), readouts.size()) << "a row of the map has none in the table";
    for (const Lines &row : rows) {
        const Field field(row);
        const bool wide = field.mask > 0xFF;
        const std::string read = ReadLine(field.reg, wide ? 2 : 1);
        for (const unsigned content : {0xFFFFU, 0xA55AU, 0x1234U, 0x0000U}) {
            SetRegister(field.reg, content);
            if (wide)
                SetRegister(field.reg + 1U, content >> 8);
            SetRegister(0xCC, 0x07); // only the mirror decides
            gtSensorInfo.infoOut = infoBefore.infoOut = 0;
            uint16_t value = 0xEEEE;
            const auto access = [&] { return readouts.at(field.name)(&value); };
            ExpectTransfers(field.name, {read}, value, access);
            EXPECT_EQ(value, (content & field.mask) >> field.low) << field.name;

            gtSensorInfo.infoOut = infoBefore.infoOut = 2;
            value = 0xEEEE;
            const Lines steps = {"r 20 3", "w cc 00", read};
            for (const std::string &step : steps) {
                if (step == read)
                    before[0xCC] = infoBefore.infoOut = 0; // the gate stays closed when the readout fails
                board.Fail(step);
                Capture([&] { EXPECT_EQ(access(), CXD3193AR_FAILED) << field.name; });
                EXPECT_EQ(value, 0xEEEE) << field.name;
                ExpectRest(field.name + " after a failure");
            }
            board.Take();
            gtSensorInfo.infoOut = 0xFF;
            EXPECT_EQ(access(), 0) << field.name;
            EXPECT_EQ(board.Take(), Paused(steps)) << field.name;
            ExpectRest(field.name);
        }
    }
}

TEST_F(Map, LongExposureMirrorIsHeldByTheSensorType)
{
    const struct {
        uint8_t type, frames, mirror;
    } cases[] = {{6, 29, 29}, {6, 30, 29}, {7, 59, 59},   {7, 60, 59},
                 {7, 40, 40}, {5, 60, 60}, {0x16, 60, 60}};
    for (const auto &c : cases) {
        gtSensorInfo.cisType = c.type;
        EXPECT_EQ(CXD3193AR_Set_LongExp(&c.frames), 0);
        EXPECT_EQ(gtSensorInfo.longExpFrames, c.mirror) << "type " << +c.type << " set " << +c.frames;
        gtSensorInfo.longExpFrames = 0;
        uint8_t frames = 0;
        EXPECT_EQ(CXD3193AR_Get_LongExp(&frames), 0);
        EXPECT_EQ(frames, c.frames);
        EXPECT_EQ(gtSensorInfo.longExpFrames, c.mirror) << "type " << +c.type << " get " << +c.frames;
    }
}

// ---- Several at once

TEST_F(Map, NoiseReductionAndDayNight)
{
    std::array<uint8_t, 2> bits;
    for (const unsigned content : {0xFCU, 0xFDU, 0xFEU, 0x03U}) {
        SetRegister(0x53, content);
        bits.fill(0xEE);
        ExpectTransfers("get", {"r 53 1"}, bits, [&] { return CXD3193AR_Get_NrDnMode(&bits[0], &bits[1]); });
        EXPECT_EQ(bits[0], content & 1);
        EXPECT_EQ(bits[1], (content >> 1) & 1);
        infoBefore.nrAuto = bits[0];
        infoBefore.dayNightOn = bits[1];
        ExpectRest("get");
    }
    const struct {
        std::array<uint8_t, 2> bits;
        int reg; ///< negative: the status
    } cases[] = {
        {{0, 0}, 0},  {{1, 0}, 1},  {{0, 1}, 2},  {{1, 1}, 3},   {{3, 0}, 3},
        {{2, 1}, -6}, {{4, 0}, -6}, {{0, 2}, -6}, {{1, 128}, 1}, {{255, 2}, 3}, // the sum is taken in 8 bits
    };
    for (const auto &c : cases) {
        bits = c.bits;
        SetRegister(0x53, 0xFF);
        const auto set = [&] { return CXD3193AR_Set_NrDnMode(&bits[0], &bits[1]); };
        if (c.reg < 0) {
            EXPECT_EQ(set(), c.reg) << +bits[0] << ' ' << +bits[1];
            EXPECT_EQ(board.Take(), Lines());
        } else {
            ExpectTransfers("set", {"r 20 3", Format("w 53 %02x", c.reg)}, bits, set);
            before[0x53] = static_cast<uint8_t>(c.reg);
            infoBefore.nrAuto = bits[0];
            infoBefore.dayNightOn = bits[1];
        }
        ExpectRest("set");
    }
}

// Aligned for the words.
struct alignas(uint16_t) Bytes : std::array<uint8_t, 30> {
};

TEST_F(Map, BlocksKeepTheirBits)
{
    Values table(30, 0x1F);
    table[0] = table[1] = table[2] = 0x7F;
    static uint8_t start; // of the accessors that take one
    const Get pair = [](uint8_t *values) { return CXD3193AR_Get_PairA4(start, values); };
    const Set setPair = [](const uint8_t *values) { return CXD3193AR_Set_PairA4(start, values); };
    const Get word = [](uint8_t *v) { return CXD3193AR_Get_MeExpTim(reinterpret_cast<uint16_t *>(v)); };
    const Set setWord = [](const uint8_t *v) {
        return CXD3193AR_Set_MeExpTim(reinterpret_cast<const uint16_t *>(v));
    };
    const Get tbl30 = [](uint8_t *values) { return CXD3193AR_Get_Tbl30(start, values); };
    const Set setTbl30 = [](const uint8_t *values) { return CXD3193AR_Set_Tbl30(start, values); };
    const struct {
        uint8_t reg;
        Values masks;
        Get get;
        Set set; ///< null: refused, the second register is of the next reflect group
    } blocks[] = {
        // clang-format off
        {0x35, {0xFF, 0xFF}, word, setWord},
        {0x55, {0xFF, 0x3F, 0xFF, 0x3F, 0xFF, 0x3F, 0xFF, 0x3F}, CXD3193AR_Get_Blk55, CXD3193AR_Set_Blk55},
        {0x9D, Values(6, 0x3F), CXD3193AR_Get_Blk9D, CXD3193AR_Set_Blk9D},
        {0x47, Values(12, 0xFF), CXD3193AR_Get_Blk47, CXD3193AR_Set_Blk47},
        {0xA4, {0x3F, 0x1F}, pair, setPair}, {0xA6, {0x3F, 0x1F}, pair, setPair}, {0xA7, {0x3F, 0x1F}, pair, nullptr},
        {0xA8, {0x7F, 0x7F}, pair, setPair}, {0xAA, {0x7F, 0x7F}, pair, setPair}, {0xAB, {0x7F, 0x7F}, pair, nullptr},
        {0x75, table, tbl30, setTbl30}, {0xCE, table, tbl30, setTbl30}, {0x75, table, tbl30, CXD3193AR_Set_YGamma},
        // clang-format on
    };
    const int inMap = 0
#define KEL_WORD(...) +1
#define KEL_BLOCK(...) +1
#include "kelisp/registerMap.def"
        ;
    static_assert(inMap == 4, "a word or block of the map has no row here");
    for (const auto &b : blocks) {
        const size_t count = b.masks.size();
        start = b.reg;
        Bytes values;
        values.fill(0xEE);
        for (unsigned i = 0; i < count; ++i)
            SetRegister(b.reg + i, 0xFF - i);
        ExpectTransfers("get", {ReadLine(b.reg, count)}, values, [&] { return b.get(values.data()); });
        Values masked;
        for (unsigned i = 0; i < values.size(); ++i) {
            EXPECT_EQ(values[i], i < count ? (0xFF - i) & b.masks[i] : 0xEE) << +b.reg << " byte " << i;
            values[i] = static_cast<uint8_t>(0xFF - 3 * i);
            if (i < count)
                masked.push_back(values[i] & b.masks[i]);
        }
        if (b.set == nullptr) {
            const Printed printed = Capture([&] { EXPECT_EQ(setPair(values.data()), CXD3193AR_FAILED); });
            EXPECT_NE(printed.err.find("Bit1 != Bit2"), std::string::npos) << printed.err;
        } else {
            ExpectTransfers("set", {"r 20 3", WriteLine(b.reg, masked)}, values,
                            [&] { return b.set(values.data()); });
            std::copy(masked.begin(), masked.end(), before.begin() + b.reg);
        }
        ExpectRest("set");
    }
}

TEST_F(Map, PairsStartOnlyAtA4ToAB)
{
    for (const int start : {0x00, 0x55, 0xA3, 0xAC, 0xFE}) {
        const auto first = static_cast<uint8_t>(start);
        const std::array<uint8_t, 2> untouched = {0xEE, 0xEE};
        std::array<uint8_t, 2> values = untouched;
        EXPECT_EQ(CXD3193AR_Set_PairA4(first, values.data()), CXD3193AR_FAILED);
        EXPECT_EQ(board.Take(), Lines()) << "the setter looks before its transfer";
        EXPECT_EQ(CXD3193AR_Get_PairA4(first, values.data()), CXD3193AR_FAILED);
        EXPECT_EQ(board.Take(), Paused({ReadLine(first, 2)})) << "the getter looks after its transfer";
        EXPECT_EQ(values, untouched);
        ExpectRest("pair");
    }
}

} // namespace
