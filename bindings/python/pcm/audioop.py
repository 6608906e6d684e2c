"""The functions of Python's former module `audioop` that telephony needs, by the library's rules.

Signatures and errors are the former ones; samples are signed, of 1 to 4 bytes in the machine's byte order. By how much
results differ stands in docs/audioop.md, measured over all codes.
"""
from __future__ import annotations

import math
import sys
from typing import Any, Optional, Tuple

import numpy as np
import numpy.typing as npt

from . import Bytes, Encoding, Packet, Samples, level_adjust_linear_gain_samples, try_convert

RatecvState = Tuple[int, Tuple[Tuple[int, int], ...]]

_order = Encoding.LITTLE_ENDIAN if sys.byteorder == "little" else Encoding.BIG_ENDIAN
_encodings = {1: Encoding.INT_8, 2: Encoding.INT_16 | _order, 3: Encoding.INT_24 | _order, 4: Encoding.INT_32 | _order}


class error(Exception):
    """Sizes that no audio has."""


def _size(fragment: Any) -> int:
    return memoryview(fragment).nbytes


def _encoding(width: int, *fragments: Bytes) -> Encoding:
    if width not in _encodings:
        raise error("Size should be 1, 2, 3 or 4")
    if any(_size(fragment) % width for fragment in fragments):
        raise error("not a whole number of frames")
    return _encodings[width]


def _convert(dest: Encoding, fragment: Bytes, source: Encoding) -> bytes:
    return try_convert(dest, fragment, source) or b""


def _decode(fragment: Bytes, width: int, channels: int = 1) -> Samples:
    packet = Packet.try_decode(fragment, _encoding(width, fragment), channels)
    if not packet:
        raise error("not a whole number of frames")
    return packet.view


def _integers(fragment: Bytes, width: int) -> npt.NDArray[np.int64]:
    """Returns the samples as integers, for functions that need no floats."""
    _encoding(width, fragment)
    if width != 3:
        return np.frombuffer(fragment, f"i{width}").astype(np.int64)
    slots = np.zeros((_size(fragment) // 3, 4), np.uint8)
    place = slots[:, 1:] if sys.byteorder == "little" else slots[:, :3]
    place[:] = np.frombuffer(fragment, np.uint8).reshape(-1, 3)
    return slots.view("i4")[:, 0].astype(np.int64) >> 8


def _fragment(integers: npt.NDArray[np.int64], width: int) -> bytes:
    """Returns the low bytes of integers."""
    part = slice(0, width) if sys.byteorder == "little" else slice(8 - width, 8)
    return integers[:, None].view(np.uint8)[:, part].tobytes()


def alaw2lin(fragment: Bytes, width: int, /) -> bytes:
    return _convert(_encoding(width), fragment, Encoding.G711_ALAW)


def lin2alaw(fragment: Bytes, width: int, /) -> bytes:
    return _convert(Encoding.G711_ALAW, fragment, _encoding(width, fragment))


def ulaw2lin(fragment: Bytes, width: int, /) -> bytes:
    return _convert(_encoding(width), fragment, Encoding.G711_MULAW)


def lin2ulaw(fragment: Bytes, width: int, /) -> bytes:
    return _convert(Encoding.G711_MULAW, fragment, _encoding(width, fragment))


def lin2lin(fragment: Bytes, width: int, newwidth: int, /) -> bytes:
    return _convert(_encoding(newwidth), fragment, _encoding(width, fragment))


def byteswap(fragment: Bytes, width: int, /) -> bytes:
    _encoding(width, fragment)
    return np.frombuffer(fragment, np.uint8).reshape(-1, width)[:, ::-1].tobytes()


def bias(fragment: Bytes, width: int, bias: int, /) -> bytes:
    """Sums wrap around. A bias of 128 converts between signed and unsigned samples of one byte."""
    return _fragment(_integers(fragment, width) + bias, width)


def mul(fragment: Bytes, width: int, factor: float, /) -> bytes:
    block = _decode(fragment, width).copy()
    level_adjust_linear_gain_samples(block, factor)
    return Packet.of(block).encode(_encoding(width))


def add(fragment1: Bytes, fragment2: Bytes, width: int, /) -> bytes:
    encoding = _encoding(width, fragment1, fragment2)
    if _size(fragment1) != _size(fragment2):
        raise error("Lengths should be the same")
    return Packet.of(_decode(fragment1, width) + _decode(fragment2, width)).encode(encoding)


def tomono(fragment: Bytes, width: int, lfactor: float, rfactor: float, /) -> bytes:
    frames = _decode(fragment, width, 2) * np.array([lfactor, rfactor], np.float32)
    return Packet.of(frames[:, 0] + frames[:, 1]).encode(_encoding(width))


def tostereo(fragment: Bytes, width: int, lfactor: float, rfactor: float, /) -> bytes:
    frames = _decode(fragment, width) * np.array([lfactor, rfactor], np.float32)
    return Packet.of(frames).encode(_encoding(width))


def max(fragment: Bytes, width: int, /) -> int:
    return int(np.abs(_integers(fragment, width)).max(initial=0))


def rms(fragment: Bytes, width: int, /) -> int:
    values = _integers(fragment, width).astype(float)
    return int(math.sqrt(float(values @ values) / len(values))) if len(values) else 0


def ratecv(fragment: Bytes, width: int, nchannels: int, inrate: int, outrate: int, state: Optional[RatecvState],
           weightA: int = 1, weightB: int = 0, /) -> Tuple[bytes, RatecvState]:
    """Interpolates linearly after a one-pole filter. pcm.Src sounds better."""
    _encoding(width)
    if nchannels < 1:
        raise error("# of channels should be >= 1")
    if weightA < 1 or weightB < 0:
        raise error("weightA should be >= 1, weightB should be >= 0")
    if _size(fragment) % (width * nchannels):
        raise error("not a whole number of frames")
    if inrate <= 0 or outrate <= 0:
        raise error("sampling rate not > 0")
    inrate, outrate = inrate // math.gcd(inrate, outrate), outrate // math.gcd(inrate, outrate)
    weightA, weightB = weightA // math.gcd(weightA, weightB), weightB // math.gcd(weightA, weightB)
    if state is not None and not isinstance(state, tuple):
        raise TypeError("state must be a tuple or None")
    ahead, ends = (-outrate, ((0, 0),) * nchannels) if state is None else state
    if len(ends) != nchannels:
        raise error("illegal state argument")
    # Row 0 and 1 are the two frames before the fragment; all on the scale of 32 bits.
    shift = 32 - 8 * width
    frames = np.vstack([np.array(ends, np.int64).T, _integers(fragment, width).reshape(-1, nchannels) << shift])
    if weightB:
        for i in range(2, len(frames)):
            mixed = (weightA * frames[i].astype(float) + weightB * frames[i - 1]) / (weightA + weightB)
            frames[i] = mixed.astype(np.int64)
    # Output m is where d = ahead + i * outrate - m * inrate is not below 0 for the first time: d before frame i.
    end = ahead + (len(frames) - 2) * outrate
    due = np.arange(end // inrate + 1) * inrate - ahead
    at = -(-due // outrate)
    d = (at * outrate - due)[:, None].astype(float)
    lines = (frames[at] * d + frames[at + 1] * (outrate - d)) / outrate
    last = tuple((int(before), int(current)) for before, current in zip(frames[-2], frames[-1]))
    return _fragment((lines.astype(np.int64) >> shift).reshape(-1), width), (end - len(due) * inrate, last)
