// SPDX-License-Identifier: MIT
//
// Nodes come and go, and requests wait for each other: one thread serves all of them, in their order. What a
// request moves between the program and the driver is in served.cpp.
#include "sim/serve/serve.h"

#include "sim/board/board.h"
#include "sim/drivers/devices.h"
#include "sim/serve/served.h"
#include "sim/trace/trace.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <deque>
#include <string>
#include <vector>

namespace sim
{

namespace
{

// What libfuse says last, for the problem that follows.
std::string gComplaint;

[[gnu::format(printf, 2, 0)]] void KeepComplaint(enum fuse_log_level, const char *format, va_list arguments)
{
    char text[256];
    vsnprintf(text, sizeof(text), format, arguments);
    gComplaint = std::string(text, strcspn(text, "\n"));
}

bool Tell(const std::string &what, const std::string &why, std::string *problem)
{
    *problem = what + ": " + why;
    return false;
}

std::string NameOf(const Device &device)
{
    return strrchr(device.path, '/') + 1;
}

// A session of the kernel's CUSE: one character device, there from Start to its end.
class CuseDevice
{
  public:
    explicit CuseDevice(const Device &device) : served_{&device, false} {}
    ~CuseDevice()
    {
        if (session_ != nullptr)
            fuse_session_destroy(session_);
        free(buffer_.mem);
    }
    CuseDevice(const CuseDevice &) = delete;
    CuseDevice &operator=(const CuseDevice &) = delete;

    // The kernel makes the device when it has asked, and is answered.
    bool Start(const std::string &name, std::string *problem)
    {
        const std::string wanted = "DEVNAME=" + name;
        const char *words[] = {wanted.c_str()};
        const cuse_info info = {0, 0, 1, words, CUSE_UNRESTRICTED_IOCTL};
        char program[] = "camSim";
        char foreground[] = "-f";
        char *arguments[] = {program, foreground, nullptr};
        int threads = 0;
        session_ = cuse_lowlevel_setup(2, arguments, &info, &kServedCalls, &threads, &served_);
        while (session_ != nullptr && !served_.isReady && fuse_session_exited(session_) == 0)
            ServeNext();
        return served_.isReady ||
               Tell("/dev/" + name, gComplaint.empty() ? "the kernel refuses it" : gComplaint, problem);
    }

    int Descriptor() const { return fuse_session_fd(session_); }

    // Waits for a request and serves it; false when there will be none.
    bool ServeNext()
    {
        const int got = fuse_session_receive_buf(session_, &buffer_);
        if (got > 0)
            fuse_session_process_buf(session_, &buffer_);
        else if (got != -EINTR)
            fuse_session_exit(session_);
        return fuse_session_exited(session_) == 0;
    }

  private:
    Served served_;
    fuse_session *session_ = nullptr;
    fuse_buf buffer_ = {};
};

// All nodes of the board in a folder; what was made is gone in the end.
class Nodes
{
  public:
    explicit Nodes(std::string folder) : folder_(std::move(folder)) {}
    ~Nodes()
    {
        for (const std::string &file : files_)
            unlink(file.c_str());
    }
    Nodes(const Nodes &) = delete;
    Nodes &operator=(const Nodes &) = delete;

    bool Make(std::string *problem)
    {
        for (const Device &device : AllDevices()) {
            struct stat status = {};
            if (lstat(PathOf(device).c_str(), &status) == 0)
                return Tell(PathOf(device), strerror(EEXIST), problem);
        }
        const int control = open("/dev/cuse", O_RDWR | O_CLOEXEC);
        if (control < 0) {
            const bool isMissing = errno == ENOENT || errno == ENODEV;
            return Tell("/dev/cuse",
                        strerror(errno) +
                            std::string(isMissing ? ": modprobe cuse, or a kernel with CUSE" : ""),
                        problem);
        }
        close(control);
        for (const Device &device : AllDevices())
            if (!(IsServedFile(device) ? MakeFile(device, problem) : MakeDevice(device, problem)))
                return false;
        return true;
    }

    void Serve(int signals)
    {
        std::vector<pollfd> waits = {{signals, POLLIN, 0}};
        for (const CuseDevice &device : devices_)
            waits.push_back({device.Descriptor(), POLLIN, 0});
        while (poll(waits.data(), waits.size(), -1) >= 0 || errno == EINTR) {
            if (waits[0].revents != 0)
                return;
            for (size_t i = 0; i < devices_.size(); ++i)
                if (waits[i + 1].revents != 0 && !devices_[i].ServeNext())
                    return;
        }
    }

  private:
    std::string PathOf(const Device &device) const { return folder_ + "/" + NameOf(device); }

    // As large as what a program maps of it.
    bool MakeFile(const Device &device, std::string *problem)
    {
        const std::string path = PathOf(device);
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (file < 0)
            return Tell(path, strerror(errno), problem);
        files_.push_back(path);
        const off_t size = device.memory != nullptr ? off_t{device.memory->base} + device.memory->length : 0;
        const bool isSized = ftruncate(file, size) == 0;
        const int error = errno;
        close(file);
        return isSized || Tell(path, strerror(error), problem);
    }

    // The kernel makes its node in /dev; a node elsewhere is another one for the same device.
    bool MakeDevice(const Device &device, std::string *problem)
    {
        const bool isElsewhere = folder_ != "/dev";
        const std::string name =
            (isElsewhere ? "camSim." + std::to_string(getpid()) + "." : "") + NameOf(device);
        if (!devices_.emplace_back(device).Start(name, problem))
            return false;
        const std::string node = "/dev/" + name;
        struct stat status = {};
        if (stat(node.c_str(), &status) != 0)
            return Tell(node, strerror(errno), problem);
        if (!isElsewhere)
            return true;
        if (mknod(PathOf(device).c_str(), S_IFCHR | 0600, status.st_rdev) != 0)
            return Tell(PathOf(device), strerror(errno), problem);
        files_.push_back(PathOf(device));
        return true;
    }

    std::string folder_;
    std::vector<std::string> files_;
    std::deque<CuseDevice> devices_; // sessions refer to them: they stay where they are
};

} // namespace

bool ServeNodes(const std::string &folder, const std::function<void()> &ready, std::string *problem)
{
    sigset_t ends;
    sigemptyset(&ends);
    for (const int end : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&ends, end);
    sigprocmask(SIG_BLOCK, &ends, nullptr);
    const int signals = signalfd(-1, &ends, SFD_CLOEXEC);
    fuse_set_log_func(KeepComplaint);
    gBoard.kernelLog =
        open("/dev/kmsg", O_WRONLY | O_CLOEXEC); // where programs look for what a bus's driver says
    StartTrace();
    Nodes nodes(folder);
    const bool isMade = nodes.Make(problem);
    if (isMade) {
        ready();
        nodes.Serve(signals);
    }
    EndTrace();
    close(gBoard.kernelLog);
    close(signals);
    return isMade;
}

bool IsServed(Call call, const char *path)
{
    constexpr Call kOthers[] = {Call::Close, Call::Fcntl, Call::Mmap, Call::Munmap};
    Place place;
    FindPlace(path, &place);
    for (const Call other : kOthers)
        if (call == other)
            return false;
    return (call <= Call::Write || call >= Call::I2cSelect) && call != Call::Flash &&
           (path[0] == '\0' || (place.device != nullptr && !IsServedFile(*place.device)));
}

} // namespace sim
