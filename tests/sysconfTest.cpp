// SPDX-License-Identifier: MIT
//
// The key=value store: values and replaced files byte by byte, and the replacement with each of its calls failing.
// What happens when the process dies, beside other writers and with other things at its names is storeCampaign's.
#include "fakeBoard.h"

#include "kelisp/sysconf.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

namespace
{

const std::string path = "/mnt/nand/conf.img";
const std::string temp = path + ".tmp";

class Store : public BoardTest
{
  protected:
    bool TempExists() { return std::filesystem::exists(board.RealPath(temp)); }

    // Reads the key, and sets it to 6.
    void Expect(const std::string &text, const char *key, const std::string &value,
                const std::string &replaced)
    {
        WriteFile(path, text);
        char buffer[256] = "untouched";
        EXPECT_EQ(sysconf_fget(path.c_str(), key, buffer), 0);
        EXPECT_EQ(buffer, value) << text;
        EXPECT_EQ(sysconf_fset(path.c_str(), key, "6"), 0);
        EXPECT_EQ(board.ReadFile(path), replaced);
        EXPECT_FALSE(TempExists());
    }
};

TEST_F(Store, ValuesAreReadAndReplaced)
{
    const std::string none = "untouched", comment(255, '#'), fives(300, '5');
    // text, value of K, text after K was set
    const std::array<std::string, 3> cases[] = {
        // clang-format off
        {"K=5\n", "5", "K=6\n"}, {"K =  5\n", "5", "K =6\n"}, {"K=5", "5", "K=6\n"},
        {"K=5 # rest\r\n", "5 # rest", "K=6\n"}, {"K=5\tremark\n", "5", "K=6\n"}, {"K==5\n", "=5", "K=6\n"},
        {"K=\"a b\" c\n", "a b", "K=6\n"}, {"K=\"a b\n", "a b", "K=6\n"}, {"K=\n", "", "K=6\n"},
        {"K=5\"6\n", "5\"6", "K=6\n"}, {"K\nK=7\nK=8\n", "7", "K\nK=6\nK=6\n"},
        {" K=5\n#K=5\n", none, " K=5\n#K=5\n"}, {"J=0\nK_R=1\nKB=2\n", "1", "J=0\nK_R=6\nKB=6\n"},
        {"k=5\n", none, "k=5\n"}, {"K=~\xE4\n", "~", "K=6\n"}, {"K= \x7F\n", "", "K=6\n"}, {"", none, ""},
        // lines longer than 255 bytes are several; zero bytes are bytes
        {comment + "K=5\n", "5", comment + "K=6\n"}, {comment.substr(1) + "K=5\n", none, comment.substr(1) + "K=5\n"},
        {"K=" + fives + "\n", fives.substr(47), "K=6\n" + fives.substr(253) + "\n"},
        {std::string("K\0=5\0x\nJ\0", 9), "5", std::string("K\0=6\nJ\0", 7)},
        // clang-format on
    };
    for (const auto &[text, value, replaced] : cases)
        Expect(text, "K", value, replaced);
    Expect("#=5\n", "#", none, "#=5\n");
    Expect("2A_WB_R=1\n", "2A_WB_R", "1", "2A_WB_R=6\n");
}

TEST_F(Store, ReplacementIsOneRewriteInThisOrderAndKeepsModeAndOwner)
{
    WriteFile(path, "A=1\nK=5\n");
    const std::string real = board.RealPath(path);
    const bool root = getuid() == 0;
    EXPECT_EQ(root ? chown(real.c_str(), 1234, 4321) : 0, 0);
    chmod(real.c_str(), 0604);
    board.onCall = [&](const std::string &line) {
        EXPECT_TRUE(line != "fsync " + temp || board.ReadFile(temp) == "A=1\nK=6\n")
            << "synced before it is whole";
    };
    EXPECT_EQ(sysconf_fset(path.c_str(), "K", "6"), 0);
    EXPECT_EQ(board.Take(),
              Lines({"open /mnt/nand ro", "open " + path + " ro", "open " + temp + " wo", "fwrite " + temp,
                     "fwrite " + temp, "fsync " + temp, "fclose " + path, "fclose " + temp,
                     "rename " + temp + " " + path, "fsync /mnt/nand", "close /mnt/nand"}));
    struct stat info = {};
    stat(real.c_str(), &info);
    EXPECT_EQ(info.st_mode & 07777, 0604U);
    EXPECT_EQ(info.st_uid, root ? 1234 : getuid());
    EXPECT_EQ(info.st_gid, root ? 4321 : getgid());
}

TEST_F(Store, AnyCallMayFail)
{
    const std::string before = "A=1\nK=5\nB=2", after = "A=1\nK=6\nB=2";
    int failures = 0;
    for (bool failed = true; failed; board.Reset()) {
        WriteFile(path, before);
        board.Fail("", failures + 1, ENOSPC);
        const int status = sysconf_fset(path.c_str(), "K", "6");
        const Lines lines = board.Take();
        failed = board.plans.empty();
        const std::string failing = failed ? lines[static_cast<size_t>(failures++)] : "";
        const bool kept = board.ReadFile(path) == before;
        EXPECT_TRUE(kept || board.ReadFile(path) == after) << failing;
        EXPECT_EQ(kept, failed && !failing.ends_with(" /mnt/nand")) << failing; // behind the rename
        EXPECT_EQ(status, kept ? -1 : 0) << failing;
        EXPECT_TRUE(!kept || errno == ENOSPC) << failing;
        EXPECT_EQ(TempExists(), failing.starts_with("rename")) << failing;
        EXPECT_TRUE(board.open.empty()) << failing;
    }
    EXPECT_GE(failures, 11);
}

TEST_F(Store, FullMedium)
{
    // The limit is met while the copy is written, or when it is flushed.
    for (const auto &[lines, limit] : {std::pair(9000, 5000), {1, 0}}) {
        const std::string before = std::string(static_cast<size_t>(lines), '\n') + "K=5\n";
        WriteFile(path, before);
        const pid_t child = fork();
        if (child == 0) {
            signal(SIGXFSZ, SIG_IGN);
            const rlimit most = {static_cast<rlim_t>(limit), static_cast<rlim_t>(limit)};
            setrlimit(RLIMIT_FSIZE, &most);
            _exit(-sysconf_fset(path.c_str(), "K", "6"));
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(WEXITSTATUS(status), 1);
        EXPECT_EQ(board.ReadFile(path), before);
        EXPECT_FALSE(TempExists());
    }
}

TEST_F(Store, MessagesAndRefusals)
{
    char value[256] = "untouched";
    FILE *stream = tmpfile();
    const std::string longest = "/mnt/nand/" + std::string(113, 'p'), tooLong = longest + "p";
    WriteFile(longest, "K=5\n");
    WriteFile(tooLong, "K=5\n");
    const char *const name = path.c_str(), *const other = longest.c_str();
    const std::string invalid = "invalid args.\n", invalidSet = "sysconf_fset invalid args",
                      cannotOpen = "can not open sysconf file " + path + ".\n",
                      cannotCreate = "Can not create a temp file for write.";
    const struct {
        std::function<int()> call;
        std::string message;
        const char *fails = nullptr;
    } cases[] = {
        // clang-format off
        {[&] { return sysconf_get(nullptr, "K", value); }, invalid}, {[&] { return sysconf_get(stream, nullptr, value); }, invalid},
        {[&] { return sysconf_get(stream, "K", nullptr); }, invalid}, {[&] { return sysconf_fget(nullptr, "K", value); }, invalid},
        {[&] { return sysconf_fget(name, nullptr, value); }, invalid}, {[&] { return sysconf_fget(name, "K", nullptr); }, invalid},
        {[&] { return sysconf_fget(name, "K", value); }, cannotOpen}, {[&] { return sysconf_fset(nullptr, "K", "6"); }, invalidSet},
        {[&] { return sysconf_fset(name, nullptr, "6"); }, invalidSet}, {[&] { return sysconf_fset(name, "K", nullptr); }, invalidSet},
        {[&] { return sysconf_fset(name, "K", "6"); }, cannotOpen}, {[&] { return sysconf_fset(tooLong.c_str(), "K", "6"); }, cannotCreate},
        {[&] { return sysconf_fset(other, "K", "6"); }, cannotCreate, "open /mnt/nand ro"},
        {[&] { return sysconf_fset(other, "K", "6"); }, "moving file error.", "rename"},
        // clang-format on
    };
    const auto expect = [&](const std::function<int()> &call, const std::string &message) {
        EXPECT_EQ(call(), -1) << message;
        EXPECT_EQ(board.Take([](const std::string &line) { return line.find("log") != std::string::npos; }),
                  Lines({"openlog camStat 33 8", "syslog 3 " + message, "closelog"}));
    };
    for (const auto &c : cases) {
        if (c.fails != nullptr)
            board.Fail(c.fails);
        expect(c.call, c.message);
    }
    fclose(stream);
    EXPECT_STREQ(value, "untouched");

    const int holder = open(board.RealPath("/mnt/nand").c_str(), O_RDONLY);
    flock(holder, LOCK_EX);
    const int64_t startMs = board.ElapsedMs();
    expect([&] { return sysconf_fset(other, "K", "6"); }, cannotCreate);
    EXPECT_EQ(board.ElapsedMs() - startMs, 9990) << "the wait for another writer";
    close(holder);
    EXPECT_EQ(sysconf_fset(other, "K", "6"), 0);
    EXPECT_EQ(board.ReadFile(longest), "K=6\n");
}

} // namespace
