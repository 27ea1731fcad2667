#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Compares what a library shows the world with its list in exported/.

A line of a list is a function with its arguments as they are demangled, or `Name::*`: a class that is exported whole
(its members, type information and tables).

Left out of the comparison, since every object that uses one carries it (vague linkage), are weak symbols that are

- inline functions and variables,
- in namespace std: the language runtime's templates,
- specialisations of templates,
- in the list of a library below: type information of a class that has no key function.
"""
import argparse
import re
import subprocess
import sys

OF_A_CLASS = re.compile(r"^(?:typeinfo name for|typeinfo for|vtable for|VTT for|guard variable for|(?:non-)?virtual thunk to) ")


class List:
    def __init__(self, file):
        with open(file, encoding="utf-8") as lines:
            entries = [line.rstrip("\n") for line in lines if line.strip() and not line.startswith("#")]
        self.missing = set(entries)
        self.names = {entry for entry in entries if not entry.endswith("::*")}
        self.classes = tuple(entry[:-3] for entry in entries if entry.endswith("::*"))

    def has(self, name):
        """Whether the list has the name, which is then there."""
        if name in self.names:
            self.missing.discard(name)
            return True
        plain = OF_A_CLASS.sub("", name)
        for one in self.classes:
            if plain == one or plain.startswith(one + "::"):
                self.missing.discard(one + "::*")
                return True
        return False


def main():
    parser = argparse.ArgumentParser()
    for name in ("library", "list", "soname", "version", "nm", "readelf"):
        parser.add_argument(f"--{name}", required=True)
    parser.add_argument("--below", nargs="*", default=[], help="the lists of the libraries that it needs")
    options = parser.parse_args()

    nm = [options.nm, "-D", "--defined-only", options.library]
    symbols = subprocess.run([*nm, "-C", "--without-symbol-versions"], capture_output=True, text=True, check=True)
    own = List(options.list)
    below = [List(file) for file in options.below]
    wrong = []
    count = 0
    for line in sorted(set(line.split(" ", 1)[1] for line in symbols.stdout.splitlines())):
        kind, name = line.split(" ", 1)
        if kind == "A" and name == options.version:
            continue
        plain = OF_A_CLASS.sub("", name)
        if kind in "VWuvw" and (plain == name or "<" in plain or plain.startswith("std::")):
            continue
        if kind in "VWuvw" and any(other.has(name) for other in below):
            continue
        count += 1
        if not own.has(name):
            wrong.append(f"not in the list:       {name}")
    wrong += [f"not exported any more: {name}" for name in sorted(own.missing)]

    versioned = subprocess.run(nm, capture_output=True, text=True, check=True).stdout.splitlines()
    wrong += [f"has another version:   {line}" for line in versioned if not line.endswith((f"@@{options.version}", f" A {options.version}"))]

    dynamic = subprocess.run([options.readelf, "-d", options.library], capture_output=True, text=True, check=True)
    if f"Library soname: [{options.soname}]" not in dynamic.stdout:
        wrong.append(f"the soname is not {options.soname}")
    for line in wrong:
        print(line)
    if wrong or count == 0:
        print("the library's interface has changed; if that is meant, change the list")
        return 1
    print(f"exported symbols: ok, {count} names")
    return 0


if __name__ == "__main__":
    sys.exit(main())
