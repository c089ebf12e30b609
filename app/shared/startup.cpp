// SPDX-License-Identifier: MIT
//
// Start-up and teardown, shared by the programs that work on the camera.
#include "app/shared/startup.h"

#include "base/report.h"
#include "kelisp/cmem.h"
#include "kelisp/csl.h"
#include "kelisp/drvI2c.h"
#include "kelisp/ispSensor.h"
#include "kelisp/osa.h"

namespace
{

void StopCmem()
{
    CMEM_exit();
    CSL_sysExit();
}

} // namespace

namespace camStat
{

int StartBoard(const char *module)
{
    const auto fail = [module](const char *message, kel::Where where = "main") {
        kel::ReportError(module, message, where);
        return -1;
    };
    OSA_init();
    if (CSL_sysInit() != 0)
        return fail("[kel_isp] CSL_sysInit() failed.\n"); // what it could open stays with the ending process
    if (CMEM_init() != 0) {
        fail("[kel_isp] CMEM_init() failed.\n");
        CSL_sysExit();
        return -1;
    }
    if (DrvI2cOpen(&gtI2cHndl, kCameraSlave) != 0) {
        fail("[kel_isp] DrvI2cOpen() failed.\n");
        StopCmem();
        return -1;
    }
    if (SensorInit() != 0) {
        fail("[kel_isp] InitSensor() failed.\n");
        StopBoard();
        return -1;
    }
    return 0;
}

void StopBoard()
{
    DrvI2cClose(&gtI2cHndl);
    StopCmem();
}

} // namespace camStat
