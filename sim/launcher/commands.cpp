// SPDX-License-Identifier: MIT
//
// Looking at a board and changing it by hand: registers, pins, scene, fault rules.
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

// ---- Dump

void PrintTable(const uint8_t *registers)
{
    printf("      0  1  2  3  4  5  6  7  8  9  A  B  C  D  E  F\n");
    for (int row = 0; row < kRegisters; row += 16) {
        printf("0x%02X ", row);
        for (int column = 0; column < 16; ++column)
            printf(" %02X", registers[row + column]);
        printf("\n");
    }
}

std::string BitsOf(const Field &field)
{
    if (field.registers > 1)
        return "";
    const std::string high = std::to_string(field.high);
    return field.high == field.low             ? high
           : field.high == 7 && field.low == 0 ? ""
                                               : high + ":" + std::to_string(field.low);
}

std::string ValueOf(const Field &field, const uint8_t *registers)
{
    std::string text;
    if (field.registers <= 2)
        return std::to_string(FieldValue(field, registers));
    for (int i = 0; i < field.registers; ++i)
        text += (i == 0 ? "" : " ") + std::to_string(registers[field.reg + i]);
    return text;
}

void PrintField(const Field &field, const uint8_t *registers, bool firstOfRegister)
{
    char address[16] = "";
    char content[8] = "";
    if (firstOfRegister) {
        snprintf(address, sizeof(address), field.registers > 1 ? "0x%02X-0x%02X" : "0x%02X", field.reg,
                 field.reg + field.registers - 1);
        snprintf(content, sizeof(content), field.registers > 1 ? "%.0d" : "0x%02X",
                 field.registers > 1 ? 0 : registers[field.reg]);
    }
    char value[80] = "";
    if (field.registers <= 2)
        DescribeValue(field, FieldValue(field, registers), value, sizeof(value));
    std::string note = value;
    note += note.empty() || field.meaning[0] == '\0' ? "" : "; ";
    note += field.meaning;
    printf("%-9s  %-4s  %-3s  %-12s %6s%s%s\n", address, content, BitsOf(field).c_str(), field.name,
           ValueOf(field, registers).c_str(), note.empty() ? "" : "  ", note.c_str());
}

int Dump(const Words &words)
{
    uint8_t registers[kRegisters + 1];
    if (words.size() > 1 || (words.size() == 1 && words[0] != "--hex"))
        return Complain(kUsageStatus, "dump takes --hex or nothing; `camSim peek NAME` shows a single field");
    CopyRegisters(registers);
    if (!words.empty()) {
        PrintTable(registers);
        return 0;
    }
    bool told[kRegisters + 64] = {};
    printf("Register   Byte  Bits Field         Value  Meaning\n");
    for (int reg = 0; reg < kRegisters; ++reg) {
        bool first = true;
        for (const Field *field = FieldsBegin(); field != FieldsEnd(); ++field) {
            // Blocks whose registers have fields of their own are shown by those.
            const bool isBlockOfFields = field->registers > 2 && strcmp(field->name, "Blk55") == 0;
            if (field->reg == reg && !isBlockOfFields) {
                PrintField(*field, registers, first);
                first = false;
                std::fill_n(told + reg, field->registers, true);
            }
        }
        if (!told[reg] && registers[reg] != 0)
            printf("0x%02X       0x%02X\n", reg, registers[reg]);
    }
    printf("Registers that are not listed have no name and hold 0.\n");
    return 0;
}

// ---- Peek, poke

// A field by name, or a whole register by address.
struct Target {
    const Field *field = nullptr;
    uint32_t reg = 0;
};

Words FieldNames()
{
    Words names;
    for (const Field *field = FieldsBegin(); field != FieldsEnd(); ++field)
        names.push_back(field->name);
    return names;
}

bool FindTarget(const std::string &word, Target *target)
{
    target->field = FindField(word.c_str());
    if (target->field != nullptr || ParseNumber(word, 0, kRegisters - 1, &target->reg))
        return true;
    const std::string nearest = NearestWord(word, FieldNames());
    Complain(kUsageStatus,
             "there is no register '%s'%s%s%s; `camSim dump` lists all names, addresses go from 0x00 to 0xFF",
             word.c_str(), nearest.empty() ? "" : "; did you mean ", nearest.c_str(),
             nearest.empty() ? "" : "?");
    return false;
}

int Peek(const Words &words)
{
    uint8_t registers[kRegisters + 1];
    if (words.empty()) {
        return Complain(kUsageStatus,
                        "peek takes a field name or an address, as in `camSim peek MnlAgn 0x37`");
    }
    CopyRegisters(registers);
    for (const std::string &word : words) {
        Target target;
        if (!FindTarget(word, &target))
            return kUsageStatus;
        if (target.field != nullptr)
            printf("%s\n", ValueOf(*target.field, registers).c_str());
        else
            printf("0x%02X\n", registers[target.reg]);
    }
    return 0;
}

// As a write over the bus, but at once: no register stays busy.
void WriteNow(uint32_t reg, uint32_t value)
{
    WriteRegister(*gBoard.state, static_cast<uint8_t>(reg), static_cast<uint8_t>(value), 0, 1.0);
}

void WriteField(const Field &field, uint32_t value)
{
    const uint32_t mask = ((2U << (field.high - field.low)) - 1U) << field.low;
    const uint32_t old = gBoard.state->registers[field.reg];
    WriteNow(field.reg, (old & ~mask) | (value << field.low));
    if (field.registers == 2)
        WriteNow(field.reg + 1U, value >> 8);
}

int Poke(const Words &words)
{
    Target target;
    if (words.size() != 2) {
        return Complain(kUsageStatus, "poke takes a register and a value, as in `camSim poke MnlAgn 64` or "
                                      "`camSim poke 0x37 0x40`");
    }
    if (!FindTarget(words[0], &target))
        return kUsageStatus;
    const uint32_t reg = target.field != nullptr ? target.field->reg : target.reg;
    if (reg >= kReadoutsFirst && reg <= kReflectLast) {
        return Complain(kUsageStatus,
                        "%s is a readout, which follows the settings and the scene: try `camSim scene "
                        "light=20`, or poke MeExpTim, MnlAgn, MnlDgn, MwbR or MwbB",
                        words[0].c_str());
    }
    if (target.field != nullptr && target.field->registers > 2) {
        return Complain(kUsageStatus, "%s has %u registers from 0x%02X: poke them one by one",
                        words[0].c_str(), target.field->registers, reg);
    }
    const uint32_t most =
        target.field != nullptr ? (2U << (target.field->high - target.field->low)) - 1U : 0xFF;
    uint32_t value = 0;
    if (!ParseNumber(words[1], 0, most, &value)) {
        return Complain(kUsageStatus, "'%s' is no value for %s: it takes 0 to %u (0x%X)", words[1].c_str(),
                        words[0].c_str(), most, most);
    }
    const BoardLock lock;
    UpdateCamera(*gBoard.state, host::MonotonicNs(), 1.0);
    if (target.field != nullptr)
        WriteField(*target.field, value);
    else
        WriteNow(reg, value);
    return 0;
}

// ---- Pins

struct Signal {
    const char *name;
    uint32_t pin;
    const char *low;
    const char *high;
    const char *meaning;
};

constexpr Signal kSignals[] = {
    {"led", kPinIrLed, "on", "off", "IR LEDs"},
    {"ircut", kPinIrCut, "IR_CUT", "IR_PASS", "IR-cut filter; IR_CUT is day, IR_PASS night"},
    {"alarm", kPinAlarm, "low", "high", "alarm input; high is an alarm"},
    {"reset", kPinReset, "held", "running", "sensor reset line"},
};

const Signal *FindSignal(uint32_t pin)
{
    const Signal *found =
        std::find_if(std::begin(kSignals), std::end(kSignals), [&](const Signal &s) { return s.pin == pin; });
    return found == std::end(kSignals) ? nullptr : found;
}

struct PinLevel {
    uint32_t pin;
    uint32_t level;
};

// SIGNAL=LEVEL: a signal's name or a pin's number; 0, 1, or the word that is shown for it.
bool ParsePinLevel(const std::string &word, PinLevel *wanted)
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
    wanted->level = signal != nullptr && level == signal->high ? 1 : 0;
    return isPin && ((signal != nullptr && (level == signal->low || level == signal->high)) ||
                     ParseNumber(level, 0, 1, &wanted->level));
}

void PrintPins()
{
    const BoardLock lock;
    printf("Signal  Pin  Level  Meaning\n");
    for (const Signal &signal : kSignals) {
        const uint8_t level = gBoard.state->pins[signal.pin];
        printf("%-6s  %3u  %5u  %-13s  (%s)\n", signal.name, signal.pin, level,
               level == 0 ? signal.low : signal.high, signal.meaning);
    }
    for (uint32_t pin = 0; pin < kPins; ++pin)
        if (FindSignal(pin) == nullptr && gBoard.state->pins[pin] != 0)
            printf("%-6s  %3u  %5u\n", "", pin, gBoard.state->pins[pin]);
}

std::string PinWords()
{
    std::string words;
    for (const Signal &signal : kSignals)
        words += std::string(signal.name) + "=" + signal.low + " or " + signal.high + ", ";
    return words;
}

int Pins(const Words &words)
{
    std::vector<PinLevel> wanted;
    for (const std::string &word : words) {
        PinLevel pin = {};
        if (!ParsePinLevel(word, &pin))
            return Complain(kUsageStatus, "'%s' sets no pin: write %sor a pin number below %d, and 0 or 1",
                            word.c_str(), PinWords().c_str(), kPins);
        wanted.push_back(pin);
    }
    if (words.empty())
        PrintPins();
    const BoardLock lock;
    for (const PinLevel &pin : wanted)
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
        PrintField(*FindField(name), registers, true);
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
                "'%s' does not describe a scene: write light=LUX (0 to 200000), temperature=KELVIN (1000 to "
                "20000), sensor=6 or 7, reflect=TIME (as 12ms)",
                word.c_str());
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

constexpr char kDumpHelp[] =
    "Shows every register that has a name, with its fields, their values and what they mean.\n"
    "--hex shows all 256 registers as a table of bytes instead.\n";
constexpr char kPeekHelp[] =
    "Prints the values alone, one a line: decimal for a field, hexadecimal for an address.\n"
    "Example: camSim peek ExpTime AnlGain 0x37\n";
constexpr char kPokeHelp[] =
    "Writes as the bus would, but at once: no register stays busy. Live readouts cannot be poked.\n"
    "Examples: camSim poke AeSwitch 0; camSim poke 0x37 0x40\n";
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

constexpr Command kCommands[] = {
    {"dump", "[--hex]", "all registers of the camera, decoded", kDumpHelp, Dump},
    {"peek", "NAME|ADDRESS...", "values of fields or registers", kPeekHelp, Peek},
    {"poke", "NAME|ADDRESS VALUE", "sets a field or register", kPokeHelp, Poke},
    {"pins", "[SIGNAL=LEVEL...]", "the board's pins, or sets them", kPinsHelp, Pins},
    {"scene", "[KEY=VALUE...]", "the light on the scene, or sets it", kSceneHelp, ShowOrSetScene},
    {"fault", "RULE...|list|clear [NUMBER]", "makes device calls fail", "", Fault},
    {"reset", "", "makes the board as new", kResetHelp, Reset},
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
