#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Every command block of the documents is run, and every piece of code in them is from a source that is built.

    BlocksTest.py BIN SCRATCH

BIN has the programs. What is fenced is known by its language:

  lab     the blocks of a page, one after another, are one file for the lab, and its expectations hold
  cpp     lines of examples/host/host.cpp, in a row
  cmake   lines of examples/host/CMakeLists.txt, in a row
  none    a picture or an output

Lines that are indented, or fenced without a language, and begin like a command of a shell, are run where RUN says how; the
others are in ELSEWHERE, with the test that runs them. The examples of docs/lab.md are in tests/docs/every-form.lab.
Exit status 77, by which a test counts as skipped, when all is well but commands of the kernel could not be run.
"""
import pathlib
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
EXCERPTS = {"cpp": "examples/host/host.cpp", "cmake": "examples/host/CMakeLists.txt"}
COMMAND = re.compile(r"^(?:\./dev|build/|cmake |tests/|macrewrite|tc |pkg-config|docs/|apt|systemctl|sudo )")
# (command, the file that names its test, the test or stage)
ELSEWHERE = [
    (r"\./dev run( +#.*)?$", "tests/lab/CMakeLists.txt", "LabExample.leaf1"),
    (r"\./dev run live( +#.*)?$", "tests/live/CMakeLists.txt", "add_suite"),
    (r"\./dev run fabric( +#.*)?$", "tests/live/CMakeLists.txt", "FABRIC_EXAMPLE"),
    (r"\./dev test( +#.*)?$", ".ci/run", "dev\" test"),
    (r"cmake --preset release && cmake --build --preset release$", "dev", "build_and_test release"),
    (r"cmake --install build/release --prefix <where>$", "tests/install/OutsideHost.cmake", "--install"),
    (r"tests/kernel/oracle.py ", "tests/kernel/CMakeLists.txt", "oracle.py"),
    (r"macrewrite-lab \[options\] \[FILE\.\.\.\]$", "tests/lab/ProgramTest.cpp", "FilesRunOneAfterAnother"),
    (r"install -D -t /etc/systemd/", "tests/package/bare.sh", "install -D -t /etc/systemd/system/macrewrited.service.d"),
    (r"systemctl daemon-reload$", "tests/package/bare.sh", "systemctl daemon-reload"),
    (r"systemctl restart macrewrited$", "tests/package/bare.sh", "systemctl restart macrewrited"),
]
KERNEL = """set -e
mount -t tmpfs none /run
for number in 100 200; do ip link add vx$number up type vxlan id 10$number dstport 4789 local 127.0.0.1; done
"""


def blocks(text):
    """(line, language or None when indented, lines)"""
    lines = text.split("\n")
    at = 0
    while at < len(lines):
        begin = at
        if match := re.match(r"```(\w*)$", lines[at]):
            end = lines.index("```", at + 1)
            yield begin + 1, match[1], lines[at + 1 : end]
            at = end
        elif lines[at].startswith("    ") and (at == 0 or not lines[at - 1].strip()):
            while at < len(lines) and lines[at].startswith("    "):
                at += 1
            yield begin + 1, None, [line[4:] for line in lines[begin:at]]
        at += 1


class Documents:
    def __init__(self, programs, scratch):
        self.programs = programs
        self.scratch = scratch
        self.problems = []
        self.counts = {"lab": 0, "excerpts": 0, "commands": 0, "elsewhere": 0}
        self.kernel = []  # commands, in their order
        shutil.rmtree(scratch, ignore_errors=True)
        scratch.mkdir(parents=True)
        (scratch / "examples").symlink_to(ROOT / "examples")
        (scratch / "tests").symlink_to(ROOT / "tests")

    def page(self, file):
        name = file.relative_to(ROOT)
        script = []
        for line, language, lines in blocks(file.read_text(encoding="utf-8")):
            where = f"{name}:{line}"
            if language == "lab":
                script += lines
            elif language in EXCERPTS:
                self.excerpt(where, lines, EXCERPTS[language])
            elif not language:
                for each in lines:
                    if COMMAND.match(each):
                        self.command(where, each)
            else:
                self.problems.append(f"{where}: what is {language}?")
        if script:
            self.lab(name, script)

    def lab(self, name, script):
        self.counts["lab"] += len(script)
        ended = subprocess.run(
            [self.programs / "macrewrite-lab", "-"],
            input="\n".join(script), capture_output=True, text=True, cwd=self.scratch, check=False,
        )
        if ended.returncode != 0:
            self.problems.append(f"{name}: its lab blocks end with {ended.returncode}: {ended.stderr}")

    def excerpt(self, where, lines, source):
        self.counts["excerpts"] += 1
        if "\n".join(lines) not in (ROOT / source).read_text(encoding="utf-8"):
            self.problems.append(f"{where}: not a piece of {source}")

    def command(self, where, text):
        if "/run/macrewrite" in text or text.startswith("tc "):
            self.counts["commands"] += 1
            self.kernel.append(re.sub(r"build/\w+/bin", str(self.programs), text).replace("FILE...", "tests/lab/01-first-row.lab"))
            return
        for pattern, file, test in ELSEWHERE:
            if re.match(pattern, text):
                self.counts["elsewhere"] += 1
                if test not in (ROOT / file).read_text(encoding="utf-8"):
                    self.problems.append(f"{where}: {file} has no {test} any more")
                return
        if match := re.match(r"build/\w+/bin/([\w-]+) (.*)", text):
            self.counts["commands"] += 1
            ended = subprocess.run(
                f"{self.programs / match[1]} {match[2]}", shell=True, capture_output=True, text=True, cwd=self.scratch, check=False
            )
            if ended.returncode != 0:
                self.problems.append(f"{where}: {text}: status {ended.returncode}: {ended.stderr}")
            return
        self.problems.append(f"{where}: no test runs {text}")

    def run_kernel(self):
        """False where it could not be tried."""
        if not self.kernel or not (self.programs / "macrewrite-kernel").exists():
            return False
        inside = ["unshare", "--net", "--mount"]
        tried = subprocess.run([*inside, "sh", "-c", KERNEL], capture_output=True, check=False)
        if tried.returncode != 0:
            return False
        script = KERNEL + "\n".join(f"{command} || exit $?" for command in self.kernel)
        ended = subprocess.run([*inside, "sh", "-c", script], capture_output=True, text=True, cwd=self.scratch, check=False)
        if ended.returncode == 3:
            return False
        if ended.returncode != 0:
            self.problems.append(f"commands of the kernel's table: status {ended.returncode}: {ended.stderr}")
        return True


def main():
    programs, scratch = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
    documents = Documents(programs, scratch)
    for file in [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]:
        documents.page(file)
    tried = documents.run_kernel()
    for problem in documents.problems:
        print(problem)
    if not documents.problems:
        print("blocks: ok,", ", ".join(f"{count} {what}" for what, count in documents.counts.items()))
    if documents.problems or 0 in documents.counts.values():
        return 1
    return 0 if tried else 77


if __name__ == "__main__":
    sys.exit(main())
