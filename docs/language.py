#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The commands of the language, as a program's table of forms has them, and docs/lab.md, which follows that table.

  docs/language.py PROGRAM           says where docs/lab.md differs; the exit status is 1 when it does
  docs/language.py PROGRAM --write   brings it up to date

An entry of docs/lab.md is

  **`the form`**
  What it is for, and more about it by hand, in as many lines and paragraphs as it takes.

      the example

The text begins with the help of the form; what follows is kept. The entry of a new form goes after that of the form
before it.
"""
import argparse
import itertools
import json
import pathlib
import re
import subprocess
import sys

DOCUMENT = pathlib.Path(__file__).resolve().parent / "lab.md"
ENTRY = re.compile(r"\*\*`(.+)`\*\*")


def groups_of(program):
    """[{"title", "commands": [{"form", "help", "example"}]}]"""
    asked = subprocess.run([program, "-c", "dump language"], capture_output=True, text=True, check=True)
    return json.loads(asked.stdout)


def sentence(text):
    text = text[0].upper() + text[1:]
    return text if text.endswith(".") else text + "."


def flat(form):
    """Every form without brackets that the form stands for, as lists of tokens."""
    tokens = re.findall(r"\[|\]|[^\s\[\]]+", form)

    def alternatives(at):
        found = [[]]
        while at < len(tokens) and tokens[at] != "]":
            if tokens[at] == "[":
                inner, at = alternatives(at + 1)
                found = [each + more for each, more in itertools.product(found, inner + [[]])]
            else:
                found = [each + [tokens[at]] for each in found]
            at += 1
        return found, at

    return alternatives(0)[0]


class Document:
    """The lines of docs/lab.md, changed in place."""

    def __init__(self, text):
        self.lines = text.split("\n")
        self.errors = []

    def places(self):
        return {match[1]: at for at, line in enumerate(self.lines) if (match := ENTRY.fullmatch(line))}

    def example_at(self, at):
        """The line of the entry's example, or None."""
        for line in range(at + 1, len(self.lines)):
            if self.lines[line].startswith("    "):
                return line
            if ENTRY.fullmatch(self.lines[line]) or self.lines[line].startswith("#"):
                return None
        return None

    def follow(self, groups):
        before = None
        for group in groups:
            for command in group["commands"]:
                self.follow_command(command, before)
                before = command["form"]
        known = {command["form"] for group in groups for command in group["commands"]}
        # The prompt has commands of its own, which no other program has.
        end = self.lines.index("## The prompt")
        self.errors += [f"no such form: {form}" for form, at in self.places().items() if form not in known and at < end]

    def follow_command(self, command, before):
        form, text = command["form"], sentence(command["help"])
        places = self.places()
        if form not in places:
            self.errors.append(f"no entry: {form}")
            after = self.example_at(places[before]) if before in places else None
            if after is not None:
                self.lines[after + 1 : after + 1] = ["", f"**`{form}`**", text, "", "    " + command["example"]]
            return
        at = places[form]
        if not " ".join(self.lines[at + 1 : at + 4]).replace("`", "").startswith(text.rstrip(".").replace("`", "")):
            self.errors.append(f"{form}: does not begin with {text!r} but with {self.lines[at + 1]!r}")
            self.lines[at + 1] = text
        example = self.example_at(at)
        if example is None or self.lines[example] != "    " + command["example"]:
            self.errors.append(f"{form}: its example is not {command['example']!r}")
            if example is not None:
                self.lines[example] = "    " + command["example"]


def main():
    parser = argparse.ArgumentParser(description="Compares docs/lab.md with the table of forms.")
    parser.add_argument("program")
    parser.add_argument("--write", action="store_true")
    parser.add_argument("--document", type=pathlib.Path, default=DOCUMENT)
    options = parser.parse_args()
    document = Document(options.document.read_text(encoding="utf-8"))
    document.follow(groups_of(options.program))
    for error in document.errors:
        print(error)
    if options.write:
        options.document.write_text("\n".join(document.lines), encoding="utf-8")
    elif document.errors:
        print("docs/language.py --write brings docs/lab.md up to date")
        return 1
    else:
        print("language: ok")
    return 0


if __name__ == "__main__":
    sys.exit(main())
