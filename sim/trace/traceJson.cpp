// SPDX-License-Identifier: MIT
//
// The trace for a program: one JSON object a line for each call, and one at the end.
#include "sim/trace/traceLine.h"

#include "sim/board/host.h"

namespace sim
{

namespace
{

void AddJsonFields(Line *line, const Event &event)
{
    const RegisterImage image = ImageOf(event);
    const char *comma = "";
    line->Add(",\"fields\":[");
    ForEachField(image, [&](const Field &field) {
        line->Add("%s{\"name\":\"%s\",", comma, field.name);
        comma = ",";
        if (field.registers > 2) {
            for (int i = 0; i < field.registers; ++i)
                line->Add("%s%u", i == 0 ? "\"values\":[" : ",", image.after[field.reg + i]);
            line->Add("]}");
            return;
        }
        const uint32_t value = FieldValue(field, image.after);
        char meaning[80];
        DescribeValue(field, value, meaning, sizeof(meaning));
        if (event.isWrite)
            line->Add("\"before\":%u,", FieldValue(field, image.before));
        line->Add("\"value\":%u%s%s%s}", value, meaning[0] != '\0' ? ",\"meaning\":\"" : "", meaning,
                  meaning[0] != '\0' ? "\"" : "");
    });
    line->Add("]");
}

void AddJsonTransfer(Line *line, const Event &event)
{
    line->Add(",\"slave\":%u,\"count\":%u,\"dataSize\":%u", event.slave, event.targetCount, event.dataSize);
    if (event.targetCount > 0)
        line->Add(",\"first\":%u", event.reg[0]);
    if (event.result < 0)
        return;
    line->Add(",\"registers\":[");
    for (uint32_t i = 0; i < event.count; ++i) {
        line->Add("%s{\"address\":%u,", i == 0 ? "" : ",", event.reg[i]);
        if (event.isWrite)
            line->Add("\"before\":%u,", event.before[i]);
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
        for (uint32_t i = 0; i < event.wordCount; ++i)
            line->Add("%s%u", i == 0 ? ",\"words\":[" : ",", event.words[i]);
        line->Add("%s", event.wordCount > 0 ? "]" : "");
    }
}

} // namespace

void WriteJsonLine(const Event &event, uint64_t endNs, int fd)
{
    Line line;
    line.Add("{\"t\":%.6f,\"took\":%.6f,\"pid\":%u,\"call\":\"%s\"", Ms(event.startNs) / 1e3,
             Ms(endNs - event.startNs) / 1e3, event.process != 0 ? event.process : host::ProcessId(),
             NameOf(event.call));
    if (event.path[0] != '\0') {
        line.Add(",\"path\":");
        line.Quote(event.path);
    }
    if (event.request[0] != '\0')
        line.Add(",\"request\":\"%s\"", event.request);
    if (event.text[0] != '\0') {
        line.Add(",\"text\":");
        line.Quote(event.text);
    }
    AddJsonDetails(&line, event);
    line.Add(",\"result\":%ld", event.result);
    if (event.result < 0)
        line.Add(",\"errno\":\"%s\"", ErrorName(event.error));
    if (event.fault != 0)
        line.Add(",\"fault\":%u", event.fault);
    line.Add("}");
    line.Write(fd);
}

void WriteJsonSummary(const TraceTotals &totals, uint64_t nowNs, int fd)
{
    Line line;
    line.Add("{\"t\":%.6f,\"pid\":%u,\"call\":\"exit\",\"calls\":%llu,\"transfers\":%llu,\"faults\":%llu,"
             "\"open\":[",
             Ms(nowNs) / 1e3, host::ProcessId(), static_cast<unsigned long long>(totals.calls),
             static_cast<unsigned long long>(totals.transfers),
             static_cast<unsigned long long>(totals.faults));
    const char *comma = "";
    ForEachOpenNode([&line, &comma](int, const char *path) {
        line.Add("%s", comma);
        line.Quote(path);
        comma = ",";
    });
    line.Add("]}");
    line.Write(fd);
}

} // namespace sim
