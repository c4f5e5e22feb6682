"""The page of `project-metadata report` in a real browser: headless Chromium, driven through WebDriver.
Usage: report_test.py COMMAND [TEST...], with COMMAND the built project-metadata."""
import http.client
import json
import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import unittest

COMMAND = sys.argv.pop(1)
KEYS = {"ArrowLeft": "\uE012", "ArrowUp": "\uE013", "ArrowRight": "\uE014", "ArrowDown": "\uE015",
        "End": "\uE010", "Home": "\uE011", "Enter": "\uE007", "Escape": "\uE00C"}
FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync", "--disable-dev-shm-usage"]


class Browser:
    """One browser with a profile of its own, and the driver that controls it."""

    def __init__(self, profile):
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, text=True,
                                       env={**os.environ, "HOME": profile})
        port = next(filter(None, (re.search(r"successfully on port (\d+)", line) for line in self.driver.stdout)))[1]
        self.connection = http.client.HTTPConnection("127.0.0.1", int(port), timeout=120)
        self.session = ""
        options = {"args": FLAGS + ["--user-data-dir=" + profile], "binary": shutil.which("chromium")}
        capabilities = {"browserName": "chrome", "goog:chromeOptions": options,
                        "goog:loggingPrefs": {"browser": "ALL"}, "unhandledPromptBehavior": "ignore"}
        try:
            self.session = "/" + self.call("POST", "", {"capabilities": {"alwaysMatch": capabilities}})["sessionId"]
        except Exception:
            self.driver.terminate()
            raise

    def call(self, method, command, parameters=None):
        self.connection.request(method, "/session" + self.session + command, json.dumps(parameters or {}))
        value = json.loads(self.connection.getresponse().read())["value"]
        if isinstance(value, dict) and "error" in value:
            raise RuntimeError(value["error"] + ": " + value["message"])
        return value

    def open(self, page):
        self.call("POST", "/url", {"url": pathlib.Path(page).as_uri()})

    def run(self, script, *arguments):
        return self.call("POST", "/execute/sync", {"script": script, "args": arguments})

    def type(self, *keys):
        strokes = [{"type": kind, "value": KEYS.get(key, key)} for key in keys for kind in ("keyDown", "keyUp")]
        self.call("POST", "/actions", {"actions": [{"type": "key", "id": "keyboard", "actions": strokes}]})

    def click(self, selector):
        found = self.call("POST", "/element", {"using": "css selector", "value": selector})
        self.call("POST", f"/element/{list(found.values())[0]}/click", {})

    def search(self, text):
        self.run("document.getElementById('query').focus(); document.getElementById('query').select()")
        self.type(*text)

    def rows(self):
        return self.run("return [...document.querySelectorAll('.location')].map(row => row.textContent)")

    def text(self, selector):
        return self.run("return document.querySelector(arguments[0]).innerText", selector)

    def close(self):
        self.call("DELETE", "")
        self.driver.terminate()
        self.driver.wait()


def command(*arguments, status=0):
    done = subprocess.run([COMMAND, *arguments], capture_output=True, text=True, errors="surrogateescape")
    if done.returncode != status:
        raise AssertionError(f"{arguments} ended with {done.returncode}: {done.stderr}")
    return done


class ReportTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        cls.browser = Browser(str(cls.folder / "profile"))
        cls.addClassCleanup(cls.browser.close)

    def make(self, name, files, values=(), store="monolithic"):
        """Opens the report of a project that holds `files`, and of `values` (path, key=value) besides."""
        self.root = self.folder / name
        scanned = self.folder / (name + " files")
        scanned.mkdir()
        for file in files:
            path = os.path.join(os.fsencode(scanned), os.fsencode(file))
            os.makedirs(os.path.dirname(path), exist_ok=True)
            open(path, "wb").close()
        self.root.mkdir()
        command("init", str(self.root), "--store", store)
        command("scan", str(self.root), str(scanned))
        for path, value in values:
            command("set", "--create", str(self.root), path, value)
        self.page = self.folder / (name + ".html")
        command("report", str(self.root), "-o", str(self.page))
        self.browser.open(self.page)

    def assert_quiet(self):
        """Nothing was executed, complained about, asked or fetched."""
        self.assertIsNone(self.browser.run("return window.hostile ?? null"))
        self.assertRaisesRegex(RuntimeError, "no such alert", self.browser.call, "GET", "/alert/text")
        self.assertEqual(self.browser.call("POST", "/se/log", {"type": "browser"}), [])
        self.assertEqual(self.browser.run("return performance.getEntriesByType('resource').length"), 0)

    def test_search_filters_and_keyboard(self):
        self.make("plain", ["src/main.c", "src/util/list.c", "src/util/text.c", "docs/guide.md", "README"],
                  [("Folder:src|Folder:util|File:text.c", "Owner=Ada Lovelace")])
        browser = self.browser
        self.assertEqual(browser.rows(), ["plain", "README", "docs", "src"])
        browser.click("#tree")
        browser.type("Home", "ArrowDown", "ArrowDown", "ArrowRight", "ArrowRight")
        self.assertEqual(browser.rows(), ["plain", "README", "docs", "guide.md", "src"])
        self.assertEqual(browser.text("#details code"), "Folder:docs|File:guide.md")
        browser.type("ArrowLeft", "ArrowLeft", "End", "Enter")
        self.assertEqual(browser.rows(), ["plain", "README", "docs", "src", "main.c", "util"])
        active = "const row = document.getElementById(document.getElementById('tree').getAttribute("
        active += "'aria-activedescendant')); return arguments[0].map(name => row.getAttribute(name))"
        roles = ["role", "aria-expanded", "aria-level", "aria-posinset", "aria-setsize", "aria-selected"]
        self.assertEqual(browser.run(active, roles), ["treeitem", "true", "2", "3", "3", "true"])
        browser.type("Enter", "Home", "ArrowUp", "s")
        self.assertEqual(browser.rows(), ["plain", "README", "docs", "src"])
        self.assertEqual(browser.text("#details code"), "Folder:src")

        browser.search("LOVELACE")
        self.assertEqual(browser.rows(), ["plain", "src", "util", "text.c"])
        self.assertEqual(browser.text("#hits"), "1 hit in 8 paths")
        browser.type("Enter")
        self.assertRegex(browser.text("#details table"), r"Owner\s+Ada Lovelace")
        browser.type("Escape")
        self.assertEqual(browser.rows(), ["plain", "README", "docs", "src", "main.c", "util", "list.c", "text.c"])
        browser.search("util|")  # what is directly below, and nothing further down
        self.assertEqual(browser.text("#hits"), "2 hits in 8 paths")
        browser.type("Escape")
        browser.click("#types label:first-of-type input")
        self.assertEqual(browser.rows(), ["plain", "docs", "src", "util"])
        browser.click("#picture rect[data-path='2']")
        self.assertEqual(browser.text("#details code"), "Folder:docs")
        self.assert_quiet()

    def test_hostile_names_and_values_are_text(self):
        attack = "</script><script>window.hostile=1;alert(1)</script><img src=x onerror=window.hostile=2>"
        names = ["<img src=x onerror=window.hostile=3>", "a\"onmouseover='window.hostile=4", "txt.\u202Egpj.exe",
                 "bell\a\x1b[31m", "\udcff\udc80", "<!--<script>", "a:b|c\\d"]
        self.make("hostile", names, [("File:<!--<script>", "A=</td>" + attack), ("File:<!--<script>", "B=\u2067x\u200B"),
                                     ("<b>:<\\uD800>", "C=")], store="fixedPath")
        shown = ["<!--<script>", "<img src=x onerror=window.hostile=3>", "\\xFF\\x80", "a\"onmouseover='window.hostile=4",
                 "a:b\\|c\\\\d", "bell\\u0007\\u001B[31m", "hostile", "txt.\\u202Egpj.exe", "<\\uD800>"]
        self.assertEqual(sorted(self.browser.rows()), sorted(shown))
        self.browser.search("<!--")
        self.browser.type("Enter")
        for value in ("</td>" + attack, "\\u2067x\\u200B"):
            self.assertIn(value, self.browser.text("#details table"))
        self.assertEqual(self.browser.run("return document.querySelectorAll('img, script:not([id])').length"), 1)
        self.assert_quiet()
        with socket.create_server(("127.0.0.1", 0)) as server:
            server.settimeout(1)
            url = f"http://127.0.0.1:{server.getsockname()[1]}/"
            self.browser.run("fetch(arguments[0]).catch(() => {}); new Image().src = arguments[0]", url)
            self.assertRaises(TimeoutError, server.accept)
        self.assertIn("Content Security Policy", str(self.browser.call("POST", "/se/log", {"type": "browser"})))

    def test_50000_paths(self):
        self.make("large", [f"part{i:03}/file{j:03}.dat" for i in range(250) for j in range(200)])
        browser = self.browser
        self.assertIn("50,250 paths, 50,250 with metadata", browser.text("#summary"))
        browser.search("part249|file:file1")
        self.assertEqual(browser.text("#hits"), "100 hits in 50,250 paths")
        browser.search(".dat")
        browser.click("#tree")
        browser.type("End")
        self.assertEqual(browser.rows()[-1], "file199.dat")
        self.assertEqual(browser.text("#details code"), "Folder:part249|File:file199.dat")
        self.assertLess(browser.run("return document.getElementsByTagName('*').length"), 10000)
        self.assert_quiet()

    def test_many_children_and_types_and_blanks(self):
        self.make("wide", [])
        lines = "".join(f"add 'File:a  b#Item'\nset 'T{i}:x' K=1 --create\n" if i < 40 else "add 'File:a  b#Item'\n"
                        for i in range(10000))
        edits = self.folder / "edits"
        edits.write_text(lines + "set 'File:a  b#Item[1]' 'K=x  y '\n")
        command("edit", str(self.root), str(edits))
        command("report", str(self.root), "-o", str(self.page), "--replace")
        self.browser.open(self.page)
        browser = self.browser
        browser.search("a  b")
        browser.type("Enter")
        count = "return document.getElementsByTagName('*').length"
        few = browser.run(count)
        self.assertLess(few, 2000)
        self.assertIn("9,970", browser.text("#details .more"))
        browser.click("#details .more")
        self.assertGreater(browser.run(count), few)
        self.assertIn("x  y ", browser.run("return document.querySelector('#details td').innerText"))
        self.assertEqual(browser.text("#details h2 bdi"), "a  b")
        marks = browser.run("return [...document.querySelectorAll('#types .dot')].map(dot => dot.innerText)")
        self.assertEqual((len(marks), len(set(marks))), (41, 41))
        self.assert_quiet()

    def test_damage_and_files_that_exist(self):
        self.make("damaged", ["good", "bad"], store="fixedPath")
        before = self.page.read_bytes()
        self.assertIn("--replace", command("report", str(self.root), "-o", str(self.page), status=3).stderr)
        self.assertEqual(self.page.read_bytes(), before)
        damaged = next(file for file in (self.root / "resources/project").rglob("*bad*") if file.is_file())
        damaged.write_text("<broken")
        command("report", str(self.root), "-o", str(self.page), "--replace", status=1)
        self.browser.open(self.page)
        self.assertIn(str(damaged), self.browser.text("#damages"))
        self.assertNotIn("not written", self.browser.text("header"))
        damaged.unlink()
        foreign = next(file for file in (self.root / "resources/project").rglob("*good*") if file.is_file())
        foreign.write_text(foreign.read_text() + "<!-- note -->")
        said = command("report", str(self.root), "-o", str(self.page), "--replace", status=1).stderr
        self.assertIn("has all metadata that can be read", said)
        self.assertNotIn("damaged in", said)
        self.browser.open(self.page)
        self.assertIn(f"{foreign}: it holds a comment", self.browser.text("#foreign"))
        self.assertNotIn("Damaged", self.browser.text("header"))
        self.assertIn("good", self.browser.rows())
        self.assert_quiet()
        command("report", str(self.root), "-o", str(self.folder / "no/such/folder.html"), status=3)
        self.assertEqual([file.name for file in self.folder.glob("damaged.html*")], ["damaged.html"])


unittest.main(verbosity=2)
