#!/usr/bin/env python3
# Where an event's time goes, stretch by stretch: system calls of the daemon and of what measures it, timed by perf,
# which has to be installed and may need root. Usage: bench/stretches.py [FOLDER-OF-THE-BUILD]. x86-64 only.
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile

SENDTO, WRITE, READ, SOCKET, PPOLL = 44, 1, 0, 41, 271  # numbers of system calls
# What an event passes, in order: who, whether the call begins, which call.
MARKS = [
    ("rynd_bench", True, SENDTO),  # the observation is submitted
    ("rynd", False, PPOLL),
    ("rynd", True, WRITE),
    ("APDCorrelator", False, PPOLL),
    ("APDCorrelator", True, SOCKET),
    ("APDCorrelator", True, SENDTO),
    ("rynd_bench", False, READ),  # the event has arrived
]
STRETCHES = [
    "submission, and the poll loop's wake-up",
    "the poll loop reads, checks and hands on",
    "the agent's wake-up",
    "the agent reads, decides, and writes the event's text",
    "it connects to the management agent",
    "it sends, the management agent's wake-up and reading",
]
LINE = re.compile(r"^\s*(\S+)\s+\d+ +([\d.]+): +raw_syscalls:sys_(enter|exit): NR (\d+)")


def calls(data):
    """Each call of the two programs: its time in microseconds, who, whether it begins, its number."""
    script = subprocess.run(
        ["perf", "script", "-i", data, "--ns", "-F", "comm,tid,time,event,trace"], capture_output=True, text=True, check=True
    )
    for line in script.stdout.splitlines():
        if found := LINE.match(line):
            yield float(found[2]) * 1e6, (found[1], found[3] == "enter", int(found[4]))


def main():
    build = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else "build/release")
    with tempfile.TemporaryDirectory() as folder:
        data = folder + "/data"
        events = ["-e", "raw_syscalls:sys_enter", "-e", "raw_syscalls:sys_exit"]
        bench = [build / "bench/rynd_bench", "--quick", "--only", "latency"]
        subprocess.run(["perf", "record", "-q", "-a", "-m", "16M", *events, "-o", data, "--", *bench], check=True)
        times, stretches, wholes = [], [[] for _ in STRETCHES], []
        for at, mark in calls(data):
            if mark == MARKS[0]:
                times = [at]
            elif times and mark == MARKS[len(times)]:
                times.append(at)
            if len(times) == len(MARKS):
                for stretch, begin, end in zip(stretches, times, times[1:]):
                    stretch.append(end - begin)
                wholes.append(times[-1] - times[0])
                times = []
    whole = statistics.median(wholes)
    print(f"{len(wholes)} events, median {whole:.1f} microseconds with perf's own cost")
    for name, stretch in zip(STRETCHES, stretches):
        print(f"{statistics.median(stretch):6.1f} {100 * statistics.mean(stretch) / statistics.mean(wholes):3.0f} %  {name}")


main()
