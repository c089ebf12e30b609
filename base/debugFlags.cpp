// SPDX-License-Identifier: MIT
//
// The debug switches shared by the rooms.
#include "kelisp/debugFlags.h"

int32_t gfDebugFlag = 0;
int32_t gfImgDebugFlag = 0;
