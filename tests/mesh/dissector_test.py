"""The Wireshark dissector: its tables follow the plug-in's, it shows every message, and what is wrong it says."""

import os
import random
import re
import struct
import sys
import tempfile
import unittest
from pathlib import Path

from lab import ROOT, Capture, Mesh, MeshTest, poll, run

sys.path.insert(0, str(ROOT / "lab"))
from meshlab.ieee1905 import (END, INTEL_OUI, MAKER_OUI, TLV_VENDOR, VENDOR_SPECIFIC, IntelHeader,  # noqa: E402
                              cmdu, ethernet, mac_bytes, maker_message, tlv)

UNCONFIGURED = {**os.environ, "HOME": "/nonexistent"}  # where the dissector is installed it must not load twice
SCRIPT = ROOT / "tools" / "wireshark" / "kv1905.lua"
EXPERTS = ("short", "length", "refused", "ignored", "unknown", "capture")
ALL_NOTES = tuple(f"kv1905.expert.{name}" for name in EXPERTS)

SENDER, AGENT, OTHER = "02:00:5e:00:01:00", "02:00:5e:00:03:00", "02:aa:bb:cc:dd:ee"
FROM, TO, STATION = map(mac_bytes, (SENDER, AGENT, OTHER))
TOPOLOGY_RESPONSE, AP_CONFIGURATION_WSC, TLV_WSC = 0x0003, 0x0009, 0x11
CONF_RESPONSE, POWER_REQUEST, CLIENT_REPORT = 1, 6, 36
PCAP_HEADER = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1)


def u16(number):
    return struct.pack(">H", number)


def frame_of(*values, kind=VENDOR_SPECIFIC, tlv_type=TLV_VENDOR):
    return ethernet(AGENT, SENDER, cmdu(kind, 1, b"".join(tlv(tlv_type, value) for value in values) + END))


def dissect(path, *names, display_filter=""):
    """Per frame the texts of these fields: a field that occurs more than once has its values joined by commas."""
    names = ("_ws.lua.error", *names)
    fields = [word for name in names for word in ("-e", name)]
    done = run("tshark", "-X", f"lua_script:{SCRIPT}", "-r", path, "-Y", display_filter, "-T", "fields",
               "-E", "separator=/t", *fields, env=UNCONFIGURED)
    assert done.returncode == 0, done.stderr
    rows = [dict(zip(names, line.split("\t"))) for line in done.stdout.splitlines()]
    errors = [row["_ws.lua.error"] for row in rows if row["_ws.lua.error"]]
    assert not errors, errors[:3]
    return rows


def dissect_frames(frames, *names):
    """kept: the frame may be a pair (frame, bytes that the capture kept)."""
    with tempfile.NamedTemporaryFile(suffix=".pcap") as file:
        file.write(PCAP_HEADER)
        for frame in frames:
            frame, kept = frame if isinstance(frame, tuple) else (frame, len(frame))
            file.write(struct.pack("<IIII", 0, 0, kept, len(frame)) + frame[:kept])
        file.flush()
        rows = dissect(file.name, "_ws.col.Info", *ALL_NOTES, *names)
    assert len(rows) == len(frames)
    return rows


def notes(row):
    return {name.rpartition(".")[2] for name in ALL_NOTES if row[name]}


def framed(*pairs):
    text = "{" + ",".join(pairs) + "}"
    return f"{len(text):03d}{text}".encode()


def report(text, length=None, reporter=FROM):
    return reporter + u16(len(text) if length is None else length) + text


RECORD = framed(f"0={OTHER.upper()}", "1=0105", "2=866", "3=-45", "10=30", "4=5", "5=4294967295", "6=456", "7=867",
                "8=650", "9=6")
INTERFACE, LAST_INTERFACE = TO + b"\1\3", STATION + b"\1\5"
ATTRIBUTES = FROM + b"\3" + b"\0\0\1\1" + b"\7\0\3KV1" + b"\x74\0\0"
BINARY_STATION = STATION + struct.pack(">HHhhBBII", 0x0105, 866, -45, 30, 5, 6, 4294967295, 456)
STATION_FIELDS = {"mac": OTHER, "media_type": "0x0105", "rate": "866", "rssi": "-45", "snr": "30", "signal_level": "5",
                  "band": "6", "tx": "4294967295", "rx": "456"}


def named(prefix, values):
    return {f"{prefix}.{name}": value for name, value in values.items()}


TARGET = {"target.al_mac": AGENT}
TARGETED = {2: "INTF_PWR_STATE_QUERY", 4: "REBOOT_REQ", 8: "WIFI_STATE_REQ", 22: "RESET_DEFAULT_REQ",
            26: "PARTIAL_RESET_DEFAULT_REQ", 70: "SYNC_CTRL_PWD_REQ", 76: "SYNC_CTRL_COUNTRY_BCN_REQ"}
RESULTS = {5: "REBOOT_RESP", 21: "FW_CTRL_RESP", 23: "RESET_DEFAULT_RESP", 27: "PARTIAL_RESET_DEFAULT_RESP",
           32: "COMMAND_RESP", 35: "LED_CTRL_RESP"}
# Message type, payload, Info column, fields without their "kv1905.".
MESSAGES = [
    *((kind, TO, f"{name} to {AGENT}", TARGET) for kind, name in TARGETED.items()),
    *((kind, b"\7", f"{name} 7 (Not this device)", {"result": "7"}) for kind, name in RESULTS.items()),
    (0, TO, f"CONF_QUERY to {AGENT}", {**TARGET, "al_mac": SENDER, "type": "0", "payload_len": "6", "marker": "00 01"}),
    (1, ATTRIBUTES, "CONF_RESP 3 attributes",
     {"conf.al_mac": SENDER, "conf.attr.type": "0,7,116", "conf.attr.len": "1,3,0", "conf.reboot_cap": "1",
      "conf.model_name": "KV1"}),
    (3, FROM + b"\2" + INTERFACE + b"\0" + LAST_INTERFACE + b"\2", "INTF_PWR_STATE_RESP 2 interfaces",
     {"power.al_mac": SENDER, "power.mac": f"{AGENT},{OTHER}", "power.media_type": "0x0103,0x0105",
      "power.state": "0,2"}),
    (6, TO + b"\1" + INTERFACE + b"\2", f"INTF_PWR_CTRL_REQ to {AGENT} 1 interface off",
     {**TARGET, "power.mac": AGENT, "power.requested": "2"}),
    (7, b"\1" + LAST_INTERFACE + b"\x40", "INTF_PWR_CTRL_RESP 1 interface", {"power.mac": OTHER, "power.result": "64"}),
    (9, b"\1" + BINARY_STATION, "WIFI_STATE_RESP 1 station", named("station", STATION_FIELDS)),
    (20, b"\1\0\0", "FW_CTRL_REQ option 1", {"firmware.option": "1", "firmware.len": "0", "firmware.topo_option": ""}),
    (20, b"\2\0\4\1abc", "FW_CTRL_REQ option 2", {"firmware.topo_option": "1", "firmware.url": "abc"}),
    (25, u16(2) + u16(5) + b"2 x\ty", 'COMMAND_REQ "2 x.y"', {"command.words": "2", "command.text": "2 x\\ty"}),
    (33, TO + b"\0", f"LED_CTRL_REQ to {AGENT} off", {**TARGET, "led.option": "0"}),
    (34, bytes(6) + b"\2", "LED_CTRL_MCAST to 00:00:00:00:00:00 on", {"led.option": "2"}),
    (36, report(RECORD), "WIFI_CLIENT_MCAST2 1 station",
     named("station", {**STATION_FIELDS, "tx_rate": "867", "rx_rate": "650"})),
    (36, report(b"002{}" + RECORD), "WIFI_CLIENT_MCAST2 2 stations", {"report.al_mac": SENDER, "station.mac": OTHER}),
    (69, FROM + u16(3) + b"\1\2\3" + bytes(253), "SYNC_CTRL_PWD_RESP",
     {"sync.al_mac": SENDER, "password.len": "3", "password.scrambled": "01 02 03"}),
    (77, FROM + b"\4E0/1", 'SYNC_CTRL_COUNTRY_BCN_RESP "E0/1"', {"sync.al_mac": SENDER, "country": "E0/1"}),
]

MDIDS = b"\xC0" + u16(19) + b"\2" + TO + u16(0x1234) + b"\1" + STATION + u16(17) + b"\0"
CONFIGURATION = b"\xD0" + u16(9) + b"\1" + b"\x41\1\x12\x34\0\2\0\5"
INTEL = IntelHeader(*map(bytes.fromhex, ("55cdabef", "060a", "112233445566", "0708")))
FIGURES = STATION + bytes(2) + struct.pack(">HHbb", 650, 866, -61, 30)
EXTENSION = bytes.fromhex("0a61c4 010140 020101 03021234 04020002 070105")


def wsc(attribute):
    return frame_of(b"\x10\x4A\0\1\x10" + b"\x10\x49" + u16(len(attribute)) + attribute,
                    kind=AP_CONFIGURATION_WSC, tlv_type=TLV_WSC)


def element(value):
    return frame_of(MAKER_OUI + value, kind=TOPOLOGY_RESPONSE)


# The same for what travels outside the maker's envelope; the Info column only ends so.
OTHERS = [
    (element(MDIDS), "MDID 2 BSSs",
     {"bss.bssid": f"{AGENT},{OTHER}", "bss.mdid": "0x1234,0x0011", "bss.enabled": "1,0"}),
    (element(CONFIGURATION), "BSS_CONFIG 1 BSS",
     {"bss.band_index": "0x41", "bss.band": "0x02", "bss.number": "1", "bss.attribute": "0x01", "bss.mdid": "0x1234",
      "bss.tci": "0x0002", "bss.wl_mode": "0", "bss.ext_attribute": "0x05"}),
    (frame_of(INTEL.message(0x67, STATION)), f"RSSI_MEASUREMENT_REQ of {OTHER}",
     {"intel.type": "0x67", "intel.station": OTHER, "intel.field11": "11 22 33 44 55 66"}),
    (frame_of(INTEL.message(0x6A, FIGURES + b"\x64\0\0")), f"RSSI_MEASUREMENT_NOTIFY of {OTHER} -61 dBm",
     {"intel.rssi": "-61", "intel.snr": "30", "intel.rx_rate": "650", "intel.tx_rate": "866", "intel.marker": "0x64"}),
    (wsc(EXTENSION), "AP configuration",
     {"wsc.element.id": "1,2,3,4,7", "bss.band": "0x02", "bss.attribute": "0x01", "bss.mdid": "0x1234",
      "bss.tci": "0x0002", "bss.ext_attribute": "0x05"}),
    (frame_of(maker_message("c0:00:19:02:00:00", 5, b"\0")), "REBOOT_RESP 0 (Success)", {"element.type": ""}),
    (frame_of(b"\xAA\xBB\xCC" + bytes(20)), "Vendor specific", {"type": "", "intel.type": ""}),
    (wsc(b"\0\x37\x2A\0\1\x20"), "(WSC)", {"wsc.element.id": ""}),
]


def maker_frame(kind, payload, length=None):
    return frame_of(maker_message(SENDER, kind, payload, length))


def report_frame(*arguments, **options):
    return maker_frame(CLIENT_REPORT, report(*arguments, **options))


def attribute_frame(*attributes):
    return maker_frame(CONF_RESPONSE, FROM + bytes([len(attributes)]) + b"".join(attributes))


# What is wrong, and the notes that say so.
FAULTS = {
    "unknown type": (maker_frame(13, b"ab"), {"unknown"}),
    "reserved type": (maker_frame(10, b""), {"refused"}),
    "no whole OUI": (frame_of(b"\x02\x4E"), {"short"}),
    "OUI alone": (frame_of(MAKER_OUI), {"short"}),
    "header cut": (frame_of(maker_message(SENDER, 0, TO)[:14]), {"short"}),
    "bytes behind the payload": (maker_frame(5, b"\0\0", length=1), {"ignored"}),
    "TLV length past the frame": (
        ethernet(AGENT, SENDER, cmdu(VENDOR_SPECIFIC, 1, tlv(TLV_VENDOR, maker_message(SENDER, 5, b"\0"), 99))),
        {"length"}),
    "cut by the capture": ((maker_frame(CONF_RESPONSE, ATTRIBUTES), 50), {"capture"}),
    "attribute past the payload": (attribute_frame(b"\7\xFF\xFFabc"), {"short"}),
    "unknown attribute": (attribute_frame(b"\x03\0\1a"), {"unknown"}),
    "long attribute": (attribute_frame(b"\7" + u16(129) + b"a" * 129), {"ignored"}),
    "byte without its byte": (attribute_frame(b"\0\0\0"), {"ignored"}),
    "31 interfaces": (maker_frame(POWER_REQUEST, TO + b"\x1F" + 31 * INTERFACE + b"\0"), {"refused"}),
    "long URL": (maker_frame(20, b"\1" + u16(1025) + b"\1" + b"u" * 1024), {"refused"}),
    "long country": (maker_frame(77, FROM + b"\5ABCDE"), {"refused"}),
    "country for a shell": (maker_frame(77, FROM + b"\4$(a)"), {"refused"}),
    "another's report": (report_frame(RECORD, reporter=TO), {"refused"}),
    "report length not the payload's": (report_frame(RECORD, length=len(RECORD) - 1), {"refused", "length", "ignored"}),
    "report too long": (report_frame(b"a" * 1301), {"refused", "length"}),
    "record past the text": (report_frame(b"009{0=}"), {"length"}),
    "record length cut": (report_frame(RECORD + b"01"), {"short"}),
    "piece without =": (report_frame(framed("5=1", "x")), {"refused"}),
    "value too long": (report_frame(framed("5=" + 128 * "1")), {"refused"}),
    "unknown field number": (report_frame(framed("11=5", "-1=5")), {"ignored"}),
    "no MAC": (report_frame(framed("0=02:00:5e")), {"ignored"}),
    "no number": (report_frame(framed("3=x")), {"ignored"}),
    "number too large": (report_frame(framed("9=300")), {"ignored"}),
    "bytes behind a NUL": (report_frame(RECORD + b"\0abc"), {"ignored"}),
    "Intel's figures cut": (frame_of(INTEL.message(0x68, FIGURES + b"\0\0")), {"short"}),
    "another Intel type": (frame_of(INTEL_OUI + bytes(30)), {"unknown"}),
    "element length": (element(MDIDS[:2] + b"\x14" + MDIDS[3:]), {"length"}),
    "element with fewer BSSs": (element(MDIDS[:-9]), {"length", "short"}),
    "element with more BSSs": (element(CONFIGURATION[:1] + u16(10) + CONFIGURATION[3:] + b"\0"), {"length"}),
    "element cut by the capture": ((element(MDIDS), 40), {"capture"}),
    "element shorter than its TLV": (element(CONFIGURATION + b"\0"), {"length"}),
    "sub-element of another size": (wsc(EXTENSION[:6] + b"\x03\1\0" + b"\5\1\0"), {"refused"}),
    "unknown sub-element": (wsc(EXTENSION + b"\5\1\0"), {"unknown"}),
    "sub-element past the attribute": (wsc(EXTENSION[:-1]), {"short"}),
}


class Tables(unittest.TestCase):
    """Read from a Wireshark that found the dissector where users put it."""

    @classmethod
    def setUpClass(cls):
        with tempfile.TemporaryDirectory() as home:
            plugins = Path(home) / ".local" / "lib" / "wireshark" / "plugins"
            plugins.mkdir(parents=True)
            (plugins / SCRIPT.name).symlink_to(SCRIPT)
            rows = [run("tshark", "-G", what, env={**os.environ, "HOME": home}).stdout.splitlines()
                    for what in ("values", "fields")]
        values, fields = ([line.split("\t") for line in lines if "\tkv1905." in line] for lines in rows)
        cls.types = {name: {int(row[2], 0): row[3] for row in values if row[1] == name} for name in
                     ("kv1905.type", "kv1905.intel.type", "kv1905.conf.attr.type")}
        cls.kinds = {row[2]: row[3] for row in fields}

    def source(self, path):
        return (ROOT / "plugin" / path).read_text()

    def enumerators(self, path, prefix):
        found = re.findall(rf"^\s*{prefix}(\w+) = (\w+),", self.source(path), re.M)
        self.assertTrue(found)
        return {name: int(value, 0) for name, value in found}

    def test_message_types_are_the_catalogues(self):
        catalogue = self.source("message_catalogue.cpp")
        codes = self.enumerators("protocol/message_row.h", "VEND_MSG_TYPE_")
        limit = codes.pop("LIMIT")
        rows = dict(re.findall(r'\{VEND_MSG_TYPE_(\w+),\s*"(\w+)"', catalogue))
        rows.update((name, name) for name in map("RESERVED_{}".format, re.findall(r"RESERVED\((\d+)\)", catalogue)))
        self.assertEqual(set(rows), set(codes), "every code has a row, and this test reads every row")
        self.assertLess(max(codes.values()), limit)
        self.assertEqual(self.types["kv1905.type"], {codes[name]: text for name, text in rows.items()})
        self.assertEqual({kind for kind, *_ in MESSAGES},
                         {code for name, code in codes.items() if not name.startswith("RESERVED")})

        intel = self.enumerators("features/wifi_clients/rssi_measurement.h", "INTEL_MSG_TYPE_")
        rows = dict(re.findall(r'\{INTEL_MSG_TYPE_(\w+),\s*"(\w+)"', catalogue))
        self.assertEqual(self.types["kv1905.intel.type"], {intel[name]: text for name, text in rows.items()})

    def test_configuration_attributes_are_the_plugins(self):
        path = "features/config_exchange/config_exchange.cpp"
        codes = self.enumerators(path, "CONF_ATTR_")
        self.assertEqual(self.types["kv1905.conf.attr.type"], {code: name for name, code in codes.items()})
        kinds = dict(re.findall(r"ATTRIBUTE\(CONF_ATTR_(\w+), (\w+),", self.source(path)))
        self.assertEqual(set(kinds), set(codes))
        for name, kind in kinds.items():
            self.assertEqual(self.kinds[f"kv1905.conf.{name.lower()}"], "FT_STRING" if kind == "Text" else "FT_UINT8")


class Frames(unittest.TestCase):
    maxDiff = None

    def test_every_message_is_shown_without_a_complaint(self):
        cases = [(maker_frame(kind, payload), info, fields) for kind, payload, info, fields in MESSAGES] + OTHERS
        names = sorted({f"kv1905.{name}" for _, _, fields in cases for name in fields})
        rows = dissect_frames([frame for frame, _, _ in cases], *names)
        for (_, info, fields), row in zip(cases, rows):
            with self.subTest(info):
                self.assertTrue(row["_ws.col.Info"].endswith(info), row["_ws.col.Info"])
                self.assertEqual({name: row[f"kv1905.{name}"] for name in fields}, fields)
                self.assertEqual(notes(row), set())

    def test_every_fault_is_noted(self):
        rows = dissect_frames([frame for frame, _ in FAULTS.values()], "_ws.expert.message")
        for (name, (_, expected)), row in zip(FAULTS.items(), rows):
            with self.subTest(name):
                self.assertEqual(notes(row), expected, row["_ws.expert.message"])
                self.assertEqual("[malformed]" in row["_ws.col.Info"], bool(expected & {"short", "length", "refused"}))

    def test_lengths_around_every_layout(self):
        """Shorter is noted at every byte, longer too, and a length that lies never passes for the truth."""
        cases = []
        for kind, payload, _, _ in MESSAGES:
            cases += [(kind, cut, maker_frame(kind, payload[:cut]), "short") for cut in range(len(payload))]
            cases += [(kind, "surplus", maker_frame(kind, payload + b"\0"),
                       "refused" if kind == CLIENT_REPORT else "ignored"),
                      (kind, "lie", maker_frame(kind, payload, len(payload) + 1), "length")]
        for (kind, what, _, expected), row in zip(cases, dissect_frames([frame for _, _, frame, _ in cases])):
            self.assertIn(expected, notes(row), f"type {kind}, {what}")

    def test_hostile_bytes_do_not_break_it(self):
        chance = random.Random(1905)
        frames = [maker_frame(kind, payload) for kind, payload, _, _ in MESSAGES] + [frame for frame, _, _ in OTHERS]
        hostile = []
        for frame in frames * 60:
            bytes_of = bytearray(frame)
            for _ in range(chance.randint(1, 4)):
                bytes_of[chance.randrange(20, len(bytes_of))] = chance.choice((0, 1, 0x2C, 0x3D, 0x7F, 0x80, 0xFF))
            hostile.append(bytes(bytes_of[:chance.choice((len(bytes_of), chance.randint(22, len(bytes_of))))]))
        dissect_frames(hostile)

    def test_fragments(self):
        """Whatever the cut, order and ends, the last frame of a message shows all of it."""
        first, second = (tlv(TLV_VENDOR, maker_message(SENDER, *message))
                         for message in ((CONF_RESPONSE, ATTRIBUTES), (POWER_REQUEST, TO + b"\0\2")))
        whole = first + second + END
        ways = {
            "at a TLV": [(0, first, 0), (1, second + END, 0x80)],
            "at any byte": [(0, whole[:20], 0), (1, whole[20:], 0x80)],
            "in another order": [(1, second + END, 0x80), (0, first, 0)],
            "an end in each, and padded": [(0, first + END, 0), (1, second + END + bytes(30), 0x80)],
            "the last missing": [(0, first, 0)],
        }
        rows = iter(dissect_frames([
            ethernet(AGENT, SENDER, cmdu(VENDOR_SPECIFIC, number, body, fragment, flags))
            for number, fragments in enumerate(ways.values()) for fragment, body, flags in fragments]))
        for way, fragments in ways.items():
            info = [next(rows)["_ws.col.Info"] for _ in fragments][-1]
            expected = "Vendor specific" if way == "the last missing" else "CONF_RESP 3 attributes, INTF_PWR_CTRL_REQ"
            self.assertTrue(info.startswith(expected), f"{way}: {info}")


class LiveMesh(MeshTest):
    """What real devices send, against what they themselves say they hold."""

    SEEN = {0, 1, 4, 5, 6, 7, 8, 9, 20, 21, 22, 23, 25, 26, 27, 32, 33, 35, 36, 69, 70, 76, 77}

    def app(self, *words):
        return self.mesh.exec("controller", "kv1905App", *words)

    def test_a_lab_capture(self):
        capture = Capture()
        with tempfile.NamedTemporaryFile("w") as secret:
            secret.write("Geheim\n")
            secret.flush()
            os.chmod(secret.name, 0o644)
            with Mesh("--devices", "2", "--movable-clock", "--password-file", secret.name,
                      "--capture", capture.path) as self.mesh:
                self.mesh.await_learnt("agent1")
                self.operate()
                agent = self.mesh.device_in("agent1")
        self.check_types(capture)
        self.check_configuration(capture, agent)
        self.check_stations(capture)

    def operate(self):
        agent, controller = self.mesh.al_mac("agent1"), self.mesh.al_mac("controller")
        self.mesh.call("stations", "set", "agent1", "--count", "20")
        lists = self.mesh.exec("agent1", "sh", "-c", "cat /tmp/assoc_list.24g /tmp/assoc_list.5g").stdout
        self.listed = {line.split()[0]: line.split() for line in lists.splitlines()}
        self.mesh.call("clock", "agent1", "+11")
        poll(lambda: len(self.mesh.model()["kv1905"]["StationList"]) >= 20, 15, "the stations at the controller")
        self.app("query-stations", agent)
        poll(lambda: "received VEND_MSG_TYPE_WIFI_STATE_RESP" in self.mesh.log("controller"), 10, "the agent's answer")
        self.mesh.exec("controller", "peer", "ask-rssi", "--to", agent, "--station", min(self.listed))
        for words in (("power", agent, agent[:-2] + "20", "0103", "2"), ("firmware", agent, "1", "1", "http://x/i"),
                      ("led", agent, "0"), ("command", agent, "2", controller), ("partial-reset", agent),
                      ("reset", agent), ("reboot", agent)):
            self.assertNotEqual(self.app(*words).stdout, "", words)

    def check_types(self, capture):
        rows = dissect(capture.path, "kv1905.type", "kv1905.intel.type", "kv1905.wsc.element.id", "kv1905.element.type",
                       "_ws.col.Info", "_ws.expert.message", *ALL_NOTES, display_filter="kv1905")
        self.assertEqual([row for row in rows if notes(row)], [])
        self.assertLessEqual(self.SEEN, {int(row["kv1905.type"]) for row in rows if row["kv1905.type"]})
        for name, expected in (("intel.type", {"0x67", "0x68"}), ("wsc.element.id", {"1,2,3,4,7"}),
                               ("element.type", {"0xc0,0xd0"})):
            self.assertEqual({row[f"kv1905.{name}"] for row in rows} - {""}, expected)

    def check_configuration(self, capture, agent):
        names = {"ModelName": "model_name", "FirmwareVersion": "fw_version", "ProtocolVersion": "proto_version"}
        rows = dissect(capture.path, *(f"kv1905.conf.{name}" for name in names.values()),
                       display_filter=f"kv1905.conf.al_mac == {agent['ID']}")
        self.assertEqual({tuple(row[f"kv1905.conf.{name}"] for name in names.values()) for row in rows},
                         {tuple(agent[key] for key in names)})

    def check_stations(self, capture):
        """As the driver listed them, in both kinds of message."""
        names = [f"kv1905.station.{name}" for name in ("mac", "rssi", "snr", "tx", "rx")]
        for kind in (9, CLIENT_REPORT):
            shown = {}
            for row in dissect(capture.path, *names, display_filter=f"kv1905.type == {kind} && kv1905.station.mac"):
                columns = [row[name].split(",") for name in names]
                shown.update((mac, figures) for mac, *figures in zip(*columns))
            self.assertEqual(shown, {mac: [line[2], line[3], line[6], line[7]] for mac, line in self.listed.items()})


if __name__ == "__main__":
    unittest.main()
