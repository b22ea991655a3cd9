"""What a mesh consists of: its devices, their links, and what each device finds on its disk."""

import argparse
import shlex
from dataclasses import dataclass, field
from pathlib import Path

LAB = Path(__file__).resolve().parent.parent
SCRIPT = LAB / "mesh"
DEFAULT_BUILD = LAB.parent / "build" / "release"
BUILD_NEEDS = ("bin/kv1905d", "bin/nvram", "bin/wl", "lib/libkvMAP1905.so", "lib/libkvplatform.so")
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

    def daemon_command(self, options):
        command = ["kv1905d", "--al-mac", self.al_mac, "--bridge", BRIDGE]
        for interface in self.interfaces:
            command += ["--interface", interface]
        command += ["--radio", f"wl0,{self.mac(0x20)},0x0103", "--radio", f"wl1,{self.mac(0x21)},0x0105",
                    "--data-model", "/tmp/kv1905_datamodel.json"]
        if self.name in options.no_plugin:
            command.append("--no-plugin")
        if options.settings_from:
            command += ["--settings-from", options.settings_from]
        if self.number == 1:
            command += shlex.split(options.controller_args)
        return command + shlex.split(options.daemon_args)


def plan_devices(options):
    devices = [Device(number) for number in range(1, options.devices + 1)]
    for pair in SHAPES[options.shape](options.devices):
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


def check_plan(options):
    devices = plan_devices(options)
    busiest = max(devices.values(), key=lambda device: len(device.ports))
    if len(busiest.ports) > MAX_PORTS:
        raise UsageError(f"{busiest.name} would have {len(busiest.ports)} links, at most {MAX_PORTS} work; "
                         "use fewer devices or another shape")
    for name in options.no_plugin:
        find_device(devices, name)
    if options.password_file and not options.password_file.is_file():
        raise UsageError(f"--password-file {options.password_file} is no file")
    missing = [name for name in BUILD_NEEDS if not (options.build / name).exists()]
    if missing:
        raise MeshError(f"{options.build / missing[0]} is missing; build it with "
                        "'cmake --preset release && cmake --build --preset release', or name a build with --build")


def find_device(devices, name):
    if name not in devices:
        raise UsageError(f"no device '{name}'; there are {', '.join(devices)}")
    return devices[name]


def device_count(text):
    if not text.isdigit() or not 2 <= int(text) <= MAX_DEVICES:
        raise argparse.ArgumentTypeError(f"'{text}' is not a number from 2 to {MAX_DEVICES}")
    return int(text)


def station_count(text):
    if not text.isdigit() or int(text) > MAX_STATIONS:
        raise argparse.ArgumentTypeError(f"'{text}' is not a number from 0 to {MAX_STATIONS}")
    return int(text)


def shell_words(text):
    try:
        shlex.split(text)
    except ValueError as error:
        raise argparse.ArgumentTypeError(f"'{text}': {error}") from None
    return text


def add_plan_options(parser):
    parser.add_argument("--devices", type=device_count, default=3, metavar="N",
                        help=f"controller and agents together, 2 to {MAX_DEVICES} (default 3)")
    parser.add_argument("--shape", choices=SHAPES, default="line", help="how they are linked (default line)")
    parser.add_argument("--build", type=lambda text: Path(text).resolve(), default=DEFAULT_BUILD, metavar="DIR",
                        help="build directory to run (default build/release of this tree)")
    parser.add_argument("--no-plugin", type=lambda text: [name for name in text.split(",") if name], default=[],
                        metavar="DEVICE[,..]", help="devices whose daemon runs without the plug-in")
    parser.add_argument("--password-file", type=lambda text: Path(text).resolve(), metavar="FILE",
                        help="its first line becomes every device's administrator password, encrypted as the device "
                             "keeps it; a file, because command lines can be read by everybody")
    parser.add_argument("--stations", type=station_count, default=0, metavar="N",
                        help="Wi-Fi stations that every device has from the start (default 0; see stations)")
    parser.add_argument("--settings-from", choices=("any", "controller"),
                        help="whose messages may change a device (default: the daemon's, see kv1905d --help)")
    parser.add_argument("--log-level", type=int, choices=range(8), default=7, metavar="0..7",
                        help="highest level that daemons log (default 7); a flood fills logs, which take memory")
    parser.add_argument("--movable-clock", action="store_true",
                        help="let 'clock' move devices' wall clocks; needs the Debian package faketime")
    parser.add_argument("--daemon-args", type=shell_words, default="", metavar="ARGS",
                        help="further arguments for every daemon, in one word with shell quoting")
    parser.add_argument("--controller-args", type=shell_words, default="", metavar="ARGS",
                        help="further arguments for the controller's daemon")


def plan_parser():
    """Reads the command line of a supervisor or device."""
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("--name")
    add_plan_options(parser)
    for role in ("commit", "owner", "capture"):
        parser.add_argument(f"--{role}-fd", type=int)
    return parser


def plan_arguments(options):
    return ["--name", options.name, "--devices", str(options.devices), "--shape", options.shape,
            "--build", str(options.build), "--no-plugin", ",".join(options.no_plugin),
            f"--controller-args={options.controller_args}", f"--daemon-args={options.daemon_args}",
            "--stations", str(options.stations), "--log-level", str(options.log_level),
            *(["--settings-from", options.settings_from] if options.settings_from else []),
            *(["--movable-clock"] if options.movable_clock else []),
            *([f"--password-file={options.password_file}"] if options.password_file else [])]
