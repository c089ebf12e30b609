// SPDX-License-Identifier: MIT
//
// What a simulated board remembers: one record in the file "board.state" of the board's folder. Every process
// that uses the board maps it, a 64-bit launcher and a 32-bit target program alike, so all members have a
// fixed width, the byte order is little-endian, and anything that changes it takes the lock in it (board.h).
#ifndef SIM_BOARD_BOARD_STATE_H
#define SIM_BOARD_BOARD_STATE_H

#include <stddef.h>
#include <stdint.h>

namespace sim
{

inline constexpr char kMagic[8] = {'c', 'a', 'm', 'S', 'i', 'm', '\n', '\x1a'};
/// Changes with every change of BoardState, or of the numbers of calls in its rules: a board of another layout is refused, never misread.
inline constexpr uint32_t kLayout = 3;

inline constexpr int kRegisters = 256;
inline constexpr int kPins = 128;
inline constexpr int kReflectGroups = 17;
inline constexpr int kCmemBuffers = 64;
inline constexpr int kFaultRules = 32;

/// Bounds of what a board holds: a state beyond them is damaged.
inline constexpr double kMostLux = 200000.0;
inline constexpr double kLeastKelvin = 1000.0;
inline constexpr double kMostKelvin = 20000.0;
inline constexpr uint32_t kMostSensorType = 15;
inline constexpr uint32_t kLongestUs = 3600000000U;
inline constexpr uint32_t kCmemBase = 0x85000000; ///< physical addresses of the contiguous memory
inline constexpr uint32_t kCmemEnd = 0x86800000;

/// The light on the simulated scene, and what else the person at the board chooses.
struct Scene {
    double lightLux;
    double kelvin;
    uint32_t sensorType;    ///< what register 0x0E holds after a reset of the camera
    uint32_t reflectBusyUs; ///< how long a written group stays busy
};

/// Where the automatic exposure and white balance stand.
struct Live {
    double exposureGain; ///< exposure in microseconds x analog gain x digital gain
    double red;          ///< white-balance gains as factors
    double blue;
    double frames;   ///< fraction of a frame that has passed since the last one
    uint64_t seenNs; ///< host's monotonic clock when the camera was last brought up to date
    uint32_t forced; ///< bits of ForcedPart: values that the manual registers took over from the AE
    uint32_t unused;
};

/// A buffer of the contiguous-memory driver; size 0 is a free entry.
struct CmemBuffer {
    uint32_t phys;
    uint32_t size;
    uint32_t owner; ///< process id of the allocator
    uint32_t users;
};

/// What a rule does to the calls that it picks.
enum class Effect : uint32_t {
    Fail,          ///< the call fails with an error number
    Delay,         ///< the call is late, and then goes on
    Value,         ///< the call answers with a value of the rule's choice
    Back,          ///< the clock reads earlier than it is
    Stuck,         ///< the reflect registers never clear
    Busy,          ///< the reflect registers stay busy for another time than the scene's
    MissingFlash,  ///< nothing below the path exists
    FullFlash,     ///< files open, but no byte can be written
    ReadOnlyFlash, ///< nothing below the path can be changed
    Kill           ///< the program dies before the call, as when the power goes
};

/// A fault rule in the form in which the library applies it. Its text is parsed by the launcher alone.
struct FaultRule {
    char text[96];   ///< as the user wrote it
    char path[64];   ///< only calls on this path or below it; empty for all
    uint64_t calls;  ///< bit per Call
    uint64_t seen;   ///< matching calls so far
    uint64_t hits;   ///< of these, the ones that were changed
    uint64_t random; ///< state of the rule's own generator
    Effect effect;
    uint32_t error;  ///< errno of Effect::Fail
    uint32_t value;  ///< microseconds or value of the other effects
    uint32_t nth;    ///< only this matching call (1 is the first); 0 for all
    uint32_t every;  ///< only each so-many-th; 0 for all
    uint32_t chance; ///< share of the calls x 2^32; 0 for all
    uint32_t after;  ///< none of the first so many
    uint32_t times;  ///< at most so many hits; 0 for no limit
    uint32_t target; ///< only this register or pin; kAnyTarget for all
    uint32_t run;    ///< only this run of a program; 0 for every program on the board
    uint32_t runPid; ///< process of that run
    uint32_t used;   ///< 0 for a free entry
};

inline constexpr uint32_t kAnyTarget = UINT32_MAX;

struct BoardState {
    char magic[8];
    uint32_t layout;
    uint32_t size;
    uint32_t lock; ///< thread that holds the board, 0 when free
    uint32_t runs; ///< runs of programs so far
    uint8_t registers[kRegisters];
    uint8_t pins[kPins];
    Scene scene;
    Live live;
    uint64_t reflectUntilNs[kReflectGroups]; ///< host's monotonic clock
    CmemBuffer cmem[kCmemBuffers];
    uint32_t faultCount; ///< entries of `faults` in use or used before; 0 lets the library skip them all
    uint32_t unused;
    FaultRule faults[kFaultRules];
};

// The same on every machine that may share the file.
static_assert(sizeof(Scene) == 24 && sizeof(Live) == 48 && sizeof(FaultRule) == 240);
static_assert(offsetof(BoardState, scene) == 408 &&
              offsetof(BoardState, faults) == 408 + 72 + 136 + 1024 + 8);
static_assert(sizeof(BoardState) == 1648 + 240 * kFaultRules);
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);

} // namespace sim

#endif
