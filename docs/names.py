#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Finds names that two sources which are compiled in one unit define in their unnamed namespaces.

  docs/names.py      prints them; the exit status is 1 when there are any

The sanitizer tree compiles the sources of a library in one unit, and the lint stage those of several libraries (see
bfn_lint_units() in CMakeLists.txt); such names meet there. Functions of the same name with other arguments are no finding.
"""
import collections
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
# The folders of each unit.
UNITS = (
    ("framework",),
    ("agent",),
    ("config",),
    ("intfstatus",),
    ("rewrite",),
    ("tablemgr",),
    ("show",),
    ("chip",),
    ("host",),
    ("kernel",),
    ("daemon",),
    ("client",),
)
TYPE = re.compile(r"^(?:class|struct|enum class|enum|union) (\w+)(?: final)?(?: *[:{]|$)")
CONSTANT = re.compile(r"^(?:static |inline )*(?:constexpr|const|constinit)\b[^(]*?\b(k[A-Z]\w*)\b")
FUNCTION = re.compile(r"^(?!return|else|using|namespace|template|class|struct|enum)[\w:].*?\b([a-z]\w*)\((.*)$")


def unnamed(text):
    """(the namespace around it, line) of the lines within unnamed namespaces."""
    around, inside = "", False
    for line in text.split("\n"):
        if line == "namespace {":
            inside = True
        elif line.startswith("}  // namespace") and inside:
            inside = False
        elif inside:
            yield around, line
        elif match := re.match(r"namespace ([\w:]+) {", line):
            around = match[1]


def names(text):
    for around, line in unnamed(text):
        if match := TYPE.match(line) or CONSTANT.match(line):
            yield f"{around}::{match[1]}"
        elif match := FUNCTION.match(line):
            # The types of the arguments, without their names.
            arguments = re.sub(r"\b\w+(?=[,)])", "", match[2].split(" {")[0])
            yield f"{around}::{match[1]}({arguments}"


def main():
    found = []
    for unit in UNITS:
        places = collections.defaultdict(set)
        for folder in unit:
            for file in (ROOT / folder).rglob("*.cpp"):
                for name in names(file.read_text(encoding="utf-8")):
                    places[name].add(str(file.relative_to(ROOT)))
        found += [
            f"{name.split('(')[0]} is in {', '.join(sorted(files))}"
            for name, files in sorted(places.items())
            if len(files) > 1
        ]
    print("\n".join(found) if found else "names: ok")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
