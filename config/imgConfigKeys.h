// SPDX-License-Identifier: MIT
//
// The vocabulary of the configuration files as data: every key with what it does, its field and the values
// that make a difference; and the rule that tells night from day. Internal to the library and its programs.
// The parser, camConf's check and its machine-readable output all read these rows.
#ifndef CAMSTAT_CONFIG_IMG_CONFIG_KEYS_H
#define CAMSTAT_CONFIG_IMG_CONFIG_KEYS_H

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
    Echo,         ///< a debug line, nothing stored
};

struct ConfKey {
    const char *name;
    KeyAction action;
    ConfField field = nullptr; ///< that the key names; null for keys without one and for the window
    int32_t low = INT32_MIN;   ///< numbers outside low to high act as one inside, or fail, in the applier
    int32_t high = INT32_MAX;
};

// In the order of the key list, whose positions are the parser's results.
inline constexpr ConfKey kConfKeys[] = {
    {"SNR_TYPE", KeyAction::Number, &ImgCfgStatus::snrType},
    {"LEN_TYPE", KeyAction::Number, &ImgCfgStatus::lenType},
    {"ICR_TYPE", KeyAction::Number, &ImgCfgStatus::icrType},
    {"2A_AEC_EN", KeyAction::Number, &ImgCfgStatus::aecEn, 0, 1},
    {"2A_AGC_EN", KeyAction::Number, &ImgCfgStatus::agcEn, 0, 1},
    {"2A_AEL_EN", KeyAction::Number, &ImgCfgStatus::aelEn},
    {"2A_AWB_EN", KeyAction::Number, &ImgCfgStatus::awbEn, 0, 1},
    {"2A_MAX_EXPOSURE", KeyAction::Number, &ImgCfgStatus::maxExposure, 0, 4},
    {"2A_MAN_EXPOSURE", KeyAction::Number, &ImgCfgStatus::manExposure, 0, 11},
    {"2A_MAX_GAIN", KeyAction::Number, &ImgCfgStatus::maxGain, 0, 7},
    {"2A_MAN_GAIN", KeyAction::Number, &ImgCfgStatus::manGain, 0, 6},
    {"2A_LIMIT_INDEX", KeyAction::Number, &ImgCfgStatus::limitIndex},
    {"2A_LIMIT_UPPER", KeyAction::Number, &ImgCfgStatus::limitUpper},
    {"2A_LIMIT_LOWER", KeyAction::Number, &ImgCfgStatus::limitLower},
    {"2A_WB_SAVE", KeyAction::Number, &ImgCfgStatus::wbSave, 0, 1},
    {"2A_WB_R", KeyAction::Number, &ImgCfgStatus::wbR, 256, 4096},
    {"2A_WB_B", KeyAction::Number, &ImgCfgStatus::wbB, 256, 4096},
    {"2A_DEFLICKER", KeyAction::EitherNumber, &ImgCfgStatus::deflicker, 50, 60},
    {"IMG_BRIGHTNESS", KeyAction::Number, &ImgCfgStatus::brightness, 0, 255},
    {"IMG_CONTRAST", KeyAction::Number, &ImgCfgStatus::contrast, 96, 160},
    {"IMG_SATURATION", KeyAction::Number, &ImgCfgStatus::saturation, 104, 152},
    {"IMG_SHARPNESS", KeyAction::Number, &ImgCfgStatus::sharpness, 56, 119},
    {"IMG_NF_MODE", KeyAction::Number, &ImgCfgStatus::nfMode, 0, 2},
    {"IMG_NF_LEVEL", KeyAction::Number, &ImgCfgStatus::nfLevel, 0, 44},
    {"IMG_FLIP", KeyAction::Number, &ImgCfgStatus::flip, 0, 1},
    {"IMG_MIRROR", KeyAction::Number, &ImgCfgStatus::mirror, 0, 1},
    {"DN_MODE", KeyAction::NotStored, &ImgCfgStatus::dnMode},
    {"DN_BW", KeyAction::NotStored, &ImgCfgStatus::dnBw},
    {"DN_ICR", KeyAction::NotStored, &ImgCfgStatus::dnIcr},
    {"DN_FPS", KeyAction::Number, &ImgCfgStatus::dnFps, 0, 5},
    {"TRIG", KeyAction::NotStored},
    {"DN_LS", KeyAction::NotStored, &ImgCfgStatus::dnLs},
    {"DN_LUM", KeyAction::NotStored, &ImgCfgStatus::dnLum},
    {"EXT_BLC", KeyAction::Number, &ImgCfgStatus::extBlc, 0, 8},
    {"EXT_WDR", KeyAction::Number, &ImgCfgStatus::extWdr, 0, 3},
    {"EXT_NF", KeyAction::Number, &ImgCfgStatus::extNf},
    {"EXT_LSC", KeyAction::Number, &ImgCfgStatus::extLsc},
    {"EXT_DPC", KeyAction::Number, &ImgCfgStatus::extDpc},
    {"EXT_AEWIN", KeyAction::Window},
    {"RESET", KeyAction::LoadDefault},
    {"RELOAD", KeyAction::LoadSystem},
    {"EXT_DEBUG", KeyAction::Number, &ImgCfgStatus::extDebug},
    {"LOOPBREAK", KeyAction::Echo},
    {"sensor_width", KeyAction::Echo},
    {"sensor_height", KeyAction::Echo},
};

constexpr size_t kConfKeyCount = sizeof(kConfKeys) / sizeof(kConfKeys[0]);

/// Night as the record has it: a mode of its own, or as the light sensor or the digital input says.
constexpr bool IsNight(const ImgCfgStatus &record)
{
    switch (record.dnMode) {
    case 0:
    case 4:
        return record.dnLs == 1;
    case 2:
        return true;
    case 3:
        return record.dnDi == 0;
    default:
        return false;
    }
}

} // namespace kel

#endif
