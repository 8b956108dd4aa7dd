#!/usr/bin/env python3
"""Samples processes once a second into a CSV until the time is over.

  watch.py SECONDS CSV NAME=PID:FOLDER...

Columns of each: resident and proportional memory in KiB, descriptors, threads, and the entries of
its folder (FIFOs or log files). It fails when one of the processes has gone.
"""
import os
import sys
import time


def kib(path, key):
    with open(path) as lines:
        for line in lines:
            if line.startswith(key):
                return int(line.split()[1])
    raise KeyError(key)


def sample(pid, folder):
    base = f"/proc/{pid}/"
    return [
        kib(base + "status", "VmRSS:"),
        kib(base + "smaps_rollup", "Pss:"),
        len(os.listdir(base + "fd")),
        len(os.listdir(base + "task")),
        len(os.listdir(folder)),
    ]


def main():
    seconds, csv = int(sys.argv[1]), sys.argv[2]
    watched = []
    for word in sys.argv[3:]:
        name, rest = word.split("=", 1)
        pid, folder = rest.split(":", 1)
        watched.append((name, pid, folder))
    metrics = ["rss_kib", "pss_kib", "descriptors", "threads", "files"]
    begin = time.monotonic()
    with open(csv, "w") as out:
        print("second," + ",".join(f"{name}.{m}" for name, _, _ in watched for m in metrics), file=out)
        for second in range(seconds + 1):
            time.sleep(max(0.0, begin + second - time.monotonic()))  # allow-sleep: a sample a second
            row = [second]
            for name, pid, folder in watched:
                try:
                    row += sample(pid, folder)
                except (OSError, KeyError):
                    sys.exit(f"soak: {name} has gone after {second} s")
            print(",".join(map(str, row)), file=out, flush=True)


main()
