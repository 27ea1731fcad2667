#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Plants one fault at a time in a room's sources and lists those that no test notices.

A fault is a comparison turned, a condition negated, a constant changed, a statement dropped or two
statements swapped. Which ones are planted, and in which order, follows from the seed alone. Faults
are planted in a copy of the tree below build/mutate, never in the work tree.

Most faults are compiled together, each chosen at run time by KIV_FAULT: `s;` becomes
`{ if (kivFault(7)) { t; } else { s; } }`. A fault that cannot be written so, in a declaration for
one, is compiled by itself.

A fault that does not compile, or that leaves the optimised assembly as it was, does not count. It
is killed by the first test program that fails or exceeds its processor time: the room's own suites
first, then every other suite and lab script. Results are kept by source text, so that a run that
was stopped continues where it was; after a change of the tests, `--again` tries the survivors once
more.
"""
import argparse
import fnmatch
import hashlib
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import threading
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
WORK = ROOT / "build" / "mutate"
PLUGIN_ROOMS = ["rewrite", "tablemgr", "config", "intfstatus", "agent", "show"]
ROOMS = PLUGIN_ROOMS + ["framework/core", "framework/collections"]

# --- What can be planted --------------------------------------------------------------------------

TURNED = {"==": "!=", "!=": "==", "<=": "<", ">=": ">", "<": "<=", ">": ">=", "&&": "||", "||": "&&"}
OPERATORS = re.compile(r" (==|!=|<=|>=|<|>|&&|\|\|) ")
ARITHMETIC = re.compile(r" ([-+]) (?=[\w(])|(\+\+|--)")
CONSTANTS = re.compile(r"(?<![\w.'])(0x[0-9A-Fa-f']+|\d[\d']*)(?:[uU]?[lL]{0,2})(?![\w.])|\b(true|false)\b")
CONDITION = re.compile(r"\b(if|while) \(")
# A statement that may be dropped or moved: a call, an assignment, `return;`, `continue;`, `break;`.
# A declaration cannot be dropped, and one that is moved mostly does not compile.
STATEMENT = re.compile(
    r"(?P<indent>^[ ]+|[;{}] |\) )(?P<text>(?!return\s+\S|using |friend |template|static|constexpr|"
    r"class |struct |else|if |while |for |switch |case |default|public|private|protected|throw )"
    r"[A-Za-z_*(+-][^;{}]*?;)", re.M)
DECLARATION = re.compile(
    r"^(?:[\w:]+(?:<[^;=]*>)?(?:::\w+)?(?: const)?[ ]*[*&]*(?: const)? +[*&]?)(?:const )?\w+"
    r"(?:\(|;|\{| =|\[)")
# What a statement does that changes speed alone cannot be seen by a test.
SPEED_ONLY = re.compile(r"\b(prefetch\w*|reserve)\(")


def masked(text):
    """The text with comments, literals and preprocessor lines blanked, offsets kept."""
    blank = lambda m: re.sub(r"[^\n]", " ", m.group())
    literal = lambda m: m.group()[0] + re.sub(r"[^\n]", "_", m.group()[1:-1]) + m.group()[-1]
    text = re.sub(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'(?![0-9A-Fa-f])',
                  lambda m: blank(m) if m.group()[0] == "/" else literal(m), text, flags=re.S)
    return re.sub(r"^[ ]*#(?:[^\n]*\\\n)*[^\n]*", blank, text, flags=re.M)


def matching(text, at):
    """The offset of the parenthesis that closes the one at `at`."""
    depth = 0
    for i in range(at, len(text)):
        depth += {"(": 1, ")": -1}.get(text[i], 0)
        if depth == 0:
            return i
    return -1


def inside_function(text):
    """For each offset, whether it is in the body of a function: in braces after a `)`."""
    inside = bytearray(len(text))
    stack = []
    head = ""
    for i, char in enumerate(text):
        if char == "{":
            opener = re.sub(r"\s+", " ", head).strip()
            is_body = bool(stack and stack[-1]) or (
                bool(re.search(r"\)[^()]*$|\belse$|\bdo$|\btry$", opener))
                and not re.search(r"\b(class|struct|enum|namespace) [^()]*$", opener))
            stack.append(is_body)
            head = ""
        elif char == "}":
            if stack:
                stack.pop()
            head = ""
        elif char == ";":
            head = ""
        else:
            head += char
        inside[i] = bool(stack and stack[-1])
    return inside


def parentheses(text):
    """For each offset, how many parentheses are open since the last brace."""
    depths = []
    stack = [0]
    for char in text:
        if char == "{":
            stack.append(0)
        elif char == "}" and len(stack) > 1:
            stack.pop()
        elif char in "()":
            stack[-1] += 1 if char == "(" else -1
        depths.append(stack[-1])
    return depths


def faults_of(path, source):
    """Every fault of one file: (line, what, start, end, replacement), in the order of the text."""
    text = masked(source)
    inside = inside_function(text)
    found = []

    def add(what, start, end, replacement):
        # Lines stay where they are, since traces and checks name theirs.
        lost = source[start:end].count("\n") - replacement.count("\n")
        found.append((source.count("\n", 0, start) + 1, what, start, end,
                      replacement + "\n" * max(lost, 0)))

    for m in OPERATORS.finditer(text):
        if inside[m.start()] or m.group(1) in ("==", "!=", "&&", "||"):
            add("turned", m.start(1), m.end(1), TURNED[m.group(1)])
    for m in ARITHMETIC.finditer(text):
        old = m.group(1) or m.group(2)
        if inside[m.start()]:
            add("turned", m.start() + (1 if m.group(1) else 0), m.start() + (2 if m.group(1) else 2),
                {"+": "-", "-": "+", "++": "--", "--": "++"}[old])
    for m in CONDITION.finditer(text):
        close = matching(text, m.end() - 1)
        condition = source[m.end():close]
        if not inside[m.start()] or re.search(r";|[\w>&*] +[*&]?(?:const )?\w+ = ", masked(condition)):
            continue
        if len(OPERATORS.findall(f" {masked(condition)} ")) == 1:
            continue  # turned already
        if condition.startswith("!") and re.fullmatch(r"![\w.:>()-]*", condition):
            add("negated", m.end(), m.end() + 1, "")
        else:
            add("negated", m.end(), close, "!(" + condition + ")")
    for m in CONSTANTS.finditer(text):
        line = text[text.rfind("\n", 0, m.start()) + 1:m.start()]
        if re.search(r"\[\[|alignas|template|static_assert|__builtin", line):
            continue
        if m.group(2):
            add("constant", m.start(2), m.end(2), "false" if m.group(2) == "true" else "true")
        else:
            value = int(m.group(1).replace("'", ""), 0)
            add("constant", m.start(1), m.end(1), str(value + 1))
            if value > 1:
                add("constant", m.start(1), m.end(1), str(value - 1))
    statements = []
    depth = parentheses(text)
    for m in STATEMENT.finditer(text):
        start, end = m.span("text")
        if not inside[start] or depth[start] or depth[end - 1]:
            continue
        before = text[:start].rstrip()
        starts = before[-1:] in ";{}" or re.search(r"\belse$", before) or (
            before.endswith(")") and re.search(r"\b(if|while|for)( constexpr)? \($|"
                                               r"\b(if|while|for)( constexpr)? \(.*\)$",
                                               before[before.rfind("\n") + 1:]))
        if not starts or before.endswith("](") or SPEED_ONLY.search(text[start:end]):
            continue
        declares = bool(DECLARATION.match(text[start:end]))
        statements.append((start, end, declares))
        if not declares:
            add("dropped", start, end, ";")
    for (a, b, first), (c, d, second) in zip(statements, statements[1:]):
        own_line = text[text.rfind("\n", 0, a) + 1:a].strip() == ""
        kinds = {source[a:a + 9], source[c:c + 9]}
        # A check that fails ends the process, and with it the trace before or after it.
        unseen = kinds == {"KIV_TRACE", "KIV_CHECK"}
        if text[b:c].strip() == "" and own_line and not (first or second or unseen):
            add("swapped", a, d, source[c:d] + source[b:c] + source[a:b])
    return sorted(found, key=lambda f: (f[2], f[1], f[3], f[4]))


# A whole statement that is no declaration, one that returns or throws included.
WHOLE = re.compile(STATEMENT.pattern.replace(r"return\s+\S|", "").replace("|throw )", ")"), re.M)


def regions_of(source, faults):
    """The spans of a file that can be written twice: statements, runs of them, and conditions."""
    text = masked(source)
    inside, depth = inside_function(text), parentheses(text)
    statements, conditions = [], []
    for m in WHOLE.finditer(text):
        start, end = m.span("text")
        words = text[start:end]
        if inside[start] and not depth[start] and not depth[end - 1] and (
                re.match(r"(return|throw)\b", words) or not DECLARATION.match(words)):
            statements.append((start, end))
    for m in CONDITION.finditer(text):
        close = matching(text, m.end() - 1)
        if inside[m.start()] and not re.search(
                r";|[\w>&*] +[*&]?(?:const )?\w+ = ", text[m.end():close]):
            conditions.append((m.end(), close))
    statements += [(f["start"], f["end"]) for f in faults if f["what"] == "swapped"]
    runs = []
    for start, end in sorted(statements):
        if runs and start < runs[-1][1]:
            runs[-1] = (runs[-1][0], max(end, runs[-1][1]))
        else:
            runs.append((start, end))
    return [(*r, "statement") for r in runs] + [(*c, "condition") for c in conditions]


def written_together(source, numbered):
    """The source with all faults in it, each to be chosen by its number; and those left out."""
    regions = regions_of(source, [f for _, f in numbered])
    chosen, alone = {}, []
    for number, fault in numbered:
        region = next((r for r in regions if r[0] <= fault["start"] and fault["end"] <= r[1]), None)
        if region:
            chosen.setdefault(region, []).append((number, fault))
        else:
            alone.append(fault)
    for (start, end, kind), faults in sorted(chosen.items(), reverse=True):
        old = source[start:end]
        text = "" if kind == "statement" else "("
        for number, fault in faults:
            new = source[start:fault["start"]] + fault["new"] + source[fault["end"]:end]
            new = re.sub(r"\s*\n\s*", " ", re.sub(r" *//[^\n]*", "", new))
            text += (f"if (kivFault({number})) {{ {new} }} else " if kind == "statement" else
                     f"kivFault({number}) ? static_cast<bool>({new}) : ")
        text = f"{{ {text}{{ {old} }} }}" if kind == "statement" else \
            f"{text}static_cast<bool>({old}))"
        source = source[:start] + text + source[end:]
    return source, alone


CHOOSER = """#pragma once
// What the optimiser warns of, in other headers too, once a fault is in.
@ignored@
#include <cstdlib>
#include <type_traits>
inline int kivPlantedFault() {
  static int const number = std::getenv("KIV_FAULT") ? std::atoi(std::getenv("KIV_FAULT")) : 0;
  return number;
}
constexpr bool kivFault(int number) {
  return std::is_constant_evaluated() ? false : kivPlantedFault() == number;
}
"""


CHOOSER = CHOOSER.replace("@ignored@", "\n".join(
    f'#pragma GCC diagnostic ignored "-W{name}"' for name in
    ["array-bounds", "maybe-uninitialized", "uninitialized", "nonnull", "null-dereference",
     "stringop-overflow", "stringop-overread", "dangling-pointer", "use-after-free",
     "free-nonheap-object", "return-type", "return-local-addr", "infinite-recursion", "restrict"]))


def faults_of_room(room, seed):
    """All faults of a room in the order in which they are tried."""
    faults = []
    for path in sorted((ROOT / room).glob("**/*")):
        if path.suffix not in (".h", ".cpp") or not path.is_file():
            continue
        source = path.read_text()
        name = str(path.relative_to(ROOT))
        digest = hashlib.sha256(source.encode()).hexdigest()[:12]
        for line, what, start, end, replacement in faults_of(path, source):
            key = hashlib.sha256(f"{name} {digest} {start} {end} {replacement}".encode())
            faults.append({"key": key.hexdigest()[:12], "file": name, "line": line, "what": what,
                           "start": start, "end": end, "old": source[start:end],
                           "new": replacement})
    # The order depends on what a fault is, not on where in its file it is: an edit of one function
    # leaves the faults of all others in the sample.
    rank = lambda f: hashlib.sha256(
        f"{seed} {f['file']} {f['what']} {f['old']} {f['new']} {context(f)}".encode()).hexdigest()
    return sorted(faults, key=lambda f: (rank(f), f["start"]))


sources_read = {}


def context(fault):
    """The whole lines of a fault, which tell it from others of the same text."""
    if fault["file"] not in sources_read:
        sources_read[fault["file"]] = (ROOT / fault["file"]).read_text()
    source = sources_read[fault["file"]]
    start = source.rfind("\n", 0, fault["start"]) + 1
    end = source.find("\n", fault["end"])
    return f"{source[start:end]} {fault['start'] - start}"


# --- Building and running -------------------------------------------------------------------------


running = set()


def run(command, timeout=None, **options):
    """The status of a command, or None when it took too long; its children end with it."""
    process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                               stdin=subprocess.DEVNULL, start_new_session=True, text=True,
                               errors="replace", **options)
    running.add(process.pid)
    try:
        output, _ = process.communicate(timeout=timeout)
        return process.returncode, output
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        process.communicate()
        return None, ""
    finally:
        running.discard(process.pid)


def stop(*_):
    """Ends the run and what it started. What is recorded stays."""
    for group in list(running):
        try:
            os.killpg(group, signal.SIGKILL)
        except ProcessLookupError:
            pass
    os._exit(130)


class Check:
    """One program to run: a suite, the model, or a lab script."""

    def __init__(self, name, target, command):
        self.name, self.target, self.command = name, target, command
        self.limit = 300  # seconds of processor time, of each of its processes


class Tree:
    """A copy of the sources with a build of its own."""

    def __init__(self):
        self.source = WORK / "tree"
        self.build = self.source / "build" / "release"
        self.environment = dict(os.environ, GTEST_FAIL_FAST="1", GTEST_BRIEF="1",
                                CMAKE_GENERATOR="Ninja")
        self.environment.pop("KIV_FAULT", None)
        self.changed = {}
        self.plain = {}
        self.assembling = threading.Lock()

    def prepare(self):
        self.source.mkdir(parents=True, exist_ok=True)
        listed = subprocess.run(["git", "ls-files", "-z", "--cached", "--others",
                                 "--exclude-standard", "--deduplicate"], cwd=ROOT, check=True,
                                capture_output=True, text=True).stdout.split("\0")
        wanted = {name for name in listed if name and (ROOT / name).is_file()}
        for path in list(self.source.glob("**/*")):
            if path.is_file() and str(path.relative_to(self.source)) not in wanted:
                path.unlink()
        for name in wanted:
            copy = self.source / name
            data = (ROOT / name).read_bytes()
            if not copy.is_file() or copy.read_bytes() != data:
                copy.parent.mkdir(parents=True, exist_ok=True)
                copy.write_bytes(data)
                shutil.copymode(ROOT / name, copy)
        (self.source / "kiv_fault.h").write_text(CHOOSER)
        status, output = run(["cmake", "--preset", "release"], cwd=self.source,
                             env=self.environment)
        if status != 0:
            sys.exit(f"mutate: cmake fails:\n{output[-3000:]}")

    def make(self, checks, jobs=1):
        targets = {check.target for check in checks}
        if "macrewrite-lab" in targets:
            targets.add("BfnMacRewrite")  # opened at run time
        return run(["ninja", "-C", str(self.build), f"-j{jobs}", "-k0", *sorted(targets)],
                   env=self.environment)

    def write(self, name, text):
        """Changes one file of the copy until clear(). Nothing in it gives a warning."""
        path = self.source / name
        self.changed.setdefault(path, (ROOT / name).read_text())
        text = f'#include "kiv_fault.h"\n#pragma GCC system_header\n#line 1 "{path}"\n{text}'
        if name.endswith(".cpp"):
            # The pragma works in an included file alone.
            path.with_suffix(".cpp.planted").write_text(text)
            text = f'#include "{name}.planted"\n'
        path.write_text(text)

    def clear(self):
        for path, source in self.changed.items():
            path.write_text(source)
        self.changed = {}

    def plant(self, fault):
        """Puts one fault in, and takes out what was there before."""
        self.clear()
        source = (ROOT / fault["file"]).read_text()
        self.write(fault["file"], source[:fault["start"]] + fault["new"] + source[fault["end"]:])

    def passes(self, check, number=0, worker=0):
        folder = WORK / f"scratch{worker}"
        folder.mkdir(exist_ok=True)
        command = [part.replace("@source@", str(self.source)).replace("@build@", str(self.build))
                   for part in check.command]
        # A fault may allocate or run without end, or leave a core file for each death test. A busy
        # machine lengthens no processor time.
        limits = f"ulimit -c 0; ulimit -v 4000000; ulimit -t {check.limit}"
        command = ["sh", "-c", limits + '; exec "$@"', "sh", *command]
        status, _ = run(command, timeout=3600, cwd=folder,
                        env={**self.environment, "KIV_FAULT": str(number)})
        return status == 0

    def assembly(self, name, text):
        """What the optimiser makes of a source file with this text."""
        path = self.source / name
        for entry in json.loads((self.build / "compile_commands.json").read_text()):
            if entry["file"] != str(path):
                continue
            # Beside the file itself, since it is found by none of its includes.
            other = path.with_name("kiv_assembly.cpp")
            other.write_text(f'#line 1 "{path}"\n{text}')
            words = entry["command"].split()
            first = next(i for i, word in enumerate(words) if word.endswith("g++"))
            status, output = run([*words[first:words.index("-o")], "-w", "-S", "-o", "-", str(other)],
                                 cwd=entry["directory"])
            other.unlink()
            return output if status == 0 else None
        return None

    def same_code(self, fault):
        name = fault["file"]
        if not name.endswith(".cpp"):
            return False
        source = (ROOT / name).read_text()
        with_fault = source[:fault["start"]] + fault["new"] + source[fault["end"]:]
        with self.assembling:  # every assembly has the same file name in it
            if name not in self.plain:
                self.plain[name] = self.assembly(name, source)
            code = self.assembly(name, with_fault)
        return code is not None and code == self.plain[name]


def suites_below(folder):
    """The programs that add_suite makes below a folder of tests/."""
    names = []
    for path in sorted((ROOT / "tests").glob(f"{folder}/**/CMakeLists.txt")):
        names += [(name, str(path.parent.relative_to(ROOT)))
                  for name in re.findall(r"^add_suite\(\s*([\w-]+)", path.read_text(), re.M)]
    return names


def checks_of(room):
    """The room's own suites, then what else can notice a fault in it."""
    suite = lambda name, _: Check(name, name, [f"@build@/bin/{name}"])
    own = [suite(*s) for s in suites_below(room)]
    wider = [Check("model_run", "model_run", ["@build@/bin/model_run", "--events", "20000",
                                              "--seed", "1000", "--hash-seed", "1"])]
    # A framework suite is not linked with the plug-in.
    folders = [r for r in PLUGIN_ROOMS + ["model", "faults", "lab"]]
    if room.startswith("framework/"):
        folders = ["framework"] + folders
    for folder in folders:
        wider += [suite(*s) for s in suites_below(folder) if s[0] not in {c.name for c in own}]
    for script in sorted((ROOT / "tests" / "lab").glob("*.lab")):
        wider.append(Check(script.name, "macrewrite-lab",
                           ["@build@/bin/macrewrite-lab", f"@source@/tests/lab/{script.name}"]))
    targets = {c.target for c in own}
    return own, [c for c in wider if c.name not in targets]


def judge(tree, fault, checks, number=0, worker=0):
    """What becomes of a fault that is compiled in."""
    for check in checks:
        if not tree.passes(check, number, worker):
            return {"result": "killed", "by": check.name}
    return {"result": "same code" if tree.same_code(fault) else "survived"}


def judge_alone(tree, fault, own, wider):
    """Compiles one fault by itself, as few programs as will do."""
    tree.plant(fault)
    for checks in [own, wider]:
        status, _ = tree.make(checks)
        if status != 0:
            return {"result": "does not compile"}
        verdict = judge(tree, fault, checks)
        if verdict["result"] != "survived":
            break
    return verdict


# --- A run ----------------------------------------------------------------------------------------


def measure(tree, checks):
    """Every check must pass without a fault; how long it takes sets its limit."""
    for check in checks:
        check.limit = 300
        before = os.times()
        if not tree.passes(check):
            sys.exit(f"mutate: {check.name} fails without a fault")
        after = os.times()
        check.limit = 10 + int(8 * (after.children_user - before.children_user +
                                    after.children_system - before.children_system))


def compile_together(tree, faults, checks, jobs):
    """Compiles in what can be, and gives (number, fault) of those, and the faults left over."""
    alone = []
    numbered = list(enumerate(faults, 1))
    for _ in range(12):
        tree.clear()
        left_out = []
        for name in sorted({f["file"] for _, f in numbered}):
            text, not_here = written_together((ROOT / name).read_text(),
                                              [(n, f) for n, f in numbered if f["file"] == name])
            left_out += not_here
            tree.write(name, text)
        alone += left_out
        numbered = [(n, f) for n, f in numbered if f not in left_out]
        status, output = tree.make(checks, jobs)
        if status == 0:
            return numbered, alone
        # What a compiler complains about is compiled by itself.
        wrong = {(name, int(line)) for name, line in
                 re.findall(r"([\w./]+):(\d+):\d+: (?:error|note)", output)}
        guilty = [f for _, f in numbered if any(
            name.endswith(f["file"]) and f["line"] <= line <= f["line"] + f["old"].count("\n") + 3
            for name, line in wrong)]
        if not guilty:
            guilty = [f for _, f in numbered if f["file"].endswith(".h")]
        if not guilty:
            sys.exit(f"mutate: the tree does not build:\n{output[-3000:]}")
        alone += guilty
        numbered = [(n, f) for n, f in numbered if f not in guilty]
    sys.exit("mutate: the tree does not build")


def run_room(tree, room, options):
    log = WORK / f"{room.replace('/', '-')}.jsonl"
    done = {}
    if log.exists():
        for line in log.read_text().splitlines():
            entry = json.loads(line)
            done[entry["key"]] = entry
    faults = [fault for fault in faults_of_room(room, options.seed)
              if fnmatch.fnmatch(fault["file"], options.only)]
    lock = threading.Lock()
    own, wider = checks_of(room)
    tried_again = set()

    def record(fault, verdict):
        entry = {**{k: fault[k] for k in ("key", "file", "line", "what", "old", "new")}, **verdict}
        with lock:
            done[fault["key"]] = entry
            with log.open("a") as out:
                out.write(json.dumps(entry) + "\n")
            if verdict["result"] == "survived" or options.verbose:
                print(f"  {verdict['result']}: {describe(fault)}", flush=True)

    while True:
        # The sample is the first `count` faults that count; it grows until enough do.
        sample, todo = [], []
        for fault in faults:
            if len(sample) + len(todo) >= options.count:
                break
            result = done.get(fault["key"], {}).get("result")
            if result is None or (result == "survived" and options.again and
                                  fault["key"] not in tried_again):
                todo.append(fault)
                tried_again.add(fault["key"])
            elif result in ("killed", "survived"):
                sample.append(fault)
        if not todo:
            break
        together, alone = compile_together(tree, todo, own + wider, options.jobs)
        measure(tree, own + wider)
        queue = list(together)

        def work(worker):
            while True:
                with lock:
                    if not queue:
                        return
                    number, fault = queue.pop(0)
                record(fault, judge(tree, fault, own + wider, number, worker))

        threads = [threading.Thread(target=work, args=(n,)) for n in range(options.jobs)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        # Those of one file one after the other: taking one out then rebuilds nothing else.
        for fault in sorted(alone, key=lambda f: (f["file"], f["start"])):
            record(fault, judge_alone(tree, fault, own, wider))
    tree.clear()
    survivors = [f for f in sample if done[f["key"]]["result"] == "survived"]
    print(f"{room}: {len(sample)} planted, {len(sample) - len(survivors)} killed, "
          f"{len(survivors)} survived (seed {options.seed})")
    for fault in sorted(survivors, key=lambda f: (f["file"], f["start"])):
        print(f"  {describe(fault)}")


def describe(fault):
    shorten = lambda text: re.sub(r"\s+", " ", text).strip()[:100]
    return (f"{fault['file']}:{fault['line']}: {fault['what']}: `{shorten(fault['old'])}` -> "
            f"`{shorten(fault['new'])}`")


def main():
    parser = argparse.ArgumentParser(prog="./dev mutate", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("rooms", nargs="*", metavar="ROOM", help="default: " + " ".join(ROOMS))
    parser.add_argument("--seed", type=int, default=1, help="which faults are planted (default 1)")
    parser.add_argument("--count", type=int, default=300, help="faults a room (default 300)")
    parser.add_argument("--only", default="*", metavar="PATTERN",
                        help="faults in these files alone, such as '*.cpp', which compile fastest")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="faults at a time")
    parser.add_argument("--again", action="store_true",
                        help="try the recorded survivors again, after a change of the tests")
    parser.add_argument("--list", action="store_true", help="print the faults and plant none")
    parser.add_argument("--verbose", action="store_true", help="print every fault's result")
    options = parser.parse_args()
    for room in options.rooms:
        if room not in ROOMS:
            parser.error(f"no such room: {room} (there are {', '.join(ROOMS)})")
    rooms = options.rooms or ROOMS
    if options.list:
        for room in rooms:
            for fault in faults_of_room(room, options.seed)[:options.count]:
                print(describe(fault))
        return
    signal.signal(signal.SIGINT, stop)
    signal.signal(signal.SIGTERM, stop)
    tree = Tree()
    tree.prepare()
    for room in rooms:
        run_room(tree, room, options)


main()
