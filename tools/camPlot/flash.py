# SPDX-License-Identifier: MIT
"""Reads what a stress test leaves on a camera's flash: the log of failed attempts, and a result for each run.

Rubbish is counted and named, never fatal. Times are seconds of the camera's own clock, taken as universal time.
"""
import json
import os
import re

import numpy as np

import output

STAMP = rb"\d{4}/\d\d/\d\d \d\d:\d\d:\d\d"
# Stamp, attempt, milliseconds lost so far, failures since the start of the process: as wide as the numbers can be.
LINE = re.compile(rb"^(?:(" + STAMP + rb"), *(\d{1,10}), *(\d{1,18}), *(\d{1,10}) *\r?|(.*))$", re.MULTILINE)
RESULT = re.compile(
    rb"I2C Error Counts = (\d{1,10})\r?\n.*\r?\n\[(" + STAMP + rb")\]\[(" + STAMP + rb")\]\[(\d{1,10})\]:\r?\n\Z"
)
RESULT_NAME = "I2cTestResult_"
CHUNK = 1 << 20
LONGEST_LINE = 1 << 12
NAMED_LINES = 5  # of a file's rubbish
INT32_MAX = 2**31 - 1


class Log:
    """Failed attempts in the order in which they were logged, a column each."""

    def __init__(self):
        self.time = np.empty(0, np.int64)
        self.attempt = np.empty(0, np.int64)  # 0 for the first
        self.ms = np.empty(0, np.int64)  # lost since the transfer's first attempt began
        self.count = np.empty(0, np.int64)  # failures since the start of the process
        self.rubbish = 0
        self.there = False


class Result:
    """One result file; without `rounds` where nothing or not enough is in it."""

    def __init__(self, name):
        self.name = name
        self.finished = seconds(stamp_of_name(name))  # None when the name tells no time
        self.errors = self.start = self.last_round = self.rounds = None
        self.size = 0


def stamp_of_name(name):
    """The time in the name of a result file, in the form of the log."""
    digits = os.fsencode(name[len(RESULT_NAME) :])
    if not re.fullmatch(rb"\d{14}", digits):
        return b""
    return b"%b/%b/%b %b:%b:%b" % (digits[:4], *(digits[i : i + 2] for i in range(4, 14, 2)))


def times(stamps):
    """Seconds of many stamps; -1 for a date or time that does not exist, and for no stamp."""
    digits = np.array(stamps, "S19").view(np.uint8).reshape(-1, 19).astype(np.int64) - ord("0")
    year, month, day, hour, minute, second = (
        sum(digits[:, at + i] * 10 ** (width - 1 - i) for i in range(width))
        for at, width in ((0, 4), (5, 2), (8, 2), (11, 2), (14, 2), (17, 2))
    )
    whole = (year >= 1970) & (month >= 1) & (month <= 12) & (hour <= 23) & (minute <= 59) & (second <= 59)
    months = np.where(whole, (year - 1970) * 12 + month - 1, 0).astype("M8[M]")
    days = months.astype("M8[D]") + (day - 1)
    whole &= days.astype("M8[M]") == months
    return np.where(whole, days.astype(np.int64) * 86400 + hour * 3600 + minute * 60 + second, -1)


def seconds(stamp):
    """Seconds of one stamp; None for a date or time that does not exist."""
    value = int(times([stamp])[0])
    return value if value >= 0 else None


def chunks(file):
    """The lines of a file, many at a time, as (bytes without the last line end, number of the first line)."""
    carry = b""
    number = 1
    while chunk := file.read(CHUNK):
        data = carry + chunk
        cut = data.rfind(b"\n")
        # Of a line that is too long to be one, the beginning is enough.
        carry = data[cut + 1 : cut + 1 + LONGEST_LINE]
        if cut >= 0:
            yield data[:cut], number
            number += data.count(b"\n", 0, cut + 1)
    if carry:
        yield carry, number


def take_chunk(data, number, columns, complain):
    """Adds the lines of a chunk to the columns; names what is no line of a log."""
    stamps, attempts, ms, counts, rubbish = zip(*LINE.findall(data))
    time = times(stamps)

    def numbers(texts):
        return np.array([text or b"0" for text in texts] if b"" in texts else texts).astype(np.int64)

    attempt, count = numbers(attempts), numbers(counts)
    good = (time >= 0) & (attempt <= INT32_MAX) & (count <= INT32_MAX)
    for place in np.flatnonzero(~good)[:NAMED_LINES]:
        complain(
            number + int(place),
            rubbish[place] or b", ".join((stamps[place], attempts[place], ms[place], counts[place])),
        )
    for column, values in zip(columns, (time, attempt, numbers(ms), count)):
        column.append(values[good])
    return int(np.count_nonzero(~good))


def read_log(path):
    """The log; rubbish lines are told on standard error, the first of them by their number."""
    log = Log()
    columns = [[], [], [], []]
    named = 0

    def complain(number, line):
        nonlocal named
        named += 1
        if named <= NAMED_LINES:
            output.say(f"{path}:{number}: not a line of the log: {line[:60].decode('ascii', 'replace')}")

    try:
        with open(path, "rb") as file:
            log.there = True
            for data, number in chunks(file):
                log.rubbish += take_chunk(data, number, columns, complain)
    except FileNotFoundError:
        return log
    except OSError as error:
        output.say(f"{path}: {error.strerror}")
        log.there = False
    if log.rubbish > NAMED_LINES:
        output.say(f"{path}: and {log.rubbish - NAMED_LINES} more such lines")
    if columns[0]:
        log.time, log.attempt, log.ms, log.count = (np.concatenate(column) for column in columns)
    return log


def read_result(folder, name):
    """One result file."""
    result = Result(name)
    path = os.path.join(folder, name)
    try:
        with open(path, "rb") as file:
            text = file.read(LONGEST_LINE)
    except OSError as error:
        output.say(f"{path}: {error.strerror}")
        return result
    result.size = len(text)
    match = RESULT.match(text)
    if match:
        start, last_round = seconds(match[2]), seconds(match[3])
        if start is not None and last_round is not None:
            result.errors, result.rounds = int(match[1]), int(match[4]) + 1
            result.start, result.last_round = start, last_round
            if result.finished is None or not 0 <= result.finished - last_round <= 86400:
                result.finished = last_round
    if result.rounds is None and result.size > 0:
        output.say(f"{path}: damaged: no run can be read from it")
    return result


def read_summary(folder):
    """What camCtl stress --json told of the last run, where it was kept as stress.json; None without it."""
    try:
        with open(os.path.join(folder, "stress.json"), "rb") as file:
            told = json.loads(file.read(1 << 16))
        failure = told.get("failure", {})
        numbers = {
            "rounds": int(told["rounds"]),
            "failures": int(told["failed_attempts"]),
            "seconds": int(told["seconds"]),
        }
        if not all(0 <= number <= INT32_MAX for number in numbers.values()):
            raise ValueError
        return {
            **numbers,
            "passed": told["verdict"] == "PASS",
            "failure": ""
            if not failure
            else f"{failure['field']} (0x{int(failure['address']):02X}) gave up after "
            f"{output.plural(int(failure['attempts']), 'attempt')}: {failure['error']}",
        }
    except FileNotFoundError:
        return None
    except (OSError, ValueError, KeyError, TypeError, AttributeError, OverflowError, RecursionError):
        output.say(f"{folder}/stress.json: no summary of a stress test")
        return None


def read_folder(path):
    """Log, results and summary of a flash, a copy of it, or a root folder that has one; None when there is nothing."""
    inside = os.path.join(path, "mnt", "nand")
    folder = inside if os.path.isdir(inside) else path
    try:
        names = sorted(os.listdir(folder))
    except OSError as error:
        output.fail(path, error)
    log = read_log(os.path.join(folder, "I2cErr.csv"))
    results = [
        read_result(folder, name)
        for name in names
        if name.startswith(RESULT_NAME) and os.path.isfile(os.path.join(folder, name))
    ]
    summary = read_summary(folder)
    return (log, results, summary) if log.there or results or summary else None
