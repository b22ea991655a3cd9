"""What a mesh consists of: its devices, their links, and what each device finds on its disk."""

import argparse
import json
import shlex
from dataclasses import dataclass, field
from pathlib import Path

LAB = Path(__file__).resolve().parent.parent
SCRIPT = LAB / "mesh"
DEFAULT_BUILD = LAB.parent / "build" / "release"
BUILD_NEEDS = ("bin/kv1905d", "bin/kcfg", "bin/nvram", "bin/wl", "lib/libkvMAP1905.so", "lib/libkvplatform.so")
BRIDGE = "br0"
MAX_DEVICES = 64
MAX_STATIONS = 65535  # of one device: the last two bytes of a station's MAC count them
MAX_PORTS = 16  # a port's number is the low digit of its MAC address

# What other components of a device would have written before its daemon starts; placeholders come from Device.facts().
DEVICE_FILES = {
    "/tmp/.kv1905_conf": """\
ModelName=KV-{title}
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

# Pairs of device numbers; the controller is number 1.
SHAPES = {
    "line": lambda n: [(k, k + 1) for k in range(1, n)],
    "star": lambda n: [(1, k) for k in range(2, n + 1)],
    "tree": lambda n: [(k // 2, k) for k in range(2, n + 1)],
    "ring": lambda n: [(k, k + 1) for k in range(1, n)] + ([(n, 1)] if n > 2 else []),
}


class MeshError(Exception):
    """A failure with a text for the operator."""


class UsageError(MeshError):
    """The command line is wrong; exit status 2."""


class DeadlineError(MeshError):
    """Something awaited did not happen in time."""


def plan_text(options):
    """What `up` was asked for, as one word for the command lines of the supervisor and the devices."""
    return json.dumps({name: value for name, value in vars(options).items() if name != "function"})


def read_plan(text):
    """None for the plan of another version of the lab."""
    try:
        return argparse.Namespace(**json.loads(text))
    except (ValueError, TypeError):
        return None


@dataclass
class Device:
    number: int
    ports: list = field(default_factory=list)  # per ethN: (neighbour's name, neighbour's interface)

    @property
    def name(self):
        return "controller" if self.number == 1 else f"agent{self.number - 1}"

    @property
    def interfaces(self):
        return [f"eth{index}" for index in range(len(self.ports))]

    @property
    def al_mac(self):
        return self.mac(0)

    @property
    def ip(self):
        return f"192.168.77.{10 + self.number}"

    def mac(self, low_byte):
        return f"02:00:5e:00:{self.number:02x}:{low_byte:02x}"

    def port_mac(self, index):
        return self.mac(0x10 + index)

    def facts(self):
        is_controller = self.number == 1
        return {
            "number": self.number,
            "title": self.name.upper(),
            "mode": "router" if is_controller else "repeater",
            "multiap_mode": 1 if is_controller else 2,
            "radio0": self.mac(0x20).upper(),
            "radio1": self.mac(0x21).upper(),
            "channel0": ("1", "6", "11")[self.number % 3],
            "channel1": ("36/80", "52/80", "100/80", "149/80")[self.number % 4],
        }

    def daemon_command(self, plan):
        command = ["kv1905d", "--al-mac", self.al_mac, "--bridge", BRIDGE]
        for interface in self.interfaces:
            command += ["--interface", interface]
        command += ["--radio", f"wl0,{self.mac(0x20)},0x0103", "--radio", f"wl1,{self.mac(0x21)},0x0105",
                    "--data-model", "/tmp/kv1905_datamodel.json"]
        if self.name in plan.no_plugin:
            command.append("--no-plugin")
        if plan.settings_from:
            command += ["--settings-from", plan.settings_from]
        if self.number == 1:
            command += shlex.split(plan.controller_args)
        return command + shlex.split(plan.daemon_args)


def plan_devices(plan):
    devices = [Device(number) for number in range(1, plan.devices + 1)]
    for pair in SHAPES[plan.shape](plan.devices):
        near, far = (devices[number - 1] for number in pair)
        near_port, far_port = f"eth{len(near.ports)}", f"eth{len(far.ports)}"
        near.ports.append((far.name, far_port))
        far.ports.append((near.name, near_port))
    return {device.name: device for device in devices}


def plan_links(devices):
    """Each link once, seen from the device that comes first: (device, port index, neighbour, its port index)."""
    links = []
    for device in devices.values():
        for index, (name, interface) in enumerate(device.ports):
            neighbour = devices[name]
            if device.number < neighbour.number:
                links.append((device, index, neighbour, int(interface.removeprefix("eth"))))
    return links


def check_plan(plan):
    devices = plan_devices(plan)
    busiest = max(devices.values(), key=lambda device: len(device.ports))
    if len(busiest.ports) > MAX_PORTS:
        raise UsageError(f"{busiest.name} would have {len(busiest.ports)} links, at most {MAX_PORTS} work; "
                         "use fewer devices or another shape")
    for name in plan.no_plugin:
        find_device(devices, name)
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
