#!/usr/bin/env python3
"""Runs transcode as a program, in the folder BIN; what it writes is read back by sox, or by the few lines below."""
import math
import os
import pty
import re
import resource
import signal
import struct
import subprocess
import time
import unittest
from fractions import Fraction

from host import BIN, Test, floats, read, sox


def write(name, data=b"", length=None):
    with open(name, "wb") as file:
        file.write(data)
        file.truncate(length)


# Encoding: its name for sox, bytes a sample.
ENCODINGS = {"int8": ("signed", 1), "uint8": ("unsigned", 1), "int16": ("signed", 2), "int24": ("signed", 3),
             "int32": ("signed", 4), "float32": ("floating-point", 4), "alaw": ("a-law", 1), "mulaw": ("mu-law", 1)}
# Container: what it cannot hold, byte order, tag of the samples' chunk and the bytes in it before them.
CONTAINERS = {"wav": ("int8", "<", b"data", 0), "au": ("uint8", ">", None, 0), "aiff": (None, ">", b"SSND", 8),
              "w64": ("int8", "<", b"data", 24), "rf64": ("int8", "<", b"data", 0), "caf": ("uint8", ">", b"data", 4)}
FLAGS = "PCM_ENCODING_"
RAW = ["--raw", "--input-encoding"]
ERRORS = """none.wav out.wav | cannot open none.wav: No such file & . out.wav | not a regular file
    text out.wav | not audio & /dev/zero out.wav | not a regular file & empty out.wav | not audio
    odd.raw out.wav | not audio & in.wav in.wav | is the input itself & in.wav soft.wav | is the input itself
    soft.wav hard.wav | is the input itself & in.wav noname | cannot tell the container
    in.wav a.mov | cannot tell the container & in.wav no/a.wav | No such file
    in.wav ./ --container wav | Is a directory & in.wav /dev/full | No space left on device & out.wav | required
    in.wav full.wav | No space left on device & in.wav out.wav --frob | --frob
    in.wav out.wav --encoding opus | unknown encoding "opus" & in.wav out.wav --encoding=| | unknown encoding
    in.wav out.wav --encoding INT_16|PCM_ENCODING_PINK | unknown encoding
    in.wav out.wav --encoding INT_16|PCM_ENCODING_UNSIGNED | cannot hold
    in.wav out.wav --encoding INT_24|PCM_ENCODING_PACK_32 | cannot hold
    in.wav out.wav --quality good | unknown quality & in.wav out.wav --rate 2048001 | ratio
    in.wav out.wav --rate 31 | ratio & in.wav out.wav --rate 0 | --rate & in.wav out.wav --rate -1 | --rate
    in.wav out.wav --rate 99999999999999999999 | --rate & in.wav out.wav --rate 8e | --rate
    many.wav out.wav --rate 9000 | 200 channels & in.wav out.wav --level nan | level
    in.wav out.wav --level 201 | --level & in.wav out.wav --seconds-at 2 | FROM:TO
    in.wav out.wav --seconds-at .5:.4 | ends before it begins & in.wav out.wav --seconds-at 1.1: | behind the end
    in.wav out.wav --seconds-at=-1: | no time & in.wav out.wav --seconds-at :1e300 | no time
    in.wav out.wav --seconds-at nan: | no time & in.wav out.wav --channels 2 | requires --raw
    in.wav out.wav --container mov | unknown container & odd.raw out.wav --raw --rate 8000 | --input-encoding
    odd.raw out.wav --raw --input-encoding int8 | rate & odd.raw out.wav --channels 0 RAW int8 | --channels
    odd.raw out.wav RAW int16 | no whole number of frames & odd.raw out.wav RAW pink | unknown encoding "pink"
    long.raw out.wav RAW int8 --encoding uint8 | too long"""


def payload(name, size, order=None):
    """The bytes of the samples in a file of a container, of which there must be so many."""
    data, kind = read(name), name.split(".")[-1]
    _, usual, tag, skip = CONTAINERS[kind]
    if kind == "au":
        return data[struct.unpack(">I", data[4:8])[0]:]
    at, letter = data.index(tag) + 4, "Q" if kind in ("w64", "caf") else "I"
    at += 12 if kind == "w64" else 0  # the rest of a GUID
    told = struct.unpack_from((order or usual) + letter, data, at)[0]
    if kind == "rf64":
        assert (data[:4], told) == (b"RF64", 0xFFFFFFFF)
        told = struct.unpack_from("<Q", data, 28)[0]
    at += struct.calcsize("=" + letter) + (0 if kind == "w64" else skip)
    assert told - skip == size, (name, told, size)
    return data[at:at + size]


def soxRaw(encoding, order="<", channels=1, rate=8000):
    kind, width = ENCODINGS[encoding]
    return ["-t", "raw", "-e", kind, "-b", 8 * width, "-L" if order == "<" else "-B", "-c", channels, "-r", rate]


class Transcode(Test):
    program = ("transcode",)

    def bytes_(self, *arguments):
        """What comes out headerless."""
        self.ok(arguments[0], "out.raw", *arguments[1:])
        return read("out.raw")

    def floats_(self, *arguments):
        return floats(self.bytes_(*arguments, "--encoding", "float32"))

    def same(self, got, wanted, what=None):
        """Equal, without unittest's search for the differences, which takes hours."""
        if got != wanted:
            at = next((i for i, (a, b) in enumerate(zip(got, wanted)) if a != b), min(len(got), len(wanted)))
            self.fail(f"{what}: lengths {len(got)}, {len(wanted)}; at {at}: {got[at:at + 4]} {wanted[at:at + 4]}")

    def source(self, encoding):
        """Two channels of 128 16-bit samples that the encoding holds without loss."""
        write("codes", bytes(range(256)))
        return sox(*soxRaw(encoding if "law" in encoding else "int8"), "codes", *soxRaw("int16"), "-")

    def test_plot(self):
        """The highest line of a sine's spectrum, and its level, at their places in the picture."""
        heights = {}
        for rate, level in (16000, 0), (8000, -20):
            sox("-n", "-r", 16000, "-b", 16, "in.wav", "synth", 2, "sine", 1000, "gain", -6)
            self.ok("in.wav", "out.wav", "--rate", rate, "--level", level, "--plot", "plot.svg")
            picture = read("plot.svg").decode()
            self.assertIn(f"output, {rate} Hz", picture)
            curves = [[tuple(map(float, point)) for point in re.findall(r"([\d.]+),([\d.]+)", path)]
                      for path in re.findall(r"<path[^>]*\bd='([^']*)'", picture)]
            curves = [curve for curve in curves if len(curve) > 100]
            self.assertEqual(len(curves), 4)
            tops = [min(curve, key=lambda point: point[1]) for curve in curves]
            for left, right, range_ in (0, 1, 106), (2, 3, 156):  # decibels from end to end of 229 and 265 pixels
                heights.setdefault(range_, []).append(tops[right][1] - tops[left][1])
            left, right = curves[2], curves[3]
            self.assertAlmostEqual((tops[2][0] - left[0][0]) / (left[-1][0] - left[0][0]), 1 / 8, delta=.004)
            self.assertAlmostEqual((tops[3][0] - right[0][0]) / (right[-1][0] - right[0][0]), 2000 / rate, delta=.004)
        for unchanged, softer in heights.values():
            self.assertAlmostEqual(unchanged, 0, delta=.5)
            self.assertGreater(softer, 30)
        self.assertAlmostEqual(heights[106][1] / heights[156][1], 156 / 106 * 229 / 265, delta=.05)
        before = read("in.wav")
        for plot, message in (("in.wav", "is the input"), ("out.wav", "itself"), ("none/p.svg", "none/"),
                              ("p.png", "no .svg")):
            done = self.run_("in.wav", "out.wav", "--plot", plot)
            self.assertEqual((done.returncode, read("in.wav")), (1, before))
            self.assertIn(message, done.stderr)

    def test_written_containers(self):
        for container, (not_held, order, _, _) in CONTAINERS.items():
            for encoding, (kind, width) in ENCODINGS.items():
                with self.subTest(container=container, encoding=encoding):
                    wanted = self.source(encoding)
                    write("in.raw", wanted)
                    out = f"{encoding}.{container}"
                    raw = [*RAW, "int16", "--rate", 11025, "--channels", 2]
                    arguments = ["in.raw", out, *raw, "--encoding", encoding]
                    if encoding == not_held:
                        done = self.run_(*arguments)
                        self.assertEqual((done.returncode, os.path.exists(out)), (1, False))
                        self.assertIn(f"container {container} cannot hold {encoding}", done.stderr)
                        continue
                    self.assertIn("out  128 frames, 0.012 s, 11025 Hz, 2 channels, " + encoding, self.ok(*arguments))
                    write("payload", payload(out, 256 * width))
                    self.same(sox(*soxRaw(encoding, order), "payload", *soxRaw("int16"), "-"), wanted)
                    if container in ("wav", "au") or kind == "signed" and container != "rf64":  # what sox reads well
                        self.same(sox(out, *soxRaw("int16", channels=2, rate=11025), "-"), wanted)
                        told = [subprocess.check_output(["soxi", "-V1", what, out]) for what in ("-c", "-r", "-s")]
                        self.assertEqual(told, [b"2\n", b"11025\n", b"128\n"])

    def test_read_containers(self):
        cases = [(c, e, o[1]) for c, o in CONTAINERS.items() if c != "rf64" for e, (kind, _) in ENCODINGS.items()
                 if e != o[0] and (c != "aiff" or kind == "signed")]  # what sox writes
        cases += [("wav", e, ">") for e in ("int16", "float32")]
        write("codes", b"".join(b"\0" + self.random.randbytes(3) for _ in range(1500)))
        for container, encoding, order in cases:
            kind, width = ENCODINGS[encoding]
            with self.subTest(container=container, encoding=encoding, order=order):
                name = "in." + container
                swap = ["-B"] if order == ">" and container == "wav" else []
                sox(*soxRaw("int32", channels=2), "codes", "-e", kind, "-b", 8 * width, *swap, name)
                write("payload", payload(name, 1500 * width, order))
                wanted = floats(sox(*soxRaw(encoding, order), "payload", *soxRaw("float32"), "-"))
                if encoding == "mulaw":  # the library's values are rounded down to multiples of 8 in 16 bits
                    wanted = tuple(math.floor(w * 4096) / 4096 for w in wanted)
                self.same(self.floats_(name), wanted)
                self.assertIn(" 2 channels, " + encoding, self.ok(name, "out.rf64"))
                self.same(self.floats_("out.rf64"), wanted)

    def test_read_other_files(self):
        tone = ["synth", 0.5, "sine", 300, "gain", -6]
        cases = [("a.flac", ["-b", 16], 0, "int16"), ("b.flac", ["-b", 24], 0, "int24"), ("c.ogg", [], 1e-4, "int16"),
                 ("d.wav", ["-e", "ima-adpcm"], 0, "int16"), ("e.wav", ["-e", "float", "-b", 64], 1e-7, "float32")]
        for name, options, tolerance, nearest in cases:
            with self.subTest(name=name):
                sox("-n", "-r", 8000, "-c", 2, *options, name, *tone)
                wanted, got = floats(sox(name, *soxRaw("float32", channels=2), "-")), self.floats_(name)
                self.assertEqual(len(got), len(wanted))
                self.assertLessEqual(max(abs(a - b) for a, b in zip(got, wanted)), tolerance)
                self.assertIn(f"2 channels, {nearest}: out.w64", self.ok(name, "out.w64"))
                self.same(self.floats_(name, "--seconds-at", ".1:.2"), got[1600:3200])

    def test_headerless_words(self):
        cases = [("INT_24 | {0}PACK_32", "<i", 1 << 8, 0), ("INT_16|{0}BIG_ENDIAN|{0}PACK_24", ">xh", 1, 0),
                 ("INT_16 | {0}BIG_ENDIAN | {0}PAD_AFTER | {0}PACK_32", ">hxx", 1, 0),
                 ("INT_16 | {0}UNSIGNED", "<H", 1, 32768), ("FLOAT_32 | {0}BIG_ENDIAN", ">f", 1 / 32768, 0)]
        values = [-32768, -32767, -1, 0, 1, 255, 256, 32767]
        write("in.raw", struct.pack("<8h", *values))
        for flags, layout, scale, middle in cases:
            word = FLAGS + flags.format(FLAGS)
            with self.subTest(word=word):
                wanted = b"".join(struct.pack(layout, v * scale + middle) for v in values)
                if layout == "<i":  # the spare byte is 0, not the sign
                    wanted = b"".join(wanted[i:i + 3] + b"\0" for i in range(0, 32, 4))
                raw = ["--rate", 8000, *RAW]
                self.same(self.bytes_("in.raw", *raw, "int16", "--encoding", word), wanted)
                os.rename("out.raw", "packed.raw")
                self.same(self.floats_("packed.raw", *raw, word), tuple(v / 32768 for v in values))
                self.same(self.bytes_("packed.raw", *raw, word), wanted)

    def test_cuts(self):
        wanted = self.random.randbytes(4 * 1000)
        write("in.raw", wanted)
        raw = [*RAW, "int16", "--channels", 2, "--input-rate"]
        for rate in (8000, 11025, 60):
            sox(*soxRaw("int16", channels=2, rate=rate), "in.raw", "in.wav")
            sox("in.wav", "in.flac")
            edges = (0, 1, 159, 160, 161, 320, 999, 1000)
            cuts = [(a, b) for a in edges for b in edges if a <= b] + [(None, 161), (159, None), (7, 5000)]
            for begin, end in cuts if rate == 8000 else self.random.sample(cuts, 8):
                with self.subTest(rate=rate, begin=begin, end=end):
                    cut = ":".join("" if e is None else f"{e / rate:.9f}" for e in (begin, end))
                    for name, more in ("in.wav", []), ("in.flac", []), ("in.raw", raw + [rate]):
                        part = self.bytes_(name, "--seconds-at", cut, *more)
                        self.same(part, wanted[4 * (begin or 0):None if end is None else 4 * end], name)

    def test_rates(self):
        qualities = ["best", "medium", "fast", "hold", "linear"]
        for into, out in ((8000, 16000), (44100, 48000), (48000, 44100), (8000, 11025), (8000, 32), (31, 7936)):
            for frames in 0, 1, 2, 3, 159, 160, 161, 320, 1001:
                quality = {1: "linear", 161: "linear", 320: "hold"}.get(frames) or self.random.choice(qualities)
                with self.subTest(into=into, out=out, frames=frames, quality=quality):
                    write("in.raw", struct.pack("<f", 0.5) * frames)
                    rates = ["--input-rate", into, "--rate", out]
                    got = self.floats_("in.raw", *RAW, "float32", *rates, "--quality", quality)
                    self.assertEqual(len(got), math.floor(Fraction(frames * out, into) + Fraction(1, 2)))
                    inside = got[len(got) // 2:][:1] if quality != "linear" else got
                    for value in inside if frames > 160 and out > 32 else []:
                        self.assertAlmostEqual(value, 0.5, 3)
        write("tone.raw", struct.pack("<8000f", *[math.sin(2 * math.pi * 440 * i / 8000) for i in range(8000)]))
        for quality, worst in ("best", 1e-4), ("medium", 1e-4), ("fast", 1e-3), ("linear", .05), ("hold", .4):
            with self.subTest(quality=quality):
                rates = ["--input-rate", 8000, "--rate", 22050]
                got = self.floats_("tone.raw", *RAW, "float32", *rates, "--quality", quality)
                late = 22050 / 8000 if quality in ("linear", "hold") else 0  # they begin a frame before the first
                wanted = [math.sin(2 * math.pi * 440 * (i - late) / 22050) for i in range(22050)]
                self.assertLess(max(abs(a - b) for a, b in list(zip(got, wanted, strict=True))[2000:-2000]), worst)

    def test_level_and_peak(self):
        values = [0.5, -0.75, 0.001, float("inf"), float("nan"), -2.0]
        for level, use, peak in (6, values[:3], "3.50 dB before it was clipped to full scale"), \
                (-20, values[:3], "-22.50 dB"), (0, values, "200.00 dB before"), (0, [], "-200.00 dB"), \
                (-200, [1.0], "-200.00 dB"):
            with self.subTest(level=level, values=use):
                write("in.raw", struct.pack(f"<{len(use)}f", *use))
                raw = ["in.raw", *RAW, "0", "--rate", 8000, "--level", level]
                if len(use) < 4:
                    for got, value in zip(self.floats_(*raw), use, strict=True):
                        self.assertAlmostEqual(got, value * 10 ** (level / 20), 6)
                self.assertIn("peak " + peak, self.ok(*raw, "out.wav", "--encoding", "int16"))

    def test_errors(self):
        sox("-n", "-r", 8000, "-c", 2, "-b", 16, "in.wav", "synth", 1, "sine", 300)
        write("text", b"This is no recording. " * 50)
        write("odd.raw", bytes(5))
        write("empty", b"")
        write("long.raw", length=5 << 30)
        sox("-n", "-r", 8000, "-c", 200, "many.wav", "synth", .01, "sine", 300)
        os.symlink("in.wav", "soft.wav")
        os.link("in.wav", "hard.wav")
        os.symlink("/dev/full", "full.wav")
        write("out.wav", b"precious")
        os.chmod("out.wav", 0o640)
        self.refusals(ERRORS.replace("RAW", "--raw --rate 8000 --input-encoding").replace("INT_", FLAGS + "INT_"))
        limit = (resource.RLIMIT_FSIZE, (4096, 4096))
        done = self.run_("in.wav", "out.wav", preexec_fn=lambda: resource.setrlimit(*limit))
        self.assertEqual((done.returncode, read("out.wav")), (1, b"precious"))
        self.assertIn("cannot write out.wav: File too large", done.stderr)
        self.ok("in.wav", "out.wav")
        self.assertEqual(os.stat("out.wav").st_mode & 0o777, 0o640)
        self.same(sox("out.wav", "-t", "raw", "-"), sox("in.wav", "-t", "raw", "-"))
        write("cut.wav", read("in.wav")[:44 + 4 * 777 + 3])
        self.same(self.bytes_("cut.wav"), read("in.wav")[44:44 + 4 * 777])
        self.assertIn("--seconds-at", self.ok("--help"))
        self.assertRegex(self.ok("--help"), r"\nExit status: 0 if .* 1 for any failure")
        self.assertRegex(self.ok("--version"), r"^transcode \d+\.\d+\.\d+\n$")

    def test_long_stream(self):
        size = 400 << 20
        write("long.raw", length=size)
        out, err = self.frugal(64, "transcode", "long.raw", "/dev/null", *RAW, "int16", "--channels", "4",
                               "--input-rate", "48000", "--rate", "24000", "--quality", "hold", "--progress")
        self.assertIn(f"out  {size // 16} frames", out)
        self.assertRegex(err, r"^\r +0\.\d %  \d+:\d\d left  peak -200\.00 dB[^\n]*100\.0 %  0:00 left[^\n]*\n$")

    def test_progress_is_for_terminals(self):
        write("long.raw", length=8000 * 61)
        for option, shown in ([], True), (["--progress"], True), (["--no-progress"], False):
            reader, terminal = pty.openpty()
            with open(reader, "rb", buffering=0) as screen:
                subprocess.run([f"{BIN}/transcode", "long.raw", "/dev/null", *RAW, "alaw", "--rate", "8000", *option],
                               stdout=subprocess.DEVNULL, stderr=terminal, check=True)
                os.write(terminal, b".")
                os.close(terminal)
                self.assertEqual(b"100.0 %" in screen.read(4096), shown)
        self.assertNotIn("%", self.run_("long.raw", "/dev/null", *RAW, "alaw", "--rate", "8000").stderr)

    def test_interrupted(self):
        write("long.raw", length=1 << 36)
        for number in signal.SIGINT, signal.SIGTERM:
            child = subprocess.Popen([f"{BIN}/transcode", "long.raw", "out.w64", *RAW, "alaw", "--rate", "8000"])
            self.addCleanup(child.kill)
            while len(os.listdir()) < 2 and child.poll() is None:
                time.sleep(0.01)
            child.send_signal(number)
            self.assertEqual((child.wait(10), os.listdir()), (-number, ["long.raw"]))


if __name__ == "__main__":
    unittest.main()
