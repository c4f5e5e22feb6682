"""check_comments.py TOP

Fails on comments that the formatter has torn, and names all such lines of the C++ sources below TOP. The formatter cuts
a line that has become too long and leaves the rest of it on a line of its own, without the indentation of a list.
"""
import pathlib
import re
import sys

LINE_END = 120  # where the formatter cuts
LONG = 100  # a line that it may have cut
ROOM = 25  # so much is not left at the end of a line that goes on in the next one

COMMENT = re.compile(r'(?P<before>\s*|.*\S\s+)(?P<marker>//[/!]?<?)(?: (?P<text>.*))?$')
ITEM = re.compile(r'@\w|- ')  # "@throws ..." or "- ..."


class Comment:
    """A comment on a line, alone or behind code."""

    def __init__(self, line, match):
        self.column = len(match['before'])
        self.is_alone = not match['before'].strip()
        self.marker = match['marker']
        self.text = (match['text'] or '').rstrip()
        self.width = len(line)


def find_comment(line):
    match = COMMENT.match(line)
    is_in_string = match and match['before'].count('"') % 2
    return Comment(line, match) if match and not is_in_string else None


def find_fault(above, comment, in_item):
    """What is wrong with `comment` as the line after `above`, in an item of a list or not; None if nothing is."""
    if above.is_alone and comment.marker != above.marker:
        return 'is a comment of another kind than the line above'
    if not comment.text or ITEM.match(comment.text.lstrip()):
        return None
    is_indented = comment.text.startswith(' ')
    if in_item and not is_indented:
        return 'is not indented as the item that it belongs to'
    first_word = comment.text.split()[0]
    if above.width >= LONG and first_word == comment.text:
        return 'has one word alone'
    is_text = in_item or not is_indented
    room = LINE_END - (above.width + 1 + len(first_word))
    goes_on = above.text and above.text[-1] not in '.:;!?' and '  ' not in above.text
    if is_text and goes_on and room >= ROOM:
        return 'goes on where the line above has room'
    return None


def find_faults(path):
    above, in_item = None, False
    for number, line in enumerate(path.read_text(encoding='utf-8').splitlines(), 1):
        comment = find_comment(line)
        if above and comment and comment.is_alone and comment.column == above.column:
            fault = find_fault(above, comment, in_item)
            if fault:
                yield f'{path}:{number}: {fault}'
        else:
            in_item = False
        if comment:
            in_item = bool(ITEM.match(comment.text)) or (in_item and bool(comment.text))
        above = comment


def main(top):
    sources = [path for path in sorted(top.rglob('*')) if path.suffix in ('.hpp', '.cpp', '.h')
               and path.relative_to(top).parts[0] != 'build']
    faults = [fault for path in sources for fault in find_faults(path)]
    if not sources:
        faults.append(f'{top}: no sources')
    return '\n'.join(faults)


sys.exit(main(pathlib.Path(sys.argv[1])) or 0)
