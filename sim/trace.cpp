// SPDX-License-Identifier: MIT
//
// Writing the trace. The person's version leaves out what the next line makes clear: pauses become a column,
// the polls of the reflect registers become one line, and clock readings appear only when they fail. The JSON
// version leaves out nothing.
#include "sim/trace.h"

#include "sim/board.h"
#include "sim/camera.h"
#include "sim/host.h"
#include "sim/nodes.h"
#include "sim/registers.h"

#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace sim
{

namespace
{

// One line under construction; what does not fit is cut, the line end is kept.
class Line
{
  public:
    __attribute__((format(printf, 2, 3))) void Add(const char *format, ...)
    {
        va_list arguments;
        va_start(arguments, format);
        const int length = vsnprintf(text_ + length_, kRoom - length_, format, arguments);
        va_end(arguments);
        length_ += length < 0 ? 0U : static_cast<size_t>(length);
        length_ = length_ < kRoom ? length_ : kRoom - 1;
    }
    void Quote(const char *words);
    void Write(int fd)
    {
        text_[length_++] = '\n';
        host::WriteAll(fd, text_, length_);
    }

  private:
    static constexpr size_t kRoom = 8000;
    char text_[kRoom + 2];
    size_t length_ = 0;
};

// A text in quotes, as JSON writes it.
void Line::Quote(const char *words)
{
    Add("\"");
    for (; *words != '\0'; ++words) {
        const auto letter = static_cast<unsigned char>(*words);
        if (letter == '"' || letter == '\\') {
            Add("\\%c", letter);
        } else if (letter < 0x20) {
            Add("\\u%04x", letter);
        } else {
            Add("%c", letter);
        }
    }
    Add("\"");
}

constexpr int kRegisterCount = 256;

// The registers of a transfer spread out by address, so that fields can be taken from them.
struct Spread {
    uint8_t before[kRegisterCount + 1] = {};
    uint8_t after[kRegisterCount + 1] = {};
    bool touched[kRegisterCount + 1] = {};
};

struct Trace {
    TraceMode mode = TraceMode::Off;
    int fd = -1;
    bool colour = false;
    uint64_t calls = 0;
    uint64_t transfers = 0;
    uint64_t faults = 0;
    uint64_t pausedNs = 0; ///< in all
    uint64_t gapNs = 0;    ///< since the last line
    uint32_t polls = 0;    ///< of the reflect registers that found them busy
    uint64_t pollStartNs = 0;
    uint64_t pollGapNs = 0;    ///< pause before the first of them
    uint32_t pollBits = 0;     ///< groups seen busy
    Call rowCall = Call::Open; ///< opens or closes of the chip-support nodes in a row
    uint32_t rowCount = 0;
    char rowFirst = 0; ///< numbers of the first and last node
    char rowLast = 0;
    uint64_t rowStartNs = 0;
    uint64_t rowEndNs = 0;
};

Trace gTrace;
uint32_t gTraceLock = 0;

constexpr char kPlain[] = "\x1b[0m";
constexpr char kFaint[] = "\x1b[2m";
constexpr char kRed[] = "\x1b[31m";
constexpr char kCyan[] = "\x1b[36m";
constexpr char kBold[] = "\x1b[1m";

const char *Colour(const char *code)
{
    return gTrace.colour ? code : "";
}

double Ms(uint64_t ns)
{
    return static_cast<double>(ns) / 1e6;
}

const char *ErrorName(int error)
{
    const char *name = strerrorname_np(error);
    return name != nullptr ? name : "unknown error";
}

const char *DeviceName(const Event &event)
{
    if (strncmp(event.path, "/dev/", 5) == 0) {
        return strcmp(event.path, "/dev/dev_i2c") == 0 ? "i2c" : event.path + 5;
    }
    return event.path[0] == '/' ? "file" : NameOf(event.call);
}

// ------------------------------------------------------------------------------------------ register stories

void SpreadRegisters(const Event &event, Spread *spread)
{
    *spread = {};
    for (uint32_t i = 0; i < event.count; ++i) {
        spread->before[event.reg[i]] = event.before[i];
        spread->after[event.reg[i]] = event.after[i];
        spread->touched[event.reg[i]] = true;
    }
}

bool IsTouched(const Spread &spread, const Field &field)
{
    for (int i = 0; i < field.registers; ++i) {
        if (!spread.touched[field.reg + i]) {
            return false;
        }
    }
    return true;
}

// Registers that a field of the map names and that nothing wider has named before.
template <class Each>
void ForEachField(const Spread &spread, Each each)
{
    bool told[kRegisterCount + 1] = {};
    for (int wide = 1; wide >= 0; --wide) {
        for (const Field *field = FieldsBegin(); field != FieldsEnd(); ++field) {
            if ((field->registers > 1) != (wide == 1) || !IsTouched(spread, *field) || told[field->reg]) {
                continue;
            }
            each(*field);
            if (wide == 1) {
                memset(told + field->reg, true, field->registers);
            }
        }
    }
}

void AddBlock(Line *line, const Field &field, const uint8_t *values)
{
    line->Add("%s", field.name);
    for (int i = 0; i < field.registers; ++i) {
        line->Add(" %u", values[field.reg + i]);
    }
}

// "AeSwitch on", "MnlAgn 64 (gain 2.000)", "LongExp 0 -> 29 (29 further frames)"
void AddField(Line *line, const Field &field, const Spread &spread, bool isWrite)
{
    if (field.registers > 2) {
        AddBlock(line, field, spread.after);
        return;
    }
    const uint32_t before = FieldValue(field, spread.before);
    const uint32_t after = FieldValue(field, spread.after);
    const bool changed = isWrite && before != after;
    char meaning[80];
    DescribeValue(field, after, meaning, sizeof(meaning));
    line->Add("%s%s%s ", Colour(changed ? kBold : ""), field.name, Colour(changed ? kPlain : ""));
    if (field.unit == Unit::Switch) {
        line->Add(changed ? "%s -> %s" : "%.0s%s", before != 0 ? "on" : "off", meaning);
        return;
    }
    if (changed) {
        line->Add("%u -> ", before);
    }
    line->Add("%u", after);
    if (meaning[0] != '\0') {
        line->Add(" (%s)", meaning);
    }
}

void AddRange(Line *line, const Event &event)
{
    if (event.count == 0) {
        line->Add("nothing");
    } else if (event.count == 1) {
        line->Add("0x%02X      ", event.reg[0]);
    } else {
        line->Add("0x%02X-0x%02X ", event.reg[0], event.reg[event.count - 1]);
    }
}

void AddTransfer(Line *line, const Event &event)
{
    line->Add("%s ", event.isWrite ? "write" : "read ");
    if (event.result < 0) {
        line->Add("%u register%s of slave 0x%02X", event.targetCount, event.targetCount == 1 ? "" : "s",
                  event.slave);
        if (event.targetCount > 0) {
            line->Add(" from 0x%02X", event.reg[0]);
        }
        return;
    }
    AddRange(line, event);
    Spread spread;
    SpreadRegisters(event, &spread);
    const char *comma = " ";
    bool anyChange = false;
    ForEachField(spread, [&](const Field &field) {
        line->Add("%s", comma);
        AddField(line, field, spread, event.isWrite);
        comma = ", ";
    });
    for (uint32_t i = 0; i < event.count; ++i) {
        anyChange = anyChange || event.before[i] != event.after[i];
    }
    if (comma[0] == ' ') { // no field has a name here
        for (uint32_t i = 0; i < event.count; ++i) {
            line->Add(" 0x%02X", event.after[i]);
        }
    }
    if (event.isWrite && !anyChange) {
        line->Add("%s, as before%s", Colour(kFaint), Colour(kPlain));
    }
}

// --------------------------------------------------------------------------------------------- other stories

const char *PinName(uint32_t pin)
{
    switch (pin) {
    case kPinIrLed:
        return "IR LEDs";
    case kPinIrCut:
        return "IR-cut filter";
    case kPinAlarm:
        return "alarm input";
    case kPinReset:
        return "sensor reset line";
    default:
        return "a pin without a name";
    }
}

const char *LevelName(uint32_t pin, uint32_t level)
{
    switch (pin) {
    case kPinIrLed:
        return level == 0 ? "on" : "off";
    case kPinIrCut:
        return level == 0 ? "IR_CUT (day)" : "IR_PASS (night)";
    case kPinReset:
        return level == 0 ? "held in reset" : "running";
    default:
        return level == 0 ? "low" : "high";
    }
}

void AddPin(Line *line, const Event &event)
{
    const uint32_t pin = event.words[0];
    const uint32_t level = event.words[1];
    line->Add("%s, pin %u (%s)", event.request, pin, PinName(pin));
    if (event.call == Call::GioSet || event.call == Call::GioConfig) {
        line->Add(": ");
        if (event.result == 0 && event.words[2] != level) {
            line->Add("%s -> ", LevelName(pin, event.words[2]));
        }
        line->Add("%s", LevelName(pin, level));
    }
}

void AddStory(Line *line, const Event &event)
{
    switch (event.call) {
    case Call::I2cSelect:
        line->Add("select slave 0x%02X%s", event.slave,
                  event.slave == kCameraSlave ? ", the camera processor" : "");
        break;
    case Call::I2cRead:
    case Call::I2cWrite:
        AddTransfer(line, event);
        break;
    case Call::GioSet:
    case Call::GioAlarm:
    case Call::GioControl:
    case Call::GioConfig:
        AddPin(line, event);
        break;
    case Call::Mmap:
        line->Add("map %u KiB at 0x%08X", event.words[1] / 1024, event.words[0]);
        break;
    case Call::Munmap:
        line->Add("unmap %u KiB", event.words[1] / 1024);
        break;
    default:
        line->Add("%s", event.request[0] != '\0' ? event.request : NameOf(event.call));
        for (uint32_t i = 0; i < event.wordCount; ++i) {
            line->Add("%s0x%08X", i == 0 ? ": " : ", ", event.words[i]);
        }
        if (event.path[0] != '\0' && strncmp(event.path, "/dev/", 5) != 0) {
            line->Add(" %s", event.path);
        }
        if (event.text[0] != '\0') {
            line->Add(" %s", event.text);
        }
    }
}

void AddFailure(Line *line, const Event &event)
{
    if (event.result < 0) {
        line->Add("%s  failed: %s, %s%s", Colour(kRed), ErrorName(event.error), strerror(event.error),
                  Colour(kPlain));
    }
    if (event.fault != 0) {
        line->Add(" %s[fault %u]%s", Colour(kRed), event.fault, Colour(kPlain));
    }
}

// --------------------------------------------------------------------------------------------- for a person

// Time, the pauses since the line before, what the call took, and which device.
void BeginLine(Line *line, uint64_t startNs, uint64_t endNs, const char *device)
{
    char paused[24] = "";
    if (gTrace.gapNs > 0) {
        snprintf(paused, sizeof(paused), "%.2f", Ms(gTrace.gapNs));
    }
    gTrace.gapNs = 0;
    line->Add("%9.2f %s%8s %6.0f%s  %s%-7s%s ", Ms(startNs), Colour(kFaint), paused,
              static_cast<double>(endNs - startNs) / 1e3, Colour(kPlain), Colour(kCyan), device,
              Colour(kPlain));
}

bool IsReflectRead(const Event &event)
{
    return event.call == Call::I2cRead && event.result == 0 && event.count == 3 &&
           event.reg[0] == kReflectFirst;
}

void AddGroups(Line *line, uint32_t bits)
{
    const char *comma = "";
    for (int group = 0; group < kReflectGroups; ++group) {
        if ((bits >> (group + 2) & 1) != 0) {
            uint8_t first = 0;
            uint8_t last = 0;
            ReflectGroupRange(group, &first, &last);
            line->Add("%s0x%02X-0x%02X", comma, first, last);
            comma = ", ";
        }
    }
    line->Add("%s", comma[0] == '\0' ? "an unknown group" : "");
}

// The polls that found the camera busy, in one line, when something else comes or the camera is ready.
void TellPolls(uint64_t startNs, uint64_t nowNs, bool ready)
{
    Line line;
    startNs = gTrace.polls > 0 ? gTrace.pollStartNs : startNs;
    gTrace.gapNs = gTrace.polls > 0 ? gTrace.pollGapNs : gTrace.gapNs;
    BeginLine(&line, startNs, nowNs, "i2c");
    line.Add("%s  wait  ", Colour(kFaint));
    if (gTrace.polls == 0) {
        line.Add("the camera is ready");
    } else {
        line.Add("the camera takes over ");
        AddGroups(&line, gTrace.pollBits);
        line.Add(": %s after %u polls", ready ? "ready" : "still busy", gTrace.polls + (ready ? 1 : 0));
    }
    line.Add("%s", Colour(kPlain));
    line.Write(gTrace.fd);
    gTrace.polls = 0;
    gTrace.pollBits = 0;
}

void HoldPoll(const Event &event, uint32_t bits)
{
    if (gTrace.polls == 0) {
        gTrace.pollStartNs = event.startNs;
        gTrace.pollGapNs = gTrace.gapNs;
    }
    gTrace.pollBits |= bits;
    ++gTrace.polls;
}

// Opens or closes of the chip-support nodes that came in a row, in one line.
void TellRow()
{
    Line line;
    char device[16];
    snprintf(device, sizeof(device), gTrace.rowCount > 1 ? "csl%c-%c" : "csl%c", gTrace.rowFirst,
             gTrace.rowLast);
    BeginLine(&line, gTrace.rowStartNs, gTrace.rowEndNs, device);
    line.Add("%s", NameOf(gTrace.rowCall));
    line.Write(gTrace.fd);
    gTrace.rowCount = 0;
}

bool BelongsToRow(const Event &event)
{
    const bool isOpenOrClose = event.call == Call::Open || event.call == Call::Close;
    return isOpenOrClose && event.result >= 0 && event.fault == 0 && strncmp(event.path, "/dev/csl", 8) == 0;
}

void HoldRow(const Event &event, uint64_t endNs)
{
    if (gTrace.rowCount > 0 && (gTrace.rowCall != event.call || gTrace.gapNs > 0)) {
        TellRow();
    }
    const char number = event.path[8];
    if (gTrace.rowCount++ == 0) {
        gTrace.rowCall = event.call;
        gTrace.rowFirst = number;
        gTrace.rowStartNs = event.startNs;
    }
    gTrace.rowLast = number;
    gTrace.rowEndNs = endNs;
}

// What is held back is told before anything else.
void TellHeld(uint64_t nowNs)
{
    if (gTrace.rowCount > 0) {
        TellRow();
    }
    if (gTrace.polls > 0) {
        TellPolls(nowNs, nowNs, false);
    }
}

void TellPerson(const Event &event, uint64_t endNs)
{
    if (event.call == Call::Sleep && event.result == 0 && event.fault == 0) {
        if (gTrace.rowCount > 0) {
            TellRow();
        }
        gTrace.gapNs += endNs - event.startNs;
        return;
    }
    if (IsReflectRead(event)) {
        const uint32_t bits = event.after[0] | static_cast<uint32_t>(event.after[1]) << 8 |
                              static_cast<uint32_t>(event.after[2]) << 16;
        if (bits == 0) {
            TellPolls(event.startNs, endNs, true);
        } else {
            HoldPoll(event, bits);
        }
        return;
    }
    if (BelongsToRow(event)) {
        HoldRow(event, endNs);
        return;
    }
    TellHeld(event.startNs);
    Line line;
    BeginLine(&line, event.startNs, endNs, DeviceName(event));
    AddStory(&line, event);
    AddFailure(&line, event);
    line.Write(gTrace.fd);
}

// -------------------------------------------------------------------------------------------- for a program

void AddJsonFields(Line *line, const Event &event)
{
    Spread spread;
    SpreadRegisters(event, &spread);
    const char *comma = "";
    line->Add(",\"fields\":[");
    ForEachField(spread, [&](const Field &field) {
        line->Add("%s{\"name\":\"%s\",", comma, field.name);
        comma = ",";
        if (field.registers > 2) {
            for (int i = 0; i < field.registers; ++i) {
                line->Add("%s%u", i == 0 ? "\"values\":[" : ",", spread.after[field.reg + i]);
            }
            line->Add("]}");
            return;
        }
        const uint32_t value = FieldValue(field, spread.after);
        char meaning[80];
        DescribeValue(field, value, meaning, sizeof(meaning));
        if (event.isWrite) {
            line->Add("\"before\":%u,", FieldValue(field, spread.before));
        }
        line->Add("\"value\":%u%s%s%s}", value, meaning[0] != '\0' ? ",\"meaning\":\"" : "", meaning,
                  meaning[0] != '\0' ? "\"" : "");
    });
    line->Add("]");
}

void AddJsonTransfer(Line *line, const Event &event)
{
    line->Add(",\"slave\":%u,\"count\":%u,\"dataSize\":%u", event.slave, event.targetCount, event.dataSize);
    if (event.targetCount > 0) {
        line->Add(",\"first\":%u", event.reg[0]);
    }
    if (event.result < 0) {
        return;
    }
    line->Add(",\"registers\":[");
    for (uint32_t i = 0; i < event.count; ++i) {
        line->Add("%s{\"address\":%u,", i == 0 ? "" : ",", event.reg[i]);
        if (event.isWrite) {
            line->Add("\"before\":%u,", event.before[i]);
        }
        line->Add("\"value\":%u}", event.after[i]);
    }
    line->Add("]");
    AddJsonFields(line, event);
}

void AddJsonDetails(Line *line, const Event &event)
{
    switch (event.call) {
    case Call::I2cRead:
    case Call::I2cWrite:
        AddJsonTransfer(line, event);
        break;
    case Call::I2cSelect:
        line->Add(",\"slave\":%u", event.slave);
        break;
    case Call::GioSet:
    case Call::GioAlarm:
    case Call::GioControl:
    case Call::GioConfig:
        line->Add(",\"pin\":%u,\"signal\":\"%s\",\"level\":%u,\"meaning\":\"%s\"", event.words[0],
                  PinName(event.words[0]), event.words[1], LevelName(event.words[0], event.words[1]));
        break;
    case Call::Sleep:
        line->Add(",\"us\":%.3f", event.sleepUs);
        break;
    default:
        for (uint32_t i = 0; i < event.wordCount; ++i) {
            line->Add("%s%u", i == 0 ? ",\"words\":[" : ",", event.words[i]);
        }
        line->Add("%s", event.wordCount > 0 ? "]" : "");
    }
}

void TellProgram(const Event &event, uint64_t endNs)
{
    Line line;
    line.Add("{\"t\":%.6f,\"took\":%.6f,\"pid\":%u,\"call\":\"%s\"", Ms(event.startNs) / 1e3,
             Ms(endNs - event.startNs) / 1e3, host::ProcessId(), NameOf(event.call));
    if (event.path[0] != '\0') {
        line.Add(",\"path\":");
        line.Quote(event.path);
    }
    if (event.request[0] != '\0') {
        line.Add(",\"request\":\"%s\"", event.request);
    }
    if (event.text[0] != '\0') {
        line.Add(",\"text\":");
        line.Quote(event.text);
    }
    AddJsonDetails(&line, event);
    line.Add(",\"result\":%ld", event.result);
    if (event.result < 0) {
        line.Add(",\"errno\":\"%s\"", ErrorName(event.error));
    }
    if (event.fault != 0) {
        line.Add(",\"fault\":%u", event.fault);
    }
    line.Add("}");
    line.Write(gTrace.fd);
}

// ---------------------------------------------------------------------------------------------- the whole
// run

void CountEvent(const Event &event, uint64_t endNs)
{
    ++gTrace.calls;
    gTrace.transfers += event.call == Call::I2cRead || event.call == Call::I2cWrite ? 1U : 0U;
    gTrace.faults += event.fault != 0 ? 1U : 0U;
    gTrace.pausedNs += event.call == Call::Sleep ? endNs - event.startNs : 0U;
}

template <class Each>
void ForEachOpenNode(Each each)
{
    for (int fd = 0; fd < 1024; ++fd) {
        if (const Node *node = NodeOf(fd)) {
            each(fd, node->path);
        }
    }
}

void SumUpForPerson(Line *line, uint64_t nowNs)
{
    line->Add("%9.2f %s%8s %6s%s  end     %llu calls, %llu of them transfers; %.2f ms paused", Ms(nowNs),
              Colour(kFaint), "", "", Colour(kPlain), static_cast<unsigned long long>(gTrace.calls),
              static_cast<unsigned long long>(gTrace.transfers), Ms(gTrace.pausedNs));
    if (gTrace.faults > 0) {
        line->Add("; %llu fault%s", static_cast<unsigned long long>(gTrace.faults),
                  gTrace.faults == 1 ? "" : "s");
    }
    ForEachOpenNode([line](int fd, const char *path) {
        line->Add("%s; left open: %s (descriptor %d)%s", Colour(kRed), path, fd, Colour(kPlain));
    });
}

void SumUpForProgram(Line *line, uint64_t nowNs)
{
    line->Add("{\"t\":%.6f,\"pid\":%u,\"call\":\"exit\",\"calls\":%llu,\"transfers\":%llu,\"faults\":%llu,"
              "\"open\":[",
              Ms(nowNs) / 1e3, host::ProcessId(), static_cast<unsigned long long>(gTrace.calls),
              static_cast<unsigned long long>(gTrace.transfers),
              static_cast<unsigned long long>(gTrace.faults));
    const char *comma = "";
    ForEachOpenNode([line, &comma](int, const char *path) {
        line->Add("%s", comma);
        line->Quote(path);
        comma = ",";
    });
    line->Add("]}");
}

} // namespace

void StartTrace()
{
    const char *mode = getenv(kTraceVariable);
    const char *file = getenv(kTraceFileVariable);
    if (mode == nullptr) {
        return;
    }
    const int fd = file != nullptr ? host::Open(file, O_WRONLY | O_CREAT | O_APPEND, 0644) : STDERR_FILENO;
    // Out of the program's way: it gets the descriptors that it would get on the board.
    gTrace.fd = fd < 0 ? -1 : host::MoveUp(fd);
    if (file != nullptr && fd >= 0) {
        host::Close(fd);
    }
    if (gTrace.fd < 0) {
        return;
    }
    gTrace.colour = strcmp(mode, "colour") == 0;
    gTrace.mode = strcmp(mode, "json") == 0 ? TraceMode::Json : TraceMode::Human;
}

bool IsTracing()
{
    return gTrace.mode != TraceMode::Off;
}

void TraceEvent(const Event &event, uint64_t endNs)
{
    const WordLock lock(&gTraceLock);
    CountEvent(event, endNs);
    if (gTrace.mode == TraceMode::Json) {
        TellProgram(event, endNs);
    } else {
        TellPerson(event, endNs);
    }
}

void EndTrace()
{
    if (!IsTracing()) {
        return;
    }
    const WordLock lock(&gTraceLock);
    Line line;
    if (gTrace.mode == TraceMode::Json) {
        SumUpForProgram(&line, BoardNs());
    } else {
        TellHeld(BoardNs());
        SumUpForPerson(&line, BoardNs());
    }
    line.Write(gTrace.fd);
}

} // namespace sim
