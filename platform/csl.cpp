// SPDX-License-Identifier: MIT
//
// Chip-support handles: opened in the order of their node numbers, closed in reverse.
#include "kelisp/csl.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/mman.h>
#include <unistd.h>

static_assert(sizeof(void *) != 4 || sizeof(CSL_VpssHndl) == 52, "the layout with 32-bit pointers");
static_assert(sizeof(void *) != 4 || sizeof(CSL_RegsHndl) == 8, "the layout with 32-bit pointers");

CSL_VpssHndl gCSL_vpssHndl = {-1, CSL_VPSS_LENGTH, CSL_VPSS_PHYS_BASE, nullptr, {}};
CSL_RegsHndl gCSL_rszHndl = {nullptr, -1};
CSL_DevHndl gCSL_ipipeHndl = {-1};
CSL_DevHndl gCSL_ccdcHndl = {-1};
CSL_RegsHndl gCSL_ipipeifHndl = {nullptr, -1};
CSL_DevHndl gCSL_h3aHndl = {-1};
CSL_DevHndl gCSL_ldcHndl = {-1};
CSL_DevHndl gCSL_faceDetectHndl = {-1};
CSL_DevHndl gCSL_gpioHndl = {-1};
volatile uint32_t *csl_h3aRegs;

namespace
{

constexpr unsigned kMaxModule = 9;

// Offsets of the register blocks in the window, in the order of CSL_VpssHndl::regs.
constexpr uint32_t kBlockOffsets[CSL_VPSS_BLOCKS] = {0x200, 0x0,    0x1000, 0x800, 0x1200,
                                                     0x400, 0x1400, 0x1600, 0x1800};
constexpr int kIpipeifBlock = 4;
constexpr int kRszBlock = 5;
constexpr int kH3aBlock = 6;

int OpenModule(int32_t *fd, unsigned module)
{
    *fd = CSL_devOpen(module);
    return *fd < 0 ? -1 : 0;
}

int OpenModuleWithRegs(CSL_RegsHndl *handle, unsigned module, int block)
{
    if (OpenModule(&handle->fd, module) != 0)
        return -1;
    handle->regs = gCSL_vpssHndl.regs[block];
    return 0;
}

int OpenVpss()
{
    CSL_VpssHndl &vpss = gCSL_vpssHndl;
    vpss = {-1, CSL_VPSS_LENGTH, CSL_VPSS_PHYS_BASE, nullptr, {}};
    csl_h3aRegs = nullptr;
    if (OpenModule(&vpss.fd, 1) != 0)
        return -1;
    void *base = mmap(nullptr, CSL_VPSS_LENGTH, PROT_READ | PROT_WRITE, MAP_SHARED, vpss.fd,
                      static_cast<off_t>(CSL_VPSS_PHYS_BASE));
    if (base == MAP_FAILED || base == nullptr)
        return -1;
    vpss.base = static_cast<uint8_t *>(base);
    for (int i = 0; i < CSL_VPSS_BLOCKS; ++i)
        vpss.regs[i] = reinterpret_cast<volatile uint32_t *>(vpss.base + kBlockOffsets[i]);
    csl_h3aRegs = vpss.regs[kH3aBlock];
    return 0;
}

int CloseVpss()
{
    int status = 0;
    if (gCSL_vpssHndl.base != nullptr)
        status = munmap(gCSL_vpssHndl.base, CSL_VPSS_LENGTH);
    return status | close(gCSL_vpssHndl.fd);
}

} // namespace

int CSL_devOpen(unsigned module)
{
    if (module > kMaxModule)
        return -1;
    char path[16];
    snprintf(path, sizeof(path), "/dev/csl%u", module);
    return open(path, O_RDWR | O_CLOEXEC);
}

int CSL_sysInit(void)
{
    int status = OpenVpss();
    status |= OpenModuleWithRegs(&gCSL_rszHndl, 2, kRszBlock);
    status |= OpenModule(&gCSL_ipipeHndl.fd, 3);
    status |= OpenModule(&gCSL_ccdcHndl.fd, 4);
    status |= OpenModuleWithRegs(&gCSL_ipipeifHndl, 5, kIpipeifBlock);
    status |= OpenModule(&gCSL_h3aHndl.fd, 6);
    status |= OpenModule(&gCSL_ldcHndl.fd, 7);
    status |= OpenModule(&gCSL_faceDetectHndl.fd, 8);
    status |= OpenModule(&gCSL_gpioHndl.fd, 9);
    return status;
}

int CSL_sysExit(void)
{
    int status = close(gCSL_gpioHndl.fd);
    status |= close(gCSL_faceDetectHndl.fd);
    status |= close(gCSL_ldcHndl.fd);
    status |= close(gCSL_h3aHndl.fd);
    status |= close(gCSL_ipipeifHndl.fd);
    status |= close(gCSL_ccdcHndl.fd);
    status |= close(gCSL_ipipeHndl.fd);
    status |= close(gCSL_rszHndl.fd);
    status |= CloseVpss();
    return status;
}
