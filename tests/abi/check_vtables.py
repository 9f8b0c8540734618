#!/usr/bin/env python3
"""Compares the tables of virtual operations that g++ lays out with the order that vtables.txt describes.

Usage: check_vtables.py SOURCE_DIR [COMPILER_FLAG...]
"""
import pathlib
import re
import subprocess
import sys
import tempfile

FOREIGN = re.compile(r"(std|__gnu_cxx|__cxxabiv1)::")


def described(path):
    """{class: [table, ...]}: the expected tables, each a list of operation names."""
    tables = {}
    for line in path.read_text().splitlines():
        line = line.split("#")[0].rstrip()
        if not line:
            continue
        if not line.startswith(" "):
            current, _, bases = line.partition(" : ")
            bases = bases.split(" + ") if bases else []
            # A class's own table is its first base's, continued; those of the other bases follow.
            inherited = [list(table) for base in bases for table in tables[base]]
            tables[current] = inherited or [[]]
            continue
        for word in line.split():
            own = tables[current][0]
            if word == "~":
                own += ["~", "~"]  # The destructor, and the one that also frees.
            elif word.startswith("@"):
                own += tables[word[1:]][0]
            else:
                own.append(word)
    return tables


def compiled(root, flags):
    """{class: [table, ...]} as the compiler sees them."""
    headers = sorted((root / "zel").rglob("*.h"))
    headers = [header.relative_to(root) for header in headers if not header.stem.endswith("-inl")]
    compiler = ["g++", "-std=c++20", *flags]
    source = "".join(f'#include "{header}"\n' for header in headers)
    code = subprocess.run(
        [*compiler, "-E", "-P", "-x", "c++", "-I.", "-"],
        cwd=root,
        input=source,
        stdout=subprocess.PIPE,
        text=True,
        check=True,
    ).stdout
    # An entry without an implementation has no name in the dump. That an operation is pure does not move it.
    code = re.sub(r"\)\s*(const)?\s*= 0;", r") \1;", code)
    with tempfile.TemporaryDirectory() as folder:
        pathlib.Path(folder, "all.ii").write_text(code)
        subprocess.run(
            [*compiler, "-w", "-fsyntax-only", "-fdump-lang-class=dump", "all.ii"], cwd=folder, check=True
        )
        dump = pathlib.Path(folder, "dump").read_text()

    found = {}
    for name, entries in re.findall(r"^Vtable for (.*)\n.*\n((?:\d+ .*\n)+)", dump, re.MULTILINE):
        if FOREIGN.match(name):
            continue
        found[name] = []
        for entry in re.findall(r"^\d+\s+\(int \(\*\)\(\.\.\.\)\)(.*)$", entries, re.MULTILINE):
            if re.fullmatch(r"-?\d+", entry):  # Offset to the whole object: a table begins.
                found[name].append([])
            elif not entry.startswith("(& _ZTI"):
                found[name][-1].append(operation(entry))
    return found


def operation(entry):
    """The bare name of an operation in the dump, where calls through a further base have mangled names."""
    name = entry.split("::")[-1]
    if name.startswith("_ZT"):
        name = subprocess.run(["c++filt", name], capture_output=True, text=True, check=True).stdout
        name = re.search(r"([~\w]+)\(", name).group(1)
    return "~" if name.startswith("~") else name


def main():
    root = pathlib.Path(sys.argv[1])
    expected = described(pathlib.Path(__file__).with_name("vtables.txt"))
    found = compiled(root, sys.argv[2:])
    faults = [f"{name} is not in vtables.txt" for name in found if name not in expected]
    for name, tables in expected.items():
        if name not in found:
            faults.append(f"{name} is in vtables.txt, but no header has it")
            continue
        if len(found[name]) != len(tables):
            faults.append(f"{name} has {len(found[name])} tables, described are {len(tables)}")
        for number, (is_, should) in enumerate(zip(found[name], tables)):
            for entry in range(max(len(is_), len(should))):
                pair = [(is_ + ["nothing"] * len(should))[entry], (should + ["nothing"] * len(is_))[entry]]
                if pair[0] != pair[1]:
                    faults.append(f"{name}, table {number}, entry {entry}: {pair[0]}; described: {pair[1]}")
                    break
    print("\n".join(faults) or f"{len(found)} classes, every table in order")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
