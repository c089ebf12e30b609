# SPDX-License-Identifier: MIT
"""Draws a recording of live values: panels by unit over one axis of time, and the changes of settings."""
import numpy as np
from matplotlib.ticker import LogLocator

import live
import output
import pictures

# What names of a panel have, its title, the factor to the title's unit. Other names have a panel each.
PANELS = (
    (("_us",), "exposure (ms)", 1e-3),
    (("_percent",), "level (%)", 1),
    (("wbr_gain", "wbb_gain", "manual_wb"), "white balance (gain)", 1),
    (("gain",), "gain", 1),
    (("WbrGain", "WbbGain", "Mwb"), "white balance (code)", 1),
)
STATUS = (
    "miris_status",
    "dn_status",
    "MirisStatus",
    "DnStatus",
    "long_exp_time_us",
    "LngExpFrm",
)  # of interest unless 0
POINTS = 1500  # of a line; more fall on the same pixels
MARKS = 60  # changes that are marked, the last ones
LANES = 8  # settings whose changes are named
MOST = 40  # panels, the first ones
LANE, PANEL, GAP = 20, 120, 34  # heights in pixels
COLOURS = ("first", "second", "live2", "live3", "later")  # of the lines of a panel


def panel_of(name):
    """The panel of a column: by its unit, or its own."""
    return next((which for which, (signs, _, _) in enumerate(PANELS) if any(sign in name for sign in signs)), None)


def shown_columns(recording):
    """Columns worth a line: live values, and settings that changed beside live values of their unit. Where nothing is live, all."""
    names = recording.names
    changed = {name for _, name, _, _ in recording.changes()}
    known = [column for column in range(len(names)) if np.isfinite(recording.values(column)).any()]
    of_camera = [
        column
        for column in known
        if names[column] in live.LIVE and (names[column] not in STATUS or np.nanmax(recording.values(column)) > 0)
    ]
    units = {panel_of(names[column]) for column in of_camera} - {None}
    return of_camera + [
        column
        for column in known
        if names[column] not in live.LIVE
        and (not of_camera or names[column] in changed and panel_of(names[column]) in units)
    ]


def groups(recording):
    """Title, columns and factor of each panel: those of units first, then columns that have a panel to themselves."""
    units, alone = {}, []
    for column in shown_columns(recording):
        panel = panel_of(recording.names[column])
        if panel is None:
            alone.append((recording.names[column], [column], 1))
        else:
            units.setdefault(panel, []).append(column)
    return [(PANELS[panel][1], columns, PANELS[panel][2]) for panel, columns in sorted(units.items())] + alone


def thinned(times, values):
    """A line of at most about POINTS points that keeps the least and greatest value of each stretch."""
    if len(times) <= POINTS:
        return times, values
    step = -(-2 * len(times) // POINTS)
    whole = len(times) // step * step
    blocks = np.where(np.isfinite(values[:whole]), values[:whole], np.inf).reshape(-1, step)
    low = blocks.argmin(axis=1)
    high = np.where(np.isfinite(blocks), blocks, -np.inf).argmax(axis=1)
    rows = np.unique(
        np.append((np.arange(len(blocks)) * step)[:, None] + np.column_stack((low, high)), np.arange(whole, len(times)))
    )
    return times[rows], values[rows]


class Layout:
    """Where panels go: one below the other, in pixels from the top."""

    def __init__(self, size, titled, lanes, panels):
        self.wide = size[0] >= 600
        self.y = 70 if titled else 30
        self.height = self.y + (LANE * lanes + GAP if lanes else 0) + (PANEL + GAP) * max(1, panels) + 24
        self.figure = pictures.new_figure((size[0], self.height))
        self.left = (70 if self.wide else 54) / size[0]
        self.letter = (5.0 if self.wide else 5.2) / size[0]  # width of one in the lanes, about, as a share
        self.places = []

    def add(self, title, height):
        """A panel below those before."""
        place = self.figure.add_axes(
            (self.left, 1 - (self.y + height) / self.height, 0.97 - self.left, height / self.height)
        )
        place.set_title(title)
        self.places.append(place)
        self.y += height + GAP
        return place


def draw_changes(place, layout, lanes, changes, begin, end):
    """A lane for each setting: what it changed from and to, where there is room for the words."""
    place.set_ylim(len(lanes) - 0.5, -0.5)
    place.set_yticks([])
    taken = [-1.0] * len(lanes)
    for at, name, before, after in changes:
        if name not in lanes:
            continue
        lane = lanes.index(name)
        place.plot((at,), (lane,), marker="D", markersize=4, color=pictures.THEME["cutoff"], linestyle="")
        text = output.printable(f"{name} {live.number(before)} → {live.number(after)}")
        share = (at - begin) / (end - begin)
        if share <= taken[lane]:
            continue
        right = share + len(text) * layout.letter > 0.98
        place.annotate(
            text,
            (at, lane),
            (-6 if right else 6, 0),
            textcoords="offset points",
            parse_math=False,
            fontsize=7.5,
            va="center",
            ha="right" if right else "left",
        )
        taken[lane] = share + (0.01 if right else len(text) * layout.letter)


def draw_column(place, recording, which, order, scale):
    """A column's line, with a red cross where it could not be read; its values that could."""
    name = recording.names[which]
    setting = name not in live.LIVE
    colour = next(
        (own for sign, own in (("wbr", "later"), ("wbb", "first")) if sign in name.lower()),
        COLOURS[order % len(COLOURS)],
    )
    times, values = thinned(np.array(recording.time), recording.values(which) * scale)
    place.plot(
        times,
        values,
        color=pictures.THEME[colour],
        linewidth=1.0 if setting else 1.4,
        markersize=4,
        label=output.printable(name),
        drawstyle="steps-post" if setting else None,
        linestyle=(0, (4, 2)) if setting else "-",
        marker="." if len(times) < 40 and not setting else None,
    )
    broken = times[~np.isfinite(values)]
    place.plot(
        broken,
        np.full(len(broken), 0.02),
        transform=place.get_xaxis_transform(),
        marker="x",
        markersize=4,
        color=pictures.THEME["later"],
        linestyle="",
    )
    return values[np.isfinite(values)]


def draw_panel(place, layout, recording, columns, scale):
    """Columns of one unit."""
    shown = np.concatenate([draw_column(place, recording, which, order, scale) for order, which in enumerate(columns)])
    low, high = (shown.min(), shown.max()) if len(shown) else (0.0, 1.0)
    if low > 0 and high > 20 * low:
        place.set_yscale("log")
        place.yaxis.set_major_locator(LogLocator(subs=(1, 2, 5) if high < 200 * low else (1,), numticks=9))
        place.yaxis.set_major_formatter("{x:g}")
        place.minorticks_off()
    else:
        room = max((high - low) * 0.12, abs(high) * 0.02, 0.05)
        place.set_ylim(low - room, high + room)
        place.locator_params(axis="y", nbins=4)
    place.grid(axis="y")
    if len(columns) > 1 or place.get_title(loc="left") != recording.names[columns[0]]:
        place.legend(
            loc="lower right",
            bbox_to_anchor=(1.0, 0.98),
            ncols=5 if layout.wide else 2,
            frameon=False,
            fontsize=7.5 if layout.wide else 6.5,
            handlelength=1.2,
            columnspacing=1.0,
            borderaxespad=0.2,
        )


def figure_of(recording, size, titled):
    """The picture: changes of settings, then a panel for each unit, and for what has none."""
    panels = groups(recording)
    left_out = len(panels[MOST:])
    panels = panels[:MOST]
    changes = recording.changes()[-MARKS:]
    lanes = sorted({name for _, name, _, _ in changes})[:LANES]
    layout = Layout(size, titled, len(lanes), len(panels))
    if titled:
        pictures.write(
            layout.figure, 0.02, 1 - 12 / layout.height, recording.name, fontsize=14, fontweight="bold", va="top"
        )
        pictures.write(
            layout.figure,
            0.02,
            1 - 36 / layout.height,
            live.words_of(recording),
            fontsize=9,
            va="top",
            color=pictures.THEME["muted"],
        )
    begin = min(recording.time, default=0.0)  # the clock starts anew where recordings were put together
    end = max(recording.time, default=1.0)
    end = max(end, begin + 0.001)
    if lanes:
        draw_changes(layout.add("settings changed", LANE * len(lanes)), layout, lanes, changes, begin, end)
    for title, columns, scale in panels:
        draw_panel(layout.add(title, PANEL), layout, recording, columns, scale)
    for place in layout.places:
        place.set_xlim(begin, end)
        for at, _, _, _ in changes:
            place.axvline(at, color=pictures.THEME["cutoff"], linewidth=0.8, linestyle=(0, (2, 3)), zorder=0.5)
        if place is not layout.places[-1]:
            place.set_xticklabels([])
    if layout.places:
        words = "seconds since the start" + (
            f"; {output.plural(left_out, 'more column')} not drawn" if left_out else ""
        )
        layout.places[-1].set_xlabel(words, color=pictures.THEME["muted"])
    return layout.figure
