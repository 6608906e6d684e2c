"""Compares pcm.audioop with known results, and with the standard module in Python versions that have it."""
import re
import struct
import sys
import warnings
from pathlib import Path

import pytest

from pcm import audioop

DOCS = Path(__file__).parents[2] / "docs"
sys.path.insert(0, str(Path(__file__).parent))

with warnings.catch_warnings():
    warnings.simplefilter("ignore")
    try:
        import audioop as former
    except ImportError:
        former = None
needs_former = pytest.mark.skipif(former is None, reason="this Python has no audioop")


def shorts(*values):
    return struct.pack(f"={len(values)}h", *values)


@pytest.mark.parametrize("got, expected", [
    (lambda: audioop.alaw2lin(b"\xd5\x55\x2a\xaa", 2), shorts(8, -8, -32256, 32256)),
    (lambda: audioop.lin2alaw(shorts(8, -8, -32768, 32767), 2), b"\xd5\x55\x2a\xaa"),
    (lambda: audioop.lin2ulaw(shorts(0, -32768, 32767), 2), b"\xff\x00\x80"),
    (lambda: audioop.lin2lin(b"\x01\x80\x7f", 1, 2), shorts(256, -32768, 32512)),
    (lambda: audioop.byteswap(b"\1\2\3\4\5\6", 3), b"\3\2\1\6\5\4"),
    (lambda: audioop.bias(b"\x00\x80\xff", 1, 128), b"\x80\x00\x7f"),
    (lambda: audioop.mul(shorts(3, -3, 30000, -30000), 2, 1.5), shorts(4, -5, 32767, -32768)),
    (lambda: audioop.add(shorts(1, 32767, -32768), shorts(2, 1, -1), 2), shorts(3, 32767, -32768)),
    (lambda: audioop.tomono(shorts(100, 50, 32767, 32767), 2, 0.5, 1), shorts(100, 32767)),
    (lambda: audioop.tostereo(shorts(100, -100), 2, 1, -0.5), shorts(100, -50, -100, 50)),
    (lambda: audioop.ratecv(shorts(10, 20, 30), 2, 1, 1, 2, None)[0], shorts(10, 15, 20, 25, 30)),
    (lambda: audioop.max(shorts(5, -32768, 7), 2), 32768),
    (lambda: audioop.rms(shorts(3, -4, 3, -4), 2), 3),
    (lambda: audioop.max(b"", 2) + audioop.rms(b"", 4), 0),
    (lambda: audioop.lin2alaw(memoryview(bytearray(2)), 2), b"\xd5"),
    (lambda: [f(b"", 2) for f in (audioop.alaw2lin, audioop.lin2ulaw, audioop.byteswap)], [b"", b"", b""]),
])
def test_known_answers(got, expected):
    assert got() == expected


NOT_WHOLE = "not a whole number of frames"
SIZE = "Size should be 1, 2, 3 or 4"


@pytest.mark.parametrize("call, message", [
    (lambda m: m.lin2alaw(b"\0" * 3, 2), NOT_WHOLE),
    (lambda m: m.byteswap(b"\0" * 4, 3), NOT_WHOLE),
    (lambda m: m.rms(b"\0" * 5, 4), NOT_WHOLE),
    (lambda m: m.tomono(b"\0" * 6, 2, 1, 1), NOT_WHOLE),
    (lambda m: m.add(b"\0" * 3, b"\0" * 3, 2), NOT_WHOLE),
    (lambda m: m.ratecv(b"\0" * 6, 2, 2, 1, 1, None), NOT_WHOLE),
    (lambda m: m.ulaw2lin(b"", 5), SIZE),
    (lambda m: m.lin2lin(b"", 1, 0), SIZE),
    (lambda m: m.mul(b"", 0, 1.0), SIZE),
    (lambda m: m.add(b"\0\0", b"\0", 1), "Lengths should be the same"),
    (lambda m: m.ratecv(b"", 2, 0, 1, 1, None), "# of channels should be >= 1"),
    (lambda m: m.ratecv(b"", 2, 1, 0, 1, None), "sampling rate not > 0"),
    (lambda m: m.ratecv(b"", 2, 1, 1, 1, None, 0), "weightA should be >= 1, weightB should be >= 0"),
    (lambda m: m.ratecv(b"", 2, 1, 1, 1, (-1, ((0, 0), (0, 0)))), "illegal state argument"),
])
def test_errors(call, message):
    for module in (audioop, former) if former else (audioop,):
        with pytest.raises(module.error, match="^" + re.escape(message) + "$"):
            call(module)


@needs_former
def test_the_documented_differences_are_those_measured():
    sys.path.insert(0, str(DOCS))
    import audioop_figures
    page = (DOCS / "audioop.md").read_text()
    assert page.split(audioop_figures.MARK)[1] == audioop_figures.table()


@needs_former
@pytest.mark.parametrize("law", ["alaw", "ulaw"])
def test_a_different_code_is_the_next_one(law):
    decoded = former.__dict__[f"{law}2lin"](bytes(range(256)), 2)
    values = struct.unpack("=256h", decoded)
    order = sorted(set(values))
    for width in (1, 2):
        every = range(-(1 << 8 * width - 1), 1 << 8 * width - 1)
        given = struct.pack(f"={len(every)}{' bh'[width]}", *every)
        ours, theirs = (module.__dict__[f"lin2{law}"](given, width) for module in (audioop, former))
        assert all(abs(order.index(values[a]) - order.index(values[b])) <= 1 for a, b in zip(ours, theirs) if a != b)
