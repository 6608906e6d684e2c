#!/usr/bin/env python3
"""Compares pcm.audioop with the interpreter's module, and prints how much the package adds to calls of the library.

    PYTHONPATH=build/release/python benchmark/python_speed.py [--markdown]

Each ratio is the time of the interpreter's module divided by ours, with samples of 2 bytes: the median of several rounds,
in which the two take turns.
"""

import random
import statistics
import sys
import timeit
import warnings

import pcm
from pcm import audioop as ours

warnings.simplefilter("ignore", DeprecationWarning)
import audioop as theirs  # noqa: E402

SIZES = 160, 100_000


def calls(samples):
    """The arguments of each function, for a number of samples."""
    data, other = (random.Random(seed).randbytes(2 * samples) for seed in (1, 2))
    codes = data[:samples]
    short = data[:2 * min(samples, 1000)]
    return {
        "add": (data, other, 2), "adpcm2lin": (codes, 2, None), "alaw2lin": (codes, 2), "avg": (data, 2),
        "avgpp": (data, 2), "bias": (data, 2, 99), "byteswap": (data, 2), "cross": (data, 2),
        "findfactor": (data, other), "findfit": (short, short[:100]), "findmax": (data, 80), "getsample": (data, 2, 7),
        "lin2adpcm": (data, 2, None), "lin2alaw": (data, 2), "lin2lin": (data, 2, 4), "lin2ulaw": (data, 2),
        "max": (data, 2), "maxpp": (data, 2), "minmax": (data, 2), "mul": (data, 2, 0.7),
        "ratecv": (data, 2, 1, 8000, 16000, None), "reverse": (data, 2), "rms": (data, 2),
        "tomono": (data, 2, 0.5, 0.5), "tostereo": (data, 2, 1, 0.5), "ulaw2lin": (codes, 2),
    }


def ratio(name, arguments):
    timers = [timeit.Timer(lambda f=getattr(module, name): f(*arguments)) for module in (ours, theirs)]
    number = max(1, int(0.003 / (timers[1].timeit(10) / 10)))
    rounds = [[timer.timeit(number) for timer in timers] for _ in range(15)]
    return statistics.median(theirs / ours for ours, theirs in rounds)


def package_calls():
    """Nanoseconds of calls of the package with 160 samples."""
    packet = pcm.Packet([0.5] * 160)
    encoded = packet.encode(pcm.Encoding.INT_16)
    rows = {
        "Packet.try_decode": lambda: pcm.Packet.try_decode(encoded, pcm.Encoding.INT_16),
        "Packet.encode": lambda: packet.encode(pcm.Encoding.INT_16),
        "Packet.level_adjust": lambda: packet.level_adjust(-0.001),
        "Packet.view": lambda: packet.view,
    }
    return {name: min(timeit.repeat(call, number=20_000, repeat=7)) / 20_000 * 1e9 for name, call in rows.items()}


if __name__ == "__main__":
    row = "| `{}` | {} | {} |" if "--markdown" in sys.argv else "{:14} {:>8} {:>8}"
    print(row.format("function", *SIZES))
    for name in calls(1):
        print(row.format(name, *(f"{ratio(name, calls(samples)[name]):.1f}" for samples in SIZES)))
    for name, nanoseconds in package_calls().items():
        print(f"{name}: {nanoseconds:.0f} ns in all")
