"""forms_test.py COMMAND XMLLINT SCHEMAS

Reads projects as docs/forms.md says they are on disk, with nothing of the library, and compares that with what the command
says of them. The schemas have to take every file of theirs, and to refuse others.
"""
import json
import pathlib
import re
import sqlite3
import subprocess
import sys
import tempfile
import unittest
import uuid
import xml.etree.ElementTree as ElementTree

COMMAND, XMLLINT, SCHEMAS = sys.argv[1], sys.argv[2], pathlib.Path(sys.argv[3])
STORES = ('fixedPath', 'monolithic', 'sqlite')

# Type and location of each step; surrogates without a partner and U+0000 among them.
PATHS = [[['Folder', 'src']], [['Folder', 'src'], ['File', 'main.c']], [['Folder', 'src'], ['File', 'a.xml']],
         [['', '']], [['T\x01\t', 'a%b=c']], [['.', ' ']], [['x' * 300, 'ü' * 150]], [['x' * 299, '~' * 90]],
         [['\u202e\ufeff', '\U0001f600']], [['back\\slash', '\\u0041 \ud800']], [['nul', '\x00']],
         [['Type', 'z']], [['Type', 'b']], [['Type', 'a']]]
ATTRIBUTES = {'Size': '1 2 "x" <&>', 'Größe': 'Tab\tand\nline', 'a.b': ''}


def run(*arguments):
    return subprocess.run([COMMAND, *arguments], check=True, capture_output=True, text=True).stdout


def to_argument(path):
    def escape(text):
        units = text.encode('utf-16-be', 'surrogatepass').hex()
        return ''.join('\\u' + units[i:i + 4] for i in range(0, len(units), 4))
    return '|'.join(f'{escape(kind)}:{escape(location)}' for kind, location in path)


def validates(schema, file):
    result = subprocess.run([XMLLINT, '--noout', '--relaxng', SCHEMAS / f'{schema}.rng', file], capture_output=True)
    return result.returncode == 0


def to_tree(element):
    return {'name': element.tag, 'attributes': dict(element.attrib), 'children': [to_tree(child) for child in element]}


def to_text(units):
    """A text of UTF-16 units, as the command prints it in JSON: U+FFFD for what is no Unicode."""
    return b''.join(unit.to_bytes(2, 'little') for unit in units).decode('utf-16-le', errors='replace')


def unescape(text):
    found = re.findall(r'\\u([0-9A-F]{4})|\\(\\)|([ -\[\]-~])', text)
    return to_text([int(unit, 16) if unit else ord(backslash or plain) for unit, backslash, plain in found])


def get_step(element):
    return [element.get(key) if key in element.attrib else unescape(element.get('Escaped' + key, ''))
            for key in ('Type', 'Location')]


def get_node(element):
    node = element.find('Node')
    return None if node is None else to_tree(node[0])


def read_monolithic(folder):
    paths = []

    def visit(element, steps):
        paths.append((steps, get_node(element)))
        for child in element.findall('Path'):
            visit(child, steps + [get_step(child)])
    visit(ElementTree.parse(folder / 'Project.xml').getroot(), [])
    return paths


def read_fixed_path(folder):
    paths = []

    def visit(place, element, steps):
        paths.append((steps, get_node(element)))
        children = [(ElementTree.parse(file).getroot(), file) for file in place.glob('*=*.xml')]
        for child, file in sorted(children, key=lambda pair: (pair[0].get('Rank'), get_step(pair[0]))):
            assert file.name == make_name(child) + '.xml', file
            visit(file.with_suffix(''), child, steps + [get_step(child)])
    visit(folder, ElementTree.parse(folder / 'Project.xml').getroot(), [])
    return paths


def make_name(element):
    def encode(character):
        number = ord(character)
        is_unsafe = number < 0x20 or 0x7f <= number <= 0x9f or 0x2028 <= number <= 0x202e or \
            0x2066 <= number <= 0x2069 or 0xd800 <= number <= 0xdfff or character in '"%*/:<=>?\\|~\u061c\u200e\u200f\ufeff'
        return character if not is_unsafe else f'%{number:02X}' if number < 0x100 else f'%u{number:04X}'

    def get(key):
        if key in element.attrib:
            return list(element.get(key))
        return re.sub(r'\\u(....)|\\(\\)', lambda found: chr(int(found[1], 16)) if found[1] else found[2],
                      element.get('Escaped' + key, ''))
    characters = [encode(character) for character in get('Type')] + ['='] + [encode(character) for character in get('Location')]
    name = ''.join(characters)
    escapes = {'.': '%2E', ' ': '%20'}
    if name[-1] in escapes:
        name = name[:-1] + escapes[name[-1]]
    if name.endswith('.xml'):
        name = name[:-4] + '%2Exml'
    if name[0] in escapes:
        name = escapes[name[0]] + name[1:]
    if len(name.encode()) <= 180:
        return name
    start = ''
    for character in re.findall('%u....|%..|.', name):
        if len((start + character).encode()) > 120:
            break
        start += character
    return f'{start}=~{uuid.uuid5(uuid.UUID("6d1e3b52-900c-4f77-8a35-c4192ed861fb"), name)}'


def read_sqlite(folder):
    database = sqlite3.connect(f'file:{folder}/metadata.db?mode=ro', uri=True)
    header = [database.execute(f'PRAGMA {name}').fetchone()[0] for name in ('application_id', 'user_version')]
    assert header == [0x504D4442, 1], header
    paths = []

    def get_text(value):
        return value if isinstance(value, str) else value.decode('utf-16-le', errors='replace')

    def visit(row, steps, node):
        paths.append((steps, node and read_blob(iter(node))))
        for child, kind, location, blob in database.execute(
                'SELECT id, type, location, node FROM path WHERE parent = ? ORDER BY position', [row]).fetchall():
            visit(child, steps + [[get_text(kind), get_text(location)]], blob)
    visit(0, [], database.execute('SELECT node FROM path WHERE id = 0').fetchone()[0])
    return paths


def read_blob(data):
    def count():
        value, shift = 0, 0
        while True:
            byte = next(data)
            value |= (byte & 0x7f) << shift
            shift += 7
            if byte < 0x80:
                return value

    def text():
        return bytes(next(data) for _ in range(count())).decode()

    def node():
        return {'name': text(), 'attributes': {text(): text() for _ in range(count())},
                'children': [node() for _ in range(count())]}
    return node()


READERS = {'fixedPath': read_fixed_path, 'monolithic': read_monolithic, 'sqlite': read_sqlite}


class FormsTest(unittest.TestCase):
    def make_projects(self, top):
        for store in STORES:
            root = top / store
            run('init', root, '--store', store)
            for path in PATHS:
                run('set', '--create', root, to_argument(path), *(f'{key}={value}' for key, value in ATTRIBUTES.items()))
            run('set', root, '/', 'Of=root')
            run('add', root, '[["Branch","x"],["Branch","y"]]')
            run('uuid', root, '--new')
            yield store, root, root / 'resources/project'

    def test_what_is_on_disk_is_what_the_guide_says(self):
        with tempfile.TemporaryDirectory() as folder:
            for store, root, metadata in self.make_projects(pathlib.Path(folder)):
                with self.subTest(store):
                    said = json.loads(run('tree', '--attributes', '--json', root))
                    found = READERS[store](metadata)
                    self.assertEqual(len(found), len(PATHS) + 3)
                    self.assertEqual([(len(steps), *(steps[-1] if steps else [None, None]), node) for steps, node in found],
                                     [(path['depth'], path['type'], path['location'], path['node']) for path in said])

    def test_schemas_take_what_is_written_and_nothing_else(self):
        with tempfile.TemporaryDirectory() as folder:
            top = pathlib.Path(folder)
            for store, root, metadata in self.make_projects(top):
                core = 'monolithic' if store == 'monolithic' else store + '-core'
                files = list(metadata.rglob('*.xml'))
                self.assertEqual(len(files), (len(PATHS) + 2 if store == 'fixedPath' else 0) + 2)
                for file in files:
                    schema = core if file.name == 'Project.xml' else 'fixedPath-path' if '=' in file.name else 'node'
                    for name in (path.stem for path in SCHEMAS.glob('*.rng')):
                        self.assertEqual(validates(name, file), name in (schema, 'node'), f'{name} {file}')
                run('export', root, '-o', top / 'exported.xml', '--replace')
                self.assertTrue(validates('monolithic', top / 'exported.xml'))
            for schema, text in (('node', '<a>text</a>'), ('fixedPath-path', '<Path Location="" Type=""/>'),
                                 ('fixedPath-path', '<Path Location="" Type="" Rank="1"/>'),
                                 ('fixedPath-path', '<Path EscapedLocation="\\n" Type="" Rank="a1"/>'),
                                 ('monolithic', '<Project MetadataType="monolithic"><Path Type=""/></Project>'),
                                 ('monolithic', '<Project MetadataType="monolithic"><Node/></Project>')):
                (top / 'wrong.xml').write_text(text)
                self.assertFalse(validates(schema, top / 'wrong.xml'), text)


unittest.main(argv=sys.argv[:1])
