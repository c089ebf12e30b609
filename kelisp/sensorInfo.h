/* SPDX-License-Identifier: MIT
 *
 * The sensor information record: the timing of the sensor's readout mode and the mirrors of processor state.
 */
#ifndef KELISP_SENSOR_INFO_H
#define KELISP_SENSOR_INFO_H

#include "kelisp/decls.h"

#include <stdint.h>

KEL_DECLS_BEGIN

/**
 * Geometry and timing are stored by SensorInit from the preset of the sensor type; each mirror byte is kept
 * current by the accessors of its register field, after their transfer succeeded: a getter stores the value
 * it read, a setter the byte that its caller passed.
 */
typedef struct SensorInfo {
    int32_t fullWidth;     /**< total line length in pixel clocks */
    int32_t fullHeight;    /**< total frame length in lines; H of the exposure rules */
    int32_t validWidth;    /**< active width in pixels */
    int32_t validHeight;   /**< active height in lines */
    int32_t validStartX;   /**< first active column */
    int32_t validStartY;   /**< first active line */
    double fps;            /**< frames per second: pixelClockHz / (fullWidth x fullHeight) */
    uint8_t extGioEnable;  /**< mirror of register 0x0C bit 0 */
    uint8_t infoOut;       /**< mirror of register 0xCC bits 2:0; readouts need 0 */
    uint8_t longExpFrames; /**< mirror of register 0x3B bits 6:0, held to 29 (type 6) or 59 (type 7) */
    uint8_t cisType;       /**< mirror of register 0x0E bits 3:0 */
    uint8_t nrAuto;        /**< mirror of register 0x53 bit 0 */
    uint8_t dayNightOn;    /**< mirror of register 0x53 bit 1 */
    uint32_t pixelClockHz; /**< sensor pixel clock */
    double lineTimeUs;     /**< duration of one line in microseconds; L of the exposure rules */
    double offsetTimeUs;   /**< fixed offset of the exposure time in microseconds; O of the exposure rules */
} SensorInfo;

/** The record in use; all zero until SensorInit runs. One thread at a time. */
extern SensorInfo gtSensorInfo;

KEL_DECLS_END

#endif
