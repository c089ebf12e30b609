// SPDX-License-Identifier: MIT
//
// Decibels: the only conversions that need the maths library, apart so that a program without them does not.
#include "kelisp/ispCXD3193AR.h"

#include <math.h>

double CXD3193AR_Db2Gain(double decibels)
{
    return pow(10.0, decibels / 20.0);
}

double CXD3193AR_Gain2Db(double gain)
{
    return 20.0 * log10(gain);
}
