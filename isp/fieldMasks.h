// SPDX-License-Identifier: MIT
//
// The bits that are kept where several registers move at once, under the names that the register map uses, and where
// its stretches begin. Internal to the library and its programs.
#ifndef CAMSTAT_ISP_FIELD_MASKS_H
#define CAMSTAT_ISP_FIELD_MASKS_H

#include <stddef.h>
#include <stdint.h>

namespace kel::masks
{

constexpr size_t kMaxBlock = 30;

struct Masks {
    uint8_t of[kMaxBlock];
};

constexpr Masks Make(size_t first, uint8_t firstMask, uint8_t restMask)
{
    Masks masks = {};
    for (size_t i = 0; i < kMaxBlock; ++i)
        masks.of[i] = i < first ? firstMask : restMask;
    return masks;
}

inline constexpr Masks whole = Make(0, 0, 0xFF);
inline constexpr Masks blk55 = {{0xFF, 0x3F, 0xFF, 0x3F, 0xFF, 0x3F, 0xFF, 0x3F}};
inline constexpr Masks blk9D = Make(0, 0, 0x3F);
inline constexpr Masks tbl30 = Make(3, 0x7F, 0x1F);
inline constexpr Masks pairA4 = Make(1, 0x3F, 0x1F); // of pairs that begin at 0xA4 to 0xA7
inline constexpr Masks pairA8 = Make(0, 0, 0x7F);    // at 0xA8 to 0xAB

// kYGammaReg, kPairsA4Reg: where the map's stretches begin.
#define KEL_STRETCH(reg, length, name, ...) constexpr uint8_t k##name##Reg = reg;
#include "kelisp/registerMap.def"

constexpr uint8_t kPairA8First = 0xA8;
constexpr uint8_t kPairA8Last = 0xAB;

/// One pair behind the other.
constexpr Masks MakePairs()
{
    Masks masks = {};
    for (unsigned i = 0; i <= kPairA8Last - kPairsA4Reg; ++i)
        masks.of[i] = (kPairsA4Reg + i < kPairA8First ? pairA4 : pairA8).of[i % 2];
    return masks;
}
inline constexpr Masks pairs = MakePairs();

} // namespace kel::masks

#endif
