/* SPDX-License-Identifier: MIT
 *
 * The board's discrete signals around the camera, driven through the GPIO
 * device "/dev/gio": IR-cut filter, IR LEDs, sensor reset line, alarm input.
 * Every operation opens the device, issues its request and closes it; nothing is
 * kept between calls, so there is nothing to start or stop.
 *
 * A failing open or request prints "[kel_isp] ERROR: open device failed\n" or "[kel_isp] ERROR: ioctl
 * failed\n" on standard error and gives KEL_GPIO_FAILED.
 *
 * Safe from any thread: calls share no state of the library. The pins are the board's, though: of two threads or
 * processes that drive one pin, the last one wins.
 */
#ifndef KELISP_GPIO_H
#define KELISP_GPIO_H

#include "kelisp/decls.h"

#include <stdint.h>

KEL_DECLS_BEGIN

/** Any GPIO failure. */
#define KEL_GPIO_FAILED (-5)

/** GPIO numbers on the board, with what their levels mean. */
enum KelGpioPin {
    KEL_PIN_IR_LED = 0,       /**< IR illuminator LEDs: 0 on, 1 off */
    KEL_PIN_ICR = 35,         /**< IR-cut filter: 0 IR_CUT (filter in, day), 1 IR_PASS (filter out, night) */
    KEL_PIN_ALARM_IN = 86,    /**< alarm input; only read */
    KEL_PIN_SENSOR_RESET = 91 /**< sensor reset line: 0 held in reset, 1 running */
};

/** The record that goes with every request to the GPIO device; native byte order. */
typedef struct GioPinLevel {
    uint32_t pin;   /**< GPIO number */
    uint32_t level; /**< level to drive, 0 or 1; 0 in the requests that only name a pin */
} GioPinLevel;

/* Requests of the GPIO device: read/write encoding, type 'g', 8-byte argument. */

/** 8: drive the pin to the level */
#define GIO_SET_LEVEL 0xC0086708U
/** 9: wait for the alarm input; fails while there is nothing to report */
#define GIO_WAIT_ALARM 0xC0086709U
/** 10: alarm input control; its meaning is the driver's */
#define GIO_ALARM_CTL 0xC008670AU
/** 11: pin and level from the configuration (ApplyIcrLedConfig) */
#define GIO_CONFIG 0xC008670BU

/**
 * Drives the sensor reset line.
 *
 * @param level  0 held in reset, 1 running; anything above gives
 *               KEL_GPIO_FAILED silently, without device access
 * @return 0 or KEL_GPIO_FAILED
 */
int SetResetPin(unsigned level);

/**
 * Switches the IR LEDs.
 *
 * @param level  0 on, 1 off; anything above gives KEL_GPIO_FAILED silently, without device access
 * @return 0 or KEL_GPIO_FAILED
 */
int setIRL(unsigned level);

/**
 * Switches the IR-cut filter.
 *
 * @param level  0 IR_CUT, 1 IR_PASS; anything above gives KEL_GPIO_FAILED silently, without device access
 * @return 0 or KEL_GPIO_FAILED
 */
int SetICR(unsigned level);

/**
 * Waits for the alarm input: repeats the driver's request once a second, without limit, until it succeeds.
 * With gfDebugFlag set it first prints "listening alarm in... (press CTRL-C to stop)\n" on standard output.
 *
 * @return the request's non-negative result, or KEL_GPIO_FAILED when the device cannot be opened
 */
int WaitAlarmIn(void);

/**
 * Issues the alarm-input control request.
 *
 * @return 0 or KEL_GPIO_FAILED
 */
int AlarmInCtl(void);

KEL_DECLS_END

#endif
