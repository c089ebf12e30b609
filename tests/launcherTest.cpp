// SPDX-License-Identifier: MIT
//
// The simulated board's launcher: what it does about damaged boards, and which programs it can run. What its commands
// say stands in transcripts.
#include "programRun.h"
#include "sim/board/boardState.h"

#include <chrono>
#include <cmath>
#include <cstring>
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
    return Started(With({"timeout", "20", Env("CAMSIM"), "--board", folder}, words)).Wait();
}

bool IsOneLine(const std::string &text)
{
    return Count(text, "\n") == 1 && text.compare(0, 8, "camSim: ") == 0;
}

// A board with a member just beyond its bounds is refused in one line, and reset repairs it; at its bounds it works.
TEST(Damage, IsHarmlessOrRefused)
{
    using State = sim::BoardState;
    const struct {
        void (*harmless)(State &);
        void (*harm)(State &);
    } rows[] = {
        // clang-format off
        {[](State &s) { s.scene.lightLux = 200000; }, [](State &s) { s.scene.lightLux = 200001; }},
        {[](State &s) { s.scene.lightLux = 0; }, [](State &s) { s.scene.lightLux = NAN; }},
        {[](State &s) { s.scene.kelvin = 1000; }, [](State &s) { s.scene.kelvin = 999; }},
        {[](State &s) { s.scene.kelvin = 20000; }, [](State &s) { s.scene.kelvin = 20001; }},
        {[](State &s) { s.scene.sensorType = 15; }, [](State &s) { s.scene.sensorType = 16; }},
        {[](State &s) { s.scene.reflectBusyUs = 3600000000; }, [](State &s) { s.scene.reflectBusyUs = 3600000001; }},
        {[](State &s) { s.live.exposureGain = 1e12; }, [](State &s) { s.live.exposureGain = 2e12; }},
        {[](State &s) { s.live.exposureGain = 0; }, [](State &s) { s.live.exposureGain = NAN; }},
        {[](State &s) { s.live.red = 16; }, [](State &s) { s.live.red = 17; }},
        {[](State &s) { s.live.blue = 16; }, [](State &s) { s.live.blue = -1; }},
        {[](State &s) { s.live.frames = 1e6; }, [](State &s) { s.live.frames = INFINITY; }},
        {[](State &s) { s.live.seenNs = UINT64_MAX; }, [](State &s) { s.live.frames = -1; }},
        {[](State &s) { s.cmem[63] = {1, 0, 1, 0}; }, [](State &s) { s.cmem[63] = {0x84FFFFFF, 1, 1, 1}; }},
        {[](State &s) { s.cmem[0] = {0x867FFFFF, 1, 1, 1}; }, [](State &s) { s.cmem[0] = {0x867FFFFF, 2, 1, 1}; }},
        {[](State &s) { s.cmem[0] = {0x85000000, 1, 1, 9}; }, [](State &s) { s.cmem[0] = {0x85000000, 1, 1, 0}; }},
        {[](State &s) { s.faultCount = 32; }, [](State &s) { s.faultCount = 33; }},
        {[](State &s) { s.faults[0].text[94] = 'x'; }, [](State &s) { s.faults[0].text[95] = 'x'; }},
        {[](State &s) { s.faults[31].path[62] = 'x'; }, [](State &s) { s.faults[31].path[63] = 'x'; }},
        {[](State &s) { s.faults[0].effect = sim::Effect::Kill; }, [](State &s) { s.faults[0].effect = sim::Effect{10}; }},
        {[](State &s) { s.faults[0].error = 4095; }, [](State &s) { s.faults[0].error = 4096; }},
        {[](State &s) { s.faults[0].used = 0; }, [](State &s) { s.faults[0].used = 2; }},
        {[](State &s) { s.faults[0].value = UINT32_MAX; }, [](State &s) { s.faults[0].error = 0; }},
        {[](State &s) { s.faults[0].hits = UINT64_MAX; },
         [](State &s) { s.faults[0].effect = sim::Effect::Busy; s.faults[0].value = UINT32_MAX; }},
        {[](State &s) { s.reflectUntilNs[0] = UINT64_MAX; }, [](State &s) { s.magic[7] = 0; }},
        {[](State &s) { s.runs = UINT32_MAX; }, [](State &s) { s.size = 0; }},
        // Numbers of live processes that do not use the board, and of none.
        {[](State &s) { s.lock = static_cast<uint32_t>(getpid()); }, nullptr}, {[](State &s) { s.lock = 1; }, nullptr},
        {[](State &s) { s.lock = 4194304; }, nullptr}, {[](State &s) { s.lock = 0x80000000; }, nullptr},
        // clang-format on
    };
    const SimBoard board;
    const std::string file = board.Path("board.state");
    ASSERT_EQ(CamSim(board.Folder(), {"fault", "close:nth=1000000"}).status, 0);
    const std::string whole = ReadFile(file);
    const Words commands[] = {{"scene"}, {"fault"}, {"camStat", "-r"}, {"pins", "reset=1"}};
    for (const auto &row : rows) {
        for (const auto change : {row.harmless, row.harm}) {
            if (change == nullptr)
                continue;
            State state;
            memcpy(&state, whole.data(), sizeof(state));
            change(state);
            std::ofstream(file, std::ios::binary)
                .write(reinterpret_cast<const char *>(&state), sizeof(state));
            const Outcome outcome = CamSim(board.Folder(), commands[(&row - rows) % 4]);
            EXPECT_EQ(outcome.status, change == row.harm ? 1 : 0) << &row - rows << outcome.err;
            EXPECT_TRUE(outcome.status == 0 || IsOneLine(outcome.err)) << outcome.err;
        }
    }
    for (const size_t length : {whole.size(), whole.size() - 1, size_t{0}}) {
        std::ofstream(file, std::ios::binary) << whole.substr(0, length);
        EXPECT_EQ(CamSim(board.Folder(), {"pins"}).status, length < whole.size() ? 1 : 0);
        EXPECT_EQ(CamSim(board.Folder(), {"reset"}).status | CamSim(board.Folder(), {"scene"}).status, 0);
    }
}

TEST(Programs, ThatCannotBeServedAreRefused)
{
    const SimBoard board;
    const std::string program = board.Path("prog ram");
    // As this program, but static: without the segment that names the loader.
    std::string elf = ReadFile("/proc/self/exe").substr(0, 4096);
    elf.replace(elf.find(std::string("\3\0\0\0\4\0\0\0", 8)), 4, 4, '\0');
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
    const std::string library = Env("PROGRAMS") + "/libcamsim.so";
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
    const std::string odd = board.Path("a b:c");
    fs::create_directory(odd);
    for (const char *name : {"camSim", "camStat", "libcamsim.so"})
        fs::copy(Env("PROGRAMS") + "/" + name, odd + "/" + name);
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
}

TEST(Programs, RunOnTheirBoardAsTheyAreAskedTo)
{
    const SimBoard board;
    const std::string trace = board.Path("trace");
    ASSERT_EQ(CamSim(board.Folder(), {"reset"}).status, 0);
    // What the user preloads stays first (here nothing that is there), then comes a sanitizer whose name is in the
    // program, then the board.
    const std::string script = board.Path("script"), list = "echo $LD_PRELOAD; exit 7\n# libasan.so.77";
    std::ofstream(script) << "#!/bin/sh\n" + list + std::string(1, '\0');
    fs::permissions(script, fs::perms::owner_all);
    for (const std::string first : {"libother.so.1", "libasan.so.77", "libasan.so.77:libother.so.1"}) {
        const Words command = {"env",     "LD_PRELOAD=" + first, Env("CAMSIM"),
                               "--board", board.Folder(),        script};
        const Outcome loaded = Started(command).Wait();
        const std::string sanitizer = first == "libother.so.1" ? ":libasan.so.77" : "";
        EXPECT_EQ(loaded.out, first + sanitizer + ":" + Env("PROGRAMS") + "/libcamsim.so\n");
        EXPECT_EQ(loaded.status, 7);
    }
    EXPECT_EQ(CamSim(board.Folder(), {"/bin/sh", "-c", "kill -9 $$"}).status, 128 + 9);

    const Words number = {"/bin/sh", "-c", "echo $CAMSIM_RUN"};
    const int run = std::stoi(CamSim(board.Folder(), number).out);
    EXPECT_EQ(CamSim(board.Folder(), {"reset"}).status, 0);
    EXPECT_EQ(CamSim(board.Folder(), number).out, std::to_string(run + 1) + "\n")
        << "rules of runs stay theirs";
    EXPECT_NE(CamSim(board.Folder(), {"--fault", "gio.set", "camStat", "-l", "on"}).err, "");
    EXPECT_EQ(CamSim(board.Folder(), {"camStat", "-l", "on"}).err, "") << "another run";
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
        CamSim(board.Folder(), {"--emulator", "/bin/echo E", "--library", Env("PROGRAMS") + "/libcamsim.so",
                                "/bin/sh", "-c", "x"});
    EXPECT_TRUE(Matches(emulated.out, "^E -E LD_PRELOAD=.*/libcamsim.so /bin/sh -c x\n$")) << emulated.out;
}

TEST(Commands, ServeRefusesWhatItCannotDo)
{
    const SimBoard board;
    ASSERT_EQ(CamSim(board.Folder(), {"pins"}).status, 0);
    fs::create_directories(board.Path("nodes/gio"));
    const std::pair<Words, const char *> rows[] = {
        {{"serve", "--dev", board.Path("nodes")}, "^camSim: [^ ]*/gio: File exists\n$|without libfuse3"},
        {{"--fault", "close", "serve", "--dev", "/none"},
         "^camSim: fault rule 'close' is about calls|without libfuse3"},
    };
    for (const auto &[words, shown] : rows) {
        const Outcome outcome = CamSim(board.Folder(), words);
        EXPECT_TRUE(outcome.status == 1 && Matches(outcome.err, shown)) << outcome.err;
    }
}

} // namespace
