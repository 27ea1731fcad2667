#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Manual pages and completions, made of what the programs say of themselves.

  docs/manual.py language VERSION           macrewrite-language(7): docs/lab.md, which follows the table of forms
  docs/manual.py bash PROGRAM               completions of its options
  docs/manual.py zsh PROGRAM

With --forms LAB the program takes the commands that macrewrite-lab has, after -c, and they are completed, too. With
--service MACREWRITED its arguments are a command that the service has, or one of those that --own names.

The page of a program is made by help2man. Everything is written to standard output.
"""
import argparse
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time

import language

HERE = pathlib.Path(__file__).resolve().parent
# An option of --help: its names, what its value is called, and what is said on the same line.
OPTION = re.compile(r"^ +((?:-\w|--[\w-]+(?:\{\w+\})?)(?:,(?:-\w|--[\w-]+(?:\{\w+\})?))*)(?: (\S.*?))??(?:  +(.*))?$")


# --- A manual page of docs/lab.md ---------------------------------------------------------------


def roff(text):
    """Words with what Markdown marks in them, as roff."""
    parts = re.split(r"(`[^`]+`|\*\*[^*]+\*\*|\[[^\]]+\]\([^)]+\))", text)

    def plain(words):
        return words.replace("\\|", "|").replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq")

    out = ""
    for part in parts:
        if part.startswith("`"):
            out += "\\fB" + plain(part[1:-1]) + "\\fR"
        elif part.startswith("**"):
            out += "\\fB" + plain(part[2:-2].strip("`")) + "\\fR"
        elif match := re.fullmatch(r"\[([^\]]+)\]\([^)]+\)", part):
            out += roff(match[1])
        else:
            out += plain(part)
    # A line must not begin with what roff takes for a request.
    return "\\&" + out if out.startswith(".") else out


def language_page(version):
    lines = (HERE / "lab.md").read_text(encoding="utf-8").split("\n")
    out = [
        f'.TH MACREWRITE\\-LANGUAGE 7 "" "BfnMacRewrite {version}" "The language of macrewrite"',
        ".ad l",
        ".SH NAME",
        "macrewrite\\-language \\- commands of macrewrite\\-lab, files of them, and the prompt",
        ".SH DESCRIPTION",
    ]
    at = 1  # after the title
    while at < len(lines):
        line = lines[at]
        at += 1
        if line.startswith("#"):
            out += [".SH " + roff(line.lstrip("# ")).upper()]
        elif match := language.ENTRY.fullmatch(line):
            out += [".SS " + roff(f"`{match[1]}`")]
        elif line.startswith("|"):
            cells = [cell.strip() for cell in re.split(r"(?<!\\)\|", line)[1:-1]]
            if not set(line) <= set("|-: ") and any(cells[:1]) and not lines[at].startswith("|--"):
                out += [".TP", roff(cells[0]), roff("; ".join(cells[1:]))]
        elif line.startswith("    "):
            out += [".PP", ".nf", ".RS 4"]
            while line.startswith("    ") or (not line and at < len(lines) and lines[at].startswith("    ")):
                text = line[4:].replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq")
                out.append("\\&" + text if text[:1] in ".'" else text)
                line = lines[at] if at < len(lines) else "end"
                at += 1
            at -= 1
            out += [".RE", ".fi", ".PP"]
        elif line.startswith("- "):
            out += [".IP \\(bu 2", roff(line[2:])]
        elif not line:
            out += [".PP"]
        else:
            out.append(roff(line.strip()))
    out += [".SH SEE ALSO", ".BR macrewrite\\-lab (1),", ".BR macrewrite (1),", ".BR macrewrited (1)"]
    page = "\n".join(out)
    page = re.sub(r"(?:\.PP\n)+(?=\.(?:PP|S[SH]|TP|IP))", "", page)
    return re.sub(r"(\.S[SH] .*\n)(?:\.PP\n)+", r"\1", page) + "\n"


# --- Completions --------------------------------------------------------------------------------


def options_of(program):
    """[(names, value or "", help)] from --help."""
    asked = subprocess.run([program, "--help"], capture_output=True, text=True, check=True)
    found = []
    for line in asked.stdout.split("\n"):
        match = OPTION.match(line)
        if match:
            names = [re.sub(r"\{\w+\}", "", name) for name in match[1].split(",")]
            found.append([names, (match[2] or "").removesuffix(" ..."), match[3] or ""])
        elif found and not found[-1][2] and line.startswith("     "):
            found[-1][2] = line.strip()
    return found


def groups_of_service(service, client):
    """The groups of what a service says to `help`; it is started for that, without anything outside."""
    with tempfile.TemporaryDirectory() as folder:
        socket = folder + "/control"
        options = ["--state", folder, "--control", socket, "--database", "memory", "--table", "model"]
        with subprocess.Popen([service, *options], stderr=subprocess.DEVNULL) as process:
            try:
                until = time.monotonic() + 30
                while True:
                    asked = subprocess.run([client, "--socket", socket, "help"], capture_output=True, text=True, check=False)
                    if asked.returncode == 0:
                        break
                    if process.poll() is not None or time.monotonic() > until:
                        sys.exit(f"manual.py: {service} does not answer: {asked.stderr}")
                    time.sleep(0.01)
            finally:
                process.terminate()
    commands = re.findall(r"^  (\S.*)\n {6}(.*)$", asked.stdout, re.MULTILINE)
    return [{"title": "", "commands": [{"form": form, "help": help_} for form, help_ in commands]}]


class Grammar:
    """All forms as one automaton: a number for each word of each form, the first ones, and for each those that may
    follow it. So a form with many words that may be left out takes no more room than its words."""

    def __init__(self, groups):
        self.tokens, self.follow, self.first = [], [], []
        for group in groups:
            for command in group["commands"]:
                first, _, _ = self.sequence(re.findall(r"\[|\]|[^\s\[\]]+", command["form"]))
                self.first += first

    def sequence(self, tokens):
        """The first and the last numbers of the words up to the closing bracket, and whether all may be left out."""
        first, last, empty = [], [], True
        while tokens:
            token = tokens.pop(0)
            if token == "]":
                break
            if token == "[":
                inner_first, inner_last, _ = self.sequence(tokens)
                optional = True
            else:
                self.tokens.append(token)
                self.follow.append([])
                inner_first = inner_last = [len(self.tokens) - 1]
                optional = False
            for number in last:
                self.follow[number] += inner_first
            first += inner_first if empty else []
            last = inner_last + (last if optional else [])
            empty = empty and optional
        return first, last, empty


def takes_file(value):
    return any(word in value for word in ("FILE", "PATH", "DIR", ".pcap"))


def shell_word(text):
    return "'" + text.replace("'", "'\\''") + "'"


# What is the same in bash and in zsh, which emulates ksh for it.
WORDS = r"""_@NAME@_tokens=(@TOKENS@)
_@NAME@_follow=(@FOLLOW@)

# What may follow the words of a command, in `_@NAME@_next`; `_@NAME@_file` says whether a file may.
_@NAME@_after() {
  @EMULATE@
  local word number token now="@FIRST@" next
  for word; do
    next=
    for number in $now; do
      token=${_@NAME@_tokens[number]}
      [[ $token != "<"* && "|$token|" != *"|$word|"* ]] || next+=" ${_@NAME@_follow[number]}"
    done
    now=$next
  done
  _@NAME@_next=() _@NAME@_file=
  for number in $now; do
    token=${_@NAME@_tokens[number]}
    case $token in
      "<"*FILE* | "<"*DIR* | "<"*.pcap*) _@NAME@_file=1 ;;
      "<COMMAND>") next="@FIRST@" && for number in $next; do _@NAME@_next+=(${_@NAME@_tokens[number]//|/ }); done ;;
      "<"* | "|") ;;
      *) _@NAME@_next+=(${token//|/ }) ;;
    esac
  done
}
"""

BASH = r"""# Completions of @PROGRAM@ for bash, made of its --help and of its table of forms.
_@NAME@_options=(@OPTIONS@)
_@NAME@_files=(@FILES@)
@WORDS@
_@NAME@() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} line option
  local -a words
  COMPREPLY=()
  if [[ $previous == -c || $previous == --command ]]; then
    # A command is one word of the shell: what is typed of it stays before what may follow.
    line=${current#[\'\"]}
    read -ra words <<< "${line% *}"
    [[ $line == *" "* ]] || words=()
    _@NAME@_after "${words[@]}"
    mapfile -t COMPREPLY < <(compgen -W "${_@NAME@_next[*]}" -- "${line##* }" | sort -u)
    [[ $line != *" "* ]] || COMPREPLY=("${COMPREPLY[@]/#/${line% *} }")
    return
  fi
  for option in "${_@NAME@_files[@]}"; do
    if [[ $previous == "$option" ]]; then
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return
    fi
  done
  @ARGUMENTS@
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "${_@NAME@_options[*]}" -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  fi
}
complete -o filenames -F _@NAME@ @PROGRAM@
"""

# The arguments of a program that takes a command as them, after its options.
BASH_ARGUMENTS = r"""local -i at=1
  while ((at < COMP_CWORD)) && [[ ${COMP_WORDS[at]} == -* ]]; do
    [[ " @VALUES@ " != *" ${COMP_WORDS[at]} "* ]] || at+=1
    at+=1
  done
  if ((at <= COMP_CWORD)) && [[ at -lt COMP_CWORD || $current != -* ]]; then
    _@NAME@_after "${COMP_WORDS[@]:at:COMP_CWORD-at}"
    mapfile -t COMPREPLY < <(compgen -W "${_@NAME@_next[*]}" -- "$current" | sort -u)
    [[ -z $_@NAME@_file ]] || mapfile -t -O ${#COMPREPLY[@]} COMPREPLY < <(compgen -f -- "$current")
    return
  fi"""

ZSH = r"""#compdef @PROGRAM@
# Completions of @PROGRAM@ for zsh, made of its --help and of its table of forms.
@WORDS@
# What may follow the words before the cursor.
_@NAME@_words() {
  _@NAME@_after "${(@)words[1,CURRENT-1]}"
  _alternative "commands:command:(${_@NAME@_next})" ${_@NAME@_file:+"files:file:_files"}
}
# The same within one word of the shell.
_@NAME@_line() {
  compset -q
  _@NAME@_words
}

_arguments -s @STOP@ \
@ENTRIES@
"""


def fields_of(program, groups, emulate):
    name = pathlib.Path(program).name
    grammar = Grammar(groups)
    fields = {
        "PROGRAM": name,
        "NAME": name.replace("-", "_"),
        "EMULATE": emulate,
        "TOKENS": " ".join(shell_word(token) for token in grammar.tokens),
        "FOLLOW": " ".join(shell_word(" ".join(map(str, numbers))) for numbers in grammar.follow),
        "FIRST": " ".join(map(str, grammar.first)),
    }
    fields["WORDS"] = filled(WORDS, fields)
    return fields


def filled(text, fields):
    return re.sub(r"@([A-Z]+)@", lambda match: fields[match[1]], text)


def bash(program, groups, as_arguments):
    options = options_of(program)
    fields = fields_of(program, groups, ":")
    fields["OPTIONS"] = " ".join(each for names, _, _ in options for each in names if each.startswith("--"))
    fields["FILES"] = " ".join(each for names, value, _ in options if takes_file(value) for each in names)
    fields["VALUES"] = " ".join(each for names, value, _ in options if value for each in names)
    fields["ARGUMENTS"] = filled(BASH_ARGUMENTS, fields) if as_arguments else ""
    return filled(BASH, fields)


def zsh(program, groups, as_arguments):
    fields = fields_of(program, groups, "emulate -L ksh")
    name = fields["NAME"]

    def described(text):
        return re.sub(r"([\[\]:\\])", r"\\\1", text)

    entries = []
    for names, value, help_ in options_of(program):
        for each in names:
            entry = f"{each}[{described(help_)}]"
            if each in ("-c", "--command"):
                entry = f"*{entry}:command:_{name}_line"
            elif value:
                entry += f":{described(value)}:" + ("_files" if takes_file(value) else " ")
            entries.append(f"  {shell_word(entry)} \\")
    entries.append(f"  '*::command:_{name}_words'" if as_arguments else "  '*:file:_files'")
    fields["STOP"] = "-A '-*'" if as_arguments else ""
    fields["ENTRIES"] = "\n".join(entries)
    return filled(ZSH, fields)


def main():
    parser = argparse.ArgumentParser(description="Makes manual pages and completions.")
    parser.add_argument("what", choices=("language", "bash", "zsh"))
    parser.add_argument("subject", metavar="PROGRAM|VERSION")
    parser.add_argument("--forms", type=os.path.abspath)
    parser.add_argument("--service", type=os.path.abspath)
    parser.add_argument("--own", action="append", default=[])
    options = parser.parse_args()
    groups = language.groups_of(options.forms) if options.forms else []
    if options.service:
        groups = groups_of_service(options.service, os.path.abspath(options.subject))
        groups.append({"title": "the client's own", "commands": [{"form": form} for form in options.own]})
    if options.what == "language":
        sys.stdout.write(language_page(options.subject))
    else:
        sys.stdout.write({"bash": bash, "zsh": zsh}[options.what](os.path.abspath(options.subject), groups, bool(options.service)))
    return 0


if __name__ == "__main__":
    sys.exit(main())
