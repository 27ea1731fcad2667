#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What docs/operations.md lists is what the service has: options, messages and metrics.

    OperationsTest.py ROOT    ROOT: the source tree
"""
import pathlib
import re
import sys


def names(pattern, *files):
    """What the pattern captures in the files."""
    found = set()
    for file in files:
        found |= set(re.findall(pattern, file.read_text(encoding="utf-8")))
    return found


def main():
    root = pathlib.Path(sys.argv[1])
    document = root / "docs/operations.md"
    text = document.read_text(encoding="utf-8")
    faults = []

    def compare(what, in_sources, in_document):
        if not in_sources:
            faults.append(f"no {what} was found in the sources")
        faults.extend(f"{what} {name} is not in {document.name}" for name in sorted(in_sources - in_document))
        faults.extend(f"{what} {name} is in {document.name} alone" for name in sorted(in_document - in_sources))

    table = text.split("| option | default | meaning |")[1].split("\n\n")[0]
    source = (root / "daemon/Configuration.cpp").read_text(encoding="utf-8")
    store_part = source.split("void addStore(")[1].split("\n}")[0]
    options = set(re.findall(r'reader\.(?:text|texts|flag|seconds|number)\("([a-z-]+)"', source.replace(store_part, "")))
    options |= {"store." + name for name in re.findall(r'reader\.(?:text|seconds)\("([a-z-]+)"', store_part)}
    compare("option", options, set(re.findall(r"`([a-z.-]+)`", "\n".join(row.split("|")[1] for row in
                                                                        table.splitlines()[2:]))))
    compare("message", names(r'"(BFN_[A-Z_]+)"', *(root / "host/service").glob("*.cpp"), *(root / "host/store").glob("*.cpp"),
                             root / "host/switch/Switch.cpp", root / "host/reconcile/Reconciler.cpp"),
            set(re.findall(r"\bBFN_[A-Z_]+", text)))
    compare("metric", {"macrewrite_" + name for name in
                       names(r'text\.(?:add|head)\(\s*"([a-z_]+)"', root / "host/service/Metrics.cpp")},
            set(re.findall(r"\bmacrewrite_[a-z_]+", text)))
    print("\n".join(faults))
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    main()
