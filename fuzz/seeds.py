#!/usr/bin/env python3
"""Writes the hand-made part of the corpora: corpus/TARGET/seed-NAME. Run it again after adding a row."""
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
LOCAL = bytes.fromhex("001122334455")
AGENT = bytes.fromhex("66778899aabb")
SECOND = bytes.fromhex("02005e000300")
STATION = bytes.fromhex("021122334401")


def u16(number):
    return number.to_bytes(2, "big")


def u32(number):
    return number.to_bytes(4, "big")


def steps(*rows):
    """Rows of kind, argument and body, as common/steps.h reads them."""
    return b"".join(bytes([kind, argument]) + u16(len(body)) + body for kind, argument, body in rows)


# ---- Messages of the maker's set: type, payload

def attribute(number, value):
    return bytes([number]) + u16(len(value)) + value


ATTRIBUTES = b"".join(attribute(number, b"1.25") for number in (*range(17), *range(101, 107), 116, 200))
REPORT = b"078{0=AA:BB:CC:00:11:22,1=0105,2=866,3=-45,10=30,4=5,5=123,6=456,7=866,8=650,9=6}"
STATION_RECORD = STATION + u16(0x0105) + u16(866) + u16(0xFFD3) + u16(30) + b"\x05\x06" + u32(1) + u32(2)
POWER_ENTRY = SECOND + u16(0x0105)


def command(text):
    return u16(len(text.split())) + u16(len(text)) + text


MESSAGES = {
    "conf_query": (0, LOCAL),
    "conf_resp": (1, AGENT + bytes([25]) + ATTRIBUTES),
    "power_query": (2, LOCAL),
    "power_resp": (3, AGENT + bytes([2]) + (POWER_ENTRY + b"\x02") * 2),
    "reboot": (4, LOCAL),
    "reboot_resp": (5, b"\x00"),
    "power_ctrl": (6, LOCAL + bytes([2]) + POWER_ENTRY + bytes(6) + u16(0x0103) + b"\x02"),
    "power_ctrl_resp": (7, bytes([1]) + POWER_ENTRY + b"\x40"),
    "wifi_state": (8, LOCAL),
    "wifi_state_resp": (9, bytes([2]) + STATION_RECORD * 2),
    "firmware": (20, b"\x03" + u16(17) + b"\x01" + b"http://host/image"[:16]),
    "firmware_resp": (21, b"\x10"),
    "reset": (22, LOCAL),
    "partial_reset": (26, LOCAL),
    "command_reboot": (25, command(b"2 00:11:22:33:44:55")),
    "command_power": (25, command(b"3 00:11:22:33:44:55 02:00:5e:00:03:00 0105 2")),
    "command_firmware": (25, command(b"9 00:11:22:33:44:55 1 1 http://host/image")),
    "command_reset": (25, command(b"20 00:11:22:33:44:55")),
    "command_resp": (32, b"\x07"),
    "led": (33, LOCAL + b"\x01"),
    "led_mcast": (34, bytes(6) + b"\x00"),
    "client_report": (36, AGENT + u16(len(REPORT) * 2) + REPORT * 2),
    "password": (69, AGENT + u16(6) + b"secret".ljust(256, b"\0")),
    "password_req": (70, LOCAL),
    "country_req": (76, LOCAL),
    "country": (77, AGENT + b"\x02US"),
}

# The catalogue's types in order, the last one for a type that it does not have.
TYPES = [0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 16, 17, 18, 19, 20, 21, 22, 23, 25, 26, 27, 32, 33, 34, 35, 36, 42, 43,
         44, 49, 50, 69, 70, 76, 77, 78]
MESSAGE, NO_LENGTH, WRONG_LENGTH, VALUE, INTEL, PEER, ADVANCE, CLOCK, QUERY, COMMAND, DEVICE, HOST, FAILURE = range(13)


def message_step(name, kind=MESSAGE):
    number, payload = MESSAGES[name]
    return kind, TYPES.index(number), payload


def receive():
    seeds = {name: steps(message_step(name)) for name in MESSAGES}
    seeds["query_and_answer"] = steps((QUERY, 0, b""), message_step("conf_resp"), (QUERY, 2, b""), (ADVANCE, 2, b""),
                                      (ADVANCE, 2, b""), (PEER, 4, b""), message_step("power_resp"), (ADVANCE, 9, b""))
    seeds["stations_age"] = steps(message_step("client_report"), message_step("wifi_state_resp"), (ADVANCE, 200, b""),
                                  message_step("client_report"), (ADVANCE, 255, b""), (CLOCK, 4, b""))
    seeds["many_queries"] = steps((QUERY, 0, b"\x50"), (ADVANCE, 2, b""), (ADVANCE, 2, b""), (QUERY, 2, b"\x50"))
    seeds["upgrading"] = steps(*((MESSAGE, 1, AGENT + b"\x02" + attribute(4, bytes([status])) + attribute(11, b"7142"))
                                 for status in (4, 4, 5, 0)), (COMMAND, 2, AGENT + b"\x01\0\x01\0\x03\0url"))
    seeds["long_attributes"] = steps(*((MESSAGE, 1, AGENT + b"\x04" + b"".join(
        attribute(number, b"v" * length) for number in (0, 9, 12, 18))) for length in (15, 16, 31, 32, 127, 128, 129)))
    seeds["many_attributes"] = steps((MESSAGE, 1, AGENT + b"\xff" + b"".join(attribute(n, b"") for n in range(255))))
    seeds["many_stations"] = steps((MESSAGE, TYPES.index(9), b"\x3c" + b"".join(
        bytes([2, 0, 0, 0, 1, n]) + STATION_RECORD[6:] for n in range(60))))
    seeds["upgrade"] = steps((COMMAND, 4, b"\x03\0\0\0"), (COMMAND, 4, b"\x04\0\0\0"), message_step("reboot"),
                             message_step("reset"), (COMMAND, 4, b"\x05\0\0\0"))
    seeds["no_length"] = steps(message_step("conf_resp", NO_LENGTH), message_step("client_report", NO_LENGTH))
    seeds["wrong_length"] = steps((WRONG_LENGTH, 1, u16(300) + MESSAGES["conf_resp"][1]))
    seeds["intel"] = steps((ADVANCE, 4, b""), (INTEL, 0x67, bytes(12) + STATION))
    seeds["failures"] = steps((FAILURE, 0, b""), message_step("conf_resp"), (FAILURE, 7, b""),
                              message_step("client_report"), (FAILURE, 1, b""), message_step("conf_query"),
                              (FAILURE, 5, b""), message_step("password"))
    seeds["devices"] = steps((PEER, 3, b""), message_step("conf_resp"), (DEVICE, 0, b""), message_step("wifi_state_resp"),
                             (DEVICE, 1, b""), (ADVANCE, 10, b""), (PEER, 1, b"\x01"), message_step("client_report"))
    seeds["refusing_host"] = steps((HOST, 15, b""), message_step("reboot"), message_step("conf_query"))
    seeds["commands"] = steps((COMMAND, 0, AGENT), (COMMAND, 1, AGENT + b"\x01\0" + POWER_ENTRY),
                              (COMMAND, 5, AGENT + b"\x01"), (COMMAND, 9, b"3 616263"), (COMMAND, 11, bytes(7) + b"US"),
                              (COMMAND, 12, b""), (COMMAND, 7, AGENT + b"\x01\0\x03\0abc"))
    return seeds


def intel():
    request = bytes.fromhex("000347") + bytes(6) + b"\x67" + bytes(12) + STATION
    line = b"02:11:22:33:44:01 65000 -50 30 1 wl0 100 200 65000 52000 8\n".ljust(128)
    return {"request": b"\x01" + request, "known": b"\x05" + line + request, "no_length": b"\x00" + request,
            "response": b"\x02" + bytes.fromhex("000347") + bytes(6) + b"\x68" + bytes(22) + b"\x01" + STATION + bytes(6),
            "notify": b"\x07" + line + bytes(32) + b"\x01" + STATION + bytes(6)}


def client_report():
    return {"one": REPORT, "three": REPORT * 3, "unknown_field": b"010{99=x,1=5}", "empty_record": b"002{}",
            "short": REPORT[:40], "no_equals": b"006{abcd}", "signs": b"016{3=-300,10=+5}.", "long_key": b"009{0001=2}",
            "full": b"002{}" * 260, "long_value": b"512{0=" + b"x" * 508 + b"}", "long_text": b"132{0=" + b"x" * 128 + b"}"}


def local_files():
    conf = (b"ModelName=KV-1\nFirmwareVersion=1.2\n24GMainSSID=home\n5GMainSSID=home5\n24GMainBSSID=02:00:00:00:00:01\n"
            b"5GMainBSSID=02:00:00:00:00:02\nMode=repeater\n24GMainIfname=wl0\n5GMainIfname=wl1\n24GPower=1\n5GPower=0\n"
            b"LedEnable=1\nautoRoleSelect=1\nautoRoleSelectOnlyWhenGwFound=1\n")
    version = b"# comment\nAppVersion=2.0\nL2DeviveCtrl=1\nWiFiAutoCfg=1\nWiFiOnOff=1\nFwUpgrade=1\nLEDOnOff=1\n"
    stations = b"02:11:22:33:44:01 65000 -50 30 1 wl0 100 200 65000 52000 8\nAA-BB 1\n02:11:22:33:44:03 1 0\n"
    return {"conf": steps((0, 1, conf)), "version": steps((1, 0, version)), "stations": steps((2, 0, stations)),
            "stations5": steps((0, 0, conf), (3, 0, stations)), "channel": steps((0, 0, conf), (4, 0, b"6l\n"), (4, 0, b"")),
            "address": steps((5, 1, b"10.0.0.1\n"), (5, 1, b"")), "password": steps((6, 2, b"secret\n")),
            "hostile_names": steps(*((0, 0, b"24GMainIfname=" + name + b"\n5GMainIfname=" + name) for name in
                                     (b"wl0$(x)", b"`x`", b"wl0|x", b"w" * 112))),
            "renewed": steps((0, 1, conf), (1, 0, version), (0, 0, b"Mode=ap\n"), (2, 0, b""))}


def nvram_dump():
    dump = b"multiap_mode=1\nwl0_mdid=4660\nwl0.0_mdid=3\nwl1.1_mdid=5\nwl0.5_mdid=77\nwl0_extattr=7\n"
    return {"dump": b"\x0f" + dump, "one": b"\x01" + dump, "too_many": b"\x10" + dump, "damaged": b"\x02=x\nabc\n\na=\nb=1",
            "repeated": b"\x24a=1\na=2\na=3\n", "zero": b"\x81a=1\0b\nmultiap_mode=-1"}


def config_store():
    whole = b"""{"RDM_OID_NAT_INTF_SETTING":[{"userName":"admin","password":"x"}],
"RDM_OID_FACTORY_RESET":[{"FactoryResetUnpurgedList":3}],"RDM_OID_LED_CTRL":[{"enable":0}],
"RDM_OID_WIFI_RADIO":[{"ifName":"wl0","countryCode":"US","countryInBeacon":"US"},{}],
"RDM_OID_SYNC_KEY_SOURCE":[{"key":"k"}],"kcfg":{"Applied":1}}"""
    return {"whole": b"\x00" + whole, "read": b"\x01" + whole, "reset": b"\x02" + whole, "partial": b"\x06" + whole,
            "cut": b"\x00" + whole[:90], "list": b"\x00[]", "shape": b'\x00{"RDM_OID_LED_CTRL":[]}', "empty": b"\x00",
            "values": b'\x04{"RDM_OID_LED_CTRL":[{"enable":2}],"RDM_OID_NAT_INTF_SETTING":[{"userName":5}]}',
            "texts": b"\x04" + b'{"RDM_OID_NAT_INTF_SETTING":[' + b",".join(
                b'{"userName":"' + b"u" * size + b'","password":"p"}' for size in (255, 256, 257)) + b"]}",
            "keys": b'\x00{"RDM_OID_SYNC_KEY_SOURCE":[{"key":"' + b"k" * 257 + b'"}]}',
            "nested": b"\x00" + b"[" * 20}


# ---- The host's side

def tlv(number, value):
    return bytes([number]) + u16(len(value)) + value


PEER_MAC = bytes.fromhex("02005e000200")
FAR_MAC = bytes.fromhex("02005e000300")
OWN_MAC = bytes.fromhex("02005e000100")
DEVICE_INFORMATION = tlv(3, PEER_MAC + b"\x02" + PEER_MAC[:5] + b"\x10" + u16(1) + b"\x00" + PEER_MAC[:5] + b"\x20" +
                         u16(0x0103) + b"\x0a" + bytes(10))
NEIGHBOURS = tlv(7, PEER_MAC[:5] + b"\x10" + FAR_MAC + b"\x00" + OWN_MAC + b"\x80")
BRIDGES = tlv(4, b"\x01\x02" + PEER_MAC + FAR_MAC)
OTHERS = tlv(6, PEER_MAC + STATION)
MDIDS = bytes.fromhex("024ea7c0") + u16(10) + b"\x01" + PEER_MAC + u16(7) + b"\x01"
CONFIGURATIONS = bytes.fromhex("024ea7d0") + u16(9) + b"\x01" + bytes(8)
RESPONSE = DEVICE_INFORMATION + NEIGHBOURS + BRIDGES + OTHERS + tlv(11, MDIDS) + tlv(11, CONFIGURATIONS)
END = bytes(3)


def wsc_attribute(number, value):
    return u16(number) + u16(len(value)) + value


ELEMENTS = bytes.fromhex("0a61c4") + bytes.fromhex("010180 020101 03021234 04020005 0701ff".replace(" ", ""))


def wsc_message(number):
    return (wsc_attribute(0x104A, b"\x10") + wsc_attribute(0x1022, bytes([number])) + wsc_attribute(0x101A, bytes(16)) +
            wsc_attribute(0x1039, bytes(16)) + wsc_attribute(0x103C, b"\x01") + wsc_attribute(0x1045, b"home") +
            wsc_attribute(0x1049, b"\x00\x37\x2a\x00") + wsc_attribute(0x1049, ELEMENTS))


def wsc():
    return {"m1": b"\x00" + wsc_message(4), "m2": b"\x00" + wsc_message(5), "elements": b"\x01" + ELEMENTS,
            "other_order": b"\x01" + ELEMENTS[:3] + ELEMENTS[9:] + ELEMENTS[3:9], "unknown": b"\x01" + ELEMENTS + b"\x09\x01\x00",
            "insert": b"\x02\x02" + (PEER_MAC + b"wl0.1".ljust(16, b"\0") + bytes(4)) * 15 + bytes(2) + b"\x03" + bytes(24),
            "mdids": b"\x03" + MDIDS, "configurations": b"\x03" + CONFIGURATIONS}


def cmdu():
    header = bytes.fromhex("00000003000700")
    return {"discovery": b"\x00" + tlv(1, PEER_MAC) + tlv(2, PEER_MAC) + END, "response": b"\x01" + RESPONSE + END,
            "two_pieces": b"\x03" + u16(20) + RESPONSE[:20] + RESPONSE[20:] + END,
            "three_pieces": b"\x05" + u16(5) + RESPONSE[:5] + u16(40) + RESPONSE[5:45] + RESPONSE[45:] + END,
            "large": b"\x10" + tlv(11, bytes(1400)) + tlv(11, bytes(1400)) + tlv(127, bytes(3000)) + END,
            "information": b"\x06" + DEVICE_INFORMATION[3:], "vendor": b"\x06" + MDIDS,
            "neighbours": b"\x06" + NEIGHBOURS[3:],
            "flood_many": b"\x07" + b"".join(b"\x00\x03\0\0\0\x03" + u16(n) + b"\0\0abc" for n in range(80)),
            "flood": b"\x07\x00\x30" + header + b"\x80" + bytes(48) + b"\x31\x30" + header[:6] + b"\x01\x80" + bytes(48)}


MULTICAST, RELAYED, UNICAST, FRAGMENT, FRAME, RUN, LINK, SEND = range(8)
DISCOVERY = (MULTICAST, 0, u16(1) + tlv(1, PEER_MAC) + tlv(2, PEER_MAC))


def node():
    answer = (UNICAST, 3, u16(2) + RESPONSE)
    m1 = tlv(0x11, wsc_message(4))
    role_and_band = tlv(0x0D, b"\x00") + tlv(0x0E, b"\x00")
    return {
        "meeting": steps(DISCOVERY, (RUN, 1, b""), answer, (RUN, 255, b""), (LINK, 0, b""), (LINK, 2, b"")),
        "notification": steps(DISCOVERY, answer, (RELAYED, 1, u16(9) + tlv(1, PEER_MAC)), (RUN, 3, b"")),
        "query": steps((UNICAST, 2, u16(3))),
        "vendor": steps((RELAYED, 4, u16(5) + tlv(11, MDIDS) + tlv(1, FAR_MAC)), (UNICAST, 4, u16(6) + tlv(11, b"\x02"))),
        "search": steps(DISCOVERY, answer, (RELAYED, 0x85, u16(7) + tlv(1, PEER_MAC) + role_and_band)),
        "controller": steps((RUN, 0x80, b""), DISCOVERY, answer, (RELAYED, 5, u16(7) + tlv(1, PEER_MAC) + role_and_band),
                            (UNICAST, 7, u16(8) + m1)),
        "agent": steps(DISCOVERY, answer, (RUN, 5, b""),
                       (UNICAST, 6, u16(8) + tlv(0x0F, b"\x00") + tlv(0x10, b"\x00")), (RUN, 5, b""),
                       (UNICAST, 7, u16(8) + tlv(0x11, wsc_message(5)))),
        "fragments": steps((FRAGMENT, 1, bytes.fromhex("0000000300100000") + RESPONSE[:30]),
                           (FRAGMENT, 1, bytes.fromhex("0000000300100180") + RESPONSE[30:] + END)),
        "frame": steps((FRAME, 0, OWN_MAC + PEER_MAC + bytes.fromhex("893a0000000200030080") + END)),
        "send": steps(DISCOVERY, answer, (SEND, 0, MDIDS), (SEND, 2, bytes(1500)), (SEND, 9, MDIDS), (RUN, 1, b"")),
        "silence": steps(DISCOVERY, answer, (RUN, 255, b""), (RUN, 100, b"")),
    }


def command_line(number, *words):
    return steps((0, number, b"\n".join(words)))


def commands():
    agent = b"66:77:88:99:aa:bb"
    rows = {"reboot": (0, agent), "power": (1, agent, agent, b"0105", b"2"), "firmware": (2, agent, b"1", b"1", b"http://h/i"),
            "reset": (3, agent), "result": (4, b"3"), "led": (5, agent, b"1"), "partial": (6, agent),
            "remote": (7, agent, b"2", agent), "log": (8, b"1", b"0", b"7"), "sync": (9, b""), "country": (10, b"US")}
    seeds = {name: command_line(*row) for name, row in rows.items()}
    seeds["posts"] = steps((1, 0, AGENT), (1, 5, LOCAL + b"\x01\0"), (1, 9, b"3 616263"), (1, 12, b""), (1, 2, AGENT),
                           (2, 10, AGENT), (3, 0, u32(102) + u32(6) + AGENT), (3, 0, u32(1)))
    return seeds


def log():
    return {"lines": steps((0, 0, b"text\n"), (1, 0, b"a\x1b[31mb"), (2, 0, bytes(range(256))), (3, 7, b"/a/b\xff.c")),
            "long": steps((0, 97, b"\\" * 1500), (1, 0, b"x" * 2000), (1, 0, b"y" * 2500 + b"\n")),
            "syslog": steps((4, 32, b""), (0, 96, "gr\u00fc\u00dfe \u20ac \U0001F600".encode()), (0, 97, b"\xed\xa0\x80\xf4\x90")),
            "print": steps((1, 0, b"\n"), (1, 0, b"02 "), (1, 0, b"4e "), (2, 0, b"\n\n"))}


TARGETS = {"receive": receive, "intel": intel, "client_report": client_report, "local_files": local_files,
           "nvram_dump": nvram_dump, "config_store": config_store, "wsc": wsc, "command": commands, "cmdu": cmdu,
           "node": node, "log": log}


def main():
    for target, make in TARGETS.items():
        directory = HERE / "corpus" / target
        directory.mkdir(parents=True, exist_ok=True)
        for old in directory.glob("seed-*"):
            old.unlink()
        seeds = make()
        for name, content in seeds.items():
            (directory / f"seed-{name}").write_bytes(content)
        print(f"{target}: {len(seeds)} seeds")


if __name__ == "__main__":
    sys.exit(main())
