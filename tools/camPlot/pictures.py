# SPDX-License-Identifier: MIT
"""Draws cameras: one with its runs over time, many as small multiples. Figures of matplotlib, in colours of a theme."""
import io
import logging
import re
import warnings

import numpy as np

with warnings.catch_warnings():
    warnings.simplefilter("ignore")
    logging.getLogger("matplotlib").setLevel(logging.ERROR)
    import matplotlib
    from matplotlib.figure import Figure

import output
import runs

# Every colour once: a page replaces each by its name, so that it can be light or dark.
THEME = {
    "ink": "#1b2733",
    "muted": "#5f6f7e",
    "grid": "#e4e9ee",
    "paper": "#fefefe",
    "line": "#aab6c1",
    "first": "#3a7bd5",
    "second": "#ee9b1f",
    "later": "#d33c3c",
    "live2": "#2a9d8f",
    "live3": "#8a5cc4",
    "passed": "#1a713e",
    "gaveup": "#bb2525",
    "cutoff": "#92500a",
    "other": "#54616d",
    "passedTint": "#e9f5ed",
    "gaveupTint": "#fbe6e5",
    "cutoffTint": "#fcefdd",
    "otherTint": "#eef1f4",
}
SHADES = (("first", "first attempt failed"), ("second", "first retry failed"), ("later", "a later retry failed"))
WIDE = (960, 640)  # pixels
NARROW = (400, 600)
SEGMENTS = 8  # of the axis, at most: the last runs
ROWS = 9  # of attempts; the last row takes all that are higher
MULTIPLES = 60  # cameras in one picture, the worst ones
STEPS = (
    1,
    2,
    5,
    10,
    20,
    30,
    60,
    120,
    300,
    600,
    1200,
    1800,
    3600,
    7200,
    10800,
    21600,
    43200,
    86400,
    172800,
    604800,
    2592000,
    31536000,
)

matplotlib.rcdefaults()  # not as a matplotlibrc somewhere wants it
matplotlib.rcParams.update(
    {
        "font.family": "sans-serif",
        "font.sans-serif": ["DejaVu Sans"],
        "font.size": 9,
        "svg.fonttype": "none",
        "svg.hashsalt": "camPlot",
        "axes.linewidth": 0.8,
        "axes.spines.top": False,
        "axes.spines.right": False,
        "axes.axisbelow": True,
        "axes.titlesize": 9,
        "axes.titlelocation": "left",
        "axes.titlepad": 6,
        "axes.edgecolor": THEME["line"],
        "axes.facecolor": THEME["paper"],
        "axes.titlecolor": THEME["muted"],
        "figure.facecolor": THEME["paper"],
        "savefig.facecolor": THEME["paper"],
        "text.color": THEME["ink"],
        "xtick.color": THEME["line"],
        "ytick.color": THEME["line"],
        "xtick.labelcolor": THEME["muted"],
        "ytick.labelcolor": THEME["muted"],
        "xtick.major.size": 3,
        "ytick.major.size": 0,
        "grid.color": THEME["grid"],
        "grid.linewidth": 0.8,
        "path.simplify": False,
    }
)


def tone(verdict):
    """The name of a verdict's colour."""
    word = verdict.replace(" ", "")
    return word if word in THEME else "gaveup" if verdict == "lost" else "other"


def saved(figure, kind):
    """The bytes of a figure."""
    data = io.BytesIO()
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")  # a letter that the font lacks is a box
        figure.savefig(
            data, format=kind, dpi=150 if kind == "png" else 72, metadata={"Date": None} if kind == "svg" else None
        )
    return data.getvalue()


def themed(figure):
    """A figure as SVG for a page, in the page's colours."""
    text = saved(figure, "svg").decode()
    text = text[text.index("<svg") :]
    text = re.sub(r'<g id="[^"]*">', "<g>", text)
    text = re.sub(r"<metadata>.*?</metadata>", "", text, flags=re.DOTALL)
    text = re.sub(r"(\d\.\d\d)\d+(?=[^<>]*>)", r"\1", text)  # of places, not of words
    text = re.sub(r'<svg [^>]*viewBox="([^"]*)"[^>]*>', r'<svg viewBox="\1" role="img">', text, count=1)
    for name, colour in THEME.items():
        text = text.replace(colour, f"var(--{name})")
    return text


def new_figure(size):
    """An empty figure of so many pixels."""
    return Figure(figsize=(size[0] / 72, size[1] / 72), dpi=72)


def write(place, x, y, text, **how):
    """Text as it is: dollars and the like mean nothing."""
    return place.text(x, y, output.printable(text), parse_math=False, **how)


# ---- An axis of time that leaves out what lies between the runs


class Axis:
    """Maps seconds to 0 ... 1: stretches of time side by side, with a gap between two."""

    def __init__(self, spans):
        spans = sorted(spans)
        total = sum(max(end - start, 1) for start, end in spans)
        self.spans = []
        for start, end in spans:
            if self.spans and start - self.spans[-1][1] <= max(60, total / 10):
                self.spans[-1][1] = max(end, self.spans[-1][1])
            else:
                self.spans.append([start, end])
        self.left_out = max(0, len(self.spans) - SEGMENTS)
        self.spans = self.spans[self.left_out :]
        for span in self.spans:
            if span[1] - span[0] < 5:  # a run of a moment has a width, too
                span[0], span[1] = span[0] - 3, span[1] + 3
        self.seconds = sum(end - start for start, end in self.spans)
        share = np.array([max((end - start) / self.seconds, 0.04) for start, end in self.spans])
        gap = 0.03 if len(self.spans) > 1 else 0.0
        self.widths = share / share.sum() * (1 - gap * (len(self.spans) - 1))
        self.lefts = np.cumsum(np.append(0.0, self.widths[:-1] + gap))

    def inside(self, time):
        """Which times are on the axis."""
        return np.any([(time >= start) & (time <= end) for start, end in self.spans], axis=0)

    def place(self, time):
        """Where times are; those beside a stretch are held at its ends."""
        known = np.array([moment for span in self.spans for moment in span], float)
        places = np.column_stack((self.lefts, self.lefts + self.widths)).ravel()
        return np.interp(time, known, places)

    def ticks(self, most):
        """Places and labels, about `most` of them: the day is told where it changes."""
        places, labels = [], []
        day = None
        for (start, end), width in zip(self.spans, self.widths):
            wanted = max(1, int(most * width))
            step = next((s for s in STEPS if (end - start) / s <= wanted), STEPS[-1])
            for time in range(-(-start // step) * step, end + 1, step):
                moment = runs.stamp(time)
                label = moment[11:] if step < 60 else moment[11:16]
                if moment[:10] != day:
                    label += "\n" + moment[:10]
                    day = moment[:10]
                elif step >= 86400:
                    continue
                places.append(float(self.place(time)))
                labels.append(label)
        return places, labels

    def breaks(self):
        """Where time is left out."""
        return [(left + width, right) for left, width, right in zip(self.lefts, self.widths, self.lefts[1:])]


def axis_of(camera):
    """The axis of a camera: its runs; without any, where failures lie."""
    spans = [(run.start, run.finished) for run in camera.runs if run.start is not None]
    if not spans and len(camera.log.time):
        times = np.sort(camera.log.time)
        parts = np.split(times, np.flatnonzero(np.diff(times) > runs.SESSION_GAP_S) + 1)
        parts = sorted(parts, key=len)[-SEGMENTS:]
        spans = [(int(part[0]), int(part[-1])) for part in parts]
    return Axis(spans) if spans else None


# ---- The panels of one camera


def bar_seconds(axis, most):
    """Width of a bar: the smallest that leaves at most so many of them."""
    return next((step for step in STEPS if axis.seconds / step <= most), STEPS[-1])


def bars(axis, time, shade, width):
    """Left ends and widths of the bars that are not empty, and their heights by shade."""
    number, index = np.unique(time // width, return_inverse=True)
    heights = np.array([np.bincount(index, shade == which, minlength=len(number)) for which in range(len(SHADES))])
    left = axis.place(number * width)
    right = axis.place((number + 1) * width)
    return left, np.maximum(right - left, 0.0015), heights


def draw_failures(place, axis, time, shade, most):
    """How many attempts failed in equal spans of time."""
    width = bar_seconds(axis, most)
    left, widths, heights = bars(axis, time, shade, width)
    below = np.zeros(len(left))
    for (colour, label), height in zip(SHADES, heights):
        place.bar(left, height, widths, below, align="edge", color=THEME[colour], linewidth=0, label=label)
        below = below + height
    place.set_ylim(0, max(4, below.max(initial=0) * 1.12))
    place.set_title(f"failed attempts per {output.duration(width)}")
    place.locator_params(axis="y", nbins=4, integer=True)


def draw_dots(place, places, heights, shade, size, cap, value=lambda height: height):
    """Dots at whole heights in the colours of their shades. Those on one place are one, and each colour is one path:
    a page with thousands of them stays small."""
    for which, (colour, _) in enumerate(SHADES):
        chosen = shade == which
        seen = np.unique((places[chosen] * 400).astype(np.int64) * 1024 + heights[chosen] + 512)
        x = seen // 1024 / 400
        x = np.column_stack((x, x + 0.0005, np.full(len(x), np.nan)))
        place.plot(
            x.ravel(),
            np.repeat(value((seen % 1024 - 512).astype(float)), 3),
            color=THEME[colour],
            linewidth=size,
            solid_capstyle=cap,
        )


def draw_attempts(place, axis, time, attempt, shade):
    """Which attempts failed, a row each."""
    row = np.minimum(attempt, ROWS)
    draw_dots(place, axis.place(time), row, shade, 3.5, "projecting")
    top = max(1, int(row.max()))
    shown = [which for which in range(top + 1) if top < 5 or which == top or which % 2 == 0 and which != top - 1]
    place.set_yticks(shown)
    place.set_yticklabels(
        ["first" if which == 0 else f"retry {which}" + ("+" if which == ROWS else "") for which in shown]
    )
    place.set_ylim(-0.6, top + 0.6)
    place.set_title("which attempt failed")


def draw_lost(place, axis, time, ms, shade):
    """The time that each transfer lost."""
    shown = np.maximum(ms, 0.5)
    draw_dots(
        place,
        axis.place(time),
        np.round(np.log10(shown) * 20).astype(int),
        shade,
        2.8,
        "round",
        lambda height: 10 ** (height / 20),
    )
    place.set_yscale("log")
    top = max(20.0, float(shown.max()) * 1.6)
    place.set_ylim(0.35, top)
    ticks = [tick for tick in (0.5, 10, 100, 1e3, 1e4, 1e5, 1e6) if tick <= top]
    place.set_yticks(ticks)
    place.set_yticklabels(
        [("<1 ms" if tick < 1 else f"{tick:.0f} ms" if tick < 1000 else f"{tick / 1000:.0f} s") for tick in ticks]
    )
    place.minorticks_off()
    place.set_title("time lost in a transfer")


def dress(place, axis, camera, ticks):
    """What all panels of a camera share: the runs behind them, ticks, gaps."""
    spans = {}
    for run in camera.runs:
        if run.start is not None and axis.inside(np.array([run.finished]))[0]:
            left, right = axis.place(np.array([run.start, run.finished]))
            spans.setdefault(tone(run.verdict), []).append((left, max(right - left, 0.002)))
    for verdict, theirs in spans.items():
        place.broken_barh(
            theirs,
            (0, 1),
            transform=place.get_xaxis_transform(),
            facecolor=THEME[verdict + "Tint"],
            linewidth=0,
            zorder=-2,
        )
    for left, right in axis.breaks():
        place.axvspan(left, right, facecolor=THEME["paper"], linewidth=0, zorder=1.5)
        for at in (left, right):
            place.plot(
                (at, at),
                (0, 1),
                transform=place.get_xaxis_transform(),
                color=THEME["line"],
                linewidth=0.8,
                linestyle=(0, (2, 2)),
                zorder=1.6,
            )
    place.set_xlim(-0.004, 1.006)  # so that marks at the ends are whole
    place.grid(axis="y")
    place.set_xticks(ticks[0])
    place.set_xticklabels(ticks[1])


def label_runs(place, axis, camera):
    """The runs' verdicts in the first panel, where there is room for them."""
    letter = 6.2 / (place.figure.bbox.width * place.get_position().width)
    end = -1.0
    for number, run in enumerate(camera.runs, 1):
        if run.start is None or not axis.inside(np.array([run.finished]))[0]:
            continue
        left = float(axis.place(run.start))
        if left < end + 0.01:
            continue
        text = f"run {number}: {run.verdict}" if len(camera.runs) > 1 else run.verdict
        write(
            place,
            left + 0.004,
            0.97,
            text,
            transform=place.get_xaxis_transform(),
            va="top",
            color=THEME[tone(run.verdict)],
            fontsize=8,
            fontweight="bold",
            zorder=3,
        )
        end = left + letter * len(text)


def camera_figure(camera, size, titled):
    """One camera: failures over time, which attempts, time lost; its name and runs in words where it is `titled`."""
    wide = size[0] >= 600
    figure = new_figure(size)
    x = 0.075 if wide else 0.15
    axis = axis_of(camera)
    top = 0.955
    if titled:
        write(figure, 0.02, 0.975, camera.name, fontsize=15, fontweight="bold", va="top")
        write(
            figure,
            0.98,
            0.975,
            camera.verdict,
            fontsize=13,
            fontweight="bold",
            va="top",
            ha="right",
            color=THEME[tone(camera.verdict)],
        )
        words = runs.headline(camera)
        if camera.rate() is not None:
            words += f"; {runs.rate_words(camera)} failed attempts per million transfers"
        write(figure, 0.02, 0.928, words, va="top", fontsize=10)
        first = max(0, len(camera.runs) - 3)
        for line, run in enumerate(camera.runs[first:], first):
            text = runs.run_line(line + 1, run)
            write(
                figure,
                0.02,
                0.897 - 0.025 * (line - first),
                text[:150] + ("…" if len(text) > 150 else ""),
                va="top",
                fontsize=8,
                color=THEME["muted"],
            )
        top = 0.80
    rows = camera.events
    if axis is not None:
        rows = rows[axis.inside(camera.log.time[rows])]
    ticks = axis.ticks(9 if wide else 4) if axis is not None else ([], [])
    if axis is None or len(rows) == 0:
        place = figure.add_axes((x, 0.12, 0.97 - x, top - 0.12))
        place.set_yticks([])
        unlogged = camera.total("failures")
        write(
            place,
            0.5,
            0.5,
            "no failed transfer is logged" if unlogged else "no failed transfer",
            transform=place.transAxes,
            ha="center",
            fontsize=16,
            color=THEME["cutoff" if unlogged else "passed"],
        )
        if axis is not None:
            dress(place, axis, camera, ticks)
            label_runs(place, axis, camera)
        else:
            place.set_xticks([])
        return figure
    log = camera.log
    shade = np.minimum(log.attempt, 2)
    lost = camera.transfers_failed
    lost = lost[axis.inside(log.time[lost])]
    bottom = 0.09
    unit = (top - bottom) / 10
    places = [
        figure.add_axes((x, bottom + unit * low, 0.97 - x, unit * high))
        for low, high in ((6.1, 3.9), (3.35, 1.9), (0, 2.5))
    ]
    draw_failures(places[0], axis, log.time[rows], shade[rows], 120 if wide else 60)
    draw_attempts(places[1], axis, log.time[rows], log.attempt[rows], shade[rows])
    draw_lost(places[2], axis, log.time[lost], log.ms[lost], shade[lost])
    for place in places:
        dress(place, axis, camera, ticks)
    for place in places[:2]:
        place.set_xticklabels([])
    label_runs(places[0], axis, camera)
    if titled:
        figure.legend(
            *places[0].get_legend_handles_labels(),
            loc="upper right",
            bbox_to_anchor=(0.98, top + 0.05),
            ncols=len(SHADES),
            frameon=False,
            handlelength=0.8,
            handleheight=0.8,
            columnspacing=1.2,
            fontsize=8,
        )
    if axis.left_out:
        write(
            figure,
            0.97,
            0.012,
            f"the last {SEGMENTS} stretches of {SEGMENTS + axis.left_out}",
            ha="right",
            fontsize=8,
            color=THEME["muted"],
        )
    return figure


# ---- Many cameras


def multiples(cameras):
    """Small pictures side by side, from worst to best: failures over time, name, verdict and rate."""
    shown = cameras[:MULTIPLES]
    columns = min(4, len(shown))
    lines = -(-len(shown) // columns)
    head = 64
    size = (250 * columns + 30, 150 * lines + head + 20)
    figure = new_figure(size)
    counts = {verdict: sum(camera.verdict == verdict for camera in cameras) for verdict in runs.VERDICTS}
    words = ", ".join(f"{count} {verdict}" for verdict, count in counts.items() if count)
    write(
        figure,
        16 / size[0],
        1 - 14 / size[1],
        output.plural(len(cameras), "camera") + ", from worst to best",
        fontsize=15,
        fontweight="bold",
        va="top",
    )
    more = f"; the {MULTIPLES} worst are shown" if len(cameras) > MULTIPLES else ""
    write(
        figure,
        16 / size[0],
        1 - 40 / size[1],
        words + more + "; failed attempts over time, each on its own scale",
        fontsize=9,
        va="top",
        color=THEME["muted"],
    )
    for number, camera in enumerate(shown):
        left = 20 + 250 * (number % columns)
        top = head + 150 * (number // columns)
        place = figure.add_axes(((left + 24) / size[0], 1 - (top + 128) / size[1], 204 / size[0], 78 / size[1]))
        name = output.printable(camera.name)
        write(
            place,
            0,
            1.38,
            f"{number + 1}  {name[:24] + ('…' if len(name) > 24 else '')}",
            transform=place.transAxes,
            fontweight="bold",
        )
        rate = camera.rate()
        write(
            place,
            0,
            1.14,
            camera.verdict,
            transform=place.transAxes,
            color=THEME[tone(camera.verdict)],
            fontsize=8,
            fontweight="bold",
        )
        if rate is not None:
            write(
                place,
                1,
                1.14,
                f"{output.short(rate[0])} per million",
                transform=place.transAxes,
                fontsize=8,
                ha="right",
                color=THEME["muted"],
            )
        axis = axis_of(camera)
        rows = camera.events
        if axis is None:
            write(
                place,
                0.5,
                0.5,
                (
                    "nothing came back"
                    if camera.verdict == "lost"
                    else "nothing was tested"
                    if rate is None
                    else "nothing is logged"
                ),
                transform=place.transAxes,
                ha="center",
                va="center",
                color=THEME["muted"],
                fontsize=8,
            )
            place.set_xticks([])
            place.set_yticks([])
            continue
        rows = rows[axis.inside(camera.log.time[rows])]
        draw_failures(place, axis, camera.log.time[rows], np.minimum(camera.log.attempt[rows], 2), 60)
        dress(place, axis, camera, axis.ticks(3))
        place.set_title("")
        place.tick_params(labelsize=6.5)
        place.locator_params(axis="y", nbins=3)
    return figure


def errors(cameras, kind):
    """The picture of one camera or of many, as bytes."""
    return saved(camera_figure(cameras[0], WIDE, True) if len(cameras) == 1 else multiples(cameras), kind)
