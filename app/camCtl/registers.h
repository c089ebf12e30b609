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

/// Prints that a transfer failed in all its attempts, with errno's text; gives kFailed.
int FailAttempts(const char *name, const char *what);

/// Marks the registers of a field, or `count` from `reg`.
void Want(Image &image, const Field &field);
void Want(Image &image, unsigned reg, unsigned count);

/// Reads what is marked, neighbours together. kDone, or kFailed after its error line; with `goesOn` what could not be
/// read loses its mark, and the rest is read all the same.
int ReadWanted(Image &image, bool goesOn = false);

/// Writes the registers in which `target` differs from `image`, which was read before, neighbours of one reflect group
/// together, and reads them back in no more transfers than the first read took. `image` holds what the camera holds
/// afterwards. kDone; kNo after an error line where a register reads back otherwise; kFailed after a line that tells
/// what was written.
int WriteChanges(Image &image, const Image &target);

/// Switches the information output to the live readouts where it is not, as camStat -r does.
int OpenReadouts();

} // namespace camCtl

#endif
