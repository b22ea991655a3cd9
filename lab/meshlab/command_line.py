"""The command line of lab/mesh."""

import argparse
import os

from meshlab import commands
from meshlab.arguments import mac_address, mesh_name, names, number, shell_words
from meshlab.plan import DEFAULT_BUILD, MAX_DEVICES, MAX_STATIONS, MEDIA, SHAPES, UsageError

SECONDS = number(0.001, 1e9, float)
STATION_COUNT = number(0, MAX_STATIONS)


def open_descriptor(text):
    try:
        return os.dup(int(text))  # never one of the three standard streams, which the supervisor replaces
    except (ValueError, OSError):
        raise argparse.ArgumentTypeError(f"'{text}' is not an open file descriptor") from None


def add_plan_options(parser):
    size = parser.add_mutually_exclusive_group()
    size.add_argument("--devices", type=number(2, MAX_DEVICES), default=3, metavar="N",
                      help=f"controller and agents together, 2 to {MAX_DEVICES} (default 3)")
    size.add_argument("--topology", metavar="FILE", help="names, models, links and media; lab/README.md has an example")
    parser.add_argument("--shape", choices=SHAPES, help="how the devices are linked (default line)")
    parser.add_argument("--build", type=os.path.abspath, default=str(DEFAULT_BUILD), metavar="DIR",
                        help="build directory to run (default build/release of this tree)")
    parser.add_argument("--no-plugin", type=names, default=[], metavar="DEVICE[,..]",
                        help="devices whose daemon runs without the plug-in")
    parser.add_argument("--password-file", type=os.path.abspath, metavar="FILE",
                        help="its first line becomes every device's administrator password, encrypted on the "
                             "device; a file, because every user can read command lines")
    parser.add_argument("--stations", type=STATION_COUNT, default=0, metavar="N",
                        help="Wi-Fi stations that every device has from the start (default 0; see stations)")
    parser.add_argument("--settings-from", choices=("any", "controller"),
                        help="devices that may change another one (default: the daemon's, see kv1905d --help)")
    parser.add_argument("--log-level", type=number(0, 7), default=5, metavar="0..7",
                        help="highest level that daemons log (default 5); a flood fills logs, which use memory")
    parser.add_argument("--movable-clock", action="store_true",
                        help="let 'clock' move devices' wall clocks; needs the Debian package faketime")
    parser.add_argument("--daemon-args", type=shell_words, default="", metavar="ARGS",
                        help="further arguments for every daemon, in one word with shell quoting")
    parser.add_argument("--controller-args", type=shell_words, default="", metavar="ARGS",
                        help="further arguments for the controller's daemon")


def command_parser():
    parser = argparse.ArgumentParser(
        prog="mesh", description="A mesh of 1905 devices on one machine: controller, agent1, agent2, ...",
        epilog="exit status: 0 done, 1 failed, 2 wrong command line; exec: the command's own")
    parser.add_argument("--name", type=mesh_name, default="default", help="name of the mesh, if several are up")
    verbs = parser.add_subparsers(dest="verb", required=True, metavar="COMMAND")

    def add(verb, function, text, **more):
        command = verbs.add_parser(verb, help=text, description=f"{text[0].upper()}{text[1:]}.", **more)
        command.set_defaults(function=function)
        return command

    up = add("up", commands.up, "start a mesh and return when all its daemons run")
    add_plan_options(up)
    up.add_argument("--capture", metavar="FILE", help="record every link from the first frame on (see capture)")
    up.add_argument("--foreground", action="store_true", help="stay; the mesh ends with this command")
    up.add_argument("--owner-fd", type=open_descriptor, metavar="FD",
                    help="reading end of a pipe; the mesh ends when all writing ends are closed")
    add("down", commands.down, "end a mesh")
    add("status", commands.status, "show devices, links and daemons").add_argument("--json", action="store_true")
    add("exec", commands.execute, "run a command on a device", usage="mesh exec DEVICE -- COMMAND [ARG...]"
        ).add_argument("device", metavar="DEVICE")
    add("shell", commands.shell, "start a shell on a device").add_argument("device", metavar="DEVICE")
    logs = add("logs", commands.logs, "print the log of a device's daemon")
    logs.add_argument("device", metavar="DEVICE")
    logs.add_argument("-f", "--follow", action="store_true", help="print further lines as they are added")
    capture = add("capture", commands.capture, "record the 1905 frames on every link until Ctrl-C",
                  epilog="The file is pcapng whatever its name, one interface per link; direction and time are the "
                         "kernel's, seen from the device named first.")
    capture.add_argument("file", metavar="FILE", help="or - for standard output: mesh capture - | wireshark -k -i -")
    capture.add_argument("--seconds", type=SECONDS, metavar="S", help="stop after so many seconds")
    add("stop", commands.stop, "stop a device's daemon").add_argument("device", metavar="DEVICE")
    add("start", commands.start, "start a device's daemon again").add_argument("device", metavar="DEVICE")
    clock = add("clock", commands.move_clock, "move a device's wall clock, for its programs only")
    clock.add_argument("device", metavar="DEVICE")
    clock.add_argument("seconds", type=number(-10**9, 10**9), metavar="SECONDS", help="forward, negative for back")
    join = add("add", commands.add_device, "add a device or restore a removed one, and restart its neighbour's daemon")
    join.add_argument("device", metavar="DEVICE")
    join.add_argument("--link", metavar="NEIGHBOUR", help="device it is linked with (default the first)")
    join.add_argument("--medium", choices=MEDIA, default="ethernet", help="medium of the link (default ethernet)")
    join.add_argument("--model", help="model name that it announces (default its name)")
    add("remove", commands.remove_device, "remove a device and its links").add_argument("device", metavar="DEVICE")
    add_link_commands(add("link", None, "cut, restore or impair the link of two devices"))
    view = add("view", commands.view, "serve the mesh as a web page of this machine until Ctrl-C")
    view.add_argument("device", metavar="DEVICE", nargs="?", help="whose view of the mesh is shown (default the first)")
    view.add_argument("--port", type=number(0, 65535), default=1905, help="of 127.0.0.1, 0 for any (default 1905)")
    add_station_commands(add("stations", None, "set the Wi-Fi stations in the lists of a device's driver"))
    return parser


def add_link_commands(parser):
    verbs = parser.add_subparsers(dest="action", required=True, metavar="ACTION")
    for action, text in (("down", "remove the carrier"), ("up", "restore the carrier"),
                         ("set", "lose and delay frames in both directions; 0 for none")):
        command = verbs.add_parser(action, help=text, description=f"{text[0].upper()}{text[1:]}.")
        command.set_defaults(function=commands.change_link)
        command.add_argument("near", metavar="DEVICE")
        command.add_argument("far", metavar="DEVICE")
    command.add_argument("--loss", type=number(0, 100, float), default=0, metavar="PERCENT", help="default 0")
    command.add_argument("--delay", type=number(0, 60000, float), default=0, metavar="MS", help="default 0")


def add_station_commands(parser):
    verbs = parser.add_subparsers(dest="action", required=True, metavar="ACTION")

    def add(action, function, text):
        command = verbs.add_parser(action, help=text, description=f"{text[0].upper()}{text[1:]}.")
        command.set_defaults(function=function)
        command.add_argument("--seed", type=int, default=0, help="the same seed makes the same values (default 0)")
        return command

    populate = add("set", commands.set_stations, "replace the stations of a device")
    populate.add_argument("device", metavar="DEVICE")
    populate.add_argument("--count", type=STATION_COUNT, required=True, metavar="N")
    move = add("move", commands.move_station, "let a station roam from one device to another")
    for name, kind in (("mac", mac_address), ("source", str), ("target", str)):
        move.add_argument(name, type=kind, metavar={"source": "FROM", "target": "TO"}.get(name, "MAC"))
    run = add("run", commands.run_stations,
              "let stations join, leave, roam and change their signal until Ctrl-C, instead of the present ones")
    run.add_argument("--count", type=STATION_COUNT, default=40, metavar="N", help="number on all devices (default 40)")
    run.add_argument("--period", type=SECONDS, default=2.0, metavar="S",
                     help="between two states of the lists (default 2)")
    run.add_argument("--seconds", type=SECONDS, metavar="S", help="stop after so many seconds")
    run.add_argument("--devices", type=names, metavar="DEVICE[,..]", help="their devices (default all)")


def parse_command(arguments):
    """Everything after -- is exec's command, and the value of an ..-args option may begin with a dash."""
    split = arguments.index("--") if "--" in arguments else len(arguments)
    arguments, command = arguments[:split], arguments[split + 1:]
    joined = []
    for word in arguments:
        if joined and joined[-1] in ("--daemon-args", "--controller-args"):
            joined[-1] += f"={word}"
        else:
            joined.append(word)
    options, unknown = command_parser().parse_known_args(joined)
    if unknown and options.verb == "exec":
        raise UsageError(f"exec: put -- before the command: {options.device} -- {' '.join(unknown)}")
    if unknown:
        command_parser().error(f"unrecognized arguments: {' '.join(unknown)}")
    if command and options.verb != "exec":
        raise UsageError(f"{options.verb} has no command after --")
    options.command = command
    return options
