# SPDX-License-Identifier: MIT
"""What a camera's log and results mean: its runs, their verdicts, and how cameras compare."""
import functools
import math
import os

import numpy as np

import flash
import output

READS_A_ROUND = 9  # of the stress test; failed attempts and their retries come on top
VERDICTS = ("lost", "gave up", "cut off", "stopped", "no run", "passed")  # from worst to best
SESSION_GAP_S = 3600  # a process that logs nothing for so long has ended
SESSION_FAILURES = 10  # fewer belong to an ordinary command, not to a test that left no result
LONGEST_ROUND_S = 60  # on average; a run whose rounds seem longer had its clock set meanwhile


class Run:
    """One run of the stress test."""

    def __init__(self, name, start, finished, verdict, reason=""):
        self.name = name
        self.start = start
        self.finished = finished
        self.verdict = verdict
        self.reason = reason
        self.seconds = None if start is None else finished - start  # None: not known
        self.rounds = None
        self.failures = 0  # by the run's own count where there is one
        self.events = np.empty(0, np.int64)  # its rows of the log

    @property
    def transfers(self):
        """Reads that the run made, without retries; None when it did not tell."""
        return None if self.rounds is None else READS_A_ROUND * self.rounds


class Camera:
    """One camera: log, runs, and the numbers by which it is compared."""

    def __init__(self, name, path):
        self.name = name
        self.path = path
        self.log = flash.Log()
        self.runs = []
        self.outside = 0  # rows that belong to no run
        self.reason = ""
        self.verdict = "lost"

    @functools.cached_property
    def events(self):
        """Rows of the log that belong to the runs; all of them where there is no run."""
        theirs = np.full(len(self.log.time), not self.runs)
        for run in self.runs:
            theirs[run.events] = True
        return np.flatnonzero(theirs)

    def total(self, what):
        """A sum over the runs that know it; None when none does."""
        known = [getattr(run, what) for run in self.runs if getattr(run, what) is not None]
        return sum(known) if known else None

    def rate(self):
        """Failed attempts per million transfers, with the ends of its 95 % interval; None without transfers."""
        told = [run for run in self.runs if run.transfers]
        if not told:
            return None
        transfers = sum(run.transfers for run in told)
        return [1e6 * value / transfers for value in interval(sum(run.failures for run in told))]

    @functools.cached_property
    def transfers_failed(self):
        """Last failures of each transfer that failed at least once, as rows of the log."""
        rows = self.events
        if len(rows) == 0:
            return rows
        attempt = self.log.attempt[rows]
        # A failed retry belongs to the transfer of the line before it.
        again = (attempt[1:] > 0) & (attempt[1:] == attempt[:-1] + 1) & (rows[1:] == rows[:-1] + 1)
        return rows[np.append(~again, True)]

    def longest_recovery(self):
        """Most milliseconds that a transfer lost which succeeded in the end; None without any."""
        rows = self.transfers_failed
        given_up = [run.events[-1] for run in self.runs if run.verdict == "gave up" and len(run.events)]
        rows = rows[~np.isin(rows, given_up)]
        return int(self.log.ms[rows].max()) if len(rows) else None

    def key(self):
        """Sorts cameras from worst to best."""
        rate = self.rate()
        return (min(VERDICTS.index(self.verdict), 2), -(rate[0] if rate else math.inf), self.name)


def interval(count):
    """A count with the ends of the 95 % interval of its expectation (Poisson; Byar's approximation)."""
    z = 1.96
    low = count * (1 - 1 / (9 * count) - z / (3 * math.sqrt(count))) ** 3 if count else 0.0
    above = count + 1
    return count, max(low, 0.0), above * (1 - 1 / (9 * above) + z / (3 * math.sqrt(above))) ** 3


# ---- Runs of a camera


class ByTime:
    """Finds rows of a log by time, in which they need not be ordered."""

    def __init__(self, log):
        self.order = np.argsort(log.time, kind="stable")
        self.time = log.time[self.order]

    def between(self, start, finished):
        """Rows from one time to another, in the order of the log."""
        first, end = np.searchsorted(self.time, [start, finished + 1])
        return np.sort(self.order[first:end])


def walk_back(log, rows):
    """The last rows as long as the count of failures falls towards the start of the process."""
    if len(rows) == 0:
        return rows
    starts = np.flatnonzero((np.diff(log.count[rows]) <= 0) | (np.diff(rows) != 1))
    return rows[starts[-1] + 1 :] if len(starts) else rows


def judge(run, result, log):
    """Verdict and reason of a run that left a whole result."""
    rows = run.events
    last = int(log.count[rows[-1]]) if len(rows) else 0
    if last < result.errors:
        run.reason = f"the log ends at failure {last} of {result.errors}: flash full, or log removed"
        return "cut off"
    if len(rows):
        deepest = int(log.attempt[rows[-1]])
        earlier = rows[: -1 - deepest]  # without those of the last transfer
        # A transfer that gives up ends its run, and no other can have needed as many attempts.
        if log.time[rows[-1]] >= result.last_round - 2 and (log.attempt[earlier] < deepest).all():
            run.reason = f"a transfer failed in all of its {output.plural(deepest + 1, 'attempt')}"
            return "gave up"
    return "passed"


def run_of_result(result, log, by_time):
    """The run that a whole result file tells of."""
    run = Run(result.name, result.start, result.finished, "")
    run.rounds, run.failures = result.rounds, result.errors
    if run.seconds < 0 or run.seconds > max(3600, LONGEST_ROUND_S * result.rounds):
        # What is in the log behind the clock's last step has the time at which the run ended.
        run.events = walk_back(log, by_time.between(min(run.start, run.finished), run.finished))
        times = np.append(log.time[run.events], result.last_round)
        steps = np.flatnonzero(np.diff(times) > SESSION_GAP_S)
        run.start = int(min(times[steps[-1] + 1] if len(steps) else times[0], run.finished))
        run.seconds = None
    else:
        run.events = by_time.between(run.start, run.finished)
    run.verdict = judge(run, result, log)
    if run.seconds is None:
        run.reason += ("; " if run.reason else "") + "the clock was set meanwhile"
    return run


def sessions(log, taken):
    """Rows that belong to no run, as arrays of what one process may have logged."""
    rows = np.flatnonzero(~taken)
    if len(rows) == 0:
        return []
    step = np.diff(log.time[rows])
    ends = (np.diff(log.count[rows]) <= 0) | (np.diff(rows) != 1) | (step < 0) | (step > SESSION_GAP_S)
    return np.split(rows, np.flatnonzero(ends) + 1)


def runs_of(log, results):
    """All runs, in the order of their ends: those with a result, and those of which the log alone tells."""
    by_time = ByTime(log)
    found = [run_of_result(result, log, by_time) for result in results if result.rounds is not None]
    taken = np.zeros(len(log.time), bool)
    for run in found:
        taken[run.events] = True
    left = sessions(log, taken)
    ends = np.array([log.time[rows[-1]] for rows in left])
    for result in results:
        if result.rounds is not None:
            continue
        finished = result.finished
        near = (
            np.flatnonzero((ends <= finished) & (ends > finished - SESSION_GAP_S))
            if finished is not None and len(ends)
            else []
        )
        if len(near):
            run = Run(
                result.name,
                int(log.time[left[near[-1]][0]]),
                finished,
                "cut off",
                "its result is not whole: flash full",
            )
            run.events = left[near[-1]]
            ends[near[-1]] = -1
        elif result.size == 0:
            run = Run(
                result.name,
                finished,
                finished,
                "stopped",
                "before its first round, or its result was lost to a full flash",
            )
        else:
            run = Run(result.name, finished, finished, "cut off", "its result is not whole: flash full")
        run.seconds = None
        run.failures = len(run.events)
        found.append(run)
    for rows, end in zip(left, ends):
        if end >= 0 and len(rows) >= SESSION_FAILURES:
            run = Run(
                None,
                int(log.time[rows[0]]),
                int(end),
                "cut off",
                "no result: flash full, power lost, or no stress test",
            )
            run.events, run.failures, run.seconds = rows, len(rows), None
            found.append(run)
    return sorted(found, key=lambda run: -1 if run.finished is None else run.finished)


def missing_lines(log):
    """Lines that the log lacks: its count starts anew with every process; otherwise each line adds one."""
    if len(log.count) == 0:
        return 0
    before = np.append(0, log.count[:-1])
    lacking = np.where(log.count > before, log.count - before - 1, log.count - 1)
    return int(lacking[log.count > 1].sum())


def take_summary(camera, summary):
    """What the summary of the last run knows better than what the flash kept of it."""
    if not camera.runs:
        camera.runs.append(Run("stress.json", None, None, "cut off", "no result: flash full, or not to be written"))
    whole = [run for run in camera.runs if run.rounds is not None and abs(run.rounds - summary["rounds"]) <= 1]
    told = whole or [run for run in camera.runs if run.rounds is None]
    if not told:
        return
    run = told[-1]
    if run.rounds is None and summary["rounds"] > 0:
        run.rounds, run.failures, run.seconds = summary["rounds"], summary["failures"], summary["seconds"]
        if run.verdict == "stopped":
            run.verdict, run.reason = "cut off", "its result was lost to a full flash"
    if not summary["passed"]:
        run.verdict, run.reason = "gave up", output.printable(summary["failure"])
    elif run.verdict == "gave up":
        run.verdict, run.reason = "passed", ""


def camera_of(name, path, last):
    """Reads and judges one camera."""
    camera = Camera(name, path)
    read = flash.read_folder(path)
    if read is None:
        camera.reason = told_reason(path)
        return camera
    camera.log, results, summary = read
    camera.runs = runs_of(camera.log, results)
    if summary:
        take_summary(camera, summary)
    if camera.runs:
        camera.outside = len(camera.log.time) - len(np.unique(np.concatenate([run.events for run in camera.runs])))
    if last:
        camera.runs = [run for run in camera.runs if run.name is not None][-1:]
    if camera.runs:
        worst = min(camera.runs, key=lambda run: VERDICTS.index(run.verdict))
        camera.verdict, camera.reason = worst.verdict, worst.reason
    else:
        camera.verdict = "no run"
    return camera


def told_reason(path):
    """Why nothing came back from a camera: the file "lost" beside where its files would be, where there is one."""
    try:
        with open(os.path.join(path, "lost"), encoding="utf-8", errors="replace") as file:
            return output.printable(file.read(200).strip())
    except OSError:
        return f"neither I2cErr.csv nor {flash.RESULT_NAME}* is in this folder"


# ---- What is told


def stamp(seconds):
    """A time of the camera's clock in words."""
    return "unknown" if seconds is None else str(np.datetime64(int(seconds), "s")).replace("T", " ")


def numbers(camera):
    """What --json tells of a camera."""
    rate = camera.rate() or (None, None, None)
    rows = camera.events
    attempts, counts = np.unique(camera.log.attempt[rows], return_counts=True)
    return {
        "name": output.printable(camera.name),
        "verdict": camera.verdict,
        "reason": camera.reason,
        "failed_attempts": sum(run.failures for run in camera.runs) if camera.runs else len(rows),
        "transfers": camera.total("transfers"),
        "rounds": camera.total("rounds"),
        "failed_per_million": rate[0],
        "failed_per_million_low": rate[1],
        "failed_per_million_high": rate[2],
        "longest_recovery_ms": camera.longest_recovery(),
        "tested_s": camera.total("seconds"),
        "failed_by_attempt": {str(attempt): int(count) for attempt, count in zip(attempts, counts)},
        "failed_outside_runs": camera.outside,
        "rubbish_lines": camera.log.rubbish,
        "missing_lines": missing_lines(camera.log),
        "runs": [
            {
                "result": None if run.name is None else output.printable(run.name),
                "start": stamp(run.start),
                "end": stamp(run.finished),
                "verdict": run.verdict,
                "reason": run.reason,
                "rounds": run.rounds,
                "transfers": run.transfers,
                "failed_attempts": run.failures,
                "logged": len(run.events),
                "tested_s": run.seconds,
            }
            for run in camera.runs
        ],
    }


def run_line(number, run):
    """A run in words."""
    text = (
        f"Run {number}  {stamp(run.start)}"
        + ("" if run.seconds is None else f", {output.duration(run.seconds)}")
        + f": {run.verdict}"
    )
    if run.rounds is not None:
        share = 100 * run.failures / (run.transfers + run.failures)
        text += f", {output.plural(run.rounds, 'round')}, {output.plural(run.failures, 'failed attempt')} ({share:.2g} % of all)"
    elif run.failures:
        text += f", {output.plural(run.failures, 'failed attempt')}"
    return text + (f"; {run.reason}" if run.reason else "")


def headline(camera):
    """The sum of a camera in words."""
    rows = camera.events
    if len(rows) == 0:
        return "No failed transfer is logged"
    return f"{output.plural(len(rows), 'failed attempt')} in {output.plural(len(camera.transfers_failed), 'transfer')}"


def tell_one(camera):
    """One camera in words."""
    log, rows, told = camera.log, camera.events, numbers(camera)
    transfers = camera.transfers_failed
    if len(rows):
        print(f"{headline(camera)}, {stamp(log.time[rows].min())} to {stamp(log.time[rows].max())}")
        for attempt, count in list(told["failed_by_attempt"].items())[:20]:
            name = "first attempt" if attempt == "0" else f"retry {attempt}"
            print(f"  {name:14} failed {output.plural(count, 'time')}")
        lost = log.ms[transfers]
        print(
            f"  time lost: {lost.sum(dtype=float) / 1000:.1f} s in all, {lost.mean():.1f} ms a transfer, {lost.max()} ms at most"
        )
    else:
        print(headline(camera))
    if told["failed_per_million"] is not None:
        print(f"  {rate_words(camera)} failed attempts per million transfers")
    for number, run in enumerate(camera.runs, 1):
        print(run_line(number, run))
        if run.rounds is not None and len(run.events) != run.failures:
            print(f"  the log has {output.plural(len(run.events), 'line')} of this run")
    back = int((np.diff(log.time) < 0).sum())
    for count, words in (
        (told["failed_outside_runs"], "failed outside of runs"),
        (told["missing_lines"], "missing in the log: its counter jumps"),
        (log.rubbish, "of rubbish in the log left out"),
    ):
        if count:
            print(f"  {output.plural(count, 'line' if words[0] != 'f' else 'attempt')} {words}")
    if back:
        print(f"  the clock of the camera went back {output.plural(back, 'time')}")


def rate_words(camera):
    """Failed attempts per million transfers, with the interval."""
    rate = camera.rate()
    return "–" if rate is None else f"{output.short(rate[0])} ({output.short(rate[1])} to {output.short(rate[2])})"


def tell_many(cameras):
    """Cameras as a table, from worst to best."""
    rows = [("", "camera", "verdict", "failed per million (95 %)", "longest recovery", "tested")]
    for place, camera in enumerate(cameras, 1):
        recovery = camera.longest_recovery()
        rows.append(
            (
                str(place),
                output.printable(camera.name),
                camera.verdict,
                rate_words(camera),
                "–" if recovery is None else f"{recovery} ms",
                output.duration(camera.total("seconds")),
            )
        )
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    for row in rows:
        print("  ".join(text.ljust(width) for text, width in zip(row, widths)).rstrip())


def names_of(folders):
    """A name for each folder: its own, or all of its path where others are called the same."""
    names = [os.path.basename(os.path.realpath(folder)) or folder for folder in folders]
    return [name if names.count(name) == 1 else folder for name, folder in zip(names, folders)]


def main(folders, last, picture, as_json):
    """The command `errors`; the exit status."""
    for folder in folders:
        if not os.path.isdir(folder):
            output.fail(folder, "is no folder")
    cameras = [camera_of(name, folder, last) for name, folder in zip(names_of(folders), folders)]
    if len(cameras) == 1:
        if cameras[0].verdict == "lost":
            output.fail(folders[0], cameras[0].reason)
        if last and not cameras[0].runs:
            output.fail(folders[0], "--last needs a result file of a run")
    cameras.sort(key=Camera.key)
    if as_json:
        output.print_json({"cameras": [numbers(camera) for camera in cameras]})
    elif len(cameras) == 1:
        tell_one(cameras[0])
    else:
        tell_many(cameras)
    if picture is not None:
        if output.kind(picture) == "html":
            import page

            data = page.errors(cameras)
        else:
            import pictures

            data = pictures.errors(cameras, output.kind(picture))
        output.write_whole(picture, data)
    return 0
