// SPDX-License-Identifier: MIT
//
// camCtl's commands on the pins of the board and on the exposure: led, ircut, reset, expose.
#include "app/camCtl/camCtl.h"

#include "kelisp/gpio.h"
#include "kelisp/ispSensor.h"

#include <errno.h>
#include <string.h>

namespace
{

using namespace camCtl;
using cli::Arguments;

struct LevelWord {
    const char *word;
    unsigned level;
};

/// The status of a request on the pins, and its result as JSON.
int Tell(const Arguments &arguments, const char *what, const char *done, int result)
{
    if (result != 0)
        return cli::Fail("/dev/gio");
    if (arguments.Has(kJson))
        PrintAsJson(what, done);
    return cli::kDone;
}

/// Drives a pin to the level that the command's word stands for; the library's own line tells open from request.
int Switch(const Arguments &arguments, const char *what, const LevelWord (&words)[2], int (*set)(unsigned))
{
    const char *given = arguments.words[0];
    int retries = 0; // of transfers, of which the pins have none; every command takes the option
    if (!TakeRetries(arguments, &retries))
        return cli::kFailed;
    for (const LevelWord &row : words)
        if (strcmp(row.word, given) == 0)
            return Tell(arguments, what, given, set(row.level));
    return cli::FailWith(what, "%.40s is neither %s nor %s", given, words[0].word, words[1].word);
}

/// One of the values that `expose` takes, and the field that holds it.
struct ExposureWord {
    const char *name;
    const char *field;
};

constexpr ExposureWord kExposureWords[] = {{"shutter", "MeExpTim"}, {"again", "MnlAgn"}, {"dgain", "MnlDgn"}};

} // namespace

int camCtl::Led(const Arguments &arguments)
{
    static constexpr LevelWord kWords[] = {{"on", 0}, {"off", 1}};
    return Switch(arguments, "led", kWords, setIRL);
}

int camCtl::IrCut(const Arguments &arguments)
{
    static constexpr LevelWord kWords[] = {{"cut", 0}, {"pass", 1}};
    return Switch(arguments, "ircut", kWords, SetICR);
}

int camCtl::Reset(const Arguments &arguments)
{
    int retries = 0;
    if (!TakeRetries(arguments, &retries))
        return cli::kFailed;
    return Tell(arguments, "reset", "done", ResetSensor());
}

int camCtl::Expose(const Arguments &arguments)
{
    // The words are those of `set`, under the names of the manual exposure.
    static char words[3][64];
    Arguments set = arguments;
    for (int i = 0; i < arguments.count; ++i) {
        const char *word = arguments.words[i];
        const size_t length = strcspn(word, "=");
        const char *field = nullptr;
        for (const ExposureWord &row : kExposureWords)
            if (strncmp(row.name, word, length) == 0 && row.name[length] == '\0' && word[length] == '=')
                field = row.field;
        if (field == nullptr)
            return cli::FailWith("expose", "%.40s is none of shutter=TIME, again=GAIN, dgain=GAIN", word);
        if (snprintf(words[i], sizeof(words[i]), "%s%s", field, word + length) >= int{sizeof(words[i])})
            return cli::FailWith("expose", "%.40s... is longer than any value", word);
        set.words[i] = words[i];
    }
    return SetExposure(set);
}
