"""The commands of lab/mesh: each receives the parsed command line and returns an exit status, None for 0."""

import json
import os
import re
import select
import signal
import socket
import subprocess
import sys
import time
from contextlib import suppress
from pathlib import Path

from meshlab.capture import capture_links
from meshlab.clock import clock_environment, clock_library, read_shift, write_shift
from meshlab.device import LOG, STOP_SECONDS
from meshlab.enter import enter_namespaces, run_in_network, run_inside, run_ip
from meshlab.plan import (DATA_MODEL, MEDIA, SCRIPT, DeadlineError, MeshError, Topology, UsageError, check_plan,
                          find_device, plan_links, plan_text, read_topology, shaped_topology)
from meshlab.running import read_state, require_mesh, switch_daemon, wait_until
from meshlab.stations import Population, StationFiles
from meshlab.supervisor import COMMIT, PROGRESS, READY
from meshlab.terminal import Progress

NAME_SECONDS = 1.0  # limit for the end of a mesh whose `up` was just killed


def up(options):
    if options.topology and options.shape:
        raise UsageError("--topology excludes --shape")
    topology = (read_topology(options.topology) if options.topology else
                shaped_topology(options.shape or "line", options.devices))
    options.devices, options.links = topology.devices, topology.links
    check_plan(options)
    if options.movable_clock:
        clock_library()
    lock = take_name(options.name)
    options.commit_fd, commit = os.pipe()
    report, report_end = os.pipe()
    options.capture_fd = open_capture(options.capture)
    inherited = (lock.fileno(), options.commit_fd, options.owner_fd, options.capture_fd)
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    supervisor = subprocess.Popen(
        ["unshare", *user_namespace(), "--fork", "--pid", "--kill-child", "--mount-proc", "--mount", "--net", "--uts",
         "--", sys.executable, str(SCRIPT), "supervise", plan_text(options)],
        stdin=subprocess.DEVNULL, stdout=report_end, stderr=report_end, cwd="/", start_new_session=True,
        pass_fds=[fd for fd in inherited if fd is not None])
    os.close(report_end)
    os.close(options.commit_fd)
    is_committed = False
    try:
        await_ready(report)
        status(options)
        if options.foreground:
            print("press Ctrl-C to end the mesh", flush=True)
            with suppress(KeyboardInterrupt):
                supervisor.wait()
        else:
            is_committed = os.write(commit, COMMIT) == len(COMMIT)
    finally:
        os.close(commit)
        if not is_committed:
            supervisor.wait()


def take_name(name):
    """Reserves the name with an abstract socket, which the supervisor holds."""
    lock = socket.socket(socket.AF_UNIX)

    def is_taken_by_us():
        try:
            lock.bind(f"\0kv1905-mesh-{os.geteuid()}-{name}")
        except OSError:
            return False
        return True

    try:
        wait_until(is_taken_by_us, NAME_SECONDS, "release of the name")
    except DeadlineError:
        raise MeshError(f"a mesh '{name}' is up already; 'mesh --name {name} down' ends it") from None
    return lock


def open_capture(path):
    return None if path is None else os.open(path, os.O_WRONLY | os.O_CREAT | os.O_TRUNC | os.O_CLOEXEC, 0o644)


def user_namespace():
    for options in ([], ["--user", "--map-root-user"]):
        if subprocess.run(["unshare", *options, "--mount", "--net", "true"], stderr=subprocess.DEVNULL).returncode == 0:
            return options
    raise MeshError("this machine allows neither plain nor user namespaces; run as root or allow user namespaces")


def await_ready(report):
    """Passes the supervisor's messages on until it reports that all daemons run."""
    messages = []
    progress = Progress()
    with open(report, errors="replace") as lines:
        for line in lines:
            if line.startswith(PROGRESS):
                progress.show(line.strip().removeprefix(PROGRESS))
                continue
            progress.clear()
            if line.strip() == READY:
                sys.stderr.write("".join(messages))
                return
            messages.append(line)
    progress.clear()
    raise MeshError("".join(messages).strip().removeprefix("mesh: ") or "the supervisor ended without a message")


def down(options):
    mesh = require_mesh(options.name)
    ends = [os.pidfd_open(pid) for pid in (mesh.pid, mesh.unshare_pid)]
    signal.pidfd_send_signal(ends[0], signal.SIGKILL)
    # The supervisor has ended only when the kernel has ended everything below it.
    for end in ends:
        if not select.select([end], [], [], STOP_SECONDS)[0]:
            raise MeshError(f"mesh '{options.name}' (pid {mesh.pid}) did not end within {STOP_SECONDS:g} s")


def status(options):
    mesh = require_mesh(options.name)
    rows = [describe_device(device, mesh) for device in mesh.devices.values()]
    if getattr(options, "json", False):
        print(json.dumps({"name": mesh.plan.name, "build": mesh.plan.build, "supervisorPid": mesh.pid,
                          "devices": rows}, indent=2))
        return
    layout = "{:<11} {:<18} {:<15} {:<11} {:>8}  {}"
    print(layout.format("DEVICE", "AL MAC", "IP", "DAEMON", "PID", "LINKS"))
    for row in rows:
        links = ", ".join("{interface}→{neighbor}.{neighborInterface}".format(**link) +
                          "".join(f" ({text})" for text in [link["impairment"], "down"[:4 * (not link["up"])]] if text)
                          for link in row["links"])
        daemon = row["daemon"]
        print(layout.format(row["name"], row["alMac"], row["ip"], daemon["state"], daemon["pid"] or "-", links))


def describe_device(device, mesh):
    pid = mesh.device_pid(device.name)
    states = {row["ifname"]: row for row in json.loads(run_in_network(pid, ["ip", "-json", "link"]))}
    return {
        "name": device.name, "model": device.model, "alMac": device.al_mac, "ip": device.ip, "pid": pid,
        "plugin": device.name not in mesh.plan.no_plugin,
        "links": [{"interface": port.name, "mac": device.port_mac(port), "neighbor": port.neighbour,
                   "neighborInterface": port.neighbour_port, "medium": MEDIA[port.medium].title,
                   "up": states[port.name]["operstate"] == "UP",
                   "impairment": impairment(pid, port) if states[port.name].get("qdisc") == "netem" else ""}
                  for port in device.ports if port.name in states],
        "daemon": {"pid": mesh.daemon_pids.get(device.name), "state": read_state(pid)},
    }


def impairment(pid, port):
    """Returns the impairment, such as "delay 20ms loss 10%"."""
    return re.sub(r".* limit \d+ *", "", run_in_network(pid, ["tc", "qdisc", "show", "dev", port.name]).strip())


# ---- Changes of the topology


def add_device(options):
    mesh = require_mesh(options.name)
    plan, name = mesh.plan, options.device
    topology = Topology(plan.devices, plan.links)
    if name in plan.devices and name not in mesh.devices:
        if options.link or options.model:
            raise UsageError(f"{name} was removed and is restored unchanged; leave out --link and --model")
    else:
        neighbour = options.link or next(iter(mesh.devices))
        find_device(mesh.devices, neighbour)
        topology.add_device(name, options.model)
        topology.add_link(neighbour, name, options.medium)
    return run_inside(mesh.pid, [sys.executable, str(SCRIPT), "join", name, plan_text(plan)], os.environ)


def remove_device(options):
    mesh = require_mesh(options.name)
    device, pid = find_device(mesh.devices, options.device), mesh.device_pid(options.device)
    switch_daemon(device.name, pid, signal.SIGUSR1)
    # A shell that is still open on the device keeps its network, which then has no links.
    run_ip([f"link delete {port.name}" for port in device.ports if port.neighbour in mesh.devices], pid)
    with os.fdopen(os.pidfd_open(pid)) as end:
        os.kill(pid, signal.SIGKILL)
        select.select([end], [], [], STOP_SECONDS)


def change_link(options):
    mesh = require_mesh(options.name)
    ends = [mesh.devices[name] for name in (options.near, options.far) if find_device(mesh.devices, name)]
    ports = [next((port for port in device.ports if port.neighbour == other.name), None)
             for device, other in zip(ends, reversed(ends))]
    if None in ports:
        linked = ", ".join(port.neighbour for port in ends[0].ports)
        raise UsageError(f"{options.near} and {options.far} are not linked; {options.near} is linked with {linked}")
    for device, port in zip(ends, ports):
        pid = mesh.device_pid(device.name)
        if options.action == "set":
            impair(pid, port, options)
        else:
            run_ip([f"link set dev {port.name} {options.action}"], pid)


def impair(pid, port, options):
    command = ["tc", "qdisc", "replace", "dev", port.name, "root", "netem", "loss", f"{options.loss}%",
               "delay", f"{options.delay}ms"]
    done = subprocess.run(command, preexec_fn=lambda: enter_namespaces(pid, "user", "net"), stderr=subprocess.PIPE,
                          text=True)
    if "qdisc kind is unknown" in done.stderr:
        raise MeshError("this machine's kernel has no netem (module sch_netem), which loss and delay need")
    if done.returncode != 0:
        raise MeshError(f"{' '.join(command)}: {done.stderr.strip()}")


# ---- On one device


def execute(options):
    if not options.command:
        raise UsageError("exec: no command given; put it after --")
    return run_in_device(options, options.command)


def logs(options):
    return run_in_device(options, ["tail", "-n", "+1", "-F", LOG] if options.follow else ["cat", LOG])


def shell(options):
    return run_in_device(options, ["bash"])


def run_in_device(options, command):
    mesh = require_mesh(options.name)
    pid = mesh.device_pid(options.device)
    variables = Path(f"/proc/{pid}/environ").read_bytes().decode(errors="surrogateescape").split("\0")
    path = next(value.removeprefix("PATH=") for value in variables if value.startswith("PATH="))
    inner_pid = re.search(r"^NSpid:.*\s(\d+)$", Path(f"/proc/{pid}/status").read_text(), re.MULTILINE).group(1)
    environment = {name: value for name, value in os.environ.items() if name != "TMPDIR"}
    clock = clock_environment() if mesh.plan.movable_clock else {}
    return run_inside(pid, command, environment | clock | {"PATH": path, "KV1905_LAB_PID": inner_pid})


def view(options):
    """Serves the page on the machine, where a browser is, and reads the file inside the device."""
    mesh = require_mesh(options.name)
    device = options.device or next(iter(mesh.devices))
    program = f"{mesh.plan.build}/bin/kv1905-view"
    os.execv(program, [program, "--serve", "--port", str(options.port), "--data-model",
                       f"{mesh.device_root(device)}{DATA_MODEL}"])


def stop(options):
    switch_daemon(options.device, require_mesh(options.name).device_pid(options.device), signal.SIGUSR1)


def start(options):
    switch_daemon(options.device, require_mesh(options.name).device_pid(options.device), signal.SIGUSR2)


def move_clock(options):
    mesh = require_mesh(options.name)
    root = mesh.device_root(options.device)
    if not mesh.plan.movable_clock:
        raise MeshError(f"clocks of mesh '{options.name}' cannot be moved; start it with 'up --movable-clock'")
    write_shift(root, read_shift(root) + options.seconds)
    print(f"{options.device}'s clock is {read_shift(root):+d} s off the machine's")


def set_stations(options):
    mesh = require_mesh(options.name)
    population = Population({options.device: find_device(mesh.devices, options.device).number}, options.seed)
    population.add(options.device, options.count)
    StationFiles(mesh.device_root(options.device)).write(population.stations[options.device])


def move_station(options):
    mesh = require_mesh(options.name)
    source, target = (StationFiles(mesh.device_root(name)) for name in (options.source, options.target))
    listed = source.read()
    moving = [station for station in listed if station.mac == options.mac]
    if not moving:
        raise MeshError(f"{options.source} lists no station {options.mac}")
    population = Population({}, options.seed)
    source.write([station for station in listed if station not in moving])
    target.write(target.read() + [population.rejoined(station) for station in moving])


def run_stations(options):
    mesh = require_mesh(options.name)
    names = options.devices or list(mesh.devices)
    files = {name: StationFiles(mesh.device_root(name)) for name in names}
    population = Population({name: mesh.devices[name].number for name in names}, options.seed)
    population.spread(options.count)
    mesh_end = os.pidfd_open(mesh.pid)
    end = None if options.seconds is None else time.monotonic() + options.seconds
    while True:
        for name, stations in population.stations.items():
            files[name].write(stations)
        try:
            if select.select([mesh_end], [], [], options.period)[0]:
                raise MeshError(f"mesh '{options.name}' ended meanwhile")
        except KeyboardInterrupt:
            return 0
        if end is not None and time.monotonic() >= end:
            return 0
        population.live(options.period, options.count)


def capture(options):
    mesh = require_mesh(options.name)
    taps = [(f"{near.name}.{port.name}-{far.name}.{port.neighbour_port}", mesh.device_pid(near.name), port.name)
            for near, port, far in plan_links(mesh.devices)]
    is_piped = options.file == "-"
    report = sys.stderr if is_piped else sys.stdout
    written, lost = capture_links("/dev/stdout" if is_piped else options.file, mesh.pid, taps, options.seconds, report)
    print(f"{written} frames in {options.file}" + (f", {lost} lost" if lost else ""), file=report)
