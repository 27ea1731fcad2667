#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The documents as a site of plain pages that opens from the file system.

  docs/site.py FOLDER      needs python3-markdown

Links between documents become links between pages; those to other files of the tree become plain words.
"""
import html
import pathlib
import re
import shutil
import sys

import markdown

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent
# (page, title in the menu); those that are not there are left out.
PAGES = [
    ("tutorial", "Tutorial"),
    ("concepts", "Concepts"),
    ("lab", "Reference: the lab"),
    ("behaviour", "What may surprise"),
    ("operations", "Operations"),
    ("kernel", "The kernel's table"),
    ("store", "Stores"),
    ("driver", "Writing a driver"),
    ("host", "Writing a host"),
    ("architecture", "Architecture"),
    ("glossary", "Glossary"),
    ("changes", "Changes"),
]
OTHER_SOURCES = {"index": ROOT / "README.md", "changes": ROOT / "CHANGELOG.md"}
STYLE = """
body { margin: 0; font: 16px/1.5 sans-serif; color: #1f2933; display: flex; }
nav { flex: 0 0 13em; padding: 1.5em 1em; background: #f2f4f6; min-height: 100vh; box-sizing: border-box; }
nav a { display: block; padding: .2em .5em; color: inherit; text-decoration: none; }
nav a:hover, nav a.here { background: #d6e6f7; }
main { padding: 1em 2.5em 4em; max-width: 56em; min-width: 0; }
pre { background: #f6f8fa; padding: .8em 1em; overflow-x: auto; line-height: 1.3; }
code { font-size: 90%; }
table { border-collapse: collapse; }
td, th { border: 1px solid #cbd2d9; padding: .3em .6em; text-align: left; vertical-align: top; }
img { max-width: 100%; }
@media (max-width: 50em) { body { display: block; } nav { min-height: 0; } }
"""


def source_of(page):
    return OTHER_SOURCES.get(page, HERE / f"{page}.md")


def page_of(target, base):
    """The page of a document that a link names, or None."""
    path = (base / target).resolve()
    for page in ["index"] + [page for page, _ in PAGES]:
        if source_of(page) == path:
            return f"{page}.html"
    return None


def linked(text, base, copied):
    """The HTML with its links and pictures led to what is in the site."""

    def link(match):
        target, _, place = match[1].partition("#")
        if re.match(r"\w+:", match[1]) or not target:
            return match[0]
        page = page_of(target, base)
        if page is None:
            return f'<span class="file" title="{html.escape(target)}">{match[2]}</span>'
        return f'<a href="{page}{"#" + place if place else ""}">{match[2]}</a>'

    def picture(match):
        file = (base / match[1]).resolve()
        copied.add(file)
        return f'src="{file.name}"'

    text = re.sub(r'<a href="([^"]+)">(.*?)</a>', link, text, flags=re.DOTALL)
    return re.sub(r'src="([^"]+)"', picture, text)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    folder = pathlib.Path(sys.argv[1])
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    menu = [("index", "BfnMacRewrite")] + [(page, title) for page, title in PAGES if source_of(page).exists()]
    copied = set()
    for page, title in menu:
        source = source_of(page)
        body = markdown.markdown(
            source.read_text(encoding="utf-8").replace("\\|", "&#124;"),
            extensions=["tables", "fenced_code", "sane_lists", "toc"],
            output_format="html",
        ).replace("&amp;#124;", "&#124;")
        entries = "\n".join(
            f'<a href="{name}.html"{" class=here" if name == page else ""}>{html.escape(words)}</a>' for name, words in menu
        )
        (folder / f"{page}.html").write_text(
            f'<!DOCTYPE html>\n<html lang="en">\n<head>\n<meta charset="utf-8">\n'
            f'<meta name="viewport" content="width=device-width, initial-scale=1">\n'
            f"<title>{html.escape(title)}</title>\n<style>{STYLE}</style>\n</head>\n<body>\n<nav>\n{entries}\n</nav>\n"
            f"<main>\n{linked(body, source.parent, copied)}\n</main>\n</body>\n</html>\n",
            encoding="utf-8",
        )
    for file in sorted(copied):
        shutil.copy(file, folder)


if __name__ == "__main__":
    main()
