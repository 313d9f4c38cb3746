"""What the benchmarks of whole nodes want to know of a process."""

import os
import pathlib
import time


def percentile(values, fraction):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(fraction * len(ordered)))]


def process_named(node, what):
    """The process id of the program itself below `ip netns exec`, which execs it."""
    command = pathlib.Path(f"/proc/{node.process.pid}/comm").read_text().strip()
    assert command == what, command
    return node.process.pid


def processor_seconds(pid):
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def resident_mib(pid):
    status = pathlib.Path(f"/proc/{pid}/status").read_text()
    return next(int(line.split()[1]) for line in status.splitlines() if line.startswith("VmRSS:")) / 1024


def cost(pid, seconds):
    """Resident memory in MiB now, and processor milliseconds a second over `seconds`."""
    before = processor_seconds(pid)
    time.sleep(seconds)  # nothing to wait for: the point is that nothing happens
    return resident_mib(pid), (processor_seconds(pid) - before) * 1000 / seconds
