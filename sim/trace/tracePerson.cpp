// SPDX-License-Identifier: MIT
//
// The trace for a person. It leaves out what the next line makes clear: pauses become a column, the polls of
// the reflect registers one line, opening and closing the chip-support nodes another. The functions are
// called by one thread at a time.
#include "sim/trace/traceLine.h"

#include "sim/board/camera.h"

#include <stdio.h>
#include <string.h>

namespace sim
{

namespace
{

// What is held back until the next line.
struct Person {
    int fd = -1;
    bool colour = false;
    uint64_t gapNs = 0; ///< pauses since the last line

    uint32_t polls = 0; ///< of the reflect registers that found them busy
    uint64_t pollStartNs = 0;
    uint64_t pollGapNs = 0; ///< pause before the first of them
    uint32_t pollBits = 0;  ///< groups seen busy

    Call rowCall = Call::Open; ///< opens or closes of the chip-support nodes in a row
    uint32_t rowCount = 0;
    char rowFirst = 0; ///< numbers of the first and last node
    char rowLast = 0;
    uint64_t rowStartNs = 0;
    uint64_t rowEndNs = 0;
};

Person gPerson;

constexpr char kPlain[] = "\x1b[0m";
constexpr char kFaint[] = "\x1b[2m";
constexpr char kRed[] = "\x1b[31m";
constexpr char kCyan[] = "\x1b[36m";
constexpr char kBold[] = "\x1b[1m";

const char *Colour(const char *code)
{
    return gPerson.colour ? code : "";
}

const char *DeviceName(const Event &event)
{
    if (strncmp(event.path, "/dev/", 5) == 0)
        return strcmp(event.path, "/dev/dev_i2c") == 0 ? "i2c" : event.path + 5;
    return event.path[0] == '/' ? "file" : NameOf(event.call);
}

void AddBlock(Line *line, const Field &field, const uint8_t *values)
{
    line->Add("%s", field.name);
    for (int i = 0; i < field.registers; ++i)
        line->Add(" %u", values[field.reg + i]);
}

// "AeSwitch on", "MnlAgn 64 (gain 2.000)", "LongExp 0 -> 29 (29 further frames)"
void AddField(Line *line, const Field &field, const RegisterImage &image, bool isWrite)
{
    if (field.registers > 2) {
        AddBlock(line, field, image.after);
        return;
    }
    const uint32_t before = FieldValue(field, image.before);
    const uint32_t after = FieldValue(field, image.after);
    const bool changed = isWrite && before != after;
    char meaning[80];
    DescribeValue(field, after, meaning, sizeof(meaning));
    line->Add("%s%s%s ", Colour(changed ? kBold : ""), field.name, Colour(changed ? kPlain : ""));
    if (field.unit == Unit::Switch) {
        line->Add(changed ? "%s -> %s" : "%.0s%s", before != 0 ? "on" : "off", meaning);
        return;
    }
    if (changed)
        line->Add("%u -> ", before);
    line->Add("%u", after);
    if (meaning[0] != '\0')
        line->Add(" (%s)", meaning);
}

void AddRange(Line *line, const Event &event)
{
    if (event.count == 0)
        line->Add("nothing");
    else if (event.count == 1)
        line->Add("0x%02X      ", event.reg[0]);
    else
        line->Add("0x%02X-0x%02X ", event.reg[0], event.reg[event.count - 1]);
}

void AddTransfer(Line *line, const Event &event)
{
    line->Add("%s ", event.isWrite ? "write" : "read ");
    if (event.result < 0) {
        line->Add("%u register%s of slave 0x%02X", event.targetCount, event.targetCount == 1 ? "" : "s",
                  event.slave);
        if (event.targetCount > 0)
            line->Add(" from 0x%02X", event.reg[0]);
        return;
    }
    AddRange(line, event);
    const RegisterImage image = ImageOf(event);
    const char *comma = " ";
    bool anyChange = false;
    ForEachField(image, [&](const Field &field) {
        line->Add("%s", comma);
        AddField(line, field, image, event.isWrite);
        comma = ", ";
    });
    for (uint32_t i = 0; i < event.count; ++i)
        anyChange = anyChange || event.before[i] != event.after[i];
    if (comma[0] == ' ') // no field has a name here
        for (uint32_t i = 0; i < event.count; ++i)
            line->Add(" 0x%02X", event.after[i]);
    if (event.isWrite && !anyChange)
        line->Add("%s, as before%s", Colour(kFaint), Colour(kPlain));
}

void AddPin(Line *line, const Event &event)
{
    const uint32_t pin = event.words[0];
    const uint32_t level = event.words[1];
    line->Add("%s, pin %u (%s)", event.request, pin, PinName(pin));
    if (event.call == Call::GioSet || event.call == Call::GioConfig) {
        line->Add(": ");
        if (event.result == 0 && event.words[2] != level)
            line->Add("%s -> ", LevelName(pin, event.words[2]));
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
        for (uint32_t i = 0; i < event.wordCount; ++i)
            line->Add("%s0x%08X", i == 0 ? ": " : ", ", event.words[i]);
        if (event.path[0] != '\0' && strncmp(event.path, "/dev/", 5) != 0)
            line->Add(" %s", event.path);
        if (event.text[0] != '\0')
            line->Add(" %s", event.text);
    }
}

void AddFailure(Line *line, const Event &event)
{
    if (event.result < 0) {
        line->Add("%s  failed: %s, %s%s", Colour(kRed), ErrorName(event.error), strerror(event.error),
                  Colour(kPlain));
    }
    if (event.fault != 0)
        line->Add(" %s[fault %u]%s", Colour(kRed), event.fault, Colour(kPlain));
}

// Time, the pauses since the line before, what the call took, and which device.
void BeginLine(Line *line, uint64_t startNs, uint64_t endNs, const char *device)
{
    char paused[24] = "";
    if (gPerson.gapNs > 0)
        snprintf(paused, sizeof(paused), "%.2f", Ms(gPerson.gapNs));
    gPerson.gapNs = 0;
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
void WritePolls(uint64_t startNs, uint64_t nowNs, bool ready)
{
    Line line{};
    startNs = gPerson.polls > 0 ? gPerson.pollStartNs : startNs;
    gPerson.gapNs = gPerson.polls > 0 ? gPerson.pollGapNs : gPerson.gapNs;
    BeginLine(&line, startNs, nowNs, "i2c");
    line.Add("%s  wait  ", Colour(kFaint));
    if (gPerson.polls == 0) {
        line.Add("the camera is ready");
    } else {
        line.Add("the camera takes over ");
        AddGroups(&line, gPerson.pollBits);
        line.Add(": %s after %u polls", ready ? "ready" : "still busy", gPerson.polls + (ready ? 1 : 0));
    }
    line.Add("%s", Colour(kPlain));
    line.Write(gPerson.fd);
    gPerson.polls = 0;
    gPerson.pollBits = 0;
}

void HoldPoll(const Event &event, uint32_t bits)
{
    if (gPerson.polls == 0) {
        gPerson.pollStartNs = event.startNs;
        gPerson.pollGapNs = gPerson.gapNs;
    }
    gPerson.pollBits |= bits;
    ++gPerson.polls;
}

// Opens or closes of the chip-support nodes that came in a row, in one line.
void WriteRow()
{
    Line line{};
    char device[16];
    snprintf(device, sizeof(device), gPerson.rowCount > 1 ? "csl%c-%c" : "csl%c", gPerson.rowFirst,
             gPerson.rowLast);
    BeginLine(&line, gPerson.rowStartNs, gPerson.rowEndNs, device);
    line.Add("%s", NameOf(gPerson.rowCall));
    line.Write(gPerson.fd);
    gPerson.rowCount = 0;
}

bool BelongsToRow(const Event &event)
{
    const bool isOpenOrClose = event.call == Call::Open || event.call == Call::Close;
    return isOpenOrClose && event.result >= 0 && event.fault == 0 && strncmp(event.path, "/dev/csl", 8) == 0;
}

void HoldRow(const Event &event, uint64_t endNs)
{
    if (gPerson.rowCount > 0 && (gPerson.rowCall != event.call || gPerson.gapNs > 0))
        WriteRow();
    const char number = event.path[8];
    if (gPerson.rowCount++ == 0) {
        gPerson.rowCall = event.call;
        gPerson.rowFirst = number;
        gPerson.rowStartNs = event.startNs;
    }
    gPerson.rowLast = number;
    gPerson.rowEndNs = endNs;
}

// What is held back is told before anything else.
void WriteHeld(uint64_t nowNs)
{
    if (gPerson.rowCount > 0)
        WriteRow();
    if (gPerson.polls > 0)
        WritePolls(nowNs, nowNs, false);
}

} // namespace

void WritePersonLine(const Event &event, uint64_t endNs, int fd, bool colour)
{
    gPerson.fd = fd;
    gPerson.colour = colour;
    if (event.call == Call::Sleep && event.result == 0 && event.fault == 0) {
        if (gPerson.rowCount > 0)
            WriteRow();
        gPerson.gapNs += endNs - event.startNs;
        return;
    }
    if (IsReflectRead(event)) {
        const uint32_t bits = event.after[0] | static_cast<uint32_t>(event.after[1]) << 8 |
                              static_cast<uint32_t>(event.after[2]) << 16;
        if (bits == 0)
            WritePolls(event.startNs, endNs, true);
        else
            HoldPoll(event, bits);
        return;
    }
    if (BelongsToRow(event)) {
        HoldRow(event, endNs);
        return;
    }
    WriteHeld(event.startNs);
    Line line{};
    BeginLine(&line, event.startNs, endNs, DeviceName(event));
    AddStory(&line, event);
    AddFailure(&line, event);
    line.Write(gPerson.fd);
}

void WritePersonSummary(const TraceTotals &totals, uint64_t nowNs, int fd)
{
    gPerson.fd = fd;
    WriteHeld(nowNs);
    Line line{};
    line.Add("%9.2f %s%8s %6s%s  end     %llu calls, %llu of them transfers; %.2f ms paused", Ms(nowNs),
             Colour(kFaint), "", "", Colour(kPlain), static_cast<unsigned long long>(totals.calls),
             static_cast<unsigned long long>(totals.transfers), Ms(totals.pausedNs));
    if (totals.faults > 0) {
        line.Add("; %llu fault%s", static_cast<unsigned long long>(totals.faults),
                 totals.faults == 1 ? "" : "s");
    }
    ForEachOpenNode([&line](int node, const char *path) {
        line.Add("%s; left open: %s (descriptor %d)%s", Colour(kRed), path, node, Colour(kPlain));
    });
    line.Write(fd);
}

} // namespace sim
