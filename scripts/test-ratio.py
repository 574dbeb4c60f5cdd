#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Print the test-to-library line ratio.

Counts non-blank lines that are not only comment in the C and C++ sources of
tests/ against those of the library (src/, platform/, include/). The project
keeps its tests at roughly a quarter to a third of the code; a larger figure
usually means cases that restate the code instead of catching faults.
"""
import os
import re
import sys

SOURCE = re.compile(r"\.(c|cc|cpp|h|hpp)$")


def code_lines(path):
    """Non-blank lines left after removing // and /* */ comments."""
    text = open(path, encoding="utf-8", errors="replace").read()
    # Strings first so that comment markers inside them survive.
    token = re.compile(r'"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'|//[^\n]*|/\*.*?\*/', re.S)

    def keep(m):
        s = m.group(0)
        if s.startswith("//"):
            return ""
        if s.startswith("/*"):
            return "\n" * s.count("\n")
        return s

    return sum(1 for line in token.sub(keep, text).splitlines() if line.strip())


def count(root, folders):
    total = 0
    per = {}
    for folder in folders:
        for dirpath, _, files in os.walk(os.path.join(root, folder)):
            for name in files:
                if SOURCE.search(name):
                    n = code_lines(os.path.join(dirpath, name))
                    total += n
                    top = os.path.relpath(dirpath, root).split(os.sep)[:2]
                    per["/".join(top)] = per.get("/".join(top), 0) + n
    return total, per


def main():
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    tests, per_test = count(root, ["tests"])
    lib, _ = count(root, ["src", "platform", "include"])
    if "-v" in sys.argv:
        for key in sorted(per_test):
            print(f"  {key:24} {per_test[key]:6}")
    print(f"tests {tests} / library {lib} = {tests / lib:.2f}")


if __name__ == "__main__":
    main()
