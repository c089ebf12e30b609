// SPDX-License-Identifier: MIT
//
// What the image configuration costs, for files of 10 to 100,000 lines: loading beside inih with an empty handler,
// looking up the last key, replacing it; and the floor under each: the same bytes read, or read, written
// and put in place.
#include "config/confKeys.h"
#include "kelisp/imgConfig.h"
#include "kelisp/sysconf.h"

#include <benchmark/benchmark.h>
#include <ini.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <unistd.h>

namespace
{

constexpr char kLastKey[] = "2A_WB_LAST";

/// Configuration files by their number of lines: all keys in turn, at the end one that stands nowhere else.
class Files
{
  public:
    ~Files() { std::filesystem::remove_all(folder_); }

    const char *Path(long lines)
    {
        std::string &path = paths_[lines];
        if (path.empty()) {
            path = folder_ + "/" + std::to_string(lines);
            std::ofstream file(path);
            for (long line = 1; line < lines;)
                for (const kel::ConfKey &key : kel::kConfKeys)
                    if (IsSetting(key) && line++ < lines)
                        file << key.name << "=128\n";
            file << kLastKey << "=1\n";
        }
        return path.c_str();
    }

  private:
    /// The window's line is longer than inih reads, and the keys that load other files read more than this one.
    static bool IsSetting(const kel::ConfKey &key)
    {
        return key.action != kel::KeyAction::NoKey && key.action != kel::KeyAction::Window &&
               key.action != kel::KeyAction::LoadDefault && key.action != kel::KeyAction::LoadSystem;
    }
    static std::string MakeFolder()
    {
        std::string folder = "/tmp/confBenchXXXXXX";
        if (mkdtemp(folder.data()) == nullptr)
            std::abort();
        return folder;
    }
    std::string folder_ = MakeFolder();
    std::map<long, std::string> paths_;
};

Files gFiles;

void Load(benchmark::State &state)
{
    ImgCfgStatus record;
    ImgCfgDefault(&record);
    for ([[maybe_unused]] auto _ : state)
        if (ImgCfgLoadFile(&record, gFiles.Path(state.range(0))) != 0)
            state.SkipWithError("the file was not loaded");
}

int CountKey(void *count, const char *, const char *, const char *)
{
    ++*static_cast<long *>(count);
    return 1;
}

void LoadByInih(benchmark::State &state)
{
    long count = 0;
    for ([[maybe_unused]] auto _ : state) {
        count = 0;
        if (ini_parse(gFiles.Path(state.range(0)), CountKey, &count) != 0 || count != state.range(0))
            state.SkipWithError("inih does not see every key");
    }
}

/// The floor of loading and of a lookup: open, read everything, close.
void ReadOnly(benchmark::State &state)
{
    char piece[4096];
    for ([[maybe_unused]] auto _ : state) {
        const int file = open(gFiles.Path(state.range(0)), O_RDONLY | O_CLOEXEC);
        while (read(file, piece, sizeof(piece)) > 0)
            benchmark::DoNotOptimize(piece);
        close(file);
    }
}

void GetLast(benchmark::State &state)
{
    char value[SYSCONF_LINE_SIZE] = "";
    for ([[maybe_unused]] auto _ : state)
        if (sysconf_fget(gFiles.Path(state.range(0)), kLastKey, value) != 0 || value[0] == '\0')
            state.SkipWithError("the key was not found");
}

int FindKey(void *value, const char *, const char *key, const char *text)
{
    if (strcmp(key, kLastKey) == 0)
        strncpy(static_cast<char *>(value), text, SYSCONF_LINE_SIZE - 1);
    return 1;
}

void GetLastByInih(benchmark::State &state)
{
    char value[SYSCONF_LINE_SIZE] = "";
    for ([[maybe_unused]] auto _ : state)
        if (ini_parse(gFiles.Path(state.range(0)), FindKey, value) != 0 || value[0] == '\0')
            state.SkipWithError("the key was not found");
}

void SetLast(benchmark::State &state)
{
    for ([[maybe_unused]] auto _ : state)
        if (sysconf_fset(gFiles.Path(state.range(0)), kLastKey, "2") != 0)
            state.SkipWithError("the value was not replaced");
}

/// The floor of a replacement: the bytes copied into another file, both syncs, the rename.
void CopyAndRename(benchmark::State &state)
{
    const std::string path = gFiles.Path(state.range(0));
    const std::string copy = path + ".copy";
    const std::string folder = std::filesystem::path(path).parent_path();
    char piece[4096];
    for ([[maybe_unused]] auto _ : state) {
        const int from = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        const int to = open(copy.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        const int room = open(folder.c_str(), O_RDONLY | O_CLOEXEC);
        for (ssize_t length = 1; (length = read(from, piece, sizeof(piece))) > 0;)
            if (write(to, piece, static_cast<size_t>(length)) != length)
                state.SkipWithError("the copy was not written");
        fsync(to);
        rename(copy.c_str(), path.c_str());
        fsync(room);
        close(from);
        close(to);
        close(room);
    }
}

void Sizes(benchmark::internal::Benchmark *bench)
{
    bench->RangeMultiplier(10)->Range(10, 100000);
}
BENCHMARK(Load)->Apply(Sizes);
BENCHMARK(LoadByInih)->Apply(Sizes);
BENCHMARK(ReadOnly)->Apply(Sizes);
BENCHMARK(GetLast)->Apply(Sizes);
BENCHMARK(GetLastByInih)->Apply(Sizes);
BENCHMARK(SetLast)->Apply(Sizes)->UseRealTime();
BENCHMARK(CopyAndRename)->Apply(Sizes)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
