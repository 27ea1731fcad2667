#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Finds names that two sources of one library define in their unnamed namespaces.

  docs/names.py      prints them; the exit status is 1 when there are any

The lint stage and the sanitizer tree compile the sources of a library in one unit, where such names meet. Functions of the
same name with other arguments are no finding.
"""
import collections
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
# Every folder with sources that has a CMakeLists.txt is a library, or a part of one.
PRODUCTS = ("framework", "agent", "config", "intfstatus", "rewrite", "tablemgr", "show", "chip", "host", "kernel", "daemon", "client")
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
    for product in PRODUCTS:
        for folder in sorted({file.parent for file in (ROOT / product).rglob("*.cpp")}):
            places = collections.defaultdict(set)
            for file in folder.glob("*.cpp"):
                for name in names(file.read_text(encoding="utf-8")):
                    places[name].add(file.name)
            found += [
                f"{folder.relative_to(ROOT)}: {name.split('(')[0]} is in {', '.join(sorted(files))}"
                for name, files in sorted(places.items())
                if len(files) > 1
            ]
    print("\n".join(found) if found else "names: ok")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
