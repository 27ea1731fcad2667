#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What docs/layers.py finds in a small tree with one thing wrong. The script is the one argument."""
import os
import subprocess
import sys
import tempfile
import unittest

SCRIPT = os.path.abspath(sys.argv.pop())

TABLE = """\
# A comment.
[aside: looks into everything]
tests/**: *

[upper: what is above]
upper/roof: upper/hall lower
upper/hall:
  lower

[lower: what is below]
lower:
"""

FILES = {
    "docs/layers.txt": TABLE,
    "docs/architecture.md": "Before\n<!-- Drawn from layers.txt by layers.py. -->\n```\n```\nAfter\n",
    "lower/Ground.h": "#pragma once\n#include <string>\n",
    "lower/Ground.cpp": '#include "lower/Ground.h"\n',
    "upper/hall/Hall.h": '#pragma once\n#include "lower/Ground.h"\n',
    "upper/roof/Roof.cpp": '#include "upper/hall/Hall.h"\n',
    "tests/upper/HallTest.cpp": '#include "upper/hall/Hall.h"\n',
    "build/Generated.hpp": '#include "upper/hall/Hall.h"\n',
}


class LayersTest(unittest.TestCase):
    def setUp(self):
        self.root = tempfile.TemporaryDirectory()
        self.addCleanup(self.root.cleanup)
        for name, text in FILES.items():
            self.write(name, text)
        self.assertEqual(self.run_script("--draw"), (0, "layers: ok\n"))

    def write(self, name, text):
        path = os.path.join(self.root.name, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)

    def read(self, name):
        with open(os.path.join(self.root.name, name), encoding="utf-8") as file:
            return file.read()

    def run_script(self, *arguments):
        done = subprocess.run(
            [sys.executable, SCRIPT, "--root", self.root.name, *arguments], capture_output=True, text=True, check=False
        )
        self.assertEqual(done.stderr, "")
        return done.returncode, done.stdout

    def finds(self, *messages):
        self.assertEqual(self.run_script(), (1, "".join(message + "\n" for message in messages)))

    def test_a_tree_that_keeps_the_table_passes(self):
        self.assertEqual(self.run_script(), (0, "layers: ok\n"))

    def test_an_include_that_runs_up_is_an_error(self):
        self.write("lower/Ground.cpp", '// first\n#include "upper/hall/Hall.h"\n')
        self.finds('lower/Ground.cpp:2: includes "upper/hall/Hall.h": lower may not include upper/hall')

    def test_an_include_that_is_not_in_the_rooms_line_is_an_error(self):
        self.write("docs/layers.txt", TABLE.replace("roof: upper/hall lower", "roof: lower"))
        self.run_script("--draw")
        self.finds('upper/roof/Roof.cpp:1: includes "upper/hall/Hall.h": upper/roof may not include upper/hall')

    def test_nothing_includes_a_test(self):
        self.write("tests/upper/Support.h", "#pragma once\n")
        self.write("upper/roof/Roof.cpp", '#include "tests/upper/Support.h"\n')
        self.finds('upper/roof/Roof.cpp:1: includes "tests/upper/Support.h": upper/roof may not include tests/**')

    def test_a_path_beside_the_file_is_an_error(self):
        self.write("lower/Ground.cpp", '#include "Ground.h"\n#include "../upper/hall/Hall.h"\n')
        self.finds(
            'lower/Ground.cpp:1: includes "Ground.h", which is no path from the root of the tree; write "lower/Ground.h"',
            'lower/Ground.cpp:2: includes "../upper/hall/Hall.h", which is no path from the root of the tree; '
            'write "upper/hall/Hall.h"',
        )

    def test_a_path_with_detours_is_an_error(self):
        self.write("lower/Ground.cpp", '#include "lower/../upper/hall/Hall.h"\n#include "lower//Ground.h"\n')
        self.assertEqual(self.run_script()[1].count("which is no path from the root of the tree"), 2)

    def test_an_own_file_in_brackets_is_an_error(self):
        self.write("lower/Ground.cpp", "#include <upper/hall/Hall.h>\n")
        self.finds("lower/Ground.cpp:1: includes <upper/hall/Hall.h>: files of this tree are included with quotes")

    def test_a_file_that_is_not_there_is_an_error(self):
        self.write("lower/Ground.cpp", '#include "zlib.h"\n')
        self.finds('lower/Ground.cpp:1: includes "zlib.h", which is no path from the root of the tree')

    def test_a_name_from_a_macro_is_an_error(self):
        self.write("lower/Ground.cpp", '#define HALL "upper/hall/Hall.h"\n#include HALL\n')
        self.finds("lower/Ground.cpp:2: includes HALL, which is no plain name")

    def test_an_include_of_a_source_file_is_an_error(self):
        self.write("upper/hall/Hall.cpp", '#include "lower/Ground.cpp"\n')
        self.finds('upper/hall/Hall.cpp:1: includes "lower/Ground.cpp", which is no header')

    def test_other_spellings_of_an_include_are_found(self):
        for spelling in ('  #  include"upper/hall/Hall.h"', '/* x */ # /* y */ include /* z */ "upper/hall/Hall.h"',
                         '%:include "upper/hall/Hall.h"', '#inc\\\nlude \\\n"upper/hall/Hall.h"',
                         '#include_next "upper/hall/Hall.h"', 'import "upper/hall/Hall.h";',
                         "char c = '\"';\n#include \"upper/hall/Hall.h\"", "int n = 1'000;\n#include \"upper/hall/Hall.h\""):
            with self.subTest(spelling):
                self.write("lower/Ground.cpp", spelling + "\n")
                status, text = self.run_script()
                self.assertEqual(status, 1)
                self.assertIn("lower may not include upper/hall", text)

    def test_what_only_looks_like_an_include_is_none(self):
        self.write(
            "lower/Ground.cpp",
            '// #include "upper/hall/Hall.h"\n/*\n#include "upper/hall/Hall.h"\n*/\n'
            'char const* text = R"(\n#include "upper/hall/Hall.h"\n)";\nchar const* url = "http://x";\n',
        )
        self.assertEqual(self.run_script(), (0, "layers: ok\n"))

    def test_a_folder_without_a_line_is_an_error(self):
        self.write("upper/cellar/Cellar.h", "#pragma once\n")
        self.write("Top.h", "#pragma once\n")
        self.finds(
            "Top.h: the root is no room of docs/layers.txt; give it a line there",
            "upper/cellar/Cellar.h: upper/cellar is no room of docs/layers.txt; give it a line there",
        )

    def test_a_source_with_another_ending_is_an_error(self):
        self.write("lower/Ground.hpp", "#pragma once\n")
        self.finds("lower/Ground.hpp: sources end in .h, .cpp or .c")

    def test_a_room_that_names_one_above_it_is_an_error(self):
        self.write("docs/layers.txt", TABLE.replace("lower:\n", "lower: upper/hall\n"))
        self.finds("docs/layers.txt: lower names upper/hall, which is no room further down")

    def test_a_room_without_sources_or_with_two_lines_is_an_error(self):
        self.write("docs/layers.txt", TABLE + "lowest:\n")
        self.run_script("--draw")
        self.finds("docs/layers.txt: lowest has no source")
        self.write("docs/layers.txt", TABLE + "lower:\n")
        self.finds("docs/layers.txt: lower has two lines")

    def test_a_line_that_is_not_understood_is_an_error(self):
        self.write("docs/layers.txt", TABLE + "lower can include upper\n")
        self.finds("docs/layers.txt: not understood: lower can include upper")

    def test_the_picture_is_drawn_from_the_table(self):
        picture = self.read("docs/architecture.md")
        self.assertRegex(picture, "(?s)^Before\n.*│ upper .*│ +roof +│\n.*│ +hall +│\n.*│ lower .*\nAfter\n$")

    def test_a_picture_of_another_table_is_an_error(self):
        self.write("docs/architecture.md", self.read("docs/architecture.md").replace("roof", "tower"))
        self.finds("docs/architecture.md: the picture is not that of docs/layers.txt; docs/layers.py --draw draws it")

    def test_a_document_without_a_picture_is_an_error(self):
        self.write("docs/architecture.md", "Nothing.\n")
        self.finds("docs/architecture.md: no place for the picture")


if __name__ == "__main__":
    unittest.main()
