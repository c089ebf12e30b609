// SPDX-License-Identifier: MIT
//
// A hex dump for diagnostics.
#include "kelisp/clock.h"

#include <stdio.h>

void HexDump(const uint8_t *bytes, int count)
{
    printf("(%d): ", count);
    for (int i = 0; i < count; ++i) {
        if (i % 16 == 0)
            putchar('\n');
        printf("%02X ", bytes[i]);
    }
    putchar('\n');
}
