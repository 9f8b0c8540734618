#!/usr/bin/env python3
"""Runs clang-tidy over the project's own code, in parallel; what has not changed since a clean run is skipped.

Usage: scripts/tidy.py [-j N] BUILD_DIR      BUILD_DIR holds compile_commands.json
"""
import argparse
import concurrent.futures
import hashlib
import json
import os
import pathlib
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ("zel", "platform", "media", "kernaldec", "tools", "bench", "fuzz", "examples")


def fingerprint(entry, base):
    """Hash of all that a run depends on: the code with all that it includes, the flags, the checks."""
    command = shlex.split(entry["command"])
    output = command.index("-o")
    del command[output : output + 2]
    command[command.index("-c")] = "-E"
    code = subprocess.run(command, cwd=entry["directory"], capture_output=True, check=True).stdout
    return hashlib.sha256(base + entry["command"].encode() + code).hexdigest()


def check(entry, base, build, cache):
    stamp = cache / fingerprint(entry, base)
    if stamp.exists():
        return None
    run = subprocess.run(
        ["clang-tidy", "--quiet", "-p", str(build), entry["file"]],
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
        check=False,
    )
    if run.returncode == 0:
        stamp.touch()
        return None
    return run.stdout + run.stderr


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("-j", type=int, default=os.cpu_count(), metavar="N", help="processes at once")
    parser.add_argument("build", type=pathlib.Path, help="folder with compile_commands.json")
    arguments = parser.parse_args()

    cache = arguments.build / "clang-tidy"
    cache.mkdir(exist_ok=True)
    base = (ROOT / ".clang-tidy").read_bytes()
    base += subprocess.run(["clang-tidy", "--version"], capture_output=True, check=True).stdout
    commands = json.loads((arguments.build / "compile_commands.json").read_text())
    entries = {
        entry["file"]: entry
        for entry in commands
        if pathlib.Path(entry["file"]).is_relative_to(ROOT)
        and pathlib.Path(entry["file"]).relative_to(ROOT).parts[0] in FOLDERS
    }
    with concurrent.futures.ThreadPoolExecutor(arguments.j) as pool:
        complaints = list(
            filter(None, pool.map(lambda e: check(e, base, arguments.build, cache), entries.values()))
        )
    print("\n".join(complaints), end="")
    if complaints:
        print(f"clang-tidy complains about {len(complaints)} of {len(entries)} files")
        return 1
    print(f"clang-tidy: {len(entries)} files, nothing found")
    return 0


if __name__ == "__main__":
    sys.exit(main())
