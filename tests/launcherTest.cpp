// SPDX-License-Identifier: MIT
//
// The simulated board's launcher: which folders it takes for boards, what it does about damaged ones, which
// programs it can run, and what its commands take and say.
#include "programRun.h"

#include <chrono>
#include <cmath>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace
{

namespace fs = std::filesystem;

// camSim must not hang: `timeout` ends it with status 124.
Outcome CamSim(const std::string &folder, const Words &words)
{
    return Started(With({"timeout", "20", getenv("CAMSIM"), "--board", folder}, words)).Wait();
}

bool IsOneLine(const std::string &text)
{
    return Count(text, "\n") == 1 && text.compare(0, 8, "camSim: ") == 0;
}

template <class Value>
std::string BytesOf(Value value)
{
    return {reinterpret_cast<const char *>(&value), sizeof(value)};
}

void Patch(const std::string &file, size_t at, const std::string &bytes)
{
    std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
    stream.seekp(static_cast<std::streamoff>(at));
    stream << bytes;
}

TEST(Folder, BecomesABoardOnlyWhenAsked)
{
    const SimBoard home;
    const std::string dir = home.Path("there");
    setenv("D", dir.c_str(), 1);
    setenv("C", (std::string(getenv("CAMSIM")) + " --board " + dir).c_str(), 1);
    const Words use = {"pins"}, reset = {"reset"}, make = {"--new", "pins"}, makeAnew = {"--new", "reset"};
    const std::string others = "mkdir -p $D/mnt; echo >$D/mnt/own",
                      stranger = "mkdir $D; echo >$D/board.state",
                      damaged = "$C reset; echo >$D/mnt/own; echo >$D/board.state", foreign = "and no board";
    const struct {
        std::string prepare;
        Words command;
        std::string complaint; // empty: it works
        bool keeps;            // the file in mnt
    } rows[] = {
        // clang-format off
        {":", use, "", false}, {"mkdir $D", use, "", false}, {"mkdir $D", reset, "", false},
        {others, use, foreign, true}, {others, reset, foreign, true},
        {others, make, "", true}, {others, makeAnew, "", false},
        {stranger, use, foreign, false}, {stranger, reset, foreign, false},
        {damaged, use, "is damaged", true}, {damaged, make, "is damaged", true}, {damaged, reset, "", false},
        {"$C reset; printf 2 | dd of=$D/board.state bs=1 seek=8 conv=notrunc", use, "another version", false},
        {"$C reset; rm $D/board.state; mkdir $D/board.state", use, "cannot open", false},
        {"$C reset; rm $D/board.state; mkdir $D/board.state", reset, "", false},
        {"echo >$D", use, "cannot make a board in", false}, {"echo >$D", reset, "cannot reset the board", false},
        {"$C reset; rm -r $D/mnt; echo >$D/mnt", make, "cannot make a board in", false},
        // clang-format on
    };
    for (const auto &row : rows) {
        fs::remove_all(dir);
        Started({"/bin/sh", "-c", row.prepare}).Wait();
        const Outcome outcome = CamSim(dir, row.command);
        const std::string story = row.prepare + ": " + row.command.back() + ": " + outcome.err;
        EXPECT_EQ(outcome.status, row.complaint.empty() ? 0 : 1) << story;
        EXPECT_TRUE(row.complaint.empty() ? outcome.err.empty() : IsOneLine(outcome.err)) << story;
        EXPECT_NE(outcome.err.find(row.complaint), std::string::npos) << story;
        EXPECT_EQ(fs::exists(dir + "/mnt/own"), row.keeps) << story;
    }
    fs::remove_all(dir);
    const Words maker = {getenv("CAMSIM"), "--board", dir, "pins"};
    Started makers[] = {Started(maker), Started(maker), Started(maker), Started(maker)};
    for (Started &one : makers)
        EXPECT_EQ(one.Wait().err, "") << "several at once";

    const Words bare = {"env", "-u", "HOME", "-u", "XDG_STATE_HOME", "-u", "CAMSIM_BOARD"};
    const Words camSim = {getenv("CAMSIM"), "pins"};
    const Outcome homeless = Started(With(bare, camSim)).Wait();
    EXPECT_TRUE(homeless.status == 2 && IsOneLine(homeless.err)) << homeless.err;
    EXPECT_EQ(Started(With(bare, {camSim[0], "--help"})).Wait().status, 0);
    for (const char *variable : {"HOME=", "XDG_STATE_HOME=", "CAMSIM_BOARD="}) {
        fs::remove_all(dir);
        EXPECT_EQ(Started(With(With(bare, {variable + dir}), camSim)).Wait().status, 0) << variable;
        EXPECT_TRUE(fs::exists(dir)) << variable;
    }
    EXPECT_EQ(Started({"/bin/sh", "-c", "cd $D; rm -r $D; ${C%% *} --board . pins"}).Wait().status, 1);
}

// Each field of the state at its extremes: every command works, or refuses the board in one line.
TEST(Damage, IsHarmlessOrRefused)
{
    constexpr size_t kScene = 408, kSecondBuffer = 632, kFaultCount = 1640, kRuleText = 1648,
                     kRulePath = 1744, kRule = 1808, kSecondRule = 1888;
    const SimBoard board;
    const std::string state = board.Path("board.state");
    ASSERT_EQ(CamSim(board.Folder(), {"fault", "close:nth=1000000"}).status, 0);
    const std::string whole = ReadFile(state);
    const Words commands[] = {{"scene"}, {"fault"}, {"camStat", "-r"}, {"pins", "reset=1"}};
    int refused = 0, turn = 0;
    const auto damage = [&](size_t at, const std::string &bytes) {
        std::ofstream(state, std::ios::binary) << whole;
        Patch(state, at, bytes);
        const Outcome outcome = CamSim(board.Folder(), commands[++turn % 4]);
        EXPECT_TRUE(outcome.status == 0 || (outcome.status == 1 && IsOneLine(outcome.err)))
            << "byte " << at << ", turn " << turn << ", status " << outcome.status << ": " << outcome.err;
        refused += outcome.status;
        EXPECT_TRUE(outcome.status == 0 || refused % 8 != 0 ||
                    CamSim(board.Folder(), {"reset"}).status + CamSim(board.Folder(), {"dump"}).status == 0);
        return outcome.status;
    };
    for (size_t at = 0; at < kSecondRule; at += 4) {
        const bool isPlain = (at >= 24 && at < kScene) || (at >= kRuleText && at < kRule);
        if ((isPlain && at % 64 != 0) || (at >= kSecondBuffer && at < kFaultCount))
            continue; // as its neighbours
        for (const uint32_t value : {0U, UINT32_MAX, 0x7FFFFFFFU})
            damage(at, BytesOf(value));
        if (at % 8 == 0 && at >= kScene && at < kScene + 72)
            damage(at, BytesOf(HUGE_VAL));
    }
    EXPECT_GT(refused, 40);
    for (const size_t at : {kScene, kScene + 8, kScene + 24, kScene + 32, kScene + 40, kScene + 48}) {
        EXPECT_EQ(damage(at, BytesOf(std::nan(""))), 1) << at;
        EXPECT_EQ(damage(at, BytesOf(-1.0)), 1) << at;
    }
    EXPECT_EQ(damage(kFaultCount, BytesOf(33)) & damage(kRulePath + 60, "long"), 1);
    // Numbers of live processes that do not use the board, and of none.
    for (const uint32_t holder : {static_cast<uint32_t>(getpid()), 1U, 4194304U, 0x80000000U})
        EXPECT_EQ(damage(16, BytesOf(holder)), 0) << holder;
}

TEST(Programs, ThatCannotBeServedAreRefused)
{
    const SimBoard board;
    const std::string program = board.Path("prog ram");
    std::string elf = ReadFile("/proc/self/exe").substr(0, 64);
    elf.replace(offsetof(Elf64_Ehdr, e_phnum), 2, 2, '\0');
    std::string arm = elf, narrow = elf, odd = elf;
    arm[offsetof(Elf64_Ehdr, e_machine)] = EM_ARM;
    odd[offsetof(Elf64_Ehdr, e_machine)] = 1;
    narrow[EI_CLASS] = ELFCLASS32;
    const std::tuple<std::string, Words, const char *> rows[] = {
        {elf, {}, "is a static program"},
        {arm, {}, "64-bit ARM.* --emulator COMMAND runs a foreign program, --library FILE"},
        {arm, {"--emulator", "/bin/false", "--library", "LIBRARY"}, "x86: --library FILE"},
        {odd, {}, "64-bit machine number 1,"},
        {narrow, {}, "is for 32-bit"},
        {elf, {"--library", "/none"}, "libcamsim.so is not /none; --library FILE"},
        {elf, {"--emulator", "/bin/false"}, "is not beside"},
    };
    const std::string library = std::string(getenv("PROGRAMS")) + "/libcamsim.so";
    for (auto [bytes, options, complaint] : rows) {
        std::ofstream(program, std::ios::binary) << bytes;
        fs::permissions(program, fs::perms::owner_all);
        for (std::string &option : options)
            option = option == "LIBRARY" ? library : option;
        CamSim(board.Folder(), {"--new", "pins"});
        const Outcome outcome = CamSim(board.Folder(), With(options, {program}));
        EXPECT_TRUE(outcome.status == 126 || outcome.status == 1) << outcome.status;
        EXPECT_TRUE(IsOneLine(outcome.err) && Matches(outcome.err, complaint)) << complaint << outcome.err;
    }
}

TEST(Programs, AreServedFromAnyFolder)
{
    const SimBoard board;
    ASSERT_EQ(CamSim(board.Folder(), {"pins"}).status, 0);
    const std::string odd = board.Path("a b:c"), trace = board.Path("trace");
    fs::create_directory(odd);
    for (const char *name : {"camSim", "camStat", "libcamsim.so"})
        fs::copy(std::string(getenv("PROGRAMS")) + "/" + name, odd + "/" + name);
    const Words camSim = {odd + "/camSim", "--board", board.Folder()};
    EXPECT_EQ(Started(With(camSim, {"camStat", "-l", "on"})).Wait().out, "Set LEDs on\n");
    EXPECT_EQ(Count(CamSim(board.Folder(), {"pins"}).out, "  0  on "), 1);
    const Words show = {"/bin/sh", "-c", "echo \"${LD_PRELOAD##*:}\"; test -L \"${LD_PRELOAD##*:}\""};
    const Outcome shown = Started(With(camSim, show)).Wait();
    const std::string link = shown.out.substr(0, shown.out.find('\n'));
    EXPECT_EQ(shown.status, 0) << link;
    for (int wait = 0; wait < 500 && fs::exists(fs::symlink_status(link)); ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_TRUE(Matches(link, "^/tmp/camSim[.]") && !fs::exists(fs::path(link).parent_path())) << link;

    EXPECT_EQ(CamSim(board.Folder(), {"camStat", "-l", "on"}).err, "");
    ASSERT_EQ(CamSim(board.Folder(), {"fault", "open:nth=99", "close:nth=99"}).status, 0);
    const Outcome lasting = CamSim(board.Folder(), {"camStat", "-l", "on"});
    EXPECT_TRUE(IsOneLine(lasting.err) && Count(lasting.err, "2 lasting fault rules")) << lasting.err;
    ASSERT_EQ(CamSim(board.Folder(), {"fault", "clear", "2"}).status, 0);
    EXPECT_EQ(Count(CamSim(board.Folder(), {"camStat", "-l", "on"}).err, "1 lasting fault rule;"), 1);
    const Outcome traced = CamSim(board.Folder(), {"--trace-json", trace, "camStat", "-l", "on"});
    EXPECT_EQ(traced.out, "Set LEDs on\n");
    EXPECT_EQ(Count(ReadFile(trace), "\n"), Count(ReadFile(trace), "{\"t\":"));
    EXPECT_EQ(CamSim(board.Folder(), {"trace", "camStat", "-l", "on"}).status, 0);
    EXPECT_EQ(CamSim(board.Folder(), {"--trace=/none/x", "camStat"}).status, 1);
    const Outcome emulated =
        CamSim(board.Folder(), {"--emulator", "/bin/echo E", "--library",
                                std::string(getenv("PROGRAMS")) + "/libcamsim.so", "/bin/sh", "-c", "x"});
    EXPECT_TRUE(Matches(emulated.out, "^E -E LD_PRELOAD=.*/libcamsim.so /bin/sh -c x\n$")) << emulated.out;
}

TEST(Commands, TakeAndShow)
{
    const SimBoard board;
    const struct {
        Words words;
        int status;
        const char *shown; // of both streams
    } rows[] = {
        // clang-format off
        {{"pins", "led=on", "ircut=IR_PASS", "alarm=high", "reset=held", "3=1"}, 0, "^$"},
        {{"pins"}, 0, "led +0 +0 +on .*ircut +35 +1 +IR_PASS .*alarm +86 +1 +high .*reset +91 +0 +held .* 3 +1\n"},
        {{"pins", "led=off", "35=IR_CUT", "86=0", "reset=running"}, 0, "^$"},
        {{"pins", "led=on", "ircut=off"}, 2, "'ircut=off' sets no pin: write led=on or off, ircut=IR_CUT or"},
        {{"pins", "128=0"}, 2, "below 128"}, {{"pins"}, 0, "off .*IR_CUT .*low .*running "},
        {{"dump", "--hex"}, 0, "\n0x30  84"}, {{"dump"}, 0, "\n0x37 +0x00 +MnlAgn +0 +gain 1.000"},
        {{"dump", "x"}, 2, "--hex"}, {{"peek"}, 2, "peek takes"}, {{"peek", "0x30", "YGamma"}, 0, "^0x84\n58 63 "},
        {{"poke", "1"}, 2, "poke takes"}, {{"poke", "x", "1"}, 2, "no register 'x'"},
        {{"poke", "YGamma", "1"}, 2, "one by one"}, {{"poke", "0x37", "0x41"}, 0, "^$"},
        {{"peek", "mnlagn"}, 0, "^65\n$"}, {{"scene", "sensor=7", "reflect=1.5s"}, 0, "^$"},
        {{"scene"}, 0, "type 7 at the next reset, now 7\nreflect +1500 ms"}, {{"scene", "reflect=1.5h"}, 2, "as 12ms"},
        {{"reset", "x"}, 2, "fault clear"}, {{"reset"}, 0, "^$"}, {{"--sensor", "7", "peek", "CisType"}, 0, "^7\n$"},
        {{"fault"}, 0, "No fault rules"}, {{"fault", "clear", "0"}, 2, "number of a rule"},
        {{"--fault", "cmem.version=0x02200000", "camStat", "-r"}, 0, "got 0x2200000"},
        {{"--fault", "open:nth=x", "camStat"}, 2, "'x' is not a value for nth=N"},
        {{"fault", "i2c.read=1"}, 2, "cmem.version=0x0"}, {{"fault", "reflect"}, 2, "stuck or busy"},
        {{"fault", "flash:delay=1ms"}, 2, "goes with a call"}, {{"fault", "open:"}, 2, "'' means nothing"},
        {{"fault", "open:/" + std::string(70, 'x')}, 2, "not a value for /a/path"},
        {{"fault", "open:/" + std::string(99, 'x')}, 2, "rule is too long"}, {{"fault", "open:delay=2h"}, 2, "delay=5ms"},
        {{"fault", "slave:errno=EIO,chance=0.5,seed=3,reg=0x0E,times=2", "gio:pin=91,after=1", "clock:back=2s",
          "reflect:busy=9ms", "reflect:stuck", "flash:missing", "flash:readonly,errno=5", "open:missing,/dev/gio"},
         0, "^$"},
        {{"fault", "list"}, 0, " 8 +board +0 +0 +open:missing,/dev/gio\n$"}, {{"fault", "clear", "9"}, 1, "no rule 9"},
        {{"fault", "ioctl:chance=0"}, 2, "chance=SHARE"}, {{"fault", "clear"}, 0, "^$"},
        {{"--trace-json", "", "camStat"}, 2, "'' is no value for --trace-json: it takes FILE"},
        {{"--trace-json"}, 2, "--trace-json takes FILE"}, {{"--help=1"}, 2, "takes no value"},
        {{"--version"}, 0, "^camSim [0-9.]+\n$"}, {{"help"}, 0, "\n  --new +make a board"}, {{}, 2, "name a program"},
        {{"fault", "--help"}, 0, "\n  reflect:busy=TIME "}, {{"help", "scene"}, 0, "light=LUX +0"}, {{"-h"}, 0, "Usage"},
        {{"--emulator", "", "--", "pins"}, 127, "there is no command 'pins'"}, {{"/etc"}, 127, "no program"},
        // clang-format on
    };
    for (const auto &row : rows) {
        const Outcome outcome = CamSim(board.Folder(), row.words);
        const std::string story =
            (row.words.empty() ? "" : row.words.back()) + ": " + outcome.out + outcome.err;
        EXPECT_EQ(outcome.status, row.status) << story;
        EXPECT_TRUE(Matches(outcome.out + outcome.err, row.shown)) << row.shown << story;
    }
    std::string many = "fault";
    for (int rule = 0; rule <= 32; ++rule)
        many += " open:nth=" + std::to_string(rule + 1);
    const Outcome full = Started({"/bin/sh", "-c", "$CAMSIM --board " + board.Folder() + " " + many}).Wait();
    EXPECT_TRUE(full.status == 1 && Count(full.err, "no more rules than 32")) << full.err;
}

} // namespace
