// SPDX-License-Identifier: MIT
//
// Stand-ins for clocks and pauses: a board that runs N times as fast shows clocks that run so, and pauses
// that last a N-th. Waits with a time-out (poll, condition variables) keep the host's time. Pauses are also
// what the trace tells apart from work.
#include "sim/preload/preload.h"

#include "sim/board/host.h"

#include <time.h>

namespace sim
{

namespace
{

// The plain time records have the machine's own width whatever this file is compiled with; 32-bit machines
// have a second set of functions with 64-bit time.
struct Time {
    long tv_sec;
    long tv_nsec;
};

struct Value {
    long tv_sec;
    long tv_usec;
};

struct Time64 {
    int64_t tv_sec;
    long tv_nsec;
};

constexpr int64_t kNsPerS = 1000000000;

template <class AnyTime>
int64_t ToNs(const AnyTime &time)
{
    return int64_t{time.tv_sec} * kNsPerS + time.tv_nsec;
}

template <class AnyTime>
void FromNs(int64_t ns, AnyTime *time)
{
    time->tv_sec = static_cast<decltype(time->tv_sec)>(ns / kNsPerS);
    time->tv_nsec = static_cast<decltype(time->tv_nsec)>(ns % kNsPerS);
}

// How far the board's clocks are ahead of the host's.
int64_t LeadNs()
{
    if (gBoard.state == nullptr || gBoard.speed == 1.0)
        return 0;
    return static_cast<int64_t>((gBoard.speed - 1.0) *
                                static_cast<double>(host::MonotonicNs() - gBoard.startNs));
}

bool IsCpuClock(clockid_t clock)
{
    return clock == CLOCK_PROCESS_CPUTIME_ID || clock == CLOCK_THREAD_CPUTIME_ID;
}

int64_t SetBackByFaultNs(Event &event)
{
    const BoardLock lock;
    const FaultRule *rule = PickRule(event, Effect::Back);
    return rule != nullptr ? int64_t{rule->value} * 1000 : 0;
}

// A clock reading is told only where a fault changed it: a sanitizer's run-time library reads the clock, too,
// and does so in threads in which not even a line can be formatted any more.
long FinishReading(Event &event)
{
    if (event.fault != 0)
        return Finish(event);
    errno = event.result < 0 ? event.error : event.callersErrno;
    return event.result;
}

template <class AnyTime, class Real>
int ReadClock(clockid_t clock, AnyTime *time, Real real)
{
    if (gBoard.state == nullptr || (gBoard.speed == 1.0 && !HasRules()))
        return real();
    Event event(Call::Clock);
    if (!InjectFault(event)) {
        event.result = real();
        event.error = errno;
        if (event.result == 0 && !IsCpuClock(clock))
            FromNs(ToNs(*time) + LeadNs() - SetBackByFaultNs(event), time);
    }
    return static_cast<int>(FinishReading(event));
}

// The time of day in seconds of the board.
template <class Seconds, class Real>
Seconds ReadSeconds(Seconds *out, Real real)
{
    if (gBoard.state == nullptr)
        return real(out);
    Event event(Call::Time);
    if (!InjectFault(event)) {
        // The lead is added to the full clock: seconds alone would lose the fraction.
        event.result = static_cast<long>((host::ClockNs(CLOCK_REALTIME) + LeadNs()) / kNsPerS);
    }
    if (event.result >= 0 && out != nullptr)
        *out = static_cast<Seconds>(event.result);
    return static_cast<Seconds>(FinishReading(event));
}

template <class AnyValue, class Real>
int ReadTimeOfDay(AnyValue *value, Real real)
{
    if (gBoard.state == nullptr)
        return real();
    Event event(Call::Time);
    if (!InjectFault(event)) {
        event.result = real();
        event.error = errno;
        if (event.result == 0) {
            const int64_t us = int64_t{value->tv_sec} * 1000000 + value->tv_usec + LeadNs() / 1000;
            value->tv_sec = static_cast<decltype(value->tv_sec)>(us / 1000000);
            value->tv_usec = static_cast<decltype(value->tv_usec)>(us % 1000000);
        }
    }
    return static_cast<int>(FinishReading(event));
}

// Pauses for `ns` of the board's time. `real` takes the host's pause and the rest of it, and returns 0 or an
// errno. An interruption that a fault asks for comes half-way: whoever goes on with the rest comes to an end.
template <class Real>
int PauseFor(int64_t ns, int64_t *leftNs, Real real)
{
    Event event(Call::Sleep);
    event.sleepUs = static_cast<double>(ns) / 1000.0;
    const bool fails = ns > 0 && InjectFault(event);
    *leftNs = !fails ? 0 : event.error == EINTR ? ns / 2 : ns;
    const auto onHost = static_cast<int64_t>(static_cast<double>(ns - *leftNs) / gBoard.speed);
    int64_t left = 0;
    const int error = onHost > 0 || !fails ? real(onHost, &left) : 0;
    if (error != 0)
        Fail(event, error);
    *leftNs += static_cast<int64_t>(static_cast<double>(left) * gBoard.speed);
    Finish(event);
    return event.error;
}

// The same on clock_nanosleep's own record; `absolute` is a point of the board's clock.
template <class AnyTime, class Real>
int PauseOnClock(clockid_t clock, bool absolute, const AnyTime *wanted, AnyTime *rest, Real real)
{
    int64_t ns = ToNs(*wanted);
    if (ns < 0 || wanted->tv_nsec < 0 || wanted->tv_nsec >= kNsPerS)
        return EINVAL;
    if (absolute) {
        ns -= host::ClockNs(clock) + LeadNs();
        ns = ns > 0 ? ns : 0;
    }
    int64_t left = 0;
    const int error = PauseFor(ns, &left, real);
    if (error == EINTR && !absolute && rest != nullptr)
        FromNs(left, rest);
    return error;
}

} // namespace

SIM_WRAP(int, clock_gettime, (clockid_t clock, Time *time))
{
    return ReadClock(
        clock, time, [=] { return SIM_NEXT(clock_gettime)(clock, time); });
}

SIM_WRAP(long, time, (long *out))
{
    return ReadSeconds(
        out, [](long *into) { return SIM_NEXT(time)(into); });
}

SIM_WRAP(int, gettimeofday, (Value * value, void *zone))
{
    return ReadTimeOfDay(
        value, [=] { return SIM_NEXT(gettimeofday)(value, zone); });
}

SIM_WRAP(int, clock_nanosleep, (clockid_t clock, int flags, const Time *wanted, Time *rest))
{
    if (gBoard.state == nullptr || wanted == nullptr)
        return SIM_NEXT(clock_nanosleep)(clock, flags, wanted, rest);
    return PauseOnClock(clock, flags == TIMER_ABSTIME, wanted, rest, [clock](int64_t ns, int64_t *left) {
        Time onHost = {};
        Time remaining = {};
        FromNs(ns, &onHost);
        const int error = SIM_NEXT(clock_nanosleep)(clock, 0, &onHost, &remaining);
        *left = ToNs(remaining);
        return error;
    });
}

namespace
{

int PauseOnHost(int64_t ns, int64_t *left)
{
    Time onHost = {};
    Time remaining = {};
    FromNs(ns, &onHost);
    const int error = SIM_NEXT(clock_nanosleep)(CLOCK_MONOTONIC, 0, &onHost, &remaining);
    *left = ToNs(remaining);
    return error;
}

int SetErrno(int error)
{
    if (error == 0)
        return 0;
    errno = error;
    return -1;
}

} // namespace

SIM_WRAP(int, nanosleep, (const Time *wanted, Time *rest))
{
    if (gBoard.state == nullptr || wanted == nullptr)
        return SIM_NEXT(nanosleep)(wanted, rest);
    return SetErrno(PauseOnClock(CLOCK_MONOTONIC, false, wanted, rest, PauseOnHost));
}

SIM_WRAP(int, usleep, (unsigned us))
{
    int64_t left = 0;
    return gBoard.state == nullptr ? SIM_NEXT(usleep)(us)
                                   : SetErrno(PauseFor(int64_t{us} * 1000, &left, PauseOnHost));
}

SIM_WRAP(unsigned, sleep, (unsigned seconds))
{
    int64_t left = 0;
    if (gBoard.state == nullptr)
        return SIM_NEXT(sleep)(seconds);
    return PauseFor(seconds * kNsPerS, &left, PauseOnHost) == 0
               ? 0
               : static_cast<unsigned>((left + kNsPerS - 1) / kNsPerS);
}

#if __TIMESIZE == 32
// 32-bit programs with 64-bit time reach these under names of their own.
SIM_WRAP(int, __clock_gettime64, (clockid_t clock, Time64 *time))
{
    return ReadClock(
        clock, time, [=] { return SIM_NEXT(__clock_gettime64)(clock, time); });
}

SIM_WRAP(int64_t, __time64, (int64_t * out))
{
    return ReadSeconds(
        out, [](int64_t *into) { return SIM_NEXT(__time64)(into); });
}

struct Value64 {
    int64_t tv_sec;
    int64_t tv_usec;
};

SIM_WRAP(int, __gettimeofday64, (Value64 * value, void *zone))
{
    return ReadTimeOfDay(
        value, [=] { return SIM_NEXT(__gettimeofday64)(value, zone); });
}

SIM_WRAP(int, __clock_nanosleep_time64, (clockid_t clock, int flags, const Time64 *wanted, Time64 *rest))
{
    if (gBoard.state == nullptr || wanted == nullptr)
        return SIM_NEXT(__clock_nanosleep_time64)(clock, flags, wanted, rest);
    return PauseOnClock(clock, flags == TIMER_ABSTIME, wanted, rest, PauseOnHost);
}

SIM_WRAP(int, __nanosleep64, (const Time64 *wanted, Time64 *rest))
{
    if (gBoard.state == nullptr || wanted == nullptr)
        return SIM_NEXT(__nanosleep64)(wanted, rest);
    return SetErrno(PauseOnClock(CLOCK_MONOTONIC, false, wanted, rest, PauseOnHost));
}
#endif

} // namespace sim
