"""The page of `kv1905App view` in a real browser."""

import html
import itertools
import json
import os
import re
import shutil
import socket
import subprocess
import tempfile
import threading
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
TOOL = Path(os.environ.get("KV_BUILD", ROOT / "build" / "release")) / "bin" / "kv1905App"
CHROMIUM = shutil.which("chromium")
OPTIONS = ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
           "--disable-background-networking", "--disable-component-update", "--disable-sync", "--enable-logging=stderr")


# Returns the text without tags, and every run of spaces as one.
def texts(markup):
    return " ".join(html.unescape(re.sub("<[^>]*>", " ", markup)).split())


# The drawn devices, the titles of the drawn links, the number of stations, and elements by their id.
class Dom:
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


def mac(number):
    return f"02:00:5e:00:{number:02x}:00"


def device(number, parent=None, media=1, **fields):
    links = [{"ID": mac(parent), "MediaType": media}] if parent else []
    return {"ID": mac(number), "Local": number == 1, "SpeaksProtocol": True, "ModelName": f"KV-{number}",
            "Hops": number.bit_length() - 1, "NeighborList": links, **fields}


@unittest.skipIf(CHROMIUM is None, "chromium is not installed: the page is not tried in a browser")
class View(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.model, self.page = Path(directory.name) / "model.json", Path(directory.name) / "mesh.html"

    def write(self, devices=(), stations=()):
        draft = self.model.with_suffix(".new")
        draft.write_text(json.dumps({
            "wfa-dataelements:Network": {"TimeStamp": "2026-03-01T18:41:22Z"},
            "kv1905": {"Role": "Controller", "Controller": mac(1), "DeviceList": devices, "StationList": stations}}))
        draft.replace(self.model)

    def browse(self, address, budget=2000):
        # Returns the document after `budget` ms of the page's own time, which runs as fast as it can.
        with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
            done = subprocess.run([CHROMIUM, *OPTIONS, f"--user-data-dir={profile}",
                                   f"--virtual-time-budget={budget}", "--dump-dom", address],
                                  capture_output=True, text=True, timeout=60)
        printed = [line for line in done.stderr.splitlines() if "CONSOLE" in line and "503" not in line]
        self.assertEqual(printed, [], "errors of the script and refusals of the policy are on the console")
        return Dom(done.stdout)

    def draw(self, devices, stations, fragment=""):
        self.write(devices, stations)
        subprocess.run([TOOL, "--data-model", self.model, "view", "--output", self.page], check=True)
        return self.browse(f"file://{self.page}{fragment}")

    def test_devices_links_and_stations_are_drawn(self):
        devices = [device(1, FirmwareVersion="1.4.2", NewFirmwareVersion="1.5.0", BuildNumber="2207", LedStatus="ON"),
                   device(2, 1, 261),
                   device(4, 2, SecondsSinceHeard=41, Uptime="5130", UptimeReceived="2026-03-01T18:40:02Z")]
        stations = [{"MACAddress": mac(9), "Device": mac(1), "Rate": 1201000},
                    {"MACAddress": mac(8), "Device": mac(4), "Band": "2.4GHz", "RSSI": -48}]
        dom = self.draw(devices, stations)
        self.assertEqual(sorted(dom.links), ["KV-1 \u2013 KV-2: Wi-Fi", "KV-2 \u2013 KV-4: Ethernet"])
        self.assertEqual((len(dom.devices), dom.rows), (3, 2))
        for part in ("Controller", "LED on", "this device", "1.4.2, build 2207 (1.5.0 is available)", mac(9), "1201"):
            self.assertIn(part, dom.device("KV-1"))
        for part in ("Agent", "heard 41 s ago", "1 h 26 min", "Hops 2", "1 station ", "2.4", "\u221248"):
            self.assertIn(part, dom.device("KV-4"))

    def test_missing_and_hostile_values_are_shown_as_text(self):
        markup = "<img src=x onerror=\"document.title='hit'\"><b>{{model}}</b>"
        dom = self.draw([
            {"ID": mac(1), "Local": True}, {"ID": mac(2), "Hops": None, "ModelName": 7, "SecondsSinceHeard": "x"},
            {"ID": "__proto__", "ModelName": markup, "LedStatus": markup, "Uptime": "1e9", "NeighborList": "x"}, None,
        ], [{"Device": mac(1)}, {"Device": "__proto__", "MACAddress": markup, "RSSI": "x", "SignalLevel": 1e9},
            {"Device": "garage"}, 5])
        for empty in ("LED -", "Firmware -", "Uptime -", "Hops -", "IP -", "Channels -", "Mode -", "Links -"):
            self.assertIn(empty, dom.device(mac(1)))
        self.assertIn("heard -", dom.device(mac(2)))
        self.assertEqual(dom.device("__proto__").count("onerror"), 3)
        self.assertIn(markup, dom.device("__proto__"))
        self.assertNotRegex(dom.text, "<(img|b)[ >]")

    def test_a_large_mesh_lists_stations_on_request(self):
        devices = [device(number, number // 2) for number in range(1, 65)]
        stations = [{"Device": mac(n % 64 + 1), "MACAddress": f"02:00:5e:77:{n >> 8:02x}:{n & 255:02x}"}
                    for n in range(1920)]
        dom = self.draw(devices, stations, fragment="#" + mac(64))
        self.assertEqual((len(dom.devices), len(dom.links), dom.rows), (64, 63, 30))
        self.assertEqual(dom.device("KV-64 ").count("02:00:5e:77:"), 30)

    def test_a_served_page_follows_the_file(self):
        server = subprocess.Popen([TOOL, "--data-model", self.model, "view", "--serve", "--port", "0"],
                                  stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.addCleanup(server.communicate)
        self.addCleanup(server.terminate)
        address = re.search(r"http://127\.0\.0\.1:\d+/", server.stdout.readline())[0]
        self.assertRegex(self.browse(address).by_id("notice"), "Not refreshed.*model.json")

        port = int(address.rpartition(":")[2].rstrip("/"))
        for _ in range(100):  # clients that send nothing and wait for nothing
            self.addCleanup(socket.create_connection(("127.0.0.1", port)).close)
        for line, header, status in (("HEAD / HTTP/1.1", "host: localhost ", 200), ("POST / HTTP/1.1", "", 405),
                                     ("GET / HTTP/1.1", "", 403), ("GET / HTTP/1.1", "Host: evil.example", 403),
                                     ("GET /x HTTP/1.1", "Host: localhost", 404), ("G" * 10000, "", 431)):
            with socket.create_connection(("127.0.0.1", port)) as client:
                client.sendall(f"{line}\r\n{header}\r\n\r\n{'body' * 9999}".encode())
                self.assertIn(f" {status} ".encode(), client.recv(100), line[:30] + header)
        self.write([device(1, ModelName="KV-0-")])
        done = threading.Event()

        def write():
            for number in itertools.count(1):
                self.write([device(1, ModelName=f"KV-{number}-")])
                if done.wait(0.01):
                    return
        writer = threading.Thread(target=write)
        writer.start()
        try:
            dom = self.browse(address + "#%", budget=60000)
        finally:
            done.set()
            writer.join()
        first, last = (int(re.search(r"KV-(\d+)-", text)[1]) for text in (dom.by_id("data"), dom.devices[0]))
        self.assertGreater(last, first, "the drawn data is newer than the data that the page was delivered with")
        self.assertIn("has not written", dom.by_id("notice"), "its time stamp did not change for a minute")
