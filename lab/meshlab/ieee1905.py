"""Builds and reads IEEE 1905.1 frames and the vendor messages in them. Builds invalid ones on
request; reads only valid ones, else ValueError names the place."""

import struct
from dataclasses import dataclass

ETHER_TYPE = 0x893A
MULTICAST = "01:80:c2:00:00:13"

# Message types
TOPOLOGY_DISCOVERY, TOPOLOGY_NOTIFICATION, TOPOLOGY_QUERY, TOPOLOGY_RESPONSE, VENDOR_SPECIFIC = range(5)
TLV_END, TLV_AL_MAC, TLV_MAC_ADDRESS, TLV_DEVICE_INFORMATION, TLV_NEIGHBOURS, TLV_VENDOR = 0, 1, 2, 3, 7, 11
FLAG_LAST, FLAG_RELAY = 0x80, 0x40

VENDOR_OUI, INTEL_OUI = bytes.fromhex("024ea7"), bytes.fromhex("000347")
MAX_BODY = 1492  # bytes of a frame after the message's header
RSSI_REQUEST, RSSI_RESPONSE, RSSI_NOTIFICATION = 0x67, 0x68, 0x6A  # Intel's message types

END = bytes(3)


def mac_bytes(text):
    parts = text.split(":")
    if len(parts) != 6 or any(len(part) != 2 for part in parts):
        raise ValueError(f"'{text}' is not a MAC address such as 02:00:5e:00:02:00")
    return bytes.fromhex("".join(parts))


def mac_text(octets):
    return octets.hex(":")


# ---- Building


def tlv(kind, value, length=None):
    """length: the header's length if it is to be wrong."""
    return struct.pack(">BH", kind, len(value) if length is None else length) + value


def cmdu(message_type, message_id, body, fragment=0, flags=FLAG_LAST):
    """body: TLVs as bytes, with their end if they are to have one."""
    return struct.pack(">BBHHBB", 0, 0, message_type, message_id, fragment, flags) + body


def ethernet(destination, source, payload):
    """Not padded to 60 bytes: the links of the lab carry shorter frames."""
    return mac_bytes(destination) + mac_bytes(source) + struct.pack(">H", ETHER_TYPE) + payload


def vendor_frame(destination, source, message_id, value, flags=FLAG_LAST):
    return ethernet(destination, source, cmdu(VENDOR_SPECIFIC, message_id, tlv(TLV_VENDOR, value) + END, flags=flags))


def fragments(destination, source, message_type, body):
    """Returns the frames of a message, cut where a frame is full."""
    cuts = range(0, len(body), MAX_BODY)
    return [ethernet(destination, source, cmdu(message_type, 0, body[at:at + MAX_BODY], fragment=index,
                                               flags=FLAG_LAST if index == len(cuts) - 1 else 0))
            for index, at in enumerate(cuts)]


def vendor_message(source, message_type, payload, length=None):
    """Returns the value of a vendor TLV in the vendor's format. length: a wrong length for its header."""
    claimed = len(payload) if length is None else length
    return VENDOR_OUI + mac_bytes(source) + struct.pack(">BBHH", 0, 1, message_type, claimed) + payload


@dataclass(frozen=True)
class IntelHeader:
    """Fields defined by Intel: a response returns them unchanged."""
    field3: bytes
    field7: bytes
    field11: bytes
    field18: bytes

    def message(self, message_type, payload):
        return (INTEL_OUI + self.field3 + self.field7 + bytes([message_type, 0]) + self.field11 + b"\0" + self.field18 +
                b"\0\0" + payload)


# ---- Reading


@dataclass(frozen=True)
class Frame:
    destination: str
    source: str
    message_type: int
    message_id: int
    fragment: int
    flags: int
    tlvs: list  # (type, value) up to the end TLV


def parse_frame(frame):
    if len(frame) < 22 or frame[12:14] != struct.pack(">H", ETHER_TYPE):
        raise ValueError(f"no IEEE 1905.1 frame: {frame[:22].hex()}")
    _, _, message_type, message_id, fragment, flags = struct.unpack_from(">BBHHBB", frame, 14)
    return Frame(mac_text(frame[:6]), mac_text(frame[6:12]), message_type, message_id, fragment, flags,
                 list(parse_tlvs(frame[22:])))


def parse_tlvs(data):
    while True:
        if len(data) < 3:
            raise ValueError(f"the TLVs break off at '{data.hex()}'")
        kind, length = struct.unpack_from(">BH", data)
        if kind == TLV_END:
            return
        if length > len(data) - 3:
            raise ValueError(f"TLV 0x{kind:02x} claims {length} bytes, {len(data) - 3} are there")
        yield kind, data[3:3 + length]
        data = data[3 + length:]


@dataclass(frozen=True)
class RssiMeasurement:
    """Reads a station's measurement from a 0x68 or 0x6A."""
    message_type: int
    header: IntelHeader
    station: str
    rx_rate: float  # Mbit/s
    tx_rate: float
    rssi: int  # dBm
    snr: int  # dB
    marker: int  # 0 in an answer, 0x64 in a notification


def parse_rssi(value):
    if len(value) != 39 or value[:3] != INTEL_OUI:
        raise ValueError(f"no RSSI measurement: {value.hex()}")
    station, rx_rate, tx_rate, rssi, snr, marker = struct.unpack(">6s2xHHbbB2x", value[22:])
    header = IntelHeader(value[3:7], value[7:9], value[11:17], value[18:20])
    return RssiMeasurement(value[9], header, mac_text(station), rx_rate / 10, tx_rate / 10, rssi, snr, marker)
