"""The page of `kv1905App view` in a real browser: what it draws, that nothing in it runs but its own script, and that a
served page keeps up with the daemon's file."""

import html
import json
import os
import re
import shutil
import subprocess
import tempfile
import threading
import unittest
from pathlib import Path

HERE = Path(__file__).resolve().parent
TOOL = Path(os.environ.get("KV_BUILD", HERE.parents[1] / "build" / "release")) / "bin" / "kv1905App"
CHROMIUM = shutil.which("chromium")
OPTIONS = ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
           "--disable-background-networking", "--disable-component-update", "--disable-sync", "--enable-logging=stderr")
DEADLINE = 60  # seconds


def setUpModule():
    if CHROMIUM is None:
        raise unittest.SkipTest("chromium is not installed: the page is not tried in a browser")


def texts(markup):
    """Without the tags, and every run of spaces as one."""
    return " ".join(html.unescape(re.sub("<[^>]*>", " ", markup)).split())


class Dom:
    """The drawn devices, the titles of the drawn links, the number of stations, and elements by their id."""

    def __init__(self, text):
        self.text = text
        self.devices = [texts(article) for article in re.findall("<article.*?</article>", text, re.S)]
        self.links = [texts(title) for title in re.findall("<path[^>]*><title>(.*?)</title>", text, re.S)]
        self.rows = sum(body.count("<tr") for body in re.findall("<tbody.*?</tbody>", text, re.S))

    def by_id(self, name):
        tag, content = re.search(f'<([a-z]+)[^>]* id="{name}"[^>]*>(.*)', self.text, re.S).groups()
        return texts(content.split(f"</{tag}>")[0])

    def device(self, name):
        return next(text for text in self.devices if name in text.split(" Firmware ")[0])


def mesh(stamp="2026-03-01T18:41:22Z", devices=(), stations=()):
    return {"wfa-dataelements:Network": {"TimeStamp": stamp},
            "kv1905": {"Role": "Controller", "DeviceList": list(devices), "StationList": list(stations)}}


def mac(number):
    return f"02:00:5e:00:{number:02x}:00"


class View(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.model, self.page = Path(directory.name) / "model.json", Path(directory.name) / "mesh.html"

    def write(self, model):
        draft = self.model.with_suffix(".new")
        draft.write_text(json.dumps(model))
        draft.replace(self.model)

    def browse(self, address, budget=2000, width=1280):
        """The document after `budget` ms of the page's own time, which runs as fast as it can."""
        with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
            done = subprocess.run([CHROMIUM, *OPTIONS, f"--user-data-dir={profile}", f"--window-size={width},900",
                                   f"--virtual-time-budget={budget}", "--dump-dom", address],
                                  capture_output=True, text=True, timeout=DEADLINE)
        said = [line for line in done.stderr.splitlines() if "CONSOLE" in line and "503" not in line]
        self.assertEqual(said, [], "errors of the script and refusals of the policy end up on the console")
        return Dom(done.stdout)

    def draw(self, model, fragment="", **options):
        self.write(model)
        done = subprocess.run([TOOL, "--data-model", self.model, "view", "--output", self.page],
                              capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stderr)
        return self.browse(f"file://{self.page}{fragment}", **options)

    def serve(self):
        server = subprocess.Popen([TOOL, "--data-model", self.model, "view", "--serve", "--port", "0"],
                                  stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.addCleanup(server.communicate)
        self.addCleanup(server.terminate)
        return re.search(r"http://127\.0\.0\.1:\d+/", server.stdout.readline())[0]

    def test_devices_links_and_stations_are_drawn_at_every_width(self):
        model = json.loads((HERE / "mesh.json").read_text())
        for width in (500, 800, 1600):
            dom = self.draw(model, width=width)
            self.assertEqual(len(dom.devices), 5)
            self.assertEqual(sorted(dom.links), [
                "KV-GATEWAY \u2013 KV-KITCHEN: Wi-Fi", "KV-GATEWAY \u2013 KV-OFFICE: Ethernet",
                "KV-OFFICE \u2013 KV-ATTIC: Wi-Fi", "KV-OFFICE \u2013 KV-GARAGE: Ethernet"])
            self.assertEqual(dom.rows, 12)
            for name, parts in {
                    "KV-GATEWAY ": ("Controller", "LED on", "this device", "1.4.2, build 2207 (1.5.0 is available)",
                                    "13 d 18 h", "4 stations", "02:00:5e:41:00:01", "\u221248", "1201"),
                    "KV-GARAGE ": ("Agent", "heard 41 s ago", "1 h 26 min", "Hops 2", "1 station ", "2.4"),
            }.items():
                for part in parts:
                    self.assertIn(part, dom.device(name))

    def test_what_is_missing_or_hostile_is_shown_as_it_is(self):
        markup = "<img src=x onerror=\"document.title='hit'\"><b>{{model}}</b>"
        dom = self.draw(mesh(devices=[
            {"ID": mac(1), "Local": True}, {"ID": mac(2), "Hops": None, "ModelName": 7, "SecondsSinceHeard": "x"},
            {"ID": "__proto__", "ModelName": markup, "LedStatus": markup, "Uptime": "1e9", "NeighborList": "x"}, None,
        ], stations=[{"Device": mac(1)}, {"Device": "__proto__", "MACAddress": markup, "RSSI": "x", "SignalLevel": 1e9},
                     {"Device": "nobody"}, 5]))
        bare = dom.device(mac(1))
        for part in ("LED -", "Firmware -", "Uptime -", "Hops -", "IP -", "Channels -", "Mode -", "Links -"):
            self.assertIn(part, bare)
        self.assertIn("heard -", dom.device(mac(2)))
        self.assertEqual(dom.device("__proto__").count("onerror"), 3)
        self.assertIn(markup, dom.device("__proto__"))
        self.assertEqual(dom.by_id("summary").split(",")[:2], ["3 devices", " 2 stations"])
        self.assertNotRegex(dom.text, "<(img|b)[ >]")

    def test_a_large_mesh_lists_stations_on_demand(self):
        devices = [{"ID": mac(k), "Local": k == 1, "Hops": k.bit_length() - 1, "ModelName": f"KV-{k}",
                    "NeighborList": [{"ID": mac(k // 2), "MediaType": 1}] if k > 1 else []} for k in range(1, 65)]
        stations = [{"Device": mac(n % 64 + 1), "MACAddress": f"02:00:5e:77:{n >> 8:02x}:{n & 255:02x}"}
                    for n in range(2000)]
        dom = self.draw(mesh(devices=devices, stations=stations), fragment="#" + mac(64), width=1600)
        chosen = sum(station["Device"] == mac(64) for station in stations)
        self.assertEqual((len(dom.devices), len(dom.links), dom.rows), (64, 63, chosen))
        self.assertEqual(dom.device("KV-64 ").count("02:00:5e:77:"), chosen)

    def test_a_served_page_keeps_up_with_the_file(self):
        address = self.serve()
        dom = self.browse(address)
        self.assertRegex(dom.by_id("notice"), "Not refreshed.*model.json")

        done = threading.Event()

        def write():
            for number in range(1, 1 << 30):
                self.write(mesh(devices=[{"ID": mac(1), "Local": True, "ModelName": f"KV-{number}-"}]))
                if done.wait(0.01):
                    break
        self.write(mesh(devices=[]))
        writer = threading.Thread(target=write)
        writer.start()
        try:
            dom = self.browse(address, budget=60000)
        finally:
            done.set()
            writer.join()
        first, last = (int((re.search(r"KV-(\d+)-", text) or [0, 0])[1])
                       for text in (dom.by_id("data"), dom.devices[0]))
        self.assertGreater(last, first, "what is drawn is newer than what the page came with")
        self.assertIn("has not written", dom.by_id("notice"), "its time stamp stood still for a minute")


if __name__ == "__main__":
    unittest.main()
