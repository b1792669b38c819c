#!/usr/bin/env python3
# Where an event's time goes, stretch by stretch: system calls of the daemon and of what measures it, as the kernel's own
# tracing times them while the processors are kept awake. Needs root. Usage: bench/stretches.py [FOLDER-OF-THE-BUILD].
# x86-64 only.
import pathlib
import re
import statistics
import struct
import subprocess
import sys

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
LINE = re.compile(r"^\s*(\S+)-\d+ .* ([\d.]+): sys_(enter|exit): NR (\d+)")
TRACING = pathlib.Path("/sys/kernel/tracing/instances/rynd-bench")


def calls(command):
    """Run a command; each system call meanwhile: its time in microseconds, who, whether it begins, its number."""
    TRACING.mkdir()
    try:
        for file, text in [("trace_clock", "mono"), ("buffer_size_kb", "65536"), ("events/raw_syscalls/enable", "1")]:
            (TRACING / file).write_text(text)
        with open("/dev/cpu_dma_latency", "wb", buffering=0) as latency:
            latency.write(struct.pack("i", 0))
            subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
        (TRACING / "tracing_on").write_text("0")
        with open(TRACING / "trace") as lines:
            for line in lines:
                if found := LINE.match(line):
                    yield float(found[2]) * 1e6, (found[1], found[3] == "enter", int(found[4]))
    finally:
        TRACING.rmdir()


def main():
    build = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else "build/release")
    times, stretches, wholes = [], [[] for _ in STRETCHES], []
    for at, mark in calls([build / "bench/rynd_bench", "--quick", "--only", "latency"]):
        if mark == MARKS[0]:
            times = [at]
        elif times and mark == MARKS[len(times)]:
            times.append(at)
        if len(times) == len(MARKS):
            for stretch, begin, end in zip(stretches, times, times[1:]):
                stretch.append(end - begin)
            wholes.append(times[-1] - times[0])
            times = []
    print(f"{len(wholes)} events, median {statistics.median(wholes):.0f} microseconds with the tracing's own cost")
    for name, stretch in zip(STRETCHES, stretches):
        share = 100 * statistics.median(stretch) / sum(map(statistics.median, stretches))
        print(f"{statistics.median(stretch):4.0f} {share:3.0f} %  {name}")


main()
