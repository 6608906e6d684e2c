"""Compares pcm.audioop with the interpreter's module, CPython's tests of it, and pydub's use of it."""
import importlib
import os
import random
import struct
import subprocess
import sys
import unittest
import warnings
from pathlib import Path

import pytest

from pcm import audioop as ours

warnings.simplefilter("ignore", DeprecationWarning)
RECORDING = Path("/usr/share/asterisk/sounds/en_US_f_Allison/demo-thanks.wav")


@pytest.fixture
def theirs():
    return pytest.importorskip("audioop")


def test_cpython_tests(monkeypatch):
    pytest.importorskip("test.test_audioop", reason="CPython's tests are not installed")
    monkeypatch.setitem(sys.modules, "audioop", ours)
    tests = importlib.reload(sys.modules["test.test_audioop"])
    result = unittest.defaultTestLoader.loadTestsFromModule(tests).run(unittest.TestResult())
    assert result.wasSuccessful(), [text for _, text in result.errors + result.failures]
    assert result.testsRun - len(result.skipped) == 31


# ---- Random calls

def fragment(choice, frame=1):
    """A buffer of random or extreme samples, usually of whole frames."""
    frames = choice.choice((0, 1, 2, 3, 8, 33, 34, 100))
    size = frames * frame + (choice.random() < 0.05)
    kind = choice.randrange(5)
    if kind == 0:
        data = choice.randbytes(size)
    elif kind == 1:
        data = b"".join(choice.choice((b"\0", b"\x7f", b"\x80", b"\xff")) for _ in range(size))
    elif kind == 2:
        data = bytes([choice.randrange(256)]) * size
    elif kind == 3:
        data = (b"\0\0\0\x80" + b"\xff\xff\xff\x7f" * choice.randrange(2)) * (size // 4) + b"\0" * (size % 4)
    else:
        data = b"".join(struct.pack("<h", int(30000 * random.triangular(-1, 1))) for _ in range(size // 2)) + b"\1" * (size % 2)
    return choice.choice((bytes, bytearray, memoryview))(data)


def integer(choice):
    return choice.choice((0, 1, 2, 3, 7, -1, 8000, 44100, choice.randrange(-2**31, 2**31), 2**31, 2**40, 2**70, 1.0, None))


def factor(choice):
    return choice.choice((0, 1, 0.5, 0.7, -1, -0.3, 2.5, 1e300, choice.uniform(-3, 3), float("nan"), float("inf"), 2**31, "x"))


def rate(choice):
    return choice.choice((8000, 11025, 16000, 44100, 48000, 1, 3, choice.randrange(1, 2**20), integer(choice)))


def adpcm_state(choice):
    return choice.choice((None, None, (choice.randrange(-32768, 32768), choice.randrange(89)), (0, 89), (40000, 1), (1,), 3,
                          (1.5, 2), (2**40, 1), [0, 0]))


def rate_state(choice, channels):
    # The interpreter's module writes beyond its result if the first number is positive.
    numbers = [choice.choice((0, choice.randrange(-2**31, 2**31))) for _ in range(2 * min(max(channels, 0), 5))]
    pairs = tuple(zip(numbers[::2], numbers[1::2]))
    return choice.choice((None, None, (choice.randrange(-50, 0), pairs), (-1, pairs), (2**40, pairs), (1.5, pairs),
                          (-1, pairs[1:]), (-1, list(pairs)), (-1, ((1.5, 2),) * len(pairs)), (-1, (3,) * len(pairs)), (-1, ((1,),) * len(pairs)),
                          (-1, ((1, 2, 3),) * len(pairs)), 7, (1,)))


def arguments(choice, name):
    """Random arguments of a function, of which a few have a wrong type or a wrong value."""
    width = choice.choice((1, 2, 3, 4) * 6 + (0, 5, -1, None, 2**40))
    frame = width if width in (1, 2, 3, 4) else 1
    data = fragment(choice, 2 * frame if name == "tomono" else frame)
    if name == "add":
        made = [data, choice.choice((fragment(choice, frame), bytes(len(data)), bytes(data))), width]
    elif name in ("mul", "bias"):
        made = [data, width, factor(choice) if name == "mul" else integer(choice)]
    elif name in ("tomono", "tostereo"):
        made = [data, width, factor(choice), factor(choice)]
    elif name == "lin2lin":
        made = [data, width, choice.choice((1, 2, 3, 4, 1, 2, 3, 4, 5, 0))]
    elif name == "getsample":
        made = [data, width, choice.choice((0, 1, 7, integer(choice)))]
    elif name in ("lin2adpcm", "adpcm2lin"):
        made = [data, width, adpcm_state(choice)]
    elif name in ("findfactor", "findfit"):
        made = [fragment(choice, 2), fragment(choice, 2)]
        if choice.random() < 0.5:
            made[1] = bytes(made[0])[2 * choice.randrange(3):][:choice.choice((2, 10, 1000))]
    elif name == "findmax":
        made = [fragment(choice, 2), choice.choice((0, 1, 2, 5, integer(choice)))]
    elif name == "ratecv":
        channels = choice.choice((1, 1, 2, 3, 0, 2**30 if width in (2, 3, 4) else 1))
        rates = rate(choice), rate(choice)
        if all(isinstance(value, int) and value > 0 for value in rates) and rates[1] > 1000 * rates[0]:
            rates = rates[::-1]  # not gigabytes of output
        made = [fragment(choice, frame * min(channels, 3) or 1), width, channels, *rates, rate_state(choice, channels)]
        made += [choice.choice((1, 2, 3, 0, 7, integer(choice))) for _ in range(choice.randrange(3))]
    else:
        made = [data, width]
    if choice.random() < 0.03:
        made[0] = choice.choice(("text", None, 3, bytes(data)))
    return made[:-1] if choice.random() < 0.02 else made


def outcome(module, name, values):
    try:
        return repr(getattr(module, name)(*values))
    except Exception as raised:
        return f"{type(raised).__name__}: {raised}"


def test_same_results_and_errors(theirs):
    names = [name for name in dir(theirs) if not name.startswith("_") and name != "error"]
    assert sorted(ours.__all__) == sorted([*names, "error"]) and issubclass(ours.error, Exception)
    choice = random.Random(int(os.environ.get("PCM_SEED", 1)))
    for _ in range(int(os.environ.get("PCM_CALLS", 60_000)) // len(names)):
        for name in names:
            values = arguments(choice, name)
            assert outcome(ours, name, values) == outcome(theirs, name, values), (name, values)


def test_every_code(theirs):
    every = struct.pack("=65536h", *range(-32768, 32768))
    codes = bytes(range(256))
    for width in 1, 2, 3, 4:
        wide = theirs.lin2lin(every, 2, width)
        for name in "lin2ulaw", "lin2alaw":
            assert getattr(ours, name)(wide, width) == getattr(theirs, name)(wide, width)
        for name in "ulaw2lin", "alaw2lin":
            assert getattr(ours, name)(codes, width) == getattr(theirs, name)(codes, width)
        large = random.Random(width).randbytes(width * 30_000)
        for name in "rms", "avg", "max", "maxpp", "avgpp", "reverse":
            assert getattr(ours, name)(large, width) == getattr(theirs, name)(large, width)


# ---- Users of the module

OPERATIONS = """
import sys, hashlib
if sys.argv[1] == "pcm":
    import pcm.audioop
    sys.modules["audioop"] = pcm.audioop
import warnings
warnings.simplefilter("ignore")
from pydub import AudioSegment, effects
voice = AudioSegment.from_wav(sys.argv[2])[:1500]
stereo = AudioSegment.from_mono_audiosegments(voice, voice.reverse())
operations = [lambda s, n=n: s.set_frame_rate(n) for n in (8000, 11025, 16000, 44100, 48000)]
operations += [lambda s, n=n: s.set_channels(n) for n in (1, 2)]
operations += [lambda s, n=n: s.set_sample_width(n) for n in (1, 2, 4)]
operations += [lambda s, n=n: s.apply_gain(n) for n in (-20, -3.5, 0.1, 12)]
operations += [
    lambda s: s.overlay(s.reverse()), lambda s: s.overlay(s[:200], loop=True), lambda s: s.overlay(s, gain_during_overlay=-8),
    lambda s: s.append(s, crossfade=100), lambda s: s.fade_in(300), lambda s: s.fade_out(500),
    lambda s: s.fade(to_gain=-30, start=100, duration=400), lambda s: s.reverse(), lambda s: s.invert_phase(),
    lambda s: s.remove_dc_offset(), lambda s: s.set_channels(2).pan(-0.3), lambda s: s.set_channels(2).apply_gain_stereo(-6, 2),
    lambda s: s.set_channels(2).split_to_mono()[1], lambda s: effects.normalize(s), lambda s: s.low_pass_filter(1000),
    lambda s: s.high_pass_filter(300), lambda s: effects.compress_dynamic_range(s[:300]), lambda s: s * 2 + s,
    lambda s: effects.speedup(s, 1.5), lambda s: s.set_frame_rate(16000).set_sample_width(4).set_channels(1),
]
for source in voice, stereo, voice.set_sample_width(4), voice.set_sample_width(1):
    for operation in operations:
        made = operation(source)
        print(hashlib.sha256(made.raw_data).hexdigest(), made.rms, made.max, made.dBFS)
"""


def test_pydub(theirs):
    pytest.importorskip("pydub")
    if not RECORDING.exists():
        pytest.skip("no recording")
    results = [subprocess.run([sys.executable, "-W", "ignore", "-c", OPERATIONS, module, RECORDING], check=True,
                              stdout=subprocess.PIPE, text=True).stdout.splitlines() for module in ("pcm", "interpreter")]
    assert results[0] == results[1] and len(results[0]) == 4 * 34


def test_install():
    code = ("import importlib.abc, sys\nclass Hidden(importlib.abc.MetaPathFinder):\n"
            "    def find_spec(self, name, *more):\n        if name == 'audioop': raise ModuleNotFoundError(name)\n")
    code = "import sys, pcm.audioop\nhidden = __import__('importlib.util').util\n" \
           "hidden.find_spec = lambda name: None\nassert pcm.audioop.install() is pcm.audioop\n" \
           "import audioop\nassert audioop is pcm.audioop"
    subprocess.run([sys.executable, "-c", code], check=True)
