"""Writes the one C++ program of a Markdown page to a file: extract_example.py PAGE FILE"""

import re
import sys

page, out = sys.argv[1:]
with open(page, encoding="utf-8") as file:
    blocks = re.findall(r"^```cpp\n(.*?)^```$", file.read(), re.S | re.M)
programs = [block for block in blocks if "int main()" in block]
if len(programs) != 1:
    sys.exit(f"{page}: {len(programs)} complete programs, not one")
with open(out, "w", encoding="utf-8") as file:
    file.write(programs[0])
