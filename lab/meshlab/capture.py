"""Records the 1905 frames on the links of a mesh as pcapng."""

import ctypes
import os
import select
import signal
import socket
import struct
import time

from meshlab.enter import enter_namespaces

ETH_P_ALL = 0x0003
ETH_P_1905 = 0x893A
ETH_P_LLDP = 0x88CC
SO_ATTACH_FILTER = 26
SO_RCVBUFFORCE = 33
SO_TIMESTAMPNS = 35
SOL_PACKET = 263
PACKET_STATISTICS = 6
MAX_FRAME = 65536
RECEIVE_BUFFER = 8 << 20

# Classic BPF: accept whole frames of 1905 and of its bridge discovery by LLDP, nothing else.
FRAME_FILTER = ((0x28, 0, 0, 12), (0x15, 1, 0, ETH_P_1905), (0x15, 0, 1, ETH_P_LLDP), (0x06, 0, 0, MAX_FRAME),
                (0x06, 0, 0, 0))


def open_tap(interface):
    """Opens a packet socket for every 1905 frame in and out of the interface, even if it is a bridge port."""
    tap = socket.socket(socket.AF_PACKET, socket.SOCK_RAW | socket.SOCK_NONBLOCK, 0)
    code = ctypes.create_string_buffer(b"".join(struct.pack("HBBI", *step) for step in FRAME_FILTER))
    tap.setsockopt(socket.SOL_SOCKET, SO_ATTACH_FILTER,
                   struct.pack("HxxxxxxP", len(FRAME_FILTER), ctypes.addressof(code)))
    tap.setsockopt(socket.SOL_SOCKET, SO_TIMESTAMPNS, 1)
    try:
        tap.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, RECEIVE_BUFFER)
    except PermissionError:  # inside a user namespace the system-wide limit holds
        tap.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, RECEIVE_BUFFER)
    # Binds last: nothing arrives before the filter is in place.
    tap.bind((interface, ETH_P_ALL))
    return tap


def received_frames(tap):
    """Yields (nanoseconds since the epoch, is outbound, frame) for each frame in the socket."""
    while True:
        try:
            frame, ancillary, _, address = tap.recvmsg(MAX_FRAME, socket.CMSG_SPACE(16))
        except BlockingIOError:
            return
        seconds, nanoseconds = struct.unpack("qq", ancillary[0][2])
        yield seconds * 10**9 + nanoseconds, address[2] == socket.PACKET_OUTGOING, frame


class PcapngWriter:
    """Writes pcapng, one unbuffered write per block, so that the file is readable at any moment."""

    OPTION_END, OPTION_NAME, OPTION_RESOLUTION, OPTION_FLAGS = 0, 2, 9, 2
    ETHERNET = 1

    def __init__(self, file, interfaces):
        self._file = file
        self._block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1))
        for name in interfaces:
            self._block(1, struct.pack("<HHI", self.ETHERNET, 0, 0) + self._options(
                (self.OPTION_NAME, name.encode()), (self.OPTION_RESOLUTION, b"\x09")))

    def frame(self, interface, nanoseconds, is_outbound, frame):
        head = struct.pack("<IIIII", interface, nanoseconds >> 32, nanoseconds & 0xFFFFFFFF, len(frame), len(frame))
        direction = struct.pack("<I", 2 if is_outbound else 1)
        self._block(6, head + self._padded(frame) + self._options((self.OPTION_FLAGS, direction)))

    def _options(self, *options):
        encoded = (struct.pack("<HH", code, len(value)) + self._padded(value) for code, value in options)
        return b"".join(encoded) + struct.pack("<HH", self.OPTION_END, 0)

    @staticmethod
    def _padded(data):
        return data + bytes(-len(data) % 4)

    def _block(self, kind, body):
        length = struct.pack("<I", len(body) + 12)
        self._file.write(struct.pack("<I", kind) + length + body + length)


def stop_signals():
    """Returns a descriptor that becomes readable at SIGINT or SIGTERM."""
    reader, writer = os.pipe2(os.O_NONBLOCK | os.O_CLOEXEC)
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda *_: None)
    signal.set_wakeup_fd(writer)
    return reader


def capture_links(path, mesh_pid, taps, seconds, report):
    """Records until a stop signal, the end of the mesh or the given time.

    taps: (link name, pid of the device at one end, interface there). Returns (frames written, frames lost).
    """
    stop = stop_signals()
    ended = os.pidfd_open(mesh_pid)
    with open(path, "wb", buffering=0) as file:
        enter_namespaces(mesh_pid, "user")
        sockets = []
        for _, pid, interface in taps:
            enter_namespaces(pid, "net")
            sockets.append(open_tap(interface))
        writer = PcapngWriter(file, [name for name, _, _ in taps])
        print(f"capturing {len(sockets)} links", file=report, flush=True)
        written = record(writer, sockets, (stop, ended), seconds)
    lost = sum(struct.unpack("II", tap.getsockopt(SOL_PACKET, PACKET_STATISTICS, 8))[1] for tap in sockets)
    return written, lost


def record(writer, sockets, ends, seconds):
    written = 0
    deadline = None if seconds is None else time.monotonic() + seconds
    finished = False
    while not finished:
        remaining = None if deadline is None else max(0.0, deadline - time.monotonic())
        ready, _, _ = select.select([*sockets, *ends], [], [], remaining)
        # Drains the sockets in this last round too, because frames from before the end are still written.
        finished = not ready or any(end in ready for end in ends)
        batch = [(when, index, outbound, frame) for index, tap in enumerate(sockets)
                 for when, outbound, frame in received_frames(tap)]
        for when, index, outbound, frame in sorted(batch):
            writer.frame(index, when, outbound, frame)
        written += len(batch)
    return written
