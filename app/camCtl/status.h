// SPDX-License-Identifier: MIT
//
// The values that camStat -r prints, under their names in snake case: for status, watch and the stress test.
#ifndef CAMSTAT_APP_CAM_CTL_STATUS_H
#define CAMSTAT_APP_CAM_CTL_STATUS_H

#include <stddef.h>

namespace camCtl
{

struct StatusRow {
    const char *name; ///< as camStat -r calls the value, with its unit
    double (*read)(); ///< the value, or what IsFailure tells; the library prints a line of its own then
    int decimals;
    const char *metric; ///< with the base unit of Prometheus' conventions: the value times `scale`
    double scale;
    const char *field; ///< the readout's field, of those that the stress test reads
};

extern const StatusRow *const kStatusRows;
extern const size_t kStatusCount;
/// The live readouts come first, in the order in which camStat -t reads them.
constexpr size_t kLiveCount = 9;

/// The row with this name; null when there is none.
const StatusRow *FindStatus(const char *name);

/// Whether what a row's `read` gave is the status of a failed transfer.
bool IsFailure(double value);

/// Loads what the rows rest on: the sensor's timing, the mirrors of the processor's state. kDone, or kFailed after its
/// error line. The camera is open.
int StartSensor();

/// Reads a row; on failure prints its error line, and `*value` is NaN. kDone or kFailed.
int ReadStatus(const StatusRow &row, double *value);

} // namespace camCtl

#endif
