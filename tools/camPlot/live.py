# SPDX-License-Identifier: MIT
"""Live values over time, as camCtl watch --csv records them: panels by unit, and the changes of settings marked."""
import array
import math
import os
import sys
import time

import numpy as np

import output

# Columns that the camera changes by itself: status keys, and fields of the register map. All others are settings.
LIVE = frozenset(
    """miris_status dn_status long_exp_time_us exposure_time_us analog_gain digital_gain wbr_gain wbb_gain
raw_average_percent DnStatus MirisStatus LngExpFrm ExpTime AnlGain DgtlGain WbbGain WbrGain RawAvg""".split()
)
BEYOND = 1e12  # no register holds so much, and no axis either
FOLLOW_S = 2.0  # between two pictures of a stream, and at least ten times what one takes
NAMED_LINES = 5


class Recording:
    """The columns of a recording; what a readout failed to give is not a number."""

    def __init__(self, name):
        self.name = name
        self.names = None
        self.time = array.array("d")
        self.columns = []
        self.lines = 0
        self.rubbish = 0

    def take(self, cells):
        """One line, header or values. Rubbish is counted and named."""
        self.lines += 1
        if self.names is None:
            if len(cells) < 2 or cells[0] != "time_s":
                output.fail(self.name, "is no recording: its first line does not begin with time_s and a name")
            self.names = cells[1:]
            self.columns = [array.array("d") for _ in self.names]
            return
        try:
            values = [float(cell) if cell else math.nan for cell in cells]
            if len(values) != len(self.names) + 1 or math.isnan(values[0]) or max(map(abs, values)) > BEYOND:
                raise ValueError
        except ValueError:
            self.rubbish += 1
            if self.rubbish <= NAMED_LINES:
                output.say(f"{self.name}:{self.lines}: not a line of a recording: {','.join(cells)[:60]}")
            return
        self.time.append(values[0])
        for column, value in zip(self.columns, values[1:]):
            column.append(value)

    def values(self, which):
        """A column as numbers."""
        return np.array(self.columns[which])

    def changes(self):
        """Each change of a setting: time, name, value before and after."""
        found = []
        times = np.array(self.time)
        for which, name in enumerate(self.names or []):
            if name in LIVE:
                continue
            values = self.values(which)
            there = np.flatnonzero(np.isfinite(values))
            for row in np.flatnonzero(np.diff(values[there])):
                found.append(
                    (float(times[there[row + 1]]), name, float(values[there[row]]), float(values[there[row + 1]]))
                )
        return sorted(found)


def number(value):
    """A value as it was recorded."""
    return f"{value:.10g}"


def words_of(recording):
    """The recording in a line."""
    span = max(recording.time) - min(recording.time) if recording.time else 0
    failed = sum(int((~np.isfinite(recording.values(which))).sum()) for which in range(len(recording.columns)))
    text = f"{output.plural(len(recording.time), 'readout')} in {output.duration(span)}, {output.plural(len(recording.changes()), 'change')} of settings"
    return (
        text
        + (f", {output.plural(failed, 'value')} not read" if failed else "")
        + (f", {output.plural(recording.rubbish, 'line')} of rubbish" if recording.rubbish else "")
    )


def draw(recording, picture, follows):
    """Writes the picture or page."""
    import liveFigure
    import pictures

    if output.kind(picture) == "html":
        import page

        data = page.live(
            lambda size: liveFigure.figure_of(recording, size, False), recording.name, words_of(recording), follows
        )
    else:
        data = pictures.saved(liveFigure.figure_of(recording, pictures.WIDE, True), output.kind(picture))
    output.write_whole(picture, data)


def tell(recording, as_json):
    """The numbers of a recording."""
    columns = []
    for which, name in enumerate(recording.names):
        values = recording.values(which)
        good = values[np.isfinite(values)]
        columns.append(
            {
                "name": output.printable(name),
                "live": name in LIVE,
                "read": len(good),
                "not_read": len(values) - len(good),
                "lowest": float(good.min()) if len(good) else None,
                "median": float(np.median(good)) if len(good) else None,
                "highest": float(good.max()) if len(good) else None,
            }
        )
    if as_json:
        output.print_json(
            {
                "readouts": len(recording.time),
                "seconds": max(recording.time) - min(recording.time) if recording.time else 0,
                "rubbish_lines": recording.rubbish,
                "columns": columns,
                "changes": [dict(zip(("time_s", "name", "before", "after"), change)) for change in recording.changes()],
            }
        )
        return
    print(words_of(recording))
    for column in columns:
        if column["live"] and column["read"]:
            print(
                f"  {column['name']}: {number(column['lowest'])} to {number(column['highest'])}, median {number(column['median'])}"
            )
    for at, name, before, after in recording.changes():
        print(f"  {at:.3f} s  {output.printable(name)}: {number(before)} -> {number(after)}")


def read_lines(lines, recording, each):
    """Takes every line; calls `each` behind it."""
    for line in lines:
        recording.take(line.rstrip("\n").split(","))
        each()


def main(name, picture, as_json):
    """The command `live`; the exit status."""
    stream = name == "-"
    recording = Recording("standard input" if stream else os.path.basename(name))
    wanted = time.monotonic() + 1

    def follow():
        nonlocal wanted
        if picture is None or not recording.time or time.monotonic() < wanted:
            return
        began = time.monotonic()
        draw(recording, picture, True)
        ended = time.monotonic()
        wanted = ended + max(FOLLOW_S, 10 * (ended - began))

    try:
        if stream:
            sys.stdin.reconfigure(encoding="utf-8", errors="replace")
            read_lines(sys.stdin, recording, follow)
        else:
            with open(name, encoding="utf-8", errors="replace") as file:
                read_lines(file, recording, lambda: None)
    except OSError as error:
        output.fail(name, error)
    except KeyboardInterrupt:
        if not stream:
            raise
    if recording.names is None:
        output.fail(recording.name, "is empty")
    if picture is not None:
        draw(recording, picture, False)
    tell(recording, as_json)
    return 0
