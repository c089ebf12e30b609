# SPDX-License-Identifier: MIT
"""What is told and what is written: messages, words for numbers, files that are replaced whole or not at all."""
import contextlib
import json
import math
import os
import sys


class Failure(Exception):
    """What ends the program, as WHAT: WHY."""


def printable(text):
    """A name or a line of a file, as it may go to a terminal or into a picture."""
    return "".join(c if c.isprintable() else "?" for c in str(text))


def say(text):
    """A message on standard error, where there is one that takes it."""
    with contextlib.suppress(AttributeError, OSError):
        sys.stderr.write(f"camPlot: {printable(text)}\n")


def fail(what, why):
    """Ends the program; `why` may be an exception of the system."""
    raise Failure(f"{printable(what)}: {getattr(why, 'strerror', None) or why}")


def kind(name):
    """png, svg or html, as the name of a picture ends; None for others."""
    ending = os.path.splitext(name)[1][1:].lower()
    return ending if ending in ("png", "svg", "html") else None


def write_whole(name, data):
    """Replaces a file by `data` (bytes): an old one stays until the new one is on the disk. A link is followed."""
    place = os.path.realpath(name)
    draft = os.path.join(
        os.path.dirname(place), f".camPlot.{os.getpid()}.part"
    )  # short: the name may be as long as names can be
    try:
        descriptor = os.open(draft, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o666)
        try:
            with open(descriptor, "wb") as file:
                file.write(data)
                file.flush()
                os.fsync(file.fileno())
            os.rename(draft, place)
        except BaseException:
            os.unlink(draft)
            raise
    except OSError as error:
        fail(name, error)


def print_json(value):
    """One JSON object on standard output; what is no number is null."""

    def plain(part):
        if isinstance(part, dict):
            return {key: plain(item) for key, item in part.items()}
        if isinstance(part, (list, tuple)):
            return [plain(item) for item in part]
        if isinstance(part, float) and not math.isfinite(part):
            return None
        return part

    print(json.dumps(plain(value), indent=2))


def plural(count, one, many=None):
    """A count and its word."""
    return f"{count} {one if count == 1 else many or one + 's'}"


def duration(seconds):
    """A length of time in words, its two largest units."""
    if seconds is None:
        return "–"
    s = int(seconds)
    for size, name, below, small in ((86400, "d", 3600, "h"), (3600, "h", 60, "min"), (60, "min", 1, "s")):
        if s >= size:
            rest = s % size // below
            return f"{s // size} {name}" + (f" {rest} {small}" if rest else "")
    return f"{s} s"


def short(number):
    """A number with about three digits that count."""
    if number is None:
        return "–"
    if number >= 999.5:
        return f"{number:,.0f}"
    return f"{number:.3g}"
