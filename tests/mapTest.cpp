// SPDX-License-Identifier: MIT
//
// Every accessor of the register map against this file's own table of the camera processor's registers:
// register, bits, kind of setter, mirror, the exact traffic, and what stays as it was when a transfer fails.
#include "fakeBoard.h"

#include "kelisp/ispCXD3193AR.h"
#include "kelisp/sensorInfo.h"

#include <cstddef>
#include <cstring>

namespace
{
enum Kind { plain, rmw };
constexpr size_t noMirror = SIZE_MAX;

struct Row {
    uint8_t reg, high, low;
    Kind kind;
    size_t mirror; ///< offset in SensorInfo
    const char *name;
    int (*get)(uint8_t *);
    int (*set)(const uint8_t *);
};

// clang-format off
#define FIELD_ROW(reg, high, low, kind, name, mirror) \
    {reg, high, low, kind, mirror, #name, CXD3193AR_Get_##name, CXD3193AR_Set_##name}
#define FIELD(reg, high, low, kind, name) FIELD_ROW(reg, high, low, kind, name, noMirror)
#define MIRRORED(reg, high, low, kind, name, mirror) \
    FIELD_ROW(reg, high, low, kind, name, offsetof(SensorInfo, mirror))

const Row rows[] = {
    FIELD(0x01, 0, 0, plain, Reg01_0), MIRRORED(0x0C, 0, 0, plain, ExtPrstH, extGioEnable),
    MIRRORED(0x0E, 3, 0, plain, CisType, cisType), FIELD(0x30, 7, 7, rmw, AeSwitch),
    FIELD(0x30, 6, 3, rmw, Reg30_6_3), FIELD(0x30, 2, 0, rmw, AeFlickMode),
    FIELD(0x31, 7, 0, plain, AeMinAgc), FIELD(0x32, 7, 0, plain, AeMaxAgc),
    FIELD(0x33, 7, 0, plain, AeMaxDgn), FIELD(0x34, 6, 6, rmw, AeExpHldH), FIELD(0x34, 5, 5, rmw, AeHoldH),
    FIELD(0x34, 4, 0, rmw, AeTimer), FIELD(0x37, 7, 0, plain, MnlAgn), FIELD(0x38, 7, 0, plain, MnlDgn),
    FIELD(0x39, 7, 7, rmw, AeMaxExpH), FIELD(0x39, 6, 6, rmw, MirUseH), FIELD(0x39, 5, 4, rmw, OptnMode),
    FIELD(0x39, 3, 0, rmw, Reg39_3_0), FIELD(0x3A, 7, 7, rmw, Reg3A_7), FIELD(0x3A, 6, 4, rmw, Reg3A_6_4),
    FIELD(0x3A, 3, 0, rmw, Reg3A_3_0), FIELD(0x3B, 7, 7, rmw, AutoLgExpH),
    MIRRORED(0x3B, 6, 0, rmw, LongExp, longExpFrames), FIELD(0x3C, 7, 7, rmw, WbAutoH),
    FIELD(0x3C, 6, 4, rmw, Reg3C_6_4), FIELD(0x3C, 3, 3, rmw, Reg3C_3), FIELD(0x3C, 2, 2, rmw, Reg3C_2),
    FIELD(0x3C, 1, 1, rmw, Reg3C_1), FIELD(0x3C, 0, 0, rmw, WbHoldH), FIELD(0x3D, 7, 0, plain, MwbR),
    FIELD(0x3E, 7, 0, plain, MwbB), FIELD(0x3F, 6, 5, rmw, Reg3F_6_5), FIELD(0x3F, 4, 3, rmw, Reg3F_4_3),
    FIELD(0x3F, 2, 0, rmw, Reg3F_2_0), FIELD(0x40, 7, 0, plain, Reg40), FIELD(0x41, 7, 0, plain, Reg41),
    FIELD(0x42, 7, 0, plain, Reg42), FIELD(0x43, 7, 0, plain, Reg43), FIELD(0x44, 6, 0, plain, Reg44),
    FIELD(0x45, 6, 0, plain, Reg45), FIELD(0x46, 7, 4, rmw, Reg46_7_4), FIELD(0x46, 3, 0, rmw, Reg46_3_0),
    MIRRORED(0x53, 1, 1, rmw, DyNgtOnH, dayNightOn), MIRRORED(0x53, 0, 0, rmw, NrAutoH, nrAuto),
    FIELD(0x55, 7, 0, plain, Reg55), FIELD(0x56, 5, 0, plain, Reg56), FIELD(0x57, 7, 0, plain, Reg57),
    FIELD(0x58, 5, 0, plain, Reg58), FIELD(0x59, 7, 0, plain, Reg59), FIELD(0x5A, 5, 0, plain, Reg5A),
    FIELD(0x5B, 7, 0, plain, Reg5B), FIELD(0x5C, 5, 0, plain, Reg5C), FIELD(0x5D, 7, 0, plain, DyNtSupr),
    FIELD(0x5E, 7, 0, plain, DyNtRecv), FIELD(0x5F, 4, 4, rmw, AccAutoH), FIELD(0x5F, 3, 0, rmw, AccPwr),
    FIELD(0x61, 7, 5, rmw, Reg61_7_5), FIELD(0x61, 2, 0, rmw, Reg61_2_0), FIELD(0x62, 3, 0, plain, Reg62),
    FIELD(0x63, 6, 4, rmw, Reg63_6_4), FIELD(0x63, 3, 0, rmw, Reg63_3_0), FIELD(0x71, 5, 0, plain, AeEvSet),
    FIELD(0x72, 7, 7, rmw, Reg72_7), FIELD(0x72, 6, 0, rmw, Ygain), FIELD(0x73, 6, 0, plain, Yofst),
    FIELD(0x74, 7, 0, plain, AeRefLev), FIELD(0x93, 5, 0, plain, ApGan), FIELD(0x94, 6, 0, plain, Reg94),
    FIELD(0x95, 5, 0, plain, Reg95), FIELD(0x96, 3, 0, plain, ApPosGn), FIELD(0x97, 7, 7, rmw, Reg97_7),
    FIELD(0x97, 6, 0, rmw, RYG), FIELD(0x98, 7, 7, rmw, Reg98_7), FIELD(0x98, 6, 0, rmw, BYG),
    FIELD(0x99, 5, 0, plain, Reg99), FIELD(0x9A, 5, 0, plain, Reg9A), FIELD(0xA3, 4, 0, plain, RegA3),
    FIELD(0xCA, 3, 3, rmw, RegCA_3), FIELD(0xCA, 2, 2, rmw, RegCA_2), FIELD(0xCA, 1, 0, rmw, RegCA_1_0),
    MIRRORED(0xCC, 2, 0, plain, InfoOut, infoOut),
};
// clang-format on

// What the map holds: a row there without its row here does not compile.
struct Count {
    size_t fields, readouts, blocks;
};
constexpr Count inMap = [] {
    Count count = {};
#define KEL_FIELD(...) ++count.fields;
#define KEL_WORD(...) ++count.blocks;
#define KEL_BLOCK(...) ++count.blocks;
#define KEL_READOUT(...) ++count.readouts;
#define KEL_READOUT_WORD(...) ++count.readouts;
#include "kelisp/registerMap.def"
    return count;
}();
static_assert(std::size(rows) == inMap.fields);

uint8_t FieldMask(const Row &row)
{
    return static_cast<uint8_t>((0x100 >> (7 - row.high)) - (1 << row.low));
}

std::string Hex(unsigned value)
{
    char text[4];
    snprintf(text, sizeof(text), " %02x", value & 0xFF);
    return text;
}

std::string ReadLine(unsigned reg, int count)
{
    return "r" + Hex(reg) + " " + std::to_string(count);
}

std::string WriteLine(unsigned reg, const std::vector<uint8_t> &values)
{
    std::string line = "w" + Hex(reg);
    for (const unsigned value : values)
        line += Hex(value);
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
        memset(&gtSensorInfo, 0x11,
               sizeof(gtSensorInfo)); // a sensor type without a clamp, marks in the mirrors
        gtSensorInfo.infoOut = 0;
        memcpy(&infoBefore, &gtSensorInfo, sizeof(infoBefore));
        for (unsigned i = 0; i < 256; ++i)
            board.regs[i] = i >= 0x20 && i <= 0x22 ? 0 : static_cast<uint8_t>(i * 37 + 5);
        before = board.regs;
    }

    // The registers and the record are as in SetUp but for what the callers changed in `before` and
    // `infoBefore`.
    void ExpectRest(const std::string &what)
    {
        EXPECT_EQ(board.regs, before) << what;
        EXPECT_EQ(memcmp(&gtSensorInfo, &infoBefore, sizeof(gtSensorInfo)), 0) << what << ": record";
    }

    void SetMirror(const Row &row, uint8_t value)
    {
        if (row.mirror != noMirror)
            reinterpret_cast<uint8_t *>(&infoBefore)[row.mirror] = value;
    }

    // An accessor of several registers: `access` fails at each of its transfers with -6, changes no output,
    // and then succeeds with this traffic.
    template <typename Out>
    void ExpectTransfers(const std::string &what, const Lines &transfers, Out &out,
                         const std::function<int()> &access)
    {
        const Out untouched = out;
        for (size_t nth = 0; nth < transfers.size(); ++nth) {
            board.Fail(transfers[nth], 1);
            Capture([&] { EXPECT_EQ(access(), CXD3193AR_FAILED) << what << " transfer " << nth; });
            EXPECT_EQ(memcmp(&out, &untouched, sizeof(out)), 0) << what << ": output after a failure";
            ExpectRest(what + " after a failure");
        }
        board.Take();
        EXPECT_EQ(access(), 0) << what;
        EXPECT_EQ(board.Take(), Paused(transfers)) << what;
    }
};

TEST_F(Map, GettersReadTheirBits)
{
    for (const Row &row : rows) {
        for (int content : {0x00, 0xFF, 0xA5, 0x5A, 0x3C, 0x81}) {
            board.regs[row.reg] = before[row.reg] = static_cast<uint8_t>(content);
            const auto expected = static_cast<uint8_t>((content & FieldMask(row)) >> row.low);
            uint8_t value = 0xEE;
            EXPECT_EQ(row.get(&value), 0) << row.name;
            EXPECT_EQ(value, expected) << row.name << " of " << content;
            EXPECT_EQ(board.Take(), Paused({ReadLine(row.reg, 1)})) << row.name;
            SetMirror(row, expected);
            ExpectRest(row.name);
        }
        board.Fail("r ", 1);
        uint8_t value = 0xEE;
        Capture([&] { EXPECT_EQ(row.get(&value), CXD3193AR_FAILED) << row.name; });
        EXPECT_EQ(value, 0xEE) << row.name;
        ExpectRest(row.name);
        board.Take();
    }
}

TEST_F(Map, SettersWriteTheirBits)
{
    for (const Row &row : rows) {
        for (int old : {0x00, 0xFF, 0xA5}) {
            for (int input : {0x00, 0x01, 0xFF, 0x25, 0x5A}) {
                const auto field = static_cast<uint8_t>((input << row.low) & FieldMask(row));
                const int kept = row.kind == rmw ? old & ~FieldMask(row) : 0;
                const auto expected = static_cast<uint8_t>(kept | field);
                Lines transfers = {ReadLine(0x20, 3), WriteLine(row.reg, {expected})};
                if (row.kind == rmw)
                    transfers.insert(transfers.begin(), ReadLine(row.reg, 1));
                board.regs[row.reg] = before[row.reg] = static_cast<uint8_t>(old);
                auto value = static_cast<uint8_t>(input);
                for (size_t nth = 0; nth < transfers.size(); ++nth) {
                    board.Fail(transfers[nth], 1);
                    Capture([&] { EXPECT_EQ(row.set(&value), CXD3193AR_FAILED) << row.name; });
                    EXPECT_EQ(board.lines.back(), "sleep 1000");
                    ExpectRest(std::string(row.name) + " after a failure");
                }
                board.Take();
                EXPECT_EQ(row.set(&value), 0) << row.name;
                EXPECT_EQ(board.Take(), Paused(transfers))
                    << row.name << " old " << old << " input " << input;
                EXPECT_EQ(value, input) << row.name;
                before[row.reg] = expected;
                SetMirror(row, value);
                ExpectRest(row.name);
            }
        }
    }
}

TEST_F(Map, LongExposureMirrorIsHeldByTheSensorType)
{
    const struct {
        uint8_t type, value, setMirror, reg, output, getMirror;
    } cases[] = {
        {6, 29, 29, 0xC5, 0x45, 29}, {6, 30, 29, 0x1D, 29, 29}, {6, 40, 29, 0x1E, 30, 29},
        {7, 59, 59, 0x3B, 59, 59},   {7, 60, 59, 0xBC, 60, 59}, {7, 40, 40, 40, 40, 40},
        {5, 60, 60, 0xFF, 127, 127}, {6, 0xFF, 29, 0x80, 0, 0}, {0x16, 60, 60, 60, 60, 60},
    };
    for (const auto &c : cases) {
        gtSensorInfo.cisType = c.type;
        board.regs[0x3B] = 0x80;
        EXPECT_EQ(CXD3193AR_Set_LongExp(&c.value), 0);
        EXPECT_EQ(board.regs[0x3B], 0x80 | (c.value & 0x7F));
        EXPECT_EQ(gtSensorInfo.longExpFrames, c.setMirror) << "type " << +c.type << " set " << +c.value;
        board.regs[0x3B] = c.reg;
        uint8_t output = 0;
        EXPECT_EQ(CXD3193AR_Get_LongExp(&output), 0);
        EXPECT_EQ(output, c.output);
        EXPECT_EQ(gtSensorInfo.longExpFrames, c.getMirror) << "type " << +c.type << " get " << +c.reg;
    }
}

// One call for readouts of either width.
template <typename Value, int (*Access)(Value *)>
int ReadInfo(void *value)
{
    return Access(static_cast<Value *>(value));
}

TEST_F(Map, ReadoutsCloseTheGateFirst)
{
    const struct {
        uint8_t reg;
        int count, shift;
        unsigned mask;
        const char *name;
        int (*get)(void *);
    } readouts[] = {
    // clang-format off
#define READOUT(reg, count, shift, mask, name, type) \
        {reg, count, shift, mask, #name, ReadInfo<type, CXD3193AR_Info_##name>}
        READOUT(0x10, 1, 7, 0x01, DnStatus, uint8_t), READOUT(0x10, 1, 0, 0x0F, MirisStatus, uint8_t),
        READOUT(0x11, 1, 0, 0xFF, LngExpFrm, uint8_t), READOUT(0x18, 1, 0, 0xFF, WbbGain, uint8_t),
        READOUT(0x19, 1, 0, 0xFF, WbrGain, uint8_t), READOUT(0x12, 2, 0, 0xFFFF, ExpTime, uint16_t),
        READOUT(0x14, 2, 0, 0x1FFF, AnlGain, uint16_t), READOUT(0x16, 2, 0, 0x03FF, DgtlGain, uint16_t),
        READOUT(0x1E, 2, 0, 0x0FFF, RawAvg, uint16_t),
        // clang-format on
    };
    static_assert(std::size(readouts) == inMap.readouts);
    for (const auto &r : readouts) {
        for (unsigned content : {0xFFFFU, 0xA55AU, 0x1234U, 0x0000U}) {
            board.regs[r.reg] = before[r.reg] = static_cast<uint8_t>(content & 0xFF);
            if (r.count == 2)
                board.regs[r.reg + 1U] = before[r.reg + 1U] = static_cast<uint8_t>(content >> 8);
            before[0xCC] = board.regs[0xCC] = 0x07; // only the mirror decides
            gtSensorInfo.infoOut = infoBefore.infoOut = 0;
            uint16_t value = 0xEEEE;
            ExpectTransfers(r.name, {ReadLine(r.reg, r.count)}, value, [&] { return r.get(&value); });
            EXPECT_EQ(r.count == 2 ? value : value & 0xFF, (content >> r.shift) & r.mask) << r.name;
            ExpectRest(r.name);

            gtSensorInfo.infoOut = infoBefore.infoOut = 2;
            value = 0xEEEE;
            for (const std::string &step :
                 {std::string("r 20"), std::string("w cc"), ReadLine(r.reg, r.count)}) {
                if (step == ReadLine(r.reg, r.count))
                    before[0xCC] = infoBefore.infoOut = 0; // the gate stays closed when the readout fails
                board.Fail(step, 1);
                Capture([&] { EXPECT_EQ(r.get(&value), CXD3193AR_FAILED) << r.name; });
                EXPECT_EQ(value, 0xEEEE);
                ExpectRest(r.name);
            }
            gtSensorInfo.infoOut = 0xFF;
            board.Take();
            EXPECT_EQ(r.get(&value), 0);
            EXPECT_EQ(board.Take(), Paused({"r 20 3", "w cc 00", ReadLine(r.reg, r.count)})) << r.name;
            ExpectRest(r.name);
        }
    }
}

TEST_F(Map, NoiseReductionAndDayNight)
{
    struct {
        uint8_t nr, dayNight;
    } out;
    for (const uint8_t content : std::initializer_list<uint8_t>{0xFC, 0xFD, 0xFE, 0x03}) {
        board.regs[0x53] = before[0x53] = content;
        out = {0xEE, 0xEE};
        ExpectTransfers("get", {"r 53 1"}, out,
                        [&] { return CXD3193AR_Get_NrDnMode(&out.nr, &out.dayNight); });
        EXPECT_EQ(out.nr, content & 1);
        EXPECT_EQ(out.dayNight, (content >> 1) & 1);
        infoBefore.nrAuto = out.nr;
        infoBefore.dayNightOn = out.dayNight;
        ExpectRest("get");
    }
    const struct {
        uint8_t nr, dayNight;
        int status;
        uint8_t reg;
    } cases[] = {
        {0, 0, 0, 0},  {1, 0, 0, 1},  {0, 1, 0, 2},   {1, 1, 0, 3},   {3, 0, 0, 3}, {2, 1, -6, 0},
        {4, 0, -6, 0}, {0, 2, -6, 0}, {1, 128, 0, 1}, {255, 2, 0, 3}, // the sum is taken in 8 bits
    };
    for (const auto &c : cases) {
        uint8_t nr = c.nr, dayNight = c.dayNight;
        board.regs[0x53] = before[0x53] = 0xFF;
        const auto set = [&] { return CXD3193AR_Set_NrDnMode(&nr, &dayNight); };
        if (c.status != 0) {
            EXPECT_EQ(set(), c.status) << +nr << ' ' << +dayNight;
            EXPECT_EQ(board.Take(), Lines());
        } else {
            ExpectTransfers("set", {"r 20 3", WriteLine(0x53, {c.reg})}, nr, set);
            before[0x53] = c.reg;
            infoBefore.nrAuto = nr;
            infoBefore.dayNightOn = dayNight;
        }
        ExpectRest("set");
    }
}

// Aligned for the words.
struct alignas(uint16_t) Bytes : std::array<uint8_t, 30> {
};

TEST_F(Map, BlocksKeepTheirBits)
{
    using Get = int (*)(uint8_t *);
    using Set = int (*)(const uint8_t *);
    using Masks = std::vector<uint8_t>;
    Masks table(30, 0x1F);
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
        Masks masks;
        Get get;
        Set set;
    } blocks[] = {
        // clang-format off
        {0x35, {0xFF, 0xFF}, word, setWord},
        {0x55, {0xFF, 0x3F, 0xFF, 0x3F, 0xFF, 0x3F, 0xFF, 0x3F}, CXD3193AR_Get_Blk55, CXD3193AR_Set_Blk55},
        {0x9D, Masks(6, 0x3F), CXD3193AR_Get_Blk9D, CXD3193AR_Set_Blk9D},
        {0x47, Masks(12, 0xFF), CXD3193AR_Get_Blk47, CXD3193AR_Set_Blk47},
        {0xA4, {0x3F, 0x1F}, pair, setPair}, {0xA5, {0x3F, 0x1F}, pair, setPair}, {0xA6, {0x3F, 0x1F}, pair, setPair},
        {0xA7, {0x3F, 0x1F}, pair, nullptr}, // ends in the next reflect group
        {0xA8, {0x7F, 0x7F}, pair, setPair}, {0xA9, {0x7F, 0x7F}, pair, setPair}, {0xAA, {0x7F, 0x7F}, pair, setPair},
        {0xAB, {0x7F, 0x7F}, pair, nullptr}, {0x75, table, tbl30, setTbl30}, {0xCE, table, tbl30, setTbl30},
        {0x75, table, tbl30, CXD3193AR_Set_YGamma},
        // clang-format on
    };
    static_assert(inMap.blocks == 4, "the first rows here");
    for (const auto &b : blocks) {
        const int count = static_cast<int>(b.masks.size());
        start = b.reg;
        Bytes values;
        values.fill(0xEE);
        Masks masked;
        for (unsigned i = 0; i < b.masks.size(); ++i)
            board.regs[b.reg + i] = before[b.reg + i] = static_cast<uint8_t>(0xFF - i);
        ExpectTransfers("get", {ReadLine(b.reg, count)}, values, [&] { return b.get(values.data()); });
        for (unsigned i = 0; i < values.size(); ++i) {
            EXPECT_EQ(values[i], i < b.masks.size() ? (0xFF - i) & b.masks[i] : 0xEE)
                << +b.reg << " byte " << i;
            values[i] = static_cast<uint8_t>(0xFF - 3 * i);
            if (i < b.masks.size())
                masked.push_back(values[i] & b.masks[i]);
        }
        const Bytes input = values;
        if (b.set != nullptr) {
            ExpectTransfers("set", {"r 20 3", WriteLine(b.reg, masked)}, values,
                            [&] { return b.set(values.data()); });
            std::copy(masked.begin(), masked.end(), before.begin() + b.reg);
        } else {
            EXPECT_NE(Capture([&] {
                          EXPECT_EQ(setPair(values.data()), CXD3193AR_FAILED);
                      }).err.find("Bit1 != Bit2"),
                      std::string::npos);
        }
        EXPECT_EQ(values, input);
        ExpectRest("set");
    }
}

TEST_F(Map, PairsStartOnlyAtA4ToAB)
{
    for (const uint8_t start : std::initializer_list<uint8_t>{0x00, 0x55, 0xA3, 0xAC, 0xFE}) {
        uint8_t values[2] = {0xEE, 0xEE};
        EXPECT_EQ(CXD3193AR_Set_PairA4(start, values), CXD3193AR_FAILED);
        EXPECT_EQ(board.Take(), Lines()) << "the setter looks before its transfer";
        EXPECT_EQ(CXD3193AR_Get_PairA4(start, values), CXD3193AR_FAILED);
        EXPECT_EQ(board.Take(), Paused({ReadLine(start, 2)})) << "the getter looks after its transfer";
        EXPECT_EQ(values[0], 0xEE);
        EXPECT_EQ(values[1], 0xEE);
        ExpectRest("pair");
    }
}

} // namespace
