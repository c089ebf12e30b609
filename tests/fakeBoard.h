// SPDX-License-Identifier: MIT
//
// A fake of the board for the unit tests. A program that links it together with the library and the linker's
// --wrap options (the CMake function kel_test does both) sees no device, clock or file of the machine that it
// runs on: the calls below end here, are recorded in order as one line of text each, and can be made to fail.
// What a test asserts is therefore the traffic as well as the values.
//
//   line                       call (numbers hexadecimal unless a unit or "decimal" is given)
//   open /dev/csl4             open for reading and writing; another access mode follows as " ro" or " wo"
//   close /dev/csl4            close; of a descriptor that nobody opened "close -1" (decimal)
//   select e2                  camera bus: slave selected
//   r 20 3                     block read of 3 (decimal) registers from 0x20
//   r8 30 4   r16 30 4         read of 4 (decimal) 8-bit or 16-bit registers
//   w 34 65 01   w16 30 005a   write of the values from 0x34 on
//   gio 8 91 0                 GPIO request, pin, level (all decimal)
//   cmem 6 1000 0              contiguous-memory request code and the words that go in
//   csl2 cc11 7 <pointer> 3    chip-support request and its record
//   mmap /dev/csl1 10000 1c70000    length and offset of a shared read-write map;  munmap 10000
//   sleep 1000                 a pause in microseconds (decimal); the virtual clock moves, nobody sleeps; 7 us are left
//                              of one that fails
//   fopen /mnt/nand/x.csv a+   a file of the board, in reality below Board().root;  fwrite, fclose /mnt/nand/x.csv
//   rename a b   unlink a   fsync /mnt/nand   fcntl getfd   fcntl 2 1 (command and argument, decimal)
//   openlog camStat 33 8 (decimal)   syslog 3 <text>   closelog   lock   unlock (the print lock)
//   mutex_init   gethostname   gettimeofday   clock (the last is not recorded, but can fail)
//
// Addresses that are not consecutive and other breaches of the driver's contract show as words in the line.
#ifndef KELISP_TESTS_FAKE_BOARD_H
#define KELISP_TESTS_FAKE_BOARD_H

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

using Lines = std::vector<std::string>;

/// What a test sets and looks at. Everything as new: registers 0, no failures planned, and it is 2024-05-01
/// 12:00:00 UTC.
struct FakeBoard {
    static constexpr int64_t startNs = 1000LL * 1000000000LL;

    std::string root;                ///< real folder that holds /mnt, /sysconf, /defconf and /proc/driver
    std::array<uint8_t, 256> regs{}; ///< registers of the camera processor
    std::map<uint32_t, std::vector<uint32_t>> cmemOut = {
        {8, {0x02300105}}};          ///< by request code: the words that the driver hands back
    int64_t nowNs = startNs;         ///< monotonic clock
    int64_t wallSec = 1714564800;    ///< calendar time while the monotonic clock is at startNs
    int64_t transferNs = 0;          ///< time that one camera-bus transfer takes
    std::map<int, std::string> open; ///< descriptors that are open now, with their paths
    std::map<void *, size_t> maps;   ///< maps that exist now, with their lengths
    Lines lines;                     ///< what was called so far
    std::function<void(const std::string &)> onCall; ///< runs before each recorded call is carried out

    struct Plan {
        std::string prefix;
        int nth, error, times, result;
    };
    std::vector<Plan> plans; ///< of failures

    /// Everything as new, and new empty folders.
    void Reset();

    /// Lets the calls number `nth` to nth + times - 1, counted from now among those whose line begins with
    /// `prefix`, fail with `error` and return `result` (calls that return a pointer: null or MAP_FAILED).
    void Fail(const std::string &prefix, int nth = 1, int error = EIO, int times = 1, int result = -1);

    /// Opens a device behind the program's back; returns its descriptor.
    int Attach(const std::string &path);

    /// The recorded lines, which are forgotten; only those for which `wanted` holds.
    Lines Take(const std::function<bool(const std::string &)> &wanted = nullptr);

    /// The milliseconds that passed since Reset.
    int64_t ElapsedMs() const { return (nowNs - startNs) / 1000000; }

    /// The real path of a file of the board, and its whole content.
    std::string RealPath(const std::string &path) const;
    std::string ReadFile(const std::string &path) const;

    /// Records one call, unless its line is empty. When it has to fail: what it returns; errno is set then.
    std::optional<int> Call(const std::string &line);
};

/// The one board of the process.
FakeBoard &Board();

/// The fixture to derive from: a new board for each test, and nothing open at its end.
class BoardTest : public ::testing::Test
{
  protected:
    FakeBoard &board = Board();
    BoardTest();
    ~BoardTest() override;
    void AttachLink(); ///< gtI2cHndl is open, unrecorded; the library's counters and gtSensorInfo are zero
    void WriteFile(const std::string &path, const std::string &text); ///< a file of the board
    /// The result of a call, what it prints on either stream, and the calls that it makes.
    void Expect(const std::function<long()> &call, long result, const std::string &printed,
                const Lines &lines);
    void TearDown() override;
};

/// What `action` prints on standard output and standard error, separately. Line numbers are left out of locations:
/// " ERROR  (module|function|): ".
struct Printed {
    std::string out, err;
};
Printed Capture(const std::function<void()> &action);

[[gnu::format(printf, 1, 2)]] std::string Format(const char *format, ...);

/// A record as it lies in memory.
template <typename Record>
std::string BytesOf(const Record &record)
{
    return {reinterpret_cast<const char *>(&record), sizeof(record)};
}

/// The rows of tests/`table` that begin with the word `kind`: the words behind it. '#' begins a remark.
std::vector<Lines> ReadTable(const std::string &table, const std::string &kind);

#endif
