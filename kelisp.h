/* SPDX-License-Identifier: MIT
 *
 * The whole public interface of the camera library in one include, for C11 and C++20.
 */
#ifndef KELISP_H
#define KELISP_H

#include "board/clock.h"
#include "board/debugFlags.h"
#include "board/gpio.h"
#include "drvSrc/drvI2c.h"
#include "isp/imgConfig.h"
#include "isp/ispCXD3193AR.h"
#include "isp/ispImageSet.h"
#include "isp/ispSensor.h"
#include "isp/sensorInfo.h"
#include "isp/sysconf.h"
#include "platform/cmem.h"
#include "platform/csl.h"
#include "platform/osa.h"

#endif
