// SPDX-License-Identifier: MIT
//
// What reads bytes that others wrote, under libFuzzer: the rows of kTargets, of which --target=NAME chooses one. An
// input is a line of words, parted by '|', and behind it the bytes of the file "f" in the current folder.
#include "app/camConf/camConf.h"
#include "app/camStat/options.h"
#include "config/confParser.h"
#include "kelisp/debugFlags.h"
#include "kelisp/drvI2c.h"
#include "kelisp/sysconf.h"
#ifdef FUZZ_BOARD
#include "sim/board/board.h"
#include "sim/board/camera.h"
#include "sim/drivers/devices.h"
#include "sim/launcher/commands.h"
#include "sim/launcher/faultText.h"
#endif

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <getopt.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

int CamConfMain(int argc, char **argv);

namespace
{

using View = std::string_view;

void Require(bool holds)
{
    if (!holds)
        abort();
}

/// The text up to `end`, which is taken away with it.
View Cut(View *text, char end)
{
    const View part = text->substr(0, text->find(end));
    text->remove_prefix(std::min(text->size(), part.size() + 1));
    return part;
}

/// An input: words as main() gets them, each in memory of just its size, and the file.
struct Input {
    std::vector<char *> argv;
    View file;

    Input(const char *program, View data) : argv{strdup(program)}, file(data)
    {
        for (View line = Cut(&file, '\n'); !line.empty();) {
            const View word = Cut(&line, '|');
            argv.push_back(strndup(word.data(), word.size()));
        }
        argv.push_back(nullptr);
    }
    ~Input() { std::for_each(argv.begin(), argv.end(), free); }
    int Count() const { return static_cast<int>(argv.size()) - 1; }
};

void Write(const char *name, const void *bytes, size_t size)
{
    const int fd = open(name, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    static const int kFirst = fd;
    // No input before has left one open. -print_funcs=0 keeps symbolizers away, which would.
    Require(fd <= kFirst || View(name) != "f");
    Require(write(fd, bytes, size) == static_cast<ssize_t>(size));
    close(fd);
}

std::string Read()
{
    std::string text;
    char chunk[4096];
    const int fd = open("f", O_RDONLY, 0);
    while (const ssize_t got = read(fd, chunk, sizeof(chunk)))
        text.append(chunk, static_cast<size_t>(got));
    close(fd);
    return text;
}

/// The store's replacement, and what it reads, written from its description.
std::string Replaced(View file, const char *key, const char *value, View *read)
{
    std::string result;
    for (bool found = false; !file.empty();) {
        const View line =
            file.substr(0, std::min<size_t>(std::min(file.find('\n'), file.size() - 1) + 1, 255));
        file.remove_prefix(line.size());
        const size_t equals = line.find('=');
        const bool isKeys = line[0] != '#' && line.substr(0, strlen(key)) == key && equals != View::npos;
        result += isKeys ? std::string(line.substr(0, equals)) + "=" + value + "\n" : line;
        if (!isKeys || found)
            continue;
        found = true;
        View text = line.substr(std::min(line.find_first_not_of(' ', equals + 1), line.size()));
        const bool quoted = text.substr(0, 1) == "\"";
        text.remove_prefix(quoted ? 1 : 0);
        const auto ends = [quoted](char c) { return c < 0x20 || c > 0x7E || (quoted && c == '"'); };
        *read = View(text.begin(), std::find_if(text.begin(), text.end(), ends));
    }
    return result;
}

void FuzzStore(View data)
{
    const Input input("f", data);
    if (input.Count() != 3)
        return;
    const auto [path, key, value] = std::array{input.argv[0], input.argv[1], input.argv[2]};
    Write(path, input.file.data(), input.file.size());
    View wanted = "nothing";
    const std::string replaced = Replaced(input.file, key, value, &wanted);
    char got[SYSCONF_LINE_SIZE] = "nothing";
    Require(sysconf_fget(path, key, got) == 0 && got == wanted);
    Require(sysconf_fset(path, key, value) == 0 && Read() == replaced);
}

/// What a file gives it sets, and nothing else.
void FuzzParser(View data)
{
    ImgCfgStatus record, given = {};
    memset(&record, 0x55, sizeof(record));
    kel::Loading loading{&given};
    gfDebugFlag = data.size() % 2 != 0 ? 1 : 0;
    FILE *file = fmemopen(const_cast<char *>(data.data()), data.size(), "r");
    kel::LoadStream(&record, file, &loading);
    fclose(file);
    for (const kel::ConfKey &key : kel::kConfKeys)
        Require(key.field == nullptr || given.*key.field == 1 || record.*key.field == 0x55555555);
    ImgCfgPrint(&record);
}

void FuzzOptions(View data)
{
    const Input words(std::string(data).c_str(), "");
    ImgCfgStatus record = {};
    gfDebugFlag = data.size() % 2 != 0 ? 1 : 0;
    const int status = ImgCfgParseOptions(&record, words.argv[0]);
    Require(status == 0 || status == -1);
}

/// Nothing but a set that tells of success changes the file, and it as the store does.
void FuzzCamConf(View data)
{
    Input input("camConf", data);
    const View command = input.Count() > 1 ? input.argv[1] : "";
    if (command == "apply" || command == "watch" || data.substr(0, data.find('\n')).find('/') != View::npos)
        return;
    Write("f", input.file.data(), input.file.size());
    const int status = CamConfMain(input.Count(), std::vector(input.argv).data());
    const bool isSet = command == "set" && status == cli::kDone;
    View read;
    Require(status >= cli::kDone && status <= cli::kFailed && access("f.tmp", F_OK) != 0);
    Require(Read() == input.file || (isSet && input.Count() > 5) ||
            (isSet && Read() == Replaced(input.file, input.argv[3], input.argv[4], &read)));
}

void FuzzCamStat(View data)
{
    Input input("camStat", data);
    optind = 0;
    giOption = kActionNone;
    const camStat::Parsed parsed = camStat::ParseOptions(input.Count(), input.argv.data());
    Require(input.Count() > 1 || parsed == camStat::Parsed::Usage);
    Require(parsed != camStat::Parsed::Unsupported || giOption == kActionLed || giOption == kActionIcr);
}

unsigned gSlave;

void FuzzDrvI2cTest(View data)
{
    Input input("drvI2cTest", data);
    const int status = DrvI2cTestMain(input.Count(), input.argv.data());
    Require(status == -1 || (status == 0 && gSlave == (HexStrToUint(input.argv[2]) & 0xFF)));
}

#ifdef FUZZ_BOARD
/// A board with the rules of the words and its state damaged by the file: a rule that is taken is a sound one, and
/// whatever AttachBoard takes works.
void FuzzBoard(View data)
{
    using namespace sim;
    const Input input("", data);
    static BoardState fresh = {};
    if (fresh.layout == 0) {
        memcpy(fresh.magic, kMagic, sizeof(kMagic));
        fresh.layout = kLayout;
        fresh.size = sizeof(fresh);
        PowerOnBoard(fresh);
    }
    BoardState state = fresh;
    std::string problem;
    FaultRule rule;
    for (size_t i = 1; input.argv[i] != nullptr && state.faultCount < kFaultRules; ++i)
        if (ParseFault(input.argv[i], &rule, &problem)) {
            Require(View(rule.text) == input.argv[i]);
            state.faults[state.faultCount++] = rule;
        }
    for (View file = input.file; file.size() > 2; file.remove_prefix(3))
        reinterpret_cast<char *>(&state)[static_cast<size_t>(file[0] * 256 + file[1]) % sizeof(state)] =
            file[2];
    Write(kStateFile, &state, sizeof(state));
    const AttachResult attached = AttachBoard(".");
    Require(attached == AttachResult::Ok || input.file.size() > 2);
    const auto kills = [](const FaultRule &rule) { return rule.effect == Effect::Kill; };
    if (attached != AttachResult::Ok || std::any_of(state.faults, state.faults + kFaultRules, kills))
        return;
    gBoard.speed = 1e9; // no rule holds it up
    constexpr const char *kCommands[] = {"pins", "scene", "fault"};
    const char *command = kCommands[data.size() % std::size(kCommands)];
    FindCommand(command)->run(*command == 'f' ? Words{"list"} : Words{});
    for (const char *path : {"/dev/dev_i2c", "/dev/gio", "/dev/cmem"}) {
        Place place;
        FindPlace(path, &place);
        for (const RequestKind &kind : place.device->driver->requests) {
            Node node = {.device = place.device, .slave = kCameraSlave};
            Event event(kind.call, path);
            Request request(kind.number, 1, 8, state.lock, node);
            FindRecord(*place.device, request);
            memcpy(request.record.bytes, state.registers, sizeof(state.registers));
            FindLists(*place.device, request);
            for (Part &list : request.lists)
                memset(list.bytes, state.pins[0], sizeof(list.bytes));
            Serve(*place.device, request, event);
        }
    }
    munmap(gBoard.state, sizeof(BoardState));
}
#endif

const struct {
    const char *name;
    void (*fuzz)(View data);
} kTargets[] = {
    {"parser", FuzzParser},   {"options", FuzzOptions}, {"store", FuzzStore},
    {"camConf", FuzzCamConf}, {"camStat", FuzzCamStat}, {"drvI2cTest", FuzzDrvI2cTest},
#ifdef FUZZ_BOARD
    {"board", FuzzBoard},
#endif
};

void (*gFuzz)(View data);

} // namespace

// The bus, where every byte that a request names is read or written; and a medium that is quick.
extern "C" int __real_open(const char *path, int flags, mode_t mode);
extern "C" int __wrap_open(const char *path, int flags, mode_t mode)
{
    return __real_open(strcmp(path, "/dev/dev_i2c") == 0 ? "/dev/null" : path, flags, mode);
}
extern "C" int __wrap_ioctl(int, unsigned long request, void *argument)
{
    if (request == DRV_I2C_SELECT)
        gSlave = static_cast<unsigned>(reinterpret_cast<uintptr_t>(argument));
    const auto *xfer = request == DRV_I2C_SELECT ? nullptr : static_cast<const DrvI2cXfer *>(argument);
    Require(gSlave > 0 && gSlave < 256 && (xfer == nullptr || xfer->dataSize == 1 || xfer->dataSize == 2));
    for (unsigned i = 0; xfer != nullptr && i < xfer->count; ++i)
        Require(request == DRV_I2C_WRITE || xfer->regAddr[i] == static_cast<uint8_t>(xfer->regAddr[0] + i));
    if (xfer != nullptr && request != DRV_I2C_WRITE)
        memset(xfer->regValue, 0xA5, size_t{xfer->count} * xfer->dataSize);
    return 0;
}
extern "C" int __wrap_fsync(int)
{
    return 0;
}

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    for (const auto &target : kTargets)
        for (int i = 1; i < *argc; ++i)
            if (View((*argv)[i]).substr(0, 9) == "--target=" && strcmp((*argv)[i] + 9, target.name) == 0)
                gFuzz = target.fuzz;
    Require(gFuzz != nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    gFuzz(View(reinterpret_cast<const char *>(data), size));
    return 0;
}
