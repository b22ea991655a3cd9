"""Floods of malformed and forged messages: devices keep data, schedule and memory, and serve commands."""

import json
import re
import subprocess
import sys
from pathlib import Path

from lab import ROOT, Mesh, MeshTest, poll, secret_file

sys.path.insert(0, str(ROOT / "lab"))
from meshlab.hostile import ATTACKS  # noqa: E402

# Attacks, seconds, frames per second: fill the table of devices; keep memory level; all attacks.
MODEST = [name for name in ATTACKS if name not in ("oversized", "stations")]  # these fill the tables of stations
FILL, MODEST_FLOOD, FLOOD = (["devices", "silent"], 4, 2500), (MODEST, 4, 3000), (list(ATTACKS), 11, 3000)
OTHERS = ("controller", "agent1", "agent3")  # the attacker is on agent2
STATIONS = 5  # of every device
OWN_DATA = ("ModelName", "FirmwareVersion", "Mode", "ProtocolVersion", "RebootAllowed")
MEMORY_MARGIN, MOST_MEMORY = 2048, 256 << 10  # kB
MOST_FLOODS = 4
SETTINGS = ("LED_CTRL.1.enable", "NAT_INTF_SETTING.1.password", "WIFI_RADIO.1.countryInBeacon",
            "WIFI_RADIO.2.countryInBeacon")


class Hostile(MeshTest):
    # ---- Data of a device

    def settings_of(self, device):
        return self.mesh.exec(device, "sh", "-c", "for name; do kcfg get $name; done", "sh", *SETTINGS).stdout.split()

    def model(self, device="controller"):
        # Reads in place: the file is large, and many reads must not slow the daemons.
        return json.loads(Path(f"/proc/{self.pids[device]}/root/tmp/kv1905_datamodel.json").read_text())

    def own_data(self, device):
        entry = next(entry for entry in self.model(device)["kv1905"]["DeviceList"] if entry["Local"])
        return [entry[name] for name in OWN_DATA]

    def stations_of(self, device):
        # Returns the controller's entries: time of the last report by MAC.
        mac = self.mesh.al_mac(device)
        return {row["MACAddress"]: row["TimeStamp"] for row in self.model()["kv1905"]["StationList"]
                if row["Device"] == mac and row["MACAddress"].startswith("02:00:5e:")}

    def daemon_pids(self):
        return {name: self.mesh.daemon(name)["pid"] for name in OTHERS}

    # Returns each daemon's peak memory in kB; the current value varies with every JSON file.
    def memory(self):
        return {name: int(re.search(r"VmHWM:\s+(\d+)", Path(f"/proc/{pid}/status").read_text())[1])
                for name, pid in self.pids.items()}

    # ---- The flood

    def flood(self, attacks, seconds, rate, meanwhile=lambda: None):
        flood = subprocess.Popen(
            [*map(str, self.mesh.command), "exec", "agent2", "--", "hostile", "--attack", ",".join(attacks),
             "--seconds", str(seconds), "--rate", str(rate), "--probe"],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        try:
            meanwhile()
        finally:
            printed = flood.communicate()[0]
        self.assertEqual(flood.returncode, 0, printed)
        rows = [line.split() for line in printed.splitlines()[1:]]
        self.assertTrue(all(int(row[1]) > 0 for row in rows if len(row) == 2), printed)
        self.assertTrue(all(int(row[3]) <= 100 for row in rows if row[1] == "answers"), printed)

        def waiting(pid):
            return sum(int(line.split()[6]) for line in Path(f"/proc/{pid}/net/packet").read_text().splitlines()[1:])
        poll(lambda: not any(map(waiting, self.pids.values())), 40, "that every daemon has read what waited")
        self.check_kept()

    def check_kept(self):
        self.assertEqual(self.daemon_pids(), self.pids, "no daemon ended")
        for device in OTHERS:
            self.assertEqual(self.settings_of(device), self.settings[device], device)
            self.assertEqual(self.own_data(device), self.data[device], device)
        for device in ("agent1", "agent3"):
            self.assertTrue(set(self.stations[device]) <= set(self.stations_of(device)), device)

    def check_service(self, device):
        # Reports and JSON files arrive during the flood, or at the latest just after it; commands work.
        before = self.stations_of(device)

        def reported():
            now = self.stations_of(device)
            return all(now[mac] > time for mac, time in before.items())
        poll(reported, 20, f"a report of {device}'s stations, which are sent every ten seconds")
        self.check_operator(device, "0", 8)

    def check_operator(self, device, state, seconds):
        # The flood may forge the result that the tool shows, and bridges may misdirect frames, so a command is repeated
        # until the device has done it.
        def commanded():
            self.mesh.exec("controller", "kv1905App", "--timeout", "1", "led", self.mesh.al_mac(device), state)
            return self.kcfg(device, "get", "LED_CTRL.1.enable") == state
        poll(commanded, seconds, f"the LEDs of {device}")
        self.settings[device][0] = state

    def test_other_devices_keep_working_during_a_flood(self):
        with Mesh("--devices", "4", "--shape", "tree", "--stations", str(STATIONS), "--settings-from", "controller",
                  "--password-file", secret_file(self, "Geheim 42!"), "--log-level", "3",
                  "--controller-args", "--query-interval 6") as self.mesh:
            self.mesh.await_known("agent1", "agent2", "agent3")
            self.pids = self.daemon_pids()
            poll(lambda: all(len(self.stations_of(name)) == STATIONS for name in ("agent1", "agent2", "agent3")), 20,
                 "the stations of all devices")
            poll(lambda: self.settings_of("agent3")[3] == "DE", 10, "the controller's settings")
            self.settings = {name: self.settings_of(name) for name in OTHERS}
            self.data = {name: self.own_data(name) for name in OTHERS}
            self.stations = {name: self.stations_of(name) for name in ("agent1", "agent3")}

            self.flood(*FILL)
            self.check_memory_levels()
            self.flood(*FLOOD, meanwhile=lambda: self.check_service("agent1"))
            self.assertLessEqual(max(self.memory().values()), MOST_MEMORY)
            self.check_operator("agent3", "0", 3)
            self.check_operator("agent1", "1", 3)
            for agent in ("agent1", "agent3"):
                poll(lambda: self.mesh.device_in(agent)["ModelName"] == self.data[agent][0], 15, f"{agent}'s own name")

    def check_memory_levels(self):
        # A busy device misses frames, so memory may become level only after several floods.
        levels = [self.memory()]
        for _ in range(MOST_FLOODS):
            self.flood(*MODEST_FLOOD)
            levels.append(self.memory())
            if all(levels[-1][device] <= levels[-2][device] + MEMORY_MARGIN for device in OTHERS):
                return
        self.fail(f"memory grows with every flood: {levels}")
