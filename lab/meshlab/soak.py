"""Values of each daemon in a long run, and the rule for a level series."""

import os
from dataclasses import dataclass, field
from pathlib import Path

MIN_SAMPLES = 8  # of a series that is evaluated
MEMORY_SLACK = 1.05  # of the earlier mean, and at least
MEMORY_SLACK_KB = 1024
DESCRIPTOR_SLACK = 2  # a command's pipe or a tool's connection may be open at that moment

RULE = f"""\
A series is the values of one daemon process from its start to its end. It is evaluated if it has {MIN_SAMPLES} samples:
  memory       the last quarter's mean is at most {MEMORY_SLACK:.0%} of the second quarter's, or {MEMORY_SLACK_KB} kB more
  descriptors  the last quarter's most is at most {DESCRIPTOR_SLACK} above the second quarter's most
  children     no child process, zombies included, exists in two consecutive samples"""


@dataclass(frozen=True)
class Sample:
    rss: int  # kB
    descriptors: int
    children: frozenset  # (pid, start time)
    zombies: int


def take_sample(pid):
    """Returns None if the process has ended."""
    process = Path("/proc") / str(pid)
    try:
        status = dict(line.split(":\t", 1) for line in (process / "status").read_text().splitlines())
        descriptors = len(os.listdir(process / "fd"))
        listed = (process / f"task/{pid}/children").read_text().split()
        children = [child for child in map(child_of, listed) if child]
        return Sample(int(status["VmRSS"].split()[0]), descriptors, frozenset(child[:2] for child in children),
                      sum(child[2] == "Z" for child in children))
    except (FileNotFoundError, ProcessLookupError, KeyError):  # a process that just died has no VmRSS
        return None


def child_of(pid):
    try:
        fields = Path(f"/proc/{pid}/stat").read_text(errors="replace").rpartition(")")[2].split()
    except (FileNotFoundError, ProcessLookupError):
        return None
    return int(pid), int(fields[19]), fields[0]


@dataclass
class Series:
    """The samples of one daemon process."""
    device: str
    pid: int
    samples: list = field(default_factory=list)

    def faults(self):
        """Returns the measures that do not level; empty for a short series."""
        if len(self.samples) < MIN_SAMPLES:
            return []
        quarter = len(self.samples) // 4
        second, last = self.samples[quarter:2 * quarter], self.samples[-quarter:]
        found = []
        before, after = (sum(sample.rss for sample in part) / quarter for part in (second, last))
        if after > before * MEMORY_SLACK and after > before + MEMORY_SLACK_KB:
            found.append(f"memory {before:.0f} -> {after:.0f} kB")
        before, after = (max(sample.descriptors for sample in part) for part in (second, last))
        if after > before + DESCRIPTOR_SLACK:
            found.append(f"descriptors {before} -> {after}")
        if any(a.children & b.children for a, b in zip(self.samples, self.samples[1:])):
            found.append("a child process stays")
        return found

    def row(self):
        """First, last, most of memory and descriptors; most children and zombies at a time."""
        def figures(of):
            values = [of(sample) for sample in self.samples]
            return [values[0], values[-1], max(values)]
        return [self.device, self.pid, len(self.samples), *figures(lambda sample: sample.rss),
                *figures(lambda sample: sample.descriptors), max(len(sample.children) for sample in self.samples),
                max(sample.zombies for sample in self.samples)]
