"""What the tests of the host programs share. The programs lie in the folder BIN."""
import os
import random
import re
import struct
import subprocess
import tempfile
import unittest

BIN = os.path.abspath(os.environ.get("BIN", "build/release/bin"))


def sox(*arguments):
    return subprocess.run(["sox", "-D", "-V1", *map(str, arguments)], check=True, stdout=subprocess.PIPE).stdout


def read(name, most=-1):
    with open(name, "rb") as file:
        return file.read(most)


def floats(data):
    return struct.unpack(f"<{len(data) // 4}f", data)


class Test(unittest.TestCase):
    program = ()  # what all lines begin with

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        os.chdir(folder.name)
        self.random = random.Random(4)

    def run_(self, *line, **more):
        program, *arguments = (*self.program, *map(str, line))
        return subprocess.run([f"{BIN}/{program}", *arguments], capture_output=True, text=True, **more)

    def ok(self, *line):
        done = self.run_(*line)
        self.assertEqual((done.returncode, done.stderr), (0, ""), line)
        return done.stdout

    def refusals(self, table):
        """Each command fails with its message, a pattern, and leaves every file as it is."""
        def files():
            return sorted((name, os.lstat(name).st_size, os.path.isfile(name) and read(name, 999))
                          for name in os.listdir())
        before = files()
        for command, message in (case.strip().split(" | ") for case in re.split("[&\n]", table)):
            with self.subTest(command=command):
                done = self.run_(*command.split(), env={"PATH": "/no" if "needs" in message else os.environ["PATH"]})
                self.assertEqual((done.returncode, done.stdout), (1, ""))
                self.assertRegex(done.stderr, f"^{(*self.program, *command.split())[0]}: [^\n]*{message}")
                self.assertEqual(files(), before)

    def frugal(self, megabytes, program, *arguments):
        """What a program writes that works in so much memory. Sanitizers take more."""
        program, pipe = f"{BIN}/{program}", subprocess.PIPE
        with subprocess.Popen([program, *arguments], stdout=pipe, stderr=pipe) as child:
            out, err = child.stdout.read().decode(), child.stderr.read().decode()
            _, child.returncode, used = os.wait4(child.pid, 0)
        self.assertEqual(child.returncode, 0, err)
        if not any(name in read(program) for name in (b"__asan_init", b"__tsan_init")):
            self.assertLess(used.ru_maxrss, megabytes << 10)
        return out, err
