#!/usr/bin/env python3
"""Runs tones, mix and response, programs in the folder BIN; what they write is decoded by sox and measured here."""
import cmath, math, os, re, struct, subprocess, unittest, xml.etree.ElementTree
from fractions import Fraction
from pathlib import Path

from host import Test, floats, sox

# Dial, busy and ring-back tone: frequencies in hertz; seconds of sound and pause.
COUNTRIES = """australia 425*25; 425 .375 .375; 425*25 .4 .2 .4 2 | belgium 425; 425 .5 .5; 425 1 3
    brazil 425; 425 .25 .25; 425 1 4 | canada 350+440; 480+620 .5 .5; 440+480 2 4 | china 450; 450 .35 .35; 450 1 4
    finland 425; 425 .3 .3; 425 1 4 | france 440; 440 .5 .5; 440 1.5 3.5 | germany 425; 425 .48 .48; 425 1 4
    italy 425 .2 .2 .6 1; 425 .5 .5; 425 1 4 | japan 400; 400 .5 .5; 400*16 1 2 | spain 425; 425 .2 .2; 425 1.5 3
    netherlands 425; 425 .5 .5; 425 1 4 | sweden 425; 425 .25 .25; 425 1 5 | switzerland 425; 425 .5 .5; 425 1 4
    UK 350+440; 400 .375 .375; 400+450 .4 .2 .4 2 | us 350+440; 480+620 .5 .5; 440+480 2 4"""
ROWS, COLUMNS = (697, 770, 852, 941), (1209, 1336, 1477, 1633)
# Cut-off, rate, gain at the cut-off in dB, sum of the taps.
LOWPASS = ((4000, 16000, -3.76, .97401), (4000, 24000, -3.40, .98288), (4000, 48000, -3.26, .98704),
           (6000, 24000, -3.33, .99079), (6000, 48000, -3.10, .99601), (8000, 48000, -3.06, .99843),
           (12000, 48000, -3.06, .99943))
ERRORS = """tones dial atlantis out.wav | unknown country "atlantis"; known are australia, .*us
    tones dial us | OUTPUT is & tones dial us out.wav --rate 880 | rates above 880 Hz
    tones ringback australia out.wav --rate 900 | 450 Hz sound & tones dtmf 1 out.wav --rate 2418 | 1209 Hz sound
    tones dtmf 1x out.wav | no key "x" & tones dtmf - out.wav | no key "-" & tones dtmf 1 o.wav --on=-1 | no time
    tones am 300 9 out.wav --level nan | no level & tones am 300 9 out.wav --level 1 | no level from -200 to 0 dB
    tones am 300 9 out.wav --seconds 1e9 | too long for
    tones am 300 9 o.raw --rate 1000000000 --seconds 1e9 | never end
    mix out.wav none.wav | cannot open none.wav: No such file & mix out.wav in.wav,lvel=3 | cannot open in.wav,lvel=3
    mix out.wav in.wav,level=3,at=1,level=4 | level=3 is told twice & mix out.wav in.wav,level=loud | no level
    mix out.wav in.wav,at=-1 | no time & mix out.wav in.wav,at=1e6 | too long
    mix out.wav in.wav --rate 3000000 | ratio & mix in.wav in.wav | is one of the inputs
    mix in.wav soft.wav | is one of & mix full.wav in.wav | No space left & response | one of TYPE and --taps
    response LOWPASS_4000_AT_16000 out.svg --taps taps | one of TYPE and --taps
    response LOWPASS_1_AT_2 | unknown type "LOWPASS_1_AT_2"
    response LOWPASS_4000_AT_16000 out.jpg | are .svg or .png
    response LOWPASS_4000_AT_16000 full.svg | No space left
    response --taps taps out.svg | needs gnuplot, .* gnuplot-nox & response --taps nil | nil: No such file
    response --taps none | none holds no taps & response --taps vast | too long
    response --taps word | word, line 2: "0.5 0.5" is no tap & response --taps huge | is no tap
    response --taps nan | is no tap & response --taps crowd | crowd, line 4097: more than 4096
    response --taps taps --cutoff 24001 | above half the rate
    response --taps taps --script taps | is the file of taps itself & response --taps /dev/zero | /dev/zero"""


def decoded(name):
    return floats(sox(name, "-t", "f32", "-L", "-"))


def encode(name, values, channels=1, rate=8000, form=("-b", 16)):
    Path("values.f32").write_bytes(struct.pack(f"<{len(values)}f", *values))
    sox("-c", channels, "-r", rate, "-L", "values.f32", *form, name)


def frame(seconds, rate):
    return math.floor(seconds * rate + Fraction(1, 2))


def gain(level):
    return 10 ** (level / 20)


def transform(values, turns):
    """The Fourier transform at a frequency in turns a frame."""
    return sum(v * cmath.exp(-2j * math.pi * turns * i) for i, v in enumerate(values))


def modelTone(text, seconds, rate):
    """The samples of an entry of the table of countries."""
    hertz, *cadence = text.split()
    values, at, part = [], 0, 0
    while len(values) < frame(seconds, rate):
        at, start = at + float(cadence[part % len(cadence)] if cadence else seconds), len(values)
        for i in range(frame(at, rate) - start):
            waves = [math.sin(2 * math.pi * int(each) / rate * i) for each in re.split("[+*]", hertz)]
            values.append(0 if part % 2 else waves[0] * waves[1] if "*" in hertz else sum(waves) / len(waves))
        part += 1
    return values[:frame(seconds, rate)]


class Programs(Test):
    def near(self, got, wanted, worst):
        self.assertEqual(len(got), len(wanted))
        self.assertLess(max((abs(a - b) for a, b in zip(got, wanted)), default=0), worst)

    def test_national_tones(self):
        for line in re.split(r"[|\n]", COUNTRIES):
            name, _, tones = line.strip().partition(" ")
            for kind, text in zip(("dial", "busy", "ringback"), tones.split(";"), strict=True):
                rate, level = self.random.choice(((8000, 0), (8000, -3.5), (1301, -40), (11025, -20)))
                seconds = round((sum(map(float, text.split()[1:])) or .5) * self.random.choice((1.15, 1.6)), 6)
                with self.subTest(country=name, kind=kind, rate=rate, seconds=seconds):
                    self.ok("tones", kind, name, "out.wav", "--rate", rate, "--seconds", seconds, "--level", level,
                            "--encoding", "float32")
                    self.near(decoded("out.wav"), [gain(level) * v for v in modelTone(text, seconds, rate)], 2e-5)

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
            counts = [self.random.randrange(4000, 9000) for _ in rates]
            for rate, count in zip(rates, counts):
                sine = [.2 * math.sin(880 * math.pi * i / rate) for i in range(count)]
                encode(f"{rate}.wav", sine, 1, rate, ["-b", 24])
            self.ok("mix", "out.wav", *[f"{rate}.wav,at=0.05" for rate in rates], "--encoding", "float32", *more)
            got, start = decoded("out.wav"), frame(.05, out)
            ends = [frame(Fraction(count * out, rate), 1) for rate, count in zip(rates, counts)]
            self.assertEqual(len(got), start + max(ends))
            wanted = [.2 * len(rates) * math.sin(880 * math.pi * i / out) for i in range(min(ends))]
            self.near(got[start + 500:start + min(ends) - 500], wanted[500:-500], 1e-3)
        encode("loud.wav", [.9, -.9, .1])
        self.assertIn("peak 5.11 dB before it was clipped", self.ok("mix", "out.wav", "loud.wav", "loud.wav"))
        self.near(decoded("out.wav"), [1, -1, .2], 1e-4)
        Path("long.au").write_bytes(struct.pack(">6I", 0x2E736E64, 24, 0xFFFFFFFF, 3, 48000, 4))
        os.truncate("long.au", 100 << 20)
        self.frugal(48, "mix", "/dev/null", "long.au", "loud.wav,at=400", "--quality", "hold")

    def test_response(self):
        for cutoff, rate, level, total in LOWPASS:
            for prefix in "LOWPASS", "PCM_FILTER_TYPE_LOWPASS":
                told = self.ok("response", f"{prefix}_{cutoff}_AT_{rate}")
                self.assertRegex(told, rf"\n{level:.2f} dB at {cutoff} Hz, the cut-off\n$")
                zero = float(re.search("(.*) dB at 0 Hz", told)[1])
                self.assertAlmostEqual(zero, 20 * math.log10(total), delta=.0051)
        for taps in [.5, .5], [2.5], [1, 0, -1], [self.random.uniform(-9, 9) for _ in range(31)]:
            Path("taps").write_text("\n".join(f" {t:.9g} # a tap" for t in taps) + "\n\n# end")
            told = self.ok(*"response --taps taps out.svg --rate 8000 --cutoff 1700 --script kept".split())
            wanted = 20 * math.log10(abs(transform(taps, 1700 / 8000)))
            self.assertAlmostEqual(float(re.search(r"(\S+) dB at 1700 Hz, the", told)[1]), wanted, delta=.0051)
            points = re.findall("(?m)^([-.0-9]+) ([-.0-9]+) (.+)", Path("kept").read_text())
            self.assertEqual((len(points), float(points[0][0]), float(points[-1][0])), (1001, 0, 4000))
            before = None
            for hertz, level, phase in (map(float, point) for point in points):
                value = transform(taps, hertz / 8000)
                if abs(value) > 1e-5:
                    self.assertAlmostEqual(level, 20 * math.log10(abs(value)), delta=.02)
                    self.assertLess(abs(cmath.phase(value * cmath.exp(-1j * math.radians(phase)))), 1e-3)
                    self.assertTrue(before is None or abs(phase - before) < 181)  # nowhere a whole turn
                    before = phase
            script, picture = Path("kept").read_bytes(), Path("out.svg").read_bytes()
            self.assertEqual(subprocess.check_output(["gnuplot"], input=script), picture)
            image = xml.etree.ElementTree.fromstring(picture)
            self.assertIn(f"{wanted:.2f} dB at 1700 Hz", "".join(image.itertext()))
            paths = [re.findall(r"([\d.]+),([\d.]+)", each.get("d")) for each in image.iter() if each.get("d")]
            curve = [(float(x), float(y)) for x, y in next(path for path in paths if len(path) > 500)]
            if taps == [.5, .5]:  # a cosine, in decibels
                points = [min(curve, key=lambda p: abs(p[0] - curve[0][0] - part * (curve[-1][0] - curve[0][0])))
                          for part in (.6, .9)]
                drop = [math.log(math.cos(part * math.pi / 2)) for part in (.6, .9)]
                ratio = (points[0][1] - curve[0][1]) / (points[1][1] - curve[0][1])
                self.assertAlmostEqual(ratio, drop[0] / drop[1], delta=.02)
        self.ok("response", "LOWPASS_4000_AT_16000", "out.PNG")
        self.assertEqual(Path("out.PNG").read_bytes()[:8], b"\x89PNG\r\n\x1a\n")

    def test_errors(self):
        encode("in.wav", [.5] * 800)
        for name, text in {"taps": "1\n2", "none": "# none\n", "nan": "nan", "vast": "", "word": "1\n0.5 0.5\n",
                           "huge": "1e39", "crowd": "0\n" * 4097, "out.wav": "old"}.items():
            Path(name).write_text(text)
        os.truncate("vast", 1 << 40)
        for name, to in ("soft.wav", "in.wav"), ("full.wav", "/dev/full"), ("full.svg", "/dev/full"):
            os.symlink(to, name)
        self.refusals(ERRORS)
        for program in "tones", "mix", "response":
            self.assertRegex(self.ok(program, "--version"), rf"^{program} \d+\.\d+\.\d+\n$")
            self.assertRegex(self.ok(program, "--help"), rf"(?s)Usage: {program} .*\n  {program} ")


if __name__ == "__main__":
    unittest.main()
