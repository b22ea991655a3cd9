"""Enters the namespaces of a device."""

import ctypes
import os
import select
import signal
import subprocess

from meshlab.plan import MeshError

libc = ctypes.CDLL(None, use_errno=True)


def enter_namespaces(pid, *kinds):
    """Moves this process into the named namespaces of pid, except those that it is in already."""
    paths = [f"/proc/{pid}/ns/{kind}" for kind in kinds]
    # Opens all first: /proc itself changes with the mount namespace.
    handles = [os.open(path, os.O_RDONLY | os.O_CLOEXEC) for path in paths
               if os.stat(path).st_ino != os.stat(path.replace(str(pid), "self", 1)).st_ino]
    for handle in handles:
        if libc.setns(handle, 0) != 0:
            error = ctypes.get_errno()
            raise OSError(error, os.strerror(error), f"namespaces of process {pid}")
        os.close(handle)


def run_in_network(pid, command, text=""):
    """Returns the output of a command of this machine in the network of pid."""
    return subprocess.run(command, preexec_fn=pid and (lambda: enter_namespaces(pid, "user", "net")), input=text,
                          text=True, stdout=subprocess.PIPE, check=True).stdout


def run_ip(commands, pid=None):
    """Changes the network of pid, or the present one."""
    run_in_network(pid, ["ip", "-batch", "-"], "\n".join(commands) + "\n")


def run_inside(pid, command, environment):
    """Runs the command in the namespaces of pid and returns its status as a shell counts it. The command ends
    with this process, also when that is killed."""
    enter_namespaces(pid, "user", "pid", "net", "uts", "mnt")
    os.chdir("/")
    status, status_end = os.pipe()
    life, life_end = os.pipe()
    signal.signal(signal.SIGINT, signal.SIG_IGN)  # the command handles Ctrl-C
    # The process that keeps the command becomes a child of the mesh's supervisor, which reaps it when this process
    # cannot: an unreaped zombie would block the end of the mesh.
    middle = os.fork()
    if middle == 0:
        if os.fork() == 0:
            os.close(life_end)
            os.write(status_end, bytes([keep(command, environment, life)]))
        os._exit(0)
    os.waitpid(middle, 0)
    os.close(status_end)
    received = os.read(status, 1)
    if not received:
        raise MeshError("the mesh ended meanwhile")
    return received[0]


def keep(command, environment, life):
    """Waits for the command, or ends it when the other end of life closes."""
    try:
        process = subprocess.Popen(command, env=environment,
                                   preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL))
    except OSError as error:
        os.write(2, f"mesh: {command[0]}: {error.strerror}\n".encode())
        return 127 if isinstance(error, FileNotFoundError) else 126
    ended = os.pidfd_open(process.pid)
    if life in select.select([ended, life], [], [])[0]:
        process.kill()
    result = process.wait()
    return result if result >= 0 else 128 - result
