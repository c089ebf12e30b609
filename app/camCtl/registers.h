// SPDX-License-Identifier: MIT
//
// The camera's registers as camCtl works on them: an image of all 256, filled by as few reads as will do and written
// back by as few writes as the reflect groups allow.
#ifndef CAMSTAT_APP_CAM_CTL_REGISTERS_H
#define CAMSTAT_APP_CAM_CTL_REGISTERS_H

#include "app/camCtl/fields.h"

#include <stdint.h>

namespace camCtl
{

constexpr int kRegisters = 256;
constexpr int kMostRead = 32;  // registers of one read
constexpr int kMostWrite = 30; // of one write, as the longest block of the library

struct Image {
    uint8_t values[kRegisters];
    bool wanted[kRegisters]; ///< to be read; after the read, what is known
};

/// Opens the camera bus for the camera processor and sets the retries. kDone, or kFailed after its error line.
int OpenCamera(int retries);
void CloseCamera();

/// Marks the registers of a field, or `count` from `reg`.
void Want(Image &image, const Field &field);
void Want(Image &image, unsigned reg, unsigned count);

/// Reads what is marked, neighbours together. kDone, or kFailed after its error line.
int ReadWanted(Image &image);

/// Writes the registers in which `target` differs from `image`, neighbours of one reflect group together, and reads
/// them back. `image` holds what the camera holds afterwards; `*written` counts registers. kDone; kNo after an error
/// line where a register reads back otherwise; kFailed after a line that tells what was written.
int WriteChanges(Image &image, const Image &target, int *written);

/// Switches the information output to the live readouts where it is not, as camStat -r does.
int OpenReadouts();

} // namespace camCtl

#endif
