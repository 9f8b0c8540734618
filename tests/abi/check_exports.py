#!/usr/bin/env python3
"""Compares what the library exports with exports.txt.

Usage: check_exports.py LIBRARY [--update]      --update rewrites the list, to be reviewed by hand
"""
import pathlib
import re
import subprocess
import sys

# Entry points of a class's further bases come with the class (check_vtables.py looks after them), and every user of
# an interface may have a copy of its tables: whether this library has one is up to the compiler.
COMPILERS_OWN = re.compile(r"non-virtual thunk to |(vtable|typeinfo|typeinfo name) for I[A-Z]")
LIST = pathlib.Path(__file__).with_name("exports.txt")


def main():
    listing = subprocess.run(
        ["nm", "-DC", "--defined-only", sys.argv[1]], capture_output=True, text=True, check=True
    ).stdout
    names = {line.split(" ", 2)[2] for line in listing.splitlines()}
    exported = {name for name in names if not COMPILERS_OWN.match(name)}
    if sys.argv[2:] == ["--update"]:
        LIST.write_text("".join(f"{name}\n" for name in sorted(exported)))
        return 0
    listed = set(LIST.read_text().splitlines())
    for name in sorted(exported - listed):
        print(f"exported, but not listed: {name}")
    for name in sorted(listed - exported):
        print(f"listed, but not exported: {name}")
    if exported != listed:
        print(f"If that is meant: {sys.argv[0]} {sys.argv[1]} --update")
        return 1
    print(f"{len(exported)} symbols, as listed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
