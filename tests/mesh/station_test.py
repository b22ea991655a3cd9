"""Wi-Fi stations: the lists of a device's driver reach the tables of all devices and leave them in time."""

import json

import jsonschema
from lab import ROOT, Capture, Mesh, MeshTest, poll

MEASURE_PERIOD = "+11"  # s: with its clock moved so far, a device collects and reports its stations at once


class Stations(MeshTest):
    def test_stations_reach_all_devices_and_follow_roaming(self):
        capture = Capture()
        with Mesh("--devices", "3", "--movable-clock", "--capture", capture.path) as mesh:
            mesh.await_known("agent1", "agent2")
            self.mesh = mesh
            self.check_roaming()
            self.check_query()
            self.check_signal()
        capture.check(8, 9, 36)
        self.check_captured_values(capture)

    def report(self, *devices):
        for device in devices:
            self.lab("clock", device, MEASURE_PERIOD)

    def listed(self, device):
        # Returns the lines of the device's own driver, by MAC.
        text = self.mesh.exec(device, "sh", "-c", "cat /tmp/assoc_list.24g /tmp/assoc_list.5g").stdout
        return {line.split()[0]: line for line in text.splitlines()}

    def table(self, device, viewer="controller"):
        # Returns the stations of a device in the viewer's JSON file, by MAC.
        mac = self.mesh.al_mac(device)
        return {row["MACAddress"]: row for row in self.mesh.model(viewer)["kv1905"]["StationList"]
                if row["Device"] == mac}

    def last_report(self, station):
        return self.table("agent1")[station]["TimeStamp"]

    def check_roaming(self):
        # The new device's table has the station at once, the old one's for 600 s more.
        self.lab("stations", "set", "agent1", "--count", "2")
        roaming, staying = sorted(self.listed("agent1"))
        self.report("agent1")
        for viewer in ("controller", "agent2"):
            poll(lambda: {roaming, staying} <= set(self.table("agent1", viewer)), 15, f"both stations at {viewer}")
        self.lab("stations", "move", roaming, "agent1", "agent2")
        self.lab("clock", "controller", "+500")
        self.report("agent1", "agent2")
        poll(lambda: roaming in self.table("agent2"), 15, "the station in its new device's table")
        poll(lambda: self.last_report(staying) > self.last_report(roaming), 15, "a later report of the other station")
        self.lab("clock", "controller", "+150")
        poll(lambda: roaming not in self.table("agent1"), 15, "its removal from the old device's table")
        self.assertIn(staying, self.table("agent1"))
        self.assertIn(roaming, self.table("agent2"))

    def check_query(self):
        self.lab("stations", "set", "agent2", "--count", "70")
        self.queried = self.listed("agent2")
        self.report("agent2")
        poll(lambda: set(self.table("agent2", "agent2")) == set(self.queried), 15, "the agent's own list")
        answer = json.loads(self.app("--json", "query-stations", "agent2"))
        self.assertEqual({row["MACAddress"] for row in answer}, set(self.queried), "all messages of the answer")
        schema = json.loads((ROOT / "docs" / "data_elements.schema.json").read_text())
        jsonschema.validate(self.mesh.model()["wfa-dataelements:Network"], schema)

    def check_signal(self):
        # Sends a notification to an agent, as an operator does.
        self.lab("stations", "set", "controller", "--count", "1")
        self.notified = next(iter(self.listed("controller").values())).split()
        self.report("controller")
        poll(lambda: self.notified[0] in self.table("controller"), 15, "the controller's own station")
        self.assertIn(self.notified[2], self.app("rssi", "agent2", self.notified[0]))

    def check_captured_values(self, capture):
        names = [f"kv1905.station.{name}" for name in ("mac", "rssi", "snr", "tx", "rx")]
        rows = capture.fields("kv1905.type == 9", *names)
        shown = {figures for row in rows for figures in zip(*(column.split(",") for column in row))}
        lines = map(str.split, self.queried.values())
        self.assertEqual(shown, {(line[0], line[2], line[3], line[6], line[7]) for line in lines})
        signals = capture.fields("kv1905.intel.rssi", *(f"kv1905.intel.{name}" for name in ("type", "station", "rssi")))
        self.assertIn(("0x6a", self.notified[0], self.notified[2]), signals)
