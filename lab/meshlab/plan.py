"""Plan of a mesh: devices, links, and the files of each device."""

import argparse
import json
import re
import shlex
from dataclasses import dataclass, field
from pathlib import Path

LAB = Path(__file__).resolve().parent.parent
SCRIPT = LAB / "mesh"
DEFAULT_BUILD = LAB.parent / "build" / "release"
BUILD_NEEDS = ("bin/kv1905d", "bin/kcfg", "bin/nvram", "bin/wl", "lib/libkvMAP1905.so", "lib/libkvplatform.so")
BRIDGE = "br0"
DATA_MODEL = "/tmp/kv1905_datamodel.json"
MAX_DEVICES = 64
MAX_STATIONS = 65535  # of one device: the last two bytes of a station's MAC count them
MAX_PORTS = 16  # of a device; a port's number is the low digit of its MAC address

# Files that other components of a device would have written before its daemon starts. Device.facts() has the
# placeholders' values.
DEVICE_FILES = {
    "/tmp/.kv1905_conf": """\
ModelName={model}
FirmwareVersion=1.0.{number}
24GMainSSID=kv home
5GMainSSID=kv home 5G
24GMainBSSID={radio0}
5GMainBSSID={radio1}
Mode={mode}
LedEnable=1
24GMainIfname=wl0
5GMainIfname=wl1
24GPower=1
5GPower=1
autoRoleSelect=0
""",
    "/etc/kv1905/kv1905_Version": """\
AppVersion=3.0.1
L2DeviveCtrl=1
WiFiAutoCfg=1
WiFiOnOff=1
FwUpgrade=1
LEDOnOff=1
""",
    "/data/nvram": """\
multiap_mode={multiap_mode}
wl0_chanspec={channel0}
wl0_nband=2
wl0_mdid=4660
wl1_chanspec={channel1}
wl1_nband=1
wl1_mdid=17
wl1_extattr=5
""",
}

# Links as pairs of device numbers; the controller is number 1.
SHAPES = {
    "line": lambda n: [(k, k + 1) for k in range(1, n)],
    "star": lambda n: [(1, k) for k in range(2, n + 1)],
    "tree": lambda n: [(k // 2, k) for k in range(2, n + 1)],
    "ring": lambda n: [(k, k + 1) for k in range(1, n)] + ([(n, 1)] if n > 2 else []),
}


@dataclass(frozen=True)
class Medium:
    title: str
    port: str  # prefix of its interfaces' names, before the number
    option: str  # what follows the interface's name in the daemon's option --interface


MEDIA = {"ethernet": Medium("Ethernet", "eth", ""), "wifi": Medium("Wi-Fi", "wlan", ",0x0108")}


class MeshError(Exception):
    """A failure with a text for the operator."""


class UsageError(MeshError):
    """The command line is wrong; exit status 2."""


class DeadlineError(MeshError):
    """Something awaited did not happen in time."""


def plan_text(options):
    """Returns the plan of `up` as one word for the command lines of the supervisor and the devices."""
    return json.dumps({name: value for name, value in vars(options).items() if name != "function"})


def read_plan(text):
    """Parses a plan. Returns None for that of another version of the lab."""
    try:
        return argparse.Namespace(**json.loads(text))
    except (ValueError, TypeError):
        return None


class Topology:
    """Devices and links, as in the command lines of the mesh's processes. The first device is the controller."""

    def __init__(self, devices=None, links=None):
        self.devices = devices or {}  # model by name
        self.links = links or []  # [name, name, medium]

    def add_device(self, name, model=None):
        if not re.fullmatch(r"[A-Za-z0-9][A-Za-z0-9-]{0,31}", name):
            raise UsageError(f"'{name}' is no name for a device: use 1 to 32 letters, digits and hyphens")
        if name in self.devices:
            raise UsageError(f"there is a device '{name}' already")
        if len(self.devices) == MAX_DEVICES:
            raise UsageError(f"at most {MAX_DEVICES} devices work")
        self.devices[name] = model or name

    def add_link(self, near, far, medium="ethernet"):
        for name in (near, far):
            find_device(self.devices, name)
            if sum(name in link[:2] for link in self.links) == MAX_PORTS:
                raise UsageError(f"{name} would have more than {MAX_PORTS} links")
        if near == far or any({near, far} == set(link[:2]) for link in self.links):
            raise UsageError(f"{near} and {far} are one device or linked already")
        if medium not in MEDIA:
            raise UsageError(f"no medium '{medium}'; there are {', '.join(MEDIA)}")
        self.links.append([near, far, medium])


def shaped_topology(shape, count):
    topology = Topology()
    names = ["controller", *(f"agent{number}" for number in range(1, count))]
    for name in names:
        topology.add_device(name)
    for pair in SHAPES[shape](count):
        topology.add_link(*(names[number - 1] for number in pair))
    return topology


def read_topology(path):
    """From lines of "device NAME [MODEL]" and "link NAME NAME [MEDIUM]"; # begins a comment."""
    topology = Topology()
    for number, line in enumerate(Path(path).read_text().splitlines(), 1):
        words = line.split("#")[0].split()
        try:
            if words[:1] == ["device"] and 2 <= len(words) <= 3:
                topology.add_device(*words[1:])
            elif words[:1] == ["link"] and 3 <= len(words) <= 4:
                topology.add_link(*words[1:])
            elif words:
                raise UsageError('expected "device NAME [MODEL]" or "link NAME NAME [ethernet|wifi]"')
        except UsageError as error:
            raise UsageError(f"{path}:{number}: {error}") from None
    if not topology.devices:
        raise UsageError(f"{path}: names no device")
    unlinked = [name for name in topology.devices if not any(name in link[:2] for link in topology.links)]
    if unlinked:
        raise UsageError(f"{path}: {', '.join(unlinked)}: no link leads there")
    return topology


@dataclass
class Port:
    name: str
    neighbour: str
    neighbour_port: str
    medium: str


@dataclass
class Device:
    name: str
    model: str
    number: int  # the controller is 1
    ports: list = field(default_factory=list)

    @property
    def al_mac(self):
        return self.mac(0)

    @property
    def ip(self):
        return f"192.168.77.{10 + self.number}"

    def mac(self, low_byte):
        return f"02:00:5e:00:{self.number:02x}:{low_byte:02x}"

    def port_mac(self, port):
        return self.mac(0x10 + self.ports.index(port))

    def facts(self):
        is_controller = self.number == 1
        return {
            "number": self.number,
            "model": self.model,
            "mode": "router" if is_controller else "repeater",
            "multiap_mode": 1 if is_controller else 2,
            "radio0": self.mac(0x20).upper(),
            "radio1": self.mac(0x21).upper(),
            "channel0": ("1", "6", "11")[self.number % 3],
            "channel1": ("36/80", "52/80", "100/80", "149/80")[self.number % 4],
        }

    def daemon_command(self, plan, interfaces):
        command = ["kv1905d", "--al-mac", self.al_mac, "--bridge", BRIDGE]
        for interface in interfaces:
            medium = next(medium for medium in MEDIA.values() if interface.startswith(medium.port))
            command += ["--interface", interface + medium.option]
        command += ["--radio", f"wl0,{self.mac(0x20)},0x0103", "--radio", f"wl1,{self.mac(0x21)},0x0105",
                    "--data-model", DATA_MODEL]
        if self.name in plan.no_plugin:
            command.append("--no-plugin")
        if plan.settings_from:
            command += ["--settings-from", plan.settings_from]
        if self.number == 1:
            command += shlex.split(plan.controller_args)
        return command + shlex.split(plan.daemon_args)


def plan_devices(plan):
    devices = {name: Device(name, model, number) for number, (name, model) in enumerate(plan.devices.items(), 1)}
    for *names, medium in plan.links:
        near, far = (devices[name] for name in names)
        near_port, far_port = (f"{MEDIA[medium].port}{len(device.ports)}" for device in (near, far))
        near.ports.append(Port(near_port, far.name, far_port, medium))
        far.ports.append(Port(far_port, near.name, near_port, medium))
    return devices


def plan_links(devices):
    """Lists each link once, from the device that is listed first: (device, its port, neighbour)."""
    return [(device, port, devices[port.neighbour]) for device in devices.values() for port in device.ports
            if port.neighbour in devices and device.number < devices[port.neighbour].number]


def check_plan(plan):
    for name in plan.no_plugin:
        find_device(plan.devices, name)
    if plan.password_file and not Path(plan.password_file).is_file():
        raise UsageError(f"--password-file {plan.password_file} is no file")
    missing = [name for name in BUILD_NEEDS if not Path(plan.build, name).exists()]
    if missing:
        raise MeshError(f"{plan.build}/{missing[0]} is missing; build it with "
                        "'cmake --preset release && cmake --build --preset release', or name a build with --build")


def find_device(devices, name):
    if name not in devices:
        raise UsageError(f"no device '{name}'; there are {', '.join(devices)}")
    return devices[name]
