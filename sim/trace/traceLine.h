// SPDX-License-Identifier: MIT
//
// What the two forms of the trace share: a line under
// construction, the registers of a transfer by address, names.
#ifndef SIM_TRACE_TRACE_LINE_H
#define SIM_TRACE_TRACE_LINE_H

#include "sim/board/registers.h"
#include "sim/calls/event.h"
#include "sim/calls/nodes.h"

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace sim
{

/// One line under construction; what does not fit is cut, the line end is kept.
class Line
{
  public:
    [[gnu::format(printf, 2, 3)]] void Add(const char *format, ...);
    /// A text in quotes, as JSON writes it.
    void Quote(const char *words);
    void Write(int fd);

  private:
    static constexpr size_t kRoom = 8000;
    char text_[kRoom + 2]; ///< filled up to length_
    size_t length_ = 0;
};

/// The sums of a run.
struct TraceTotals {
    uint64_t calls = 0;
    uint64_t transfers = 0;
    uint64_t faults = 0;
    uint64_t pausedNs = 0;
};

/// The registers of a transfer, by address, so that fields can be taken from them.
struct RegisterImage {
    uint8_t before[257] = {};
    uint8_t after[257] = {};
    bool touched[257] = {};
};

RegisterImage ImageOf(const Event &event);
bool IsTouched(const RegisterImage &image, const Field &field);

/// Calls `each` with every field that the transfer moved; where a wider one covers them, with that one only.
template <class Each>
void ForEachField(const RegisterImage &image, Each each)
{
    bool told[257] = {};
    for (int wide = 1; wide >= 0; --wide) {
        for (const Field *field = FieldsBegin(); field != FieldsEnd(); ++field) {
            if ((field->registers > 1) != (wide == 1) || !IsTouched(image, *field) || told[field->reg])
                continue;
            each(*field);
            if (wide == 1)
                memset(told + field->reg, true, field->registers);
        }
    }
}

/// Calls `each` with the number and path of every descriptor of the board that is open.
template <class Each>
void ForEachOpenNode(Each each)
{
    for (int fd = 0; fd < kDescriptors; ++fd)
        if (const Node *node = NodeOf(fd))
            each(fd, node->path);
}

double Ms(uint64_t ns);
const char *ErrorName(int error);
const char *PinName(uint32_t pin);
const char *LevelName(uint32_t pin, uint32_t level);

/// The trace for a person; `colour` for a terminal.
void WritePersonLine(const Event &event, uint64_t endNs, int fd, bool colour);
void WritePersonSummary(const TraceTotals &totals, uint64_t nowNs, int fd);

/// The trace for a program.
void WriteJsonLine(const Event &event, uint64_t endNs, int fd);
void WriteJsonSummary(const TraceTotals &totals, uint64_t nowNs, int fd);

} // namespace sim

#endif
