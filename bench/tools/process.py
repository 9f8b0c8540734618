"""Whole processes, measured."""

import os
import subprocess
import time


def run(command):
    """(CPU, wall) seconds of `command`, which must succeed; its standard output is dropped."""
    start = time.perf_counter()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    wall = time.perf_counter() - start
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        raise SystemExit(f"{command[0]} failed with {process.returncode}: {command}")
    return usage.ru_utime + usage.ru_stime, wall
