"""Wi-Fi stations: what a device's driver lists reaches the others' tables, leaves them in time, and fits the wire."""

import sys
import unittest
from datetime import datetime

from lab import COMPLAINTS, ROOT, Capture, Mesh, MeshTest, poll

sys.path.insert(0, str(ROOT / "lab"))
from meshlab.stations import BANDS, COUNTER_SIZE, STRONGEST, WEAKEST, Population  # noqa: E402

MEASURE_PERIOD = "+11"  # s: with its clock moved so far, a device collects and reports its stations at once
STATE_QUERY, STATE_RESPONSE, CLIENT_REPORT = 8, 9, 36
# What the lab's peer puts around the type of its question.
PEER_HEADER = ("000347" "01020304" "0506", "00" "112233445566" "00" "0708" "0000")
NOTIFICATION_HEADER = "55cdabef" "060a" "6a" "00" "000000000000" "00" "0000" "0000"

# A station whose record is 90 characters long, so that its framed record is 93.
LONG_LINE = "02:00:5e:aa:00:{:02x} 866700 -45 30 0 wl1 123456789 456789123 866700 650000 0010\n"
LONG_FIGURES = "0000" "1964" "21d4" "d3" "1e"  # 650 and 866 Mbit/s in tenths, -45 dBm, 30 dB


class Stations(MeshTest):
    def test_stations_over_a_mesh(self):
        capture = Capture()
        with Mesh("--devices", "3", "--movable-clock", "--capture", capture.path) as mesh:
            mesh.await_learnt("agent1", "agent2")
            self.mesh = mesh
            self.check_roaming()
            self.check_query()
            self.check_long_records()
            self.check_signal()
            self.check_live_run()
            self.check_many()
        self.check_state_responses(capture)
        self.check_reports(capture)
        self.check_notification(capture)
        self.assertEqual(capture.fields(COMPLAINTS, "frame.number"), [])

    # ---- Helpers

    def lab(self, *words):
        done = self.mesh.call(*words)
        self.assertEqual(done.returncode, 0, f"{words}: {done.stderr}")

    def app(self, *words, status=0):
        done = self.mesh.exec("controller", "kv1905App", *words)
        self.assertEqual(done.returncode, status, f"{words}: {done.stdout}{done.stderr}")
        return done.stdout

    def report(self, *devices):
        for device in devices:
            self.lab("clock", device, MEASURE_PERIOD)

    def listed(self, device):
        """What the device's own driver lists: lines by MAC."""
        text = self.mesh.exec(device, "sh", "-c", "cat /tmp/assoc_list.24g /tmp/assoc_list.5g").stdout
        return {line.split()[0]: line for line in text.splitlines()}

    def table(self, device, viewer="controller"):
        """The stations of a device as the viewer's JSON file has them, by MAC."""
        mac = self.mesh.al_mac(device)
        return {row["MACAddress"]: row for row in self.mesh.model(viewer)["kv1905"]["StationList"]
                if row["Device"] == mac}

    def write_list(self, device, text):
        self.mesh.exec(device, "sh", "-c", "cat > /tmp/list && mv /tmp/list /tmp/assoc_list.5g", input=text)

    # ---- Steps

    def check_roaming(self):
        """Between two devices: the new one's table has the station at once, the old one's for 600 s more."""
        self.lab("stations", "set", "agent1", "--count", "2")
        roaming, staying = sorted(self.listed("agent1"))
        self.report("agent1")
        for viewer in ("controller", "agent2"):
            poll(lambda: {roaming, staying} <= set(self.table("agent1", viewer)), 15, f"both stations at {viewer}")

        self.lab("stations", "move", roaming, "agent1", "agent2")
        self.assertEqual((set(self.listed("agent1")), set(self.listed("agent2"))), ({staying}, {roaming}))
        self.lab("clock", "controller", "+500")
        self.report("agent1", "agent2")
        poll(lambda: roaming in self.table("agent2"), 15, "the station in its new device's table")
        poll(lambda: self.seen_apart(staying, roaming) >= 490, 15, "a later time at the station that stays")
        self.check_figures(self.table("agent2")[roaming], self.listed("agent2")[roaming])

        self.lab("clock", "controller", "+150")
        poll(lambda: roaming not in self.table("agent1"), 15, "its removal from the old device's table")
        self.assertIn(staying, self.table("agent1"))
        self.assertIn(roaming, self.table("agent2"))

    def seen_apart(self, later, earlier):
        """Seconds between the last reports of two stations of agent1."""
        rows = self.table("agent1")
        times = [datetime.fromisoformat(rows[mac]["TimeStamp"]) for mac in (later, earlier)]
        return (times[0] - times[1]).total_seconds()

    def check_figures(self, row, line):
        _, rate, signal, noise_distance, _, interface, sent, received, down, up, _ = line.split()
        self.assertEqual((row["Rate"], row["LastDataDownlinkRate"], row["LastDataUplinkRate"]),
                         tuple(int(number) // 1000 * 1000 for number in (rate, down, up)))
        self.assertEqual((row["RSSI"], row["SNR"], row["BytesSent"], row["BytesReceived"]),
                         tuple(map(int, (signal, noise_distance, sent, received))))
        self.assertEqual(row["Band"], {"wl0": "2.4GHz", "wl1": "5GHz"}[interface])

    def check_query(self):
        self.lab("stations", "set", "agent2", "--count", "70")
        self.queried = set(self.listed("agent2"))
        self.report("agent2")
        poll(lambda: set(self.table("agent2", "agent2")) == self.queried, 15, "the agent's own list")
        self.app("query-stations", self.mesh.al_mac("agent2"))
        poll(lambda: self.mesh.log("controller").count("received VEND_MSG_TYPE_WIFI_STATE_RESP") >= 3, 10,
             "all responses")
        poll(lambda: self.queried <= set(self.table("agent2")), 10, "the agent's stations")

    def check_long_records(self):
        self.lab("stations", "set", "agent1", "--count", "0")
        lines = [LONG_LINE.format(number) for number in range(15)]
        self.write_list("agent1", "".join(lines))
        self.report("agent1")
        poll(lambda: {line.split()[0] for line in lines} <= set(self.table("agent1")), 15, "all long records")

    def check_signal(self):
        """Asked by a neighbour that is no device of this mesh, about a station of agent1 and about a stranger."""
        for station, figures in (("02:00:5e:aa:00:07", LONG_FIGURES), ("02:00:5e:aa:00:77", "00000000" "0000" "a600")):
            done = self.mesh.exec("controller", "peer", "ask-rssi", "--to", self.mesh.al_mac("agent1"), "--station",
                                  station)
            self.assertEqual(done.returncode, 0, done.stderr)
            self.assertEqual(done.stdout.split()[0],
                             "68".join(PEER_HEADER) + station.replace(":", "") + figures + "000000")
        self.write_list("controller", LONG_LINE.format(0x99))
        self.report("controller")
        self.notified = "02:00:5e:aa:00:99"
        poll(lambda: self.notified in self.table("controller"), 15, "the controller's own station")
        self.app("rssi", self.mesh.al_mac("agent2"), self.notified)

    def check_live_run(self):
        self.lab("stations", "run", "--count", "30", "--period", "0.3", "--seconds", "0.5",
                 "--devices", "agent1,controller")
        self.assertIn(len(self.listed("agent1") | self.listed("controller")), range(20, 31))
        self.assertEqual(set(self.listed("agent2")), self.queried)

    def check_many(self):
        self.lab("stations", "set", "agent2", "--count", "2000")
        listed = set(self.listed("agent2"))
        self.assertEqual(len(listed), 2000)
        self.report("agent2")
        poll(lambda: listed <= set(self.table("agent2")), 30, "2,000 stations at the controller")
        shown = self.app("show", "stations")
        self.assertTrue(listed <= {line.split()[2] for line in shown.splitlines()[1:]})

    # ---- The capture

    def sent_by(self, capture, device, kind):
        """Message identifier and payload of every maker's message of that type, as it left the device."""
        link = {"agent1": "controller.eth0-agent1.eth0", "agent2": "agent1.eth1-agent2.eth0",
                "controller": "controller.eth0-agent1.eth0"}[device]
        rows = capture.fields(f'ieee1905.message_type == 0x0004 && ieee1905.vendor_specific.oui == 0x024ea7 && '
                              f'eth.src == {self.mesh.al_mac(device)} && frame.interface_name == "{link}"',
                              "ieee1905.message_id", "ieee1905.vendor_specific.info")
        sender = bytes.fromhex(self.mesh.al_mac(device).replace(":", ""))
        messages = [(number, bytes.fromhex(info.replace(":", ""))) for number, info in rows]
        return [(number, data[12:12 + int.from_bytes(data[10:12], "big")]) for number, data in messages
                if data[:6] == sender and int.from_bytes(data[8:10], "big") == kind]

    def check_state_responses(self, capture):
        (asked, _), = self.sent_by(capture, "controller", STATE_QUERY)
        responses = self.sent_by(capture, "agent2", STATE_RESPONSE)
        self.assertEqual([(payload[0], len(payload)) for _, payload in responses], [(32, 769), (32, 769), (6, 145)])
        self.assertEqual([number == asked for number, _ in responses], [True, False, False])
        self.assertEqual({payload[at:at + 6].hex(":") for _, payload in responses for at in range(1, len(payload), 24)},
                         self.queried)

    def check_reports(self, capture):
        texts = [payload[8:].decode() for _, payload in self.sent_by(capture, "agent1", CLIENT_REPORT)]
        long_ones = [text for text in texts if "02:00:5E:AA:" in text]
        self.assertEqual([len(text) for text in long_ones[:2]], [1209, 186])
        for text in long_ones[:2]:
            self.assertEqual({text[at:at + 4] for at in range(0, len(text), 93)}, {"090{"})

    def check_notification(self, capture):
        sent = capture.fields(f"ieee1905.vendor_specific.oui == 0x000347 && eth.dst == {self.mesh.al_mac('agent2')} && "
                              'frame.interface_name contains "agent2"', "ieee1905.vendor_specific.info")
        expected = NOTIFICATION_HEADER + self.notified.replace(":", "") + LONG_FIGURES + "64" "0000"
        self.assertEqual([info.replace(":", "") for info, in sent], [expected])


class MadeUpStations(unittest.TestCase):
    """The lab's own figures."""

    def test_a_seed_gives_the_same_life_and_figures_that_fit_each_other(self):
        def life(seed):
            population = Population({"agent1": 2, "agent2": 3}, seed)
            population.spread(50)
            states = []
            for _ in range(200):
                population.live(2, 50)
                states.append({name: list(stations) for name, stations in population.stations.items()})
            return states

        states = life(7)
        self.assertEqual(states, life(7))
        self.assertNotEqual(states, life(8))
        places = {}
        for state in states:
            everybody = [station for stations in state.values() for station in stations]
            self.assertEqual(len({station.mac for station in everybody}), len(everybody), "a station twice at a time")
            self.assertIn(len(everybody), range(30, 51))
            for name, stations in state.items():
                for station in stations:
                    places.setdefault(station.mac, set()).add(name)
                    self.check_figures(station)
        self.assertGreater(len(places), 50, "stations come and go")
        self.assertTrue(any(len(names) == 2 for names in places.values()), "stations roam")
        signals = [station.rssi for state in states for stations in state.values() for station in stations]
        self.assertGreater(max(signals) - min(signals), 40)

    def check_figures(self, station):
        self.assertIn(station.band, BANDS)
        self.assertIn(station.rssi, range(WEAKEST, STRONGEST + 1))
        self.assertTrue(0 <= station.tx < COUNTER_SIZE and 0 <= station.rx < COUNTER_SIZE)
        rates = next(row.rates for row in station.band.standards if row.code == station.standard)
        self.assertTrue(rates[0] <= station.rates[1] <= station.rates[0] <= rates[-1])
        self.assertEqual(station.rates[0] == rates[-1], station.snr >= 3 * (len(rates) - 1))


if __name__ == "__main__":
    unittest.main()
