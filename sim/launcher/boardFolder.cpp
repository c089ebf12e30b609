// SPDX-License-Identifier: MIT
//
// A board's folder: what is in it when it is new, and how two processes may make it at the same time: the
// state is written under a name of its own and then linked to the final one, which only one of them can do.
#include "sim/launcher/boardFolder.h"

#include "sim/board/board.h"
#include "sim/board/camera.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace sim
{

namespace
{

namespace fs = std::filesystem;

constexpr uintmax_t kVpssBytes = 0x10000;
constexpr uintmax_t kCmemBytes = 0x01800000; // sparse: takes room only where a program writes

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
                                   {"kernel.log", kKernelLog}};

constexpr const char *kFolders[] = {"mnt/nand", "sysconf", "defconf", "proc/driver"};

// What a reset takes away: only what a board consists of,
// should somebody have put a board into a folder of theirs.
constexpr const char *kParts[] = {"mnt",          "sysconf",    "defconf", "proc",
                                  kKernelLogFile, "system.log", kVpssFile, kCmemFile};

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

void FillState(BoardState *state)
{
    *state = {};
    memcpy(state->magic, kMagic, sizeof(kMagic));
    state->layout = kLayout;
    state->size = sizeof(*state);
    PowerOnBoard(*state);
}

void CreateState(const fs::path &folder)
{
    const fs::path final = folder / kStateFile;
    const fs::path own = folder / (std::string(kStateFile) + "." + std::to_string(getpid()));
    BoardState state;
    FillState(&state);
    std::ofstream out(own, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(&state), sizeof(state));
    out.close();
    if (!out)
        throw fs::filesystem_error("cannot write", own, std::error_code(EIO, std::generic_category()));
    const bool linked = link(own.c_str(), final.c_str()) == 0 || errno == EEXIST;
    const int error = errno;
    unlink(own.c_str());
    if (!linked)
        throw fs::filesystem_error("cannot create", final, std::error_code(error, std::generic_category()));
}

void CreateFiles(const fs::path &folder)
{
    for (const char *part : kFolders)
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
        *problem = file + " is damaged, or no board's; `camSim --board " + folder +
                   " reset` makes a new board there";
        return false;
    case AttachResult::OtherLayout:
        break;
    }
    *problem = file + " was made by another version of camSim; `camSim --board " + folder +
               " reset` makes a new board there";
    return false;
}

bool IsForeign(const fs::path &folder)
{
    return fs::exists(folder) && !fs::exists(folder / kStateFile) && !fs::is_empty(folder);
}

} // namespace

std::string DefaultBoardFolder()
{
    const char *state = getenv("XDG_STATE_HOME");
    const char *home = getenv("HOME");
    if (state != nullptr && state[0] == '/')
        return std::string(state) + "/camSim";
    return home != nullptr && home[0] == '/' ? std::string(home) + "/.local/state/camSim" : "/tmp/camSim";
}

bool UseBoard(const std::string &folder, std::string *problem)
try {
    const fs::path path(folder);
    fs::create_directories(path);
    if (!fs::exists(path / kStateFile)) {
        CreateFiles(path);
        CreateState(path);
    }
    return Attach(folder, problem);
} catch (const fs::filesystem_error &error) {
    *problem = "cannot make a board in " + folder + ": " + error.path1().string() + ": " +
               error.code().message() + "; --board DIR chooses another folder";
    return false;
}

bool ResetBoard(const std::string &folder, std::string *problem)
try {
    const fs::path path(folder);
    if (IsForeign(path)) {
        *problem =
            folder + " holds other files and no board: it stays as it is; --board DIR chooses another folder";
        return false;
    }
    fs::create_directories(path);
    for (const char *part : kParts)
        fs::remove_all(path / part);
    CreateFiles(path);
    if (AttachBoard(folder.c_str()) == AttachResult::Ok) {
        // In place, so that programs that have the board open
        // see the new one. They keep their numbers of runs.
        const BoardLock lock;
        BoardState fresh;
        FillState(&fresh);
        fresh.runs = gBoard.state->runs;
        fresh.lock = gBoard.state->lock;
        *gBoard.state = fresh;
        return true;
    }
    fs::remove(path / kStateFile);
    CreateState(path);
    return Attach(folder, problem);
} catch (const fs::filesystem_error &error) {
    *problem =
        "cannot reset the board in " + folder + ": " + error.path1().string() + ": " + error.code().message();
    return false;
}

} // namespace sim
