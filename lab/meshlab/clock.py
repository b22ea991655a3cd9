"""A separate wall clock for a device: libfaketime shifts what its programs read, and the lab moves the shift.

Timers use the monotonic clock, which is not moved: a moved clock changes ages, but wakes no process."""

import os
import subprocess
from glob import glob
from pathlib import Path

from meshlab.plan import MeshError

CLOCK_FILE = "/tmp/.clock_shift"
LIBRARY_PATTERN = "/usr/lib/*/faketime/libfaketime.so.1"


def clock_library():
    found = sorted(glob(LIBRARY_PATTERN))
    if not found:
        raise MeshError(f"no {LIBRARY_PATTERN}; --movable-clock needs the Debian package 'faketime'")
    return found[0]


def clock_environment():
    """Returns the environment of programs on a device with a movable clock."""
    sanitizer = os.environ.get("ASAN_OPTIONS")
    return {
        "LD_PRELOAD": clock_library(),
        "FAKETIME_TIMESTAMP_FILE": CLOCK_FILE,
        "FAKETIME_NO_CACHE": "1",  # so that a moved clock takes effect at once
        "FAKETIME_DONT_FAKE_MONOTONIC": "1",
        "NO_FAKE_STAT": "1",
        # The sanitizer's library should be the first of all; it also works as the second.
        "ASAN_OPTIONS": ":".join(filter(None, [sanitizer, "verify_asan_link_order=0"])),
    }


def set_up_clock():
    """Runs inside the device, before its first program with a movable clock."""
    # Each such program keeps a shared memory object, which would outlive a killed program in the machine's own tree.
    subprocess.run(["mount", "-t", "tmpfs", "clock", "/dev/shm"], check=True)
    write_shift(Path("/"), 0)


def read_shift(root):
    return int((root / CLOCK_FILE[1:]).read_text())


def write_shift(root, seconds):
    target = root / CLOCK_FILE[1:]
    draft = target.with_name(target.name + ".new")
    draft.write_text(f"{seconds:+d}\n")
    draft.replace(target)
