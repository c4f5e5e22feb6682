"""The completions in real shells, each at a terminal of its own, and what they are told by the command.
Usage: completion_test.py COMMAND [TEST...], with COMMAND the installed project-metadata, its completions beside it."""
import ctypes
import fcntl
import json
import os
import pathlib
import pty
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time
import unittest

COMMAND = sys.argv.pop(1)
SHARE = pathlib.Path(COMMAND).parent.parent / "share"
# How each shell is started, and what it is told before all else.
SHELLS = {
    "bash": (["bash", "--norc", "--noprofile", "-i"],
             f". {SHARE}/bash-completion/completions/project-metadata"),
    "zsh": (["zsh", "-f", "-i"],
            f"fpath=({SHARE}/zsh/site-functions $fpath); autoload -Uz compinit && compinit -D -u"),
    "fish": (["fish", "--no-config", "-i"], f". {SHARE}/fish/vendor_completions.d/project-metadata.fish"),
}
HOSTILE = ["a b", "it's", 'say "hi"', "$(touch executed)", "`touch executed`", "a|b:c#d", "back\\slash\\",
           "x;touch executed", "&>executed", "!!", "~/$HOME *?[a-z]{1,2}", "-- ü ñ 日本",
           "tab\tbreak\nend", "(<=>)^%@+"]
# Keys, and with which words the command is then called.
LINES = [
    ("sho\tFi\t", ["show", "File:top"]),
    ("show Fo\t\\|\t\\|\t", ["show", "Folder:a|Folder:b|File:leaf"]),
    ("show 'Folder:a|Folder:b|\t", ["show", "Folder:a|Folder:b|File:leaf"]),
    ('show Folder:"a|Folder:b|\t', ["show", "Folder:a|Folder:b|File:leaf"]),
    ("get . File:top k\t", ["get", ".", "File:top", "key"]),
    ("set File:top k\tv", ["set", "File:top", "key=v"]),
    ("unset File:top#\tk\t", ["unset", "File:top#Item", "kind"]),
    ("find File:top --attribute=k\t", ["find", "File:top", "--attribute=key"]),
    ("-qC . sho\tFi\t", ["-qC", ".", "show", "File:top"]),
    ("merge --settle Fi\tth\t", ["merge", "--settle", "File:top", "theirs"]),
    ("init --store=sq\t", ["init", "--store=sqlite"]),
    ("init --store mo\t", ["init", "--store", "monolithic"]),
    ("import some-\tnew-\t", ["import", "some-file", "new-folder"]),
    ("scan n\t", ["scan", "new-folder"]),
]
# Those for which nobody asks the command.
SIMPLE_LINES = [
    ("--color al\tlocate --js\t", ["--color", "always", "locate", "--json"]),
    ("export --output=some-f\t", ["export", "--output=some-file"]),
]


def run(*arguments, **options):
    done = subprocess.run([COMMAND, *arguments], capture_output=True, text=True, **options)
    assert (done.returncode, done.stderr) == (0, "") or arguments[0] != "offer" and done.returncode == 0, done
    return done.stdout


class Shell:
    """A shell that waits for keys. What it calls project-metadata for, but for `offer`, is put down in a file."""

    def __init__(self, name, folder, root):
        self.calls = folder / "calls"
        self.name = name
        arguments, first = SHELLS[name]
        self.process, self.terminal = pty.fork()
        if self.process == 0:
            os.chdir(root)
            os.environ.update(PATH=f"{folder / 'bin'}:{os.environ['PATH']}", HOME=str(folder), TERM="dumb",
                              LC_ALL="C.UTF-8", CALLS=str(self.calls), REAL=COMMAND)
            os.execvp(arguments[0], arguments)
        self.enter(first + "; project-metadata ready")

    def __repr__(self):
        return self.name

    def enter(self, keys):
        """Types `keys` and Enter. Returns the arguments that project-metadata was called with; none if it was not."""
        os.write(self.terminal, keys.encode() + b"\r")
        end = time.monotonic() + 20
        os.set_blocking(self.terminal, False)
        self.screen = b""
        while not self.calls.exists() and time.monotonic() < end:
            try:
                self.screen += os.read(self.terminal, 65536)
            except BlockingIOError:
                time.sleep(0.005)
        if not self.calls.exists():
            raise AssertionError(f"{keys!r} calls nothing: {self.screen.decode(errors='replace')}")
        words = self.calls.read_bytes().decode().split("\0")[:-1]
        self.calls.unlink()
        return words

    def close(self):
        os.kill(self.process, signal.SIGKILL)
        os.waitpid(self.process, 0)
        os.close(self.terminal)


class CompletionTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.root = self.folder / "project"
        (self.folder / "bin").mkdir()
        recorder = self.folder / "bin/project-metadata"
        recorder.write_text("""#!/bin/sh
[ "$1" != offer ] || exec "$REAL" "$@"
printf '%s\\0' "$@" >"$CALLS.new" && mv "$CALLS.new" "$CALLS"
""")
        recorder.chmod(0o755)

    def make(self, store, *commands):
        shutil.rmtree(self.root, ignore_errors=True)
        run("init", str(self.root), "--store", store)
        run("edit", str(self.root), "-", input="\n".join(commands))

    def start(self, name):
        shell = Shell(name, self.folder, self.root)
        self.addCleanup(shell.close)
        return shell

    def offer(self, *words):
        lines = run("offer", "project-metadata", *words, cwd=self.root).splitlines()
        return lines[0], [line[1:] for line in lines[1:]]

    def expect(self, shell, keys, words):
        called = shell.enter("project-metadata " + keys)
        # A folder may have the separator behind it.
        self.assertEqual([word.rstrip("/") for word in called], words, (shell, keys))

    def test_every_kind_of_word(self):
        self.make("monolithic", "add Folder:a|Folder:b|File:leaf", "set --create File:top key=value",
                  "add File:top#Item", "set File:top#Item kind=hard")
        (self.root / "some-file").touch()
        (self.root / "new-folder").mkdir()
        (self.root / "new-file").touch()
        for shell in map(self.start, SHELLS):
            for keys, words in LINES + SIMPLE_LINES:
                self.expect(shell, keys, words)
            # Without an answer, files are offered, and what the shells know by themselves.
            shell.enter("export REAL=/bin/false; project-metadata ready")
            for keys, words in SIMPLE_LINES + [("show some-fi\t", ["show", "some-file"])]:
                self.assertEqual([word.rstrip("/") for word in shell.enter("project-metadata " + keys)], words, keys)

    def test_hostile_names(self):
        self.make("sqlite", *(f"""add '[["N{i:02}",{json.dumps(name)}]]'""".replace("it's", "it\\u0027s")
                              for i, name in enumerate(HOSTILE)))
        for shell in map(self.start, SHELLS):
            for i, name in enumerate(HOSTILE):
                for quote in ("", "'", '"'):
                    words = shell.enter(f"project-metadata show {quote}N{i:02}\t")
                    self.assertEqual((len(words), words[0]), (2, "show"), (shell, quote, name))
                    shown = json.loads(run("show", "--json", "--", words[1], cwd=self.root))
                    self.assertEqual(shown["location"], name, (shell, quote, words))
        self.assertEqual([file.name for file in self.root.iterdir()], ["resources"])

    def test_too_many_candidates(self):
        names = [f"File:{i // 50:03}{mark}{i % 50:02}" for i in range(2500) for mark in "aü"]
        self.make("sqlite", *("add " + name for name in names))
        kind, starts = self.offer("show", "")
        self.assertEqual(kind, "nothing")
        self.assertTrue(100 < len(starts) <= 1000, len(starts))
        found = [next(start for start in starts if name.startswith(start)) for name in names]
        self.assertEqual(set(found), set(starts))
        self.assertEqual(self.offer("show", found[0])[1], [name for name in names if name.startswith(found[0])])

    def test_a_look_changes_nothing(self):
        self.make("fixedPath", "add T:a", "add T:b")
        metadata = self.root / "resources/project"
        for name in ("new", "old"):
            (metadata / ".pending" / name).mkdir(parents=True)
        (metadata / ".pending/journal").write_bytes(b"project_metadata batch 1\nDT=b.xml\0")
        with open(metadata / ".lock", "w") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            begin = time.monotonic()
            self.assertEqual(self.look(), ("files", []))
            self.assertLess(time.monotonic() - begin, 2)  # nobody is waited for
        self.assertEqual(self.look(), ("files", []))
        # What has been written by a process that was killed is in the log, which the next one to change it clears away.
        self.make("sqlite", "add T:a", "add T:b")
        if os.fork() == 0:
            connection = sqlite3.connect(metadata / "metadata.db")
            connection.execute("PRAGMA journal_mode = WAL")
            connection.execute("DELETE FROM path WHERE location = 'b'")
            connection.commit()
            os._exit(0)
        os.wait()
        if ctypes.CDLL(None).syscall(444, None, 0, 1) > 0:  # landlock_create_ruleset, for its version
            self.assertEqual(self.look(), ("nothing", ["T:a"]))

    def look(self):
        def state():
            return {file: (file.stat().st_mtime_ns, file.is_file() and file.read_bytes())
                    for file in [self.root, *self.root.rglob("*")]}
        before = state()
        offered = self.offer("show", "")
        self.assertEqual(state(), before)
        return offered

    def test_no_line_makes_an_error(self):
        self.make("fixedPath", "add T:a", "add T:b")
        (self.root / "resources/project/T=b.xml").write_text("<broken")
        for words in [[], [""], ["--"], ["-"], ["no-command", ""], ["show"], ["show", "T:a|"], ["show", "T:a||"],
                      ["show", "T:a#"], ["show", "\\"], ["show", "T:x|y"], ["show", "[["], ["get", "|", ""],
                      ["-C", "/", "show", ""], ["--root=", "show", ""], ["show", "--", "--", ""], ["-C", ""],
                      ["--=", ""], ["diff", "a", "b", "T:"], ["merge", "--settle", "T:a", "ours", ""], ["show", *[""] * 9],
                      ["init", "--store"], ["show", "\udcff"]]:
            self.assertLess(len(self.offer(*words)[1]), 3, words)


unittest.main(verbosity=2)
