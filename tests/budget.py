#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Counts what a program costs where no clock enters, and holds it against a budget.

Usage: budget.py instructions|systemCalls|allocations|transfers BUDGET PROGRAM [ARGUMENTS...]
$PROGRAMS names the folder of the programs, of camSim and of an empty main; instructions are in those of the empty
main, system calls those beyond its own, transfers those on a new simulated board.
"""
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile


def told(*words):
    """What a tool says on standard error about a program that runs with an empty environment."""
    return subprocess.run(words, env={}, executable=shutil.which(words[0]), stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, text=True, check=False).stderr


def instructions(*words):
    return int(re.search(r"Collected : (\d+)", told("valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", *words)).group(1))


def system_calls(*words):
    return int(re.findall(r"^100\.00 +[\d.]+ +\d+ +(\d+)", told("strace", "-c", *words), flags=re.M)[0])


def transfers(*words):
    with tempfile.TemporaryDirectory() as folder:
        trace = os.path.join(folder, "trace")
        subprocess.run([os.path.join(programs, "camSim"), "--board", os.path.join(folder, "board"), "--trace-json", trace, *words],
                       stdout=subprocess.DEVNULL, check=True)
        with open(trace, encoding="utf-8") as lines:
            return json.loads(lines.readlines()[-1])["transfers"]


programs = os.environ["PROGRAMS"]
empty = os.path.join(programs, "tests", "emptyMain")
COUNTS = {
    "instructions": lambda *words: instructions(*words) / instructions(empty),
    "systemCalls": lambda *words: system_calls(*words) - system_calls(empty),
    "allocations": lambda *words: int(re.search(r"total heap usage: (\d+) allocs", told("valgrind", *words)).group(1)),
    "transfers": transfers,
}
kind, budget, program = sys.argv[1:4]
count = COUNTS[kind](os.path.join(programs, program), *sys.argv[4:])
print("%s of %s: %g, budget %s" % (kind, " ".join(sys.argv[3:]), count, budget))
sys.exit(count > float(budget))
