// SPDX-License-Identifier: MIT
//
// The status reports on standard output: live readouts, automatic exposure, automatic white balance.
#ifndef CAMSTAT_APP_CAM_STAT_REPORTS_H
#define CAMSTAT_APP_CAM_STAT_REPORTS_H

extern "C" {

/// Prints the live readouts. The first one that fails prints its failure text and ends the block.
///
/// @return 0, or the failing readout's negative status
int InfoOut();

/// Prints "ReadInfo...", the live readouts, the "Ae Status" and the "Awb Status" block. A value that cannot
/// be read prints its failure text instead, and its block goes on.
void ReadInfo();

} // extern "C"

#endif
