"""check_links.py FOLDER

Fails on links that lead to no file, in the Markdown files below FOLDER, or in its HTML files if it has an index.html.
"""
import pathlib
import re
import sys
import urllib.parse

MARKDOWN = re.compile(r'\]\(([^)\s]+)\)')
HTML = re.compile(r'(?:href|src)="([^"]+)"')


def find_links(text, pattern):
    for link in pattern.findall(text):
        parts = urllib.parse.urlsplit(link.replace('&amp;', '&'))
        if not parts.scheme and not parts.netloc and parts.path:
            yield urllib.parse.unquote(parts.path)


def main(top):
    is_site = (top / 'index.html').exists()
    pages = [page for page in sorted(top.rglob('*.html' if is_site else '*.md'))
             if page.relative_to(top).parts[0] not in ('build', '.git')]
    links = [(page, link) for page in pages
             for link in find_links(re.sub(r'```.*?```', '', page.read_text(encoding='utf-8'), flags=re.S),
                                    HTML if is_site else MARKDOWN)]
    faults = [f'{page}: there is no {link}' for page, link in links if not (page.parent / link).exists()]
    if not links:
        faults.append(f'{top}: no links')
    return '\n'.join(dict.fromkeys(faults))


sys.exit(main(pathlib.Path(sys.argv[1])) or 0)
