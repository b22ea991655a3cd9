"""The first process of a device: writes its files, then starts and supervises its daemon."""

import fcntl
import os
import re
import shlex
import signal
import socket
import subprocess
import threading
import time
from datetime import datetime, timedelta
from pathlib import Path

from meshlab.clock import clock_environment, read_shift, set_up_clock
from meshlab.enter import run_ip
from meshlab.plan import BRIDGE, DEVICE_FILES, MEDIA, plan_devices, read_plan
from meshlab.stations import Population, StationFiles

LOG = "/tmp/kv1905d.log"
STOP_SECONDS = 5.0
REBOOT_SECONDS = 1.0
PIPE_SIZE = 1 << 20
FACTORY_PASSWORD = b"admin"  # as the configuration service has it
# Matches the start of the daemon's own lines: a date and the time, or in a trace the time.
STAMPED = re.compile(rb"(\d{4}-\d\d-\d\d )?\d\d:\d\d:\d\d\.\d{3} ")


def port_names():
    """Returns the current interfaces to neighbours."""
    prefixes = tuple(medium.port for medium in MEDIA.values())
    return [name for _, name in socket.if_nameindex() if name.startswith(prefixes)]


class Log:
    """The log of a device. Lines of other programs than the daemon are prefixed with the device's time and name."""

    def __init__(self, name, has_clock):
        self._name = name
        self._has_clock = has_clock

    def write(self, source, text):
        self._append(self._prefix(source) + text.encode() + b"\n")

    def follow(self, descriptor):
        """Copies the input until no process can write to the descriptor."""
        with open(descriptor, "rb") as lines:
            for line in lines:
                self._append(line if STAMPED.match(line) else self._prefix("output") + line)

    def _prefix(self, source):
        now = datetime.now() + timedelta(seconds=read_shift(Path("/")) if self._has_clock else 0)
        return f"{now.isoformat(' ', 'milliseconds')} {self._name} {source}: ".encode()

    def _append(self, line):
        with open(LOG, "ab") as log:
            log.write(line)


class DaemonKeeper:
    """Runs inside a device. SIGUSR2 starts the daemon, SIGUSR1 stops it, SIGHUP reboots it. A daemon that ends on
    its own stays down, so that a crash is noticed."""

    SIGNALS = (signal.SIGUSR1, signal.SIGUSR2, signal.SIGHUP, signal.SIGCHLD)
    POLL_SECONDS = 0.02

    def __init__(self, device, plan, variables):
        self._device = device
        self._plan = plan
        self._variables = variables
        self._log = Log(device.name, plan.movable_clock)
        self._interfaces = []
        self._daemon = None
        self._follower = None
        self._restart_at = None

    def run(self):
        signal.pthread_sigmask(signal.SIG_BLOCK, self.SIGNALS)
        actions = {signal.SIGUSR1: self._stop, signal.SIGUSR2: self._start, signal.SIGHUP: self._reboot,
                   signal.SIGCHLD: self._reap}
        self._set_state("stopped")
        while True:
            is_waiting = self._restart_at is not None or self._state == "starting"
            arrived = signal.sigtimedwait(self.SIGNALS, self.POLL_SECONDS if is_waiting else 3600)
            if arrived:
                actions[arrived.si_signo]()
            elif self._restart_at is not None and time.monotonic() >= self._restart_at:
                self._start()
            elif self._state == "starting" and self._is_listening():
                self._set_state("running")

    def _set_state(self, state):
        self._state = state
        Path("/proc/self/comm").write_text(state)

    def _start(self):
        self._restart_at = None
        if self._daemon:
            return
        environment = {**os.environ, **self._variables, "KV1905_LAB_PID": str(os.getpid())}
        self._interfaces = port_names()
        command = self._device.daemon_command(self._plan, self._interfaces)
        self._log.write("mesh", f"start {shlex.join(command)}")
        lines, lines_end = os.pipe()
        fcntl.fcntl(lines_end, fcntl.F_SETPIPE_SZ, PIPE_SIZE)
        self._follower = threading.Thread(target=self._log.follow, args=[lines], daemon=True)
        self._follower.start()
        try:
            self._daemon = subprocess.Popen(
                command, stdin=subprocess.DEVNULL, stdout=lines_end, stderr=lines_end, env=environment,
                preexec_fn=lambda: signal.pthread_sigmask(signal.SIG_UNBLOCK, self.SIGNALS))
        except OSError as error:
            self._log.write("mesh", f"cannot start {command[0]}: {error}")
            self._set_state("exited 127")
            return
        finally:
            os.close(lines_end)
        self._set_state("starting")

    def _end_daemon(self, state):
        self._restart_at = None
        self._set_state(state)
        if self._daemon:
            self._daemon.terminate()
            try:
                self._daemon.wait(STOP_SECONDS)
            except subprocess.TimeoutExpired:
                self._log.write("mesh", f"the daemon ignored SIGTERM for {STOP_SECONDS:g} s and was killed")
                self._daemon.kill()
            self._note_end("ended")

    def _stop(self):
        self._end_daemon("stopping")
        self._set_state("stopped")

    def _reboot(self):
        self._end_daemon("rebooting")
        self._restart_at = time.monotonic() + REBOOT_SECONDS

    def _reap(self):
        if self._daemon and self._daemon.poll() is not None:
            state = describe_end(self._daemon.returncode)
            self._note_end("ended by itself")
            self._set_state(state)

    def _note_end(self, what):
        """Runs after the daemon's last lines; a child that outlives it may still hold the pipe."""
        status = self._daemon.wait()
        self._follower.join(1)
        self._log.write("mesh", f"{what}: {describe_end(status)}")
        self._daemon = None

    def _is_listening(self):
        """Returns whether the daemon (not a capture) holds a packet socket on every port. It is the child of the process
        that was started."""
        watcher = self._daemon.pid
        try:
            process = Path("/proc", *Path(f"/proc/{watcher}/task/{watcher}/children").read_text().split()[:1])
            targets = [os.readlink(entry) for entry in (process / "fd").iterdir()]
            rows = [line.split() for line in (process / "net/packet").read_text().splitlines()[1:]]
        except (FileNotFoundError, ProcessLookupError):
            return False
        bound = {int(row[4]) for row in rows if f"socket:[{row[8]}]" in targets}
        return {socket.if_nametoindex(interface) for interface in self._interfaces} <= bound


def describe_end(status):
    return f"exited {status}" if status >= 0 else f"signal {-status}"


PASSWORD_FILE = "/data/FMUBBW3CBI.dat"


def write_password(source):
    """Writes the device's copy of the administrator password, encrypted as the plug-in expects it."""
    line = (Path(f"/.host{source}").read_bytes().split(b"\n")[0] if source else FACTORY_PASSWORD) + b"\n"
    command = ["openssl", "enc", "-aes-256-cbc", "-pbkdf2", "-a", "-pass", "pass:Qm7tR2xLp9Vd4Kw8Zs3Hn6Jb1Y",
               "-out", PASSWORD_FILE]
    subprocess.run(command, input=line, check=True)
    os.chmod(PASSWORD_FILE, 0o600)


def run_device(name, text):
    plan = read_plan(text)
    device = plan_devices(plan)[name]
    os.chdir("/")
    for path, text in DEVICE_FILES.items():
        Path(path).write_text(text.format(**device.facts()))
    write_password(plan.password_file)
    population = Population({name: device.number}, seed=0)
    population.add(name, plan.stations)
    StationFiles(Path("/")).write(population.stations[name])
    if plan.movable_clock:
        set_up_clock()
    # A loop needs the spanning tree, elsewhere it only costs time.
    has_loop = len(plan.links) >= len(plan.devices)
    tree = "stp_state 1 forward_delay 200 hello_time 100" if has_loop else "stp_state 0 forward_delay 0"
    run_ip([f"link add name {BRIDGE} address {device.al_mac} type bridge {tree} mcast_snooping 0",
            f"address add {device.ip}/24 brd + dev {BRIDGE}", f"link set dev {BRIDGE} up"])
    for scope in ("all", "default"):  # quiet links: no router solicitations, no multicast reports
        switch = Path(f"/proc/sys/net/ipv6/conf/{scope}/disable_ipv6")
        if switch.exists():
            switch.write_text("1")
    null = os.open(os.devnull, os.O_RDWR)
    for stream in (1, 2):
        os.dup2(null, stream)
    variables = {"KV_LOG_LEVEL": str(plan.log_level)} | (clock_environment() if plan.movable_clock else {})
    DaemonKeeper(device, plan, variables).run()
