# SPDX-License-Identifier: MIT
"""Pages of one file: they ask no network for anything, are light or dark as the reader's system is, and fit a phone."""
import html

import numpy as np

import output
import pictures
import runs

DARK = {
    "ink": "#e6ebf0",
    "muted": "#9aa8b5",
    "grid": "#2c353e",
    "paper": "#171d23",
    "line": "#4a5763",
    "first": "#5b9bf0",
    "second": "#f2b04a",
    "later": "#f06a6a",
    "live2": "#4fc2b4",
    "live3": "#b18ae6",
    "passed": "#5cc98a",
    "gaveup": "#f47c7c",
    "cutoff": "#eda650",
    "other": "#9aa8b5",
    "passedTint": "#1b2f25",
    "gaveupTint": "#3a2122",
    "cutoffTint": "#38291a",
    "otherTint": "#232b33",
}
RUNS = 10  # in words, the last ones
SPARKS = 48  # bars of the small picture in a row

STYLE = """
:root { color-scheme: light dark; %(light)s }
@media (prefers-color-scheme: dark) { :root { %(dark)s } }
* { box-sizing: border-box }
body { margin: 0 auto; max-width: 68rem; padding: 1.5rem 1rem 3rem; background: var(--paper); color: var(--ink);
    font: 16px/1.45 system-ui, -apple-system, "Segoe UI", "DejaVu Sans", sans-serif }
h1 { font-size: 1.6rem; line-height: 1.2; margin: 0 0 .3rem }
p { margin: .3rem 0 } .muted, small { color: var(--muted) }
.badge { display: inline-block; padding: .05rem .55rem; border-radius: 1rem; font-size: .85rem; font-weight: 600; white-space: nowrap }
%(badges)s
table { border-collapse: collapse; width: 100%%; font-variant-numeric: tabular-nums }
.ranking { margin-top: 1.2rem }
th { text-align: left; vertical-align: bottom; padding: 0 .4rem .3rem; border-bottom: 2px solid var(--line) }
th button { all: unset; cursor: pointer; font-size: .85rem; font-weight: 600; color: var(--muted) }
th[aria-sort] button { color: var(--ink) }
th[aria-sort=ascending] button::after { content: " \\2191" } th[aria-sort=descending] button::after { content: " \\2193" }
button:focus-visible { outline: 2px solid var(--first); outline-offset: 2px }
td { padding: .45rem .4rem; vertical-align: middle }
.ranking > tbody { border-bottom: 1px solid var(--grid) }
.row { cursor: pointer } .row:hover { background: var(--otherTint) }
.number { text-align: right } th.number { text-align: right }
.name { overflow-wrap: anywhere } .name button { all: unset; cursor: pointer; font-weight: 600 }
.name button::before { content: "\\25B8"; color: var(--muted); display: inline-block; width: 1.1em }
.name button[aria-expanded=true]::before { content: "\\25BE" }
.spark { width: 9rem } .spark svg { display: block; width: 100%%; height: 1.9rem }
.detail > td { padding: .2rem .4rem 1.2rem }
figure { margin: .8rem 0 0 } figure svg { display: block; width: 100%%; height: auto; border: 1px solid var(--grid); border-radius: .5rem }
svg text { font-family: system-ui, -apple-system, "Segoe UI", "DejaVu Sans", sans-serif !important }
.narrow { display: none } ol { margin: .3rem 0; padding-left: 1.6rem }
.legend span { white-space: nowrap; margin-right: .9rem } .legend i { display: inline-block; width: .7rem; height: .7rem; margin-right: .3rem }
@media (max-width: 44rem) {
    body { padding: 1rem .6rem 2rem; font-size: 15px } h1 { font-size: 1.35rem }
    .wide, .rank, .spark, .tested { display: none } .narrow { display: block }
    td, th { padding-left: .2rem; padding-right: .2rem } .number small { display: block; font-size: .7rem; white-space: nowrap }
    .ranking { font-size: 14px } .name { min-width: 6rem } th button { font-size: .75rem } .name button::before { width: .9em } .badge { padding: .05rem .4rem }
}
"""

SCRIPT = """
"use strict";
const table = document.querySelector(".ranking");
if (table) {
    const rows = () => [...table.tBodies];
    // What is not known comes last, whichever way the rest is sorted.
    const compare = (key, way) => (a, b) => {
        const x = a.dataset[key], y = b.dataset[key];
        if (x === "" || y === "") return (x === "") - (y === "");
        return way * (key === "name" ? x.localeCompare(y, undefined, {numeric: true}) : x - y);
    };
    for (const head of table.querySelectorAll("th[data-key]")) head.querySelector("button").addEventListener("click", () => {
        const first = head.dataset.first;
        const now = head.getAttribute("aria-sort");
        const next = now === null ? first : now === "ascending" ? "descending" : "ascending";
        for (const other of table.querySelectorAll("th[aria-sort]")) other.removeAttribute("aria-sort");
        head.setAttribute("aria-sort", next);
        table.append(...rows().sort(compare(head.dataset.key, next === "ascending" ? 1 : -1)));
    });
    for (const body of rows()) body.querySelector(".row").addEventListener("click", () => {
        const detail = body.querySelector(".detail");
        detail.hidden = !detail.hidden;
        body.querySelector("button").setAttribute("aria-expanded", String(!detail.hidden));
    });
}
"""


def text(value):
    """A name or words, as they may stand in a page."""
    return html.escape(output.printable(value))


def colours(theme):
    """The theme as properties of a style."""
    return " ".join(f"--{name}: {value};" for name, value in theme.items())


def document(title, body, head=""):
    """A page."""
    badges = "\n".join(
        f".{word} {{ color: var(--{word}); background: var(--{word}Tint) }}"
        for word in ("passed", "gaveup", "cutoff", "other")
    )
    style = STYLE % {"light": colours(pictures.THEME), "dark": colours(DARK), "badges": badges}
    return f"""<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'; img-src data:">
<link rel="icon" href="data:,">{head}
<title>{text(title)}</title>
<style>{style}</style>
</head>
<body>
{body}
<script>{SCRIPT}</script>
</body>
</html>
""".encode(
        "utf-8", "replace"
    )


def badge(verdict):
    """A verdict in its colour."""
    return f'<span class="badge {pictures.tone(verdict)}">{verdict}</span>'


def figures(draw):
    """A picture twice: for a wide page, and for a phone."""
    return "".join(
        f'<figure class="{name}">{pictures.themed(draw(size))}</figure>'
        for name, size in (("wide", pictures.WIDE), ("narrow", pictures.NARROW))
    )


def legend():
    """What the colours of the pictures mean."""
    return (
        '<p class="legend"><small>'
        + "".join(
            f'<span><i style="background: var(--{colour})"></i>{words}</span>' for colour, words in pictures.SHADES
        )
        + "</small></p>"
    )


def spark(camera):
    """Failures over time in the space of a word."""
    axis = pictures.axis_of(camera)
    rows = camera.events
    if axis is None:
        return ""
    rows = rows[axis.inside(camera.log.time[rows])]
    place = np.minimum((axis.place(camera.log.time[rows]) * SPARKS).astype(int), SPARKS - 1)
    counts = np.bincount(place, minlength=SPARKS)
    scale = 19 / max(counts.max(initial=0), 4)
    bars = "".join(
        f'<path d="M{which} 20v-{max(count * scale, 1):.1f}h.8V20z"/>' for which, count in enumerate(counts) if count
    )
    return (
        f'<svg viewBox="0 0 {SPARKS} 20" preserveAspectRatio="none" aria-hidden="true">'
        f'<path d="M0 19.5h{SPARKS}" stroke="var(--line)" vector-effect="non-scaling-stroke"/><g fill="var(--first)">{bars}</g></svg>'
    )


def details(camera):
    """What a row opens: the runs in words, and the pictures where something failed."""
    parts = []
    if camera.reason and not camera.runs:
        parts.append(f"<p>{text(camera.reason)}</p>")
    if camera.runs:
        first = max(0, len(camera.runs) - RUNS)
        lines = "".join(f"<li>{text(runs.run_line('', run)[4:].strip())}</li>" for run in camera.runs[first:])
        parts.append(f'<ol start="{first + 1}">{lines}</ol>')
    told = runs.numbers(camera)
    notes = [
        f"{output.plural(told[key], 'line')} {words}"
        for key, words in (
            ("failed_outside_runs", "of failures outside of the runs"),
            ("missing_lines", "missing in the log"),
            ("rubbish_lines", "of rubbish left out"),
        )
        if told[key]
    ]
    if notes:
        parts.append(f'<p><small>{"; ".join(notes)}</small></p>')
    if len(camera.events):
        parts.append(legend() + figures(lambda size: pictures.camera_figure(camera, size, False)))
    elif camera.verdict != "lost":
        parts.append('<p class="muted">No failed transfer is logged.</p>')
    return "".join(parts)


def row(place, camera):
    """A camera of the ranking, and what it opens."""
    rate, recovery, tested = camera.rate(), camera.longest_recovery(), camera.total("seconds")

    def known(value):
        return "" if value is None else value

    return f"""<tbody data-rank="{place}" data-name="{text(camera.name)}" data-verdict="{runs.VERDICTS.index(camera.verdict)}" \
data-rate="{rate[0] if rate else ''}" data-recovery="{known(recovery)}" data-tested="{known(tested)}">
<tr class="row"><td class="rank number muted">{place}</td><td class="name"><button aria-expanded="false">{text(camera.name)}</button></td>
<td>{badge(camera.verdict)}</td><td class="number">{output.short(rate[0]) + f" <small>{output.short(rate[1])} to {output.short(rate[2])}</small>" if rate else "–"}</td>
<td class="number">{"–" if recovery is None else f"{recovery:,} ms"}</td><td class="number tested">{output.duration(tested)}</td>
<td class="spark">{spark(camera)}</td></tr>
<tr class="detail" hidden><td colspan="7">{details(camera)}</td></tr>
</tbody>
"""


HEADS = (
    ("rank", "#", "rank number", "ascending"),
    ("name", "Camera", "", "ascending"),
    ("verdict", "Verdict", "", "ascending"),
    ("rate", "Failed per million", "number", "descending"),
    ("recovery", "Longest recovery", "number", "descending"),
    ("tested", "Tested", "number tested", "descending"),
)


def errors(cameras):
    """The page of one camera or of many."""
    if len(cameras) == 1:
        camera = cameras[0]
        body = f"<h1>{text(camera.name)} {badge(camera.verdict)}</h1><p>{text(runs.headline(camera))}"
        if camera.rate() is not None:
            body += f"; {runs.rate_words(camera)} failed attempts per million transfers"
        return document(camera.name, body + "</p>" + details(camera))
    heads = "".join(
        f'<th class="{style}" data-key="{key}" data-first="{first}"{" aria-sort=ascending" if key == "rank" else ""}><button>{words}</button></th>'
        for key, words, style, first in HEADS
    )
    counts = [(sum(camera.verdict == verdict for camera in cameras), verdict) for verdict in runs.VERDICTS]
    body = f"""<h1>{output.plural(len(cameras), "camera")}, from worst to best</h1>
<p>{" ".join(f"{count} {badge(verdict)}" for count, verdict in counts if count)}</p>
<p><small>Failed attempts per million transfers, and where their true number lies with a confidence of 95 %. Longest recovery: the
most time that a transfer lost which succeeded in the end. A row opens its pictures; a heading sorts.</small></p>
<table class="ranking"><thead><tr>{heads}<th class="spark"><small>Over time</small></th></tr></thead>
{"".join(row(place, camera) for place, camera in enumerate(cameras, 1))}</table>"""
    return document(f"{len(cameras)} cameras", body)


def live(figure_of, title, words, follows):
    """The page of recorded values; one that follows a stream loads itself again."""
    head = '<meta http-equiv="refresh" content="3">' if follows else ""
    return document(title, f"<h1>{text(title)}</h1><p class=muted>{text(words)}</p>" + figures(figure_of), head)
