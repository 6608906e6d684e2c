"""Shared code of the tests of the example programs, which are in the folder BIN."""
import os
import random
import re
import struct
import subprocess
import tempfile
import unittest
from collections import namedtuple

BIN = os.path.abspath(os.environ.get("BIN", "build/release/bin"))


# A command that fails, and a pattern for its message.
Error = namedtuple("Error", "command message")


def sox(*arguments):
    return subprocess.run(["sox", "-D", "-V1", *map(str, arguments)], check=True, stdout=subprocess.PIPE).stdout


def read(name, limit=-1):
    with open(name, "rb") as file:
        return file.read(limit)


def floats(data):
    return struct.unpack(f"<{len(data) // 4}f", data)


def curves(picture):
    """The points of each curve of more than 100 points in an SVG image."""
    paths = [re.findall(r"([\d.]+),([\d.]+)", path) for path in re.findall(r"\bd='([^']*)'", picture)]
    return [[(float(x), float(y)) for x, y in path] for path in paths if len(path) > 100]


class Test(unittest.TestCase):
    program = ()  # the first words of all commands

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        os.chdir(folder.name)
        self.random = random.Random(4)

    def run_(self, *line, **more):
        program, *arguments = (*self.program, *map(str, line))
        return subprocess.run([f"{BIN}/pcm-{program}", *arguments], capture_output=True, text=True, **more)

    def ok(self, *line):
        done = self.run_(*line)
        self.assertEqual((done.returncode, done.stderr), (0, ""), line)
        return done.stdout

    def check_errors(self, errors):
        """Each command fails with its message and leaves every file unchanged."""
        def files():
            return sorted((name, os.lstat(name).st_size, os.path.isfile(name) and read(name, 999))
                          for name in os.listdir())
        before = files()
        for command, message in errors:
            with self.subTest(command=command):
                done = self.run_(*command.split(), env={"PATH": "/no" if "needs" in message else os.environ["PATH"]})
                self.assertEqual((done.returncode, done.stdout), (1, ""))
                self.assertRegex(done.stderr, f"^pcm-{(*self.program, *command.split())[0]}: [^\n]*{message}")
                self.assertEqual(files(), before)

    def run_within(self, megabytes, program, *arguments):
        """Runs a program and checks how much memory it used. Sanitizers use more."""
        program, pipe = f"{BIN}/pcm-{program}", subprocess.PIPE
        with subprocess.Popen([program, *arguments], stdout=pipe, stderr=pipe) as child:
            out, err = child.stdout.read().decode(), child.stderr.read().decode()
            _, child.returncode, used = os.wait4(child.pid, 0)
        self.assertEqual(child.returncode, 0, err)
        if not any(name in read(program) for name in (b"__asan_init", b"__tsan_init")):
            self.assertLess(used.ru_maxrss, megabytes << 10)
        return out, err
