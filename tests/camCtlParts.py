# SPDX-License-Identifier: MIT
"""camCtl's results read by others: every --json by jq and against the schema, metrics by promtool, terminals by tmux.

camCtlParts.py SOURCE_FOLDER BUILD_FOLDER
"""
import json
import os
import subprocess
import sys
import tempfile
import time
import unittest

import jsonschema

BUILD, SOURCE = sys.argv.pop(), sys.argv.pop()
SCHEMA = json.load(open(SOURCE + "/docs/camCtl.schema.json", encoding="utf-8"))
READ_FAILS = "--fault i2c.read:reg=RawAvg "


class Parts(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.environment = dict(os.environ, CAMSIM_BOARD=self.folder.name + "/board", PATH=f"{BUILD}:{os.environ['PATH']}",
                                TERM="xterm")

    def shell(self, command):
        return subprocess.run(command, shell=True, cwd=self.folder.name, env=self.environment, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False)

    def test_every_json_fits_the_schema(self):
        rows = [  # camSim's options, the command's words, its status
            ("", "list", 0), ("", "get all 0x00-0x22", 0), ("", "set MnlAgn=2.0x Blk9D=1,2,3,4,5,6 0x02=3", 0),
            ("", "dump", 0), ("", "save f", 0), ("", "set ApGan=3 MeExpTim=9", 0), ("", "diff f", 1), ("", "load f --dry-run", 1),
            ("", "load f", 0), ("", "diff f f", 0), ("", "status", 0), (READ_FAILS, "status", 2), ("", "doctor", 0),
            ("--fault i2c.read --fault open:/dev/gio ", "doctor", 1), ("--fault flash:missing ", "doctor", 1),
            ("", "watch --count 2 --every 1ms", 0), (READ_FAILS, "watch --count 1 @live 0x37 analog_gain Blk47", 2),
            ("", "expose shutter=1/10s", 0), ("", "led on", 0), ("", "ircut pass", 0), ("", "reset", 0),
            ("", "stress --rounds 9", 0), ("--fault i2c.read:every=9 ", "stress --rounds 9 --no-files", 0),
            (READ_FAILS, "stress --no-files", 1), ("", "set InfoOut=1", 0), ("", "dump", 0)]
        commands = set()
        for options, words, status in rows:
            with self.subTest(words):
                run = self.shell(f"camSim {options}camCtl {words} --json")
                self.assertEqual(run.returncode, status)
                command = words.split()[0]
                commands.add(command)
                validator = jsonschema.Draft202012Validator({**SCHEMA, "$ref": "#/$defs/" + command})
                self.assertEqual(run.stdout.count("\n"), 2 if "--count 2" in words else 1)
                for line in run.stdout.splitlines():
                    read = subprocess.run(["jq", "-c", "."], input=line, text=True, stdout=subprocess.PIPE, check=True)
                    validator.validate(json.loads(read.stdout))
        jsonschema.Draft202012Validator.check_schema(SCHEMA)
        told = self.shell("camCtl --help | sed -n 's/^  camCtl \\([a-z]*\\).*/\\1/p'").stdout.split()
        self.assertEqual(commands, set(told))

    def test_metrics_are_what_prometheus_wants(self):
        for options, lines in (("", 32), (READ_FAILS, 31)):
            run = self.shell(f"camSim {options}camCtl status --metrics | tee m | promtool check metrics && cat m")
            self.assertEqual((run.returncode, run.stdout.count("\ncamera_")), (0, lines), run.stdout)

    def screen(self, command, seconds):
        """What stands on a terminal of 70 columns and 12 lines after some time."""
        tmux = f"tmux -S {self.folder.name}/{len(command)}"
        self.shell(f"{tmux} -f /dev/null new-session -d -x 70 -y 12 '{command}; echo END; sleep 9'")
        time.sleep(seconds)
        screen = self.shell(f"{tmux} capture-pane -p").stdout
        self.shell(f"{tmux} kill-server")
        return screen

    def test_terminals(self):
        watch = self.screen("camSim camCtl watch --every 100ms @ae", 1.5)
        self.assertRegex(watch, r"^# [1-9]\.[0-9]{3} s\nAeSwitch = 1  # on\nAeFlickMode(.*\n){9}$")  # in place, cut to fit
        long = self.screen("camSim camCtl watch --every 100ms --count 5 Blk47 YGamma", 1.5)
        self.assertRegex(long, r"^# 0\.[0-9]{3} s\nBlk47 = .*\nYGamma = .*\nEND\n\n")
        stress = self.screen("camSim --fault i2c.read:nth=300 camCtl stress --time 1h --no-files", 3.5)
        self.assertRegex(stress, r"^(camSim.*\n)?.CXD3193AR_Read. Read Addr .0x...[^\n]*, [0-9]+ ms\n"
                                 r"[1-9][0-9]* rounds, [0-9.]+/s, 1 failed attempt, 0:59:5[0-9] left\n\n")


unittest.main(argv=[sys.argv[0], "-v"])
