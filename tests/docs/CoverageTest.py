#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""tests/lab/coverage.md lists the C++ tests that drive the plug-in, each once, with a script that exists or a reason.

    CoverageTest.py TESTS
"""
import pathlib
import re
import sys

ROOMS = ('agent', 'config', 'intfstatus', 'rewrite', 'tablemgr', 'show', 'model', 'faults')
TEST = re.compile(r'^(?:TEST|TEST_F|TEST_P)\(\s*(\w+),\s*(\w+)\)', re.MULTILINE)
ROW = re.compile(r'^\| (\w+): `(\w+\.\w+)` \| (.+) \|$', re.MULTILINE)


def main():
    tests = pathlib.Path(sys.argv[1])
    there = [f'{room}: {suite}.{name}' for room in ROOMS for file in sorted((tests / room).glob('*.cpp'))
             for suite, name in TEST.findall(file.read_text())]
    listed = {}
    problems = []
    for room, test, how in ROW.findall((tests / 'lab' / 'coverage.md').read_text()):
        if f'{room}: {test}' in listed:
            problems.append(f'listed twice: {test}')
        listed[f'{room}: {test}'] = how
        script = re.fullmatch(r'\[(.+)\]\(\1\.lab\)', how)
        if script and not (tests / 'lab' / f'{script[1]}.lab').is_file():
            problems.append(f'{test}: there is no {script[1]}.lab')
        if not script and not re.fullmatch(r'none: .{10,}', how):
            problems.append(f'{test}: neither a script nor a reason: {how}')
    problems += [f'not listed: {test}' for test in there if test not in listed]
    problems += [f'listed, but no test: {test}' for test in listed if test not in there]
    print('\n'.join(problems) if problems else f'{len(listed)} tests are listed')
    return 1 if problems else 0


if __name__ == '__main__':
    sys.exit(main())
