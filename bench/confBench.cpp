// SPDX-License-Identifier: MIT
//
// What the image configuration costs: loading a full file (all 45 keys)
// beside inih parsing the same file with an empty handler, one lookup of a
// key by its beginning, and the replacement of one value with its syncs.
#include "config/confKeys.h"
#include "kelisp/imgConfig.h"
#include "kelisp/sysconf.h"

#include <benchmark/benchmark.h>
#include <ini.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace
{

/// A folder with one full configuration file, for the time of the run.
struct FullFile {
    std::string folder = "/tmp/confBenchXXXXXX";
    std::string path;

    FullFile()
    {
        if (mkdtemp(folder.data()) == nullptr)
            std::abort();
        path = folder + "/conf.img";
        std::ofstream file(path);
        file << "# image configuration\n";
        for (const kel::ConfKey &key : kel::kConfKeys) {
            if (key.action == kel::KeyAction::NoKey)
                continue;
            const bool window = key.action == kel::KeyAction::Window;
            const bool load =
                key.action == kel::KeyAction::LoadDefault || key.action == kel::KeyAction::LoadSystem;
            file << key.name << '='
                 << (window ? std::string(kel::kWindowCells, '1')
                     : load ? "0"
                            : "128")
                 << '\n';
        }
    }
    ~FullFile() { std::filesystem::remove_all(folder); }
};

const char *Path()
{
    static const FullFile file;
    return file.path.c_str();
}

void LoadFullFile(benchmark::State &state)
{
    ImgCfgStatus record;
    ImgCfgDefault(&record);
    for (auto _ : state)
        if (ImgCfgLoadFile(&record, Path()) != 0 || record.extDebug != 128)
            state.SkipWithError("the file was not loaded");
}
BENCHMARK(LoadFullFile);

int CountKey(void *count, const char *, const char *, const char *)
{
    ++*static_cast<int *>(count);
    return 1;
}

int IgnoreKey(void *, const char *, const char *, const char *)
{
    return 1;
}

void InihEmptyHandler(benchmark::State &state)
{
    int count = 0; // inih cuts lines at 199 characters and so calls the end of the window's line an error
    if (ini_parse(Path(), CountKey, &count) < 0 || count != 45)
        state.SkipWithError("inih does not see every key");
    for (auto _ : state)
        benchmark::DoNotOptimize(ini_parse(Path(), IgnoreKey, nullptr));
}
BENCHMARK(InihEmptyHandler);

void ParseKeyByItsBeginning(benchmark::State &state)
{
    ImgCfgStatus record;
    ImgCfgDefault(&record);
    for (auto _ : state)
        benchmark::DoNotOptimize(ImgCfgParse(&record, "2A_WB", "0"));
}
BENCHMARK(ParseKeyByItsBeginning);

void ReplaceOneValue(benchmark::State &state)
{
    for (auto _ : state)
        if (sysconf_fset(Path(), "2A_WB_R", "600") != 0)
            state.SkipWithError("the value was not replaced");
}
BENCHMARK(ReplaceOneValue)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
