// SPDX-License-Identifier: MIT
//
// camConf check: what in a file the parser ignores, and what lies outside the range that has an effect.
#include "app/camConf/camConf.h"
#include "base/numbers.h"
#include "config/confText.h"

#include <stdarg.h>
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
    int lineOf[sizeof(kel::kConfKeys) / sizeof(kel::kConfKeys[0])] = {}; ///< that set a key last; 0 for none
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

void CheckValue(Report *report, const ConfKey &key, const char *value)
{
    const Objections objections = ObjectTo(key, value);
    for (int i = 0; i < objections.count; ++i)
        AddFinding(report, key.name, objections.text[i]);
}

/// Of the lines that set a key the last one counts.
void CheckRepetition(Report *report, const ConfKey &key)
{
    int &before = report->lineOf[&key - kel::kConfKeys];
    if (before != 0) {
        BeginFinding(report, key.name);
        printf("set again, line %d does not count\n", before);
    }
    if (key.IsStored())
        before = report->line;
}

void CheckLine(Report *report, char *line)
{
    char *rest = line;
    const char *key = kel::NextWord(&rest, kel::kKeyEnds);
    if (key == nullptr || *key == '#')
        return;
    const char *value = kel::NextWord(&rest, kel::kValueEnds);
    const ConfKey *known = kel::FindKey(key).key;
    if (known == nullptr) {
        AddFinding(report, key, "unknown key, ignored");
        return;
    }
    if (strcmp(known->name, key) != 0) {
        BeginFinding(report, key);
        printf("acts as %s\n", known->name);
    }
    if (value == nullptr) {
        AddFinding(report, key, "no value, ignored");
        return;
    }
    CheckValue(report, *known, value);
    CheckRepetition(report, *known);
    rest += strspn(rest, " \t\r\n");
    if (*rest != '\0' && *rest != '#')
        AddFinding(report, key, "text behind the value, ignored");
}

// ---- Values

/// The beginning of a text in safe characters.
struct SafeText {
    char text[64];
    explicit SafeText(const char *from)
    {
        size_t length = 0;
        for (; from[length] != '\0' && length + 1 < sizeof(text); ++length)
            text[length] = Safe(from[length]);
        text[length] = '\0';
    }
};

[[gnu::format(printf, 2, 3)]] void Add(Objections &objections, const char *format, ...)
{
    va_list values;
    va_start(values, format);
    char(&text)[sizeof(objections.text[0])] = objections.text[objections.count++];
    vsnprintf(text, sizeof(text), format, values);
    va_end(values);
}

void ObjectToNumber(Objections &objections, const ConfKey &key, const char *value)
{
    const int32_t number = kel::ParseInt32(value);
    const char *digits = value + (*value == '-' || *value == '+');
    const size_t digitCount = strspn(digits, kDigits);
    const bool either = key.action == KeyAction::EitherNumber;
    char range[48] = "";
    if (key.low != INT32_MIN)
        snprintf(range, sizeof(range), either ? "; it takes %d or %d" : "; it takes %d to %d", key.low,
                 key.high);
    if (digitCount == 0 || digits[digitCount] != '\0')
        Add(objections, "%s is no decimal number, taken as %d%s", SafeText(value).text, number, range);
    else if (either && number != key.low && number != key.high)
        Add(objections, "%d is neither %d nor %d", number, key.low, key.high);
    if (!either && (number < key.low || number > key.high))
        Add(objections, "%d is outside %d to %d", number, key.low, key.high);
}

void ObjectToWindow(Objections &objections, const char *value)
{
    const size_t length = strlen(value);
    if (length < kWindowCells)
        Add(objections, "fewer than %zu digits, ignored", kWindowCells);
    else if (length > kWindowCells)
        Add(objections, "more than %zu digits, the rest is ignored", kWindowCells);
    if (length >= kWindowCells && strspn(value, kDigits) < kWindowCells)
        Add(objections, "not all %zu characters are digits", kWindowCells);
}

} // namespace

camConf::Objections camConf::ObjectTo(const ConfKey &key, const char *value)
{
    Objections objections = {};
    switch (key.action) {
    case KeyAction::Number:
    case KeyAction::EitherNumber:
        ObjectToNumber(objections, key, value);
        break;
    case KeyAction::Window:
        ObjectToWindow(objections, value);
        break;
    case KeyAction::LoadDefault:
    case KeyAction::LoadSystem:
        if (strcmp(value, "0") != 0 && strcmp(value, "1") != 0)
            Add(objections, "%s is neither 0 nor 1", SafeText(value).text);
        break;
    case KeyAction::NotStored:
        if (key.field == &ImgCfgStatus::dnLs) // the applier keeps its state in this line
            break;
        [[fallthrough]];
    case KeyAction::LoopBreak:
    case KeyAction::Echo:
    case KeyAction::NoKey:
        Add(objections, "accepted, but nothing is stored");
        break;
    }
    return objections;
}

const ConfKey *camConf::FindExactKey(const char *name)
{
    for (const ConfKey &key : kel::kConfKeys)
        if (key.action != KeyAction::NoKey && strcmp(key.name, name) == 0)
            return &key;
    return nullptr;
}

bool camConf::RefuseSetting(const char *key, const char *value, const char *advice)
{
    const ConfKey *known = FindExactKey(key);
    if (known == nullptr) {
        const ConfKey *meant = *key != '\0' ? kel::FindKey(key).key : nullptr;
        if (meant != nullptr)
            cli::FailWith(key, "acts as %s, write that%s", meant->name, advice);
        else
            cli::FailWith(key, "unknown key%s", advice);
        return true;
    }
    const Objections objections = ObjectTo(*known, value);
    for (int i = 0; i < objections.count; ++i)
        cli::FailWith(key, "%s%s", objections.text[i], advice);
    return objections.count > 0;
}

int camConf::Check(const cli::Arguments &arguments)
{
    Report report{arguments.words[0]};
    FILE *file = cli::OpenToRead(report.path);
    if (file == nullptr)
        return cli::kFailed;
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
        cli::Fail(report.path);
    fclose(file);
    return !readable ? cli::kFailed : report.findings > 0 ? cli::kNo : cli::kDone;
}
