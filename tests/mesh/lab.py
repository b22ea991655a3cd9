"""Fixtures over lab/mesh: a mesh for one test, its JSON files, its captures."""

import json
import os
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
MESH = ROOT / "lab" / "mesh"
BUILD = os.environ.get("KV_BUILD", str(ROOT / "build" / "release"))

DISSECTOR = ROOT / "tools" / "wireshark" / "kv1905.lua"
NOTES = tuple(f"kv1905.expert.{name}" for name in ("short", "length", "refused", "ignored", "unknown", "capture"))

# A captured link must have no malformed frame.
COMPLAINTS = ("_ws.malformed || ieee1905.tlv.extraneous_data || ieee1905.tlv.extra_data || ieee1905.tlv.too_short")
SANITIZER = ("ERROR: AddressSanitizer", "ERROR: LeakSanitizer", "runtime error:")


def run(*command, **options):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True, errors="replace", **options)


def poll(condition, seconds, what):
    deadline = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < deadline, f"not within {seconds} s: {what}"
        time.sleep(0.1)


def secret_file(test, text):
    secret = tempfile.NamedTemporaryFile("w")
    test.addCleanup(secret.close)
    print(text, file=secret, flush=True)
    return secret.name


# A mesh that is up while the object is entered. Its end stops every daemon and examines the logs.
class Mesh:
    counter = 0

    def __init__(self, *arguments):
        Mesh.counter += 1
        self.name = f"test-{os.getpid()}-{Mesh.counter}"
        self.command = [MESH, "--name", self.name]
        self.arguments = ["--build", BUILD, *arguments]

    def __enter__(self):
        done = self.call("up", *self.arguments)
        assert done.returncode == 0, f"mesh up: {done.stderr}"
        self.devices = self.status()["devices"]
        self.names = [device["name"] for device in self.devices]
        return self

    def __exit__(self, kind, value, trace):
        try:
            for name in self.names:
                self.call("stop", name)
            logs = [f"---- {name}\n{self.log(name)}" for name in self.names]
            faulty = [log for log in logs if kind or any(mark in log for mark in SANITIZER)]
            for log in faulty:
                print(*log.splitlines()[:1], *log.splitlines()[-60:], sep="\n")
            assert kind or not faulty, "a sanitizer reports a fault"
        finally:
            self.call("down")

    def call(self, *arguments, **options):
        return run(*self.command, *arguments, **options)

    def exec(self, device, *command, **options):
        return self.call("exec", device, "--", *command, **options)

    def status(self):
        return json.loads(self.call("status", "--json").stdout)

    # State and process of a device's daemon, now.
    def daemon(self, name):
        return next(device["daemon"] for device in self.status()["devices"] if device["name"] == name)

    def al_mac(self, name):
        return next(device["alMac"] for device in self.devices if device["name"] == name)

    def log(self, device):
        return self.call("logs", device).stdout

    def model(self, device="controller"):
        text = self.exec(device, "cat", "/tmp/kv1905_datamodel.json").stdout
        return json.loads(text or '{"kv1905": {"DeviceList": []}}')

    # Returns the entry of a device in the viewer's JSON file; None while it is unknown.
    def device_in(self, device, viewer="controller"):
        mac = self.al_mac(device).lower()
        entries = self.model(viewer)["kv1905"]["DeviceList"]
        return next((entry for entry in entries if entry["ID"].lower() == mac), None)

    def await_known(self, *agents, seconds=15):
        for agent in agents:
            poll(lambda: (self.device_in(agent) or {}).get("ModelName"), seconds, f"{agent}'s configuration")


def dissect(path, *names, display_filter=""):
    # Returns the texts of these fields per frame; values of a repeated field are joined by commas.
    names = ("_ws.lua.error", *names)
    fields = [word for name in names for word in ("-e", name)]
    # Runs without a home, because an installed dissector must not load twice.
    done = run("tshark", "-X", f"lua_script:{DISSECTOR}", "-r", path, "-Y", display_filter, "-T", "fields",
               "-E", "separator=/t", *fields, env={**os.environ, "HOME": "/nonexistent"})
    assert done.returncode == 0, done.stderr
    rows = [dict(zip(names, line.split("\t"))) for line in done.stdout.splitlines()]
    errors = [row["_ws.lua.error"] for row in rows if row["_ws.lua.error"]]
    assert not errors, errors[:3]
    return rows


# A capture file, read with tshark.
class Capture:
    def __init__(self):
        self.file = tempfile.NamedTemporaryFile(suffix=".pcap")
        self.path = self.file.name

    def fields(self, display_filter, *names):
        return [tuple(row[name] for name in names) for row in dissect(self.path, *names, display_filter=display_filter)]

    def check(self, *types):
        # Requires well-formed frames that our dissector knows completely, and these message types among them.
        assert not self.fields(COMPLAINTS, "frame.number")
        rows = dissect(self.path, "kv1905.type", "_ws.col.Info", *NOTES, display_filter="kv1905")
        noted = [row for row in rows if any(row[name] for name in NOTES)]
        assert not noted, noted[:3]
        missing = set(types) - {int(kind) for row in rows for kind in row["kv1905.type"].split(",") if kind}
        assert not missing, f"message types {missing} are not in the capture"


class MeshTest(unittest.TestCase):
    maxDiff = None

    def kcfg(self, device, *words):
        done = self.mesh.exec(device, "kcfg", *words)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout.strip()

    def lab(self, *words):
        done = self.mesh.call(*words)
        self.assertEqual(done.returncode, 0, f"{words}: {done.stderr}")

    def rename(self, device, name):
        # Sets the model name in the file that the plug-in reads.
        self.mesh.exec(device, "sed", "-i", f"s/^ModelName=.*/ModelName={name}/", "/tmp/.kv1905_conf")

    def app(self, *words, status=0):
        # Returns the output of the controller's tool.
        done = self.mesh.exec("controller", "kv1905App", *words)
        self.assertEqual(done.returncode, status, f"{words}: {done.stdout}{done.stderr}")
        return done.stdout + done.stderr
