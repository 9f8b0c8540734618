#!/usr/bin/env python3
"""Holds the drawing of the rooms in docs/architecture.md against the includes of the code.

Usage: check_house.py SOURCE_DIR

The drawing is the block of lines `room -> rooms that it includes`. Every include must be drawn, every drawn arrow must
exist and point to a room drawn above it; nobody includes another room's detail/; no file name stands twice; no line of
C++ is longer than 100 columns, comments included.
"""
import collections
import pathlib
import re
import sys

NOT_OURS = (".git", "out")
UNDRAWN = ("tests/", "bench/", "fuzz/")  # They may include anything.


def drawn(page):
    """{room: rooms that it includes}, in the order of the drawing."""
    block = re.search(r"^```\n((?:.* -> .*\n|\S+\n)+)```", page, re.MULTILINE)
    lines = [line.split("->") for line in block.group(1).splitlines()]
    return {line[0].strip(): line[1].split() if len(line) == 2 else [] for line in lines}


def main():
    root = pathlib.Path(sys.argv[1])
    # Not into build folders: other tests make and remove files there meanwhile.
    tops = [top for top in root.iterdir() if not (top.name in NOT_OURS or top.name.startswith("build"))]
    files = (file for top in tops for file in ([top] if top.is_file() else top.rglob("*")) if file.is_file())
    names = [file.relative_to(root).as_posix() for file in files]
    rooms = drawn((root / "docs/architecture.md").read_text())
    room_of = lambda path: max((r for r in rooms if path.startswith(r + "/") or path == r), key=len, default=None)

    faults, found = [], collections.defaultdict(set)
    for name in names:
        if not name.endswith((".h", ".cpp")) or name.startswith(UNDRAWN):
            continue
        room = room_of(name)
        if room is None:
            faults.append(f"{name} is in no room of the drawing")
            continue
        for included in re.findall(r'^#include "(.*)"', (root / name).read_text(), re.MULTILINE):
            other = room_of(included)
            if other != room:
                found[room].add(other)
                if included.removeprefix(other or "").startswith("/detail/"):
                    faults.append(f"{name} includes {included}, which is private to its room")

    order = list(rooms)
    for room, arrows in rooms.items():
        faults += [f"{room} includes {other}, which the drawing does not show" for other in found[room] - set(arrows)]
        faults += [f"{room} does not include {other}, which the drawing shows" for other in set(arrows) - found[room]]
        faults += [f"the drawing has {room} -> {other}, which is not above it" for other in arrows
                   if other not in order[: order.index(room)]]

    faults += [f"{name}:{number} is longer than 100 columns" for name in names if name.endswith((".h", ".cpp"))
               for number, line in enumerate((root / name).read_text().splitlines(), 1) if len(line) > 100]

    places = collections.defaultdict(list)
    for name in names:
        places[pathlib.PurePath(name).name].append(name)
    faults += [f"one name for several files: {', '.join(same)}" for name, same in places.items()
               if len(same) > 1 and name != "CMakeLists.txt"]
    print("\n".join(faults) or f"{len(rooms)} rooms, every arrow as drawn")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
