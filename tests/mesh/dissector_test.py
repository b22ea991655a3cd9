"""The Wireshark dissector: its tables are the plug-in's, it shows every message, and it notes each fault."""

import os
import re
import struct
import sys
import tempfile
import unittest
from itertools import zip_longest
from pathlib import Path
from xml.etree import ElementTree

from lab import DISSECTOR, NOTES, ROOT, dissect, run

sys.path.insert(0, str(ROOT / "lab"))
from meshlab.ieee1905 import (END, FLAG_LAST, VENDOR_OUI, TLV_VENDOR, VENDOR_SPECIFIC, IntelHeader,  # noqa: E402
                              cmdu, ethernet, mac_bytes, vendor_message, tlv)

SENDER, AGENT, OTHER = "66:77:88:99:aa:bb", "00:11:22:33:44:55", "02:aa:bb:cc:dd:ee"
FROM, TO, STATION = map(mac_bytes, (SENDER, AGENT, OTHER))
CONF_RESPONSE, POWER_REQUEST, CLIENT_REPORT = 1, 6, 36
ENVELOPE_FIELDS = 4
PCAP_HEADER = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1)


def u16(number):
    return struct.pack(">H", number)


def frame_of(*values, kind=VENDOR_SPECIFIC, tlv_type=TLV_VENDOR):
    return ethernet(AGENT, SENDER, cmdu(kind, 1, b"".join(tlv(tlv_type, value) for value in values) + END))


# A frame may be a pair (frame, bytes that the capture kept).
def capture_of(frames):
    file = tempfile.NamedTemporaryFile()
    file.write(PCAP_HEADER)
    for frame in frames:
        frame, kept = frame if isinstance(frame, tuple) else (frame, len(frame))
        file.write(struct.pack("<IIII", 0, 0, kept, len(frame)) + frame[:kept])
    file.flush()
    return file


def dissect_frames(frames, *names):
    with capture_of(frames) as file:
        rows = dissect(file.name, "_ws.col.Info", *NOTES, *names)
    assert len(rows) == len(frames)
    return rows


def notes(row):
    return {name.rpartition(".")[2] for name in NOTES if row[name]}


def framed(*pairs):
    text = "{" + ",".join(pairs) + "}"
    return f"{len(text):03d}{text}".encode()


def report(text, reporter=FROM):
    return reporter + u16(len(text)) + text


RECORD, INTERFACE = framed(f"0={OTHER.upper()}"), TO + b"\1\3"


def messages(family):
    header = (ROOT / "include" / "kv1905" / "vendor_messages.h").read_text()
    table = re.search(rf"#define KV_{family}_MESSAGES\(X\)(.*?)\n\n", header, re.S)[1]
    return {int(number, 0): name for name, number in re.findall(r"X\((\w+), (\w+)\)", table)}


# Payloads by the names of their types.
def samples():
    text = re.sub("//.*", "", (ROOT / "tests" / "support" / "sample_messages.h").read_text())
    text = re.sub(r"ZEROS_(\d+)", lambda size: f'"{"00" * int(size[1])}"', text)
    return {name: bytes.fromhex("".join(re.findall('"(.*?)"', payload)))
            for name, payload in re.findall(r"\{VEND_MSG_TYPE_(\w+),([^}]*)\}", text)}


NAMES, SAMPLES = messages("VENDOR"), samples()
INFO, TARGET = f" to {AGENT}", {"target.al_mac": AGENT}
RADIO = {"power.mac": "02:00:00:00:00:05", "power.media_type": "0x0105"}
STATION_FIELDS = {"station.media_type": "0x0105", "station.rssi": "-45", "station.snr": "30", "station.band": "6",
                  "station.signal_level": "5"}
# Message type, end of the Info column, and fields of each sample, without their "kv1905.".
MESSAGES = [(kind, SAMPLES[NAMES[kind]], info, fields) for kind, info, fields in (
    *((kind, INFO, TARGET) for kind in (2, 4, 8, 22, 26, 70, 76)),
    *((kind, "_RESP 7 (not this device's AL MAC)", {"result": "7"}) for kind in (5, 21, 23, 27, 32)),
    (0, "CONF_QUERY" + INFO, {**TARGET, "al_mac": SENDER, "type": "0", "payload_len": "6"}),
    (1, "CONF_RESP 3 attributes", {"conf.al_mac": SENDER, "conf.attr.type": "2,4,116", "conf.attr.len": "3,1,2",
                                   "conf.fw_version": "1.0", "conf.fw_upgrade_status": "4", "conf.uptime": "77"}),
    (3, "INTF_PWR_STATE_RESP 1 interface", {**RADIO, "power.al_mac": SENDER, "power.state": "2"}),
    (6, f"INTF_PWR_CTRL_REQ{INFO} 1 interface on", {**TARGET, **RADIO, "power.requested": "0"}),
    (7, "INTF_PWR_CTRL_RESP 1 interface", {**RADIO, "power.result": "0"}),
    (9, "WIFI_STATE_RESP 1 station", {**STATION_FIELDS, "station.mac": "02:00:00:00:00:09", "station.rate": "866",
                                      "station.tx": "123", "station.rx": "456"}),
    (20, "FW_CTRL_REQ option 3", {"firmware.option": "3", "firmware.topo_option": "2", "firmware.url": "ab"}),
    (25, f'COMMAND_REQ "2 {AGENT}"', {"command.words": "2", "command.text": f"2 {AGENT}"}),
    (33, f"LED_CTRL_REQ{INFO} on", {**TARGET, "led.option": "255"}),
    (34, "LED_CTRL_MCAST to 00:00:00:00:00:00 on", {"led.option": "1"}),
    (35, "LED_CTRL_RESP 255 (unknown)", {"result": "255"}),
    (36, "WIFI_CLIENT_MCAST2 1 station",
     {**STATION_FIELDS, "station.mac": "aa:bb:cc:00:11:22", "station.rate": "65535", "station.tx": "123",
      "station.rx": "4294967295", "station.tx_rate": "866", "station.rx_rate": "650"}),
    (69, "SYNC_CTRL_PWD_RESP", {"sync.al_mac": SENDER, "password.scrambled": "74 67 66 76 6a 7a"}),
    (77, 'SYNC_CTRL_COUNTRY_BCN_RESP "E0/1"', {"sync.al_mac": SENDER, "country": "E0/1"}),
)]

MDIDS = b"\xC0" + u16(19) + b"\2" + TO + u16(0x1234) + b"\1" + STATION + u16(17) + b"\0"
CONFIGURATION = b"\xD0" + u16(9) + b"\1" + b"\x41\1\x12\x34\0\2\0\5"
INTEL = IntelHeader(*map(bytes.fromhex, ("55cdabef", "060a", "112233445566", "0708")))
MEASURED = STATION + bytes(2) + struct.pack(">HHbb", 650, 866, -61, 30) + b"\x64\0\0"
BSS = {"bss.band": "0x02", "bss.attribute": "0x01", "bss.mdid": "0x1234", "bss.tci": "0x0002",
       "bss.ext_attribute": "0x05"}
EXTENSION = bytes.fromhex("0a61c4 010140 020101 03021234 04020002 070105")


def wsc(attribute):
    return frame_of(b"\x10\x4A\0\1\x10\x10\x49" + u16(len(attribute)) + attribute, kind=9, tlv_type=0x11)


# The same for data outside the vendor's envelope.
OTHERS = [
    (frame_of(VENDOR_OUI + MDIDS, kind=3), "MDID 2 BSSs",
     {"bss.bssid": f"{AGENT},{OTHER}", "bss.mdid": "0x1234,0x0011", "bss.enabled": "1,0"}),
    (frame_of(VENDOR_OUI + CONFIGURATION, kind=3), "BSS_CONFIG 1 BSS",
     {**BSS, "bss.band_index": "0x41", "bss.number": "1", "bss.wl_mode": "0"}),
    (frame_of(INTEL.message(0x6A, MEASURED)), f"RSSI_MEASUREMENT_NOTIFY of {OTHER} -61 dBm",
     {"intel.snr": "30", "intel.rx_rate": "650", "intel.tx_rate": "866", "intel.marker": "0x64"}),
    (wsc(EXTENSION), "AP configuration", {**BSS, "wsc.element.id": "1,2,3,4,7"}),
    (frame_of(vendor_message(SENDER, 25, b"\0\2\0\5" + b"2 x\ty")), 'COMMAND_REQ "2 x.y"', {"command.text": "2 x\\ty"}),
    (frame_of(vendor_message("c0:00:19:02:00:00", 5, b"\0")), "REBOOT_RESP 0 (success)", {"element.type": ""}),
]


def vendor_frame(kind, payload, length=None):
    return frame_of(vendor_message(SENDER, kind, payload, length))


# Errors and their expert notes; lengths are tested separately.
FAULTS = [
    (vendor_frame(13, b"ab"), {"unknown"}),
    (vendor_frame(10, b""), {"refused"}),
    ((vendor_frame(CONF_RESPONSE, SAMPLES["CONF_RESP"]), 50), {"capture"}),
    (vendor_frame(CONF_RESPONSE, FROM + b"\1\3\0\1a"), {"unknown"}),
    (vendor_frame(CONF_RESPONSE, FROM + b"\1\7" + u16(129) + b"a" * 129), {"ignored"}),
    (vendor_frame(POWER_REQUEST, TO + b"\x1F" + 31 * INTERFACE + b"\0"), {"refused"}),
    (vendor_frame(77, FROM + b"\4$(a)"), {"refused"}),
    (vendor_frame(CLIENT_REPORT, report(RECORD, TO)), {"refused"}),
    (vendor_frame(CLIENT_REPORT, report(b"009{0=}")), {"length"}),
    (vendor_frame(CLIENT_REPORT, report(framed("11=5", "-1=5"))), {"ignored"}),
    (wsc(EXTENSION[:6] + b"\x03\1\0"), {"refused"}),
    (wsc(EXTENSION + b"\5\1\0"), {"unknown"}),
]


class Tables(unittest.TestCase):
    # Reads the tables from a Wireshark that loaded the dissector from a user's directory.
    def test_types_and_results_match_the_plug_in(self):
        with tempfile.TemporaryDirectory() as home:
            libraries = Path(home) / ".local" / "lib" / "wireshark"
            libraries.mkdir(parents=True)
            (libraries / "plugins").symlink_to(DISSECTOR.parent)
            values = [line.split("\t") for line in run("tshark", "-G", "values", env={**os.environ, "HOME": home})
                      .stdout.splitlines() if "\tkv1905." in line]
        results = re.findall(r'^ +\{(\d+), "(.+)"\},$', (ROOT / "host" / "result_names.h").read_text(), re.M)
        for field, expected in (("type", NAMES), ("intel.type", messages("INTEL")),
                                ("result", {int(code): text for code, text in results})):
            shown = {int(row[2], 0): row[3] for row in values if row[1] == f"kv1905.{field}"}
            self.assertTrue(expected and shown == expected, f"{field}: {shown}, want {expected}")
        self.assertEqual({kind for kind, *_ in MESSAGES},
                         {code for code, name in NAMES.items() if not name.startswith("RESERVED")})

    def test_the_protocol_page_lists_the_fields_and_sizes_of_each_payload(self):
        rows = re.findall(r"^\| \d+ \| (\w+) \| (.*?) \|", (ROOT / "docs" / "protocol.md").read_text(), re.M)
        listed = {name: re.sub(r" \(.*?\)|each: ", "", text).split(", ") for name, text in rows if name in SAMPLES}
        with capture_of([vendor_frame(kind, payload) for kind, payload, *_ in MESSAGES]) as file:
            packets = ElementTree.fromstring(run("tshark", "-X", f"lua_script:{DISSECTOR}", "-r", file.name,
                                                 "-T", "pdml").stdout)
        for (kind, *_), packet in zip(MESSAGES, packets):
            fields = [f"{item.get('name')[7:]} {item.get('size')}" for item in packet.iter("field")
                      if item.get("name").startswith("kv1905.") and len(item) == 0][ENVELOPE_FIELDS:]
            for text, field in zip_longest(listed[NAMES[kind]], fields):
                if text and not text[-1].isdigit():
                    break  # the rest is of any length
                self.assertEqual(text, field, NAMES[kind])


class Frames(unittest.TestCase):
    def test_every_message_is_shown_without_a_note(self):
        cases = [(vendor_frame(kind, payload), info, fields) for kind, payload, info, fields in MESSAGES] + OTHERS
        rows = dissect_frames([case[0] for case in cases], *{f"kv1905.{name}" for case in cases for name in case[2]})
        for (_, info, fields), row in zip(cases, rows):
            with self.subTest(info):
                self.assertTrue(row["_ws.col.Info"].endswith(info), row["_ws.col.Info"])
                self.assertEqual({name: row[f"kv1905.{name}"] for name in fields}, fields)
                self.assertEqual(notes(row), set())

    def test_every_fault_has_an_expert_note(self):
        rows = dissect_frames([frame for frame, _ in FAULTS], "_ws.expert.message")
        for number, ((_, expected), row) in enumerate(zip(FAULTS, rows)):
            with self.subTest(number=number, note=row["_ws.expert.message"]):
                self.assertEqual(notes(row), expected)
                self.assertEqual("[malformed]" in row["_ws.col.Info"], bool(expected & {"short", "length", "refused"}))

    # Dissects each shorter payload, a longer one, and a wrong length field.
    def test_wrong_lengths_are_noted(self):
        optional = dict(re.findall(r"\{VEND_MSG_TYPE_(\w+),[^}]*, (\d+)\}",
                                   (ROOT / "tests/support/sample_messages.h").read_text()))
        cases = []
        for kind, payload, _, _ in MESSAGES:
            surplus = "refused" if kind == CLIENT_REPORT else "ignored"
            cases += [(kind, cut, "short", vendor_frame(kind, payload[:cut]))
                      for cut in range(len(payload) - int(optional.get(NAMES[kind], 0)))]
            cases += [(kind, "surplus", surplus, vendor_frame(kind, payload + b"\0")),
                      (kind, "wrong length", "length", vendor_frame(kind, payload, len(payload) + 1))]
        for (kind, what, expected, _), row in zip(cases, dissect_frames([frame for *_, frame in cases])):
            self.assertIn(expected, notes(row), f"type {kind}, {what}")

    # The last frame of a message shows all of it, in any order of frames.
    def test_fragments_are_shown_in_the_last_frame(self):
        messages = (CONF_RESPONSE, SAMPLES["CONF_RESP"]), (POWER_REQUEST, TO + b"\0\2")
        whole = b"".join(tlv(TLV_VENDOR, vendor_message(SENDER, *message)) for message in messages) + END
        rows = dissect_frames([ethernet(AGENT, SENDER, cmdu(VENDOR_SPECIFIC, 1, *fragment))
                               for fragment in ((whole[20:], 1, FLAG_LAST), (whole[:20], 0, 0))])
        self.assertTrue(rows[1]["_ws.col.Info"].startswith("CONF_RESP 3 attributes, INTF_PWR_CTRL_REQ"), rows)
