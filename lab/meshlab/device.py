"""The first process of a device: writes its files, then keeps its daemon."""

import os
import re
import shlex
import signal
import socket
import subprocess
import time
from pathlib import Path

from meshlab.clock import clock_environment, set_up_clock
from meshlab.plan import DEVICE_FILES, plan_devices, read_plan
from meshlab.stations import Population, StationFiles

LOG = "/tmp/kv1905d.log"
STOP_SECONDS = 5.0
REBOOT_SECONDS = 1.0


class DaemonKeeper:
    """Runs inside a device. SIGUSR2 starts the daemon, SIGUSR1 stops it, SIGHUP reboots it. A daemon that ends by
    itself stays down, so that a crash is seen."""

    SIGNALS = (signal.SIGUSR1, signal.SIGUSR2, signal.SIGHUP, signal.SIGCHLD)
    POLL_SECONDS = 0.02

    def __init__(self, command, interfaces, variables):
        self._command = command
        self._variables = variables
        self._interfaces = interfaces
        self._daemon = None
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

    def _log(self, text):
        with open(LOG, "a") as log:
            log.write(f"{time.strftime('%H:%M:%S')} mesh: {text}\n")

    def _start(self):
        self._restart_at = None
        if self._daemon:
            return
        environment = {**os.environ, **self._variables, "KV1905_LAB_PID": str(os.getpid())}
        write_led_state(environment)
        self._log(f"start {shlex.join(self._command)}")
        try:
            with open(LOG, "ab") as log:
                self._daemon = subprocess.Popen(
                    self._command, stdin=subprocess.DEVNULL, stdout=log, stderr=log, env=environment,
                    preexec_fn=lambda: signal.pthread_sigmask(signal.SIG_UNBLOCK, self.SIGNALS))
        except OSError as error:
            self._log(f"cannot start {self._command[0]}: {error}")
            self._set_state("exited 127")
            return
        self._set_state("starting")

    def _end_daemon(self, state):
        self._restart_at = None
        self._set_state(state)
        if self._daemon:
            self._daemon.terminate()
            try:
                self._daemon.wait(STOP_SECONDS)
            except subprocess.TimeoutExpired:
                self._log(f"the daemon ignored SIGTERM for {STOP_SECONDS:g} s and was killed")
                self._daemon.kill()
            self._log(f"ended: {describe_end(self._daemon.wait())}")
            self._daemon = None

    def _stop(self):
        self._end_daemon("stopping")
        self._set_state("stopped")

    def _reboot(self):
        self._end_daemon("rebooting")
        self._restart_at = time.monotonic() + REBOOT_SECONDS

    def _reap(self):
        if self._daemon and self._daemon.poll() is not None:
            self._set_state(describe_end(self._daemon.returncode))
            self._log(f"ended by itself: {self._state}")
            self._daemon = None

    def _is_listening(self):
        """Whether the daemon itself (not a capture) holds a packet socket on every port. It is the child of the process
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


def write_led_state(environment):
    """As a device's other components do: what the configuration service keeps is in the file that the daemon reads."""
    kept = subprocess.run(["kcfg", "get", "LED_CTRL.1.enable"], capture_output=True, text=True, env=environment)
    path = Path("/tmp/.kv1905_conf")
    if kept.returncode == 0:
        path.write_text(re.sub(r"^LedEnable=.*", f"LedEnable={kept.stdout.strip()}", path.read_text(), flags=re.M))


def write_password(source):
    """The device's own copy of the administrator password, encrypted as the plug-in expects to find it."""
    line = Path(f"/.host{source}").read_bytes().split(b"\n")[0] + b"\n"
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
    if plan.password_file:
        write_password(plan.password_file)
    if plan.stations:
        population = Population({name: device.number}, seed=0)
        population.add(name, plan.stations)
        StationFiles(Path("/")).write(population.stations[name])
    if plan.movable_clock:
        set_up_clock()
    for scope in ("all", "default"):  # quiet links: no router solicitations, no multicast reports
        switch = Path(f"/proc/sys/net/ipv6/conf/{scope}/disable_ipv6")
        if switch.exists():
            switch.write_text("1")
    null = os.open(os.devnull, os.O_RDWR)
    for stream in (1, 2):
        os.dup2(null, stream)
    variables = {"KV_LOG_LEVEL": str(plan.log_level)} | (clock_environment() if plan.movable_clock else {})
    DaemonKeeper(device.daemon_command(plan), device.interfaces, variables).run()
