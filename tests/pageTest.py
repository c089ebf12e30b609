# SPDX-License-Identifier: MIT
"""The pages of camPlot in a real browser: drawn, sorted and opened, light and dark, on a desk and on a phone.

pageTest.py SOURCE_FOLDER ...
"""
import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

from selenium import webdriver

PROGRAM = sys.argv[1] + "/tools/camPlot/camPlot"
STAMP = "2025/03/07 09:"
# Failed attempts in 1000 rounds, and their milliseconds; None: nothing came back.
CAMERAS = {"camera 2": (40, 5), "camera 10": (3, 900), "clean": (0, 0), "a-very-long-name-of-a-camera-in-rack-17": (7, 30), "<script>x(": None}
BY_RANK = ["<script>x(", "camera 2", "a-very-long-name-of-a-camera-in-rack-17", "camera 10", "clean"]
CLICKS = (  # heading, the order that its click makes; what is not known stays last
    ("name", sorted(CAMERAS, key=lambda name: (name[0].isalnum(), name == "clean", name == "camera 10", name))),
    ("rate", BY_RANK[1:] + BY_RANK[:1]), ("rate", BY_RANK[:0:-1] + BY_RANK[:1]),
    ("recovery", ["camera 10", BY_RANK[2], "camera 2"]), ("rank", BY_RANK))
# Contrast of each visible text to what lies behind it, the smallest one; as WCAG 2 counts it.
CONTRAST = """
const light = c => { const [r, g, b] = c.match(/[\\d.]+/g).map(v => (v /= 255) <= .04045 ? v / 12.92 : ((v + .055) / 1.055) ** 2.4); return .2126 * r + .7152 * g + .0722 * b; };
const behind = e => { for (; e; e = e.parentElement) { const c = getComputedStyle(e).backgroundColor; if (!/, 0\\)$/.test(c)) return c; } return "rgb(255, 255, 255)"; };
return Math.min(...[...document.querySelectorAll("h1, p, small, th button, td, .badge, svg text")].filter(e => e.getClientRects().length && e.textContent.trim()).map(e => {
    const style = getComputedStyle(e), a = light(e.tagName === "text" ? style.fill : style.color), b = light(behind(e));
    return (Math.max(a, b) + .05) / (Math.min(a, b) + .05); }));
"""


class Pages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.work = pathlib.Path(folder.name)
        for number, failures in enumerate(CAMERAS.values()):
            flash = cls.work / str(number) / list(CAMERAS)[number]
            flash.mkdir(parents=True)
            if failures is not None:
                (flash / "I2cErr.csv").write_text("".join(f"{STAMP}{at % 60:02}:07, 0, {failures[1]}, {at + 1}\n" for at in range(failures[0])))
                (flash / "I2cTestResult_20250307095959").write_text(
                    f"I2C Error Counts = {failures[0]}\nI2C Read Error Counts = 0\n[{STAMP}00:00][{STAMP}59:59][999]:\n")
        subprocess.run([PROGRAM, "errors", "-o", cls.work / "p.html", *cls.work.glob("*/*")], check=True, stdout=subprocess.DEVNULL)
        options = webdriver.ChromeOptions()
        for word in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", f"--user-data-dir={cls.work}/browser"):
            options.add_argument(word)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        cls.browser = webdriver.Chrome(options=options, service=webdriver.chrome.service.Service("/usr/bin/chromedriver"))
        cls.addClassCleanup(cls.browser.quit)

    def show(self, width, scheme):
        self.browser.get("about:blank")
        self.browser.get_log("performance")  # of the browser itself
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {"width": width, "height": 900, "deviceScaleFactor": 1, "mobile": width < 500})
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
        self.browser.get((self.work / "p.html").as_uri())

    def names(self):
        return self.browser.execute_script("return [...document.querySelectorAll('.ranking tbody')].map(body => body.dataset.name)")

    def test_sorts(self):
        self.show(1100, "light")
        self.assertEqual(self.names(), BY_RANK)
        for heading, wanted in CLICKS:
            self.browser.find_element("css selector", f"th[data-key={heading}] button").click()
            self.assertEqual(self.names()[:len(wanted)], wanted, heading)
            self.assertEqual([head.get_attribute("data-key") for head in self.browser.find_elements("css selector", "th[aria-sort]")], [heading])

    def test_opens_and_is_readable(self):
        for width, seen in ((1100, "wide"), (390, "narrow")):
            for scheme in ("light", "dark"):
                with self.subTest(width=width, scheme=scheme):
                    self.show(width, scheme)
                    for row in self.browser.find_elements("css selector", ".row"):
                        row.click()
                    boxes = self.browser.execute_script("return [...document.querySelectorAll('figure svg')].map(svg => [svg.parentNode.className, svg.getBoundingClientRect().width])")
                    self.assertEqual(len(boxes), 6)
                    for name, across in boxes:
                        self.assertEqual(across > 0.85 * min(width, 1000), name == seen, boxes)
                    self.assertLessEqual(self.browser.execute_script("return document.documentElement.scrollWidth"), width, "nothing to scroll sideways")
                    self.assertGreaterEqual(self.browser.execute_script("return Math.min(...[...document.querySelectorAll('figure svg text')].map(t => t.getBoundingClientRect().height || 99))"), 8)
                    self.assertGreater(self.browser.execute_script(CONTRAST), 4.5)
                    self.assertEqual(self.browser.execute_script("return getComputedStyle(document.body).backgroundColor.match(/\\d+/)[0] < 128"), scheme == "dark")
                    self.assertEqual(self.browser.get_log("browser"), [])
                    messages = [json.loads(entry["message"])["message"] for entry in self.browser.get_log("performance")]
                    asked = [message["params"]["request"]["url"] for message in messages if message["method"] == "Network.requestWillBeSent"]
                    self.assertEqual([url for url in asked if not url.startswith("data:")], [(self.work / "p.html").as_uri()])


unittest.main(argv=sys.argv[:1])
