"""The ancestor of a mesh: starts the devices, links them, and takes them with it when it ends."""

import json
import os
import signal
import subprocess
import sys
import threading
from pathlib import Path

from meshlab.device import LOG
from meshlab.plan import (BRIDGE, LAB, SCRIPT, DeadlineError, MeshError, plan_devices, plan_links, plan_text,
                          read_plan)
from meshlab.running import read_state, wait_until

START_SECONDS = 30.0  # bounds each step of `up`; a loaded machine with many devices needs some
# Between `up` and its supervisor: the byte that lets the mesh outlive `up`, and the line that says all daemons run.
COMMIT = b"c"
READY = "ready"
PROGRESS = "progress: "  # in front of a line that tells how far it is


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
    keepers = {name: subprocess.Popen(device_command(name, plan), stdin=subprocess.DEVNULL) for name in devices}
    await_state(keepers, "stopped", "devices set up")
    print(f"{PROGRESS}linking {len(keepers)} devices", flush=True)
    connect(devices, keepers, has_loop=plan.shape == "ring")
    if plan.capture_fd is not None:
        start_capture(plan)
    for keeper in keepers.values():
        keeper.send_signal(signal.SIGUSR2)
    await_state(keepers, "running", "daemons running")
    print(READY, flush=True)
    null = os.open(os.devnull, os.O_RDWR)
    for stream in (1, 2):
        os.dup2(null, stream)
    while True:  # the first process of a PID namespace buries whatever its devices leave behind
        try:
            os.wait()
        except ChildProcessError:
            return


def device_command(name, plan):
    return [str(LAB / "room"), "--net", "--hostname", name, "--bin", str(LAB / "bin"),
            "--bin", f"{plan.build}/bin", "--", str(SCRIPT), "device", name, plan_text(plan)]


def await_state(keepers, state, meaning):
    told = None

    def is_reached():
        nonlocal told
        for name, keeper in keepers.items():
            if keeper.poll() is not None:
                raise MeshError(f"{name} could not be set up")
            current = read_state(keeper.pid)
            if current.startswith(("exited", "signal")):
                raise MeshError(f"{name}'s daemon did not start ({current}):\n{log_tail(keeper.pid)}")
        reached = sum(read_state(keeper.pid) == state for keeper in keepers.values())
        if reached != told:
            told = reached
            print(f"{PROGRESS}{reached} of {len(keepers)} {meaning}", flush=True)
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


def connect(devices, keepers, has_loop):
    pids = {name: keeper.pid for name, keeper in keepers.items()}
    ip_batch([f"link add name eth{a} address {near.port_mac(a)} netns {pids[near.name]} "
              f"type veth peer name eth{b} address {far.port_mac(b)} netns {pids[far.name]}"
              for near, a, far, b in plan_links(devices)])
    for name, device in devices.items():
        ip_batch(bridge_commands(device, has_loop), pids[name])
    wait_until(lambda: all(are_ports_settled(pid) for pid in pids.values()), START_SECONDS, "settling of the bridges")


def bridge_commands(device, has_loop):
    # A loop needs the spanning tree, elsewhere it only costs time. The bridge leaves multicast to the daemon, which
    # relays it itself; mcast_flood off stops what the bridge would forward, not what the device sends.
    tree = "stp_state 1 forward_delay 200 hello_time 100" if has_loop else "stp_state 0 forward_delay 0"
    commands = [f"link add name {BRIDGE} address {device.al_mac} type bridge {tree} mcast_snooping 0"]
    for port in device.interfaces:
        commands += [f"link set dev {port} master {BRIDGE}", f"link set dev {port} type bridge_slave mcast_flood off",
                     f"link set dev {port} up"]
    return commands + [f"address add {device.ip}/24 brd + dev {BRIDGE}", f"link set dev {BRIDGE} up"]


def ip_batch(commands, pid=None):
    prefix = ["nsenter", "--target", str(pid), "--net"] if pid else []
    subprocess.run([*prefix, "ip", "-batch", "-"], input="\n".join(commands) + "\n", text=True, check=True)


def are_ports_settled(pid):
    shown = subprocess.run(["nsenter", "--target", str(pid), "--net", "bridge", "-json", "link"],
                           stdout=subprocess.PIPE, check=True).stdout
    return all(port["state"] in ("forwarding", "blocking") for port in json.loads(shown or "[]"))


def start_capture(plan):
    capture = subprocess.Popen([sys.executable, str(SCRIPT), "--name", plan.name, "capture",
                                f"/proc/self/fd/{plan.capture_fd}"], stdout=subprocess.PIPE,
                               pass_fds=[plan.capture_fd])
    if not capture.stdout.readline():
        raise MeshError("the capture did not start")
