"""Finds meshes that are up, through /proc."""

import argparse
import os
import signal
import time
from dataclasses import dataclass
from pathlib import Path

from meshlab.device import STOP_SECONDS
from meshlab.plan import SCRIPT, DeadlineError, MeshError, find_device, plan_devices, read_plan


def wait_until(condition, seconds, what):
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            raise DeadlineError(f"{what} did not happen within {seconds:g} s")
        time.sleep(0.02)


def processes():
    """Yields (pid, parent's pid, arguments) of the caller's own processes."""
    for entry in Path("/proc").iterdir():
        if not entry.name.isdigit():
            continue
        try:
            if entry.stat().st_uid != os.geteuid():
                continue
            arguments = (entry / "cmdline").read_bytes().decode(errors="replace").split("\0")[:-1]
            parent = (entry / "stat").read_text(errors="replace").rpartition(")")[2].split()[1]
        except (FileNotFoundError, ProcessLookupError):
            continue
        yield int(entry.name), int(parent), arguments


def is_role(arguments, role):
    return len(arguments) > 3 and Path(arguments[1]).name == SCRIPT.name and arguments[2] == role


def read_state(pid):
    """Returns the state of a device's daemon, which is the process name of the device's supervisor."""
    try:
        return Path(f"/proc/{pid}/comm").read_text().strip()
    except (FileNotFoundError, ProcessLookupError):
        return "gone"


def switch_daemon(name, pid, number):
    """Stops (SIGUSR1) or starts (SIGUSR2) the daemon of the device whose supervisor pid is."""
    state = "stopped" if number == signal.SIGUSR1 else "running"
    os.kill(pid, number)
    wait_until(lambda: read_state(pid) == state, 2 * STOP_SECONDS, f"'{state}' on {name}")


@dataclass
class RunningMesh:
    plan: argparse.Namespace
    pid: int  # the supervisor
    unshare_pid: int  # its parent, which ends just after it
    device_pids: dict
    daemon_pids: dict

    @property
    def devices(self):
        """Returns the devices that are running: a removed one has no process."""
        return {name: device for name, device in plan_devices(self.plan).items() if name in self.device_pids}

    def device_pid(self, name):
        find_device(self.devices, name)
        return self.device_pids[name]

    def device_root(self, name):
        """Returns the device's file system, as visible from outside."""
        return Path(f"/proc/{self.device_pid(name)}/root")


def find_mesh(name):
    everything = list(processes())
    supervisors = {pid: (parent, plan) for pid, parent, arguments in everything
                   if is_role(arguments, "supervise") and (plan := read_plan(arguments[3]))}
    for pid, (parent, plan) in supervisors.items():
        # A child that has not called exec yet still has the supervisor's command line.
        if plan.name != name or parent in supervisors:
            continue
        kept = [(child, args) for child, ppid, args in everything if ppid == pid and is_role(args, "device")]
        device_pids = {args[3]: child for child, args in kept}
        # A device that was added later knows more devices than earlier ones.
        plan = max([plan, *(read_plan(args[4]) for _, args in kept)], key=lambda plan: len(plan.devices))
        owners = {device_pid: device for device, device_pid in device_pids.items()}
        watchers = {child: owners[ppid] for child, ppid, _ in everything if ppid in owners}
        daemon_pids = {watchers[ppid]: child for child, ppid, _ in everything if ppid in watchers}
        return RunningMesh(plan, pid, parent, device_pids, daemon_pids)
    return None


def require_mesh(name):
    mesh = find_mesh(name)
    if mesh is None:
        raise MeshError(f"no mesh '{name}' is up; start one with 'mesh --name {name} up'")
    return mesh
