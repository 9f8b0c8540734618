#!/usr/bin/env python3
"""Times `zel info FILE` beside `ffprobe -show_format -show_streams FILE`, as whole processes run in turns.

Usage: bench/tools/info_compare.py ZEL FILE... [--runs N]
"""

import argparse
import os
import statistics

from process import run


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("zel")
    parser.add_argument("files", nargs="+")
    parser.add_argument("--runs", type=int, default=21)
    arguments = parser.parse_args()
    print(f"{'file':24} {'zel info':>18} {'ffprobe':>18} {'ffprobe / zel info':>20}")
    print(f"{'':24} {'wall ms    cpu ms':>18} {'wall ms    cpu ms':>18} {'wall        cpu':>20}")
    for path in arguments.files:
        ours, theirs = [arguments.zel, "info", path], ["ffprobe", "-v", "error", "-show_format", "-show_streams", path]
        run(ours), run(theirs)  # Into the page cache.
        pairs = [(run(ours), run(theirs)) for _ in range(arguments.runs)]
        median = [[1000 * statistics.median(pair[side][k] for pair in pairs) for k in (1, 0)] for side in (0, 1)]
        ratio = [statistics.median(b[k] / a[k] for a, b in pairs) for k in (1, 0)]
        print(f"{os.path.basename(path)[:24]:24} {median[0][0]:8.1f} {median[0][1]:9.1f} {median[1][0]:8.1f} "
              f"{median[1][1]:9.1f} {ratio[0]:10.2f} {ratio[1]:9.2f}")


if __name__ == "__main__":
    main()
