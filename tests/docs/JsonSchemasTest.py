#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The answers of the lab's commands as JSON keep their schemas.

Runs the scripts of a folder with --json, without what they expect, so that each command's own answer is seen, and
compares every line with the schema of its form. A form that no script uses is an error, too.

    JsonSchemasTest.py LAB SCHEMAS SCRIPTS SCRATCH

Exit status 77, by which a test counts as skipped, where python3-jsonschema is missing.
"""
import json
import pathlib
import re
import shutil
import subprocess
import sys

try:
    import jsonschema
except ImportError:
    print('python3-jsonschema is missing')
    sys.exit(77)

# These need a terminal, a table in the kernel, or the process's end.
ELSEWHERE = re.compile(r'terminal length|save-case|(no )?chip port|exit$')


def expression(form):
    """A regular expression of the lines of a form."""
    text = ''
    for token in re.findall(r'<[^>]*>|\[|\]|[^\s\[\]]+', form):
        if token == '[':
            text += '(?:'
        elif token == ']':
            text += ')?'
        elif token in ('<COMMAND>', '<TEXT>', '<JSON>'):
            text += r' .+'
        elif token.startswith('<'):
            text += r' (?:"(?:\\.|[^"\\])*"|[^\s"]\S*)'
        elif token == '|':
            text += r' \|'
        else:
            text += ' (?:' + '|'.join(re.escape(word) for word in token.split('|')) + ')'
    return re.compile(text)


def command_of(line):
    """The line without what is expected of its answer, and without filters."""
    line = ' '.join(line.split())
    if line.startswith('expect ') and not line.startswith(('expect death ', 'expect stderr ')):
        line = re.split(' == | contains | one of ', line[len('expect '):])[0]
    return line


def main():
    lab, schemas, scripts, scratch = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
    forms = json.loads((schemas / 'forms.json').read_text())
    validators = {}
    for file in schemas.glob('*.schema.json'):
        schema = json.loads(file.read_text())
        jsonschema.Draft7Validator.check_schema(schema)
        validators[file.name] = jsonschema.Draft7Validator(schema)
    unknown = set(forms.values()) - set(validators)
    problems = []
    listed = subprocess.run([lab, '-c', 'help'], capture_output=True, check=True, text=True).stdout
    known = set(re.findall(r'^  (\S.*)$', listed, re.MULTILINE))
    problems += [f'forms.json lacks {form}' for form in sorted(known - set(forms))]
    problems += [f'there is no form {form}' for form in sorted(set(forms) - known) if not ELSEWHERE.match(form)]
    problems += [f'forms.json names {name}, which is missing' for name in sorted(unknown)]
    # The longest form first: a shorter one may be its beginning.
    expressions = sorted(((expression(form), form) for form in forms), key=lambda each: -len(each[1]))
    used = set()

    def schema_of(command):
        for pattern, form in expressions:
            if not pattern.fullmatch(' ' + command):
                continue
            used.add(form)
            if form == 'brief <COMMAND>':
                return schema_of(command[len('brief '):])
            return forms[form]
        return None

    def check(record):
        where = f"{record.get('file')}:{record.get('line')}"
        for error in validators['line.schema.json'].iter_errors(record):
            problems.append(f'{where}: {error.message[:300]}')
        if 'answer' not in record:
            return
        command = ' '.join(record['command'].split())
        schema = schema_of(command)
        if schema is None:
            # A filtered answer has the form of its filter.
            if ' | ' not in command:
                problems.append(f'{where}: no form of forms.json is that of: {command}')
            return
        answer = record['answer']
        name = schema
        if isinstance(answer, dict) and set(answer) == {'exception'}:
            name = 'exception.schema.json'
        for error in validators[name].iter_errors(answer):
            problems.append(f'{where}: {name}: {error.message[:300]}')

    shutil.rmtree(scratch, ignore_errors=True)
    # The scripts read captures of the examples.
    shutil.copytree(scripts.parent.parent / 'examples', scratch / 'examples')
    copies = scratch / 'tests' / 'lab'
    shutil.copytree(scripts, copies)
    for file in copies.rglob('*.lab'):
        lines = file.read_text().splitlines()
        file.write_text('\n'.join(command_of(line) if line.startswith('expect ') else line for line in lines) + '\n')
    shutil.copy(pathlib.Path(__file__).parent / 'every-form.lab', copies)
    for file in sorted(copies.glob('*.lab')) + sorted((copies / 'reconciled').glob('*.lab')):
        reconcile = ['--reconcile'] if file.parent.name == 'reconciled' or file.name == 'every-form.lab' else []
        ended = subprocess.run([lab, '--json', '--keep-going', *reconcile, file], cwd=scratch, capture_output=True,
                               check=False)
        for line in ended.stdout.decode().splitlines():
            check(json.loads(line))
        if ended.returncode < 0:
            problems.append(f'{file.name}: ended by signal {-ended.returncode}: {ended.stderr.decode()[-300:]}')
        if ended.returncode > 0 and file.name == 'every-form.lab':
            problems.append(f'{file.name}: {ended.stderr.decode()[-600:]}')
    for form in sorted(set(forms) - used):
        if not ELSEWHERE.match(form):
            problems.append(f'no script uses {form}')
    print('\n'.join(problems) if problems else f'{len(used)} forms keep their schemas')
    return 1 if problems else 0


if __name__ == '__main__':
    sys.exit(main())
