#!/usr/bin/env python3
"""Runs tones, mix and response, and measures their output after sox has decoded it."""
import cmath, math, os, re, struct, subprocess, unittest
from collections import namedtuple
from fractions import Fraction
from pathlib import Path

from host import Error, Test, curves, floats, sox

# Frequencies in Hz that are added; seconds of tone, silence, tone, silence; a frequency by which the tone is modulated.
Tone = namedtuple("Tone", "hertz cadence modulation", defaults=[[], None])
Country = namedtuple("Country", "name dial busy ringback")
COUNTRIES = [
    Country("australia", Tone([425], [], 25), Tone([425], [.375, .375]), Tone([425], [.4, .2, .4, 2], 25)),
    Country("belgium", Tone([425]), Tone([425], [.5, .5]), Tone([425], [1, 3])),
    Country("brazil", Tone([425]), Tone([425], [.25, .25]), Tone([425], [1, 4])),
    Country("canada", Tone([350, 440]), Tone([480, 620], [.5, .5]), Tone([440, 480], [2, 4])),
    Country("china", Tone([450]), Tone([450], [.35, .35]), Tone([450], [1, 4])),
    Country("finland", Tone([425]), Tone([425], [.3, .3]), Tone([425], [1, 4])),
    Country("france", Tone([440]), Tone([440], [.5, .5]), Tone([440], [1.5, 3.5])),
    Country("germany", Tone([425]), Tone([425], [.48, .48]), Tone([425], [1, 4])),
    Country("italy", Tone([425], [.2, .2, .6, 1]), Tone([425], [.5, .5]), Tone([425], [1, 4])),
    Country("japan", Tone([400]), Tone([400], [.5, .5]), Tone([400], [1, 2], 16)),
    Country("netherlands", Tone([425]), Tone([425], [.5, .5]), Tone([425], [1, 4])),
    Country("spain", Tone([425]), Tone([425], [.2, .2]), Tone([425], [1.5, 3])),
    Country("sweden", Tone([425]), Tone([425], [.25, .25]), Tone([425], [1, 5])),
    Country("switzerland", Tone([425]), Tone([425], [.5, .5]), Tone([425], [1, 4])),
    Country("UK", Tone([350, 440]), Tone([400], [.375, .375]), Tone([400, 450], [.4, .2, .4, 2])),
    Country("us", Tone([350, 440]), Tone([480, 620], [.5, .5]), Tone([440, 480], [2, 4])),
]
ROWS, COLUMNS = (697, 770, 852, 941), (1209, 1336, 1477, 1633)
# Cut-off, rate, gain at the cut-off in dB, sum of the taps.
LOWPASS = ((4000, 16000, -3.76, .97401), (4000, 24000, -3.40, .98288), (4000, 48000, -3.26, .98704),
           (6000, 24000, -3.33, .99079), (6000, 48000, -3.10, .99601), (8000, 48000, -3.06, .99843),
           (12000, 48000, -3.06, .99943))
ERRORS = [
    Error("tones dial atlantis out.wav", 'unknown country "atlantis"; use one of australia, .*us'),
    Error("tones ringback australia out.wav --rate 900", "450 Hz requires a --rate above 900 Hz"),
    Error("tones dtmf 1 out.wav --rate 2418", "1209 Hz requires"),
    Error("tones dtmf 1x out.wav", 'unknown digit "x"'),
    Error("tones am 300 9 out.wav --level 1", "not a level from -200 to 0 dB"),
    Error("tones am 300 9 out.wav --seconds 1e9", "too long"),
    Error("tones am 300 9 o.raw --rate 1000000000 --seconds 1e9", "more than 1e18 frames"),
    Error("mix out.wav in.wav,lvel=3", "cannot open in.wav,lvel=3: No such file"),
    Error("mix out.wav in.wav,level=3,at=1,level=4", "level is given twice"),
    Error("mix out.wav in.wav,at=1e6", "too long"),
    Error("mix in.wav soft.wav", "it is also an input"),
    Error("response", "either TYPE or --taps"),
    Error("response LOWPASS_1_AT_2", 'unknown filter type "LOWPASS_1_AT_2"'),
    Error("response LOWPASS_4000_AT_16000 out.jpg", "must be .svg or .png"),
    Error("response LOWPASS_4000_AT_16000 full.svg", "No space left"),
    Error("response --taps taps out.svg", "needs gnuplot, .* gnuplot-nox"),
    Error("response --taps nil", "nil: No such file"),
    Error("response --taps /dev/zero", "/dev/zero"),
    Error("response --taps fifo", "fifo: not a regular file"),
    Error("response LOWPASS_4000_AT_16000 new.svg --script ./new.svg", "it is also the image"),
    Error("response --taps none", "none: it contains no taps"),
    Error("response --taps vast", "limited to 1 MiB"),
    Error("response --taps word", 'word, line 2: "0.5 0.5" is not a valid tap'),
    Error("response --taps crowd", "crowd, line 4097: more than 4096"),
    Error("response --taps taps --cutoff 24001", "more than half"),
    Error("response --taps taps --script taps", "it is also the tap file"),
]


def decoded(name):
    return floats(sox(name, "-t", "f32", "-L", "-"))


def encode(name, values, channels=1, rate=8000, form=("-b", 16)):
    Path("values.f32").write_bytes(struct.pack(f"<{len(values)}f", *values))
    sox("-c", channels, "-r", rate, "-L", "values.f32", *form, name)


def frame(seconds, rate):
    return math.floor(seconds * rate + Fraction(1, 2))


def gain(level):
    return 10 ** (level / 20)


def transform(values, frequency):
    """The Fourier transform at a frequency in cycles per frame."""
    return sum(v * cmath.exp(-2j * math.pi * frequency * i) for i, v in enumerate(values))


def sine(hertz, rate, index):
    return math.sin(2 * math.pi * hertz * index / rate)


def modelTone(tone, seconds, rate):
    values, end, part = [], 0, 0
    while len(values) < frame(seconds, rate):
        end += tone.cadence[part % len(tone.cadence)] if tone.cadence else seconds
        for i in range(frame(end, rate) - len(values)):
            value = sum(sine(f, rate, i) for f in tone.hertz) / len(tone.hertz)
            values.append(0 if part % 2 else value * (sine(tone.modulation, rate, i) if tone.modulation else 1))
        part += 1
    return values[:frame(seconds, rate)]


class Programs(Test):
    def near(self, got, wanted, worst):
        self.assertEqual(len(got), len(wanted))
        self.assertLess(max((abs(a - b) for a, b in zip(got, wanted)), default=0), worst)

    def test_national_tones(self):
        for country in COUNTRIES:
            for kind, tone in zip(("dial", "busy", "ringback"), country[1:]):
                rate, level = self.random.choice(((8000, 0), (8000, -3.5), (1301, -40), (11025, -20)))
                seconds = round((sum(tone.cadence) or .5) * self.random.choice((1.15, 1.6)), 6)
                with self.subTest(country=country.name, kind=kind, rate=rate, seconds=seconds):
                    self.ok("tones", kind, country.name, "out.wav", "--rate", rate, "--seconds", seconds,
                            "--level", level, "--encoding", "float32")
                    self.near(decoded("out.wav"), [gain(level) * v for v in modelTone(tone, seconds, rate)], 2e-5)

    def test_keys_and_modulation(self):
        for more, rate, on, off, noise in ([], 8000, .1, .1, 0), \
                (["--encoding", "alaw", "--rate", 16000, "--on", .06, "--off", ".0375"], 16000, .06, .0375, 1e-3):
            self.ok("tones", "dtmf", "123A456B789C*0#d", "keys.wav", *more)
            got = decoded("keys.wav")
            self.assertEqual(len(got), frame(16 * (on + off), rate))
            for key in range(16):
                begin, middle, end = (frame(key * (on + off) + s, rate) for s in (0, on, on + off))
                both = {ROWS[key // 4], COLUMNS[key % 4]}
                for hertz in ROWS + COLUMNS:
                    amplitude = 2 * abs(transform(got[begin:middle], hertz / rate)) / (middle - begin)
                    self.assertAlmostEqual(amplitude, gain(-10) / 2 * (hertz in both), delta=.025, msg=(key, hertz))
                self.assertLessEqual(max(map(abs, got[middle:end])), noise)
        self.ok("tones", "am", 1000, 10, "am", "--container", "au", "--rate", 16000, "--seconds", .5, "--level", -6)
        self.assertEqual(struct.unpack(">6I", Path("am").read_bytes()[:24])[2:], (16000, 3, 16000, 1))  # bytes, int16
        for hertz, wanted in (990, .5), (1010, .5), (1000, 0), (980, 0), (10, 0):
            self.assertAlmostEqual(abs(transform(decoded("am"), hertz / 16000)) / 4000, wanted * gain(-6), 4)

    def test_mix(self):
        inputs = {"a.wav": (1, ["-e", "a-law"]), "b,1.au": (2, ["-b", 16]), "c.flac": (3, ["-b", 24]),
                  "d.wav": (6, ["-e", "float", "-b", 32]), "empty.wav": (2, ["-b", 16])}
        for name, (count, form) in inputs.items():
            frames = 0 if name == "empty.wav" else self.random.randrange(500, 900)
            encode(name, [self.random.uniform(-.3, .3) for _ in range(frames * count)], count, 8000, form)
        for tracks in ([("a.wav", 0, 0)], [("b,1.au", -6, .01), ("a.wav", 3.5, 0)], [("empty.wav", 0, .25)],
                       [("a.wav", -1, .3), ("a.wav", -3, 0), ("c.flac", 0, .07), ("empty.wav", 0, .01)],
                       [("c.flac", -10, .0199), ("d.wav", 0, .02), ("b,1.au", -200, 1.5)], [("empty.wav", 0, 0)]):
            for out in 0, 1, 2, 5:
                self.ok("mix", "out.wav", "--encoding", "float32", *(["--channels", out] if out else []), *[
                    f"{n},at={at:.4f},level={level}" if at else f"{n},level={level}" if level else n
                    for n, level, at in tracks])
                out, mix = out or max(inputs[name][0] for name, *_ in tracks), []
                for name, level, at in tracks:
                    samples, count, start = decoded(name), inputs[name][0], frame(at, 8000) * out
                    mix += [0] * (start + len(samples) // count * out - len(mix))
                    for i in range(len(samples) // count * out):
                        f, c = divmod(i, out)
                        each = samples[f * count:(f + 1) * count]
                        mix[start + i] += (each[c] if c < count <= out else sum(each) / count) * gain(level)
                self.near(decoded("out.wav"), mix, 2e-6)

    def test_mix_of_rates(self):
        for rates, more in ((8000, 44100), []), ((44100, 8000, 48000), ["--quality", "best"]), \
                ((16000, 8000), ["--rate", 11025]):
            out = more[1] if "--rate" in more else max(rates)
            counts = {rate: self.random.randrange(4000, 9000) for rate in rates}
            for rate, count in counts.items():
                encode(f"{rate}.wav", [.2 * sine(440, rate, i) for i in range(count)], 1, rate, ["-b", 24])
            self.ok("mix", "out.wav", *[f"{rate}.wav,at=0.05" for rate in rates], "--encoding", "float32", *more)
            got, start = decoded("out.wav"), frame(.05, out)
            ends = [frame(Fraction(count * out, rate), 1) for rate, count in counts.items()]
            self.assertEqual(len(got), start + max(ends))
            wanted = [.2 * len(rates) * sine(440, out, i) for i in range(min(ends))]
            self.near(got[start + 500:start + min(ends) - 500], wanted[500:-500], 1e-3)
        encode("loud.wav", [.9, -.9, .1])
        self.assertIn("peak 5.11 dB before clipping", self.ok("mix", "out.wav", "loud.wav", "loud.wav"))
        self.near(decoded("out.wav"), [1, -1, .2], 1e-4)
        Path("long.au").write_bytes(struct.pack(">6I", 0x2E736E64, 24, 0xFFFFFFFF, 3, 48000, 4))
        os.truncate("long.au", 100 << 20)
        self.run_within(48, "mix", "/dev/null", "long.au", "loud.wav,at=400", "--quality", "hold")

    def test_response(self):
        for cutoff, rate, level, total in LOWPASS:
            for prefix in "LOWPASS", "PCM_FILTER_TYPE_LOWPASS":
                report = self.ok("response", f"{prefix}_{cutoff}_AT_{rate}")
                zero = round(20 * math.log10(total), 2) + 0.  # never -0.00
                self.assertRegex(report, rf"\n{zero:.2f} dB at 0 Hz\n{level:.2f} dB at {cutoff} Hz \(cut-off\)\n$")
        for taps in [.5, .5], [2.5], [1, 0, -1], [self.random.uniform(-9, 9) for _ in range(31)]:
            Path("taps").write_text("\n".join(f" {t:.9g} # a tap" for t in taps) + "\n\n# end")
            report = self.ok(*"response --taps taps out.svg --rate 8000 --cutoff 1700 --script kept".split())
            wanted = 20 * math.log10(abs(transform(taps, 1700 / 8000)))
            self.assertAlmostEqual(float(re.search(r"(\S+) dB at 1700 Hz \(", report)[1]), wanted, delta=.0051)
            points = re.findall("(?m)^([-.0-9]+) ([-.0-9]+) (.+)", Path("kept").read_text())
            self.assertEqual((len(points), float(points[0][0]), float(points[-1][0])), (1001, 0, 4000))
            before = 0
            for hertz, level, phase in (map(float, point) for point in points):
                value = transform(taps, hertz / 8000)
                if abs(value) > 1e-5:
                    self.assertLess(abs(cmath.rect(gain(level), math.radians(phase)) / value - 1), 1e-3)
                    self.assertLess(abs(phase - before), 181)  # no jump by 360 degrees
                    before = phase
            picture = Path("out.svg").read_text()
            self.assertEqual(subprocess.check_output(["gnuplot", "kept"], text=True), picture)
            self.assertIn(f"{wanted:.2f} dB at 1700 Hz", picture)
            if taps == [.5, .5]:  # a cosine, in decibels
                heights = [y for _, y in curves(picture)[0]]
                ratio = math.log(math.cos(.3 * math.pi)) / math.log(math.cos(.45 * math.pi))
                self.assertAlmostEqual((heights[600] - heights[0]) / (heights[900] - heights[0]), ratio, delta=.02)
        self.ok("response", "LOWPASS_4000_AT_16000", "out.PNG")
        self.assertEqual(Path("out.PNG").read_bytes()[:8], b"\x89PNG\r\n\x1a\n")

    def test_errors(self):
        encode("in.wav", [.5] * 800)
        for name, text in {"taps": "1\n2", "none": "# none\n", "vast": "", "word": "1\n0.5 0.5\n",
                           "crowd": "0\n" * 4097, "out.wav": "old"}.items():
            Path(name).write_text(text)
        os.truncate("vast", 1 << 40)
        os.mkfifo("fifo")
        for name, to in ("soft.wav", "in.wav"), ("full.svg", "/dev/full"):
            os.symlink(to, name)
        self.check_errors(ERRORS)
        for program in "transcode", "tones", "mix", "response", "bridge":
            self.assertRegex(self.ok(program, "--version"), rf"^pcm-{program} \d+\.\d+\.\d+\n$")
            text = self.ok(program, "--help")
            self.assertRegex(text, rf"(?s)Usage: pcm-{program} .*\n  pcm-{program} .*\nExit status: 0 if .* 1 for any failure")
            self.assertLessEqual(max(map(len, text.splitlines())), 80)


if __name__ == "__main__":
    unittest.main()
