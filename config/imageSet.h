// SPDX-License-Identifier: MIT
//
// The applier over records of its caller: ImageSet is this over gtImgCfgStatus. Internal to the configuration and
// its programs.
#ifndef CAMSTAT_CONFIG_IMAGE_SET_H
#define CAMSTAT_CONFIG_IMAGE_SET_H

#include "kelisp/imgConfig.h"

namespace kel
{

/// Applies what differs between `wanted` and `applied`; both are changed as ImageSet says.
///
/// @param known  false: what the camera has is not known. Every setting is applied, whatever `applied` holds, but
///               for the light sensor's state and the white-balance gains, which are compared all the same
/// @param given  null: the white-balance gains are treated as ImageSet says. Otherwise one flag per field: a gain
///               with one outlasts a change to manual white balance, one without stays as the camera has it; and
///               nothing is saved before the gains are set or read, nor when one could not be read
void ApplySettings(ImgCfgStatus &wanted, ImgCfgStatus &applied, bool known = true,
                   const ImgCfgStatus *given = nullptr);

} // namespace kel

#endif
