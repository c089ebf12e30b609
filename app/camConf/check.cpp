// SPDX-License-Identifier: MIT
//
// camConf check: what in a file the parser ignores, and what lies outside the range that has an effect.
#include "app/camConf/camConf.h"
#include "base/numbers.h"
#include "config/confText.h"

#include <stdio.h>
#include <string.h>

namespace
{

using namespace camConf;
using kel::ConfKey;
using kel::KeyAction;
using kel::kWindowCells;

constexpr char kDigits[] = "0123456789";

/// Where a finding is, and how many there were.
struct Report {
    const char *path;
    int line = 1;
    int findings = 0;
};

/// Begins the line of a finding; its reason and the line end follow.
void BeginFinding(Report *report, const char *key)
{
    ++report->findings;
    printf("%s:%d: ", report->path, report->line);
    PrintSafely(stdout, key, strlen(key));
    fputs(*key != '\0' ? ": " : "", stdout);
}

void AddFinding(Report *report, const char *key, const char *why)
{
    BeginFinding(report, key);
    puts(why);
}

void CheckNumber(Report *report, const ConfKey &key, const char *value)
{
    const int32_t number = kel::ParseInt32(value);
    const char *digits = value + (*value == '-' || *value == '+');
    const size_t digitCount = strspn(digits, kDigits);
    if (digitCount == 0 || digits[digitCount] != '\0') {
        BeginFinding(report, key.name);
        PrintSafely(stdout, value, strlen(value));
        printf(" is no decimal number, taken as %d\n", number);
    }
    const bool either = key.action == KeyAction::EitherNumber;
    if (either ? number != key.low && number != key.high : number < key.low || number > key.high) {
        BeginFinding(report, key.name);
        printf(either ? "%d is neither %d nor %d\n" : "%d is outside %d to %d\n", number, key.low, key.high);
    }
}

void CheckWindow(Report *report, const ConfKey &key, const char *value)
{
    const size_t length = strlen(value);
    if (length < kWindowCells)
        AddFinding(report, key.name, "fewer than 192 digits, ignored");
    else if (length > kWindowCells)
        AddFinding(report, key.name, "more than 192 digits, the rest is ignored");
    if (length >= kWindowCells && strspn(value, kDigits) < kWindowCells)
        AddFinding(report, key.name, "not all 192 characters are digits");
}

void CheckValue(Report *report, const ConfKey &key, const char *value)
{
    switch (key.action) {
    case KeyAction::Number:
    case KeyAction::EitherNumber:
        CheckNumber(report, key, value);
        break;
    case KeyAction::Window:
        CheckWindow(report, key, value);
        break;
    case KeyAction::LoadDefault:
    case KeyAction::LoadSystem:
        if (strcmp(value, "0") != 0 && strcmp(value, "1") != 0)
            AddFinding(report, key.name, "neither 0 nor 1");
        break;
    case KeyAction::NotStored:
    case KeyAction::LoopBreak:
    case KeyAction::Echo:
    case KeyAction::NoKey:
        AddFinding(report, key.name, "accepted, but nothing is stored");
        break;
    }
}

void CheckLine(Report *report, char *line)
{
    char *rest;
    const char *key = strtok_r(line, kel::kKeyEnds, &rest);
    if (key == nullptr || *key == '#')
        return;
    const char *value = strtok_r(nullptr, kel::kValueEnds, &rest);
    const ConfKey *known = kel::FindKey(key).key;
    if (known == nullptr) {
        AddFinding(report, key, "unknown key, ignored");
        return;
    }
    if (strcmp(known->name, key) != 0) {
        BeginFinding(report, key);
        printf("acts as %s\n", known->name);
    }
    if (value == nullptr)
        AddFinding(report, key, "no value, ignored");
    else
        CheckValue(report, *known, value);
}

} // namespace

int camConf::Check(const Words &words)
{
    Report report{words.operands[0]};
    FILE *file = fopen(report.path, "r");
    if (file == nullptr)
        return Fail(report.path);
    char line[kel::kLineSize];
    bool lineBegins = true;
    while (const size_t length = kel::ReadLine(file, line)) {
        const bool lineEnds = line[length - 1] == '\n';
        if (!lineBegins && length > 1)
            AddFinding(&report, "",
                       "longer than 255 characters, what follows them is taken for a line of its own");
        if (strlen(line) < length)
            AddFinding(&report, "", "holds a zero byte, what follows it is ignored");
        CheckLine(&report, line);
        report.line += lineEnds;
        lineBegins = lineEnds;
    }
    const bool readable = ferror(file) == 0;
    if (!readable)
        Fail(report.path);
    fclose(file);
    return !readable ? kFailed : report.findings > 0 ? kFound : kOk;
}
