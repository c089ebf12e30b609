# SPDX-License-Identifier: MIT
"""Twelve simulated cameras behind real ssh servers: Ansible burns them in, node_exporter and Prometheus watch them.

fleetTest.py SOURCE_FOLDER BUILD_FOLDER
"""
import contextlib
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.request

SOURCE, BUILD = (pathlib.Path(folder) for folder in sys.argv[1:])
NOISY, GIVES_UP, HANGS, REFUSES = "camera02", "camera03", "camera11", "camera12"
GOOD = [f"camera{number:02}" for number in (1, 4, 5, 6, 7, 8, 9, 10)]
BROUGHT = {"I2cTestResult_*": 1, "dmesg_*": 1, "stress.json": 1, "doctor.json": 1, "registers.conf": 1, "restored": 1, "lost": 0}


def listeners():
    """Ports that listen beyond loopback."""
    lines = subprocess.run(["ss", "-ltnH"], capture_output=True, text=True, check=True).stdout.splitlines()
    return {line.split()[3] for line in lines if not line.split()[3].startswith(("127.", "[::1]"))}


class Fleet(unittest.TestCase):
    patience = f"answer_within={{{{ 5 if inventory_hostname == '{HANGS}' else 60 }}}}"

    def start(self, *words, **how):
        program = subprocess.Popen(words, **how)
        self.addCleanup(lambda: (program.terminate(), program.wait(30)))
        return program

    def play(self, book, *words):
        began = time.monotonic()
        subprocess.run(["ansible-playbook", "-i", self.rack / "inventory.yml", "-f", "12", *words, SOURCE / "fleet" / book],
                       env=self.environment, stdout=subprocess.DEVNULL, check=True)
        print(f"fleetTest: {book}: {time.monotonic() - began:.1f} s")

    def wait_for(self, query, wanted):
        url = f"http://127.0.0.1:{self.port + 15}/api/v1/query?query=" + urllib.request.quote(query)
        for _ in range(100):
            with contextlib.suppress(OSError):
                found = {sample["metric"]["camera"]: float(sample["value"][1]) for sample in json.load(urllib.request.urlopen(url))["data"]["result"]}
                if found == wanted:
                    return
            time.sleep(0.2)
        self.fail(f"{query}: {found}, wanted {wanted}")

    def test_fleet(self):
        outside, self.port = listeners(), 21000 + os.getpid() % 500 * 20
        work = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.addCleanup(lambda: self.assertEqual(subprocess.run(["grep", "-lzF", f"{work}/rack/", *pathlib.Path("/proc").glob("[0-9]*/environ")],
                                                                capture_output=True, check=False).stdout, b"", "still running"))
        self.rack = work / "rack"
        self.environment = {**os.environ, "PATH": f"{BUILD}:{SOURCE}/tools/camPlot:{os.environ['PATH']}", "ANSIBLE_HOME": str(work), "ANSIBLE_LOCAL_TEMP": str(work)}
        rack = self.start(SOURCE / "fleet/simulate", "--port", str(self.port), "--fault", "2=i2c.read:chance=0.02,seed=3", "--fault", "3=i2c.read:reg=RawAvg,after=150",
                          "--hang", "11", "--refuse", "12", self.rack, "sh", "-c", "echo ready; read end", env=self.environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.assertEqual(rack.stdout.readline(), b"ready\n")
        burn_in = ("-e", f"programs={BUILD}", "-e", "stress_seconds=3", "-e", self.patience)
        self.play("burnIn.yml", *burn_in)
        ranking = json.loads((self.rack / "burnIn/ranking.json").read_text())["cameras"]
        self.assertEqual([(camera["name"], camera["verdict"]) for camera in ranking],
                         [(HANGS, "lost"), (REFUSES, "lost"), (GIVES_UP, "gave up"), (NOISY, "passed"), *((name, "passed") for name in GOOD)], [camera["reason"] for camera in ranking])
        for camera, words in zip(ranking, ("time frame (5)", "Permission denied", "RawAvg (0x1E) gave up after 4 attempts")):
            self.assertIn(words, camera["reason"])
        self.assertTrue(ranking[3]["failed_per_million_low"] < 20400 < ranking[3]["failed_per_million_high"], ranking[3])
        for camera in ranking[2:]:
            brought = self.rack / "burnIn" / camera["name"]
            self.assertEqual({name: len(list(brought.glob(name))) for name in BROUGHT}, BROUGHT, camera["name"])
            self.assertFalse((self.rack / camera["name"] / "work").exists())

        # Run again, it goes on with what is missing.
        for file in (self.rack / "burnIn" / GOOD[2]).iterdir():
            file.unlink()
        kept, fetched = (self.rack / "burnIn" / name / "stress.json" for name in (GOOD[0], GOOD[2]))
        before = kept.stat().st_mtime
        self.play("burnIn.yml", *burn_in, "--limit", f"{GOOD[0]},{GOOD[2]},localhost")
        self.assertEqual((kept.stat().st_mtime, fetched.exists()), (before, True))

        (work / "text").mkdir()
        (work / "prometheus.yml").write_text(json.dumps({"global": {"scrape_interval": "1s", "evaluation_interval": "1s"}, "rule_files": [f"{SOURCE}/fleet/alerts.yml"],
            "scrape_configs": [{"job_name": "cameras", "static_configs": [{"targets": [f"127.0.0.1:{self.port + 14}"]}]}]}))
        metrics = ("-e", self.patience, "-e", f"textfiles={work}/text", "-e", f"board_program={BUILD}/camCtl")
        self.play("metrics.yml", *metrics)
        silent = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
        self.start("prometheus-node-exporter", "--collector.disable-defaults", "--collector.textfile", f"--collector.textfile.directory={work}/text",
                   f"--web.listen-address=127.0.0.1:{self.port + 14}", **silent)
        self.start("prometheus", f"--config.file={work}/prometheus.yml", f"--storage.tsdb.path={work}/data", f"--web.listen-address=127.0.0.1:{self.port + 15}", **silent)
        self.wait_for("round(camera_exposure_time_seconds * 1e6)", {name: 16644.0 for name in (NOISY, GIVES_UP, *GOOD)})
        self.wait_for("camera_up == 0", {name: 0.0 for name in (GIVES_UP, HANGS, REFUSES)})
        self.wait_for('ALERTS{alertname="CameraLinkErrors"}', {})
        subprocess.run([BUILD / "camSim", "--board", self.rack / GOOD[3] / "board", "--fault", "i2c.read:chance=0.1", "camCtl", "stress", "--rounds", "50", "--retries", "9"],
                       env=self.environment, check=True, **silent)
        self.play("metrics.yml", *metrics, "--limit", GOOD[3])
        self.wait_for('ALERTS{alertname="CameraLinkErrors", alertstate="firing"}', {GOOD[3]: 1.0})
        self.assertEqual(listeners() - outside, set())
        rack.communicate(b"\n", timeout=30)


unittest.main(argv=sys.argv[:1])
