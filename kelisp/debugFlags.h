/* SPDX-License-Identifier: MIT
 *
 * The two debug switches that the rooms share. Both are 0 at start; only the configuration loader and the
 * image-settings applier set them.
 */
#ifndef KELISP_DEBUG_FLAGS_H
#define KELISP_DEBUG_FLAGS_H

#include "kelisp/decls.h"

#include <stdint.h>

KEL_DECLS_BEGIN

/**
 * Nonzero: debug lines of the parser, the sensor initialisation, the
 * alarm input and camStat's signal handler.
 */
extern int32_t gfDebugFlag;

/** Nonzero: debug lines of the image-settings applier. */
extern int32_t gfImgDebugFlag;

KEL_DECLS_END

#endif
