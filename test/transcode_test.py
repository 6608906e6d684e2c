#!/usr/bin/env python3
"""Runs transcode, a program in the folder BIN, and decodes its output with sox."""
import cmath
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
from collections import namedtuple

from host import BIN, Error, Test, curves, floats, read, sox


def write(name, data=b"", length=None):
    with open(name, "wb") as file:
        file.write(data)
        file.truncate(length)


# For each encoding: its name in sox, and bytes per sample.
ENCODINGS = {"int8": ("signed", 1), "uint8": ("unsigned", 1), "int16": ("signed", 2), "int24": ("signed", 3),
             "int32": ("signed", 4), "float32": ("floating-point", 4), "alaw": ("a-law", 1), "mulaw": ("mu-law", 1)}

# An unsupported encoding, the byte order of the samples, and a function that returns a pattern for the header before
# the samples, given their size in bytes.
Container = namedtuple("Container", "unsupported order header")
CONTAINERS = {
    "wav": Container("int8", "<", lambda size: b"data" + re.escape(struct.pack("<I", size))),
    "au": Container("uint8", ">", lambda size: rb"\.snd\0\0\0\x18" + re.escape(struct.pack(">I", size)) + b".{12}"),
    "aiff": Container("", ">", lambda size: b"SSND" + re.escape(struct.pack(">I", size + 8)) + b".{8}"),
    "w64": Container("int8", "<", lambda size: b"data.{12}" + re.escape(struct.pack("<Q", size + 24))),
    "rf64": Container("int8", "<", lambda size: b"ds64.{12}" + re.escape(struct.pack("<Q", size)) + rb".*?data\xff{4}"),
    "caf": Container("uint8", ">", lambda size: b"data" + re.escape(struct.pack(">Q", size + 4)) + b".{4}"),
}
RAW = ["--raw", "--input-encoding"]


# A sine of `hertz` at the rate `into` appears at `seen` Hz at the rate `out`, with this change of level in dB. The
# levels are the frequency response of the taps of the filters.
Telephone = namedtuple("Telephone", "into out hertz seen level")
TELEPHONE = [
    Telephone(8000, 16000, 1000, 1000, .24),
    Telephone(8000, 16000, 2800, 5200, -37.6),  # an image
    Telephone(16000, 8000, 3400, 3400, -.07),
    Telephone(16000, 8000, 5200, 2800, -37.6),  # an alias
    Telephone(8000, 24000, 3000, 3000, .27),
    Telephone(24000, 8000, 5200, 2800, -26.77),
    Telephone(8000, 48000, 3400, 3400, -.33),
    Telephone(8000, 48000, 2800, 5200, -20.78),
    Telephone(48000, 8000, 1500, 1500, 0),
    Telephone(48000, 8000, 4600, 3400, -9.93),
    Telephone(16000, 48000, 5200, 5200, .02),
    Telephone(48000, 16000, 2000, 2000, -.02),
    Telephone(24000, 48000, 3000, 3000, .01),
    Telephone(48000, 24000, 3700, 3700, -.01),
]


def error(message, options="", input="in.wav", output="out.wav"):
    return Error(f"{input} {output} {options}", message)


ERRORS = [
    error("cannot open none.wav: No such file", input="none.wav"),
    error("not a regular file", input="."),
    error("not a regular file", input="/dev/zero"),
    error("not a supported audio file", input="text"),
    error("it is also the input", output="hard.wav"),
    error("unknown file extension", output="wav"),
    error("unknown container", "--container mov"),
    error("Is a directory", "--container wav", output="./"),
    error("No space left on device", output="/dev/full"),
    error("No space left on device", output="full.wav"),
    error("OUTPUT is required", output=""),
    error('unknown encoding "opus"', "--encoding opus"),
    error("unknown encoding", "--encoding=|"),
    error("do not support", "--encoding PCM_ENCODING_INT_16|PCM_ENCODING_UNSIGNED"),
    error("do not support", "--encoding PCM_ENCODING_INT_24|PCM_ENCODING_PACK_32"),
    error("unknown quality", "--quality good"),
    error("ratio", "--rate 2048001"),
    error("8000 Hz to 20000 Hz: it converts in integer ratios", "--rate 20000 --quality telephone"),
    error("--rate", "--rate 0"),
    error("200 channels", "--rate 9000", input="many.wav"),
    error("--level", "--level nan"),
    error("FROM:TO", "--seconds-at 2"),
    error("ends before it begins", "--seconds-at .5:.4"),
    error("begins after the end", "--seconds-at 1.1:"),
    error("not a time", "--seconds-at :1e300"),
    error("other than the input", "--plot in.wav"),
    error("other than the input and the output", "--plot out.wav"),
    error("must be .svg", "--plot p.png"),
    error("requires --raw", "--input-channels 2"),
    error('unknown option or extra argument "--bogus"', "--bogus"),
    error("--rate: the value is missing", "--rate"),
    error('--rate: "1e4" is not a whole number from 1 to 1000000000', "--rate 1e4"),
    error('--select: "2" is not a whole number from 0 to 1', "--select 0,2"),
    error('--select: "" is not a whole number', "--select 0,"),
    error("--round and --dither require an integer encoding, not alaw", "--round --encoding alaw"),
    error("more than one INPUT requires --to-directory", output="out.wav out.wav"),
    error("--plot cannot be combined", "--to-directory new --plot p.svg", output=""),
    error("cannot write ./in.wav for in.wav: it is also an input", "--to-directory .", output=""),
    error("new/in.wav for ./in.wav: it is also the output for in.wav", "--to-directory new",
          output="./in.wav"),
    error("--input-encoding", "--raw --rate 8000", input="odd.raw"),
    error("--input-rate", "--raw --input-encoding int8", input="odd.raw"),
    error("--channels", "--raw --rate 8000 --input-encoding int8 --channels 0", input="odd.raw"),
    error("not a multiple", "--raw --rate 8000 --input-encoding int16", input="odd.raw"),
    error("too long", "--raw --rate 8000 --input-encoding int8 --encoding uint8", input="long.raw"),
]


def soxRaw(encoding, order="<", channels=1, rate=8000):
    kind, width = ENCODINGS[encoding]
    return ["-t", "raw", "-e", kind, "-b", 8 * width, "-L" if order == "<" else "-B", "-c", channels, "-r", rate]


class Transcode(Test):
    program = ("transcode",)

    def bytes_(self, *arguments):
        """The output without a header."""
        self.ok(arguments[0], "out.raw", *arguments[1:])
        return read("out.raw")

    def floats_(self, *arguments):
        return floats(self.bytes_(*arguments, "--encoding", "float32"))

    def same(self, got, wanted, what=None):
        """Like assertEqual, but without its search for the differences, which takes hours."""
        self.assertTrue(got == wanted, what)

    def test_plot(self):
        """The level and spectrum of a sine, as drawn in the image."""
        for rate, level in (16000, 0), (8000, -20):
            sox("-n", "-r", 16000, "-b", 16, "in.wav", "synth", 2, "sine", 1000, "gain", -6)
            self.ok("in.wav", "out.wav", "--rate", rate, "--level", level, "--plot", "plot.svg")
            picture = read("plot.svg").decode()
            self.assertIn(f"output, {rate} Hz", picture)
            drawn = curves(picture)
            peaks = [min(curve, key=lambda point: point[1]) for curve in drawn]
            in_level, out_level, in_spectrum, out_spectrum = (y for _, y in peaks)
            self.assertAlmostEqual(out_level - in_level, -level * 229 / 106, delta=.5)  # 229 pixels for 106 dB
            self.assertAlmostEqual(out_spectrum - in_spectrum, -level * 265 / 156, delta=.5)
            for curve, peak, position in (drawn[2], peaks[2], 1 / 8), (drawn[3], peaks[3], 2000 / rate):
                self.assertAlmostEqual((peak[0] - curve[0][0]) / (curve[-1][0] - curve[0][0]), position, delta=.004)

    def test_written_containers(self):
        options = "--raw --input-encoding int16 --rate 11025 --channels 2 --encoding"
        write("codes", bytes(range(256)))
        for container, (unsupported, order, pattern) in CONTAINERS.items():
            for encoding, (kind, width) in ENCODINGS.items():
                with self.subTest(container=container, encoding=encoding):
                    sox(*soxRaw(encoding if "law" in encoding else "int8"), "codes", *soxRaw("int16"), "in.raw")
                    wanted, out = read("in.raw"), f"{encoding}.{container}"
                    command = f"in.raw {out} {options} {encoding}"
                    if encoding == unsupported:
                        self.check_errors([Error(command, f"{container} files do not support {encoding}")])
                        continue
                    report = self.ok(*command.split())
                    self.assertIn("out  128 frames, 0.012 s, 11025 Hz, 2 channels, " + encoding, report)
                    header = re.search(pattern(256 * width), read(out), re.S)
                    write("payload", read(out)[header.end():][:256 * width])
                    self.same(sox(*soxRaw(encoding, order), "payload", *soxRaw("int16"), "-"), wanted)
                    if container in ("wav", "au") or kind == "signed" and container != "rf64":  # sox reads these
                        self.same(sox(out, *soxRaw("int16", channels=2, rate=11025), "-"), wanted)

    def test_read_containers(self):
        cases = [(c, e, o.order) for c, o in CONTAINERS.items() if c != "rf64" for e, (kind, _) in ENCODINGS.items()
                 if e != o.unsupported and (c != "aiff" or kind == "signed")]  # formats that sox writes
        cases += [("wav", e, ">") for e in ("int16", "float32")]
        write("codes", self.random.randbytes(12000))
        for container, encoding, order in cases:
            kind, width = ENCODINGS[encoding]
            with self.subTest(container=container, encoding=encoding, order=order):
                name = "in." + container
                swap = ["-B"] if order == ">" and container == "wav" else []
                codes = "int24" if width == 4 else encoding  # exact as floats
                sox(*soxRaw(codes, channels=2), "codes", "-e", kind, "-b", 8 * width, *swap, name)
                wanted = floats(sox(*soxRaw(codes), "codes", *soxRaw("float32"), "-"))
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
        cases = [
            (["INT_24", "PACK_32"], "<xhx", 1, 0),
            (["INT_16", "BIG_ENDIAN", "PACK_24"], ">xh", 1, 0),
            (["INT_16", "BIG_ENDIAN", "PAD_AFTER", "PACK_32"], ">hxx", 1, 0),
            (["INT_16", "UNSIGNED"], "<H", 1, 32768),
            (["FLOAT_32", "BIG_ENDIAN"], ">f", 1 / 32768, 0),
        ]
        values = [-32768, -32767, -1, 0, 1, 255, 256, 32767]
        write("in.raw", struct.pack("<8h", *values))
        for flags, layout, scale, middle in cases:
            word = " | ".join("PCM_ENCODING_" + flag for flag in flags)
            with self.subTest(word=word):
                wanted = b"".join(struct.pack(layout, v * scale + middle) for v in values)
                raw = ["--rate", 8000, *RAW]
                self.same(self.bytes_("in.raw", *raw, "int16", "--encoding", word), wanted)
                os.rename("out.raw", "packed.raw")
                self.same(self.floats_("packed.raw", *raw, word), tuple(v / 32768 for v in values))
                self.same(self.bytes_("packed.raw", *raw, word), wanted)

    def test_cuts(self):
        wanted = self.random.randbytes(4 * 1000)
        write("in.raw", wanted)
        for rate in (8000, 11025, 60):
            sox(*soxRaw("int16", channels=2, rate=rate), "in.raw", "in.wav")
            sox("in.wav", "in.flac")
            raw = [*RAW, "int16", "--channels", 2, "--input-rate", rate]
            edges = (0, 1, 159, 160, 161, 320, 999, 1000)
            cuts = [(a, b) for a in edges for b in edges if a <= b] + [(None, 161), (159, None), (7, 5000)]
            for begin, end in cuts if rate == 8000 else self.random.sample(cuts, 8):
                with self.subTest(rate=rate, begin=begin, end=end):
                    cut = ":".join("" if e is None else f"{e / rate:.9f}" for e in (begin, end))
                    for name, more in ("in.wav", []), ("in.flac", []), ("in.raw", raw):
                        part = self.bytes_(name, "--seconds-at", cut, *more)
                        self.same(part, wanted[4 * (begin or 0):None if end is None else 4 * end], name)

    def test_rates(self):
        qualities = ["best", "medium", "fast", "hold", "linear"]
        for into, out in ((8000, 16000), (44100, 48000), (48000, 44100), (8000, 11025), (8000, 32), (31, 7936)):
            for frames in 0, 1, 2, 3, 159, 160, 161, 320, 1001:
                quality = {1: "linear", 161: "linear", 320: "hold"}.get(frames) or self.random.choice(qualities)
                with self.subTest(into=into, out=out, frames=frames, quality=quality):
                    write("in.raw", struct.pack("<f", 0.5) * frames)
                    raw = [*RAW, "float32", "--input-rate", into]
                    got = self.floats_("in.raw", *raw, "--rate", out, "--quality", quality)
                    self.assertEqual(len(got), (2 * frames * out + into) // (2 * into))
                    inside = got[len(got) // 2:][:1] if quality != "linear" else got
                    for value in inside if frames > 160 and out > 32 else []:
                        self.assertAlmostEqual(value, 0.5, 3)
        write("tone.raw", struct.pack("<8000f", *[math.sin(2 * math.pi * 440 * i / 8000) for i in range(8000)]))
        for quality, worst in ("best", 1e-4), ("medium", 1e-4), ("fast", 1e-3), ("linear", .05), ("hold", .4):
            got = self.floats_("tone.raw", *RAW, "float32", "--input-rate", 8000, "--rate", 22050, "--quality", quality)
            late = 22050 / 8000 if quality in ("linear", "hold") else 0  # they begin a frame before the first
            wanted = [math.sin(2 * math.pi * 440 * (i - late) / 22050) for i in range(22050)]
            self.assertLess(max(abs(a - b) for a, b in list(zip(got, wanted, strict=True))[2000:-2000]), worst, quality)

    def test_telephone_quality(self):
        for row in TELEPHONE:
            with self.subTest(row=row):
                frames = row.into * 3 // 4 + 1
                wave = [math.sin(2 * math.pi * row.hertz * i / row.into) for i in range(frames)]
                write("tone.raw", struct.pack(f"<{frames}f", *wave))
                got = self.floats_("tone.raw", *RAW, "float32", "--input-rate", row.into, "--rate", row.out,
                                   "--quality", "telephone")
                self.assertEqual(len(got), (2 * frames * row.out + row.into) // (2 * row.into))
                first, count = row.out // 10, row.out // 2  # whole periods
                value = sum(got[i] * cmath.exp(-2j * math.pi * row.seen * i / row.out)
                            for i in range(first, first + count)) * 2j / count
                self.assertAlmostEqual(20 * math.log10(abs(value)), row.level, delta=.02)
                if row.seen == row.hertz:  # half a frame of the higher rate late
                    late = -cmath.phase(value) / (2 * math.pi * row.hertz)
                    self.assertAlmostEqual(late * max(row.into, row.out), .5, delta=.01)

    def test_level_and_peak(self):
        values = [0.5, -0.75, 0.001, float("inf"), float("nan"), -2.0]
        for level, use, peak in (6, values[:3], "3.50 dB before clipping to full scale"), \
                (-20, values[:3], "-22.50 dB"), (0, values, "200.00 dB before"), (0, [], "-200.00 dB"), \
                (-200, [1.0], "-200.00 dB"):
            write("in.raw", struct.pack(f"<{len(use)}f", *use))
            raw = ["in.raw", *RAW, "0", "--rate", 8000, "--level", level]
            if len(use) < 4:
                for got, value in zip(self.floats_(*raw), use, strict=True):
                    self.assertAlmostEqual(got, value * 10 ** (level / 20), 6)
            self.assertIn("peak " + peak, self.ok(*raw, "out.wav", "--encoding", "int16"))

    def test_errors(self):
        sox("-n", "-r", 8000, "-c", 2, "-b", 16, "in.wav", "synth", 1, "sine", 300)
        write("text", b"This is not audio. " * 50)
        write("odd.raw", bytes(5))
        write("long.raw", length=5 << 30)
        sox("-n", "-r", 8000, "-c", 200, "many.wav", "synth", .01, "sine", 300)
        os.link("in.wav", "hard.wav")
        os.symlink("/dev/full", "full.wav")
        write("out.wav", b"precious")
        os.chmod("out.wav", 0o640)
        self.check_errors(ERRORS)
        done = self.run_("in.wav", "out.wav", preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (99, 99)))
        self.assertEqual((done.returncode, read("out.wav")), (1, b"precious"))
        self.assertIn("cannot write out.wav: File too large", done.stderr)
        self.ok("in.wav", "out.wav")
        self.assertEqual(os.stat("out.wav").st_mode & 0o777, 0o640)

    def test_channels(self):
        samples = self.random.choices(range(-99, 99), k=6 * 50)
        write("in.raw", struct.pack("<300f", *samples))
        for options, wanted in (
            (["--select", "4"], lambda frame: frame[4:5]),
            (["--select", "5,0,5"], lambda frame: [frame[5], frame[0], frame[5]]),
            (["--channels", "1"], lambda frame: [sum(frame) / 6]),
            (["--channels", "2"], lambda frame: [sum(frame) / 6] * 2),
            (["--channels", "8"], lambda frame: frame + [sum(frame) / 6] * 2),
            (["--select", "1,2", "--channels", "1"], lambda frame: [(frame[1] + frame[2]) / 2]),
        ):
            with self.subTest(options=options):
                got = self.floats_("in.raw", *RAW, "float32", "--rate", 8000, "--input-channels", 6, *options)
                model = [sample for i in range(0, 300, 6) for sample in wanted(samples[i:i + 6])]
                self.assertEqual(len(got), len(model))
                self.assertLess(max(abs(a - b) for a, b in zip(got, model)), 1e-4)

    def test_rounding(self):
        for encoding, bits in ("int8", 8), ("int16", 16), ("int24", 24):
            steps = [self.random.randint(-400, 400) / 4 for _ in range(1000)] + [2 ** (bits - 1), -2 ** (bits - 1)]
            write("in.raw", struct.pack("<1002f", *(step / 2 ** (bits - 1) for step in steps)))
            for options, offset in ([], 0), (["--round"], .5):
                with self.subTest(encoding=encoding, options=options):
                    self.ok("in.raw", "out.raw", *RAW, "float32", "--rate", 8000, "--encoding", encoding, *options)
                    codes = floats(sox(*soxRaw(encoding), "out.raw", *soxRaw("float32"), "-"))
                    wanted = [min(math.floor(step + offset), 2 ** (bits - 1) - 1) for step in steps]
                    self.assertEqual([code * 2 ** (bits - 1) for code in codes], wanted)
        count = 200000
        write("in.raw", struct.pack("<f", .3 / 32768) * count)
        codes = self.bytes_("in.raw", *RAW, "float32", "--rate", 8000, "--encoding", "int16", "--dither")
        codes = struct.unpack(f"<{count}h", codes)
        mean = sum(codes) / count
        self.assertEqual(set(codes), {-1, 0, 1})
        # The noise repeats after 8192 samples, so the standard deviation of the mean is 2 * sqrt(1 / 12 / 8192) = 0.006.
        self.assertAlmostEqual(mean, .3, delta=.04)
        self.assertAlmostEqual(sum((code - mean) ** 2 for code in codes) / count, .25, delta=.03)  # 1/12 and 2/12

    def test_many_files(self):
        names = [f"{number}.wav" for number in range(9)]
        for number, name in enumerate(names):
            sox("-n", "-r", 16000, "-b", 16, name, "synth", .1 * (number + 1), "sine", 300)
        os.rename("8.wav", "8.x")
        write("3.wav", b"no audio")
        done = self.run_(*names[:8], "8.x", "--to-directory", "new/out", "--encoding", "alaw", "--rate", 8000, "--progress")
        self.assertEqual((done.returncode, done.stdout), (1, "8 of 9 files converted to new/out\n"))
        self.assertRegex(done.stderr, r"(?s)100\.0 %.*\npcm-transcode: 1 of 9 files failed:\n  cannot read 3\.wav: [^\n]*\n$")
        self.assertEqual(sorted(os.listdir("new/out")), [name for name in names if name != "3.wav"])
        for name in "0.wav", "8.wav":
            self.ok(name.replace("8.wav", "8.x"), "one.wav", "--encoding", "alaw", "--rate", 8000)
            self.same(read("new/out/" + name), read("one.wav"))

    def test_truncated_input(self):
        write("in.raw", bytes(16000))
        for container in "wav", "aiff", "au", "w64", "rf64":
            with self.subTest(container=container):
                self.ok("in.raw", f"full.{container}", *RAW, "int16", "--rate", 8000)
                write(f"cut.{container}", read(f"full.{container}")[:5001])
                done = self.run_(f"cut.{container}", "out.raw")
                frames = len(read("out.raw")) // 2
                message = f"cut.{container} is truncated: its header promises 8000 frames, but it contains {frames}\n"
                self.assertEqual((done.returncode, done.stderr), (0, "pcm-transcode: warning: " + message))
                self.assertIn(frames, range(2440, 2500))
                self.assertEqual(self.run_(f"cut.{container}", "out.wav", "--strict").stderr, "pcm-transcode: " + message)
                self.assertFalse(os.path.exists("out.wav"))

    def test_empty_odd_and_repeated_outputs(self):
        for size in 0, 7:
            write("in.raw", bytes(range(size)))
            for container in CONTAINERS:
                for encoding in ENCODINGS:
                    if encoding == CONTAINERS[container].unsupported:
                        continue
                    with self.subTest(size=size, container=container, encoding=encoding):
                        command = ["in.raw", "out." + container, *RAW, "int8", "--rate", 8000, "--encoding", encoding]
                        self.ok(*command)
                        self.assertIn(f"in   {size} frames", self.ok("out." + container, "back.raw"))
                        if encoding in ("int16", "int24", "float32") and container != "aiff":  # what sox reads
                            self.assertEqual(int(subprocess.check_output(["soxi", "-s", "out." + container])), size)
                        self.assertNotIn(b"PEAK", read("out." + container))  # it contains the time of day

    def test_pipes(self):
        write("in.raw", self.random.randbytes(4000))
        for container in CONTAINERS:
            with self.subTest(container=container):
                self.ok("in.raw", f"a.{container}", *RAW, "int16", "--rate", 8000)
                self.ok(f"a.{container}", f"b.{container}", "--level", -6)
                command = [f"{BIN}/pcm-transcode", "-", "-", "--container", container, "--level", "-6"]
                done = subprocess.run(command, input=read(f"a.{container}"), capture_output=True, check=True)
                self.same(done.stdout, read(f"b.{container}"))
                self.assertIn(b"out  2000 frames", done.stderr)
        self.assertEqual(self.run_("in.raw", "/dev/full", *RAW, "int16", "--rate", 8000).returncode, 1)
        self.ok("a.wav", "line.wav", "--encoding", "alaw")
        self.ok("line.wav", "wide.wav", "--rate", 16000, "--encoding", "int16")
        command = f"{BIN}/pcm-transcode a.wav - --encoding alaw | {BIN}/pcm-transcode - - --rate 16000 --encoding int16"
        self.same(subprocess.run(command, shell=True, capture_output=True, check=True).stdout, read("wide.wav"))

    def test_output_files(self):
        sox("-n", "-r", 8000, "-b", 16, "in.wav", "synth", .1, "sine", 300)
        self.ok("in.wav", "good.wav")
        write("target.wav", b"old")
        for link, to in ("link.wav", "target.wav"), ("dangling.wav", "new.wav"), ("null.wav", "/dev/null"), \
                ("loop.wav", "loop.wav"):
            os.symlink(to, link)
        for output, written in ("link.wav", "target.wav"), ("dangling.wav", "new.wav"), ("null.wav", None):
            self.ok("in.wav", output)
            self.assertTrue(os.path.islink(output))
            self.assertTrue(not written or read(written) == read("good.wav"))
        self.check_errors([
            Error("in.wav loop.wav", "cannot write loop.wav: Too many levels of symbolic links"),
            Error("in.wav new.svg --container wav --plot ./new.svg", "other than the input and the output"),
            Error("in.wav out.wav --encoding=", "--encoding: the value is empty"),
        ])
        # A closed standard stream must not become the output file.
        command = f"exec {BIN}/pcm-transcode in.wav closed.wav --progress <&- >&- 2>&-"
        self.assertEqual(subprocess.call(["sh", "-c", command]), 0)
        self.same(read("closed.wav"), read("good.wav"))
        os.chmod("target.wav", 0o6640)
        self.ok("in.wav", "target.wav")
        self.assertEqual(os.stat("target.wav").st_mode & 0o7777, 0o640)
        if os.geteuid() == 0:
            os.chown("target.wav", 65534, 65534)
            self.ok("in.wav", "target.wav")
            self.assertEqual((os.stat("target.wav").st_uid, os.stat("target.wav").st_gid), (65534, 65534))

    def test_long_stream(self):
        write("long.raw", length=400 << 20)
        out, err = self.run_within(64, "transcode", "long.raw", "/dev/null", *RAW, "int16", "--channels", "4",
                               "--input-rate", "48000", "--rate", "24000", "--quality", "hold", "--progress")
        self.assertIn("out  26214400 frames", out)
        self.assertRegex(err, r"^\r +0\.\d %  \d+:\d\d left  peak -200\.00 dB[^\n]*100\.0 %  0:00 left[^\n]*\n$")

    def test_progress_is_for_terminals(self):
        write("long.raw", length=8000 * 61)
        for option, shown in ([], True), (["--progress"], True), (["--no-progress"], False):
            reader, terminal = pty.openpty()
            with open(reader, "rb", buffering=0) as screen:
                subprocess.run([f"{BIN}/pcm-transcode", "long.raw", "/dev/null", *RAW, "alaw", "--rate", "8000", *option],
                               stdout=subprocess.DEVNULL, stderr=terminal, check=True)
                os.write(terminal, b"end")
                printed = b""
                while not printed.endswith(b"end"):
                    printed += screen.read(4096)
                os.close(terminal)
                self.assertEqual(b"100.0 %" in printed, shown)
        self.assertNotIn("%", self.run_("long.raw", "/dev/null", *RAW, "alaw", "--rate", "8000").stderr)

    def test_interrupted(self):
        write("long.raw", length=1 << 36)
        for number in signal.SIGINT, signal.SIGTERM:
            child = subprocess.Popen([f"{BIN}/pcm-transcode", "long.raw", "out.w64", *RAW, "alaw", "--rate", "8000"])
            self.addCleanup(child.kill)
            while len(os.listdir()) < 2 and child.poll() is None:
                time.sleep(0.01)
            child.send_signal(number)
            self.assertEqual((child.wait(10), os.listdir()), (-number, ["long.raw"]))


if __name__ == "__main__":
    unittest.main()
