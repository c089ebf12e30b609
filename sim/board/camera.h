// SPDX-License-Identifier: MIT
//
// The simulated camera processor behind the bus: its registers, the reflect handshake, and a small model of
// automatic exposure and white balance over the scene. All functions expect the board's lock to be held.
#ifndef SIM_BOARD_CAMERA_H
#define SIM_BOARD_CAMERA_H

#include "sim/board/boardState.h"

namespace sim
{

/// The slave address under which the processor answers.
inline constexpr uint8_t kCameraSlave = 0xE2;

/// Registers that the camera alone changes.
inline constexpr int kReadoutsFirst = 0x10;
inline constexpr int kReadoutsLast = 0x1F;
inline constexpr int kReflectFirst = 0x20;
inline constexpr int kReflectLast = 0x22;

/// Signals of the board, by GPIO number.
enum Pin : uint32_t { kPinIrLed = 0, kPinIrCut = 35, kPinAlarm = 86, kPinReset = 91 };

/// A signal in words: what `camSim pins` takes and shows for its levels 0 and 1, and what the trace tells of them.
struct Signal {
    const char *name;
    uint32_t pin;
    const char *words[2];
    const char *told[2];
    const char *meaning;
    const char *note;
};

inline constexpr Signal kSignals[] = {
    {"led", kPinIrLed, {"on", "off"}, {"on", "off"}, "IR LEDs", ""},
    {"ircut",
     kPinIrCut,
     {"IR_CUT", "IR_PASS"},
     {"IR_CUT (day)", "IR_PASS (night)"},
     "IR-cut filter",
     "; IR_CUT is day, IR_PASS night"},
    {"alarm", kPinAlarm, {"low", "high"}, {"low", "high"}, "alarm input", "; high is an alarm"},
    {"reset", kPinReset, {"held", "running"}, {"held in reset", "running"}, "sensor reset line", ""},
};

/// The signal on a pin; null for a pin without a name.
const Signal *FindSignal(uint32_t pin);

/// Values that a write to the manual registers took over from the automatic exposure (Live::forced).
enum ForcedPart : uint32_t { kForcedExposure = 1, kForcedAnalog = 2, kForcedDigital = 4 };

/// Power-on values of all registers, with the scene's sensor type.
void PowerOnCamera(BoardState &state);

/// A board as it leaves the factory: bright indoor scene, pins at rest, camera after power-on.
void PowerOnBoard(BoardState &state);

/// Brings readouts and reflect registers up to the present.
void UpdateCamera(BoardState &state, uint64_t nowNs, double speed);

/// One register as the bus shows it, after UpdateCamera.
uint8_t ReadRegister(const BoardState &state, uint8_t reg);

/// A write over the bus: read-only registers ignore it, a
/// group becomes busy for `busyUs` of the board's time.
void WriteRegister(BoardState &state, uint8_t reg, uint8_t value, uint32_t busyUs, double speed);

/// Drives a pin; the rising edge of the reset line restarts the camera.
void DrivePin(BoardState &state, uint32_t pin, uint8_t level);

/// The camera is held in reset and does not answer.
bool IsHeldInReset(const BoardState &state);

/// First and last register of the reflect group numbered `group`.
void ReflectGroupRange(int group, uint8_t *first, uint8_t *last);

} // namespace sim

#endif
