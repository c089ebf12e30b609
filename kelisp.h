/* SPDX-License-Identifier: MIT
 *
 * The whole public interface of the camera library in one include, for C11 and C++20.
 */
#ifndef KELISP_H
#define KELISP_H

#include "kelisp/clock.h"
#include "kelisp/cmem.h"
#include "kelisp/csl.h"
#include "kelisp/debugFlags.h"
#include "kelisp/drvI2c.h"
#include "kelisp/gpio.h"
#include "kelisp/imgConfig.h"
#include "kelisp/ispCXD3193AR.h"
#include "kelisp/ispImageSet.h"
#include "kelisp/ispSensor.h"
#include "kelisp/osa.h"
#include "kelisp/sensorInfo.h"
#include "kelisp/sysconf.h"

#endif
