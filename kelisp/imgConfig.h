/* SPDX-License-Identifier: MIT
 *
 * The image configuration: the record of all image settings with its defaults, the keys of the
 * configuration files "/sysconf/conf.img" (current settings) and "/defconf/conf.img" (factory settings),
 * the parser, the printout, and the day/night switch that acts on a record. Applying a record to the camera
 * is kelisp/ispImageSet.h's.
 *
 * The parser and the loaders overwrite only fields whose keys they meet, reject no value and report nothing
 * on standard error. With gfDebugFlag set they print debug lines on standard output.
 */
#ifndef KELISP_IMG_CONFIG_H
#define KELISP_IMG_CONFIG_H

#include "kelisp/decls.h"

#include <stdint.h>

KEL_DECLS_BEGIN

/** The two configuration files. */
#define IMG_CFG_SYSTEM_FILE "/sysconf/conf.img"
#define IMG_CFG_DEFAULT_FILE "/defconf/conf.img"

/** Grid of the exposure window. */
#define IMG_CFG_WINDOW_ROWS 16
#define IMG_CFG_WINDOW_COLUMNS 12

/** Results of ImgCfgParse and ImgCfgLoadFile beyond a key's position. */
#define IMG_CFG_UNKNOWN_KEY (-2)
#define IMG_CFG_NO_FILE (-1)
#define IMG_CFG_UNREADABLE (-2)

/** All image settings. Behind each field: its key, its default, its range where it has one. */
typedef struct ImgCfgStatus {
    int32_t snrType;                                               /**< SNR_TYPE, 0; not used */
    int32_t lenType;                                               /**< LEN_TYPE, 1; not used */
    int32_t icrType;                                               /**< ICR_TYPE, 1; printed only */
    int32_t aeWindow[IMG_CFG_WINDOW_ROWS][IMG_CFG_WINDOW_COLUMNS]; /**< EXT_AEWIN, all 1; not used */
    int32_t aecEn;       /**< 2A_AEC_EN, 1; auto exposure on (1) or off (0) */
    int32_t agcEn;       /**< 2A_AGC_EN, 1; auto gain on (1) or off (0) */
    int32_t awbEn;       /**< 2A_AWB_EN, 1; auto white balance on (1), anything else held manual */
    int32_t aelEn;       /**< 2A_AEL_EN, 0; not used */
    int32_t maxExposure; /**< 2A_MAX_EXPOSURE, 0; exposure ceiling 1 to 4, others 1/25 s
                            (50 Hz) or 1/30 s (60 Hz) */
    int32_t manExposure; /**< 2A_MAN_EXPOSURE, 3; manual shutter 0 to 11, others as 3: 1/25 s or 1/30 s */
    int32_t maxGain;     /**< 2A_MAX_GAIN, 2; gain ceiling 0 to 7 for 2, 4, ..., 256; others 1 */
    int32_t manGain;     /**< 2A_MAN_GAIN, 0; manual gain, same scale; 7 is more than the camera has */
    int32_t limitIndex;  /**< 2A_LIMIT_INDEX, 0; not used */
    int32_t limitUpper;  /**< 2A_LIMIT_UPPER, 0; not used */
    int32_t limitLower;  /**< 2A_LIMIT_LOWER, 0; not used */
    int32_t wbSave;     /**< 2A_WB_SAVE, 0; 1 asks the applier to store the white-balance gains in the file */
    int32_t wbR;        /**< 2A_WB_R, 512; red white-balance gain x 512 */
    int32_t wbB;        /**< 2A_WB_B, 0; blue white-balance gain x 512 */
    int32_t deflicker;  /**< 2A_DEFLICKER, 60; mains frequency in Hz, 50 or 60 */
    int32_t brightness; /**< IMG_BRIGHTNESS, 128; 0 to 255 */
    int32_t contrast;   /**< IMG_CONTRAST, 128; 0 to 255 */
    int32_t saturation; /**< IMG_SATURATION, 128; 0 to 255 */
    int32_t sharpness;  /**< IMG_SHARPNESS, 100; 0 to 255 */
    int32_t nfMode;     /**< IMG_NF_MODE, 1; 0: automatic noise reduction and day/night switching off,
                         filter by level; 1: automatic, fixed filter; others: automatic, filter by level */
    int32_t nfLevel;    /**< IMG_NF_LEVEL, 0; noise-filter level, 0 to 44 */
    int32_t flip;       /**< IMG_FLIP, 0; nonzero: on */
    int32_t mirror;     /**< IMG_MIRROR, 0; nonzero: on */
    int32_t
        dnMode; /**< DN_MODE (not stored), 0; day/night: 0 and 4 by dnLs, 2 night, 3 by dnDi, others day. The day/night fields
                         but dnFps are the record's owner's: their keys are accepted and not stored */
    int32_t dnBw;     /**< DN_BW (not stored), 1; 1: black and white at night */
    int32_t dnIcr;    /**< DN_ICR (not stored), 1; 1: IR-cut filter and IR LEDs follow the night */
    int32_t dnFps;    /**< DN_FPS, 0; slow shutter of the auto exposure: 0 off, 1 to 5 */
    int32_t dnDi;     /**< no key, 0; digital day/night input, 0: night */
    int32_t dnLs;     /**< DN_LS (not stored), 0; light sensor, 1: dark */
    int32_t dnLum;    /**< DN_LUM (not stored), 0; not used */
    int32_t extBlc;   /**< EXT_BLC, 4; backlight compensation 0 to 8, others as 4 */
    int32_t extWdr;   /**< EXT_WDR, 0; wide dynamic range 0 to 3 */
    int32_t extNf;    /**< EXT_NF, 0; not used */
    int32_t extLsc;   /**< EXT_LSC, 0; not used */
    int32_t extDpc;   /**< EXT_DPC, 1; not used */
    int32_t extReset; /**< no key, 0; printed only */
    int32_t extDebug; /**< EXT_DEBUG, 0; nonzero: debug lines on */
} ImgCfgStatus;

/** The settings last applied; zero at the start. ImageSet keeps it current. One thread at a time. */
extern ImgCfgStatus gtImgCfgStatus;

/** Fills the record with the defaults. */
void ImgCfgDefault(ImgCfgStatus *record);

/**
 * Applies one setting to the record.
 *
 * The key is looked up as a text inside the list of the 45 keys joined by ';', and
 * counts when its first occurrence there begins a listed key; so the beginning of a key
 * that occurs nowhere earlier works too (2A_WB is 2A_WB_SAVE). Numbers are decimal, in
 * the manner of strtol, and held to the range of int32_t; text without digits is 0.
 *
 * - EXT_AEWIN takes the window from 192 digits, row after row. A shorter value leaves the whole window as
 *   it was: a window half old and half new is nobody's wish. Characters beyond the 192nd do not count; a
 *   character's cell is its code less that of '0', unsigned.
 * - RESET=1 and RELOAD=1 load the factory or the system file into the record at this point. Such loads may
 *   nest: at most 4 files deep and 16 files in all from one outermost call; further ones are not made.
 * - A key without a value (null) changes and loads nothing.
 *
 * @param key    terminated text
 * @param value  terminated text, or null
 * @return the key's position in the list, 0 to 451, whatever the value;
 *         IMG_CFG_UNKNOWN_KEY, the record unchanged. The debug line of an unknown
 *         key shows where its text was found in the list, -1 when nowhere.
 */
int ImgCfgParse(ImgCfgStatus *record, const char *key, const char *value);

/**
 * Applies a file's lines in their order. A line's first word is the key, its second the
 * value; they are separated by blanks, '=', CR, LF, and before the value tabs; a tab
 * does not end a value. Lines whose first word begins with '#' are comments. Lines are
 * taken in pieces of at most 255 characters; a zero byte ends the text of its piece.
 *
 * @return 0 once the file was open, IMG_CFG_NO_FILE when it does not
 *         exist, IMG_CFG_UNREADABLE when it cannot be opened; a FIFO
 *         or a device in its place counts so and is not waited for
 */
int ImgCfgLoadFile(ImgCfgStatus *record, const char *path);

/** ImgCfgLoadFile of IMG_CFG_DEFAULT_FILE. */
int ImgCfgLoadDefault(ImgCfgStatus *record);

/** ImgCfgLoadFile of IMG_CFG_SYSTEM_FILE. */
int ImgCfgReload(ImgCfgStatus *record);

/**
 * Loads IMG_CFG_SYSTEM_FILE (a missing file does not matter), sets gfDebugFlag from extDebug, and switches
 * the IR-cut filter and the IR LEDs.
 *
 * @return ApplyIcrLedConfig's result
 */
int ImgCfgLoadSystem(ImgCfgStatus *record);

/**
 * Applies settings written as KEY=VALUE,KEY=VALUE. '=' and ',' both separate, and empty words do not count,
 * so that words alternate key, value. A key at the end without a value changes nothing.
 *
 * @param options  cut into words in place
 * @return 0 when all is used up; -1 on LOOPBREAK, what follows it stays unread
 */
int ImgCfgParseOptions(ImgCfgStatus *record, char *options);

/** Prints the record on standard output, one line per field between two rules. */
void ImgCfgPrint(const ImgCfgStatus *record);

/**
 * Switches IR-cut filter and IR LEDs to night (IR_PASS, LEDs on) when the record says night and dnIcr is 1,
 * otherwise to day, and sends the sensor's reset line along, always with level 1, so that the sensor keeps
 * running. Three configuration requests (GIO_CONFIG) in this order on one open of the GPIO device.
 *
 * @return 0, or KEL_GPIO_FAILED after one of the messages of
 *         kelisp/gpio.h; what follows a failing request is not sent
 */
int ApplyIcrLedConfig(const ImgCfgStatus *record);

KEL_DECLS_END

#endif
