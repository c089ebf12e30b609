// SPDX-License-Identifier: MIT
//
// Campaigns on sysconf_fset, on a real file system: every system call of a replacement failing, cut short or being
// the last one; many writers and readers at once; everything that can stand at the names that it uses.
#include "campaign.h"
#include "kelisp/sysconf.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <thread>

namespace
{

namespace fs = std::filesystem;

class Store : public ::testing::Test
{
  protected:
    Campaign campaign{1};
    char root[32] = "/tmp/storeCampaignXXXXXX";
    const std::string folder = std::string(mkdtemp(root)) + "/f";
    const std::string file = folder + "/conf.img", temp = file + ".tmp", errors = std::string(root) + "/err";

    Store() { fs::create_directory(folder); }
    ~Store() override { fs::remove_all(root); }

    static void Write(const std::string &path, const std::string &text)
    {
        std::ofstream(path, std::ios::binary) << text;
    }
    int Set(const char *value) const { return sysconf_fset(file.c_str(), "K", value); }

    // A process that does this, its messages in a file; it is ended should it hang.
    pid_t Start(const std::function<int()> &action) const
    {
        const pid_t child = fork();
        if (child == 0) {
            dup2(open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
            alarm(15);
            _exit(action());
        }
        return child;
    }
    static int End(pid_t child)
    {
        int status = -1;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
};

// ---- replace

#if defined(__x86_64__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

constexpr int kKill = -1, kCutShort = -2; // beside the errnos that a call may give

class Replace : public Store
{
  protected:
    const std::string tail = std::string(9000, 't') + "\n", before = "K=5\n" + tail + "K=5",
                      after = "K=6\n" + tail + "K=6\n", next = "K=7\n" + tail + "K=7\n";
    using Plan = std::map<int, int>; // by the call's position: what happens to it

    // Replaces according to plan; returns the exit status, and how many calls there were.
    int RunTraced(const Plan &plan, int *calls)
    {
        const pid_t child = Start([this] {
            ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            raise(SIGSTOP);
            return -Set("6");
        });
        const auto step = [child] {
            int status = 0;
            return ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0 &&
                   waitpid(child, &status, 0) == child && WIFSTOPPED(status);
        };
        waitpid(child, nullptr, 0);
        user_regs_struct regs = {};
        for (*calls = 0; step(); ++*calls) {
            ptrace(PTRACE_GETREGS, child, nullptr, &regs);
            const auto planned = plan.find(*calls);
            const int what = planned == plan.end() ? 0 : planned->second;
            if (regs.orig_rax == SYS_exit_group) {
                ptrace(PTRACE_DETACH, child, nullptr, nullptr);
                break;
            }
            const int other = regs.orig_rax == SYS_rename ? open(folder.c_str(), O_RDONLY) : -1;
            EXPECT_NE(flock(other, LOCK_EX | LOCK_NB), 0) << "renamed without the lock";
            close(other);
            if (what == kKill)
                kill(child, SIGKILL);
            else if (what == kCutShort && regs.orig_rax == SYS_write)
                regs.rdx = (regs.rdx + 1) / 2;
            else if (what > 0)
                regs.orig_rax = ~0ULL;
            ptrace(PTRACE_SETREGS, child, nullptr, &regs);
            step();
            if (what > 0) {
                regs.rax = static_cast<unsigned long long>(-what);
                ptrace(PTRACE_SETREGS, child, nullptr, &regs);
            }
        }
        return End(child);
    }

    int lastCalls = 0, tried = 0;

    void Try(const Plan &plan)
    {
        std::string text;
        for (const auto &[position, what] : plan)
            text += "call " + std::to_string(position) + ": " + std::to_string(what) + " ";
        const ::testing::ScopedTrace trace(__FILE__, __LINE__, text);
        Write(file, before);
        chmod(file.c_str(), 0640);
        const uid_t owner = getuid() == 0 && campaign.Below(2) != 0 ? 1234 : getuid();
        EXPECT_EQ(chown(file.c_str(), owner, getgid()), 0);
        const auto leaveOpen = [this] { return mknod(temp.c_str(), S_IFREG, 0) + chmod(temp.c_str(), 0666); };
        EXPECT_TRUE(owner == getuid() || leaveOpen() == 0); // a copy of another writer, open to all
        const int status = RunTraced(plan, &lastCalls);
        const std::string now = ReadFile(file);
        ++tried;
        ASSERT_TRUE(status == 0 || status == 1 || status == 128 + SIGKILL) << status;
        ASSERT_TRUE((status != 0 && now == before) || (status != 1 && now == after)) << status;
        struct stat info = {};
        stat(temp.c_str(), &info);
        ASSERT_TRUE(info.st_uid != owner || (info.st_mode & 0777 & ~0640U) == 0) << "open to others";
        ASSERT_EQ(Set("7"), 0);
        ASSERT_EQ(ReadFile(file), next);
        stat(file.c_str(), &info);
        ASSERT_EQ(info.st_mode & 07777, 0640U);
        ASSERT_FALSE(fs::exists(temp));
    }
};

TEST_F(Replace, IsOldOrNewWhateverHappensToAnyOfItsSystemCalls)
{
    constexpr int kErrnos = 133;
    Try({});
    const int calls = lastCalls;
    EXPECT_GT(calls, 20);
    const auto anyErrno = [this] { return static_cast<int>(campaign.Below(kErrnos)) + 1; };
    const bool isLong = Campaign::IsLong();
    for (int at = 0; at < calls; ++at) {
        for (const int what : {kKill, kCutShort, ENOSPC, EINTR})
            ASSERT_NO_FATAL_FAILURE(Try({{at, what}}));
        for (int i = 1; i <= (isLong ? kErrnos : 2); ++i)
            ASSERT_NO_FATAL_FAILURE(Try({{at, isLong ? i : anyErrno()}}));
    }
    while (campaign.Goes()) {
        const int first = static_cast<int>(campaign.Below(static_cast<size_t>(calls))),
                  second = first + 1 + static_cast<int>(campaign.Below(9));
        ASSERT_NO_FATAL_FAILURE(
            Try({{first, anyErrno()}, {second, campaign.Below(2) != 0 ? kKill : anyErrno()}}));
    }
    printf("%d calls, %d replacements\n", calls, tried);
}

#endif

// ---- writers

TEST_F(Store, WritersLoseNothingAndReadersSeeWholeFiles)
{
    constexpr int kProcesses = 4, kThreads = 2, kWriters = kProcesses * kThreads, kReaders = 3;
    const std::string tail = std::string(6000, 't') + "\nend\n";
    std::string text;
    for (int i = 0; i < kWriters; ++i)
        text += "K" + std::to_string(i) + "=0\n";
    Write(file, text + tail);
    // Shared with the writers: the number that each has stored last.
    auto *last =
        static_cast<std::atomic<int> *>(mmap(nullptr, kWriters * sizeof(std::atomic<int>),
                                             PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const auto write = [&](int writer) {
        const std::string key = "K" + std::to_string(writer);
        while (campaign.HasTime() || last[writer] == 0) {
            if (sysconf_fset(file.c_str(), key.c_str(), std::to_string(last[writer] + 1).c_str()) != 0)
                _exit(1);
            ++last[writer];
        }
    };
    std::vector<pid_t> children;
    children.reserve(kProcesses);
    for (int process = 0; process < kProcesses; ++process)
        children.push_back(Start([&, process] {
            alarm(3600); // longer than a campaign
            std::thread other(write, kThreads * process);
            write(kThreads * process + 1);
            other.join();
            return 0;
        }));
    std::atomic<int> torn{0}, reads{0};
    const auto read = [&] {
        int seen[kWriters] = {};
        do {
            std::istringstream lines(ReadFile(file));
            std::string line;
            bool whole = true;
            for (int i = 0; i < kWriters; ++i) {
                const std::string key = "K" + std::to_string(i) + "=";
                std::getline(lines, line);
                const int value = line.starts_with(key) ? atoi(line.c_str() + key.size()) : -1;
                whole = whole && value >= seen[i]; // an update that gets lost goes back
                seen[i] = value;
            }
            whole = whole && std::string(std::istreambuf_iterator<char>(lines), {}) == tail;
            torn += whole ? 0 : 1;
            ++reads;
        } while (campaign.HasTime());
    };
    std::vector<std::thread> readers;
    readers.reserve(kReaders);
    for (int i = 0; i < kReaders; ++i)
        readers.emplace_back(read);
    for (std::thread &reader : readers)
        reader.join();
    for (const pid_t child : children)
        EXPECT_EQ(End(child), 0) << "a set was refused: " << ReadFile(errors);
    EXPECT_EQ(torn, 0) << "of " << reads;
    std::string expected;
    int sets = 0;
    for (int i = 0; i < kWriters; ++i) {
        expected += "K" + std::to_string(i) + "=" + std::to_string(last[i]) + "\n";
        sets += last[i];
    }
    EXPECT_EQ(ReadFile(file), expected + tail);
    EXPECT_FALSE(fs::exists(temp));
    printf("%d sets, %d reads\n", sets, reads.load());
    munmap(last, kWriters * sizeof(std::atomic<int>));
}

// ---- names

// What can stand at a name. `victim` is a file elsewhere.
const struct {
    const char *name;
    bool isFile, opens; // its content is a plain file's; it can be opened for reading
    std::function<void(const char *path, const char *victim)> make;
} kThings[] = {
    // clang-format off
    {"nothing", false, false, [](const char *, const char *) {}},
    {"file", true, true, [](const char *path, const char *) { std::ofstream(path) << "K=5\n"; }},
    {"hard link", true, true, [](const char *path, const char *victim) { EXPECT_EQ(link(victim, path), 0); }},
    {"link", true, true, [](const char *path, const char *victim) { EXPECT_EQ(symlink(victim, path), 0); }},
    {"dangling link", false, false, [](const char *path, const char *) { EXPECT_EQ(symlink("none", path), 0); }},
    {"link to itself", false, false, [](const char *path, const char *) { EXPECT_EQ(symlink(path, path), 0); }},
    {"FIFO", false, true, [](const char *path, const char *) { EXPECT_EQ(mkfifo(path, 0600), 0); }},
    {"folder", false, true, [](const char *path, const char *) { EXPECT_EQ(mkdir(path, 0700), 0); }},
    {"socket", false, false, [](const char *path, const char *) { EXPECT_EQ(mknod(path, S_IFSOCK | 0600, 0), 0); }},
    {"device", false, true, [](const char *path, const char *) { // without root something like it
        EXPECT_TRUE(mknod(path, S_IFCHR | 0600, makedev(1, 3)) == 0 || mkfifo(path, 0600) == 0); }},
    // clang-format on
};

TEST_F(Store, WhateverStandsAtTheNamesIsLeftAlone)
{
    const std::string victim = std::string(root) + "/victim";
    for (const auto &atFile : kThings) {
        for (const auto &atTemp : kThings) {
            for (const bool reader : {false, true}) { // of a FIFO at the temporary name
                SCOPED_TRACE(std::string(atFile.name) + ", temporary: " + atTemp.name);
                fs::remove_all(folder);
                fs::create_directory(folder);
                Write(victim, "K=5\n");
                atFile.make(file.c_str(), victim.c_str());
                atTemp.make(temp.c_str(), victim.c_str());
                const int fd = reader ? open(temp.c_str(), O_RDONLY | O_NONBLOCK) : -1;
                struct stat was = {}, is = {};
                const int stood = lstat(temp.c_str(), &was);
                char value[SYSCONF_LINE_SIZE];
                const bool null = strcmp(atFile.name, "device") == 0 && fs::is_character_file(file);
                EXPECT_EQ(End(Start([&] { return -sysconf_fget(file.c_str(), "K", value); })),
                          atFile.isFile || strcmp(atFile.name, "folder") == 0 || null ? 0 : 1);
                const int status = End(Start([&] { return -Set("6"); }));
                close(fd);
                const bool usable = stood != 0 || strcmp(atTemp.name, "file") == 0;
                const std::string message = !atFile.opens ? "can not open sysconf file " + file + ".\n"
                                            : !usable     ? "Can not create a temp file for write."
                                                          : "";
                const std::string said = ReadFile(errors);
                EXPECT_EQ(said.empty(), message.empty()) << said;
                EXPECT_NE(said.find(message), std::string::npos) << said;
                EXPECT_EQ(status, atFile.isFile && usable ? 0 : 1);
                EXPECT_EQ(ReadFile(victim), "K=5\n");
                EXPECT_EQ(atFile.isFile ? ReadFile(file) : "", !atFile.isFile ? ""
                                                               : usable       ? "K=6\n"
                                                                              : "K=5\n");
                const bool stays = stood == 0 && !(usable && atFile.opens);
                EXPECT_EQ(lstat(temp.c_str(), &is) == 0, stays);
                EXPECT_TRUE(!stays || (is.st_ino == was.st_ino && is.st_mode == was.st_mode));
            }
        }
        // The same things at the folder's name: none of them is one but the folder, which has no such file.
        fs::remove_all(folder);
        atFile.make(folder.c_str(), victim.c_str());
        EXPECT_EQ(End(Start([&] { return -Set("6"); })), 1) << atFile.name;
        EXPECT_NE(ReadFile(errors).find("can not open sysconf file "), std::string::npos) << atFile.name;
    }
}

TEST_F(Store, NobodyGainsAccess)
{
    constexpr char kAccess[] = "system.posix_acl_access", kDefault[] = "system.posix_acl_default";
    struct Acl {
        uint32_t version = 2;
        struct {
            uint16_t tag, permissions;
            uint32_t id;
        } entries[5];
        // user::rw-, user:1234:P, group::---, mask::P, other::---
        explicit Acl(uint16_t p) : entries{{1, 6, ~0U}, {2, p, 1234}, {4, 0, ~0U}, {16, p, ~0U}, {32, 0, ~0U}}
        {
        }
    };
    const bool isRoot = getuid() == 0;
    int kept = 0;
    for (int i = 0; i < 100 || campaign.Goes(); ++i) {
        fs::remove_all(folder);
        fs::create_directory(folder);
        Write(file, "K=5\n");
        const mode_t mode = campaign.Below(01000) | 0600;
        const Acl wanted(static_cast<uint16_t>(campaign.Below(8))), inherited(7);
        const bool hasAcl = campaign.Below(2) != 0;
        if (campaign.Below(2) != 0)
            setxattr(folder.c_str(), kDefault, &inherited, sizeof(inherited), 0);
        if (campaign.Below(2) != 0) { // left behind
            Write(temp, "rest of a longer copy");
            chmod(temp.c_str(), campaign.Below(01000) | 0600);
        }
        EXPECT_EQ(isRoot && campaign.Below(2) != 0 ? chown(file.c_str(), 1234, 4321) : 0, 0);
        chmod(file.c_str(), mode);
        const bool acl = hasAcl && setxattr(file.c_str(), kAccess, &wanted, sizeof(wanted), 0) == 0;
        struct stat before = {}, after = {};
        stat(file.c_str(), &before);
        char had[64], has[64];
        const ssize_t size = getxattr(file.c_str(), kAccess, had, sizeof(had));
        ASSERT_EQ(Set("6"), 0);
        stat(file.c_str(), &after);
        ASSERT_EQ(after.st_mode, before.st_mode);
        ASSERT_EQ(after.st_uid, before.st_uid);
        ASSERT_EQ(after.st_gid, before.st_gid);
        ASSERT_EQ(getxattr(file.c_str(), kAccess, has, sizeof(has)), size);
        ASSERT_TRUE(size < 0 || memcmp(had, has, static_cast<size_t>(size)) == 0);
        ASSERT_EQ(ReadFile(file), "K=6\n");
        kept += acl;
    }
    printf("%d access-control lists kept\n", kept);
}

} // namespace
