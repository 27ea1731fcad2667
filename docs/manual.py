#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Manual pages and completions, made of what the programs say of themselves.

  docs/manual.py language VERSION           macrewrite-language(7): docs/lab.md, which follows the table of forms
  docs/manual.py bash PROGRAM               completions of its options
  docs/manual.py zsh PROGRAM

With --forms LAB the program takes the commands that macrewrite-lab has, after -c, and they are completed, too.

The page of a program is made by help2man. Everything is written to standard output.
"""
import argparse
import os
import pathlib
import re
import subprocess
import sys

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
    out += [".SH SEE ALSO", "\\fBmacrewrite\\-lab\\fR(1)"]
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


def forms_of(groups):
    """The forms without brackets."""
    forms = []
    for group in groups:
        for command in group["commands"]:
            forms += [" ".join(tokens) for tokens in language.flat(command["form"])]
    return sorted(set(forms))


def takes_file(value):
    return any(word in value for word in ("FILE", "PATH", "DIR", ".pcap"))


def shell_word(text):
    return "'" + text.replace("'", "'\\''") + "'"


BASH = r"""# Completions of @PROGRAM@ for bash, made of its --help and of its table of forms.
_@NAME@_options=(@OPTIONS@)
_@NAME@_files=(@FILES@)
_@NAME@_forms=(
@FORMS@
)

# What may follow the words of a command, in `_@NAME@_next`; `_@NAME@_file` says whether a file may.
_@NAME@_after() {
  local form token at fits
  local -a tokens words=("$@")
  _@NAME@_next=() _@NAME@_file=
  for form in "${_@NAME@_forms[@]}"; do
    read -ra tokens <<< "$form"
    ((${#tokens[@]} > ${#words[@]})) || continue
    fits=1
    for at in "${!words[@]}"; do
      token=${tokens[at]}
      [[ $token == "<"* || "|$token|" == *"|${words[at]}|"* ]] || { fits= && break; }
    done
    [[ $fits ]] || continue
    token=${tokens[${#words[@]}]}
    case $token in
      "<"*FILE* | "<"*DIR* | "<"*.pcap*) _@NAME@_file=1 ;;
      "<"*) ;;
      "|") ;;
      *) _@NAME@_next+=(${token//|/ }) ;;
    esac
  done
}

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
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "${_@NAME@_options[*]}" -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  fi
}
complete -o filenames -F _@NAME@ @PROGRAM@
"""


def bash(program, groups):
    name = pathlib.Path(program).name
    options = options_of(program)
    fields = {
        "PROGRAM": name,
        "NAME": name.replace("-", "_"),
        "OPTIONS": " ".join(each for names, _, _ in options for each in names if each.startswith("--")),
        "FILES": " ".join(each for names, value, _ in options if takes_file(value) for each in names),
        "FORMS": "\n".join(f"  {shell_word(form)}" for form in forms_of(groups)),
    }
    return re.sub(r"@(\w+)@", lambda match: fields[match[1]], BASH)


def zsh(program, groups):
    name = pathlib.Path(program).name
    commands = [(command["form"], command["help"]) for group in groups for command in group["commands"]]

    def described(text):
        return re.sub(r"([\[\]:\\])", r"\\\1", text)

    lines = [f"#compdef {name}", f"# Completions of {name} for zsh, made of its --help and of its table of forms.", "local -a commands"]
    lines.append("commands=(")
    lines += [f"  {shell_word(described(form) + ':' + help_)}" for form, help_ in commands]
    lines += [")", "_commands() { _describe -t commands command commands }", "_arguments -s \\"]
    for names, value, help_ in options_of(program):
        for each in names:
            entry = f"{each}[{described(help_)}]"
            if each in ("-c", "--command"):
                entry = f"*{entry}:command:_commands"
            elif value:
                entry += f":{described(value)}:" + ("_files" if takes_file(value) else " ")
            lines.append(f"  {shell_word(entry)} \\")
    lines.append("  '*:file:_files'")
    return "\n".join(lines) + "\n"


def main():
    parser = argparse.ArgumentParser(description="Makes manual pages and completions.")
    parser.add_argument("what", choices=("language", "bash", "zsh"))
    parser.add_argument("subject", metavar="PROGRAM|VERSION")
    parser.add_argument("--forms", type=os.path.abspath)
    options = parser.parse_args()
    groups = language.groups_of(options.forms) if options.forms else []
    if options.what == "language":
        sys.stdout.write(language_page(options.subject))
    else:
        sys.stdout.write({"bash": bash, "zsh": zsh}[options.what](os.path.abspath(options.subject), groups))
    return 0


if __name__ == "__main__":
    sys.exit(main())
