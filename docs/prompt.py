#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Draws docs/prompt.svg: a session at the lab's prompt, as a terminal shows it.

usage: docs/prompt.py [PROGRAM]      default: build/release/bin/macrewrite-lab

The program runs in a terminal of its own (tmux), the keys below are typed into it, and the
screen at the end is the picture. <tab> is the tab key; each line ends with the enter key
unless it ends with <tab> or with the key `?`. The colours are the program's.
"""
import html
import pathlib
import re
import subprocess
import sys
import tempfile
import time

COLUMNS, LINES = 104, 40
SESSION = [
    "load tests/lab/bring-up.inc",
    "host vrf red id 7",
    "host routing-status port Ethernet1 key-vlan 0 vlan 1006 vrf-id 7",
    "host addr<tab>10.0.0.1 vrf-id 7 int<tab>Eth<tab>\r",
    "vx<tab>f<tab>m<tab>vrf r<tab>src-ip 1<tab>act<tab>rew<tab>src<tab>02:11:22:33:44:55",
    "show chip",
    "host address 10.0.0.300 vrf-id 7",
    "sh ru | ?",
    "count",
    "show vxlan forwarding src-mac rewrite",
]

ROOT = pathlib.Path(__file__).resolve().parent.parent
PROMPT = "lab> "
COLOURS = {"31": "#e8907e", "32": "#8fbc8f"}


def tmux(*arguments):
    command = ["tmux", "-L", "lab-prompt", *arguments]
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def screen():
    return tmux("capture-pane", "-p").rstrip("\n").split("\n")


def settled():
    """The screen once it has stopped changing after a prompt."""
    before = None
    for _ in range(100):
        time.sleep(0.1)
        now = screen()
        if now == before and now[-1].startswith(PROMPT.rstrip()):
            return now
        before = now
    sys.exit("the prompt does not come back:\n" + "\n".join(now))


def record(program, state):
    command = f"env XDG_STATE_HOME={state} {program}"
    tmux("-f", "/dev/null", "new-session", "-d", "-x", str(COLUMNS), "-y", str(LINES), command)
    try:
        settled()
        for keys in SESSION:
            if not keys.endswith(("<tab>", "?", "\r")):
                keys += "\r"
            for piece in re.split("(<tab>)", keys):
                tmux("send-keys", "-l", "\t" if piece == "<tab>" else piece)
            settled()
        return tmux("capture-pane", "-p", "-e").rstrip("\n").split("\n")
    finally:
        tmux("kill-server")


def drawn(lines):
    width, height = 9 * COLUMNS + 30, 19 * len(lines) + 30
    yield (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" '
           f'width="{width}" height="{height}"\n'
           '     font-family="DejaVu Sans Mono, Menlo, Consolas, monospace" font-size="14.5" '
           'fill="#d8dee9">')
    yield "  <title>A session at the lab's prompt</title>"
    yield f'  <rect width="{width}" height="{height}" rx="8" fill="#1d232c"/>'
    for number, line in enumerate(lines):
        text = ""
        colour = None
        for piece, code in re.findall("([^\x1b]+)|\x1b\\[([0-9;]*)m", line):
            if not piece:
                colour = COLOURS.get(code)
            elif colour:
                text += f'<tspan fill="{colour}">{html.escape(piece, quote=False)}</tspan>'
            else:
                text += html.escape(piece, quote=False)
        yield f'  <text x="15" y="{29 + 19 * number}" xml:space="preserve">{text}</text>'
    yield "</svg>"


def main():
    program = sys.argv[1] if len(sys.argv) > 1 else ROOT / "build/release/bin/macrewrite-lab"
    with tempfile.TemporaryDirectory() as state:
        lines = record(str(program), state)
    (ROOT / "docs/prompt.svg").write_text("\n".join(drawn(lines)) + "\n", encoding="utf-8")


main()
