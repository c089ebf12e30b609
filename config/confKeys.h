// SPDX-License-Identifier: MIT
//
// The vocabulary of the configuration files as data. A setting is one row: the parser, the defaults, the printout
// and camConf read it; the template, the manual page, the completion and the record's documentation are checked
// against it (documentsTest). Internal to the configuration and its programs.
#ifndef CAMSTAT_CONFIG_CONF_KEYS_H
#define CAMSTAT_CONFIG_CONF_KEYS_H

#include "kelisp/imgConfig.h"

#include <stddef.h>
#include <stdint.h>

namespace kel
{

constexpr size_t kWindowCells = sizeof(ImgCfgStatus::aeWindow) / sizeof(int32_t);

static_assert(sizeof(ImgCfgStatus) == 232 * sizeof(int32_t));

using ConfField = int32_t ImgCfgStatus::*;

enum class KeyAction : uint8_t {
    Number,       ///< the field takes the decimal value
    EitherNumber, ///< the same; nothing between low and high has an effect
    NotStored,    ///< accepted, nothing stored
    Window,       ///< the exposure window
    LoadDefault,  ///< value 1 loads the factory file
    LoadSystem,   ///< value 1 loads the system file
    LoopBreak,    ///< a debug line; ends an option string
    Echo,         ///< a debug line
    NoKey,        ///< a field alone, which no key names
};

struct ConfKey {
    const char *name;
    const char *label; ///< in the printout, up to the colon; null: not printed
    KeyAction action;
    ConfField field = nullptr;
    int32_t defaultValue = 0; ///< of the field, or of the window's cells
    int32_t low = INT32_MIN;  ///< numbers outside low to high act as one inside, or fail, in the applier
    int32_t high = INT32_MAX;

    /// A value of the key is kept: in the field, or in the window.
    constexpr bool IsStored() const
    {
        return action == KeyAction::Number || action == KeyAction::EitherNumber ||
               action == KeyAction::Window;
    }
};

// In the order of the key list, whose positions are the parser's results, and of the printout.
// clang-format off
inline constexpr ConfKey kConfKeys[] = {
    {"SNR_TYPE", "SNR_TYPE\t", KeyAction::Number, &ImgCfgStatus::snrType, 0},
    {"LEN_TYPE", "LEN_TYPE\t", KeyAction::Number, &ImgCfgStatus::lenType, 1},
    {"ICR_TYPE", "ICR_TYPE\t", KeyAction::Number, &ImgCfgStatus::icrType, 1},
    {"2A_AEC_EN", "2A_AEC\t\t", KeyAction::Number, &ImgCfgStatus::aecEn, 1, 0, 1},
    {"2A_AGC_EN", "2A_AGC\t\t", KeyAction::Number, &ImgCfgStatus::agcEn, 1, 0, 1},
    {"2A_AEL_EN", "2A_AEL\t\t", KeyAction::Number, &ImgCfgStatus::aelEn, 0},
    {"2A_AWB_EN", "2A_AWB\t\t", KeyAction::Number, &ImgCfgStatus::awbEn, 1, 0, 1},
    {"2A_MAX_EXPOSURE", "2A_MAX_EXPOSURE\t", KeyAction::Number, &ImgCfgStatus::maxExposure, 0, 0, 4},
    {"2A_MAN_EXPOSURE", "2A_MAN_EXPOSURE\t", KeyAction::Number, &ImgCfgStatus::manExposure, 3, 0, 11},
    {"2A_MAX_GAIN", "2A_MAX_GAIN\t", KeyAction::Number, &ImgCfgStatus::maxGain, 2, 0, 7},
    {"2A_MAN_GAIN", "2A_MAN_GAIN\t", KeyAction::Number, &ImgCfgStatus::manGain, 0, 0, 6},
    {"2A_LIMIT_INDEX", "2A_LIMIT_INDEX\t", KeyAction::Number, &ImgCfgStatus::limitIndex, 0},
    {"2A_LIMIT_UPPER", "2A_LIMIT_UPPER\t", KeyAction::Number, &ImgCfgStatus::limitUpper, 0},
    {"2A_LIMIT_LOWER", "2A_LIMIT_LOWER\t", KeyAction::Number, &ImgCfgStatus::limitLower, 0},
    {"2A_WB_SAVE", "2A_WB_SAVE\t", KeyAction::Number, &ImgCfgStatus::wbSave, 0, 0, 1},
    {"2A_WB_R", "2A_WB_R\t\t", KeyAction::Number, &ImgCfgStatus::wbR, 512, 256, 4096},
    {"2A_WB_B", "2A_WB_B\t\t", KeyAction::Number, &ImgCfgStatus::wbB, 0, 256, 4096},
    {"2A_DEFLICKER", "2A_DEFLICKER\t", KeyAction::EitherNumber, &ImgCfgStatus::deflicker, 60, 50, 60},
    {"IMG_BRIGHTNESS", "IMG_BRIGHTNESS\t", KeyAction::Number, &ImgCfgStatus::brightness, 128, 0, 255},
    {"IMG_CONTRAST", "IMG_CONTRAST\t", KeyAction::Number, &ImgCfgStatus::contrast, 128, 96, 160},
    {"IMG_SATURATION", "IMG_SATURATION\t", KeyAction::Number, &ImgCfgStatus::saturation, 128, 104, 152},
    {"IMG_SHARPNESS", "IMG_SHARPNESS\t", KeyAction::Number, &ImgCfgStatus::sharpness, 100, 56, 119},
    {"IMG_NF_MODE", "IMG_NF_MODE\t", KeyAction::Number, &ImgCfgStatus::nfMode, 1, 0, 2},
    {"IMG_NF_LEVEL", "IMG_NF_LEVEL\t", KeyAction::Number, &ImgCfgStatus::nfLevel, 0, 0, 44},
    {"IMG_FLIP", "IMG_FLIP\t", KeyAction::Number, &ImgCfgStatus::flip, 0, 0, 1},
    {"IMG_MIRROR", "IMG_MIRROR\t", KeyAction::Number, &ImgCfgStatus::mirror, 0, 0, 1},
    {"DN_MODE", "DN_MODE\t\t", KeyAction::NotStored, &ImgCfgStatus::dnMode, 0},
    {"DN_BW", "DN_BW\t\t", KeyAction::NotStored, &ImgCfgStatus::dnBw, 1},
    {"DN_ICR", "DN_ICR\t\t", KeyAction::NotStored, &ImgCfgStatus::dnIcr, 1},
    {"DN_FPS", "DN_FPS\t\t", KeyAction::Number, &ImgCfgStatus::dnFps, 0, 0, 5},
    {"TRIG", nullptr, KeyAction::NotStored},
    {"DN_DI", "DN_DI\t\t", KeyAction::NoKey, &ImgCfgStatus::dnDi, 0},
    {"DN_LS", "DN_LS\t\t", KeyAction::NotStored, &ImgCfgStatus::dnLs, 0},
    {"DN_LUM", "DN_LUM\t\t", KeyAction::NotStored, &ImgCfgStatus::dnLum, 0},
    {"EXT_BLC", "EXT_BLC\t\t", KeyAction::Number, &ImgCfgStatus::extBlc, 4, 0, 8},
    {"EXT_WDR", "EXT_WDR\t\t", KeyAction::Number, &ImgCfgStatus::extWdr, 0, 0, 3},
    {"EXT_NF", "EXT_NF\t\t", KeyAction::Number, &ImgCfgStatus::extNf, 0},
    {"EXT_LSC", "EXT_LSC\t\t", KeyAction::Number, &ImgCfgStatus::extLsc, 0},
    {"EXT_DPC", "EXT_DPC\t\t", KeyAction::Number, &ImgCfgStatus::extDpc, 1},
    {"EXT_AEWIN", "EXT_AEWIN\t", KeyAction::Window, nullptr, 1},
    {"EXT_RESET", "EXT_RESET\t\t", KeyAction::NoKey, &ImgCfgStatus::extReset, 0},
    {"RESET", nullptr, KeyAction::LoadDefault},
    {"RELOAD", nullptr, KeyAction::LoadSystem},
    {"EXT_DEBUG", "EXT_DEBUG\t\t", KeyAction::Number, &ImgCfgStatus::extDebug, 0},
    {"LOOPBREAK", nullptr, KeyAction::LoopBreak},
    {"sensor_width", nullptr, KeyAction::Echo},
    {"sensor_height", nullptr, KeyAction::Echo},
};
// clang-format on

struct KeyMatch {
    const ConfKey *key; ///< null: unknown
    int position;       ///< of the text's first occurrence in the key list; -1: nowhere
};

/// Looks a text up among the keys, as ImgCfgParse does.
KeyMatch FindKey(const char *text);

} // namespace kel

#endif
