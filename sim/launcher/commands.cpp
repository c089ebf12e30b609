// SPDX-License-Identifier: MIT
//
// Looking at a board and changing it by hand: pins, scene, fault rules. Registers are camCtl's business.
#include "sim/launcher/commands.h"

#include "sim/board/board.h"
#include "sim/board/camera.h"
#include "sim/board/host.h"
#include "sim/board/registers.h"
#include "sim/launcher/faultText.h"
#include "sim/launcher/parse.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

namespace sim
{

namespace
{

void CopyRegisters(uint8_t (&registers)[kRegisters + 1])
{
    const BoardLock lock;
    UpdateCamera(*gBoard.state, host::MonotonicNs(), 1.0);
    for (int reg = 0; reg < kRegisters; ++reg)
        registers[reg] = ReadRegister(*gBoard.state, static_cast<uint8_t>(reg));
    registers[kRegisters] = 0;
}

// ---- Fields

std::string BitsOf(const Field &field)
{
    if (field.registers > 1)
        return "";
    const std::string high = std::to_string(field.high);
    return field.high == field.low             ? high
           : field.high == 7 && field.low == 0 ? ""
                                               : high + ":" + std::to_string(field.low);
}

/// A readout of one or two registers.
void PrintField(const Field &field, const uint8_t *registers)
{
    const bool isWord = field.registers > 1;
    char address[16];
    char content[8] = "";
    snprintf(address, sizeof(address), isWord ? "0x%02X-0x%02X" : "0x%02X", field.reg,
             field.reg + field.registers - 1);
    if (!isWord)
        snprintf(content, sizeof(content), "0x%02X", registers[field.reg]);
    const uint32_t code = FieldValue(field, registers);
    char value[80];
    DescribeValue(field, code, value, sizeof(value));
    printf("%-9s  %-4s  %-3s  %-12s %6u  %s%s%s\n", address, content, BitsOf(field).c_str(), field.name, code,
           value, value[0] != '\0' ? "; " : "", field.meaning);
}

// ---- Pins

struct PinSetting {
    uint32_t pin;
    uint32_t level;
};

// SIGNAL=LEVEL: a signal's name or a pin's number; 0, 1, or the word that is shown for it.
bool ParsePinLevel(const std::string &word, PinSetting *wanted)
{
    const size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    const std::string level = equals != std::string::npos ? word.substr(equals + 1) : "";
    bool isPin = ParseNumber(name, 0, kPins - 1, &wanted->pin);
    for (const Signal &signal : kSignals) {
        if (name == signal.name) {
            wanted->pin = signal.pin;
            isPin = true;
        }
    }
    const Signal *signal = isPin ? FindSignal(wanted->pin) : nullptr;
    wanted->level = signal != nullptr && level == signal->words[1] ? 1 : 0;
    return isPin && ((signal != nullptr && (level == signal->words[0] || level == signal->words[1])) ||
                     ParseNumber(level, 0, 1, &wanted->level));
}

void PrintPins()
{
    const BoardLock lock;
    printf("Signal  Pin  Level  Meaning\n");
    for (const Signal &signal : kSignals) {
        const uint8_t level = gBoard.state->pins[signal.pin];
        printf("%-6s  %3u  %5u  %-13s  (%s%s)\n", signal.name, signal.pin, level, signal.words[level & 1U],
               signal.meaning, signal.note);
    }
    for (uint32_t pin = 0; pin < kPins; ++pin)
        if (FindSignal(pin) == nullptr && gBoard.state->pins[pin] != 0)
            printf("%-6s  %3u  %5u\n", "", pin, gBoard.state->pins[pin]);
}

std::string PinWords()
{
    std::string words;
    for (const Signal &signal : kSignals)
        words += std::string(signal.name) + "=" + signal.words[0] + " or " + signal.words[1] + ", ";
    return words;
}

int Pins(const Words &words)
{
    std::vector<PinSetting> wanted;
    for (const std::string &word : words) {
        PinSetting pin = {};
        if (!ParsePinLevel(word, &pin))
            return Complain(kUsageStatus, "'%s' sets no pin: write %sor a pin number below %d, and 0 or 1",
                            word.c_str(), PinWords().c_str(), kPins);
        wanted.push_back(pin);
    }
    if (words.empty())
        PrintPins();
    const BoardLock lock;
    for (const PinSetting &pin : wanted)
        DrivePin(*gBoard.state, pin.pin, static_cast<uint8_t>(pin.level));
    return 0;
}

// ---- Scene

void PrintScene()
{
    uint8_t registers[kRegisters + 1];
    CopyRegisters(registers);
    const Scene scene = gBoard.state->scene;
    printf("light        %g lux\n", scene.lightLux);
    printf("temperature  %g K\n", scene.kelvin);
    printf("sensor       type %u at the next reset, now %u\n", scene.sensorType, registers[0x0E] & 0x0FU);
    printf("reflect      %g ms busy after a write\n", scene.reflectBusyUs / 1000.0);
    printf("\nThe camera sees it with:\n");
    for (const char *name :
         {"ExpTime", "LngExpFrm", "AnlGain", "DgtlGain", "WbrGain", "WbbGain", "RawAvg", "DnStatus"})
        PrintField(*FindField(name), registers);
}

bool SetScene(Scene *scene, const std::string &key, const std::string &value)
{
    if (key == "light")
        return ParseFraction(value, 0.0, kMostLux, &scene->lightLux);
    if (key == "temperature")
        return ParseFraction(value, kLeastKelvin, kMostKelvin, &scene->kelvin);
    if (key == "sensor")
        return ParseNumber(value, 0, kMostSensorType, &scene->sensorType);
    return key == "reflect" && ParseTime(value, &scene->reflectBusyUs);
}

int ShowOrSetScene(const Words &words)
{
    Scene scene = gBoard.state->scene;
    bool newSensor = false;
    for (const std::string &word : words) {
        const size_t equals = word.find('=');
        const std::string key = word.substr(0, equals);
        if (equals == std::string::npos || !SetScene(&scene, key, word.substr(equals + 1))) {
            return Complain(
                kUsageStatus,
                "'%s' does not describe a scene: write light=LUX (0 to %g), temperature=KELVIN (%g to %g), "
                "sensor=6 or 7, reflect=TIME (as 12ms)",
                word.c_str(), kMostLux, kLeastKelvin, kMostKelvin);
        }
        newSensor = newSensor || key == "sensor";
    }
    if (words.empty()) {
        PrintScene();
        return 0;
    }
    const BoardLock lock;
    UpdateCamera(*gBoard.state, host::MonotonicNs(), 1.0);
    gBoard.state->scene = scene;
    if (newSensor)
        gBoard.state->registers[0x0E] = static_cast<uint8_t>(scene.sensorType);
    return 0;
}

// ---- Faults

int ListFaults()
{
    const BoardLock lock;
    const BoardState &state = *gBoard.state;
    bool any = false;
    for (uint32_t i = 0; i < state.faultCount; ++i) {
        const FaultRule &rule = state.faults[i];
        if (rule.used == 0)
            continue;
        std::string scope = "board";
        if (rule.run != 0)
            scope = "run " + std::to_string(rule.run) + (host::IsAlive(rule.runPid) ? "" : ", ended");
        printf("%s%2u  %-14s %9llu %9llu  %s\n", any ? "" : " #  Applies to         Calls      Hits  Rule\n",
               i + 1, scope.c_str(), static_cast<unsigned long long>(rule.seen),
               static_cast<unsigned long long>(rule.hits), rule.text);
        any = true;
    }
    if (!any) {
        printf("No fault rules. `camSim fault RULE` adds one, `camSim fault --help` tells what rules look "
               "like.\n");
    }
    return 0;
}

int ClearFaultRules(const Words &words)
{
    uint32_t number = 0;
    if (words.size() > 2 || (words.size() == 2 && !ParseNumber(words[1], 1, kFaultRules, &number)))
        return Complain(kUsageStatus, "fault clear takes the number of a rule, or nothing for all of them");
    return ClearFaults(number) ? 0
                               : Complain(1, "there is no rule %u; `camSim fault list` shows them", number);
}

int Fault(const Words &words)
{
    if (words.empty() || (words[0] == "list" && words.size() == 1))
        return ListFaults();
    if (words[0] == "clear")
        return ClearFaultRules(words);
    std::vector<FaultRule> rules;
    std::string problem;
    for (const std::string &word : words) {
        FaultRule rule;
        if (!ParseFault(word, &rule, &problem))
            return Complain(kUsageStatus, "fault rule '%s': %s", word.c_str(), problem.c_str());
        rules.push_back(rule);
    }
    for (const FaultRule &rule : rules)
        if (!AddFault(rule, &problem))
            return Complain(1, "%s", problem.c_str());
    return 0;
}

int Reset(const Words &words)
{
    return words.empty()
               ? 0
               : Complain(kUsageStatus,
                          "reset takes no words; `camSim fault clear` removes the fault rules alone");
}

constexpr char kPinsHelp[] =
    "Without words, shows the board's signals. SIGNAL is led, ircut, alarm, reset or a pin number; LEVEL is\n"
    "0, 1 or the word that is shown for it, as in `camSim pins led=on ircut=IR_PASS alarm=high "
    "reset=running`.\n"
    "A rising reset line restarts the camera; a high alarm is what a program that waits for it sees.\n";
constexpr char kResetHelp[] =
    "Makes the board as new: registers, pins, scene, flash and configuration files, no fault rules.\n"
    "What earlier runs wrote to the board's flash is lost.\n";
constexpr char kSceneHelp[] =
    "Without words, shows the scene and how the camera sees it.\n"
    "  light=LUX            0 to 200000; 400 is a bright room, 1 is deep dusk\n"
    "  temperature=KELVIN   1000 to 20000; 2800 is a bulb, 6500 is daylight\n"
    "  sensor=TYPE          6 for 30 frames a second, 7 for 60; others are refused by programs\n"
    "  reflect=TIME         how long written settings stay busy, as in 12ms\n"
    "Exposure, gains and day/night status follow within some frames.\n";

constexpr char kServeHelp[] =
    "Offers /dev/dev_i2c, /dev/gio, /dev/cmem and /dev/csl1 to csl9 to every program on this machine, static "
    "ones "
    "too,\n"
    "until SIGTERM or SIGINT; then the nodes are gone. Needs root, and a kernel with CUSE (modprobe cuse).\n"
    "  --dev DIR   the nodes are in this folder, as for a chroot\n"
    "--fault, --trace and --trace-json are for whatever programs do to the nodes. Only what reaches a driver "
    "is "
    "seen:\n"
    "not what the kernel does by itself (mapping memory, descriptor flags), nor files, pauses and clocks.\n";

constexpr Command kCommands[] = {
    {"pins", "[SIGNAL=LEVEL...]", "the board's pins, or sets them", kPinsHelp, Pins},
    {"scene", "[KEY=VALUE...]", "the light on the scene, or sets it", kSceneHelp, ShowOrSetScene},
    {"fault", "RULE...|list|clear [NUMBER]", "makes device calls fail", "", Fault},
    {"reset", "", "makes the board as new", kResetHelp, Reset},
    {"serve", "[--dev DIR]", "offers the board as device nodes", kServeHelp, nullptr},
};

size_t Distance(const std::string &a, const std::string &b)
{
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const bool same = tolower(a[i - 1]) == tolower(b[j - 1]);
            const size_t best = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (same ? 0 : 1)});
            diagonal = row[j];
            row[j] = best;
        }
    }
    return row[b.size()];
}

// The shortest candidate that was begun but not finished; a single letter begins too many.
std::string ShortestThatBegins(const std::string &word, const Words &candidates)
{
    std::string shortest;
    for (const std::string &candidate : candidates) {
        const bool begins = word.size() > 1 && Distance(word, candidate.substr(0, word.size())) == 0;
        if (begins && (shortest.empty() || candidate.size() < shortest.size()))
            shortest = candidate;
    }
    return shortest;
}

} // namespace

const Command *CommandsBegin()
{
    return kCommands;
}
const Command *CommandsEnd()
{
    return std::end(kCommands);
}

const Command *FindCommand(const std::string &name)
{
    const Command *found =
        std::find_if(CommandsBegin(), CommandsEnd(), [&](const Command &c) { return name == c.name; });
    return found == CommandsEnd() ? nullptr : found;
}

int Complain(int status, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    fprintf(stderr, "camSim: ");
    vfprintf(stderr, format, arguments);
    fprintf(stderr, "\n");
    va_end(arguments);
    return status;
}

std::string NearestWord(const std::string &word, const Words &candidates)
{
    std::string nearest = ShortestThatBegins(word, candidates);
    if (!nearest.empty())
        return nearest;
    size_t best = word.size() / 3 + 1; // farther off is no slip of the fingers
    for (const std::string &candidate : candidates) {
        const size_t distance = Distance(word, candidate);
        if (distance <= best && distance < candidate.size()) {
            best = distance - (distance > 0 ? 1 : 0);
            nearest = candidate;
        }
    }
    return nearest;
}

} // namespace sim
