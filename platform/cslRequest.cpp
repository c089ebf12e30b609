// SPDX-License-Identifier: MIT
//
// The two requests of modules with a register block; their words belong to the driver.
#include "kelisp/csl.h"

#include <sys/ioctl.h>

static_assert(sizeof(void *) != 4 || sizeof(CSL_Request20) == 8, "the layout with 32-bit pointers");
static_assert(sizeof(void *) != 4 || sizeof(CSL_Request17) == 12, "the layout with 32-bit pointers");

namespace
{

constexpr unsigned kRequestBase = 0xCC00;

} // namespace

int CSL_devRequest20(const CSL_RegsHndl *handle, uint32_t value, void *data)
{
    if (data == nullptr)
        return -1;
    CSL_Request20 record = {value, data};
    return ioctl(handle->fd, kRequestBase | 20U, &record);
}

int CSL_devRequest17(const CSL_RegsHndl *handle, uint32_t value, void *data, uint32_t count)
{
    if (data == nullptr || count == 0)
        return -1;
    CSL_Request17 record = {value, data, count};
    return ioctl(handle->fd, kRequestBase | 17U, &record);
}
