// SPDX-License-Identifier: MIT
//
// A board's folder: what is in it when it is new. Processes that make it at the same time wait for each other
// on the folder itself, which the kernel frees when one dies. The state comes last: a folder with it is whole.
#include "sim/launcher/boardFolder.h"

#include "sim/board/board.h"
#include "sim/board/camera.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace sim
{

namespace
{

namespace fs = std::filesystem;

constexpr uintmax_t kCmemBytes = kCmemEnd - kCmemBase; // sparse: takes room only where a program writes

constexpr char kConfiguration[] = R"(# Image configuration: KEY = VALUE, one setting a line.

# Sensor and lens
SNR_TYPE = 0
LEN_TYPE = 1
ICR_TYPE = 1

# Automatic exposure, gain and white balance: 1 on, 0 off
2A_AEC_EN = 1
2A_AGC_EN = 1
2A_AEL_EN = 0
2A_AWB_EN = 1
# Exposure ceiling 1 to 4, 0 for the longest; manual shutter 0 (slow) to 11 (fast)
2A_MAX_EXPOSURE = 0
2A_MAN_EXPOSURE = 3
# Gains 2, 4, 8 ... by their number: manual gain 0 to 6, gain ceiling 0 to 7
2A_MAX_GAIN = 2
2A_MAN_GAIN = 0
2A_LIMIT_INDEX = 0
2A_LIMIT_UPPER = 0
2A_LIMIT_LOWER = 0
# White-balance gains x 512; 2A_WB_SAVE = 1 stores those of the camera here
2A_WB_SAVE = 0
2A_WB_R = 512
2A_WB_B = 512
# Mains frequency in Hz
2A_DEFLICKER = 60

# Picture; what moves something: brightness 0 to 255, contrast 96 to 160,
# saturation 104 to 152, sharpness 56 to 119
IMG_BRIGHTNESS = 128
IMG_CONTRAST = 128
IMG_SATURATION = 128
IMG_SHARPNESS = 100
# Noise filter, 0: automatic noise reduction and day/night switching off, manual level;
# 1: automatic, fixed filter; others: automatic, with the level
IMG_NF_MODE = 1
IMG_NF_LEVEL = 0
IMG_FLIP = 0
IMG_MIRROR = 0

# Day and night: DN_FPS is the slow-shutter step 0 to 5, DN_LS the light sensor (1 dark)
DN_FPS = 0
DN_LS = 0

# Backlight compensation 0 to 8 (4 neutral), wide dynamic range 0 to 3
EXT_BLC = 4
EXT_WDR = 0
EXT_NF = 0
EXT_LSC = 0
EXT_DPC = 1
EXT_DEBUG = 0
)";

constexpr char kRealTimeClock[] = "rtc_time\t: 12:00:00\n"
                                  "rtc_date\t: 2024-05-01\n"
                                  "alrm_time\t: 00:00:00\n"
                                  "alrm_date\t: 1970-01-01\n"
                                  "alarm_IRQ\t: no\n"
                                  "24hr\t\t: yes\n";

constexpr char kKernelLog[] = "[    0.000000] Linux version of the camera board, ARM9\n"
                              "[    0.412031] i2c_davinci i2c_davinci.1: bus clock 100 kHz\n"
                              "[    0.873116] cmemk: allocated heap buffer 0x85000000 of size 0x1800000\n"
                              "[    1.204410] davinci_emac: link up, 100 Mbit\n"
                              "[    2.017725] i2c_davinci i2c_davinci.1: arbitration lost, retrying\n"
                              "[    3.330148] yaffs: mounted /mnt/nand\n";

struct TextFile {
    const char *name;
    const char *content;
};

constexpr TextFile kTextFiles[] = {{"sysconf/conf.img", kConfiguration},
                                   {"defconf/conf.img", kConfiguration},
                                   {"proc/driver/rtc", kRealTimeClock},
                                   {kKernelLogFile, kKernelLog}};

constexpr const char *kSubfolders[] = {"mnt/nand", "sysconf", "defconf", "proc/driver"};

// What a reset takes away: only what a board consists of,
// should somebody have put a board into a folder of theirs.
constexpr const char *kParts[] = {"mnt",          "sysconf",      "defconf", "proc",
                                  kKernelLogFile, kSystemLogFile, kVpssFile, kCmemFile};

// Creates a file with its content unless it is there.
void CreateFile(const fs::path &path, const char *content)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
    if (fd < 0) {
        if (errno == EEXIST)
            return;
        throw fs::filesystem_error("cannot create", path, std::error_code(errno, std::generic_category()));
    }
    const size_t length = strlen(content);
    const bool good = write(fd, content, length) == static_cast<ssize_t>(length);
    close(fd);
    if (!good)
        throw fs::filesystem_error("cannot write", path, std::error_code(ENOSPC, std::generic_category()));
}

void CreateMemory(const fs::path &path, uintmax_t size)
{
    CreateFile(path, "");
    if (fs::file_size(path) != size)
        fs::resize_file(path, size);
}

// The folder, held by this process alone.
class FolderLock
{
  public:
    explicit FolderLock(const fs::path &folder) : fd_(open(folder.c_str(), O_RDONLY | O_CLOEXEC))
    {
        flock(fd_, LOCK_EX);
    }
    ~FolderLock() { close(fd_); }
    FolderLock(const FolderLock &) = delete;
    FolderLock &operator=(const FolderLock &) = delete;

  private:
    int fd_;
};

BoardState NewState()
{
    BoardState state = {};
    memcpy(state.magic, kMagic, sizeof(kMagic));
    state.layout = kLayout;
    state.size = sizeof(state);
    PowerOnBoard(state);
    return state;
}

// Under a name of its own first, so that nobody meets half a state.
void CreateState(const fs::path &folder)
{
    const fs::path unfinished = folder / (std::string(kStateFile) + ".new");
    const BoardState state = NewState();
    std::ofstream out(unfinished, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(&state), sizeof(state));
    out.close();
    if (!out)
        throw fs::filesystem_error("cannot write", unfinished, std::error_code(EIO, std::generic_category()));
    fs::rename(unfinished, folder / kStateFile);
}

void CreateFiles(const fs::path &folder)
{
    for (const char *part : kSubfolders)
        fs::create_directories(folder / part);
    for (const TextFile &file : kTextFiles)
        CreateFile(folder / file.name, file.content);
    CreateMemory(folder / kVpssFile, kVpssBytes);
    CreateMemory(folder / kCmemFile, kCmemBytes);
}

bool Attach(const std::string &folder, std::string *problem)
{
    const std::string file = folder + "/" + kStateFile;
    switch (AttachBoard(folder.c_str())) {
    case AttachResult::Ok:
        return true;
    case AttachResult::NoFile:
        *problem = "cannot open " + file + ": " + strerror(errno);
        return false;
    case AttachResult::Damaged:
        *problem = file + " is damaged; `camSim --board " + folder + " reset` makes a new board there";
        return false;
    case AttachResult::OtherLayout:
        break;
    }
    *problem = file + " was made by another version of camSim; `camSim --board " + folder +
               " reset` makes a new board there";
    return false;
}

// Somebody else's files: a folder that is neither empty nor a board, not even a damaged one.
bool IsForeign(const fs::path &folder)
{
    const auto isThere = [&](const char *part) { return fs::exists(folder / part); };
    return !fs::is_empty(folder) &&
           !(isThere(kStateFile) && std::any_of(std::begin(kParts), std::end(kParts), isThere));
}

bool RefuseForeign(const std::string &folder, std::string *problem)
{
    *problem = folder + " holds other files and no board: it stays as it is; --board DIR chooses another "
                        "folder, --new makes a board among these files";
    return false;
}

bool Tell(const std::string &what, const fs::filesystem_error &error, std::string *problem)
{
    *problem = what + ": " + error.path1().string() + ": " + error.code().message() +
               "; --board DIR chooses another folder";
    return false;
}

} // namespace

std::string DefaultBoardFolder()
{
    const char *state = getenv("XDG_STATE_HOME");
    const char *home = getenv("HOME");
    if (state != nullptr && state[0] == '/')
        return std::string(state) + "/camSim";
    return home != nullptr && home[0] == '/' ? std::string(home) + "/.local/state/camSim" : "";
}

bool UseBoard(const std::string &folder, bool amongOthers, std::string *problem)
try {
    const fs::path path(folder);
    fs::create_directories(path);
    if (amongOthers || !fs::exists(path / kStateFile)) {
        const FolderLock lock(path);
        if (!amongOthers && IsForeign(path))
            return RefuseForeign(folder, problem);
        CreateFiles(path);
        if (!fs::exists(path / kStateFile))
            CreateState(path);
    }
    return Attach(folder, problem) || (IsForeign(path) && RefuseForeign(folder, problem));
} catch (const fs::filesystem_error &error) {
    return Tell("cannot make a board in " + folder, error, problem);
}

bool ResetBoard(const std::string &folder, bool amongOthers, std::string *problem)
try {
    const fs::path path(folder);
    fs::create_directories(path);
    const FolderLock folderLock(path);
    if (!amongOthers && IsForeign(path))
        return RefuseForeign(folder, problem);
    for (const char *part : kParts)
        fs::remove_all(path / part);
    CreateFiles(path);
    if (AttachBoard(folder.c_str()) == AttachResult::Ok) {
        // In place, so that programs that have the board open
        // see the new one. They keep their numbers of runs.
        const BoardLock lock;
        BoardState fresh = NewState();
        fresh.runs = gBoard.state->runs;
        fresh.lock = gBoard.state->lock;
        *gBoard.state = fresh;
        return true;
    }
    fs::remove_all(path / kStateFile);
    CreateState(path);
    return Attach(folder, problem);
} catch (const fs::filesystem_error &error) {
    return Tell("cannot reset the board in " + folder, error, problem);
}

} // namespace sim
