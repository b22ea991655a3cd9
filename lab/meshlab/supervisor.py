"""The ancestor of a mesh: starts the devices, links them, and ends them when it ends."""

import json
import os
import signal
import subprocess
import sys
import threading
from collections import defaultdict
from pathlib import Path

from meshlab.device import LOG
from meshlab.enter import run_in_network, run_ip
from meshlab.plan import (BRIDGE, LAB, SCRIPT, DeadlineError, MeshError, plan_devices, plan_links, plan_text,
                          read_plan)
from meshlab.running import read_state, require_mesh, switch_daemon, wait_until

START_SECONDS = 30.0  # bounds each step of `up`; a loaded machine with many devices needs some
# Protocol between `up` and its supervisor: the byte that lets the mesh outlive `up`, and the line after all daemons
# have started.
COMMIT = b"c"
READY = "ready"
PROGRESS = "progress: "  # prefix of a progress line


def end_with(descriptor, commit=None):
    """Ends this process, and so the mesh, when the descriptor's other end closes before it sent the commit byte."""
    def watch():
        while received := os.read(descriptor, 1):
            if received == commit:
                return
        os._exit(0)
    threading.Thread(target=watch, daemon=True).start()


def supervise(text):
    plan = read_plan(text)
    signal.signal(signal.SIGTERM, lambda *_: os._exit(0))
    end_with(plan.commit_fd, COMMIT)
    if plan.owner_fd is not None:
        end_with(plan.owner_fd)
    devices = plan_devices(plan)
    keepers = {name: start_device(name, plan) for name in devices}
    await_state(keepers, "stopped", "devices set up")
    report(f"linking {len(keepers)} devices")
    connect(plan_links(devices), {name: keeper.pid for name, keeper in keepers.items()})
    if plan.capture_fd is not None:
        start_capture(plan)
    for keeper in keepers.values():
        keeper.send_signal(signal.SIGUSR2)
    await_state(keepers, "running", "daemons running")
    print(READY, flush=True)
    null = os.open(os.devnull, os.O_RDWR)
    for stream in (1, 2):
        os.dup2(null, stream)
    while True:  # the first process of a PID namespace reaps what its devices leave
        try:
            os.wait()
        except ChildProcessError:
            return


def report(text):
    print(PROGRESS + text, flush=True)


def join(name, text):
    """Runs inside the mesh: starts one more device, and again the daemons of its neighbours, because daemons use the
    ports that they find at their start."""
    plan = read_plan(text)
    keeper = start_device(name, plan)
    try:
        wait_until(lambda: read_state(keeper.pid) == "stopped" or keeper.poll() is not None, START_SECONDS,
                   f"start of {name}")
        if keeper.poll() is not None:
            raise MeshError(f"{name} could not be set up")
        pids = require_mesh(plan.name).device_pids | {name: keeper.pid}
        devices = {each: device for each, device in plan_devices(plan).items() if each in pids}
        connect([link for link in plan_links(devices) if name in (link[0].name, link[2].name)], pids)
        switch_daemon(name, keeper.pid, signal.SIGUSR2)
    except BaseException:
        keeper.kill()
        raise
    for port in devices[name].ports:
        if port.neighbour in pids and read_state(pids[port.neighbour]) == "running":
            switch_daemon(port.neighbour, pids[port.neighbour], signal.SIGUSR1)
            switch_daemon(port.neighbour, pids[port.neighbour], signal.SIGUSR2)


def start_device(name, plan):
    command = [str(LAB / "room"), "--net", "--hostname", name, "--bin", str(LAB / "bin"),
               "--bin", f"{plan.build}/bin", "--", str(SCRIPT), "device", name, plan_text(plan)]
    return subprocess.Popen(command, stdin=subprocess.DEVNULL, start_new_session=True)


def await_state(keepers, state, meaning):
    reported = None

    def is_reached():
        nonlocal reported
        for name, keeper in keepers.items():
            if keeper.poll() is not None:
                raise MeshError(f"{name} could not be set up")
            current = read_state(keeper.pid)
            if current.startswith(("exited", "signal")):
                raise MeshError(f"{name}'s daemon did not start ({current}):\n{log_tail(keeper.pid)}")
        reached = sum(read_state(keeper.pid) == state for keeper in keepers.values())
        if reached != reported:
            reported = reached
            report(f"{reached} of {len(keepers)} {meaning}")
        return reached == len(keepers)
    try:
        wait_until(is_reached, START_SECONDS, f"'{state}' on every device")
    except DeadlineError as error:
        deaf = [name for name, keeper in keepers.items() if read_state(keeper.pid) == "starting"]
        if not deaf:
            raise
        raise MeshError(f"{error}; {deaf[0]}'s daemon runs but does not listen on all its ports:\n"
                        f"{log_tail(keepers[deaf[0]].pid)}") from None


def log_tail(pid):
    try:
        return "\n".join(Path(f"/proc/{pid}/root{LOG}").read_text(errors="replace").splitlines()[-8:])
    except OSError:
        return "(no log)"


def connect(links, pids):
    """Puts each link between the bridges of two devices."""
    links_new, ports = [], defaultdict(list)
    for near, port, far in links:
        far_port = next(each for each in far.ports if each.neighbour == near.name)
        links_new.append(f"link add name {port.name} address {near.port_mac(port)} netns {pids[near.name]} type veth "
                         f"peer name {far_port.name} address {far.port_mac(far_port)} netns {pids[far.name]}")
        ports[pids[near.name]].append(port.name)
        ports[pids[far.name]].append(far_port.name)
    run_ip(links_new)
    for pid, names in ports.items():
        # The daemon relays multicast, so the bridge must not; mcast_flood off stops what the bridge would
        # forward, not what the device sends.
        run_ip([f"link set dev {name} {change}" for name in names
                for change in (f"master {BRIDGE}", "type bridge_slave mcast_flood off", "up")], pid)
    wait_until(lambda: all(are_settled(pid, names) for pid, names in ports.items()), START_SECONDS,
               "settling of the bridges")


def are_settled(pid, names):
    states = {port["ifname"]: port["state"] for port in json.loads(run_in_network(pid, ["bridge", "-json", "link"]))}
    return all(states.get(name) in ("forwarding", "blocking") for name in names)


def start_capture(plan):
    capture = subprocess.Popen([sys.executable, str(SCRIPT), "--name", plan.name, "capture",
                                f"/proc/self/fd/{plan.capture_fd}"], stdout=subprocess.PIPE,
                               pass_fds=[plan.capture_fd])
    if not capture.stdout.readline():
        raise MeshError("the capture did not start")
