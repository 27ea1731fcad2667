#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Every link, picture and place within the site is there. usage: SiteTest.py FOLDER"""
import pathlib
import re
import sys

folder = pathlib.Path(sys.argv[1])
pages = {file.name: file.read_text(encoding="utf-8") for file in folder.glob("*.html")}
places = {name: set(re.findall(r'id="([^"]+)"', text)) for name, text in pages.items()}
problems = []
links = 0
for name, text in pages.items():
    for target in re.findall(r'(?:href|src)="([^"]+)"', text):
        file, _, place = target.partition("#")
        if re.match(r"\w+:", target):
            problems.append(f"{name}: {target} is not in the file system")
        elif file and not (folder / file).exists():
            problems.append(f"{name}: there is no {target}")
        elif place and place not in places[file or name]:
            problems.append(f"{name}: {target} is no place there")
        links += 1
for wanted in ("index", "tutorial", "concepts", "lab", "driver", "host", "glossary"):
    if f"{wanted}.html" not in pages:
        problems.append(f"there is no page {wanted}")
print("\n".join(problems) if problems else f"site: ok, {links} links")
sys.exit(1 if problems else 0)
