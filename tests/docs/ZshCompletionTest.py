#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What zsh completes for the programs, from the generated files: a zsh in a terminal, in which lines are typed.

    ZshCompletionTest.py FOLDER    where _macrewrite and the others are

Exit status 77, by which a test counts as skipped, where there is no zsh.
"""
import os
import pathlib
import pty
import select
import shutil
import subprocess
import sys
import tempfile
import time

# What matches is noted as the completion system adds it.
SETUP = """PS1='reads''lines>' PS2= RPS1=
unsetopt zle_bracketed_paste 2> /dev/null
fpath=({folder} $fpath)
autoload -U compinit && compinit -u -d {scratch}/dump
compadd() {{
  if [[ ${{@[1,(i)(-|--)]}} != *-(O|A|D)* ]]; then
    local -a hits
    builtin compadd -A hits "$@"
    print -rl -- $hits >> {scratch}/hits
  fi
  builtin compadd "$@"
}}
cd {scratch}/files
"""
CASES = [
    ("macrewrite-lab -c 'dump c", {"capability", "chip", "config"}),
    ('macrewrite-lab -c "chip waiting o', {"on", "off"}),
    ("macrewrite-lab -c 'show vxlan forwarding src-mac rewrite vrf red src-ip 10.0.0.1 cli", {"cli-testing"}),
    ("macrewrite-lab --keep", {"--keep-going"}),
    ("macrewrite-lab on", {"one.lab"}),
    ("macrewrite-lab -c 'nothing of ", set()),
    ("macrewrite sta", {"status"}),
    ("macrewrite show vxlan forwarding src-mac rewrite v", {"vrf"}),
    ("macrewrite --json host inputs ", {"complete", "incomplete"}),
    ("macrewrite --socket /run/x agent ", {"retry"}),
    ("macrewrite load o", {"one.lab"}),
    ("macrewrite watch aud", {"audit"}),
    ("macrewrite --data", {"--database"}),
    ("macrewrited --hash", {"--hash-seed"}),
    ("macrewrited --config o", {"one.lab"}),
]


class Shell:
    def __init__(self, scratch):
        self.scratch = scratch
        environment = {"PATH": os.environ["PATH"], "TERM": "dumb", "HOME": str(scratch), "LC_ALL": "C.UTF-8"}
        master, slave = pty.openpty()
        self.process = subprocess.Popen(["zsh", "-f", "-i"], stdin=slave, stdout=slave, stderr=slave, env=environment,
                                        start_new_session=True)
        os.close(slave)
        self.terminal = master
        self.marks = 0
        self.seen = ""

    def type(self, text):
        os.write(self.terminal, text.encode())

    def settle(self):
        """Until all that was typed has been carried out, and the next line is read: before that, the terminal itself
        would edit what is typed."""
        self.marks += 1
        self.type(f"print mark-$(({self.marks}+0))-\r")
        until = time.monotonic() + 60
        while "readslines>" not in self.seen.partition(f"mark-{self.marks}-")[2]:
            if time.monotonic() > until or self.process.poll() is not None:
                sys.exit(f"zsh does not answer: {self.seen[-2000:]}")
            if select.select([self.terminal], [], [], 0.5)[0]:
                self.seen += os.read(self.terminal, 65536).decode(errors="replace")

    def completes(self, line):
        hits = self.scratch / "hits"
        hits.write_text("")
        # The line is left by ctrl-U, a list of matches by what is typed next.
        self.type(line + "\t\x15")
        self.settle()
        return set(hits.read_text().split()), self.seen


def main():
    if not shutil.which("zsh"):
        print("skipped: there is no zsh")
        return 77
    folder = pathlib.Path(sys.argv[1]).resolve()
    wrong = 0
    with tempfile.TemporaryDirectory() as name:
        scratch = pathlib.Path(name)
        (scratch / "files").mkdir()
        (scratch / "files/one.lab").touch()
        shell = Shell(scratch)
        shell.type(SETUP.format(folder=folder, scratch=scratch).replace("\n", "\r"))
        shell.settle()
        for line, expected in CASES:
            shell.seen = ""
            found, seen = shell.completes(line)
            if found != expected:
                print(f"{line}: expected {sorted(expected)}, found {sorted(found)}; {seen[-500:]!r}")
                wrong += 1
        shell.process.kill()
        shell.process.wait()
    print(f"zsh: {len(CASES) - wrong} right, {wrong} wrong")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
