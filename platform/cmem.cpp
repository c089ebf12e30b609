// SPDX-License-Identifier: MIT
//
// Client of the contiguous-memory driver. The driver's argument words are 32 bits wide on every machine; its
// buffers lie where a 32-bit address reaches them.
#include "kelisp/cmem.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

static_assert(sizeof(CmemAllocParams) == 12);

namespace
{

constexpr char kDevicePath[] = "/dev/cmem";

constexpr unsigned kInterfaceVersion = 0x02300000;
constexpr unsigned kMajorMask = 0xFFFF0000;

// Request codes are plain numbers.
constexpr unsigned kAllocPool = 1;
constexpr unsigned kAllocHeap = 2;
constexpr unsigned kFree = 3;
constexpr unsigned kFreePoolPhys = 0x1003;
constexpr unsigned kFreeHeapPhys = 0x1403;
constexpr unsigned kGetPhys = 4;
constexpr unsigned kGetPool = 6;
constexpr unsigned kCacheWb = 0x107;
constexpr unsigned kCacheInv = 0x207;
constexpr unsigned kCacheWbInv = 0x307;
constexpr unsigned kGetVersion = 8;
constexpr unsigned kGetBlock = 9;
constexpr unsigned kRegisterUser = 10;

constexpr size_t kBufferHeader = 8; // bytes invalidated before a free

constexpr CmemAllocParams kDefaultParams = {0, 0, 1};

// Negative descriptors are states.
constexpr int kNeverOpened = -2;
constexpr int kOpenFailed = -1;
constexpr int kClosed = -3;

int gCmemFd = kNeverOpened;
int gUsers = 0;

/// Argument words of a request, in and out.
struct Words {
    uint32_t word[3];
};

[[gnu::cold, gnu::format(printf, 1, 2)]] void PrintError(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    fputs("CMEM Error: ", stderr);
    vfprintf(stderr, format, args);
    va_end(args);
}

int RequestDriver(unsigned code, Words *words)
{
    return ioctl(gCmemFd, code, words);
}

uint32_t AddressWord(const void *address)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(address));
}

bool IsUsable()
{
    switch (gCmemFd) {
    case kNeverOpened:
        PrintError("CMEM_init() not called, you must initialize CMEM before making API calls.\n");
        return false;
    case kOpenFailed: // the text is fixed, and has no line end
        PrintError("CMEM file descriptor -1 (failed 'open()'), ensure CMEMK kernel module cmemk.ko has been "
                   "installed with 'insmod'");
        return false;
    case kClosed:
        PrintError(
            "CMEM_exit() already called, check stderr output for earlier CMEM failure messages (possibly "
            "version mismatch).\n");
        return false;
    default:
        return true;
    }
}

void *MapBuffer(unsigned long physAddr, size_t size)
{
    void *address =
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, gCmemFd, static_cast<off_t>(physAddr));
    return address == MAP_FAILED ? nullptr : address;
}

/// Maps a buffer that the driver just handed out, or gives it back; `action` names the latter in the message.
void *MapOrGiveBack(const char *operation, unsigned long physAddr, size_t size, const char *action,
                    unsigned freeRequest)
{
    void *address = MapBuffer(physAddr, size);
    if (address == nullptr) {
        PrintError("%s: Failed to mmap buffer at physical address %#lx\n", operation, physAddr);
        PrintError("    %s phys buffer %#lx\n", action, physAddr);
        Words words = {{static_cast<uint32_t>(physAddr), 0, 0}};
        RequestDriver(freeRequest, &words);
    }
    return address;
}

void *AllocHeap(int blockId, size_t size, const CmemAllocParams &params)
{
    const unsigned code = kAllocHeap | params.flags;
    const uint32_t alignment = params.alignment == 0 ? 1 : params.alignment;
    Words words = {{static_cast<uint32_t>(size), alignment, static_cast<uint32_t>(blockId)}};
    const int status = RequestDriver(code, &words);
    if (status != 0) {
        PrintError("allocHeap: ioctl %s failed: %d\n",
                   code == kAllocHeap ? "CMEM_IOCALLOCHEAP" : "CMEM_IOCALLOCHEAPCACHED", status);
        return nullptr;
    }
    return MapOrGiveBack("allocHeap", words.word[0], size, "Freeing", kFreeHeapPhys);
}

/// One cache request over `size` bytes at `address`; `failure` is its message up to the address.
int RequestCache(unsigned code, const char *failure, const void *address, size_t size)
{
    if (!IsUsable())
        return -1;
    Words words = {{AddressWord(address), static_cast<uint32_t>(size), 0}};
    if (RequestDriver(code, &words) == -1) {
        PrintError("%s %#x\n", failure, AddressWord(address));
        return -1;
    }
    return 0;
}

bool SpeaksThisInterface()
{
    const int version = CMEM_getVersion();
    if (version != -1 && (static_cast<unsigned>(version) & kMajorMask) == kInterfaceVersion)
        return true;
    PrintError("init: major version mismatch between interface and driver.\n");
    PrintError("    needs driver version %#x, got %#x\n", kInterfaceVersion, static_cast<unsigned>(version));
    return false;
}

void KeepFromStartedPrograms()
{
    const int flags = fcntl(gCmemFd, F_GETFD);
    if (flags == -1)
        PrintError("init: fcntl(F_GETFD) failed: '%s'\n", strerror(errno));
    else
        fcntl(gCmemFd, F_SETFD, flags | FD_CLOEXEC);
}

} // namespace

int CMEM_init(void)
{
    if (gCmemFd >= 0) {
        ++gUsers;
        return 0;
    }
    gCmemFd = open(kDevicePath, O_RDWR);
    if (gCmemFd < 0) {
        PrintError("init: Failed to open /dev/cmem: '%s'\n", strerror(errno));
        return -1;
    }
    ++gUsers;
    if (!SpeaksThisInterface()) {
        CMEM_exit();
        return -1;
    }
    KeepFromStartedPrograms();
    return 0;
}

int CMEM_exit(void)
{
    if (!IsUsable())
        return -1;
    if (--gUsers > 0)
        return 0;
    const int status = close(gCmemFd);
    gCmemFd = kClosed;
    return status;
}

int CMEM_getVersion(void)
{
    if (!IsUsable())
        return -1;
    Words words = {};
    const int status = RequestDriver(kGetVersion, &words);
    if (status != 0) {
        PrintError("getVersion: Failed to retrieve version from driver: %d.\n", status);
        return -1;
    }
    return static_cast<int>(words.word[0]);
}

int CMEM_getBlock(int blockId, unsigned long *first, unsigned long *second)
{
    if (!IsUsable())
        return -1;
    Words words = {{static_cast<uint32_t>(blockId), 0, 0}};
    const int status = RequestDriver(kGetBlock, &words);
    if (status != 0) {
        PrintError("getBlock: Failed to retrieve memory block bounds for block %d from driver: %d.\n",
                   blockId, status);
        return -1;
    }
    *first = words.word[0];
    *second = words.word[1];
    return 0;
}

int CMEM_getPool(int blockId, size_t size)
{
    if (!IsUsable())
        return -1;
    Words words = {{static_cast<uint32_t>(size), static_cast<uint32_t>(blockId), 0}};
    if (RequestDriver(kGetPool, &words) == -1) {
        PrintError("getPool: Failed to get a pool fitting a size %d\n", static_cast<int>(size));
        return -1;
    }
    return static_cast<int>(words.word[0]);
}

int CMEM_getPoolBlock0(size_t size)
{
    return CMEM_getPool(0, size);
}

void *CMEM_allocPool(int blockId, int poolId, const CmemAllocParams *params)
{
    const unsigned code = kAllocPool | (params == nullptr ? kDefaultParams : *params).flags;
    Words words = {{static_cast<uint32_t>(poolId), static_cast<uint32_t>(blockId), 0}};
    const int status = RequestDriver(code, &words);
    if (status != 0) {
        PrintError("allocPool: ioctl %s failed from pool %d: %d\n",
                   code == kAllocPool ? "CMEM_IOCALLOC" : "CMEM_IOCALLOCCACHED", poolId, status);
        return nullptr;
    }
    return MapOrGiveBack("allocPool", words.word[0], words.word[1], "Freeing", kFreePoolPhys);
}

void *CMEM_alloc(int blockId, size_t size, const CmemAllocParams *params)
{
    if (!IsUsable())
        return nullptr;
    const CmemAllocParams &chosen = params == nullptr ? kDefaultParams : *params;
    if (chosen.type != 0)
        return AllocHeap(blockId, size, chosen);
    const int poolId = CMEM_getPool(blockId, size);
    return poolId == -1 ? nullptr : CMEM_allocPool(blockId, poolId, &chosen);
}

void *CMEM_registerAlloc(unsigned long physAddr)
{
    Words words = {{static_cast<uint32_t>(physAddr), 0, 0}};
    const int status = RequestDriver(kRegisterUser, &words);
    if (status != 0) {
        PrintError("registerAlloc: ioctl CMEM_IOCREGUSER failed for phys addr %#lx: %d\n", physAddr, status);
        return nullptr;
    }
    return MapOrGiveBack("registerAlloc", physAddr, words.word[0], "Unregistering use of", kFreePoolPhys);
}

int CMEM_free(void *address, const CmemAllocParams *params)
{
    if (!IsUsable())
        return -1;
    if (CMEM_cacheInv(address, kBufferHeader) != 0)
        PrintError("free: failed to cache-invalidate buffer header @ %p\n", address);
    Words words = {{AddressWord(address), 0, 0}};
    if (RequestDriver(kFree | (params == nullptr ? kDefaultParams : *params).type, &words) == -1) {
        PrintError("free: failed to free %#x\n", AddressWord(address));
        return -1;
    }
    if (munmap(address, words.word[1]) == -1) {
        PrintError("free: failed to munmap %#x\n", AddressWord(address));
        return -1;
    }
    return 0;
}

unsigned long CMEM_getPhys(void *address)
{
    if (!IsUsable())
        return 0;
    Words words = {{AddressWord(address), 0, 0}};
    if (RequestDriver(kGetPhys, &words) == -1) {
        PrintError("getPhys: Failed to get physical address of %#x\n", AddressWord(address));
        return 0;
    }
    return words.word[0];
}

int CMEM_cacheWb(void *address, size_t size)
{
    return RequestCache(kCacheWb, "cacheWb: Failed to writeback", address, size);
}

int CMEM_cacheInv(void *address, size_t size)
{
    return RequestCache(kCacheInv, "cacheInv: Failed to invalidate", address, size);
}

int CMEM_cacheWbInv(void *address, size_t size)
{
    return RequestCache(kCacheWbInv, "cacheWbInv: Failed to writeback & invalidate", address, size);
}
