"""picture.py COMMAND SAMPLE PICTURE [--check]

Runs the command on a copy of the folder SAMPLE and puts what it prints into PICTURE, an SVG; with --check, fails if that is
not what PICTURE has.
"""
import html
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

SESSION = ['init', 'scan', 'tree', "set 'Folder:firmware|Folder:src|File:controller.c' Reviewed=yes",
           "find --attribute 'Reviewed=*'"]
STYLES = {'': '', '1': ' font-weight="bold"', '2': ' opacity="0.6"', '36': ' fill="#7fd3e0"'}
WIDTH, LINE, MARGIN = 760, 18, 16


def run_session(command, sample):
    with tempfile.TemporaryDirectory() as folder:
        project = pathlib.Path(folder) / 'pump-controller'
        shutil.copytree(sample, project)
        environment = {'PATH': os.environ['PATH'], 'HOME': folder}
        for line in SESSION:
            yield f'\033[1m$ project-metadata {line}\033[0m'
            words = [command, '--color', 'always', *shlex.split(line)]
            output = subprocess.run(words, cwd=project, env=environment, check=True, capture_output=True, text=True)
            yield from output.stdout.replace(str(project), '.').splitlines()


def to_svg(lines):
    height = LINE * len(lines) + 2 * MARGIN
    yield (f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{height}" viewBox="0 0 {WIDTH} {height}" '
           f'role="img" aria-label="project-metadata in a terminal">')
    yield f'<rect width="{WIDTH}" height="{height}" rx="8" fill="#1d2228"/>'
    yield '<g font-family="monospace" font-size="13" fill="#dde3ea" xml:space="preserve">'
    for number, line in enumerate(lines, 1):
        spans, style = '', ''
        for text in re.split('(\033\\[[0-9]*m)', line):
            if text.startswith('\033'):
                style = STYLES[text[2:-1].lstrip('0')]
            elif text:
                spans += f'<tspan{style}>{html.escape(text)}</tspan>'
        yield f'<text x="{MARGIN}" y="{MARGIN + number * LINE - 5}">{spans}</text>'
    yield '</g>'
    yield '</svg>'


def main(command, sample, picture, *options):
    text = '\n'.join(to_svg(list(run_session(os.path.abspath(command), sample)))) + '\n'
    if '--check' not in options:
        pathlib.Path(picture).write_text(text, encoding='utf-8')
    elif pathlib.Path(picture).read_text(encoding='utf-8') != text:
        return f'{picture} is not what the command prints; make it anew with docs/picture.py'
    return 0


sys.exit(main(*sys.argv[1:]))
