// SPDX-License-Identifier: MIT
//
// The camera processor's behaviour. What its automatic exposure does in detail is not known; the model is
// simple, repeatable and moves as a camera's does:
// - Each frame the product of exposure and gains moves towards what the scene needs, by at most 25 % (less
//   with a large AeTimer). Exposure is used first, then analog gain, then digital gain, within the ceilings
//   of AeMaxAgc and AeMaxDgn. With a flicker mode, exposures beyond one half-wave of the lamps are whole
//   half-waves.
// - AeMaxExpH makes the manual exposure the ceiling, AutoLgExpH makes it the longest slow shutter, AeExpHldH
//   fixes the shutter to it, AeHoldH freezes everything. Otherwise the ceiling is one frame.
// - AeSwitch off: the manual registers rule. With AeSwitch on, a write to a manual register (0x35 to 0x38)
//   takes that value over from the AE until AeSwitch is written as 1 or the camera is reset. An exposure
//   written while AeMaxExpH, AutoLgExpH or AeExpHldH is on only moves that ceiling or shutter.
// - The white-balance gains go a tenth of the way to the light's colour each frame; WbHoldH freezes them,
//   WbAutoH off shows the manual gains.
// - With DyNgtOnH, the day/night status turns to night when the gain code (32 per doubling) reaches
//   DyNtSupr, and back to day when it falls to DyNtRecv.
#include "sim/board/camera.h"

#include "sim/board/host.h"
#include "sim/board/registers.h"

#include <string.h>

namespace sim
{

namespace
{

struct RegisterValue {
    uint8_t reg;
    uint8_t value;
};

// Registers that are not 0 after power-on; 0x0E comes from the scene.
constexpr RegisterValue kPowerOn[] = {
    {0x30, 0x84},               // AE on, 60 Hz lamps
    {0x31, 0},                  // analog gain from 1.0
    {0x32, 192},                // to 7.953
    {0x33, 32},                 // digital gain to 4.0
    {0x34, 8},                  // AE timer
    {0x35, 0x21}, {0x36, 0x02}, // manual exposure 545 lines, 1/60 s
    {0x37, 0},                  // manual analog gain 1.0
    {0x38, 8},                  // manual digital gain 1.0
    {0x3C, 0x80},               // AWB on
    {0x3D, 92},   {0x3E, 108},  // manual white balance for daylight
    {0x53, 0x03},               // noise reduction automatic, day/night switching on
    {0x56, 0x3F}, {0x58, 0x19}, {0x5A, 0x3F}, {0x5B, 0xAC},
    {0x5C, 0x1C}, {0x5D, 112},  {0x5E, 64}, // night from gain 12, day from gain 4
    {0x71, 16},                             // EV 0
    {0x72, 32},                             // contrast in the middle
    {0x74, 64},                             // AE reference: a quarter of full scale
    {0x93, 44},   {0x96, 5},                // sharpness
    {0x97, 24},   {0x98, 24},               // saturation
};

constexpr uint8_t kPowerOnGamma[30] = {58, 63, 46, 25, 20, 15, 13, 12, 12, 11, 10, 9, 8, 7, 5,
                                       4,  3,  3,  3,  2,  2,  2,  2,  2,  2,  2,  2, 1, 1, 1};
constexpr uint8_t kGammaFirst = 0x75;

// First registers of the groups that are taken over together; a group ends where the next begins. Bit 2 of
// 0x20 stands for the first group, and so on upwards through 0x22.
constexpr uint8_t kGroupFirst[kReflectGroups + 1] = {0x30, 0x3C, 0x3F, 0x53, 0x5F, 0x62, 0x64, 0x71, 0x72,
                                                     0x93, 0x97, 0xA4, 0xA8, 0xAC, 0xCA, 0xCD, 0xF1, 0xFE};
constexpr int kFirstGroupBit = 2;
// A busy time further ahead than this is left over from before the host restarted.
constexpr uint64_t kLongestBusyNs = 60000000000U;

constexpr int kNoGroup = -1;

int GroupOf(uint8_t reg)
{
    for (int group = 0; group < kReflectGroups; ++group)
        if (reg >= kGroupFirst[group] && reg < kGroupFirst[group + 1])
            return group;
    return kNoGroup;
}

struct Timing {
    double frameUs;
    uint32_t lines;
};

Timing TimingOf(const BoardState &state)
{
    const uint32_t lines = (state.registers[0x0E] & 0x0F) == 7 ? 552 : 1090;
    return {lines * kLineUs, lines};
}

// How far the light of the scene drives the raw level: 400
// lux need 18 ms at gain 1.0 for a quarter of full scale.
constexpr double kRawPerLuxUs = 1.42e-4;
constexpr double kInfraredLux = 12.0; // what the board's own LEDs add, with the IR-cut filter out
constexpr double kDarkestLux = 0.001;

double LightOf(const BoardState &state)
{
    const bool lit = state.pins[kPinIrLed] == 0 && state.pins[kPinIrCut] == 1;
    const double lux = state.scene.lightLux + (lit ? kInfraredLux : 0.0);
    return lux > kDarkestLux ? lux : kDarkestLux;
}

// White-balance gains that make grey grey under light of a colour temperature.
struct LightColour {
    double kelvin;
    double red;
    double blue;
};

constexpr LightColour kLightColours[] = {{2000, 0.80, 3.20}, {2800, 1.00, 2.50}, {4000, 1.25, 1.95},
                                         {5000, 1.45, 1.70}, {6500, 1.65, 1.40}, {8000, 1.80, 1.25},
                                         {10000, 1.95, 1.12}};

LightColour ColourOf(double kelvin)
{
    const LightColour *row = kLightColours;
    const LightColour *last = kLightColours + sizeof(kLightColours) / sizeof(kLightColours[0]) - 1;
    if (kelvin <= row->kelvin)
        return *row;
    while (row < last && kelvin > row[1].kelvin)
        ++row;
    if (row == last)
        return *last;
    const double part = (kelvin - row->kelvin) / (row[1].kelvin - row->kelvin);
    return {kelvin, row->red + part * (row[1].red - row->red), row->blue + part * (row[1].blue - row->blue)};
}

double Clamp(double value, double low, double high)
{
    return value < low ? low : value > high ? high : value;
}

bool IsSet(const BoardState &state, uint8_t reg, int bit)
{
    return ((state.registers[reg] >> bit) & 1) != 0;
}
bool AeSwitch(const BoardState &state)
{
    return IsSet(state, 0x30, 7);
}
bool AeExpHold(const BoardState &state)
{
    return IsSet(state, 0x34, 6);
}
bool AeHold(const BoardState &state)
{
    return IsSet(state, 0x34, 5);
}
bool AeMaxExp(const BoardState &state)
{
    return IsSet(state, 0x39, 7);
}
bool AutoLongExp(const BoardState &state)
{
    return IsSet(state, 0x3B, 7);
}

bool IsForced(const BoardState &state, ForcedPart part)
{
    return !AeSwitch(state) || (state.live.forced & part) != 0;
}

uint32_t ManualLines(const BoardState &state)
{
    return state.registers[0x35] | static_cast<uint32_t>(state.registers[0x36]) << 8;
}

uint32_t ManualFrames(const BoardState &state)
{
    return state.registers[0x3B] & 0x7F;
}

// A setting of the exposure: what the readouts show and what the sensor collects.
struct Setting {
    uint32_t lines;
    uint32_t frames;
    double analog;
    double digital;
};

double ExposureUs(uint32_t lines)
{
    return Clamp(lines * kLineUs - kOffsetUs, 1.0, 1e9);
}

double Collected(const Setting &setting)
{
    return ExposureUs(setting.lines) * setting.analog * setting.digital;
}

// The longest exposure that the AE may choose, in lines, and the one that it must take, if any.
uint32_t CeilingLines(const BoardState &state, const Timing &timing)
{
    const uint32_t manual = ManualLines(state);
    if ((AutoLongExp(state) || AeMaxExp(state)) && manual > 0)
        return manual;
    return timing.lines + 1; // a frame, just long enough for whole half-waves of 60 Hz lamps
}

bool HasFixedShutter(const BoardState &state)
{
    return IsForced(state, kForcedExposure) || AeExpHold(state);
}

// Whole half-waves of the lamps, where the exposure is long enough for one.
double WithoutFlicker(const BoardState &state, double us)
{
    const uint8_t mode = state.registers[0x30] & 0x07;
    if (mode != 4 && mode != 6)
        return us;
    const double halfWaveUs = mode == 6 ? 1000000.0 / 100.0 : 1000000.0 / 120.0;
    if (us < halfWaveUs)
        return us;
    return static_cast<uint32_t>(us / halfWaveUs + 0.001) * halfWaveUs;
}

// Divides exposure x gain among shutter, analog and digital gain.
Setting Distribute(const BoardState &state, const Timing &timing, double exposureGain)
{
    Setting setting = {};
    if (HasFixedShutter(state)) {
        setting.lines = ManualLines(state);
        setting.frames = ManualFrames(state);
    } else {
        const uint32_t ceiling = CeilingLines(state, timing);
        const double us = WithoutFlicker(state, Clamp(exposureGain, kLineUs, ExposureUs(ceiling)));
        setting.lines = static_cast<uint32_t>((us + kOffsetUs) / kLineUs + 0.001);
        setting.lines = setting.lines < 1 ? 1 : setting.lines > ceiling ? ceiling : setting.lines;
        setting.frames = setting.lines > timing.lines + 1 ? (setting.lines + 1) / timing.lines - 1 : 0;
    }
    const double gain = exposureGain / ExposureUs(setting.lines);
    const double least = Clamp(AnalogGainOfCode(state.registers[0x31]), 1.0, 7.953);
    const double most = Clamp(AnalogGainOfCode(state.registers[0x32]), least, 7.953);
    setting.analog =
        IsForced(state, kForcedAnalog) ? AnalogGainOfCode(state.registers[0x37]) : Clamp(gain, least, most);
    setting.analog = setting.analog > 0.0 ? setting.analog : 1.0;
    setting.digital =
        IsForced(state, kForcedDigital)
            ? state.registers[0x38] / 8.0
            : Clamp(gain / setting.analog, 1.0, Clamp(state.registers[0x33] / 8.0, 1.0, 31.875));
    return setting;
}

void StepExposure(BoardState &state, const Timing &timing)
{
    Live &live = state.live;
    const double level = state.registers[0x74] * 16.0 * EvFactor(state.registers[0x71] & 0x3F);
    const double wanted = Clamp(level, 16.0, 3900.0) / (kRawPerLuxUs * LightOf(state));
    const double stride = 1.0 + 2.0 / (8.0 + (state.registers[0x34] & 0x1F) / 8.0);
    live.exposureGain *= Clamp(wanted / live.exposureGain, 1.0 / stride, stride);
    // What the setting cannot reach is not stored up: a dark spell must not delay the way back.
    const double reached = Collected(Distribute(state, timing, live.exposureGain));
    live.exposureGain = Clamp(live.exposureGain, reached / 2.0, reached * 2.0);
}

void StepWhiteBalance(BoardState &state)
{
    Live &live = state.live;
    const LightColour colour = ColourOf(state.scene.kelvin);
    live.red += (colour.red - live.red) * 0.1;
    live.blue += (colour.blue - live.blue) * 0.1;
}

void PutWord(BoardState &state, uint8_t reg, uint32_t value)
{
    state.registers[reg] = static_cast<uint8_t>(value);
    state.registers[reg + 1] = static_cast<uint8_t>(value >> 8);
}

// 32 for each doubling of the gain, 0 for gain 1.0.
uint32_t GainCode(double gain)
{
    uint32_t code = 0;
    while (gain >= 2.0) {
        gain /= 2.0;
        code += 32;
    }
    return code + static_cast<uint32_t>(gain > 1.0 ? (gain - 1.0) * 32.0 : 0.0);
}

void ShowDayNight(BoardState &state, double gain)
{
    uint8_t &status = state.registers[0x10];
    const uint32_t code = GainCode(gain);
    if (!IsSet(state, 0x53, 1) || code <= state.registers[0x5E])
        status &= 0x7F;
    else if (code >= state.registers[0x5D])
        status |= 0x80;
}

void ShowReadouts(BoardState &state, const Timing &timing)
{
    const Setting setting = Distribute(state, timing, state.live.exposureGain);
    const double analog = Clamp(setting.analog, 1.0, 8.0);
    state.registers[0x11] = static_cast<uint8_t>(setting.frames);
    PutWord(state, 0x12, setting.lines);
    PutWord(state, 0x14, RoundNear(4096.0 / analog));
    PutWord(state, 0x16, RoundNear(Clamp(setting.digital * 32.0, 0.0, 1023.0)));
    const bool automatic = IsSet(state, 0x3C, 7);
    state.registers[0x18] = automatic ? WhiteCodeOfGain(state.live.blue) : state.registers[0x3E];
    state.registers[0x19] = automatic ? WhiteCodeOfGain(state.live.red) : state.registers[0x3D];
    PutWord(state, 0x1E,
            static_cast<uint32_t>(Clamp(kRawPerLuxUs * LightOf(state) * Collected(setting), 0.0, 4095.0)));
    ShowDayNight(state, setting.analog * setting.digital);
}

void UpdateReflect(BoardState &state, uint64_t nowNs)
{
    uint32_t bits = 0;
    for (int group = 0; group < kReflectGroups; ++group) {
        const uint64_t until = state.reflectUntilNs[group];
        if (until > nowNs && until - nowNs < kLongestBusyNs)
            bits |= 1U << (kFirstGroupBit + group);
    }
    for (int reg = kReflectFirst; reg <= kReflectLast; ++reg, bits >>= 8)
        state.registers[reg] = static_cast<uint8_t>(bits);
}

} // namespace

void PowerOnCamera(BoardState &state)
{
    memset(state.registers, 0, sizeof(state.registers));
    for (const RegisterValue &row : kPowerOn)
        state.registers[row.reg] = row.value;
    memcpy(state.registers + kGammaFirst, kPowerOnGamma, sizeof(kPowerOnGamma));
    state.registers[0x0E] = static_cast<uint8_t>(state.scene.sensorType);
    memset(state.reflectUntilNs, 0, sizeof(state.reflectUntilNs));
    state.live.forced = 0;
    state.live.frames = 0.0;
    state.live.exposureGain = 1000000.0 / 60.0;
    state.live.red = 1.0;
    state.live.blue = 1.0;
}

void PowerOnBoard(BoardState &state)
{
    state.scene = {400.0, 5000.0, 6, 12000};
    memset(state.pins, 0, sizeof(state.pins));
    state.pins[kPinIrLed] = 1;
    state.pins[kPinReset] = 1;
    PowerOnCamera(state);
    // The board has been running for a while: everything has settled.
    const Timing timing = TimingOf(state);
    for (int frame = 0; frame < 200; ++frame) {
        StepExposure(state, timing);
        StepWhiteBalance(state);
    }
    ShowReadouts(state, timing);
    state.live.seenNs = host::MonotonicNs();
}

void UpdateCamera(BoardState &state, uint64_t nowNs, double speed)
{
    constexpr double kEnoughFrames = 500.0;
    Live &live = state.live;
    const Timing timing = TimingOf(state);
    if (nowNs < live.seenNs)
        live.seenNs = nowNs; // the host has restarted since
    live.frames += static_cast<double>(nowNs - live.seenNs) * speed / 1000.0 / timing.frameUs;
    live.frames = live.frames > kEnoughFrames ? kEnoughFrames : live.frames;
    live.seenNs = nowNs;
    for (; live.frames >= 1.0; live.frames -= 1.0) {
        if (AeSwitch(state) && !AeHold(state))
            StepExposure(state, timing);
        if (!IsSet(state, 0x3C, 0))
            StepWhiteBalance(state);
    }
    ShowReadouts(state, timing);
    UpdateReflect(state, nowNs);
}

uint8_t ReadRegister(const BoardState &state, uint8_t reg)
{
    const bool outputSelected = (state.registers[0xCC] & 0x07) != 0;
    if (reg >= kReadoutsFirst && reg <= kReadoutsLast && outputSelected)
        return 0xFF; // the information output is switched elsewhere: the readouts hold nothing of use
    return state.registers[reg];
}

void WriteRegister(BoardState &state, uint8_t reg, uint8_t value, uint32_t busyUs, double speed)
{
    if (reg >= kReadoutsFirst && reg <= kReflectLast)
        return;
    state.registers[reg] = value;
    if (reg == 0x35 || reg == 0x36) {
        const bool isLimit = AeMaxExp(state) || AutoLongExp(state) || AeExpHold(state);
        state.live.forced |= isLimit ? 0U : kForcedExposure;
    } else if (reg == 0x37) {
        state.live.forced |= kForcedAnalog;
    } else if (reg == 0x38) {
        state.live.forced |= kForcedDigital;
    } else if (reg == 0x30 && (value & 0x80) != 0) {
        state.live.forced = 0;
    }
    const int group = GroupOf(reg);
    if (group != kNoGroup && busyUs > 0) {
        const auto busyNs = static_cast<uint64_t>(busyUs * 1000.0 / speed);
        state.reflectUntilNs[group] = host::MonotonicNs() + busyNs;
    }
}

void DrivePin(BoardState &state, uint32_t pin, uint8_t level)
{
    const bool wasHeld = IsHeldInReset(state);
    state.pins[pin] = level;
    if (wasHeld && !IsHeldInReset(state))
        PowerOnCamera(state);
}

const Signal *FindSignal(uint32_t pin)
{
    for (const Signal &signal : kSignals)
        if (signal.pin == pin)
            return &signal;
    return nullptr;
}

bool IsHeldInReset(const BoardState &state)
{
    return state.pins[kPinReset] == 0;
}

void ReflectGroupRange(int group, uint8_t *first, uint8_t *last)
{
    *first = kGroupFirst[group];
    *last = static_cast<uint8_t>(kGroupFirst[group + 1] - 1);
}

} // namespace sim
