# SPDX-License-Identifier: MIT
"""Draws docs/performance.md and its pictures from the figures of bench/run."""
import os
import re
import time

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt  # noqa: E402  (the kind of picture is chosen first)

OURS, PEER, FLOOR = "#2563a8", "#b8772b", "#8a8a8a"
PEERS = ("i2cget", "gpioget --help")
# The pictures must not change when the figures do not.
plt.rcParams.update({"svg.hashsalt": "camStat", "font.size": 10, "axes.spines.top": False, "axes.spines.right": False,
                     "axes.grid": True, "grid.color": "#dddddd", "axes.axisbelow": True})


def write_log(folder, lines):
    """What a stress test of so many failed attempts, eight a second, leaves on a camera's flash."""
    begin = 1.7e9
    day = lambda second: time.strftime("%Y/%m/%d %H:%M:%S", time.gmtime(begin + second))
    with open(os.path.join(folder, "I2cErr.csv"), "w", encoding="utf-8") as log:
        for second in range(lines // 8):
            stamp = day(second)
            log.write("".join("%s, %d, %d, %d\n" % (stamp, number % 3, number % 3, 8 * second + number + 1) for number in range(8)))
    name = time.strftime("I2cTestResult_%Y%m%d%H%M%S", time.gmtime(begin + lines // 8))
    with open(os.path.join(folder, name), "w", encoding="utf-8") as result:
        result.write("I2C Error Counts = %d\nI2C Read Error Counts = 0\n[%s][%s][%d]:\n" % (
            lines // 8 * 8, day(0), day(lines // 8), lines))


def picture(docs, name, width=7.0, height=3.0):
    """A figure that is written when its block ends."""

    class Picture:
        def __enter__(self):
            self.figure, axes = plt.subplots(figsize=(width, height), layout="constrained")
            return axes

        def __exit__(self, *failed):
            if failed[0] is None:
                self.figure.savefig(os.path.join(docs, name), metadata={"Date": None})
            plt.close(self.figure)

    return Picture()


def table(heads, rows):
    lines = ["| " + " | ".join(heads) + " |", "|---|" + "---:|" * (len(heads) - 1)]
    return "\n".join(lines + ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows])


def start_up(result, docs):
    usages = result["startUp"]
    empty, peer = usages["empty main"], usages["i2cget"]
    with picture(docs, "performance-startup.svg") as axes:
        names = list(reversed(sorted(usages, key=lambda name: usages[name]["instructions"])))
        axes.barh(names, [usages[name]["instructions"] / empty["instructions"] for name in names],
                  color=[FLOOR if name == "empty main" else PEER if name in PEERS else OURS for name in names])
        axes.set_xlabel("instructions from exec to exit, in those of an empty main")
    rows = [(name, "%.3f" % (use["instructions"] / empty["instructions"]), "%.3f" % (use["instructions"] / peer["instructions"]),
             use["systemCalls"], use["pageFaults"], "%.2f" % (use["ownKiB"] / peer["ownKiB"]), "%.2f" % (use["peakKiB"] / peer["peakKiB"])) for name, use in usages.items()]
    calls = usages["camStat"]["calls"]
    more = {name: count - empty["calls"].get(name, 0) for name, count in calls.items() if count > empty["calls"].get(name, 0)}
    return table(("Usage run of", "instructions, of an empty main", "of i2cget", "system calls", "page faults", "own memory, of i2cget", "peak with shared pages, of i2cget"), rows) + (
        "\n\nWhat `camStat` asks of the kernel beyond an empty `main`: " +
        ", ".join("%d `%s`" % (count, name) for name, count in sorted(more.items())) +
        ".\nThe `fstat` calls see whether a standard stream is missing; the writes are the text. Own memory is what a run wrote "
        "to, exact; the peak counts pages of libraries, too, which all programs share, as many as the kernel happens to map.\n\n![Start-up](performance-startup.svg)")


def actions(result, _docs):
    return table(("Action", "calls on the board", "transfers", "pauses", "paused, ms", "time, of a bare loop"),
                 [("`%s`" % name, row["calls"], row["transfers"], row["pauses"], "%.1f" % row["pausedMs"], "%.3f" % row["ofBareLoop"])
                  for name, row in result["actions"].items()])


def stress(result, _docs):
    return table(("Loop", "rate, of a bare loop"), [(name, "%.3f" % ratio) for name, ratio in result["stress"].items()])


def registers(result, _docs):
    return table(("For all 256 registers", "transfers"), sorted(result["registers"].items(), key=lambda row: row[1]))


def configuration(result, docs):
    figures = result["configuration"]
    ratios = [name for name in figures if name != "peakKiB"]
    sizes = sorted(figures["load, of inih"], key=int)
    with picture(docs, "performance-configuration.svg") as axes:
        for name, colour in (("load, of inih", OURS), ("get, of inih", PEER), ("set, of copying", FLOOR)):
            axes.semilogx([int(size) for size in sizes], [figures[name][size] for size in sizes], "o-", color=colour, label=name)
        axes.axhline(1, color="black", linewidth=0.8)
        axes.set_ylim(bottom=0)
        axes.set_xlabel("lines")
        axes.set_ylabel("time, of the other's")
        axes.legend(frameon=False)
    peaks = figures["peakKiB"]
    first = peaks[min(peaks, key=int)]
    return table(["Lines"] + ["{:,}".format(int(size)) for size in sizes],
                 [[name] + ["%.2f" % figures[name][size] for size in sizes] for name in ratios]) + (
        "\n\nPeak memory of `camConf check`, of that for 10 lines: " +
        ", ".join("%.2f for %s lines" % (peaks[size] / first, "{:,}".format(int(size))) for size in sorted(peaks, key=int)) +
        ".\n\n![Configuration](performance-configuration.svg)")


def board(result, docs):
    boards = result["board"]["boards"]
    with picture(docs, "performance-boards.svg") as axes:
        counts = sorted(boards, key=int)
        axes.plot([int(count) for count in counts], [boards[count] for count in counts], "o-", color=OURS, label="measured")
        axes.plot([int(count) for count in counts], [int(count) for count in counts], "--", color=FLOOR, label="one after the other")
        axes.set_xlabel("boards, each with a report of its own, begun at once")
        axes.set_ylabel("time, of one board's")
        axes.legend(frameon=False)
    return ("A transfer through the preloaded library takes %.1f times what the kernel takes to refuse a request on `/dev/null`.\n\n" %
            result["board"]["transfer, of a refused request"] +
            table(["Boards side by side"] + sorted(boards, key=int),
                  [["time, of one board's"] + ["%.1f" % boards[count] for count in sorted(boards, key=int)]]) +
            "\n\n![Boards](performance-boards.svg)")


def plot(result, _docs):
    rows = sorted(result["plot"].items(), key=lambda row: int(row[0]))
    base = rows[0][1]
    return table(("Log lines", "lines a second, of the smallest's", "peak memory, of the smallest's"),
                 [("{:,}".format(int(lines)), "%.2f" % (row["linesPerSecond"] / base["linesPerSecond"]),
                   "%.2f" % (row["peakKiB"] / base["peakKiB"])) for lines, row in rows])


def flash(result, docs):
    ours, peers = result["flash"]["ours"], result["flash"]["peers"]
    with picture(docs, "performance-flash.svg", height=4.0) as axes:
        bars = [(name, sizes["arm"], OURS) for name, sizes in ours.items()] + [(name, size, PEER) for name, size in peers.items()]
        bars.sort(key=lambda bar: -bar[1])
        axes.barh([bar[0] for bar in bars], [bar[1] / 1024 for bar in bars], color=[bar[2] for bar in bars])
        axes.set_xlabel("KiB in flash, armel, dynamic (brown: Debian's packages)")
    budgets = result["flash"]["budgets"]

    def cells(name, preset):
        return "{:,}".format(ours[name][preset]), "{:,}".format(budgets[name][preset]) if preset in budgets.get(name, {}) else ""

    return (table(("Program", "dynamic, bytes", "budget", "static (musl), bytes", "budget"),
                  [(name, *cells(name, "arm"), *cells(name, "arm-static")) for name in ours]) +
            "\n\nBy room: [size.md](size.md). What Debian's armel packages hold, dynamic:\n\n" +
            table(("File", "bytes"), [(name, "{:,}".format(size)) for name, size in peers.items()]) +
            "\n\n![Flash](performance-flash.svg)")


CHAPTERS = (
    ("Start-up", start_up, "startUp",
     "The program without arguments, `env -i`, counted by valgrind and strace. `i2cget` is built from its source with the flags of our programs."),
    ("Actions", actions, "actions",
     "On the simulated board; the bare loop repeats the same bus requests and pauses and does nothing else. The pauses are the camera's."),
    ("Stress test", stress, "stress", "In turns with a bare loop of the same requests and pauses. Memory and descriptors over a million rounds: "
     "*soak* in [reliability.md](reliability.md)."),
    ("Registers", registers, "registers", "`i2cdump` counted on a bus that answers everything."),
    ("Configuration", configuration, "configuration",
     "Loading, looking up the last key, replacing it; beside inih and beside reading or copying the same bytes."),
    ("Simulated board", board, "board", ""),
    ("camPlot", plot, "plot", "`camPlot errors --json` over logs of three lengths."),
    ("Flash", flash, "flash", "Stripped programs of the presets `arm` and `arm-static`."),
)


def draw(result, docs):
    """The page: chapters whose figures are there, between what people wrote by hand above and below."""
    path = os.path.join(docs, "performance.md")
    parts = ["## %s\n\n%s%s" % (title, intro + "\n\n" if intro else "", chapter(result, docs))
             for title, chapter, key, intro in CHAPTERS if key in result]
    with open(path, encoding="utf-8") as page:
        text = page.read()
    marks = r"(<!-- figures -->\n).*(<!-- end of figures -->\n)"
    with open(path, "w", encoding="utf-8") as page:
        page.write(re.sub(marks, lambda found: found.group(1) + "\n\n".join(parts) + "\n" + found.group(2), text, flags=re.S))
