// SPDX-License-Identifier: MIT
//
// Making boards: the folder, its flash and its configuration files, and the state after power-on.
#ifndef SIM_LAUNCHER_BOARD_FOLDER_H
#define SIM_LAUNCHER_BOARD_FOLDER_H

#include <string>

namespace sim
{

/// The folder that holds the board when the command line names none; empty without a home folder.
std::string DefaultBoardFolder();

/// Attaches the board in `folder`, and makes it first where the folder is missing or empty, or with
/// `amongOthers` holds other files, which stay. On failure `problem` says why, and what to do.
bool UseBoard(const std::string &folder, bool amongOthers, std::string *problem);

/// Makes the board as new, also a damaged one: camera, pins, scene, files, no fault rules. Programs that use
/// it go on with the new one. Where there is none it is made, as UseBoard does.
bool ResetBoard(const std::string &folder, bool amongOthers, std::string *problem);

} // namespace sim

#endif
