#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Times the service as its clients see it, and prints a table.

    service.py BIN [--runs N] [--rows N]    BIN: the folder of macrewrited and macrewrite

Rows go into the kernel where this process may make a network namespace, else into the model. Each
figure is the median of the runs.
"""
import argparse
import json
import os
import resource
import select
import shutil
import socket
import statistics
import subprocess
import sys
import tempfile
import time

PROFILE = ["host profile p rewrite supported table-size 65535", "host use profile p", "host vrf red id 7",
           "host routing-status port Ethernet1 key-vlan 0 vlan 1006 vrf-id 7",
           "host route vrf red vrf-id 7 forwarding-vlan 200", "host inputs complete"]


def address(i):
    return f"10.{1 + i // 65536}.{i // 256 % 256}.{i % 256}"


def operator_line(i):
    return (f"vxlan forwarding match vrf red src-ip {address(i)} action rewrite "
            f"src-mac 02:00:00:00:{i // 256 % 256:02x}:{i % 256:02x}")


def address_line(i):
    return f"host address {address(i)} vrf-id 7 interface Ethernet1"


class Client:
    """One connection to the control socket."""

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(path)
        self.file = self.socket.makefile("rb", buffering=1 << 20)
        self.file.readline()

    def ask(self, line):
        self.socket.sendall(json.dumps({"line": line}).encode() + b"\n")
        return json.loads(self.file.readline())

    def pipelined(self, lines):
        """Sends the lines, 512 on their way at most; seconds until the last answer."""
        requests = [json.dumps({"line": line}).encode() + b"\n" for line in lines]
        started = time.perf_counter()
        sent = received = 0
        while received < len(requests):
            if sent < len(requests) and sent - received <= 256:
                self.socket.sendall(b"".join(requests[sent:sent + 256]))
                sent = min(sent + 256, len(requests))
                continue
            answer = self.file.readline()
            if b'"error"' in answer:
                sys.exit(f"service.py: {answer.decode()}")
            received += 1
        return time.perf_counter() - started


class Service:
    """The service in a directory of its own."""

    def __init__(self, programs, table, database=None):
        self.directory = tempfile.mkdtemp(prefix="service-bench.")
        self.command = [os.path.join(programs, "macrewrited"), "--state", self.directory, "--control",
                        self.control(), "--hash-seed", "1", "--switch", "leaf1", "--table",
                        "kernel:" + self.directory + "/table" if table == "kernel" else "model"]
        if database:
            self.command += ["--database", database]
        self.client = [os.path.join(programs, "macrewrite"), "--socket", self.control()]
        self.process = None

    def control(self):
        return self.directory + "/control"

    def start(self):
        """Seconds until it answers that it is ready, or runs without inputs."""
        started = time.perf_counter()
        self.process = subprocess.Popen(self.command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        while True:
            try:
                client = Client(self.control())
                state = client.ask("status")["answer"]["agent"]
                if state["ready"] or state["state"] == "waiting":
                    return time.perf_counter() - started
            except OSError:
                if self.process.poll() is not None:
                    sys.exit("service.py: the service does not start: " + " ".join(self.command))
            time.sleep(0.0005)

    def load(self, lines):
        """Seconds that the client takes for a file of lines, which is one transaction."""
        file = self.directory + "/lines"
        with open(file, "w", encoding="ascii") as out:
            out.write("\n".join(lines) + "\n")
        started = time.perf_counter()
        subprocess.run(self.client + ["load", file], check=True)
        return time.perf_counter() - started

    def stop(self, signal=15):
        self.process.send_signal(signal)
        self.process.wait()

    def memory(self):
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as status:
            return next(int(line.split()[1]) for line in status if line.startswith("VmRSS")) / 1024

    def metric(self, name):
        text = Client(self.control()).ask("show metrics")["answer"]
        return next(float(line.split()[1]) for line in text.split("\n") if line.startswith(f"macrewrite_{name} "))

    def child(self):
        """The process that makes an answer, or None."""
        with open(f"/proc/{self.process.pid}/task/{self.process.pid}/children", encoding="ascii") as children:
            return next(iter(children.read().split()), None)

    def remove(self):
        self.stop(9)
        subprocess.run(["umount", self.directory + "/table"], stderr=subprocess.DEVNULL, check=False)
        shutil.rmtree(self.directory, ignore_errors=True)


class Redis:
    """A server of its own, at a socket."""

    def __init__(self):
        self.directory = tempfile.mkdtemp(prefix="service-bench-redis.")
        self.path = self.directory + "/socket"
        self.process = subprocess.Popen(
            ["redis-server", "--port", "0", "--unixsocket", self.path, "--dir", self.directory, "--save", "",
             "--appendonly", "no"], stdout=subprocess.DEVNULL)
        while not os.path.exists(self.path):
            time.sleep(0.01)

    def remove(self):
        self.process.kill()
        self.process.wait()
        shutil.rmtree(self.directory, ignore_errors=True)


def private_memory(process):
    """MiB of pages that no other process has, and of tables of pages."""
    with open(f"/proc/{process}/smaps_rollup", encoding="ascii") as rollup:
        private = sum(int(line.split()[1]) for line in rollup if line.startswith("Private_"))
    with open(f"/proc/{process}/status", encoding="ascii") as status:
        return (private + next(int(line.split()[1]) for line in status if line.startswith("VmPTE"))) / 1024


def is_asleep(process):
    with open(f"/proc/{process}/stat", encoding="ascii") as stat:
        return stat.read().rpartition(")")[2].split()[0] == "S"


def report(what, values, unit, most):
    digits = 2 if unit == "s" else 1
    print(f"{what:62} {statistics.median(values):9.{digits}f} {unit:3} {'at most ' + str(most) if most else ''}",
          flush=True)


def lines_per_store(programs, table, runs):
    count = 5000
    for name, database, most in (("memory", "memory", 8), ("SQLite", None, 25), ("Redis", "redis", 20)):
        if database == "redis" and shutil.which("redis-server") is None:
            continue
        rows, lines = [], []
        for _ in range(runs):
            redis = Redis() if database == "redis" else None
            service = Service(programs, table, "redis+unix://" + redis.path if redis else database)
            service.start()
            client = Client(service.control())
            client.pipelined(PROFILE)
            rows.append(client.pipelined([address_line(i) for i in range(count)]) / count * 1e6)
            lines.append(client.pipelined([operator_line(i) for i in range(count)]) / count * 1e6)
            service.remove()
            if redis:
                redis.remove()
        report(f"address through the socket to its row, {name}", rows, "us", None)
        report(f"operator line through the socket to its row, {name}", lines, "us", most)


def loads(service, rows, runs, store, most):
    """Loads of all operator lines with their rows; they are there afterwards."""
    client = Client(service.control())
    client.pipelined(PROFILE)
    client.pipelined([address_line(i) for i in range(rows)])
    times = []
    for run in range(runs):
        times.append(service.load([operator_line(i) for i in range(rows)]))
        if run + 1 < runs:
            service.load([f"no vxlan forwarding match vrf red src-ip {address(i)}" for i in range(rows)])
    report(f"load of {rows} operator lines into {store}", times, "s", most)
    return client


def load_into_redis(programs, table, rows, runs):
    if shutil.which("redis-server") is None:
        return
    redis = Redis()
    service = Service(programs, table, "redis+unix://" + redis.path)
    service.start()
    loads(service, rows, runs, "Redis", 0.8)
    service.remove()
    redis.remove()


def large(programs, table, rows, runs):
    service = Service(programs, table)
    service.start()
    client = loads(service, rows, runs, "SQLite", 0.5)
    report(f"resident memory with {rows} rows", [service.memory()], "MiB", 64)

    def pause(line):
        """The longest time that another client waits for a status while the line is answered."""
        other = Client(service.control())
        client.socket.sendall(json.dumps({"line": line}).encode() + b"\n")
        longest = 0
        client.socket.setblocking(False)
        answer = b""
        while not answer.endswith(b"\n"):
            started = time.perf_counter()
            other.ask("status")
            longest = max(longest, time.perf_counter() - started)
            try:
                answer += client.socket.recv(1 << 22)
            except BlockingIOError:
                pass
        client.socket.setblocking(True)
        return longest * 1e3

    def fork_of(line):
        """Milliseconds that the service waits for the fork, and MiB that the child has for itself.

        No part of the answer is read before the child waits for that, with the whole of it in its memory: what it has
        made, what it has written to, and what the service has written to meanwhile are private pages then."""
        while service.child() is not None:  # that of the answer before
            time.sleep(0.001)
        before = service.metric("fork_seconds_total")
        client.socket.sendall(json.dumps({"line": line}).encode() + b"\n")
        most = asleep = 0
        while asleep < 20:
            child = service.child()
            if child is None and select.select([client.socket], [], [], 0)[0]:
                sys.exit("service.py: the rows are too few: no answer had to wait")
            if child is None:
                continue
            most = max(most, private_memory(child))
            asleep = asleep + 1 if is_asleep(child) else 0
            time.sleep(0.001)
        client.file.readline()
        return (service.metric("fork_seconds_total") - before) * 1e3, most

    for line in ("status", "show vxlan forwarding src-mac rewrite", "audit"):
        report(f"longest wait of another client during: {line}", [pause(line) for _ in range(runs)], "ms",
               None if line == "status" else 5)
    forks = [fork_of("show vxlan forwarding src-mac rewrite") for _ in range(runs)]
    report(f"fork for a show of {rows} rows", [fork[0] for fork in forks], "ms", None)
    report(f"memory of the child that shows {rows} rows beside the service's", [fork[1] for fork in forks], "MiB", None)
    over_equal, over_empty = [], []
    for _ in range(runs):
        service.stop(9)
        over_equal.append(service.start() * 1e3)
    report(f"start to in sync with {rows} rows over an equal table", over_equal, "ms", 400)
    if table == "kernel":
        for _ in range(runs):
            service.stop(9)
            subprocess.run(["umount", service.directory + "/table"], check=True)
            over_empty.append(service.start() * 1e3)
        report(f"start to in sync with {rows} rows over an empty table", over_empty, "ms", 450)
    service.remove()


def small(programs, table, runs):
    service = Service(programs, table)
    service.start()
    client = Client(service.control())
    client.pipelined(PROFILE + [address_line(i) for i in range(1000)])
    times = []
    for _ in range(runs):
        service.stop(9)
        times.append(service.start() * 1e3)
    report("start to in sync with 1000 rows", times, "ms", 50)
    service.remove()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("programs")
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--rows", type=int, default=65535)
    parser.add_argument("--inside", action="store_true")
    options = parser.parse_args()
    table = "kernel" if options.inside else "model"
    if not options.inside and os.geteuid() == 0:
        inside = ["unshare", "--net", "--mount", sys.executable, os.path.realpath(__file__), "--inside", options.programs,
                  "--runs", str(options.runs), "--rows", str(options.rows)]
        sys.exit(subprocess.run(inside, check=False).returncode)
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    print(f"rows in the {table}; medians of {options.runs} runs")
    lines_per_store(options.programs, table, options.runs)
    small(options.programs, table, options.runs)
    load_into_redis(options.programs, table, options.rows, options.runs)
    large(options.programs, table, options.rows, options.runs)


if __name__ == "__main__":
    main()
