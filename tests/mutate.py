#!/usr/bin/env python3
"""Plants one fault at a time in a room's sources and lists those that no test notices.

A fault is a comparison turned, a condition negated, a constant changed, a statement dropped or two
statements swapped. Which ones are planted, and in which order, follows from the seed alone. Faults
are planted in a copy of the tree below build/mutate, never in the work tree.

A fault that does not compile, or that leaves the optimised object code as it was, does not count.
It is killed by the first test program that fails or exceeds its time: the room's own suites first,
then every other suite and lab script. Results are kept by source text, so that a run that was
stopped goes on where it was; after a change of the tests, `--again` tries the survivors once more.
"""
import argparse
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
import time
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

    def __init__(self, name, target, command, folder):
        self.name, self.target, self.command, self.folder = name, target, command, folder
        self.limit = 300.0


class Tree:
    """A copy of the sources with a build of its own."""

    def __init__(self, number):
        self.source = WORK / f"tree{number}"
        self.build = WORK / f"build{number}"
        # Objects of the unchanged sources come from the cache when a fault is taken out again.
        self.environment = dict(os.environ, CCACHE_DIR=str(WORK / "ccache"), GTEST_FAIL_FAST="1",
                                CCACHE_BASEDIR=str(WORK), CCACHE_NOHASHDIR="1", GTEST_BRIEF="1",
                                CCACHE_MAXSIZE="2G")
        self.environment.pop("CCACHE_DISABLE", None)
        self.planted = None

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
        # Objects of the unchanged sources may be added to the cache, those of a fault may not.
        self.environment.pop("CCACHE_READONLY", None)
        status, output = run(["cmake", "-G", "Ninja", "-S", str(self.source), "-B", str(self.build),
                              "-DCMAKE_CXX_COMPILER=g++", "-DCMAKE_BUILD_TYPE=Plain",
                              "-DBFN_WERROR=OFF", "-DCMAKE_CXX_FLAGS=-O0 -w",
                              "-DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON"],
                             env=self.environment)
        if status != 0:
            sys.exit(f"mutate: cmake fails:\n{output[-3000:]}")

    def build_unchanged(self, checks):
        self.environment.pop("CCACHE_READONLY", None)
        status, output = self.make(checks, "-j2")
        if status != 0:
            sys.exit(f"mutate: the unchanged tree does not build:\n{output[-3000:]}")
        self.environment["CCACHE_READONLY"] = "1"

    def make(self, checks, jobs="-j1"):
        targets = {check.target for check in checks}
        if "macrewrite-lab" in targets:
            targets.add("BfnMacRewrite")  # opened at run time
        return run(["ninja", "-C", str(self.build), jobs, *sorted(targets)], env=self.environment)

    def plant(self, fault):
        """Puts one fault in, and takes out the one before."""
        self.clear()
        path = self.source / fault["file"]
        source = path.read_text()
        path.write_text(source[:fault["start"]] + fault["new"] + source[fault["end"]:])
        self.planted = (path, source)

    def clear(self):
        if self.planted:
            path, source = self.planted
            path.write_text(source)
            self.planted = None

    def passes(self, check):
        folder = self.build / check.folder
        command = [part.replace("@source@", str(self.source)).replace("@build@", str(self.build))
                   for part in check.command]
        # A fault may allocate without end, or leave a core file for each death test.
        command = ["sh", "-c", 'ulimit -c 0; ulimit -v 4000000; exec "$@"', "sh", *command]
        status, _ = run(command, timeout=check.limit, cwd=folder, env=self.environment)
        return status == 0

    def same_code(self, fault):
        """Whether the optimiser makes the same of a source file with its fault and without."""
        if not fault["file"].endswith(".cpp"):
            return False
        path = self.source / fault["file"]
        for entry in json.loads((self.build / "compile_commands.json").read_text()):
            if entry["file"] != str(path):
                continue
            command = [word for word in entry["command"].split() if "ccache" not in word]
            command = command[:command.index("-o")] + ["-O2", "-o", "/dev/stdout", "-S", str(path)]
            command = command[next(i for i, w in enumerate(command) if w.endswith("g++")):]
            _, with_fault = run(command, cwd=entry["directory"])
            planted = path.read_text()
            path.write_text(self.planted[1])
            _, without = run(command, cwd=entry["directory"])
            path.write_text(planted)
            return with_fault == without
        return False


def suites_below(folder):
    """The programs that add_suite makes below a folder of tests/."""
    names = []
    for path in sorted((ROOT / "tests").glob(f"{folder}/**/CMakeLists.txt")):
        names += [(name, str(path.parent.relative_to(ROOT)))
                  for name in re.findall(r"^add_suite\(\s*([\w-]+)", path.read_text(), re.M)]
    return names


def checks_of(room):
    """The room's own suites, then what else can notice a fault in it."""
    suite = lambda name, folder: Check(name, name, [f"@build@/bin/{name}"], folder)
    own = [suite(*s) for s in suites_below(room)]
    wider = [Check("model_run", "model_run", ["@build@/bin/model_run", "--events", "20000",
                                              "--seed", "1000", "--hash-seed", "1"], ".")]
    # A framework suite is not linked with the plug-in.
    folders = [r for r in PLUGIN_ROOMS + ["model", "faults", "lab"]]
    if room.startswith("framework/"):
        folders = ["framework"] + folders
    for folder in folders:
        wider += [suite(*s) for s in suites_below(folder) if s[0] not in {c.name for c in own}]
    for script in sorted((ROOT / "tests" / "lab").glob("*.lab")):
        wider.append(Check(script.name, "macrewrite-lab",
                           ["@build@/bin/macrewrite-lab", f"@source@/tests/lab/{script.name}"],
                           "tests/lab"))
    targets = {c.target for c in own}
    return own, [c for c in wider if c.name not in targets]


def judge(tree, fault, own, wider):
    """What becomes of one planted fault."""
    tree.plant(fault)
    stages = [own, wider] if own else [wider]
    for checks in stages:
        status, _ = tree.make(checks)
        if status != 0:
            return {"result": "does not compile"}
        if checks is wider and tree.same_code(fault):
            return {"result": "same code"}
        for check in checks:
            if not tree.passes(check):
                return {"result": "killed", "by": check.name}
    return {"result": "survived"}


# --- A run ----------------------------------------------------------------------------------------


def measure(tree, checks):
    """Every check must pass without a fault; how long it takes sets its limit."""
    for check in checks:
        started = time.monotonic()
        if not tree.passes(check):
            sys.exit(f"mutate: {check.name} fails without a fault")
        check.limit = 10.0 + 8.0 * (time.monotonic() - started)


def run_room(room, options):
    log = WORK / f"{room.replace('/', '-')}.jsonl"
    done = {}
    if log.exists():
        for line in log.read_text().splitlines():
            entry = json.loads(line)
            done[entry["key"]] = entry
    faults = faults_of_room(room, options.seed)
    counted = lambda key: done.get(key, {}).get("result") in ("killed", "survived")
    own, wider = checks_of(room)
    trees = options.trees
    lock = threading.Lock()
    measured = False

    def record(fault, verdict):
        entry = {**{k: fault[k] for k in ("key", "file", "line", "what", "old", "new")}, **verdict}
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
            if fault["key"] not in done:
                todo.append(fault)
            elif counted(fault["key"]):
                if options.again and done[fault["key"]]["result"] == "survived" and \
                        not done[fault["key"]].get("again"):
                    todo.append(fault)
                else:
                    sample.append(fault)
        if not todo:
            break
        if not measured:
            for tree in trees:
                tree.build_unchanged(own + wider)
            measure(trees[0], own + wider)
            measured = True
        # Faults of one file one after the other: taking one out then rebuilds nothing else.
        todo.sort(key=lambda f: (f["file"], f["start"]))

        def work(tree):
            while True:
                with lock:
                    if not todo:
                        return
                    fault = todo.pop(0)
                verdict = judge(tree, fault, own, wider)
                if options.again:
                    verdict["again"] = True
                with lock:
                    record(fault, verdict)

        threads = [threading.Thread(target=work, args=(tree,)) for tree in trees]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    for tree in trees:
        tree.clear()
    survivors = [f for f in sample if done[f["key"]]["result"] == "survived"]
    print(f"{room}: {len(sample)} planted, {len(sample) - len(survivors)} killed, "
          f"{len(survivors)} survived (seed {options.seed})")
    for fault in sorted(survivors, key=lambda f: (f["file"], f["start"])):
        print(f"  {describe(fault)}")
    return len(survivors)


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
    options.trees = [Tree(number) for number in range(options.jobs)]
    for tree in options.trees:
        tree.prepare()
    for room in rooms:
        run_room(room, options)


main()
