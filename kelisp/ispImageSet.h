/* SPDX-License-Identifier: MIT
 *
 * The image-settings applier: brings the camera in line with a configuration record, group by group, calling
 * the sensor control and the board only for what differs from the settings last applied (gtImgCfgStatus).
 *
 * Failures are reported on standard error (module ispImageSet) and stop nothing. With gfImgDebugFlag set,
 * debug lines go to standard output. One thread at a time; SensorInit comes first.
 */
#ifndef KELISP_ISP_IMAGE_SET_H
#define KELISP_ISP_IMAGE_SET_H

#include "kelisp/decls.h"
#include "kelisp/imgConfig.h"

#include <stdint.h>

KEL_DECLS_BEGIN

/** A white-balance gain could not be written to the configuration file. */
#define KEL_SAVE_FAILED (-4)

/** Steps of ImageSet that failed since the process began, GPIO requests and saves included; never reset. */
extern int32_t giImgSetErrCount;

/**
 * Applies the record. Each group that differs from gtImgCfgStatus is applied and then copied there, also when
 * a call of it failed; a failed setting is therefore tried again only after its wanted value has changed. A
 * change of extDebug sets both debug switches first. The light-sensor state goes to the system file when it
 * changes (key DN_LS), the white-balance gains when wbSave is 1 (SaveWB).
 *
 * @param wanted  the settings. wbR and wbB may be replaced by gains read back from the camera (gain x 512
 *                truncated toward zero; a failed readout's negative status in the same way), wbSave
 *                becomes 0 when they are saved
 * @return always 0; giImgSetErrCount tells whether a step failed
 */
int ImageSet(ImgCfgStatus *wanted);

/**
 * Applies exposure and gain of the record: manual (aecEn 0, agcEn 0), manual shutter with automatic gain (0,
 * 1), nothing (1, 0), or fully automatic (all else). The manual modes switch over only when gtImgCfgStatus
 * shows another mode and otherwise write what differs from it; the automatic mode is written whole. Prints
 * nothing itself.
 *
 * @return 0; KEL_SENSOR_REJECTED where a shutter table is needed and deflicker is neither 50 nor 60; the
 * first negative status of a call, what follows is not written
 */
int SetAE(const ImgCfgStatus *wanted);

/**
 * Stores both white-balance gains (gain x 512) in the file at `path`, red first: the keys 2A_WB_R and
 * 2A_WB_B, with every line whose key begins so.
 *
 * @param saveFlag  set to 0 when both are stored, otherwise untouched
 * @return 0 or KEL_SAVE_FAILED; red stays stored when blue fails
 */
int SaveWB(const char *path, int red, int blue, int32_t *saveFlag);

KEL_DECLS_END

#endif
