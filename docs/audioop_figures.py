#!/usr/bin/env python3
"""Measures pcm.audioop against Python's former audioop, and prints the table of docs/audioop.md; --write puts it there.

Needs a Python that still has the former module (up to 3.12).
"""
import sys
import warnings
from pathlib import Path

import numpy as np

from pcm import audioop as new

with warnings.catch_warnings():
    warnings.simplefilter("ignore")
    import audioop as old

DOC = Path(__file__).parent / "audioop.md"
MARK = "<!-- measured by docs/audioop_figures.py --write -->\n"


def integers(fragment, width):
    return new._integers(fragment, width)


def codes(width):
    """All codes of 1 and 2 bytes; of wider ones all that their upper 2 bytes can say, with any lower bytes."""
    bits = 8 * min(width, 2)
    all_ = np.arange(-(1 << bits - 1), 1 << bits - 1, dtype=np.int64)
    low = 8 * (width - min(width, 2))
    return new._fragment((all_ << low) + np.random.default_rng(width).integers(0, 1 << low, len(all_)), width)


def shuffled(width):
    """All codes four times in no order: neighbours are pairs of any sort."""
    values = integers(codes(width), width)
    return new._fragment(np.random.default_rng(7).permutation(np.tile(values, 4)), width)


def both(name, *args):
    return getattr(new, name)(*args), getattr(old, name)(*args)


def lines(width, rates, weights, channels):
    results = []
    for module in (new, old):
        state, out = None, b""
        for fragment in np.array_split(integers(shuffled(width), width)[:6000], 7):
            whole = fragment[:len(fragment) // channels * channels]
            piece, state = module.ratecv(new._fragment(whole, width), width, channels, *rates, state, *weights)
            out += piece
        results.append(out)
    return results


FACTORS = (0.5, 0.7, -1.0, 1.5)
LAWS = bytes(range(256))
# A function's cases for a width, what decodes its results, and why they differ.
ROWS = {
    "alaw2lin": (lambda w: [both("alaw2lin", LAWS, w)], None, "the former tables"),
    "ulaw2lin": (lambda w: [both("ulaw2lin", LAWS, w)], None, "ours are rounded down to multiples of 8 (of 16 bits)"),
    "lin2alaw": (lambda w: [both("lin2alaw", codes(w), w)], "alaw2lin",
                 "a negative value on a step takes the outer code"),
    "lin2ulaw": (lambda w: [both("lin2ulaw", codes(w), w)], "ulaw2lin",
                 "our steps lie at multiples of 8, up to 7 away"),
    "lin2lin": (lambda w: [both("lin2lin", codes(w), w, to) for to in (1, 2, 3, 4)], None,
                "a float holds 24 bits of 4 bytes"),
    "byteswap": (lambda w: [both("byteswap", codes(w), w)], None, ""),
    "bias": (lambda w: [both("bias", codes(w), w, by) for by in (128, -77)], None, ""),
    "mul": (lambda w: [both("mul", codes(w), w, by) for by in FACTORS], None, "the factor and the product are floats"),
    "add": (lambda w: [both("add", shuffled(w), shuffled(w)[w:] + bytes(w), w)], None, "the sum is a float"),
    "tomono": (lambda w: [both("tomono", shuffled(w), w, *by) for by in ((0.5, 0.5), (0.3, 0.7))], None, "as mul"),
    "tostereo": (lambda w: [both("tostereo", codes(w), w, *by) for by in ((1, 1), (0.7, -0.3))], None, "as mul"),
    "ratecv": (lambda w: [lines(w, rates, weights, channels)
                          for rates in ((8000, 16000), (8000, 11025), (44100, 8000))
                          for weights in ((1, 0), (3, 1)) for channels in (1, 2)], None, ""),
    "max": (lambda w: [both("max", codes(w), w)], None, ""),
    "rms": (lambda w: [both("rms", shuffled(w)[:w * n], w) for n in (0, 1, 160, 65536)], None, ""),
}


def compare(results, width, decoder):
    if isinstance(results[0], int):
        return [abs(results[0] - results[1])]
    assert len(results[0]) == len(results[1])
    if decoder:
        ours, theirs = (np.frombuffer(law, np.uint8) for law in results)
        values = integers(getattr(old, decoder)(LAWS, 2), 2)
        # Codes with the same value, the two zeros of a law, count as different codes by 0.
        return np.where(ours != theirs, np.maximum(np.abs(values[ours] - values[theirs]), 0.5), 0)
    ours, theirs = (integers(fragment, width) for fragment in results)
    return np.abs(ours - theirs)


def cell(row, width):
    cases, decoder, _ = ROWS[row]
    widths = (1, 2, 3, 4) if row == "lin2lin" else (width,) * len(cases(width))
    differences = np.concatenate([compare(case, to, decoder) for case, to in zip(cases(width), widths)])
    count = np.count_nonzero(differences)
    return f"{count} of {len(differences)}, by {int(differences.max())}" if count else "same"


def table():
    rows = ["| Function | 1 byte | 2 bytes | 3 bytes | 4 bytes | Why |\n", "|---|---|---|---|---|---|\n"]
    for row, (_, _, why) in ROWS.items():
        rows.append(f"| `{row}` | {' | '.join(cell(row, width) for width in (1, 2, 3, 4))} | {why} |\n")
    return "".join(rows)


if __name__ == "__main__":
    made = table()
    if sys.argv[1:] == ["--write"]:
        before, _, after = DOC.read_text().split(MARK)
        DOC.write_text(before + MARK + made + MARK + after)
    else:
        sys.stdout.write(made)
