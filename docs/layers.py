#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks every include of the tree against docs/layers.txt, and the picture of the house against it.

  docs/layers.py          prints what is wrong; the exit status is 1 when something is
  docs/layers.py --draw   draws the picture in docs/architecture.md again

`--root DIR` works on another tree.
"""
import argparse
import os
import posixpath
import re
import sys

TABLE = "docs/layers.txt"
PICTURE = "docs/architecture.md"
BEGIN = "<!-- Drawn from layers.txt by layers.py. -->\n```\n"
END = "```\n"
SOURCES = (".h", ".cpp", ".c")
OTHER_SOURCES = (".cc", ".cxx", ".c++", ".hh", ".hpp", ".hxx", ".h++", ".ipp", ".tpp", ".inl", ".cppm", ".ixx")

# Strings are kept for the name that an include gives; a raw string may hold a line that looks like one.
COMMENTS_AND_STRINGS = re.compile(
    r'R"(?P<end>[^()\\\s]{0,16})\(.*?\)(?P=end)"'
    r'|(?P<string>"(?:\\.|[^"\\\n])*")'
    r"|(?P<char>(?<![0-9A-Za-z_])'(?:\\.|[^'\\\n])+')"
    r"|//[^\n]*|/\*.*?\*/",
    re.DOTALL,
)
DIRECTIVE = re.compile(
    r"^[ \t]*(?:#|%:)[ \t]*(?:include|include_next|import)\b[ \t]*(.*?)[ \t]*$"
    r"|^[ \t]*(?:export[ \t]+)?import[ \t]*([\"<].*?)[ \t]*;",
    re.MULTILINE,
)
# Include paths of earlier releases are installed from here.
EARLIER_PATHS = "compat/"


class Table:
    """The rooms and storeys of layers.txt, top down."""

    def __init__(self, text):
        self.errors = []
        self.storeys = []  # (name, what it is, rooms)
        self.may_include = {}
        lines = [line.rstrip() for line in text.splitlines() if line.strip() and not line.startswith("#")]
        joined = []
        for line in lines:
            if line.startswith(" ") and joined:
                joined[-1] += line
            else:
                joined.append(line)
        for line in joined:
            if match := re.fullmatch(r"\[(.+?): (.+)\]", line):
                self.storeys.append((match[1], match[2], []))
            elif (match := re.fullmatch(r"(\S+):(.*)", line)) and self.storeys:
                if match[1] in self.may_include:
                    self.errors.append(f"{TABLE}: {match[1]} has two lines")
                self.storeys[-1][2].append(match[1])
                self.may_include[match[1]] = match[2].split()
            else:
                self.errors.append(f"{TABLE}: not understood: {line}")
        rooms = list(self.may_include)
        for at, room in enumerate(rooms):
            for other in self.may_include[room]:
                if other != "*" and other not in rooms[at + 1 :]:
                    self.errors.append(f"{TABLE}: {room} names {other}, which is no room further down")

    def room_of(self, folder):
        """The line for a folder, or None."""
        if folder in self.may_include:
            return folder
        for room in self.may_include:
            if room.endswith("/**") and f"{folder}/".startswith(room[:-2]):
                return room
        return None

    def allows(self, room, other):
        return room == other or "*" in self.may_include[room] or other in self.may_include[room]

    def picture(self):
        """Each storey with its rooms, every room in a line above those that it includes."""
        width = 76
        rule = "─" * (width + 2)

        def row(text=""):
            return f"  │ {text:<{width}} │\n"

        parts = []
        for name, what, rooms in self.storeys[1:]:
            level = {}
            for room in reversed(rooms):
                level[room] = 1 + max((level[other] for other in self.may_include[room] if other in level), default=0)
            part = row(f"{name:<10} {what}")
            for line in range(max(level.values()), 0, -1):
                short = [room.removeprefix(f"{name}/") for room in rooms if level[room] == line]
                part += row("             " + "   ".join(short))
            parts.append(part)
        return f"  ┌{rule}┐\n" + f"  ├{rule}┤\n".join(parts) + f"  └{rule}┘\n"


def sources(root):
    for folder, folders, files in os.walk(root):
        relative = os.path.relpath(folder, root).replace(os.sep, "/")
        folders[:] = sorted(name for name in folders if not name.startswith(".") and not (relative == "." and name == "build"))
        for name in sorted(files):
            if name.endswith(SOURCES + OTHER_SOURCES):
                yield name if relative == "." else f"{relative}/{name}"


def includes(text):
    """(line number, what an include names, quotes or brackets and all)."""
    spliced = re.sub(r"\\\r?\n", "", text)

    def keep(match):
        if match["string"] or match["char"]:
            return match[0]
        return ("" if match[0].startswith("/") else '""') + "\n" * match[0].count("\n") or " "

    plain = COMMENTS_AND_STRINGS.sub(keep, spliced)
    for match in DIRECTIVE.finditer(plain):
        yield plain.count("\n", 0, match.end()) + 1, match[1] if match[1] is not None else match[2]


def check_include(root, table, file, room, named):
    """What is wrong with one include, or None."""
    match = re.fullmatch(r'"([^"]+)"|<([^>]+)>', named)
    if not match:
        return f"includes {named}, which is no plain name"
    path = match[1] or match[2]
    if os.path.isfile(os.path.join(root, EARLIER_PATHS, path)):
        path = EARLIER_PATHS + path
    own = os.path.isfile(os.path.join(root, path))
    beside = posixpath.normpath(posixpath.join(posixpath.dirname(file), path))
    if match[2] and not own:
        return None
    if match[2]:
        return f"includes {named}: files of this tree are included with quotes"
    if not own or posixpath.isabs(path) or posixpath.normpath(path) != path or path.startswith("../"):
        hint = f'; write "{beside}"' if os.path.isfile(os.path.join(root, beside)) else ""
        return f"includes {named}, which is no path from the root of the tree{hint}"
    if not path.endswith(".h") and "*" not in table.may_include[room]:
        return f"includes {named}, which is no header"
    other = table.room_of(posixpath.dirname(path))
    if other is not None and not table.allows(room, other):
        return f"includes {named}: {room} may not include {other}"
    return None


def check(root, table):
    errors = list(table.errors)
    seen = set()
    for file in sources(root):
        if file.endswith(OTHER_SOURCES):
            errors.append(f"{file}: sources end in .h, .cpp or .c")
            continue
        folder = posixpath.dirname(file)
        room = table.room_of(folder)
        if room is None:
            errors.append(f"{file}: {folder or 'the root'} is no room of {TABLE}; give it a line there")
            continue
        seen.add(room)
        with open(os.path.join(root, file), encoding="utf-8") as source:
            text = source.read()
        for line, named in includes(text):
            if error := check_include(root, table, file, room, named):
                errors.append(f"{file}:{line}: {error}")
    errors += [f"{TABLE}: {room} has no source" for room in table.may_include if room not in seen]
    return errors


def drawn(document, table):
    """The document with the picture of this table; None when it has no place for it."""
    begin = document.find(BEGIN)
    end = document.find(END, begin + len(BEGIN))
    if begin < 0 or end < 0:
        return None
    return document[: begin + len(BEGIN)] + table.picture() + document[end:]


def main():
    parser = argparse.ArgumentParser(description="Checks the includes of the tree.")
    parser.add_argument("--root", default=os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    parser.add_argument("--draw", action="store_true")
    options = parser.parse_args()
    with open(os.path.join(options.root, TABLE), encoding="utf-8") as file:
        table = Table(file.read())
    picture = os.path.join(options.root, PICTURE)
    with open(picture, encoding="utf-8") as file:
        document = file.read()
    errors = check(options.root, table)
    wanted = document if table.errors else drawn(document, table)
    if wanted is None:
        errors.append(f"{PICTURE}: no place for the picture")
    elif wanted != document and options.draw:
        with open(picture, "w", encoding="utf-8") as file:
            file.write(wanted)
    elif wanted != document:
        errors.append(f"{PICTURE}: the picture is not that of {TABLE}; docs/layers.py --draw draws it")
    for error in errors:
        print(error)
    if not errors:
        print("layers: ok")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
