// SPDX-License-Identifier: MIT
//
// The printout of a configuration record.
#include "config/confKeys.h"

#include <stdio.h>

namespace
{

constexpr char kRule[] = "=======================================";

void PrintWindow(const ImgCfgStatus *record, const char *label)
{
    printf("%s:\n", label);
    for (const auto &row : record->aeWindow) {
        for (const int32_t cell : row)
            printf("%d", cell);
        putchar('\n');
    }
}

} // namespace

void ImgCfgPrint(const ImgCfgStatus *record)
{
    puts(kRule);
    for (const kel::ConfKey &key : kel::kConfKeys)
        if (key.action == kel::KeyAction::Window)
            PrintWindow(record, key.label);
        else if (key.label != nullptr)
            printf("%s:\t%d\n", key.label, record->*key.field);
    puts(kRule);
}
