// SPDX-License-Identifier: MIT
//
// The key=value store: byte-exact results against a model over written-out and generated files, and the
// replacement with each of its calls failing, or the process dying there.
#include "fakeBoard.h"

#include "kelisp/sysconf.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <thread>

// The calls of the replacement that the fake board leaves alone are
// recorded here, so that they can fail, too.
static bool IsOurs(FILE *file)
{
    return file != nullptr && Board().openFiles.count(file) != 0;
}

#define RECORDED(type, name, parameters, arguments, condition, failure)                                      \
    extern "C" type __real_##name parameters;                                                                \
    extern "C" type __wrap_##name parameters                                                                 \
    {                                                                                                        \
        return (condition) && Board().Call(#name) ? (failure) : __real_##name arguments;                     \
    }
RECORDED(size_t, fwrite, (const void *data, size_t size, size_t count, FILE *file), (data, size, count, file),
         IsOurs(file), 0)
RECORDED(int, fflush, (FILE * file), (file), IsOurs(file), EOF)
RECORDED(int, flock, (int fd, int operation), (fd, operation), true, -1)
RECORDED(int, fchown, (int fd, uid_t user, gid_t group), (fd, user, group), true, -1)
RECORDED(int, fchmod, (int fd, mode_t mode), (fd, mode), true, -1)
extern "C" int __wrap_fprintf(FILE *file, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = IsOurs(file) && Board().Call("fprintf") ? -1 : vfprintf(file, format, args);
    va_end(args);
    return result;
}
// The second name is that of a 32-bit C library's call with 64-bit times.
extern "C" int __wrap_fstat(int fd, struct stat *out)
{
    const bool recorded = Board().openFiles.size() == 2;
    return recorded && Board().Call("fstat") ? -1 : fstatat(fd, "", out, AT_EMPTY_PATH);
}
extern "C" [[gnu::alias("__wrap_fstat")]] int __wrap___fstat64_time64(int, struct stat *);

namespace
{

const std::string path = "/mnt/nand/conf.img";
const std::string temp = path + ".tmp";

// ---- The model: the rules of the store, over whole texts

Lines Pieces(const std::string &text)
{
    Lines pieces;
    for (size_t at = 0; at < text.size(); at += pieces.back().size())
        pieces.push_back(text.substr(at, std::min<size_t>(254, text.find('\n', at) - at) + 1));
    return pieces;
}

bool Matches(const std::string &line, const std::string &key)
{
    return line[0] != '#' && line.compare(0, key.size(), key) == 0 && line.find('=') != std::string::npos;
}

std::string Replaced(const std::string &text, const std::string &key, const std::string &value)
{
    std::string out;
    for (const std::string &line : Pieces(text))
        out += Matches(line, key) ? line.substr(0, line.find('=')) + "=" + value + "\n" : line;
    return out;
}

std::optional<std::string> ValueOf(const std::string &text, const std::string &key)
{
    for (const std::string &line : Pieces(text)) {
        if (!Matches(line, key))
            continue;
        std::string value = line.substr(line.find('=') + 1);
        value.erase(0, std::min(value.find_first_not_of(' '), value.size()));
        if (!value.empty() && value[0] == '"')
            value = value.substr(1, value.find('"', 1) - 1);
        size_t end = 0;
        while (end < value.size() && value[end] >= ' ' && value[end] <= '~')
            ++end;
        return value.substr(0, end);
    }
    return {};
}

class Store : public BoardTest
{
  protected:
    void Write(const std::string &text) { std::ofstream(board.RealPath(path), std::ios::binary) << text; }
    std::string Read() { return board.ReadFile(path); }
    // Status of a process of its own that does this.
    int RunChild(const std::function<int()> &action)
    {
        const pid_t child = fork();
        if (child == 0)
            _exit(action());
        int status = -1;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    bool TempExists() { return std::filesystem::exists(board.RealPath(temp)); }

    // Reads the key and sets it.
    void Expect(const std::string &text, const std::string &key, const std::string &value,
                const std::optional<std::string> &expected, const std::string &replaced)
    {
        Write(text);
        char buffer[256] = "untouched";
        EXPECT_EQ(sysconf_fget(path.c_str(), key.c_str(), buffer), 0);
        EXPECT_EQ(buffer, expected.value_or("untouched")) << text;
        EXPECT_EQ(sysconf_fset(path.c_str(), key.c_str(), value.c_str()), 0);
        EXPECT_EQ(Read(), replaced);
        EXPECT_FALSE(TempExists());
    }
};

TEST_F(Store, WrittenOutCases)
{
    // text, value of K (none: untouched), text after K was set to 6
    const std::tuple<std::string, std::optional<std::string>, const char *> cases[] = {
        // clang-format off
        {"K=5\n", "5", "K=6\n"}, {"K =  5\n", "5", "K =6\n"}, {"K=5", "5", "K=6\n"},
        {"K=5 # rest\r\n", "5 # rest", "K=6\n"}, {"K=5\tremark\n", "5", "K=6\n"},
        {"K=\"a b\" c\n", "a b", "K=6\n"}, {"K=\"a b\n", "a b", "K=6\n"}, {"K=\n", "", "K=6\n"},
        {"K=5\"6\n", "5\"6", "K=6\n"}, {"K\nK=7\nK=8\n", "7", "K\nK=6\nK=6\n"},
        {" K=5\n#K=5\n", std::nullopt, " K=5\n#K=5\n"}, {"J=0\nK_R=1\nKB=2\n", "1", "J=0\nK_R=6\nKB=6\n"},
        {"k=5\n", std::nullopt, "k=5\n"}, {"K=~\xE4\n", "~", "K=6\n"}, {"", std::nullopt, ""},
        // clang-format on
    };
    for (const auto &[text, expected, replaced] : cases)
        Expect(text, "K", "6", expected, replaced);
}

TEST_F(Store, GeneratedFilesLikeTheModel)
{
    std::mt19937 random(20240501);
    const std::string atoms[] = {
        // clang-format off
        "2A_WB", "_R", "=", " ", "\"", "#", "\n", "\n", "\r\n", "\t", "5", "x y", "\x80", "\x7F",
        std::string(1, '\0'), std::string(90, 'z'), std::string(255, '\0'), "2A_WB_R=1\n", "=",
        // clang-format on
    };
    for (int round = 0; round < 300; ++round) {
        std::string text;
        for (auto i = random() % 40; i > 0; --i)
            text += atoms[random() % std::size(atoms)];
        const std::string key = std::array{"2A_WB", "2A_WB_R", "#"}[random() % 3],
                          value = atoms[random() % 6];
        Expect(text, key, value, ValueOf(text, key), Replaced(text, key, value));
    }
}

TEST_F(Store, ReplacementIsOneRewriteInThisOrderAndKeepsModeAndOwner)
{
    Write("A=1\nK=5\n");
    const std::string real = board.RealPath(path);
    const bool root = getuid() == 0;
    EXPECT_EQ(root ? chown(real.c_str(), 1234, 4321) : 0, 0);
    chmod(real.c_str(), 0604);
    EXPECT_EQ(sysconf_fset(path.c_str(), "K", "6"), 0);
    Lines lines = board.Take();
    EXPECT_EQ(std::erase(lines, "fchown"), root ? 1U : 0U);
    EXPECT_EQ(lines, Lines({"open /mnt/nand ro",
                            "flock",
                            "open " + path + " ro",
                            "fdopen " + path + " r",
                            "open " + temp + " wo",
                            "fdopen " + temp + " w",
                            "fstat",
                            "fstat",
                            "fstat",
                            "fchmod",
                            "fwrite",
                            "fwrite",
                            "fprintf",
                            "fflush",
                            "fsync",
                            "fclose " + path,
                            "fclose " + temp,
                            "rename " + temp + " " + path,
                            "fsync",
                            "flock",
                            "close /mnt/nand"}));
    struct stat info = {};
    stat(real.c_str(), &info);
    EXPECT_EQ(info.st_mode & 07777, 0604U);
    EXPECT_EQ(info.st_uid, root ? 1234 : getuid());
    EXPECT_EQ(info.st_gid, root ? 4321 : getgid());
}

// Each call failing in turn until none is left to fail.
TEST_F(Store, AnyCallMayFail)
{
    const std::string before = "A=1\nK=5\nB=2", after = "A=1\nK=6\nB=2";
    int nth = 0;
    for (bool failed = true; failed;) {
        Write(before);
        chmod(board.RealPath(path).c_str(), 0600);
        EXPECT_EQ(getuid() == 0 ? chown(board.RealPath(path).c_str(), 1, 1) : 0, 0);
        board.Fail("", ++nth, ENOSPC);
        std::string failing;
        board.onCall = [&, count = 0](const std::string &line) mutable {
            failing = ++count == nth ? line : failing;
        };
        const int status = sysconf_fset(path.c_str(), "K", "6");
        board.onCall = nullptr;
        failed = !failing.empty();
        const bool renamed = Read() == after;
        EXPECT_EQ(status, renamed ? 0 : -1) << failing;
        EXPECT_TRUE(renamed || Read() == before) << failing;
        EXPECT_TRUE(!TempExists() || failing == "fdopen " + temp + " w" || failing.starts_with("rename") ||
                    (failing == "fstat" && board.ReadFile(temp).empty()))
            << failing;
        std::filesystem::remove(board.RealPath(temp));
        EXPECT_TRUE(board.openFiles.empty() && board.open.empty()) << failing;
        Board().Reset();
    }
    EXPECT_GT(nth, 15);
}

TEST_F(Store, DyingAtAnyCallLeavesOldOrNew)
{
    const std::string before = "A=1\nK=5\nB=2", after = "A=1\nK=6\nB=2";
    bool died = true;
    for (int nth = 1; died; ++nth) {
        Write(before);
        const int status = RunChild([&] {
            board.onCall = [nth, count = 0](const std::string &) mutable {
                if (++count == nth)
                    _exit(9);
            };
            return sysconf_fset(path.c_str(), "K", "6");
        });
        died = status == 9;
        EXPECT_TRUE(died || status == 0);
        EXPECT_TRUE(Read() == before || Read() == after) << nth;
        EXPECT_EQ(sysconf_fset(path.c_str(), "K", "6"), 0); // what was left behind does not stop the next one
        EXPECT_EQ(Read(), after);
        EXPECT_FALSE(TempExists());
    }
}

TEST_F(Store, FullMediumAndUnreadableSource)
{
    const std::string before(9000, '\n');
    Write(before + "K=5\n");
    EXPECT_EQ(RunChild([] {
                  signal(SIGXFSZ, SIG_IGN);
                  const rlimit limit = {5000, 5000};
                  setrlimit(RLIMIT_FSIZE, &limit);
                  return -sysconf_fset(path.c_str(), "K", "6");
              }),
              1);
    EXPECT_EQ(Read(), before + "K=5\n");
    EXPECT_FALSE(TempExists());
    EXPECT_EQ(sysconf_fset("/mnt/nand", "K", "6"), -1); // a folder opens, but cannot be read
    EXPECT_FALSE(std::filesystem::exists(board.RealPath("/mnt/nand.tmp")));
}

TEST_F(Store, MessagesAndRefusals)
{
    char value[256] = "untouched";
    FILE *stream = tmpfile();
    const std::string longest = "/mnt/nand/" + std::string(113, 'p'), tooLong = longest + "p";
    for (const std::string &file : {longest, tooLong})
        std::ofstream(board.RealPath(file)) << "K=5\n";
    const auto expect = [&](const std::string &message, int status) {
        Lines lines = board.Take();
        std::erase_if(lines, [](const std::string &line) {
            return line.starts_with("fclose") || line.starts_with("close /") || line == "flock";
        });
        lines.erase(lines.begin(), lines.end() - std::min<long>(3, static_cast<long>(lines.size())));
        EXPECT_EQ(lines, Lines({"openlog camStat 33 8", "syslog 3 " + message, "closelog"}));
        EXPECT_EQ(status, -1) << message;
    };
    const char *const name = path.c_str();
    expect("invalid args.\n", sysconf_get(nullptr, "K", value));
    expect("invalid args.\n", sysconf_get(stream, nullptr, value));
    expect("invalid args.\n", sysconf_get(stream, "K", nullptr));
    expect("invalid args.\n", sysconf_fget(nullptr, "K", value));
    expect("invalid args.\n", sysconf_fget(name, nullptr, value));
    expect("invalid args.\n", sysconf_fget(name, "K", nullptr));
    expect("can not open sysconf file " + path + ".\n", sysconf_fget(name, "K", value));
    expect("sysconf_fset invalid args", sysconf_fset(nullptr, "K", "6"));
    expect("sysconf_fset invalid args", sysconf_fset(name, nullptr, "6"));
    expect("sysconf_fset invalid args", sysconf_fset(name, "K", nullptr));
    expect("can not open sysconf file " + path + ".\n", sysconf_fset(name, "K", "6"));
    expect("Can not create a temp file for write.", sysconf_fset(tooLong.c_str(), "K", "6"));
    board.Fail("fdopen " + longest + ".tmp");
    expect("Can not create a temp file for write.", sysconf_fset(longest.c_str(), "K", "6"));
    board.Fail("open /mnt/nand ro");
    expect("Can not create a temp file for write.", sysconf_fset(longest.c_str(), "K", "6"));
    board.Fail("flock", 1, EWOULDBLOCK, 1000);
    expect("Can not create a temp file for write.", sysconf_fset(longest.c_str(), "K", "6"));
    EXPECT_NEAR(static_cast<double>(board.ElapsedMs()), 10000, 10) << "the wait for another writer";
    board.Fail("rename");
    expect("moving file error.", sysconf_fset(longest.c_str(), "K", "6"));
    fclose(stream);
    EXPECT_STREQ(value, "untouched");
    EXPECT_EQ(sysconf_fset(longest.c_str(), "K", "6"), 0);
    EXPECT_EQ(board.ReadFile(longest), "K=6\n");
}

TEST_F(Store, ReaderBesideWriterSeesWholeFiles)
{
    const std::string real = board.root + "/beside.img", tail = std::string(6000, 't') + "\n";
    const std::string first = "K=1\n" + tail, second = "K=22222\n" + tail;
    std::ofstream(real) << first;
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int i = 0; i < 200; ++i)
            EXPECT_EQ(sysconf_fset(real.c_str(), "K", i % 2 == 0 ? "22222" : "1"), 0);
        done = true;
    });
    int reads = 0;
    for (; !done || reads == 0; ++reads) {
        const std::string seen = board.ReadFile(real);
        EXPECT_TRUE(seen == first || seen == second) << seen.size();
    }
    writer.join();
    EXPECT_EQ(board.ReadFile(real), first);
}

} // namespace
